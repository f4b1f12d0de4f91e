// Settings, device and upgrade commands whose encoding or decoding has a rule
// of its own beyond the one-row-per-command table: field packing, masking,
// record lists, multi-exchange presets and replies of odd lengths.
#include <array>
#include <numeric>
#include <string>

#include "command_rows.h"

using namespace uhftest;

namespace {

using SettingRules = CommandTest;
constexpr unsigned kNone = 0xEEEEEEEE;

Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

auto set_gen2(std::array<uint8_t, 14> f) {
    return [=] {
        return done(UHFSetGen2(f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8], f[9], f[10], f[11], f[12], f[13]));
    };
}
Outcome get_gen2() {
    return filled<uint8_t, 14>([](uint8_t* f) {
        return UHFGetGen2(f, f + 1, f + 2, f + 3, f + 4, f + 5, f + 6, f + 7, f + 8, f + 9, f + 10, f + 11, f + 12,
                          f + 13);
    });
}
auto filter(uint8_t flag, uint8_t bank, uint16_t addr, uint16_t len) {
    return [=] {
        uint8_t mask[95];
        std::iota(mask, mask + 95, uint8_t(0x80));
        return done(UHFSetFilter(flag, bank, addr, len, mask));
    };
}
Bytes run_of(size_t n, uint8_t from = 0x80) {
    Bytes b(n);
    std::iota(b.begin(), b.end(), from);
    return b;
}
auto set_jump(std::vector<unsigned> f, unsigned n) {
    return [=]() mutable { return done(UHFSetJumpFrequency(uint8_t(n), f.data())); };
}
// Count, the first three frequencies, entry 255 and the one past it.
Outcome get_jump() {
    std::vector<unsigned> b(258, kNone);
    int r = UHFGetJumpFrequency(b.data());
    return {r, {b[0], b[1], b[2], b[3], b[255], b[256]}};
}
// *nReturned, then the first 12 output bytes.
Outcome get_antenna_power() {
    uint16_t n = 0xEEEE;
    Outcome o = filled<uint8_t, 12>([&](uint8_t* b) { return UHFGetAntennaPower(b, &n); });
    o.out.insert(o.out.begin(), n);
    return o;
}
// The version text: count byte, characters, and the byte after them.
template <class Fn>
auto version(Fn fn) {
    return [fn] {
        uint8_t v[300];
        memset(v, 0xEE, sizeof v);
        int r = fn(v);
        size_t n = 1;
        while (n < sizeof v - 1 && v[n] != 0xEE) n++;
        return Outcome{r, std::vector<unsigned>(v, v + n + 1)};
    };
}
std::vector<unsigned> shown(const Bytes& count_and_text) {
    std::vector<unsigned> out(count_and_text.begin(), count_and_text.end());
    out.push_back(0xEE);
    return out;
}
Outcome download() {
    unsigned short len = 0xBEEF;
    Outcome o = filled<uint8_t, 1100>([&](uint8_t* p) { return UHFDownloadUserParam(p, &len); });
    o.out.resize(4);
    o.out.insert(o.out.begin(), len);
    return o;
}
Outcome get_ip() {
    return filled<uint8_t, 22>([](uint8_t* o) { return UHFGetIp(o, o + 4, o + 6, o + 10); });
}

const Bytes kMode3Gen2 = {0x01, 0x00, 0x0D, 0x53, 0x00, 0x00, 0x00, 0x00};
const Bytes kMode012Gen2 = {0x01, 0x40, 0xFD, 0x53, 0x00, 0x00, 0x00, 0x00};
// 5-byte records: antenna, read power, write power (0.01 dBm); 65535 is 655, cut to a byte.
const Bytes kFourRecords = {0x01, 0x0B, 0xB8, 0x0B, 0xB8, 0x02, 0x0A, 0x27, 0x03, 0xE9,
                            0x03, 0x0B, 0xB9, 0x00, 0x63, 0x04, 0xFF, 0xFF, 0x00, 0x00};
