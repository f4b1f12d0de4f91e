// Fixture for table-driven command tests. StepRow tables: a call that makes
// any number of exchanges (none: it must refuse without traffic), the request
// each must carry, and what the call hands back.
#pragma once

#include <chrono>
#include <functional>
#include <initializer_list>
#include <thread>
#include <vector>

#include "link_helpers.h"
#include "outcome.h"
#include "transport.h"

namespace uhftest {

// One exchange of a call: the request code and data the reader must see, and
// the wire bytes it answers with (empty: it says nothing).
struct Step {
    uint8_t cmd;
    Bytes request;
    Bytes reply;
};

struct StepRow {
    const char* name;
    std::function<Outcome()> call;
    std::vector<Step> steps;
    Outcome expect;
};

// The answer to request code `cmd`: a frame of code cmd + 1.
inline Bytes answer(uint8_t cmd, const Bytes& data) { return frame(uint8_t(cmd + 1), data); }

// A call that makes one exchange under `cmd`: the request data it must send
// and the reply data it gets.
inline std::vector<Step> ask(uint8_t cmd, Bytes request, Bytes reply) {
    return {{cmd, std::move(request), answer(cmd, reply)}};
}

class CommandTest : public WireTest {
protected:
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
    auto refused(F&& call) {
        size_t before = reader.received().size();
        auto r = call();
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_EQ(reader.received().size(), before) << "no traffic expected";
        return r;
    }

    void check_steps(const std::vector<StepRow>& rows) {
        for (const StepRow& row : rows) {
            SCOPED_TRACE(row.name);
            uhf::forget_late_replies(cur_index);  // rows are separate scenarios
            size_t before = reader.requests().size();
            for (const Step& s : row.steps) reader.reply(s.reply);
            Outcome got = row.steps.empty() ? refused(row.call) : row.call();
            EXPECT_EQ(got.result, row.expect.result);
            EXPECT_EQ(got.out, row.expect.out);
            std::vector<Bytes> reqs = reader.requests();
            if (reqs.size() - before != row.steps.size()) {
                ADD_FAILURE() << "sent " << reqs.size() - before << " requests, expected " << row.steps.size();
                continue;
            }
            for (size_t i = 0; i < row.steps.size(); i++) {
                const Bytes& f = reqs[before + i];
                ASSERT_GE(f.size(), 8u);
                EXPECT_EQ(f[4], row.steps[i].cmd) << "request " << i;
                EXPECT_EQ(Bytes(f.begin() + 5, f.end() - 3), row.steps[i].request) << "request " << i;
            }
        }
    }

    uint8_t sent_cmd = 0;
    Bytes sent_data;
};

}  // namespace uhftest
