// What every link does around an exchange, whatever its transport: input
// already waiting is not an answer, and no link means no waiting.
#include <chrono>
#include <thread>

#include "link_helpers.h"

using namespace uhftest;

namespace {

class StaleInput : public WireTest {};

}  // namespace

// Bytes that reached the socket before the request (a reply an earlier call
// gave up on) are dropped; the answer is the one sent after the request.
TEST_F(StaleInput, WaitingBytesAreNotTheAnswerOnTcp) {
    reader.push(frame(0x35, {0x01, 0x00, 0x11}));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    reader.reply_frame(0x35, {0x01, 0x0A, 0x28});
    uint8_t rbuf[64];
    uint16_t rlen = 0;
    ASSERT_EQ(Vexa_SendAndRecv(0x34, nullptr, 0, rbuf, &rlen), 0);
    EXPECT_EQ(Bytes(rbuf, rbuf + rlen), (Bytes{0x01, 0x0A, 0x28}));
}

