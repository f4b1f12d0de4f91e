// Fixture for table-driven command tests: each row scripts one reply, makes
// one call, and then looks at the single request frame the call sent.
#pragma once

#include <chrono>
#include <functional>
#include <initializer_list>
#include <thread>

#include "link_helpers.h"

namespace uhftest {

// One call of a command family sharing a code: what it sends as data, the
// reply data it gets, and its result.
struct CallRow {
    const char* name;
    std::function<int()> call;
    Bytes request;
    Bytes reply;
    int result;
};

class CommandTest : public WireTest {
protected:
    // The answer to request code `cmd`: a frame of code cmd + 1.
    static Bytes answer(uint8_t cmd, const Bytes& data) { return frame(uint8_t(cmd + 1), data); }

    // Scripts `reply` (raw bytes; empty = say nothing), runs `call`, and
    // records the one request frame it sent in sent_cmd / sent_data.
    template <class F>
    int exchange(const Bytes& reply, F&& call) {
        size_t before = reader.requests().size();
        reader.reply(reply);
        int r = call();
        auto reqs = reader.requests();
        EXPECT_EQ(reqs.size(), before + 1) << "one request frame per call";
        sent_cmd = 0;
        sent_data.clear();
        if (reqs.size() > before) {
            const Bytes& f = reqs.back();
            if (f.size() >= 8) {
                sent_cmd = f[4];
                sent_data.assign(f.begin() + 5, f.end() - 3);
            }
        }
        return r;
    }

    // Runs `call`, which must refuse before any byte leaves.
    template <class F>
    int refused(F&& call) {
        size_t before = reader.received().size();
        int r = call();
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_EQ(reader.received().size(), before) << "no traffic expected";
        return r;
    }

    // Every row under request code `cmd`.
    void check_rows(uint8_t cmd, std::initializer_list<CallRow> rows) {
        for (const CallRow& c : rows) {
            SCOPED_TRACE(c.name);
            EXPECT_EQ(exchange(answer(cmd, c.reply), c.call), c.result);
            EXPECT_EQ(sent_cmd, cmd);
            EXPECT_EQ(sent_data, c.request);
        }
    }

    uint8_t sent_cmd = 0;
    Bytes sent_data;
};

}  // namespace uhftest
