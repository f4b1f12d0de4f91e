// Package-frame calls against the scripted reader: the frames sent, how
// replies are taken apart, and the result codes of the family.
#include "link_helpers.h"

using namespace uhftest;

namespace {

// A package frame as the reader sends it (head 0xAB).
Bytes pkg(uint8_t type, const Bytes& data) {
    const size_t n = data.size();
    Bytes f = Bytes{0xA5,       0x03,           uint8_t((n + 5) >> 8), uint8_t(n + 5), 0xAB, uint8_t(type << 4 | 2),
                    uint8_t(n), uint8_t(n >> 8)};
    uint8_t x = 0;
    for (size_t i = 5; i < f.size(); i++) x ^= f[i];
    for (uint8_t b : data) x ^= b;
    return f + data + Bytes{x, 0x03};
}

const Bytes kAck = {0xA5, 0x02, 0x00, 0x02, 0x01, 0x00, 0x03};

uint8_t rtc[8] = {0x20, 0x24, 0x05, 0x17, 0x10, 0x11, 0x12, 0x05};
uint8_t apdu[4] = {0x00, 0x84, 0x00, 0x08};
uint8_t out[64];
uint16_t len16;

// One call: the package type and data it must send, the reply, its result.
struct Row {
    const char* name;
    std::function<int()> call;
    int type;
    Bytes request, reply;
    int result;
};

class Package : public WireTest {
protected:
    // Type and data of the latest package request, after checking head,
    // version and both length fields.
    std::pair<int, Bytes> last_package() {
        auto reqs = reader.requests();
        if (reqs.empty() || reqs.back().size() < 10) return {-1, {}};
        const Bytes& f = reqs.back();
        EXPECT_EQ(Bytes(f.begin(), f.begin() + 2), (Bytes{0xA5, 0x03}));
        EXPECT_EQ(f[4], 0xAA);
        EXPECT_EQ(f[5] & 0x0F, 2);
        size_t dlen = f[6] | f[7] << 8;
        EXPECT_EQ((f[2] << 8 | f[3]), int(dlen + 5));
        EXPECT_EQ(f.size(), dlen + 10);
        return {f[5] >> 4, Bytes(f.begin() + 8, f.end() - 2)};
    }
};

}  // namespace

TEST_F(Package, SendBuildsTheFrameAndRefusesWhatDoesNotFit) {
    uint8_t one = 0x02;
    EXPECT_EQ(Common_Package_Send(0xAA, 1, 2, 1, &one), 0);
    ASSERT_TRUE(reader.wait_requests(1, 1000));
    EXPECT_EQ(reader.requests()[0], (Bytes{0xA5, 0x03, 0x00, 0x06, 0xAA, 0x12, 0x01, 0x00, 0x02, 0x11, 0x03}));
    Bytes big(1015, 0x01);
    EXPECT_EQ(Common_Package_Send(0xAA, 6, 2, 1015, big.data()), -1);
    EXPECT_EQ(Common_Package_Send(0xAA, 6, 2, 1014, big.data()), 0);
    ASSERT_TRUE(reader.wait_requests(2, 1000));
    EXPECT_EQ(reader.received().size(), 11u + 1024u);  // nothing of the refused one
}

TEST_F(Package, ReceiveTakesAPackageOrAnAcknowledgement) {
    uint8_t type = 0xEE;
    reader.push(pkg(7, {0x90, 0x00}));
    EXPECT_EQ(Common_Package_Rev(&type, &len16, out), 0);
    EXPECT_EQ(type, 7);
    EXPECT_EQ(Bytes(out, out + len16), (Bytes{0x90, 0x00}));
    reader.push(kAck);
    EXPECT_EQ(Common_Package_Rev(&type, &len16, out), 1);
    EXPECT_EQ(Common_Package_Rev(&type, &len16, out), -1);  // nobody talks: about a second of polls
    EXPECT_TRUE(reader.received().empty());
}

