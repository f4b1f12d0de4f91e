// The virtual reader's temperature-logging sensor tags at the byte level.
#include <gtest/gtest.h>

#include "bytes_ops.h"
#include "sim_test_util.h"

using namespace simtest;
using namespace std::chrono_literals;

namespace {

const Bytes kSensorEpc = {0xE2, 0x00, 0x00, 0x17, 0x22, 0x0A};
const Bytes kPlainEpc = {0x30, 0x00, 0x00, 0x00, 0x00, 0x01};

uhfsim::TagField field() {
    uhfsim::Tag plain;
    plain.set_epc(kPlainEpc);
    plain.rssi[0] = -600;
    uhfsim::Tag sensor;
    sensor.set_epc(kSensorEpc);
    sensor.rssi[0] = -500;
    sensor.sensor = uhfsim::TempSensor{};
    sensor.sensor->centi_celsius = 2375;
    sensor.sensor->code = 0x1234;
    return uhfsim::TagField({plain, sensor});
}

// Sub-command and a mask selecting the sensor tag by its EPC (bank 1, bit 0x20).
Bytes a3(uint8_t sub, const Bytes& rest = {}) {
    return frame(0xA3, Bytes{sub, 0x01, 0x00, 0x20, 0x00, 0x30} + kSensorEpc + rest);
}

Bytes start(uint16_t min_code, uint16_t max_code, uint16_t delay, uint16_t interval) {
    return a3(0x03, {uint8_t(min_code >> 8), uint8_t(min_code), uint8_t(max_code >> 8), uint8_t(max_code),
                     uint8_t(delay >> 8), uint8_t(delay), uint8_t(interval >> 8), uint8_t(interval)});
}

}  // namespace

TEST(SimSensor, LoggingRunRecordsAReadingPerInterval) {
    Bench b(field());
    b.send(a3(0x07, {0x00, 0x00, 0x10}));
    EXPECT_EQ(b.take(), (std::vector<Reply>{{0xA4, {0x07, 0x00, 0x00, 0x00}}}));

    b.send(start(0x000, 0x1FC, 10, 60));  // 0..127 degC, first reading after 10 s, then every minute
    EXPECT_EQ(b.take(), (std::vector<Reply>{{0xA4, {0x01, 0x00}}}));
    b.send(a3(0x05));
    EXPECT_EQ(b.take(), (std::vector<Reply>{{0xA4, {0x05, 0x80, 0x00}}}));  // running, nothing yet

    b.advance(10s + 5min);  // readings at 10, 70, 130, 190, 250, 310 s
    b.send(a3(0x05));
    EXPECT_EQ(b.take(), (std::vector<Reply>{{0xA4, {0x05, 0xC0, 0x06}}}));
    // Readings 1..3: 23.75 + 0.25 k (quarter-degree sawtooth), code low byte first.
    b.send(a3(0x07, {0x00, 0x01, 0x03}));
    EXPECT_EQ(b.take(), (std::vector<Reply>{{0xA4,
                                             {0x07, 0x00, 0x06, 0x03,       //
                                              0x60, 0x00, 0x00, 0x01,       // 24.00
                                              0x61, 0x00, 0x00, 0x02,       // 24.25
                                              0x62, 0x00, 0x00, 0x03}}}));  // 24.50

    b.send(a3(0x04));
    EXPECT_EQ(b.take(), (std::vector<Reply>{{0xA4, {0x01, 0x00}}}));
    b.advance(1h);
    b.send(a3(0x07, {0x00, 0x05, 0x10}));  // the stop froze the log at 6
    EXPECT_EQ(b.take(), (std::vector<Reply>{{0xA4, {0x07, 0x00, 0x06, 0x01, 0x60, 0x00, 0x00, 0x05}}}));
    b.send(a3(0x05));
    EXPECT_EQ(b.take(), (std::vector<Reply>{{0xA4, {0x05, 0x40, 0x06}}}));
}
