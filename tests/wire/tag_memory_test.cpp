// Tag memory read, write, block write, block erase and screen block write
// against the scripted reader.
#include <cstring>

#include "tag_wire.h"

using namespace uhftest;
using namespace tagtest;

namespace {

class TagMemory : public TagWire {
protected:
    uint8_t data[8] = {0xA1, 0xA2, 0xB1, 0xB2, 0xC1, 0xC2, 0xD1, 0xD2};
    uint8_t out[64];
};

}  // namespace

// Every command with each filter length: password, filter block, target.
TEST_F(TagMemory, RequestBytes) {
    for (const FilterCase& f : kFilters) {
        SCOPED_TRACE(f.bits);
        const Bytes head = kPwdBytes + f.block;
        // clang-format off
        expect_requests({
            {"read", 0x84, {0x01, 0x00, 0x00, 0x00},
             [&] { return UHFReadData(pwd, 1, 0x20, int(f.bits), mask, 3, 0x0102, 4, out); },
             head + Bytes{0x03, 0x01, 0x02, 0x00, 0x04}},
            {"write", 0x86, {0x01, 0x00},
             [&] { return UHFWriteData(pwd, 1, 0x20, int(f.bits), mask, 3, 0x0102, 2, data); },
             head + Bytes{0x03, 0x01, 0x02, 0x00, 0x02, 0xA1, 0xA2, 0xB1, 0xB2}},
            {"block write", 0x93, {0x01, 0x00},
             [&] { return UHFBlockWriteData(pwd, 1, 0x20, f.bits, mask, 3, 0x0200, 3, data); },
             head + Bytes{0x03, 0x02, 0x00, 0x00, 0x03, 0xA1, 0xA2, 0xB1, 0xB2, 0xC1, 0xC2}},
            {"block erase", 0x95, {0x01, 0x00},
             [&] { return UHFBlockEraseData(pwd, 1, 0x20, f.bits, mask, 3, 0x0010, 8); },
             head + Bytes{0x03, 0x00, 0x10, 0x00, 0x08}},
            {"screen block write", 0x90, {0x01, 0x01},
             [&] { return UHFWriteScreenBlockData(pwd, 1, 0x20, uint16_t(f.bits), mask, 0x07, 0x0304, 1, data); },
             Bytes{0x01} + head + Bytes{0x07, 0x03, 0x04, 0x00, 0x01, 0xA1, 0xA2}},
        });
        // clang-format on
    }
}

TEST_F(TagMemory, ReadOutcomes) {
    struct Case {
        const char* name;
        std::optional<Bytes> reply;
        int result;
        Bytes written;
    } cases[] = {
        {"all words", Bytes{0x01, 0x00, 0x00, 0x04, 1, 2, 3, 4, 5, 6, 7, 8}, 0, {1, 2, 3, 4, 5, 6, 7, 8}},
        {"fewer words than asked: only those", Bytes{0x01, 0x00, 0x00, 0x01, 0xCA, 0xFE}, 0, {0xCA, 0xFE}},
        {"count beyond the reply", Bytes{0x01, 0x00, 0x00, 0x03, 1, 2, 3, 4}, -1, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        memset(out, 0xEE, sizeof out);
        EXPECT_EQ(run(0x85, c.reply, [&] { return UHFReadData(pwd, 1, 0x20, 96, mask, 3, 0, 4, out); }), c.result);
        EXPECT_EQ(Bytes(out, out + c.written.size()), c.written);
        EXPECT_EQ(out[c.written.size()], 0xEE);
    }
}

// The write commands judge different status bytes.
TEST_F(TagMemory, WriteStatusRules) {
    struct Case {
        const char* name;
        uint8_t cmd;
        std::function<int()> call;
        int ok_00, ok_03, ok_01, status_only, refused;  // results for replies 01 00, 01 03, 01 01, 01, 00 00
    } cases[] = {
        {"write: status byte alone", 0x86, [&] { return UHFWriteData(pwd, 1, 0x20, 0, mask, 3, 0, 1, data); }, 0, 0, 0,
         0, -1},
        {"block write: also tag byte 00", 0x93, [&] { return UHFBlockWriteData(pwd, 1, 0x20, 0, mask, 3, 0, 1, data); },
         0, -1, -1, -1, -1},
        {"block erase: also tag byte 00", 0x95, [&] { return UHFBlockEraseData(pwd, 1, 0x20, 0, mask, 3, 0, 1); }, 0,
         -1, -1, -1, -1},
        {"screen: 01 01", 0x90, [&] { return UHFWriteScreenBlockData(pwd, 1, 0x20, 0, mask, 3, 0, 1, data); }, -1, -1,
         0, -1, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(run(c.cmd + 1, Bytes{0x01, 0x00}, c.call), c.ok_00);
        EXPECT_EQ(run(c.cmd + 1, Bytes{0x01, 0x03}, c.call), c.ok_03);
        EXPECT_EQ(run(c.cmd + 1, Bytes{0x01, 0x01}, c.call), c.ok_01);
        EXPECT_EQ(run(c.cmd + 1, Bytes{0x01}, c.call), c.status_only);
        EXPECT_EQ(run(c.cmd + 1, Bytes{0x00, 0x00}, c.call), c.refused);
    }
}
