// The virtual reader's tag-access handlers at the engine level: the replies
// to malformed and refused requests, and state that only the engine shows
// (stored CRC, reports in the QT public view).
#include <gtest/gtest.h>

#include "engine/gen2_access.h"
#include "sim_test_util.h"

using namespace simtest;
using uhfsim::InventoryMode;
using uhfsim::TagField;

namespace {

// A: EPC E200..CDEF, access password 12345678, kill password 0BADCAFE, TID 6
// words, USER 4 words.
// B: EPC AABB CCDD, public EPC 0102, in the public view from the start.
TagField field() {
    auto f = TagField::from_json(R"({"tags":[
    {"epc":"E200 3412 0123 4567 89AB CDEF","tid":"E280 1160 2000 7A1B 0C3D 4E5F",
     "user":"0011 2233 4455 6677","access_password":"12345678","kill_password":"0BADCAFE"},
    {"epc":"AABB CCDD","tid":"E280 1105 0000 0001","user":"ABCD","public_epc":"0102","qt_public":true}]})");
    return *f;
}

const Bytes kPwd = {0x12, 0x34, 0x56, 0x78};
const Bytes kNoPwd = {0, 0, 0, 0};
// Filter block selecting A by its whole EPC.
const Bytes kSelA = {0x01, 0x00, 0x20, 0x00, 0x60, 0xE2, 0x00, 0x34, 0x12,
                     0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};

}  // namespace

TEST(SimTagAccess, RepliesToEachKindOfRequest) {
    struct Row {
        const char* what;
        uint8_t code;
        Bytes data;
        Reply expect;
    };
    // clang-format off
    const Row rows[] = {
        {"read count 0: to the end of the bank", 0x84, kNoPwd + kSelA + Bytes{0x02, 0x00, 0x05, 0x00, 0x00}, {0x85, {0x01, 0x00, 0x00, 0x01, 0x4E, 0x5F}}},
        {"read with a byte left over", 0x84, kNoPwd + kSelA + Bytes{0x02, 0x00, 0x00, 0x00, 0x01, 0x00}, {0x85, {0x00, 0x12}}},
        {"read cut short inside the mask", 0x84, Bytes{0, 0, 0, 0, 0x01, 0x00, 0x20, 0x00, 0x60, 0xE2}, {0x85, {0x00, 0x12}}},
        {"read, no tag matches", 0x84, kNoPwd + Bytes{0x01, 0x00, 0x20, 0x00, 0x08, 0x77} + Bytes{0x02, 0x00, 0x00, 0x00, 0x01}, {0x85, {0x00, 0x10}}},
        {"read, wrong password", 0x84, Bytes{0x12, 0x34, 0x56, 0x00} + kSelA + Bytes{0x02, 0x00, 0x00, 0x00, 0x01}, {0x85, {0x00, 0x11}}},
        {"read past the bank", 0x84, kNoPwd + kSelA + Bytes{0x03, 0x00, 0x04, 0x00, 0x01}, {0x85, {0x00, 0x03}}},
        {"read bank 4", 0x84, kNoPwd + kSelA + Bytes{0x04, 0x00, 0x00, 0x00, 0x01}, {0x85, {0x00, 0x03}}},
        {"write with data missing", 0x86, kNoPwd + kSelA + Bytes{0x03, 0x00, 0x00, 0x00, 0x02, 0xAA, 0xBB}, {0x87, {0x00, 0x12}}},
        {"write of zero words", 0x86, kNoPwd + kSelA + Bytes{0x03, 0x00, 0x00, 0x00, 0x00}, {0x87, {0x00, 0x12}}},
        {"screen write answers 01 01", 0x90, Bytes{0x01} + kNoPwd + kSelA + Bytes{0x03, 0x00, 0x00, 0x00, 0x01, 0x12, 0x34}, {0x91, {0x01, 0x01}}},
        {"screen write without its lead byte", 0x90, kNoPwd + kSelA + Bytes{0x03, 0x00, 0x00, 0x00, 0x01, 0x12, 0x34}, {0x91, {0x00, 0x12}}},
        {"lock without the access password", 0x88, kNoPwd + kSelA + Bytes{0x00, 0x08, 0x02}, {0x89, {0x00, 0x11}}},
        {"permalock outside USER", 0x9F, kPwd + kSelA + Bytes{0x01, 0x01, 0x00, 0x00, 0x00, 0x01, 0x80, 0x00}, {0xA0, {0x00, 0x12}}},
        {"authenticate with count 0", 0x8E, kNoPwd + kSelA + Bytes{0x00, 0x05}, {0x8F, {0x00, 0x12}}},
        {"dwell of the wrong length", 0xB2, {0x00, 0x00, 0x00, 0x64}, {0xB3, {0x00}}},
        {"inventory bank 4", 0x30, kNoPwd + Bytes{0x04, 0x00, 0x00, 0x00, 0x02}, {0x31, {0x00}}},
        {"inventory bank with a 16-bit count", 0x30, kNoPwd + Bytes{0x02, 0x00, 0x00, 0x01, 0x02}, {0x31, {0x00}}},
        {"QT set needs the secured state", 0x97, kNoPwd + kSelA + Bytes{0x02}, {0x98, {0x00, 0x11}}},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        Bench b(field(), quiet());
        b.send(frame(row.code, row.data));
        EXPECT_EQ(b.take(), std::vector<Reply>{row.expect});
    }
}

