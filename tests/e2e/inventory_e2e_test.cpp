// Continuous inventory through the library against the virtual reader, over
// TCP and a pseudo-terminal.
#include "sim_link.h"

using namespace uhftest;

namespace {

class InventoryTcp : public SimTcpTest {
protected:
    uhfsim::SimOptions options() override { return sim_options(50, 400); }
};

}  // namespace

TEST_F(InventoryTcp, EveryTagOfTheFieldIsDelivered) {
    ASSERT_EQ(UHFInventory(), 0);
    auto got = collect_reports(50, 5000);
    EXPECT_EQ(UHFStopGet(), 0);
    std::set<std::string> seen;
    for (const auto& r : got) {
        seen.insert(epc_of_ex(r.data()));
        // UII length, UII, no data, RSSI within the window, an antenna.
        ASSERT_EQ(r.size(), size_t(r[0]) + 5);
        int16_t rssi = int16_t(r[r.size() - 3] << 8 | r[r.size() - 2]);
        EXPECT_LE(rssi, -250);
        EXPECT_GE(rssi, -1200);
        EXPECT_GE(r.back(), 1);
    }
    EXPECT_EQ(seen, field_epcs(opts.tags));
}

TEST_F(InventoryTcp, ReportsLeftAfterStopStayFetchable) {
    ASSERT_EQ(UHFInventory(), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    ASSERT_EQ(UHFStopGet(), 0);
    // Nothing was fetched while it ran: the reads wait in the queue.
    uint8_t out[512];
    int len = 0;
    int count = 0;
    while (UHF_GetReceived_EX(&len, out) == 0) count++;
    EXPECT_GT(count, 10);
    EXPECT_GT(server->stats().tag_reports, 0u);
}

namespace {

class InventoryTid : public SimTcpTest {
protected:
    uhfsim::SimOptions options() override {
        auto o = sim_options(5, 400);
        o.engine.state.current.inventory_mode = uhfsim::InventoryMode::EpcTid;
        return o;
    }
};

class InventorySensor : public SimTcpTest {
protected:
    uhfsim::SimOptions options() override {
        auto o = sim_options(5, 400);
        o.engine.state.current.sensor_inventory = true;
        return o;
    }
};

}  // namespace

TEST_F(InventoryTid, TidDataComesWithEachReport) {
    ASSERT_EQ(UHFInventory(), 0);
    auto got = collect_reports(5, 3000);
    EXPECT_EQ(UHFStopGet(), 0);
    ASSERT_FALSE(got.empty());
    for (const auto& r : got) {
        size_t L = r[0];
        ASSERT_EQ(r[L + 1], 12) << "six TID words";
        EXPECT_EQ(r.size(), L + 2 + 12 + 3);
    }
}

TEST_F(InventorySensor, SensorReportsCarryTheSensorItem) {
    ASSERT_EQ(UHFInventory(), 0);
    uint8_t out[512];
    int len = 0;
    bool found = false;
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    while (!found && std::chrono::steady_clock::now() < end) {
        if (UHFGetTagData(&len, out) != 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            continue;
        }
        // Items: 01 id, 06 UII, then the sensor item.
        size_t pos = 4 + 2 + out[5];
        ASSERT_LT(pos, size_t(len));
        EXPECT_EQ(out[pos], 0x0B);
        EXPECT_EQ(out[pos + 1], 2);
        found = true;
    }
    EXPECT_TRUE(found);
    EXPECT_EQ(UHFStopGet(), 0);
}

TEST(InventoryFaults, ReaderThatNeverAnswersTheStop) {
    reset_links();
    auto o = sim_options(3, 200);
    o.faults.ignore_codes = {0x8C};
    uhfsim::TcpServer srv(o);
    ASSERT_TRUE(srv.start());
    ASSERT_EQ(TCPConnect("127.0.0.1", srv.port()), 0);
    ASSERT_EQ(UHFInventory(), 0);
    EXPECT_EQ(UHFStopGet(), -1);
    EXPECT_EQ(srv.stats().requests[0x8C], 3u);
    reset_links();
}

TEST(InventoryFaults, ReaderClosingMidInventory) {
    reset_links();
    auto o = sim_options(3, 400);
    o.faults.close_after = 20;
    uhfsim::TcpServer srv(o);
    ASSERT_TRUE(srv.start());
    ASSERT_EQ(TCPConnect("127.0.0.1", srv.port()), 0);
    ASSERT_EQ(UHFInventory(), 0);
    auto got = collect_reports(100, 1500);  // the stream ends after 20 frames
    EXPECT_LE(got.size(), 20u);
    uint8_t out[512];
    int len = 0;
    EXPECT_EQ(UHF_GetReceived_EX(&len, out), -1);
    EXPECT_EQ(UHFStopGet(), -1);
    reset_links();
}

TEST(InventoryPty, SerialLinkDeliversTheField) {
    reset_links();
    auto o = sim_options(8, 200);
    uhfsim::PtyServer pty(o);
    ASSERT_TRUE(pty.start()) << pty.error();
    ASSERT_EQ(ComOpen(pty.slave_path().c_str()), 0);
    ASSERT_EQ(UHFInventory(), 0);
    auto got = collect_reports(8, 5000);
    EXPECT_EQ(UHFStopGet(), 0);
    std::set<std::string> seen;
    for (const auto& r : got) seen.insert(epc_of_ex(r.data()));
    EXPECT_EQ(seen, field_epcs(o.tags));
    ClosePort();
    reset_links();
}
