// Continuous inventory against a scripted reader: start, the receive thread,
// the stop handshake, and a reader that misbehaves.
#include <chrono>
#include <thread>

#include "link_helpers.h"

using namespace uhftest;

namespace {

Bytes report(uint8_t last_epc_byte, uint8_t antenna = 1) {
    return {0x10, 0x00, 0xE2, 0x00, 0x00, last_epc_byte, 0xFD, 0x7A, antenna};  // 4-byte EPC
}

class Inventory : public WireTest {
protected:
    void TearDown() override {
        // Whatever a test left running stops before the next one starts.
        if (my_terminals[cur_index].recv_task_running) Stop_R2000Thread(cur_index);
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        WireTest::TearDown();
    }
    // Answer every stop request with the stop reply.
    void confirm_stops() {
        reader.set_responder([](const Bytes& req) {
            if (req.size() > 4 && req[4] == 0x8C) return frame(0x8D, {0x01});
            return Bytes{};
        });
    }
};

}  // namespace

TEST_F(Inventory, StartSendsTheStartFrameAndQueuesReports) {
    confirm_stops();
    ASSERT_EQ(UHFInventory(), 0);
    ASSERT_TRUE(reader.wait_requests(1, 1000));
    EXPECT_EQ(reader.requests()[0], frame(0x82, {0x00, 0x00}));

    Bytes stream;
    for (uint8_t i = 0; i < 20; i++) stream = stream + frame(0x83, report(i, uint8_t(1 + i % 4)));
    stream = stream + frame(0x83, {0x10, 0x00, 0x01});  // 3 data bytes: ignored
    reader.push(stream);
    auto got = fetch_reports(20);
    ASSERT_EQ(got.size(), 20u);
    for (uint8_t i = 0; i < 20; i++)
        EXPECT_EQ(got[i], (Bytes{6, 0x10, 0x00, 0xE2, 0x00, 0x00, i, 0, 0xFD, 0x7A, uint8_t(1 + i % 4)}));

    EXPECT_EQ(UHFStopGet(), 0);
    EXPECT_EQ(my_terminals[cur_index].recv_task_running, 0);
}

TEST_F(Inventory, ReportsSplitAcrossReadsAndBatchesAreQueued) {
    confirm_stops();
    ASSERT_EQ(UHFInventory(), 0);
    reader.push(frame(0x83, report(7)), true);  // one byte per write
    Bytes a = report(8), b = report(9, 2);
    reader.push(frame(0xEC, Bytes{2, uint8_t(a.size())} + a + Bytes{uint8_t(b.size())} + b));
    reader.push(frame(0x7F, {0x10, 0x00, 0xE2, 0x00, 0x00, 0x0A, 0x01, 0x9A, 0xFD, 0x7A, 0x03}));
    auto got = fetch_reports(4);
    ASSERT_EQ(got.size(), 4u);
    EXPECT_EQ(got[0][6], 7);
    EXPECT_EQ(got[1][6], 8);
    EXPECT_EQ(got[2].back(), 2);
    // Sensor reports queue in sensor mode: the tag-data form shows the value.
    EXPECT_EQ(got[3], (Bytes{6, 0x10, 0x00, 0xE2, 0x00, 0x00, 0x0A, 2, 0x01, 0x9A, 0xFD, 0x7A, 0x03}));
    EXPECT_EQ(UHFStopGet(), 0);
}

TEST_F(Inventory, StopReplyInTheSameReadDropsWhatFollows) {
    ASSERT_EQ(UHFInventory(), 0);
    ASSERT_TRUE(reader.wait_requests(1, 1000));
    // The reader's last reports, its stop reply and a late report in one write.
    reader.set_responder([](const Bytes& req) {
        if (req.size() > 4 && req[4] == 0x8C)
            return frame(0x83, report(1)) + frame(0x83, report(2)) + frame(0x8D, {0x01}) + frame(0x83, report(3));
        return Bytes{};
    });
    EXPECT_EQ(UHFStopGet(), 0);
    // Reports queued before the stop stay fetchable after it.
    auto got = fetch_reports(3, 300);
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0][6], 1);
    EXPECT_EQ(got[1][6], 2);
}