TEST_F(Package, EachCallsRequestAndResults) {
    uint8_t para[3] = {0xAB, 0xCD, 0xEF};
    uint8_t tid[8] = {0xE2, 0x80, 0x11, 0x05, 0x20, 0x00, 0x4A, 0xB1};
    const Bytes set_rtc = Bytes{0x01} + Bytes(rtc, rtc + 8);
    auto setrtc = [] { return Config_SetRTC(rtc); };
    auto psam = [] { return Trans_Psam(1, 4, apdu); };
    auto buf = [] { return Trans_Buf(0x21, 4, apdu, &len16, out); };
    auto special = [] {
        uint8_t w[3] = {1, 2, 3};
        return Request_WriteSpecialPart(3, w);
    };
    // clang-format off
    const std::vector<Row> rows = {
        // The configuration outcomes: accepted, reader's error, another
        // sub-command, wrong length, another type, a plain acknowledgement.
        {"set clock", setrtc, 1, set_rtc, pkg(2, {0x01, 0x00}), 0},
        {"set clock: reader's error", setrtc, 1, set_rtc, pkg(2, {0x01, 0x05}), -4},
        {"set clock: another sub-command", setrtc, 1, set_rtc, pkg(2, {0x7F, 0x00}), -3},
        {"set clock: three bytes", setrtc, 1, set_rtc, pkg(2, {0x01, 0x00, 0x00}), -2},
        {"set clock: another type", setrtc, 1, set_rtc, pkg(3, {0x01, 0x00}), -1},
        {"set clock: acknowledged", setrtc, 1, set_rtc, kAck, 1},
        {"set parameter", [&] { return Config_SetPara(0x0102, 3, para); }, 1, {0x03, 0x01, 0x02, 0xAB, 0xCD, 0xEF}, pkg(2, {0x03, 0x00}), 0},
        {"parameter 0 is 12 bytes", [] { return Config_GetPara(0, &len16, out); }, 1, {0x04, 0x00, 0x00}, pkg(2, Bytes{0x04, 0x00, 0x00} + Bytes(40, 0x40)), 0},
        {"parameter 0 cut short", [] { return Config_GetPara(0, &len16, out); }, 1, {0x04, 0x00, 0x00}, pkg(2, Bytes{0x04, 0x00, 0x00} + Bytes(11, 0x40)), -1},
        {"PSAM slot 1", psam, 6, {0x10, 0x00, 0x84, 0x00, 0x08}, pkg(7, {0x90, 0x00}), 0},
        {"PSAM answered with another type", psam, 6, {0x10, 0x00, 0x84, 0x00, 0x08}, pkg(6, {0x90, 0x00}), -1},
        {"PSAM reply over 16 bytes", psam, 6, {0x10, 0x00, 0x84, 0x00, 0x08}, pkg(7, Bytes(17, 1)), -1},
        {"pass-through takes any type", buf, 6, {0x21, 0x00, 0x84, 0x00, 0x08}, pkg(3, {0xAA, 0xBB}), 0},
        {"write part: status not acted on", [&] { uint8_t w[8] = {}; return Request_WritePart(tid, 3, 0x10, 4, w); }, 11,
         Bytes(tid, tid + 8) + Bytes{3, 0x10, 4} + Bytes(8, 0), pkg(11, {0x01, 0x05}), 0},
        {"special part: 01 01 is 1", special, 12, {1, 2, 3}, pkg(11, {1, 1}), 1},
        {"special part: 02 02 is 2", special, 12, {1, 2, 3}, pkg(11, {2, 2}), 2},
        {"special part: 02 xx 03 is 3", special, 12, {1, 2, 3}, pkg(11, {2, 5, 3}), 3},
        {"special part: empty reply is 0", special, 12, {1, 2, 3}, pkg(11, {}), 0},
    };
    // clang-format on
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        len16 = 0xEEEE;
        reader.reply(r.reply);
        EXPECT_EQ(r.call(), r.result);
        EXPECT_EQ(last_package(), (std::pair<int, Bytes>{r.type, r.request}));
    }
}

TEST_F(Package, OutputsOfTheReads) {
    reader.reply(pkg(2, Bytes{0x04, 0x00, 0x02} + Bytes{0x77, 0x78}));
    ASSERT_EQ(Config_GetPara(2, &len16, out), 0);
    EXPECT_EQ(len16, 1);  // type 2 is one byte, whatever came
    EXPECT_EQ(out[0], 0x77);
    reader.reply(pkg(3, {0xAA, 0xBB}));
    ASSERT_EQ(Trans_Buf(0x21, 4, apdu, &len16, out), 0);
    EXPECT_EQ(Bytes(out, out + len16), (Bytes{0xAA, 0xBB}));
}