const std::vector<unsigned> kFourDecoded = {12, 1, 30, 30, 2, 25, 10, 3, 30, 0, 4, 655 & 0xFF, 0};
const Bytes kAddr = {10, 0, 0, 7, 0x17, 0x70};

std::vector<unsigned> with_untouched(Bytes head, size_t total) {
    std::vector<unsigned> out(head.begin(), head.end());
    out.resize(total, 0xEE);
    return out;
}

}  // namespace

TEST_F(SettingRules, EncodingsAndDecodings) {
    std::vector<unsigned> many(85);
    Bytes wire84 = {84};
    for (unsigned i = 0; i < 85; i++) {
        many[i] = 902000 + 500 * i;
        if (i < 84) wire84 = wire84 + Bytes{uint8_t(many[i] >> 16), uint8_t(many[i] >> 8), uint8_t(many[i])};
    }
    Bytes all_freqs = {255};
    for (unsigned k = 0; k < 255; k++) all_freqs = all_freqs + Bytes{0x0D, uint8_t(k >> 8), uint8_t(k)};
    Bytes big(1023, 0x5C);
    auto rf_preset = [](uint8_t m) { return [m] { return done(UHF_Set_RFLink(m)); }; };
    auto get_preset = [] { return filled<uint8_t, 1>(UHF_Get_RFLink); };
    auto hw = version(UHFGetHardwareVersion), sw = version(UHFGetSoftwareVersion), rv = version(UHFGetReaderVersion);
    // clang-format off
    check_steps({
        {"set power: any non-zero save is 02", [] { return done(UHFSetPower(9, 1)); }, ask(0x10, {0x02, 0x01, 0x00, 0x64, 0x00, 0x64}, {0x01}), {0, {}}},
        {"antenna power: no range check", [] { return done(UHFSetAntennaPower(3, 200, 0xFFFF, 0)); }, ask(0x10, {0x02, 0xC8, 0xFF, 0xFF, 0x00, 0x00}, {0x01}), {0, {}}},
        {"antenna power records", get_antenna_power, ask(0x12, {}, Bytes{0x01} + kFourRecords), {0, kFourDecoded}},
        {"partial record ignored", get_antenna_power, ask(0x12, {}, Bytes{0x01} + kFourRecords + Bytes{0x05, 0x0B, 0xB8}), {0, kFourDecoded}},
        {"work time: flag and antenna share a byte", [] { return done(UHFSetANTWorkTime(0x0F, 0x1F, 300)); }, ask(0x4A, {0xFF, 0x01, 0x2C}, {0x01}), {0, {}}},
        // Fields: Target Action T Q StartQ MinQ MaxQ D C P Sel Session G LF.
        {"Gen2: low fields masked", set_gen2({0, 0, 2, 3, 0, 0x1F, 0, 2, 5, 2, 0, 5, 2, 9}), ask(0x20, {0x01, 0x0F, 0x02, 0x11}, {0x01}), {0, {}}},
        {"Gen2: top fields lose high bits", set_gen2({0x0A, 0, 0, 0, 0x13, 0, 0x1F, 0, 0, 0, 5, 0, 0, 0}), ask(0x20, {0x40, 0x30, 0xF0, 0x40}, {0x01}), {0, {}}},
        {"Gen2: all ones", get_gen2, ask(0x22, {}, {0xFF, 0xFF, 0xFF, 0xFF, 0x00}), {0, {7, 7, 1, 1, 15, 15, 15, 1, 3, 1, 3, 3, 1, 7}}},
        {"filter: EPC bank skips CRC and PC", filter(0, 1, 2, 4), ask(0x6E, Bytes{0x00, 0x01, 0x00, 0x30, 0x00, 0x20} + run_of(4), {0x01}), {0, {}}},
        {"filter: other banks do not", filter(0, 3, 2, 4), ask(0x6E, Bytes{0x00, 0x03, 0x00, 0x10, 0x00, 0x20} + run_of(4), {0x01}), {0, {}}},
        {"filter: EPC at 30 loses the carry", filter(0, 1, 30, 1), ask(0x6E, Bytes{0x00, 0x01, 0x00, 0x10, 0x00, 0x08} + run_of(1), {0x01}), {0, {}}},
        {"filter: EPC at 32 keeps its high byte", filter(0, 1, 32, 2), ask(0x6E, Bytes{0x00, 0x01, 0x01, 0x20, 0x00, 0x10} + run_of(2), {0x01}), {0, {}}},
        {"filter: flag not sent", filter(1, 3, 0, 1), ask(0x6E, Bytes{0x00, 0x03, 0x00, 0x00, 0x00, 0x08} + run_of(1), {0x01}), {0, {}}},
        {"filter: 94 mask bytes fit", filter(0, 3, 0, 94), ask(0x6E, Bytes{0x00, 0x03, 0x00, 0x00, 0x02, 0xF0} + run_of(94), {0x01}), {0, {}}},
        {"work mode parameters: 8 bytes", [] { return filled<uint8_t, 7>(UHFGetWorkModePara); }, ask(0xA1, {0x0C}, {0x0C, 9, 8, 7, 6, 5, 4, 3}), {-1, std::vector<unsigned>(7, 0xEE)}},
        {"protocol type: status first", [] { return done(UHFSetProtocolType(2)); }, ask(0x06, {0x00, 0x02}, {0x01, 0x01}), {-1, {}}},
        {"protocol type get: 3 bytes", [] { return filled<uint8_t, 1>(UHFGetProtocolType); }, ask(0x06, {0x01}, {0x01, 0x05, 0x00}), {-1, {0xEE}}},
        {"hops: two", set_jump({902750, 915250}, 2), ask(0x14, {0x02, 0x0D, 0xC6, 0x5E, 0x0D, 0xF7, 0x32}, {0x01}), {0, {}}},
        {"hops: bits above 23 dropped", set_jump({0xFFABCDEF}, 1), ask(0x14, {0x01, 0xAB, 0xCD, 0xEF}, {0x01}), {0, {}}},
        {"hops: 84 fit", set_jump(many, 84), ask(0x14, wire84, {0x01}), {0, {}}},
        {"hops get: two", get_jump, ask(0x16, {}, {0x02, 0x0D, 0xC6, 0x5E, 0x0D, 0xF7, 0x32}), {0, {2, 902750, 915250, kNone, kNone, kNone}}},
        {"hops get: no status byte", get_jump, ask(0x16, {}, {0x01, 0xFF, 0xFF, 0xFF}), {0, {1, 0xFFFFFF, kNone, kNone, kNone, kNone}}},
        {"hops get: 255 fill 256 entries", get_jump, ask(0x16, {}, all_freqs), {0, {255, 0x0D0000, 0x0D0001, 0x0D0002, 0x0D0000 + 254, kNone}}},
        {"hops get: truncated", get_jump, ask(0x16, {}, {0x02, 0x0D, 0xC6, 0x5E, 0x0D, 0xF7}), {-1, std::vector<unsigned>(6, kNone)}},
        {"RF preset 3 then its Gen2 block", rf_preset(3), {{0x52, {0x00, 0x01, 0x03}, answer(0x52, {0x01})}, {0x20, kMode3Gen2, answer(0x20, {0x01})}}, {0, {}}},
        {"RF preset: Gen2 refused still succeeds", rf_preset(1), {{0x52, {0x00, 0x01, 0x01}, answer(0x52, {0x01})}, {0x20, kMode012Gen2, answer(0x20, {0x00})}}, {0, {}}},
        {"RF preset get 1: one exchange", get_preset, ask(0x54, {0x00, 0x00}, {0x01, 0x00, 0x01}), {0, {1}}},
        {"RF preset get 3 re-applies its Gen2", get_preset, {{0x54, {0x00, 0x00}, answer(0x54, {0x01, 0x00, 0x03})}, {0x20, kMode3Gen2, answer(0x20, {0x00})}}, {0, {3}}},
        {"hardware: one character per part", hw, ask(0x00, {}, {0x01, 0x0C, 0x03}), {0, shown(Bytes{6} + text("V1.<.3"))}},
        {"software counts its count byte", sw, ask(0x02, {}, {0x01, 0x0C, 0x03}), {0, shown(Bytes{8} + text("V1.12.3"))}},
        {"software part over 99", sw, ask(0x02, {}, {200, 1, 2}), {0, shown(Bytes{8} + text("VD0.1.2"))}},
        {"reader version with an item", rv, ask(0xC8, {}, Bytes{2, 1, 5, 0x01, 0x03} + text("ABC")), {0, shown(Bytes{10} + text("V2.1.5,ABC"))}},
        {"reader version, second item empty", rv, ask(0xC8, {}, Bytes{1, 2, 3, 0x01, 0x02} + text("xy") + Bytes{5, 0}), {0, shown(Bytes{10} + text("V1.2.3,xy,"))}},
        {"reader version item cut short", rv, ask(0xC8, {}, Bytes{1, 2, 3, 0x01, 0x09} + text("ab")), {0, shown(Bytes{9} + text("V1.2.3,ab"))}},
        {"reader version under 3 bytes", rv, ask(0xC8, {}, {1, 2}), {-1, {0xEE, 0xEE}}},
        {"temperature -2.00", [] { return filled<int, 1>(UHFGetTemperature); }, ask(0x34, {}, {0x01, 0xFF, 0x38}), {0, {unsigned(-2)}}},
        {"voltage: second byte not 01", [] { return filled<int, 1>(UHFVerifyVoltage); }, ask(0x08, {0x01}, {0x01, 0x00, 0x0C, 0x80}), {-1, {0xEEEEEEEE}}},
        {"user block: the largest", [&] { return done(UHFUploadUserParam(big.data(), 1023)); }, ask(0xF0, Bytes{0x01} + big, {0x01, 0x00}), {0, {}}},
        {"user block: second byte not 00", [] { uint8_t p = 1; return done(UHFUploadUserParam(&p, 1)); }, ask(0xF0, {0x01, 0x01}, {0x01, 0x01}), {-1, {}}},
        {"user block download", download, ask(0xF0, {0x02}, {0x02, 0x00, 0x11, 0x22, 0x33}), {0, {3, 0x11, 0x22, 0x33, 0xEE}}},
        {"user block longer than any upload", download, ask(0xF0, {0x02}, Bytes{0x02, 0x00} + Bytes(1024, 1)), {-1, {0xBEEF, 0xEE, 0xEE, 0xEE, 0xEE}}},
        {"own address: no gateway, short form", [] { uint8_t a[4] = {10, 0, 0, 7}, p[2] = {0x17, 0x70}, m[4] = {255, 0, 0, 0}; return done(UHFSetIp(a, p, m, nullptr)); }, ask(0xA1, Bytes{0x01} + kAddr, {0x01}), {0, {}}},
        {"own address answered with an echo", [] { uint8_t a[4] = {}, p[2] = {}; return done(UHFSetIp(a, p, nullptr, nullptr)); }, ask(0xA1, Bytes{0x01, 0, 0, 0, 0, 0, 0}, {0x02}), {-1, {}}},
        {"own address, 14 bytes: no mask", get_ip, ask(0xA1, {0x02}, Bytes{0x02} + kAddr + Bytes{255, 0, 0, 0, 10, 0, 0}), {0, with_untouched(kAddr, 22)}},
        {"own address, 7 bytes", get_ip, ask(0xA1, {0x02}, Bytes{0x02} + kAddr), {0, with_untouched(kAddr, 22)}},
        {"boot: flag 0 is EE", [] { return done(UHFJump2Boot(0)); }, ask(0xC0, {0xEE}, {0x01}), {0, {}}},
        {"boot: flag 1 is CC", [] { return done(UHFJump2Boot(1)); }, ask(0xC0, {0xCC}, {0x01}), {0, {}}},
        {"boot: flag 2 is BB", [] { return done(UHFJump2Boot(2)); }, ask(0xC0, {0xBB}, {0x01}), {0, {}}},
        {"boot: flag 3 refused", [] { return done(UHFJump2Boot(3)); }, ask(0xC0, {0xAA}, {0x00}), {-1, {}}},
        {"boot: flag 4", [] { return done(UHFJump2Boot(4)); }, {}, {-2, {}}},
        {"firmware block: 64 bytes", [] { uint8_t img[100]; std::iota(img, img + 100, uint8_t(0)); return done(UHFUpdating(img)); }, ask(0xC4, run_of(64, 0), {0x01}), {0, {}}},
    });
    // clang-format on
}