TEST(SimTagAccess, EpcWritesKeepTheStoredCrc) {
    Bench b(field(), quiet());
    const uint16_t crc_before = b.reader.field().tags()[0].stored_crc();
    // Last EPC word of A becomes 0xCDEE.
    b.send(frame(0x86, kNoPwd + kSelA + Bytes{0x01, 0x00, 0x07, 0x00, 0x01, 0xCD, 0xEE}));
    ASSERT_EQ(b.take(), (std::vector<Reply>{{0x87, {0x01, 0x00}}}));
    const auto& bank = b.reader.field().tags()[0].epc_bank;
    EXPECT_EQ(bank[7], 0xCDEE);
    EXPECT_EQ(bank[0], uhfsim::gen2_crc16(uhfsim::words_to_bytes(std::span(bank).subspan(1))));
    EXPECT_NE(bank[0], crc_before);
}

// One tag through the Gen2 lock model: password locks, permalock, a read-
// locked password area and kill, each step answered as a tag would.
TEST(SimTagAccess, LockPermalockAndKill) {
    const Bytes user0 = Bytes{0x03, 0x00, 0x00, 0x00, 0x01};  // USER word 0
    const Bytes access_pwd = Bytes{0x00, 0x00, 0x02, 0x00, 0x02};
    // clang-format off
    const struct {
        const char* what;
        uint8_t code;
        Bytes data;
        Bytes reply;
    } steps[] = {
        {"lock needs the password", 0x88, kNoPwd + kSelA + Bytes{0x00, 0x08, 0x02}, {0x00, 0x11}},
        {"password-lock USER", 0x88, kPwd + kSelA + Bytes{0x00, 0x08, 0x02}, {0x01, 0x00}},
        {"write without the password", 0x86, kNoPwd + kSelA + user0 + Bytes{0xAB, 0xCD}, {0x00, 0x04}},
        {"write with it", 0x86, kPwd + kSelA + user0 + Bytes{0xAB, 0xCD}, {0x01, 0x00}},
        {"permalock USER as locked", 0x88, kPwd + kSelA + Bytes{0x00, 0x0C, 0x03}, {0x01, 0x00}},
        {"no write after that", 0x86, kPwd + kSelA + user0 + Bytes{0x00, 0x00}, {0x00, 0x04}},
        {"nor an unlock", 0x88, kPwd + kSelA + Bytes{0x00, 0x0C, 0x00}, {0x00, 0x04}},
        {"USER still reads", 0x84, kNoPwd + kSelA + user0, {0x01, 0x00, 0x00, 0x01, 0xAB, 0xCD}},
        {"access password reads while open", 0x84, kNoPwd + kSelA + access_pwd, {0x01, 0x00, 0x00, 0x02, 0x12, 0x34, 0x56, 0x78}},
        {"read/write-lock it", 0x88, kPwd + kSelA + Bytes{0x02, 0x00, 0x80}, {0x01, 0x00}},
        {"now it needs the password", 0x84, kNoPwd + kSelA + access_pwd, {0x00, 0x04}},
        {"and reads with it", 0x84, kPwd + kSelA + access_pwd, {0x01, 0x00, 0x00, 0x02, 0x12, 0x34, 0x56, 0x78}},
        {"kill, wrong password", 0x8A, kPwd + kSelA, {0x00, 0x11}},
        {"kill", 0x8A, Bytes{0x0B, 0xAD, 0xCA, 0xFE} + kSelA, {0x01, 0x00}},
        {"a killed tag never answers", 0x84, kNoPwd + kSelA + user0, {0x00, 0x10}},
    };
    // clang-format on
    Bench b(field(), quiet());
    for (const auto& s : steps) {
        b.send(frame(s.code, s.data));
        EXPECT_EQ(b.take(), (std::vector<Reply>{{uint8_t(s.code + 1), s.reply}})) << s.what;
    }
}
