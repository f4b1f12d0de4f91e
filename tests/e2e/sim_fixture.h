// A virtual reader on loopback TCP with the library's selected link on it:
// the fixture of the end-to-end suites.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "UHF.h"
#include "link_helpers.h"
#include "transport/servers.h"

namespace uhftest {

class SimTest : public ::testing::Test {
protected:
    explicit SimTest(uhfsim::SimOptions opts = {}) : sim(std::move(opts)) {}

    void SetUp() override {
        reset_links();
        ASSERT_TRUE(sim.start()) << sim.error();
        ASSERT_EQ(TCPConnect("127.0.0.1", sim.port()), 0);
        // The session exists once the server has accepted; wait for it so
        // tests can look at the reader's state.
        for (int i = 0; i < 1000 && sim.client_count() == 0; i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        ASSERT_EQ(sim.client_count(), 1u);
    }
    void TearDown() override { reset_links(); }

    // Runs fn on the reader serving this link.
    template <class F>
    void with_reader(F&& fn) {
        int seen = 0;
        sim.for_each_reader([&](uhfsim::VirtualReader& r) {
            seen++;
            fn(r);
        });
        ASSERT_EQ(seen, 1);
    }

    uhfsim::TcpServer sim;
};

}  // namespace uhftest
