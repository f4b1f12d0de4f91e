// The library connected to a virtual reader: the base of end-to-end tests.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "UHF.h"
#include "link_helpers.h"
#include "transport/servers.h"

namespace uhftest {

inline uhfsim::SimOptions sim_options(size_t tags = 10, uint32_t rate = 400, uint64_t seed = 7) {
    uhfsim::SimOptions o;
    o.tags = uhfsim::TagField::random(tags, seed);
    o.engine.read_rate = rate;
    return o;
}

inline std::string hex(const uint8_t* p, size_t n) {
    std::string s;
    char b[3];
    for (size_t i = 0; i < n; i++) {
        snprintf(b, sizeof b, "%02X", p[i]);
        s += b;
    }
    return s;
}

// Hex text of the EPC of every tag in the field.
inline std::set<std::string> field_epcs(const uhfsim::TagField& f) {
    std::set<std::string> out;
    for (const auto& t : f.tags()) {
        const std::vector<uint8_t> epc = t.epc();
        out.insert(hex(epc.data(), epc.size()));
    }
    return out;
}

// EPC (hex) of a UHF_GetReceived_EX output: length, PC+EPC, ...
inline std::string epc_of_ex(const uint8_t* out) { return out[0] < 2 ? "" : hex(out + 3, out[0] - 2u); }

// A fixture: a virtual reader on loopback TCP and a library link to it.
class SimTcpTest : public ::testing::Test {
protected:
    virtual uhfsim::SimOptions options() { return sim_options(); }
    void SetUp() override {
        reset_links();
        opts = options();
        server = std::make_unique<uhfsim::TcpServer>(opts);
        ASSERT_TRUE(server->start()) << server->error();
        ASSERT_EQ(TCPConnect("127.0.0.1", server->port()), 0);
    }
    void TearDown() override {
        if (my_terminals[cur_index].recv_task_running) UHFStopGet();
        reset_links();
        server.reset();
    }
    // Runs fn on the reader behind every connection, under its lock.
    template <class F>
    auto with_radio(F&& fn) {
        std::lock_guard<std::mutex> lock(server->radio()->mu);
        return fn(*server->radio());
    }

    uhfsim::SimOptions opts;
    std::unique_ptr<uhfsim::TcpServer> server;
};

}  // namespace uhftest
