// Tag access on the wire: the filter block every tag command carries, the
// status bytes each command judges, and what reads and single inventories
// hand back.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "command_rows.h"

using namespace uhftest;

namespace {

using TagRules = CommandTest;

// The sample tag: PC 0x3000 (six EPC words) and a 96-bit EPC.
const Bytes kUii = {0x30, 0x00, 0xE2, 0x00, 0x34, 0x12, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
const Bytes kPwd = {0x12, 0x34, 0x56, 0x78};
const Bytes kRssi = {0xFD, 0x8A};
const Bytes kTid = {0xE2, 0x80, 0x11, 0x60};
// The filter that singles the sample tag out by its UII: EPC bank from bit 16, 0x70 bits.
const Bytes kUiiFilter = Bytes{0x01, 0x00, 0x10, 0x00, 0x70} + kUii;
const Bytes kNoPwd = {0, 0, 0, 0};

uint8_t pwd[4] = {0x12, 0x34, 0x56, 0x78};
uint8_t mask[16] = {0xE2, 0x00, 0x34, 0x12, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x11, 0x22, 0x33, 0x44};
uint8_t data[8] = {0xA1, 0xA2, 0xB1, 0xB2, 0xC1, 0xC2, 0xD1, 0xD2};
uint8_t lock[3] = {0x0C, 0x03, 0x02};
uint8_t out[600];
uint8_t n8;

// PC+EPC, extra data, RSSI, antenna 2: a single-inventory reply.
Bytes single_reply(const Bytes& extra) { return kUii + extra + kRssi + Bytes{0x02}; }
const Step kInventory = {0x80, {0x00, 0x64}, answer(0x80, kUii + kRssi + Bytes{0x01})};

std::vector<unsigned> flat(std::initializer_list<Bytes> parts) {
    std::vector<unsigned> v;
    for (const Bytes& p : parts) v.insert(v.end(), p.begin(), p.end());
    return v;
}

// The call's result, then the output area up to its last written byte (the
// area starts all 0xEE, so an overrun shows as a longer list).
template <class F>
Outcome area(F fn) {
    memset(out, 0xEE, sizeof out);
    int r = fn();
    size_t n = sizeof out;
    while (n > 0 && out[n - 1] == 0xEE) n--;
    return {r, std::vector<unsigned>(out, out + n)};
}
// As area, with a one-byte count output (0xAA before the call) in front.
template <class F>
auto counted(F fn) {
    return [fn] {
        n8 = 0xAA;
        Outcome o = area([&] { return fn(&n8, out); });
        o.out.insert(o.out.begin(), n8);
        return o;
    };
}

}  // namespace

// Every filter-bearing command with each filter length: password, filter block, target.
TEST_F(TagRules, FilterBlockAndTarget) {
    struct Filter {
        unsigned bits;
        Bytes block;  // bank 1, bit address 0x20, the first bits of `mask`
    } filters[] = {
        {0, {0x01, 0x00, 0x20, 0x00, 0x00}},
        {9, {0x01, 0x00, 0x20, 0x00, 0x09, 0xE2, 0x00}},
        {96, {0x01, 0x00, 0x20, 0x00, 0x60, 0xE2, 0x00, 0x34, 0x12, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}},
    };
    uint8_t blocks[4] = {0x80, 0x01, 0x00, 0xFF};
    for (const Filter& f : filters) {
        SCOPED_TRACE(f.bits);
        const Bytes head = kPwd + f.block;
        const int bits = int(f.bits);
        unsigned short n16;
        // clang-format off
        check_steps({
            {"read", [&] { return done(UHFReadData(pwd, 1, 0x20, bits, mask, 3, 0x0102, 4, out)); }, ask(0x84, head + Bytes{0x03, 0x01, 0x02, 0x00, 0x04}, {0x01, 0x00, 0x00, 0x00}), {0, {}}},
            {"write", [&] { return done(UHFWriteData(pwd, 1, 0x20, bits, mask, 3, 0x0102, 2, data)); }, ask(0x86, head + Bytes{0x03, 0x01, 0x02, 0x00, 0x02, 0xA1, 0xA2, 0xB1, 0xB2}, {0x01, 0x00}), {0, {}}},
            {"block write", [&] { return done(UHFBlockWriteData(pwd, 1, 0x20, f.bits, mask, 3, 0x0200, 3, data)); }, ask(0x93, head + Bytes{0x03, 0x02, 0x00, 0x00, 0x03, 0xA1, 0xA2, 0xB1, 0xB2, 0xC1, 0xC2}, {0x01, 0x00}), {0, {}}},
            {"block erase", [&] { return done(UHFBlockEraseData(pwd, 1, 0x20, f.bits, mask, 3, 0x0010, 8)); }, ask(0x95, head + Bytes{0x03, 0x00, 0x10, 0x00, 0x08}, {0x01, 0x00}), {0, {}}},
            {"screen block write", [&] { return done(UHFWriteScreenBlockData(pwd, 1, 0x20, uint16_t(f.bits), mask, 0x07, 0x0304, 1, data)); }, ask(0x90, Bytes{0x01} + head + Bytes{0x07, 0x03, 0x04, 0x00, 0x01, 0xA1, 0xA2}, {0x01, 0x01}), {0, {}}},
            {"kill", [&] { return done(UHFKillTag(pwd, 1, 0x20, f.bits, mask)); }, ask(0x8A, head, {0x01, 0x00}), {0, {}}},
            {"lock", [&] { return done(UHFLockTag(pwd, 1, 0x20, f.bits, mask, lock)); }, ask(0x88, head + Bytes{0x0C, 0x03, 0x02}, {0x01, 0x00}), {0, {}}},
            {"block permalock", [&] { return done(UHFBlockPermalock(pwd, 1, 0x20, f.bits, mask, 0x01, 3, 0x0102, 2, blocks)); }, ask(0x9F, head + Bytes{0x01, 0x03, 0x01, 0x02, 0x00, 0x02, 0x80, 0x01, 0x00, 0xFF}, {0x01, 0x00, 0x80, 0x01, 0x00, 0xFF}), {0, {}}},
            {"GB lock: low bytes of the ints", [&] { return done(UHFGBTagLock(pwd, 1, 0x20, uint16_t(f.bits), mask, 0x103, 0x02, -1)); }, ask(0x06, Bytes{0x02} + head + Bytes{0x03, 0x02, 0xFF}, {0x02, 0x01}), {0, {}}},
            {"deactivate", [&] { return done(UHF_Deactivate(0xA55A, pwd, 1, 0x20, bits, mask)); }, ask(0xB0, Bytes{0xA5, 0x5A} + head, {0x01}), {0, {}}},
            {"authenticate", [&] { return done(UHFAuthenticate(0x12345678UL, 1, 0x20, mask, uint16_t(f.bits), 0x07, 2, lock, &n16, out)); }, ask(0x8E, head + Bytes{0x03, 0x07, 0x0C, 0x03}, {0x01, 0x00, 0x00, 0x01, 0xAB, 0xCD}), {0, {}}},
            {"QT set", [&] { return done(UHFSetQT(pwd, 1, 0x20, f.bits, mask, 0x40)); }, ask(0x97, head + Bytes{0x40}, {0x01}), {0, {}}},
            {"QT get", [&] { return done(UHFGetQT(pwd, 1, 0x20, f.bits, mask, &n8)); }, ask(0x99, head, {0x01, 0x40}), {0, {}}},
            {"QT read", [&] { return done(UHFReadQT(pwd, 1, 0x20, f.bits, mask, 0x40, 2, 0x0102, 6, out, &n8)); }, ask(0x9B, head + Bytes{0x40, 0x02, 0x01, 0x02, 0x00, 0x06}, {0x01, 0x00, 0x00, 0x00}), {0, {}}},
            {"QT write", [&] { return done(UHFWriteQT(pwd, 1, 0x20, f.bits, mask, 0x00, 3, 0x0004, 2, data)); }, ask(0x9D, head + Bytes{0x00, 0x03, 0x00, 0x04, 0x00, 0x02, 0xA1, 0xA2, 0xB1, 0xB2}, {0x01, 0x00}), {0, {}}},
            {"QT read, caller's filter", [&] { return done(UHF_ReadQTData_Ex(pwd, 1, 0x20, bits, mask, 2, 0x0102, 6, out)); }, ask(0x9B, head + Bytes{0x00, 0x02, 0x01, 0x02, 0x00, 0x06}, {0x01, 0x00, 0x00, 0x00}), {0, {}}},
            {"QT write, caller's filter", [&] { return done(UHF_WriteQTData_Ex(pwd, 1, 0x20, bits, mask, 3, 0x0104, 2, data)); }, ask(0x9D, head + Bytes{0x00, 0x03, 0x01, 0x04, 0x00, 0x02, 0xA1, 0xA2, 0xB1, 0xB2}, {0x01}), {0, {}}},
        });
        // clang-format on
    }
}

// The write and lock commands judge different status bytes.
TEST_F(TagRules, StatusBytesEachCommandJudges) {
    // clang-format off
    struct Case {
        const char* name;
        uint8_t cmd;
        std::function<int()> call;
        int r0100, r0103, r0101, r01, r0000;  // results for replies 01 00, 01 03, 01 01, 01, 00 00
    } cases[] = {
        {"write: status byte alone", 0x86, [] { return UHFWriteData(pwd, 1, 0x20, 0, mask, 3, 0, 1, data); }, 0, 0, 0, 0, -1},
        {"block write: tag byte 00 too", 0x93, [] { return UHFBlockWriteData(pwd, 1, 0x20, 0, mask, 3, 0, 1, data); }, 0, -1, -1, -1, -1},
        {"block erase: tag byte 00 too", 0x95, [] { return UHFBlockEraseData(pwd, 1, 0x20, 0, mask, 3, 0, 1); }, 0, -1, -1, -1, -1},
        {"screen: 01 01", 0x90, [] { return UHFWriteScreenBlockData(pwd, 1, 0x20, 0, mask, 3, 0, 1, data); }, -1, -1, 0, -1, -1},
        {"kill: tag byte 00 too", 0x8A, [] { return UHFKillTag(pwd, 1, 0, 0, mask); }, 0, -1, -1, -1, -1},
        {"lock: every failure is 1", 0x88, [] { return UHFLockTag(pwd, 1, 0, 0, mask, lock); }, 0, 1, 1, 1, 1},
        {"GB lock: 02 01 only", 0x06, [] { return UHFGBTagLock(pwd, 1, 0, 0, mask, 0, 0, 0); }, -1, -1, -1, -1, -1},
        {"deactivate: status byte", 0xB0, [] { return UHF_Deactivate(1, pwd, 1, 0, 0, mask); }, 0, 0, 0, 0, -1},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::pair<Bytes, int> replies[] = {{{0x01, 0x00}, c.r0100},
                                                 {{0x01, 0x03}, c.r0103},
                                                 {{0x01, 0x01}, c.r0101},
                                                 {{0x01}, c.r01},
                                                 {{0x00, 0x00}, c.r0000}};
        for (const auto& [reply, result] : replies)
            EXPECT_EQ(exchange(answer(c.cmd, reply), c.call), result) << testing::PrintToString(reply);
    }
    EXPECT_EQ(exchange(answer(0x06, {0x02, 0x01}), [] { return UHFGBTagLock(pwd, 1, 0, 0, mask, 0, 0, 0); }), 0);
    EXPECT_EQ(exchange(answer(0x06, {0x02, 0x01, 0x00}), [] { return UHFGBTagLock(pwd, 1, 0, 0, mask, 0, 0, 0); }), -1);
}

TEST_F(TagRules, OutputsOfReadsAndSingleInventories) {
    auto read = [] { return area([] { return UHFReadData(pwd, 1, 0x20, 96, mask, 3, 0, 4, out); }); };
    auto read_qt = [] {
        n8 = 0xAA;
        Outcome o = area([] { return UHFReadQT(pwd, 1, 0, 0, mask, 0, 3, 0, 200, out, &n8); });
        o.out.insert(o.out.begin(), n8);
        return o;
    };
    auto permalock = [] {
        return area([] {
            out[0] = 0x11, out[1] = 0x22, out[2] = 0x33, out[3] = 0x44;
            return UHFBlockPermalock(pwd, 1, 0, 0, mask, 0, 3, 0, 2, out);
        });
    };
    auto get_qt = [] { return filled<uint8_t, 1>([](uint8_t* q) { return UHFGetQT(pwd, 1, 0, 0, mask, q); }); };
    auto batch = [] { return area([] { return UHF_GetTagsData(out); }); };
    const Bytes batch_reply = Bytes{0x01, 0x11} + single_reply({});
    const Bytes read_head =
        kPwd + Bytes{0x01, 0x00, 0x20, 0x00, 0x60} + Bytes(mask, mask + 12) + Bytes{0x03, 0x00, 0x00, 0x00, 0x04};
    const Bytes qt_head = kPwd + Bytes{0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0xC8};
    const Bytes lock_head =
        kPwd + Bytes{0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x02, 0x11, 0x22, 0x33, 0x44};
    // clang-format off
    check_steps({
        {"read: all words", read, ask(0x84, read_head, {0x01, 0x00, 0x00, 0x04, 1, 2, 3, 4, 5, 6, 7, 8}), {0, {1, 2, 3, 4, 5, 6, 7, 8}}},
        {"read: fewer words than asked", read, ask(0x84, read_head, {0x01, 0x00, 0x00, 0x01, 0xCA, 0xFE}), {0, {0xCA, 0xFE}}},
        {"read: count beyond the reply", read, ask(0x84, read_head, {0x01, 0x00, 0x00, 0x03, 1, 2, 3, 4}), {-1, {}}},
        {"QT get", get_qt, ask(0x99, kPwd + Bytes{0x01, 0x00, 0x00, 0x00, 0x00}, {0x01, 0x42}), {0, {0x42}}},
        {"QT read: two words", read_qt, ask(0x9B, qt_head, {0x01, 0x00, 0x00, 0x02, 1, 2, 3, 4}), {0, {4, 1, 2, 3, 4}}},
        {"QT read: count beyond the reply", read_qt, ask(0x9B, qt_head, {0x01, 0x00, 0x00, 0x03, 1, 2, 3, 4}), {-1, {0xAA}}},
        {"permalock hands the lock bits back", permalock, ask(0x9F, lock_head, {0x01, 0x00, 0xF0, 0x0F, 0x00, 0x01}), {0, {0xF0, 0x0F, 0x00, 0x01}}},
        {"permalock: fewer bits than the range", permalock, ask(0x9F, lock_head, {0x01, 0x00, 0xF0, 0x0F}), {-1, {0x11, 0x22, 0x33, 0x44}}},
        {"single: UII", counted(UHFInventorySingle), ask(0x80, {0x00, 0x64}, single_reply(kTid)), {0, flat({{14}, kUii})}},
        {"single: PC claims more than came", counted(UHFInventorySingle), ask(0x80, {0x00, 0x64}, Bytes{0xF8, 0x00} + Bytes(20, 0x11)), {-1, {0xAA}}},
        {"EPC+TID+USER: with TID", counted(UHF_InventorySingleEPCTIDUSER), ask(0x80, {0x00, 0x64}, single_reply(kTid)), {0, flat({{23, 14}, kUii, {4}, kTid, kRssi, {0x02}})}},
        {"EPC+TID+USER: no extra data", counted(UHF_InventorySingleEPCTIDUSER), ask(0x80, {0x00, 0x64}, single_reply({})), {0, flat({{19, 14}, kUii, {0}, kRssi, {0x02}})}},
        {"EPC+TID+USER: no room for RSSI", counted(UHF_InventorySingleEPCTIDUSER), ask(0x80, {0x00, 0x64}, kUii + Bytes{0xFD}), {-1, {0xAA}}},
        {"EPC+TID+USER: over an 8-bit count", counted(UHF_InventorySingleEPCTIDUSER), ask(0x80, {0x00, 0x64}, single_reply(Bytes(237, 0x33))), {-1, {0xAA}}},
        {"R2000: with TID", counted(UHF_InventorySingle_R2000), ask(0x80, {0x00, 0x64}, single_reply(kTid)), {0, flat({{22, 14}, kUii, {4}, kTid, kRssi})}},
        {"R2000: reply of L + 3 bytes", counted(UHF_InventorySingle_R2000), ask(0x80, {0x00, 0x64}, single_reply({})), {0, flat({{18, 14}, kUii, {0}, kRssi})}},
        {"R2000: zeros at 3..5 drop the data", counted(UHF_InventorySingle_R2000), ask(0x80, {0x00, 0x64}, single_reply({0x11, 0x22, 0x33, 0, 0, 0})), {0, flat({{24, 14}, kUii, {0}, kRssi})}},
        {"R2000: 255 bytes", counted(UHF_InventorySingle_R2000), ask(0x80, {0x00, 0x64}, single_reply(Bytes(238, 0x44))), {-1, {0xAA}}},
        {"batch: one tag", batch, ask(0xEB, {}, batch_reply), {int(batch_reply.size()), flat({batch_reply})}},
        {"batch: none", batch, ask(0xEB, {}, {0x00, 0x00}), {0, {}}},
        {"batch: past the 512-byte buffer", batch, ask(0xEB, {}, Bytes(513, 0x01)), {-1, {}}},
    });
    // clang-format on
}

// The UII and Single calls address the tag by its UII through the plain codes
// or after a single inventory of their own.
TEST_F(TagRules, CallsThatAddressATagByItsUii) {
    const Bytes target = {0x00, 0x03, 0x00, 0x02, 0x00, 0x02};  // address and count as 00 and their low byte
    auto read_single = [] {
        uint8_t words[2] = {};
        Outcome o = counted(
            [&](uint8_t* n, uint8_t* found) { return UHF_ReadQTDataSingle(pwd, 3, 0x0104, 1, words, found, n); })();
        o.out.insert(o.out.end(), words, words + 2);
        return o;
    };
    auto write_single =
        counted([](uint8_t* n, uint8_t* found) { return UHF_WriteQTDataSingle(pwd, 3, 0, 2, data, found, n); });
    auto set_para = [](uint8_t p) { return [p] { return Outcome{UHF_SetQTPara(p), {}}; }; };
    auto get_para = [] { return filled<uint8_t, 1>(UHF_GetQTPara); };
    const Bytes read_req = kPwd + kUiiFilter + Bytes{0x00, 0x03, 0x00, 0x04, 0x00, 0x01};
    const Bytes write_req = kPwd + kUiiFilter + Bytes{0x00, 0x03, 0x00, 0x00, 0x00, 0x02, 0xA1, 0xA2, 0xB1, 0xB2};
    // clang-format off
    check_steps({
        {"UII read: the plain read code", [&] { return area([&] { return UHF_ReadQTData(pwd, 3, 0x0102, 2, const_cast<uint8_t*>(kUii.data()), out); }); },
         ask(0x84, kPwd + kUiiFilter + target, {0x01, 0x00, 0x00, 0x00}), {0, {}}},
        {"UII write: the plain write code", [&] { return Outcome{UHF_WriteQTData(pwd, 3, 0x0102, 2, const_cast<uint8_t*>(kUii.data()), data), {}}; },
         ask(0x86, kPwd + kUiiFilter + target + Bytes{0xA1, 0xA2, 0xB1, 0xB2}, {0x01}), {0, {}}},
        {"single read: 0x9B to the tag found", read_single, {kInventory, {0x9B, read_req, answer(0x9B, {0x01, 0x00, 0x00, 0x01, 0xAB, 0xCD})}}, {0, flat({{14}, kUii, {0xAB, 0xCD}})}},
        {"single read refused: the UII still comes back", read_single, {kInventory, {0x9B, read_req, answer(0x9B, {0x00})}}, {-1, flat({{14}, kUii, {0, 0}})}},
        {"single write: status byte alone", write_single, {kInventory, {0x9D, write_req, answer(0x9D, {0x01, 0x05})}}, {0, flat({{14}, kUii})}},
        {"QT para 1 sends 00", set_para(1), {kInventory, {0x97, kNoPwd + kUiiFilter + Bytes{0x00}, answer(0x97, {0x01})}}, {0, {}}},
        {"QT para 0 sends 02", set_para(0), {kInventory, {0x97, kNoPwd + kUiiFilter + Bytes{0x02}, answer(0x97, {0x01})}}, {0, {}}},
        {"QT para: any non-zero is 1", set_para(0x80), {kInventory, {0x97, kNoPwd + kUiiFilter + Bytes{0x00}, answer(0x97, {0x01})}}, {0, {}}},
        {"QT para: bit 1 clear reads 1", get_para, {kInventory, {0x99, kNoPwd + kUiiFilter, answer(0x99, {0x01, 0x00})}}, {0, {1}}},
        {"QT para: bit 1 set reads 0", get_para, {kInventory, {0x99, kNoPwd + kUiiFilter, answer(0x99, {0x01, 0x02})}}, {0, {0}}},
    });
    // clang-format on
}

// Sensor tags: the logging family (0xA3) and the sensor-code family (0x7C).
TEST_F(TagRules, SensorTags) {
    auto start = [] { return done(UHFStartLogging(1, 0x20, 0, mask, -0.1f, 25.6f, 0x0102, 0x0304)); };
    auto readings = [] {
        unsigned short total = 0xEEEE;
        unsigned char count = 0xEE;
        float t[255];
        std::fill(std::begin(t), std::end(t), 99.0f);
        int r = UHFReadMultiTemp(1, 0, 0, nullptr, 0, 3, &total, &count, t);
        std::vector<unsigned> v = {total, count};
        for (int i = 0; i < 4; i++) v.push_back(unsigned(std::lround(t[i] * 100)));
        return Outcome{r, v};
    };
    uint8_t zeros[16] = {};
    auto code = [&] { return area([&] { return UHFGetSensorCode(zeros, 1, zeros, out); }); };
    const Bytes start_req = {0x03, 0x01, 0x00, 0x20, 0x00, 0x00, 0x03, 0xFF, 0x00, 0x66, 0x01, 0x02, 0x03, 0x04};
    const Bytes read_req = {0x07, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x03};
    const Bytes head3 = {0x07, 0x01, 0x2C, 0x03};  // 300 held, 3 returned
    // 25.5, -1.25, and -10.0 with bits above the tenth ignored.
    const Bytes records = {0x66, 0x00, 0xAA, 0xBB, 0xFF, 0x03, 0x00, 0x00, 0xD8, 0xFF, 0x00, 0x00};
    const Bytes code_req = Bytes{0x01} + Bytes(16, 0) + Bytes{0x01, 0x00, 0x00};
    // clang-format off
    check_steps({
        {"start, no mask, codes rounded down", start, ask(0xA3, start_req, {0x01, 0x00}), {0, {}}},
        {"start: reader's error code", start, ask(0xA3, start_req, {0x00, 0x05}), {5, {}}},
        {"start: byte 0 decides first", start, ask(0xA3, start_req, {0x01, 0x05}), {0, {}}},
        {"start: error 255", start, ask(0xA3, start_req, {0x02, 0xFF}), {255, {}}},
        {"start: error 0 is -1", start, ask(0xA3, start_req, {0x00, 0x00}), {-1, {}}},
        {"start, 9-bit mask sends 2 bytes", [] { return done(UHFStartLogging(1, 0x20, 9, mask, -10.0f, 127.75f, 0, 0xFFFF)); },
         ask(0xA3, {0x03, 0x01, 0x00, 0x20, 0x00, 0x09, 0xE2, 0x00, 0x03, 0xD8, 0x01, 0xFF, 0x00, 0x00, 0xFF, 0xFF}, {0x01, 0x00}), {0, {}}},
        {"stop never sends the password", [] { return done(UHFStopLogging(3, 0x0100, 16, mask, 0x12345678UL)); },
         ask(0xA3, {0x04, 0x03, 0x01, 0x00, 0x00, 0x10, 0xE2, 0x00}, {0x00, 0x05}), {5, {}}},
        {"operating mode", [] { return done(UHFCheckOpMode(2, 0, 32, mask)); },
         ask(0xA3, {0x05, 0x02, 0x00, 0x00, 0x00, 0x20, 0xE2, 0x00, 0x34, 0x12}, {0x05, 0x01, 0x02}), {0x0102, {}}},
        {"readings: little-endian records", readings, ask(0xA3, read_req, head3 + records), {0, {300, 3, 2550, unsigned(-125), unsigned(-1000), 9900}}},
        {"readings: announces 3, carries 2", readings, ask(0xA3, read_req, head3 + Bytes(records.begin(), records.end() - 4)), {-3, {300, 3, 9900, 9900, 9900, 9900}}},
        {"readings: another sub-command", readings, ask(0xA3, read_req, {0x06, 0x00, 0x01, 0x00}), {-1, {0xEEEE, 0xEE, 9900, 9900, 9900, 9900}}},
        {"sensor code: two words", code, ask(0x7C, code_req, {0x01, 0x00, 0x00, 0x02, 0xAA, 0xBB, 0xCC, 0xDD}), {4, {0xAA, 0xBB, 0xCC, 0xDD}}},
        {"sensor code: more words announced than came", code, ask(0x7C, code_req, {0x01, 0x00, 0x00, 0x03, 0xAA, 0xBB, 0xCC, 0xDD}), {-1, {}}},
        {"calibration: 8 bytes of data", [&] { return done(UHFWriteCalibrationData(zeros, 1, zeros, zeros)); },
         ask(0x7C, Bytes{0x06} + Bytes(16, 0) + Bytes{0x01, 0x00, 0x00} + Bytes(8, 0), {0x01, 0x02}), {-1, {}}},
    });
    // clang-format on
}
