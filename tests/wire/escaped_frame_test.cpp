// The escaped AA..55 frame: escaping on send, collection and unescaping on
// receive, and the serial detection thread that stores tag frames of that kind.
#include <chrono>
#include <thread>

#include "link_helpers.h"
#include "pty_pair.h"

using namespace uhftest;

using EscapedFrame = WireTest;

TEST_F(EscapedFrame, SendEscapesInnerBytesOnly) {
    uint8_t frame[] = {0xAA, 0x05, 0xFF, 0x55, 0xAA, 0x12, 0x55};
    EXPECT_EQ(SendCommand(frame, sizeof frame), 1);
    ASSERT_TRUE(reader.wait_requests(1, 1000));
    EXPECT_EQ(reader.received(), (Bytes{0xAA, 0x05, 0xFF, 0xFF, 0xFF, 0x55, 0xFF, 0xAA, 0x12, 0x55}));
}

TEST_F(EscapedFrame, ReceiveUnescapesOneReply) {
    reader.push({0xAA, 0x06, 0x91, 0x00, 0xFF, 0xFF, 0xFF, 0x55, 0x12, 0xFF, 0x34, 0x55});
    uint8_t out[512];
    uint16_t n = 0;
    EXPECT_EQ(ReceiveCommand(out, &n, 500), 1);
    // FF before AA/55/FF is dropped; FF before anything else stays.
    EXPECT_EQ(Bytes(out, out + n), (Bytes{0xAA, 0x06, 0x91, 0x00, 0xFF, 0x55, 0x12, 0xFF, 0x34, 0x55}));
}

TEST_F(EscapedFrame, ReceiveEndsAtTheFirstQuietPollAfterData) {
    std::thread late([this] {
        reader.push({0xAA, 0x02});
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        reader.push({0x00, 0x55});
    });
    uint8_t out[512];
    uint16_t n = 0;
    EXPECT_EQ(ReceiveCommand(out, &n, 0), 1);
    late.join();
    EXPECT_EQ(Bytes(out, out + n), (Bytes{0xAA, 0x02}));
}

namespace {

class DetectThread : public ::testing::Test {
protected:
    void SetUp() override {
        reset_links();
        ASSERT_EQ(ComOpen(pty.path().c_str()), 0);
        pty.read_master(500);  // the stop-inventory frame sent on open
        Init_UhfStack();
    }
    void TearDown() override {
        Stop_DectThread();
        UHF_FlagCrcOn();
        reset_links();
    }

    // Fetch frames until `last` came out (or 5 s passed); everything fetched.
    std::vector<Bytes> fetch_until(const Bytes& last) {
        std::vector<Bytes> got;
        auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (std::chrono::steady_clock::now() < end) {
            uint8_t buf[80];
            uint8_t len = 0;
            if (Fetch_UhfStack(buf, &len) == 0) {
                got.emplace_back(buf, buf + len);
                if (got.back() == last) break;
            } else {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
        }
        return got;
    }

    Pty pty;
};

}  // namespace

TEST_F(DetectThread, CollectsFramesWithoutCrcAcrossReads) {
    UHF_FlafCrcOff();
    ASSERT_EQ(Creat_DectThread(), 0);
    const Bytes escaped = {0xAA, 0x07, 0x26, 0x00, 0xFF, 0xFF, 0xFF, 0x55, 0xFF, 0xAA, 0x09, 0x55};
    const Bytes stored = {0xAA, 0x07, 0x26, 0x00, 0xFF, 0x55, 0xAA, 0x09, 0x55};
    // The frame arrives in two pieces, most likely in two reads.
    pty.write_master(Bytes(escaped.begin(), escaped.begin() + 5));
    std::this_thread::sleep_for(std::chrono::milliseconds(80));
    pty.write_master(Bytes(escaped.begin() + 5, escaped.end()));
    const Bytes sentinel = {0xAA, 0x03, 0x11, 0x00, 0x55};
    std::this_thread::sleep_for(std::chrono::milliseconds(80));
    pty.write_master(sentinel);
    EXPECT_EQ(fetch_until(sentinel), (std::vector<Bytes>{stored, sentinel}));
}
