// Continuous inventory through the library against the virtual reader, over
// TCP and a pseudo-terminal, and started and stopped in quick succession.
#include "sim_link.h"
#include "uhf/inventory.h"

using namespace uhftest;

namespace {

class InventoryE2E : public SimTcpTest {
protected:
    uhfsim::SimOptions options() override { return sim_options(50, 400); }
};

// Inventories started and stopped as fast as an application can.
class InventoryCycles : public SimTcpTest {
protected:
    uhfsim::SimOptions options() override { return sim_options(10, 5000); }
};

}  // namespace

TEST_F(InventoryE2E, EveryTagOfTheFieldIsDelivered) {
    ASSERT_EQ(UHFInventory(), 0);
    auto got = fetch_reports(200, 5000);  // four rounds of the field
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

// A saturated serial line whose bytes arrive a few at a time, as a UART hands
// them over: every report the reader sent reaches the application (the reads
// its line had no room for are the reader's loss, not the host's).
TEST(InventoryPty, SerialLinkInSmallPiecesLosesNoReport) {
    reset_links();
    auto o = sim_options(8, 2000);
    o.chunk = 8;
    uhfsim::PtyServer pty(o);
    ASSERT_TRUE(pty.start()) << pty.error();
    ASSERT_EQ(ComOpen(pty.slave_path().c_str()), 0);
    // The stop reply to the command that opening sends must be in before the
    // start: a stop reply read by the receive thread ends its buffer.
    uint8_t power[8];
    ASSERT_EQ(UHFGetPower(power), 0);
    ASSERT_EQ(UHFInventory(), 0);
    std::set<std::string> seen;
    size_t fetched = 0;
    auto take = [&] {
        uint8_t out[512];
        int len = 0;
        while (UHF_GetReceived_EX(&len, out) == 0) {
            fetched++;
            seen.insert(epc_of_ex(out));
        }
    };
    for (auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
         std::chrono::steady_clock::now() < end;) {
        take();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    // The reader falls quiet first: a stop command would flush what is still
    // unread on the line, as every serial command does.
    pty.for_each_reader([](uhfsim::VirtualReader& r) { r.stop_inventory(); });
    for (int i = 0; i < 40; i++) {
        take();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(seen, field_epcs(o.tags));
    EXPECT_EQ(fetched, pty.stats().tag_reports);
    EXPECT_EQ(UHFStopGet(), 0);
    ClosePort();
    reset_links();
}

// Never more than one receive thread on the link, every record whole, and
// the thread gone from the link when the stop (or the close) returns, so the
// next command has the link to itself.
TEST_F(InventoryCycles, OneReceiveThreadPerLinkAndWholeRecords) {
    const auto epcs = field_epcs(opts.tags);
    int max_threads = 0, alive_after_stop = 0, failed_after_stop = 0;
    size_t fetched = 0;
    for (int cycle = 0; cycle < 200; cycle++) {
        ASSERT_EQ(UHFInventory(), 0);
        max_threads = std::max(max_threads, uhf::inventory_threads(cur_index));
        // Odd cycles stop at once; even ones wait for the first records, so
        // the stop also meets a stream in full flow.
        const auto until = std::chrono::steady_clock::now() +
                           std::chrono::milliseconds(cycle % 2 ? 0 : 200);
        for (int got = 0; got < 3;) {
            uint8_t out[512];
            int len = 0;
            if (UHF_GetReceived_EX(&len, out) == 0) {
                got++;
                fetched++;
                EXPECT_TRUE(epcs.count(epc_of_ex(out))) << "cycle " << cycle << ": " << epc_of_ex(out);
            } else if (std::chrono::steady_clock::now() >= until) {
                break;
            } else {
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        }
        EXPECT_EQ(UHFStopGet(), 0) << "cycle " << cycle;
        alive_after_stop += uhf::inventory_threads(cur_index) > 0;
        uint8_t power = 0;
        failed_after_stop += UHFGetPower(&power) != 0;
    }
    EXPECT_LE(max_threads, 1);
    EXPECT_GT(fetched, 0u);
    EXPECT_EQ(alive_after_stop, 0);
    EXPECT_EQ(failed_after_stop, 0);
    const int slot = cur_index;
    ASSERT_EQ(UHFInventory(), 0);
    ClosePort();
    EXPECT_EQ(uhf::inventory_threads(slot), 0);
}
