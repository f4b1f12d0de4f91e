// Kill, lock, block permalock, GB lock, authenticate, deactivate and dwell
// against the scripted reader.
#include <cstring>

#include "tag_wire.h"

using namespace uhftest;
using namespace tagtest;

namespace {

class TagSecurity : public TagWire {
protected:
    struct AuthCase {
        const char* name;
        Bytes reply;
        int result;
        unsigned short len;  // *recvLen afterwards
        Bytes data;          // what recvData holds
    };
    void expect_authenticate(decltype(&UHFAuthenticate) fn, const std::vector<AuthCase>& cases) {
        for (const AuthCase& c : cases) {
            SCOPED_TRACE(c.name);
            unsigned short n = 0xBEEF;
            memset(out, 0xEE, sizeof out);
            EXPECT_EQ(run(0x8F, c.reply, [&] { return fn(0, 1, 0, mask, 0, 1, 0, nullptr, &n, out); }), c.result);
            EXPECT_EQ(n, c.len);
            EXPECT_EQ(Bytes(out, out + c.data.size()), c.data);
            EXPECT_EQ(out[c.data.size()], 0xEE);
        }
    }

    uint8_t lock[3] = {0x0C, 0x03, 0x02};
    uint8_t out[64];
};

}  // namespace

TEST_F(TagSecurity, RequestBytes) {
    uint8_t blocks[4] = {0x80, 0x01, 0x00, 0xFF};
    for (const FilterCase& f : kFilters) {
        SCOPED_TRACE(f.bits);
        const Bytes head = kPwdBytes + f.block;
        // clang-format off
        expect_requests({
            {"kill", 0x8A, {0x01, 0x00}, [&] { return UHFKillTag(pwd, 1, 0x20, f.bits, mask); }, head},
            {"lock", 0x88, {0x01, 0x00}, [&] { return UHFLockTag(pwd, 1, 0x20, f.bits, mask, lock); },
             head + Bytes{0x0C, 0x03, 0x02}},
            {"block permalock", 0x9F, {0x01, 0x00, 0x80, 0x01, 0x00, 0xFF},
             [&] { return UHFBlockPermalock(pwd, 1, 0x20, f.bits, mask, 0x01, 3, 0x0102, 2, blocks); },
             head + Bytes{0x01, 0x03, 0x01, 0x02, 0x00, 0x02, 0x80, 0x01, 0x00, 0xFF}},
            {"GB lock (low bytes of the ints)", 0x06, {0x02, 0x01},
             [&] { return UHFGBTagLock(pwd, 1, 0x20, uint16_t(f.bits), mask, 0x103, 0x02, -1); },
             Bytes{0x02} + head + Bytes{0x03, 0x02, 0xFF}},
            {"deactivate", 0xB0, {0x01},
             [&] { return UHF_Deactivate(0xA55A, pwd, 1, 0x20, int(f.bits), mask); }, Bytes{0xA5, 0x5A} + head},
            {"authenticate", 0x8E, {0x01, 0x00, 0x00, 0x01, 0xAB, 0xCD},
             [&] {
                 unsigned short n = 0;
                 return UHFAuthenticate(0x12345678UL, 1, 0x20, mask, uint16_t(f.bits), 0x07, 2, lock, &n, out);
             },
             head + Bytes{0x03, 0x07, 0x0C, 0x03}},
        });
        // clang-format on
    }
}

TEST_F(TagSecurity, StatusRules) {
    uint8_t blocks[2] = {};
    // clang-format off
    expect_results({
        {"kill, tag error", 0x8A, [&] { return UHFKillTag(pwd, 1, 0, 0, mask); }, {0x01, 0x04}, -1},
        {"lock, tag error: 1", 0x88, [&] { return UHFLockTag(pwd, 1, 0, 0, mask, lock); }, {0x01, 0x04}, 1},
        {"lock, status only: 1", 0x88, [&] { return UHFLockTag(pwd, 1, 0, 0, mask, lock); }, {0x01}, 1},
        {"permalock, tag error", 0x9F, [&] { return UHFBlockPermalock(pwd, 1, 0, 0, mask, 0, 3, 0, 1, blocks); },
         {0x01, 0x03, 0xFF, 0xFF}, -1},
        {"GB lock done", 0x06, [&] { return UHFGBTagLock(pwd, 1, 0, 0, mask, 0, 0, 0); }, {0x02, 0x01}, 0},
        {"GB lock, a third byte", 0x06, [&] { return UHFGBTagLock(pwd, 1, 0, 0, mask, 0, 0, 0); },
         {0x02, 0x01, 0x00}, -1},
        {"GB lock, 02 00", 0x06, [&] { return UHFGBTagLock(pwd, 1, 0, 0, mask, 0, 0, 0); }, {0x02, 0x00}, -1},
        {"deactivate accepted", 0xB0, [&] { return UHF_Deactivate(1, pwd, 1, 0, 0, mask); }, {0x01, 0x09}, 0},
        {"dwell accepted", 0xB2, [] { return UHF_Dwelltime(100, 3); }, {0x01}, 0},
    });
    // clang-format on
}

TEST_F(TagSecurity, DwellSendsTwo32BitValues) {
    EXPECT_EQ(run(0xB3, Bytes{0x01}, [] { return UHF_Dwelltime(100, 3); }), 0);
    EXPECT_EQ(sent_data, (Bytes{0x00, 0x00, 0x00, 0x64, 0x00, 0x00, 0x00, 0x03}));
}

TEST_F(TagSecurity, PermalockCopiesTheLockBitsBack) {
    struct Case {
        const char* name;
        Bytes reply;
        int result;
        Bytes mask_after;
    } cases[] = {
        {"bits returned", {0x01, 0x00, 0xF0, 0x0F, 0x00, 0x01}, 0, {0xF0, 0x0F, 0x00, 0x01}},
        {"fewer bits than the range", {0x01, 0x00, 0xF0, 0x0F}, -1, {0x11, 0x22, 0x33, 0x44}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        uint8_t blocks[5] = {0x11, 0x22, 0x33, 0x44, 0x55};
        EXPECT_EQ(run(0xA0, c.reply, [&] { return UHFBlockPermalock(pwd, 1, 0, 0, mask, 0, 3, 0, 2, blocks); }),
                  c.result);
        EXPECT_EQ(Bytes(blocks, blocks + 4), c.mask_after);
        EXPECT_EQ(blocks[4], 0x55);
    }
}
