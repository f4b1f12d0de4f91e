// Package-frame calls against the scripted reader: the frames sent, how
// replies are taken apart, and the result codes of every call.
#include <chrono>
#include <functional>
#include <thread>

#include "link_helpers.h"

using namespace uhftest;

namespace {

// A package frame as the reader sends it (head 0xAB unless given).
Bytes pkg(uint8_t type, const Bytes& data, uint8_t head = 0xAB) {
    size_t L = data.size() + 5;
    Bytes f = {0xA5, 0x03, uint8_t(L >> 8), uint8_t(L), head, uint8_t(type << 4 | 2), uint8_t(data.size()),
               uint8_t(data.size() >> 8)};
    f = f + data;
    uint8_t x = 0;
    for (size_t i = 5; i < f.size(); i++) x ^= f[i];
    f.push_back(x);
    f.push_back(0x03);
    return f;
}

const Bytes kAck = {0xA5, 0x02, 0x00, 0x02, 0x01, 0x00, 0x03};
const Bytes kNotAck = {0xA5, 0x02, 0x00, 0x02, 0x00, 0x00, 0x03};
const Bytes kBadEnd = {0xA5, 0x02, 0x00, 0x02, 0x01, 0x00, 0x04};

class Package : public WireTest {
protected:
    // Type and data of the latest package request; checks head, version
    // and the two length fields.
    std::pair<int, Bytes> last_package() {
        auto reqs = reader.requests();
        if (reqs.empty()) {
            ADD_FAILURE() << "no request";
            return {-1, {}};
        }
        const Bytes& f = reqs.back();
        EXPECT_GE(f.size(), 10u);
        if (f.size() < 10) return {-1, {}};
        EXPECT_EQ(f[0], 0xA5);
        EXPECT_EQ(f[1], 0x03);
        EXPECT_EQ(f[4], 0xAA);
        EXPECT_EQ(f[5] & 0x0F, 2);
        size_t dlen = f[6] | f[7] << 8;
        EXPECT_EQ((f[2] << 8 | f[3]), int(dlen + 5));
        EXPECT_EQ(f.size(), dlen + 10);
        return {f[5] >> 4, Bytes(f.begin() + 8, f.end() - 2)};
    }
    void expect_no_traffic() {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_TRUE(reader.received().empty());
    }
};

struct Outcome {
    Bytes wire;
    int result;
};

}  // namespace

TEST_F(Package, SendBuildsTheFrame) {
    uint8_t one = 0x02;
    EXPECT_EQ(Common_Package_Send(0xAA, 1, 2, 1, &one), 0);
    ASSERT_TRUE(reader.wait_requests(1, 1000));
    EXPECT_EQ(reader.requests()[0], (Bytes{0xA5, 0x03, 0x00, 0x06, 0xAA, 0x12, 0x01, 0x00, 0x02, 0x11, 0x03}));

    Bytes big(1015, 0x01);
    EXPECT_EQ(Common_Package_Send(0xAA, 6, 2, 1015, big.data()), -1);
    EXPECT_EQ(Common_Package_Send(0xAA, 6, 2, 1014, big.data()), 0);
    ASSERT_TRUE(reader.wait_requests(2, 1000));
    EXPECT_EQ(reader.requests()[1].size(), 1024u);
    EXPECT_EQ(reader.received().size(), 11u + 1024u);  // nothing of the refused one
}

