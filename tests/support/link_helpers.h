// Small helpers shared by the suites that open links.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "UHF.h"
#include "bytes_ops.h"
#include "scripted_reader.h"

namespace uhftest {

// Every test starts from an empty link table, as a fresh process would.
inline void reset_links() {
    LinkCloseAll();
    terminal_index = 0;
    cur_index = 0;
}

// Open a TCP link to the scripted reader and wait for it to be accepted.
inline void connect_to(const ScriptedReader& reader) {
    ASSERT_EQ(TCPConnect("127.0.0.1", reader.port()), 0);
    ASSERT_TRUE(reader.wait_client(2000));
}

// Polls UHF_GetReceived_EX until n reports came or ms passed; the outputs.
inline std::vector<Bytes> fetch_reports(size_t n, int ms = 2000) {
    std::vector<Bytes> got;
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (got.size() < n && std::chrono::steady_clock::now() < end) {
        uint8_t out[512];
        int len = 0;
        if (UHF_GetReceived_EX(&len, out) == 0)
            got.emplace_back(out, out + len);
        else
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return got;
}

// A fixture with a scripted reader connected on the selected link.
class WireTest : public ::testing::Test {
protected:
    void SetUp() override {
        reset_links();
        connect_to(reader);
    }
    void TearDown() override { reset_links(); }

    ScriptedReader reader;
};

}  // namespace uhftest
