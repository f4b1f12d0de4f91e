// The virtual reader's sensor-tag, packaged-protocol and escaped-stream
// behaviour at the byte level.
#include <gtest/gtest.h>

#include "bytes_ops.h"
#include "engine/escaped_reports.h"
#include "engine/packaged.h"
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
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0xA4, {0x07, 0x00, 0x06, 0x03,     //
                                                   0x60, 0x00, 0x00, 0x01,     // 24.00
                                                   0x61, 0x00, 0x00, 0x02,     // 24.25
                                                   0x62, 0x00, 0x00, 0x03}}}));  // 24.50

  b.send(a3(0x04));
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0xA4, {0x01, 0x00}}}));
  b.advance(1h);
  b.send(a3(0x07, {0x00, 0x05, 0x10}));  // the stop froze the log at 6
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0xA4, {0x07, 0x00, 0x06, 0x01, 0x60, 0x00, 0x00, 0x05}}}));
  b.send(a3(0x05));
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0xA4, {0x05, 0x40, 0x06}}}));
}

TEST(SimSensor, LimitAlarmAndErrors) {
  struct Row {
    const char* what;
    std::vector<Bytes> requests;  // all but the last set the scene
    Reply expect;
  };
  const Row rows[] = {
      {"reading above the upper limit sets the alarm bit",
       {start(0x000, 0x05F, 0, 1), a3(0x05)}, {0xA4, {0x05, 0xE0, 0x02}}},  // max 23.75; reading 1 is 24.00
      {"limits around the readings: no alarm", {start(0x3D8, 0x064, 0, 1), a3(0x05)}, {0xA4, {0x05, 0xC0, 0x02}}},
      {"interval 0", {start(0, 0x64, 0, 0)}, {0xA4, {0x00, 0x0B}}},
      {"start cut short", {a3(0x03, {0x00, 0x00, 0x01})}, {0xA4, {0x00, 0x0B}}},
      {"mask bytes missing", {frame(0xA3, {0x05, 0x01, 0x00, 0x20, 0x00, 0x30, 0xE2})}, {0xA4, {0x00, 0x0B}}},
      {"stop without a run", {a3(0x04)}, {0xA4, {0x00, 0x0C}}},
      {"mask matches only a tag without sensor",
       {frame(0xA3, Bytes{0x06, 0x01, 0x00, 0x20, 0x00, 0x30} + kPlainEpc)}, {0xA4, {0x00, 0x0A}}},
      {"mask past the end of the bank", {frame(0xA3, {0x06, 0x01, 0x00, 0x70, 0x00, 0x10, 0x00, 0x00})},
       {0xA4, {0x00, 0x0A}}},
      {"empty mask selects the sensor tag", {frame(0xA3, {0x06, 0x03, 0x00, 0x00, 0x00, 0x00})},
       {0xA4, {0x06, 0x26, 0x66}}},  // 3.000 V -> 9830
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.what);
    Bench b(field());
    for (const auto& q : r.requests) {
      b.out.clear();
      b.send(q);
      if (&q != &r.requests.back()) b.advance(1500ms);
    }
    EXPECT_EQ(b.take(), std::vector<Reply>{r.expect});
  }
}

TEST(SimEscapedStream, InventoryStreamsEscapedTagFrames) {
  for (bool crc : {true, false}) {
    SCOPED_TRACE(crc);
    uhfsim::EngineOptions o;
    o.read_rate = 10;
    o.rssi_jitter = 0;
    uhfsim::Tag ff;
    ff.set_epc(Bytes{0xFF, 0x55, 0xAA, 0x01});
    ff.rssi[0] = -600;  // 0xFDA8
    uhfsim::TagField f = field();
    f.tags()[1].sensor->code = 0x00FF;
    f.add(ff);
    Bench b(f, o);
    b.reader.settings().escaped_reports = {true, crc};
    b.reader.pump(b.now);  // the reader's clock starts at the bench's
    b.reader.start_inventory();
    b.advance(300ms);  // three reads: the plain tag, the sensor tag, the FF tag
    Bytes pc_plain = {0x18, 0x00}, pc_ff = {0x10, 0x00};
    Bytes want;
    auto add = [&](uint8_t code, const Bytes& data) {
      Bytes body = Bytes{uint8_t(2 + data.size() + (crc ? 2 : 0)), uint8_t(crc ? code | 0x80 : code)} + data;
      if (crc) {
        uint16_t c = uhfsim::gen2_crc16(body);
        body = body + Bytes{uint8_t(c >> 8), uint8_t(c)};
      }
      want = want + escaped(body);
    };
    add(0x11, Bytes{0x00} + pc_plain + kPlainEpc + Bytes{0xFD, 0xA8, 0x01});
    add(0x26, Bytes{0x00} + pc_plain + kSensorEpc + Bytes{0x00, 0xFF, 0xFE, 0x0C, 0x01});
    add(0x11, Bytes{0x00} + pc_ff + Bytes{0xFF, 0x55, 0xAA, 0x01, 0xFD, 0xA8, 0x01});
    EXPECT_EQ(b.out, want);
  }
}