TEST_F(Package, ReceiveOutcomes) {
    struct Case {
        const char* name;
        Bytes wire;
        int result;
        uint8_t type;
        Bytes data;
    } cases[] = {
        {"package", pkg(7, {0x90, 0x00}), 0, 7, {0x90, 0x00}},
        {"plain 01 00", kAck, 1, 0xEE, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        reader.push(c.wire);
        uint8_t type = 0xEE;
        uint16_t len = 0xEEEE;
        uint8_t buf[32];
        memset(buf, 0xEE, sizeof buf);
        EXPECT_EQ(Common_Package_Rev(&type, &len, buf), c.result);
        EXPECT_EQ(type, c.type);
        if (c.result == 0) {
            ASSERT_EQ(len, c.data.size());
            EXPECT_EQ(Bytes(buf, buf + len), c.data);
            EXPECT_EQ(buf[len], 0xEE);
        }
    }
    uint8_t type;
    uint16_t len;
    uint8_t buf[8];
    // Nobody talks: about a second of polls, then -1.
    EXPECT_EQ(Common_Package_Rev(&type, &len, buf), -1);
    EXPECT_TRUE(reader.received().empty());
}

TEST_F(Package, ClockAndParameterSetters) {
    uint8_t rtc[8] = {0x20, 0x24, 0x05, 0x17, 0x10, 0x11, 0x12, 0x05};
    uint8_t para[3] = {0xAB, 0xCD, 0xEF};
    // The setters' reply outcomes, for sub-command sub.
    auto outcomes = [](uint8_t sub) {
        return std::vector<Outcome>{
            {pkg(2, {sub, 0x00}), 0},  {pkg(2, {sub, 0x05}), -4}, {pkg(2, {0x7F, 0x00}), -3},
            {pkg(2, {sub, 0x00, 0x00}), -2}, {pkg(2, {sub}), -2},  {pkg(3, {sub, 0x00}), -1},
            {kAck, 1},
        };
    };
    struct Setter {
        const char* name;
        uint8_t sub;
        std::function<int()> call;
        Bytes request;
    } setters[] = {
        {"SetRTC", 0x01, [&] { return Config_SetRTC(rtc); }, Bytes{0x01} + Bytes(rtc, rtc + 8)},
        {"SetPara", 0x03, [&] { return Config_SetPara(0x0102, 3, para); }, {0x03, 0x01, 0x02, 0xAB, 0xCD, 0xEF}},
    };
    for (const Setter& s : setters) {
        for (const Outcome& o : outcomes(s.sub)) {
            SCOPED_TRACE(std::string(s.name) + " " + testing::PrintToString(o.wire));
            reader.reply(o.wire);
            EXPECT_EQ(s.call(), o.result);
            EXPECT_EQ(last_package(), (std::pair<int, Bytes>{1, s.request}));
        }
    }
}

TEST_F(Package, PassThrough) {
    uint8_t apdu[4] = {0x00, 0x84, 0x00, 0x08};
    struct Case {
        uint8_t slot;
        Bytes wire;
        int result;
    } psam[] = {
        {1, pkg(7, {0x90, 0x00}), 0},
        {1, pkg(6, {0x90, 0x00}), -1},
        {2, pkg(7, Bytes(17, 1)), -1},  // longer than the 16-byte reply buffer
    };
    for (const Case& c : psam) {
        SCOPED_TRACE(testing::PrintToString(c.wire));
        reader.reply(c.wire);
        EXPECT_EQ(Trans_Psam(c.slot, 4, apdu), c.result);
        EXPECT_EQ(last_package(), (std::pair<int, Bytes>{6, Bytes{uint8_t(c.slot == 1 ? 0x10 : 0x11)} + Bytes(apdu, apdu + 4)}));
    }

    struct BufCase {
        Bytes wire;
        int result;
        Bytes got;
    } bufs[] = {
        {pkg(3, {0xAA, 0xBB}), 0, {0xAA, 0xBB}},  // any type
        {pkg(7, Bytes(17, 0x42)), -1, {}},
    };
    for (const BufCase& c : bufs) {
        SCOPED_TRACE(testing::PrintToString(c.wire));
        reader.reply(c.wire);
        uint16_t rxlen = 0xEEEE;
        uint8_t rx[20];
        memset(rx, 0xEE, sizeof rx);
        EXPECT_EQ(Trans_Buf(0x21, 4, apdu, &rxlen, rx), c.result);
        EXPECT_EQ(last_package(), (std::pair<int, Bytes>{6, Bytes{0x21} + Bytes(apdu, apdu + 4)}));
        EXPECT_EQ(rxlen, c.result == 0 ? c.got.size() : 0xEEEE);
        EXPECT_EQ(Bytes(rx, rx + c.got.size()), c.got);
        EXPECT_EQ(rx[c.got.size()], 0xEE);
    }
}

