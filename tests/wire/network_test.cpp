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
    check_rows(0xA1, {
        {"own address, long form", [] { return UHFSetIp(ip, port, mask, gate); }, Bytes{0x01} + kAddr + kMaskGate,
         {0x01}, 0},
        {"no mask: short form", [] { return UHFSetIp(ip, port, nullptr, gate); }, Bytes{0x01} + kAddr, {0x01}, 0},
        {"no gateway: short form", [] { return UHFSetIp(ip, port, mask, nullptr); }, Bytes{0x01} + kAddr, {0x01}, 0},
        {"own address refused", [] { return UHFSetIp(ip, port, mask, gate); }, Bytes{0x01} + kAddr + kMaskGate,
         {0x00}, -1},
        {"own address answered with an echo", [] { return UHFSetIp(ip, port, nullptr, nullptr); },
         Bytes{0x01} + kAddr, {0x02}, -1},
        {"destination", [] { return UHFSetDestIp(ip, port); }, Bytes{0x03} + kAddr, {0x01}, 0},
        {"destination refused", [] { return UHFSetDestIp(ip, port); }, Bytes{0x03} + kAddr, {0x03}, -1},
        {"destination empty reply", [] { return UHFSetDestIp(ip, port); }, Bytes{0x03} + kAddr, {}, -1},
    });
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
        Bytes addr;      // ip then port
        Bytes mask_gate;  // mask then gateway
    } cases[] = {
        {"15 bytes: all four", Bytes{0x02} + addr + mg, 0, addr, mg},
        {"longer reply", Bytes{0x02} + addr + mg + Bytes{0x99}, 0, addr, mg},
        {"14 bytes: address and port only", Bytes{0x02} + addr + Bytes(mg.begin(), mg.end() - 1), 0, addr, none},
        {"7 bytes: address and port only", Bytes{0x02} + addr, 0, addr, none},
        {"6 bytes: too short", Bytes{0x02} + Bytes(addr.begin(), addr.end() - 1), -1, Bytes(6, 0xEE), none},
        {"status instead of echo", Bytes{0x01} + addr + mg, -1, Bytes(6, 0xEE), none},
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

TEST_F(Network, GetOwnAddressShortFormNeedsNoMaskOrGateway) {
    uint8_t a[4] = {}, p[2] = {};
    ASSERT_EQ(exchange(answer(0xA1, Bytes{0x02} + kAddr + kMaskGate), [&] { return UHFGetIp(a, p, nullptr, nullptr); }),
              0);
    EXPECT_EQ(Bytes(a, a + 4) + Bytes(p, p + 2), kAddr);
    EXPECT_EQ(refused([&] { return UHFGetIp(nullptr, p, nullptr, nullptr); }), -1);
    EXPECT_EQ(refused([&] { return UHFGetIp(a, nullptr, nullptr, nullptr); }), -1);
}

TEST_F(Network, GetDestinationAddress) {
    struct Case {
        const char* name;
        Bytes reply;
        int result;
    } cases[] = {
        {"echoed sub-command", Bytes{0x04} + kAddr, 0},
        {"status 01 instead of the echo", Bytes{0x01} + kAddr, -1},
        {"too short", Bytes{0x04, 192, 168, 1, 200, 0x0F}, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        uint8_t out[8];
        memset(out, 0xEE, sizeof out);
        EXPECT_EQ(exchange(answer(0xA1, c.reply), [&] { return UHFGetDestIp(out, out + 4); }), c.result);
        EXPECT_EQ(sent_data, Bytes{0x04});
        EXPECT_EQ(Bytes(out, out + 6), c.result == 0 ? kAddr : Bytes(6, 0xEE));
        EXPECT_EQ(out[6], 0xEE);
    }
    uint8_t p[2];
    EXPECT_EQ(refused([&] { return UHFGetDestIp(nullptr, p); }), -1);
}

TEST_F(Network, ResetCommands) {
    check_rows(0x68, {
        {"soft reset", UHFSetSoftReset, {}, {0x01}, 0},
        {"soft reset refused", UHFSetSoftReset, {}, {0x00}, -1},
    });
    check_rows(0x74, {
        {"default mode", UHFSetDefaultMode, {}, {0x01}, 0},
        {"default mode refused", UHFSetDefaultMode, {}, {0x00}, -1},
        {"default mode empty reply", UHFSetDefaultMode, {}, {}, -1},
    });
}

TEST_F(Network, ResetWithoutTheRightReplyFails) {
    // A silent reader, and one answering with another code (the exchange's
    // -4), both come out as -1.
    EXPECT_EQ(exchange({}, [] { return UHFSetSoftReset(); }), -1);
    EXPECT_EQ(exchange(frame(0x75, {0x01}), [] { return UHFSetSoftReset(); }), -1);
}