TEST_F(SettingRules, ReaderVersionTextStopsAt255Bytes) {
    Bytes reply = {1, 2, 3};
    for (int i = 0; i < 3; i++) reply = reply + Bytes{0x01, 200} + Bytes(200, uint8_t('a' + i));
    uint8_t v[300];
    memset(v, 0xEE, sizeof v);
    ASSERT_EQ(exchange(answer(0xC8, reply), [&] { return UHFGetReaderVersion(v); }), 0);
    std::string s(reinterpret_cast<char*>(v + 1), 255);
    EXPECT_EQ(v[0], 255);
    EXPECT_EQ(s.substr(206, 3), "a,b");  // "V1.2.3," and 200 a's fill 0..206
    EXPECT_EQ(s[254], 'b');
    EXPECT_EQ(v[256], 0xEE);
}

TEST_F(SettingRules, UserBlockWaitsThreeSeconds) {
    // A lower bound only: a slow machine can make the wait longer, never shorter.
    unsigned char block[4] = {1, 2, 3, 4};
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(exchange({}, [&] { return UHFUploadUserParam(block, 4); }), -1);
    EXPECT_GE(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(), 2.9);
}

TEST_F(SettingRules, StopUpdateDoesNotWaitForAReply) {
    EXPECT_EQ(UHFStopUpdate(), 0);
    ASSERT_TRUE(reader.wait_requests(1, 2000));
    EXPECT_EQ(reader.requests()[0], (Bytes{0xA5, 0x5A, 0x00, 0x08, 0xC6, 0x08 ^ 0xC6, 0x0D, 0x0A}));
}

