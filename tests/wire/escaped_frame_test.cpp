// The escaped AA..55 frame: escaping on send, collection and unescaping on receive.
#include <chrono>
#include <thread>

#include "link_helpers.h"

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
