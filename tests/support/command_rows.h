// Table-driven command tests: one row per call, with the request frames the
// reader must see, what it answers to each, and the call's result and outputs.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "scripted_reader.h"

namespace uhftest {

// A call's result and its outputs, flattened (sentinels where untouched).
struct Outcome {
    int result;
    std::vector<unsigned> out;
};

// One exchange of a call: the request code and data the reader must see, and
// the wire bytes it answers with (empty: it says nothing).
struct Step {
    uint8_t cmd;
    Bytes request;
    Bytes reply;
};

struct CommandRow {
    const char* name;
    std::function<Outcome()> call;
    std::vector<Step> steps;  // empty: the call must send nothing
    Outcome expect;
};

// The reply frame to request code cmd.
inline Bytes answer(uint8_t cmd, const Bytes& data) { return frame(static_cast<uint8_t>(cmd + 1), data); }

inline void run_rows(ScriptedReader& reader, const std::vector<CommandRow>& rows) {
    for (const CommandRow& row : rows) {
        SCOPED_TRACE(row.name);
        size_t before = reader.requests().size();
        for (const Step& s : row.steps) reader.reply(s.reply);
        Outcome got = row.call();
        // A call that must stay silent gets a moment for stray bytes to show.
        if (row.steps.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(30));
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

}  // namespace uhftest