// The amplifier status travels in the escaped AA..55 frame, not the command frame.
TEST_F(SettingRules, AmplifierStatusInBothCrcModes) {
    struct Case {
        const char* name;
        bool crc;
        Bytes reply;
        int result;
    } cases[] = {
        {"plain, status 0", false, {0xAA, 0x03, 0x00, 0x00, 0x55}, 0},
        {"plain, CRC-mode command in the reply", false, {0xAA, 0x03, 0x80, 0x00, 0x55}, -1},
        {"CRC, status 0", true, {0xAA, 0x05, 0x80, 0x00, 0xC3, 0x0B, 0x55}, 0},
        {"CRC, escaped status byte after the code", true, {0xAA, 0x05, 0x80, 0xFF, 0xFF, 0x12, 0x34, 0x55}, -1},
        {"CRC, plain command in the reply", true, {0xAA, 0x03, 0x00, 0x00, 0x55}, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        c.crc ? UHF_FlagCrcOn() : UHF_FlafCrcOff();
        reader.reply(c.reply);
        EXPECT_EQ(RmuGetPaStatus(), c.result);
        Bytes want = c.crc ? Bytes{0xAA, 0x04, 0x80, 0xBF, 0xBC, 0x55} : Bytes{0xAA, 0x02, 0x00, 0x55};
        EXPECT_EQ(reader.requests().back(), want);
    }
    UHF_FlafCrcOff();
}
