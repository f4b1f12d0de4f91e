// Device status, identity and I/O commands: what they send and how they
// decode a good reply.
#include <string.h>

#include <string>

#include "command_rows.h"

using namespace uhftest;

namespace {

using Device = CommandTest;

constexpr uint8_t kUntouched = 0xEE;

Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

// The version text: count byte and characters, and the first byte left untouched.
template <typename Fn>
Outcome version(Fn fn) {
    uint8_t v[300];
    memset(v, kUntouched, sizeof v);
    int r = fn(v);
    size_t n = 1;
    while (n < sizeof v - 1 && v[n] != kUntouched) n++;
    std::vector<unsigned> out(v, v + n + 1);
    return {r, out};
}

std::vector<unsigned> shown(const Bytes& count_and_text) {
    std::vector<unsigned> out(count_and_text.begin(), count_and_text.end());
    out.push_back(kUntouched);
    return out;
}

template <typename T, typename Fn>
Outcome value(Fn fn) {
    T v{};
    int r = fn(&v);
    return {r, {unsigned(v)}};
}

}  // namespace

TEST_F(Device, IdentityAndStatusReplies) {
    auto hw = [] { return version(UHFGetHardwareVersion); };
    auto sw = [] { return version(UHFGetSoftwareVersion); };
    auto rv = [] { return version(UHFGetReaderVersion); };
    auto temp = [] { return value<int>(UHFGetTemperature); };
    auto volts = [] { return value<int>(UHFVerifyVoltage); };
    // clang-format off
    check_steps({
        {"hardware: one character per part", hw, {{0x00, {}, answer(0x00, {0x01, 0x0C, 0x03})}}, {0, shown(Bytes{6} + text("V1.<.3"))}},
        {"software counts its count byte", sw, {{0x02, {}, answer(0x02, {0x01, 0x0C, 0x03})}}, {0, shown(Bytes{8} + text("V1.12.3"))}},
        {"software part over 99", sw, {{0x02, {}, answer(0x02, {200, 1, 2})}}, {0, shown(Bytes{8} + text("VD0.1.2"))}},
        {"reader version with an item", rv, {{0xC8, {}, answer(0xC8, Bytes{2, 1, 5, 0x01, 0x03} + text("ABC"))}},
         {0, shown(Bytes{10} + text("V2.1.5,ABC"))}},
        {"reader version, second item empty", rv, {{0xC8, {}, answer(0xC8, Bytes{1, 2, 3, 0x01, 0x02} + text("xy") + Bytes{5, 0})}},
         {0, shown(Bytes{10} + text("V1.2.3,xy,"))}},
        {"reader version item cut by the reply", rv, {{0xC8, {}, answer(0xC8, Bytes{1, 2, 3, 0x01, 0x09} + text("ab"))}},
         {0, shown(Bytes{9} + text("V1.2.3,ab"))}},
        {"reader version under 3 bytes", rv, {{0xC8, {}, answer(0xC8, {1, 2})}}, {-1, {kUntouched, kUntouched}}},
        {"temperature -2.00", temp, {{0x34, {}, answer(0x34, {0x01, 0xFF, 0x38})}}, {0, {unsigned(-2)}}},
        {"voltage: second byte not 01", volts, {{0x08, {0x01}, answer(0x08, {0x01, 0x00, 0x0C, 0x80})}}, {-1, {0}}},
    });
    // clang-format on
}

TEST_F(Device, ReaderVersionTextStopsAt255Bytes) {
    // Items adding up to far more text than one count byte can say.
    Bytes reply = {1, 2, 3};
    for (int i = 0; i < 3; i++) reply = reply + Bytes{0x01, 200} + Bytes(200, uint8_t('a' + i));
    uint8_t v[300];
    memset(v, kUntouched, sizeof v);
    ASSERT_EQ(exchange(answer(0xC8, reply), [&] { return UHFGetReaderVersion(v); }), 0);
    EXPECT_EQ(v[0], 255);
    std::string s(reinterpret_cast<char*>(v + 1), 255);
    EXPECT_EQ(s.substr(206, 3), "a,b");  // "V1.2.3," and 200 a's fill 0..206
    EXPECT_EQ(s[254], 'b');
    EXPECT_EQ(v[256], kUntouched);
}

TEST_F(Device, BeepOutputsAndUserParameters) {
    Bytes big(1023, 0x5C);
    auto download = [] {
        Bytes p(1100, kUntouched);
        unsigned short len = 0xBEEF;
        int r = UHFDownloadUserParam(p.data(), &len);
        std::vector<unsigned> out = {len};
        out.insert(out.end(), p.begin(), p.begin() + 4);
        return Outcome{r, out};
    };
    // clang-format off
    check_steps({
        {"upload the largest block", [&] { return Outcome{UHFUploadUserParam(big.data(), 1023), {}}; },
         {{0xF0, Bytes{0x01} + big, answer(0xF0, {0x01, 0x00})}}, {0, {}}},
        {"upload: second byte not 00", [] { uint8_t p = 1; return Outcome{UHFUploadUserParam(&p, 1), {}}; },
         {{0xF0, {0x01, 0x01}, answer(0xF0, {0x01, 0x01})}}, {-1, {}}},
        {"download", download, {{0xF0, {0x02}, answer(0xF0, {0x02, 0x00, 0x11, 0x22, 0x33})}}, {0, {3, 0x11, 0x22, 0x33, kUntouched}}},
        {"download an empty block", download, {{0xF0, {0x02}, answer(0xF0, {0x02, 0x00})}}, {0, {0, kUntouched, kUntouched, kUntouched, kUntouched}}},
        {"download longer than any upload", download, {{0xF0, {0x02}, answer(0xF0, Bytes{0x02, 0x00} + Bytes(1024, 1))}},
         {-1, {0xBEEF, kUntouched, kUntouched, kUntouched, kUntouched}}},
    });
    // clang-format on
}

TEST_F(Device, UserParamWaitsThreeSeconds) {
    // A lower bound only: a slow machine can make the wait longer, never shorter.
    unsigned char block[4] = {1, 2, 3, 4};
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(exchange({}, [&] { return UHFUploadUserParam(block, 4); }), -1);
    EXPECT_GE(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(), 2.9);
}
