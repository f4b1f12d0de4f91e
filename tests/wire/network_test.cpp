// Network settings, soft reset and factory reset against the scripted reader.
#include "command_rows.h"

using namespace uhftest;

namespace {

using Network = CommandTest;

uint8_t ip[4] = {192, 168, 1, 200};
uint8_t port[2] = {0x0F, 0xA1};
uint8_t mask[4] = {255, 255, 255, 0};
uint8_t gate[4] = {192, 168, 1, 1};

const Bytes kAddr = {192, 168, 1, 200, 0x0F, 0xA1};
const Bytes kMaskGate = {255, 255, 255, 0, 192, 168, 1, 1};

}  // namespace

TEST_F(Network, SetAddresses) {
    // clang-format off
    check_rows(0xA1, {
        {"no gateway: short form", [] { return UHFSetIp(ip, port, mask, nullptr); }, Bytes{0x01} + kAddr, {0x01}, 0},
        {"own address answered with an echo", [] { return UHFSetIp(ip, port, nullptr, nullptr); },
         Bytes{0x01} + kAddr, {0x02}, -1},
    });
    // clang-format on
    EXPECT_EQ(refused([] { return UHFSetIp(nullptr, port, mask, gate); }), -1);
    EXPECT_EQ(refused([] { return UHFSetIp(ip, nullptr, mask, gate); }), -1);
    EXPECT_EQ(refused([] { return UHFSetDestIp(nullptr, port); }), -1);
    EXPECT_EQ(refused([] { return UHFSetDestIp(ip, nullptr); }), -1);
}

TEST_F(Network, GetOwnAddress) {
    const Bytes addr = {10, 0, 0, 7, 0x17, 0x70};
    const Bytes mg = {255, 0, 0, 0, 10, 0, 0, 1};
    const Bytes none(8, 0xEE);
    struct Case {
        const char* name;
        Bytes reply;
        int result;
        Bytes addr;       // ip then port
        Bytes mask_gate;  // mask then gateway
    } cases[] = {
        {"14 bytes: address and port only", Bytes{0x02} + addr + Bytes(mg.begin(), mg.end() - 1), 0, addr, none},
        {"7 bytes: address and port only", Bytes{0x02} + addr, 0, addr, none},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        uint8_t out[22];
        memset(out, 0xEE, sizeof out);
        EXPECT_EQ(exchange(answer(0xA1, c.reply), [&] { return UHFGetIp(out, out + 4, out + 6, out + 10); }), c.result);
        EXPECT_EQ(sent_cmd, 0xA1);
        EXPECT_EQ(sent_data, Bytes{0x02});
        EXPECT_EQ(Bytes(out, out + 6), c.addr);
        EXPECT_EQ(Bytes(out + 6, out + 14), c.mask_gate);
        EXPECT_EQ(Bytes(out + 14, out + 22), Bytes(8, 0xEE));
    }
}
