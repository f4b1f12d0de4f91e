// Firmware upgrade commands against the scripted reader.
#include <numeric>

#include "command_rows.h"

using namespace uhftest;

namespace {

using Firmware = CommandTest;

Bytes counting(size_t n) {
    Bytes b(n);
    std::iota(b.begin(), b.end(), uint8_t(0));
    return b;
}

}  // namespace

TEST_F(Firmware, JumpToBootTargets) {
    struct Case {
        uint8_t flag;
        Bytes reply;
        int result;
        uint8_t target;
    } cases[] = {
        {0, {0x01}, 0, 0xEE}, {1, {0x01}, 0, 0xCC},  {2, {0x01}, 0, 0xBB},
        {3, {0x01}, 0, 0xAA}, {3, {0x00}, -1, 0xAA}, {0, {}, -1, 0xEE},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(int(c.flag));
        EXPECT_EQ(exchange(answer(0xC0, c.reply), [&] { return UHFJump2Boot(c.flag); }), c.result);
        EXPECT_EQ(sent_cmd, 0xC0);
        EXPECT_EQ(sent_data, Bytes{c.target});
    }
    for (uint8_t flag : {4, 0x80, 0xFF}) EXPECT_EQ(refused([&] { return UHFJump2Boot(flag); }), -2) << int(flag);
}

TEST_F(Firmware, UpdatingSendsExactly64Bytes) {
    Bytes image = counting(100);
    struct Case {
        Bytes reply;
        int result;
    } cases[] = {{{0x01}, 0}, {{0x02}, -1}};
    for (const Case& c : cases) {
        EXPECT_EQ(exchange(answer(0xC4, c.reply), [&] { return UHFUpdating(image.data()); }), c.result);
        EXPECT_EQ(sent_cmd, 0xC4);
        EXPECT_EQ(sent_data, counting(64));
    }
    EXPECT_EQ(refused([] { return UHFUpdating(nullptr); }), -1);
}

TEST_F(Firmware, StopUpdateDoesNotWaitForAReply) {
    // The reader says nothing; the call still succeeds once the frame is out.
    EXPECT_EQ(UHFStopUpdate(), 0);
    ASSERT_TRUE(reader.wait_requests(1, 2000));
    EXPECT_EQ(reader.requests()[0], (Bytes{0xA5, 0x5A, 0x00, 0x08, 0xC6, 0x08 ^ 0xC6, 0x0D, 0x0A}));
}
