// Sensor-tag commands against the scripted reader: request bytes and result
// codes of the 0xA3 family, 0xB0, 0xB2 and the 0x7C family.
#include <chrono>
#include <functional>
#include <thread>

#include "link_helpers.h"

using namespace uhftest;

namespace {

class Sensor : public WireTest {
protected:
    // Data of the latest request, after checking its code.
    Bytes last_request(uint8_t cmd) {
        auto reqs = reader.requests();
        if (reqs.empty()) {
            ADD_FAILURE() << "no request";
            return {};
        }
        const Bytes& f = reqs.back();
        EXPECT_EQ(f[4], cmd);
        return Bytes(f.begin() + 5, f.end() - 3);
    }
    void expect_no_traffic() {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_TRUE(reader.received().empty());
    }
};

uint8_t kMask[4] = {0xE2, 0x80, 0x11, 0x05};
// A frame with another code: the exchange ends in -4 at its time limit.

}  // namespace

TEST_F(Sensor, LoggingRequests) {
    struct Case {
        const char* name;
        std::function<int()> call;
        Bytes reply;
        Bytes request;
    } cases[] = {
        {"start, no mask, codes rounded down",
         [] { return UHFStartLogging(1, 0x20, 0, kMask, -0.1f, 25.6f, 0x0102, 0x0304); },
         {0x01, 0x00},
         {0x03, 0x01, 0x00, 0x20, 0x00, 0x00, 0x03, 0xFF, 0x00, 0x66, 0x01, 0x02, 0x03, 0x04}},
        {"start, 9-bit mask sends 2 bytes",
         [] { return UHFStartLogging(1, 0x20, 9, kMask, -10.0f, 127.75f, 0, 0xFFFF); },
         {0x01, 0x00},
         {0x03, 0x01, 0x00, 0x20, 0x00, 0x09, 0xE2, 0x80, 0x03, 0xD8, 0x01, 0xFF, 0x00, 0x00, 0xFF, 0xFF}},
        {"stop never sends the password",
         [] { return UHFStopLogging(3, 0x0100, 16, kMask, 0x12345678UL); },
         {0x01, 0x00},
         {0x04, 0x03, 0x01, 0x00, 0x00, 0x10, 0xE2, 0x80}},
        {"operating mode",
         [] { return UHFCheckOpMode(2, 0, 32, kMask) == 0x0102 ? 0 : -9; },
         {0x05, 0x01, 0x02},
         {0x05, 0x02, 0x00, 0x00, 0x00, 0x20, 0xE2, 0x80, 0x11, 0x05}},
        {"readings",
         [] {
             unsigned short total;
             unsigned char got;
             float t[255];
             return UHFReadMultiTemp(1, 0x20, 0, kMask, 0x0203, 40, &total, &got, t);
         },
         {0x07, 0x00, 0x00, 0x00},
         {0x07, 0x01, 0x00, 0x20, 0x00, 0x00, 0x02, 0x03, 40}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        reader.reply_frame(0xA4, c.reply);
        EXPECT_EQ(c.call(), 0);
        EXPECT_EQ(last_request(0xA3), c.request);
    }
}

TEST_F(Sensor, StartAndStopPassTheReadersErrorCodeBack) {
    struct Case {
        Bytes wire;
        int result;
    } cases[] = {
        {frame(0xA4, {0x01, 0x05}), 0},  // byte 0 decides first
        {frame(0xA4, {0x00, 0x05}), 5},
        {frame(0xA4, {0x02, 0xFF}), 255},
        {frame(0xA4, {0x00, 0x00}), -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.wire));
        reader.reply(c.wire);
        EXPECT_EQ(UHFStartLogging(1, 0, 0, nullptr, 0, 10, 0, 1), c.result);
        reader.reply(c.wire);
        EXPECT_EQ(UHFStopLogging(1, 0, 0, nullptr, 0), c.result);
    }
}

TEST_F(Sensor, ReadingsAreLittleEndianRecords) {
    const Bytes head3 = {0x07, 0x01, 0x2C, 0x03};    // 300 held, 3 returned
    const Bytes records = {0x66, 0x00, 0xAA, 0xBB,   // 25.5
                           0xFF, 0x03, 0x00, 0x00,   // -1.25
                           0xD8, 0xFF, 0x00, 0x00};  // bits above the tenth ignored: -10.0
    struct Case {
        const char* name;
        Bytes data;
        int result;
        unsigned short total;
        unsigned char count;
        std::vector<float> temps;
    } cases[] = {
        {"three readings", head3 + records, 0, 300, 3, {25.5f, -1.25f, -10.0f}},
        {"announces 3, carries 2", head3 + Bytes(records.begin(), records.end() - 4), -3, 300, 3, {}},
        {"wrong sub-command", {0x06, 0x00, 0x01, 0x00}, -1, 0xEEEE, 0xEE, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        reader.reply_frame(0xA4, c.data);
        unsigned short total = 0xEEEE;
        unsigned char count = 0xEE;
        float t[255];
        std::fill(std::begin(t), std::end(t), 99.0f);
        EXPECT_EQ(UHFReadMultiTemp(1, 0, 0, nullptr, 0, 3, &total, &count, t), c.result);
        EXPECT_EQ(total, c.total);
        EXPECT_EQ(count, c.count);
        for (size_t i = 0; i < c.temps.size(); i++) EXPECT_FLOAT_EQ(t[i], c.temps[i]) << i;
        EXPECT_EQ(t[c.temps.size()], 99.0f);  // nothing past the readings
    }
}

TEST_F(Sensor, SensorCodeReplies) {
    uint8_t epc[16] = {};
    uint8_t power[2] = {};
    struct Case {
        const char* name;
        Bytes wire;
        int result;
        Bytes copied;
    } cases[] = {
        {"two words", frame(0x7D, {0x01, 0x00, 0x00, 0x02, 0xAA, 0xBB, 0xCC, 0xDD}), 4, {0xAA, 0xBB, 0xCC, 0xDD}},
        {"announces more words than carried", frame(0x7D, {0x01, 0x00, 0x00, 0x03, 0xAA, 0xBB, 0xCC, 0xDD}), -1, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        reader.reply(c.wire);
        uint8_t data[200];
        memset(data, 0xEE, sizeof data);
        EXPECT_EQ(UHFGetSensorCode(epc, 1, power, data), c.result);
        EXPECT_EQ(Bytes(data, data + c.copied.size()), c.copied);
        EXPECT_EQ(data[c.copied.size()], 0xEE);
    }
    struct WriteCase {
        Bytes data;
        int result;
    } writes[] = {{{0x01, 0x00}, 0}, {{0x01, 0x02}, -1}};
    uint8_t cal[8] = {};
    for (const WriteCase& w : writes) {
        reader.reply_frame(0x7D, w.data);
        EXPECT_EQ(UHFWriteCalibrationData(epc, 1, power, cal), w.result);
    }
}
