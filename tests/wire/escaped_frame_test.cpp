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

TEST_F(EscapedFrame, SendRefusesWhatWouldNotFitAndBadArguments) {
    std::vector<uint8_t> big(300, 0xFF);  // doubles to 600 bytes
    big.front() = 0xAA;
    big.back() = 0x55;
    EXPECT_EQ(SendCommand(big.data(), uint16_t(big.size())), 0);
    EXPECT_EQ(SendCommand(nullptr, 4), 0);
    uint8_t one = 0xAA;
    EXPECT_EQ(SendCommand(&one, 1), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(reader.received().empty());
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

TEST_F(EscapedFrame, ReceiveKeepsAtMost512Bytes) {
    Bytes flood(700, 0x11);
    reader.push(flood);
    uint8_t out[512];
    uint16_t n = 0;
    EXPECT_EQ(ReceiveCommand(out, &n, 0), 1);
    EXPECT_EQ(n, 512);
}