TEST_F(Inventory, StopWithoutAThreadFails) {
    confirm_stops();  // only a receive thread can see the reply
    EXPECT_EQ(UHFStopGet(), -1);
    EXPECT_EQ(Stop_R2000Thread(0), -1);
}

TEST_F(Inventory, ReaderHangingUpNeitherCrashesNorHangs) {
    ASSERT_EQ(UHFInventory(), 0);
    reader.push(frame(0x83, report(1)));
    EXPECT_EQ(fetch_reports(1).size(), 1u);
    reader.hang_up();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    uint8_t out[512];
    int len = 0;
    EXPECT_EQ(UHF_GetReceived_EX(&len, out), -1);
    EXPECT_EQ(UHFStopGet(), -1);
}

TEST_F(Inventory, StartReturnsWithTheQueueAlreadyEmptied) {
    // A report left from an earlier run must not be read as the new run's.
    uint8_t old[] = {0x10, 0x00, 0xE2, 0x00, 0x00, 0x01, 0xFD, 0x7A, 0x01};
    for (int i = 0; i < 50; i++) addTagData(NORMAL_INVENTORY, old, sizeof old, 0);
    confirm_stops();
    ASSERT_EQ(UHFInventory(), 0);
    uint8_t out[512];
    int len = 0;
    EXPECT_EQ(UHF_GetReceived_EX(&len, out), -1);
    EXPECT_EQ(UHFStopGet(), 0);
}

// With a hold the receive thread takes a steady stream in a few large reads
// instead of one per report, and loses none of it. Load on the machine only
// makes the groups larger, so the bound cannot fail for it.
// An application that fetches often reads the link itself: reports cut
// anywhere by the reads come whole and in order, whichever side read them.
TEST_F(Inventory, ReportsReadByFetchesArriveWholeAndInOrder) {
    confirm_stops();
    ASSERT_EQ(UHFInventory(), 0);
    constexpr int kReports = 200;
    std::thread feed([this] {
        for (int i = 0; i < kReports; i++) {
            const auto f = frame(0x83, report(uint8_t(i)));
            const size_t cut = 1 + size_t(i) % (f.size() - 1);
            reader.push({f.begin(), f.begin() + std::ptrdiff_t(cut)});
            std::this_thread::sleep_for(std::chrono::microseconds(700));
            reader.push({f.begin() + std::ptrdiff_t(cut), f.end()});
            std::this_thread::sleep_for(std::chrono::microseconds(300));
        }
    });
    int got = 0;
    for (auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
         got < kReports && std::chrono::steady_clock::now() < end;) {
        uint8_t out[512];
        int len = 0;
        while (UHF_GetReceived_EX(&len, out) == 0) EXPECT_EQ(out[6], uint8_t(got++));
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
    feed.join();
    EXPECT_EQ(got, kReports);
    EXPECT_EQ(UHFStopGet(), 0);
}

TEST_F(Inventory, AHeldStreamArrivesWholeInFewGroups) {
    EXPECT_EQ(UHF_SetReceiveHold(20000), 0u);
    EXPECT_EQ(UHF_SetReceiveHold(1000000), 20000u);
    EXPECT_EQ(UHF_SetReceiveHold(20000), 50000u);  // the cap
    confirm_stops();
    ASSERT_EQ(UHFInventory(), 0);
    constexpr int kReports = 200;
    std::thread feed([this] {
        for (int i = 0; i < kReports; i++) {
            reader.push(frame(0x83, report(uint8_t(i))));
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    int got = 0, groups = 0;
    for (auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
         got < kReports && std::chrono::steady_clock::now() < end;) {
        uint8_t out[512];
        int len = 0, n = 0;
        for (; UHF_GetReceived_EX(&len, out) == 0; n++) EXPECT_EQ(out[6], uint8_t(got + n));
        got += n;
        groups += n > 0;
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
    feed.join();
    EXPECT_EQ(got, kReports);
    EXPECT_LE(groups, 40);  // about one per 20 ms; one per report without the hold
    EXPECT_EQ(UHFStopGet(), 0);
    EXPECT_EQ(UHF_SetReceiveHold(0), 20000u);
}
