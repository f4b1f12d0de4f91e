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

Bytes epc16(const Bytes& epc) {
  Bytes e = epc;
  e.resize(16, 0);
  return e;
}

Bytes x7c(uint8_t sub, const Bytes& epc, uint8_t ant = 1, const Bytes& extra = {}) {
  return frame(0x7C, Bytes{sub} + epc16(epc) + Bytes{ant, 0x0B, 0xB8} + extra);
}

// Package (A5 03) and plain (A5 02) frames, written apart from the reader's own.
Bytes package(uint8_t type, const Bytes& data, uint8_t head = 0xAA) {
  Bytes body = {head, uint8_t(type << 4 | 2), uint8_t(data.size()), uint8_t(data.size() >> 8)};
  body = body + data;
  uint8_t x = 0;
  for (size_t i = 1; i < body.size(); i++) x ^= body[i];
  body.push_back(x);
  return Bytes{0xA5, 0x03, uint8_t(body.size() >> 8), uint8_t(body.size())} + body + Bytes{0x03};
}

Bytes plain(const Bytes& body) {
  return Bytes{0xA5, 0x02, uint8_t(body.size() >> 8), uint8_t(body.size())} + body + Bytes{0x03};
}

// The reader's reply package (head AB), and the bytes written since the last call.
Bytes pkg_reply(uint8_t type, const Bytes& data) { return package(type, data, 0xAB); }
Bytes written(Bench& b) { return std::exchange(b.out, {}); }

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

TEST(SimSensor, SensorCodeCalibrationAndRssi) {
  Bench b(field());
  b.send(x7c(0x01, kSensorEpc));
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0x7D, {0x01, 0x00, 0x00, 0x01, 0x12, 0x34}}}));
  b.send(x7c(0x03, kSensorEpc));  // -50.0 dBm -> (−500 + 1000) / 20 = 25
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0x7D, {0x01, 0x00, 0x00, 0x01, 0x00, 25}}}));

  b.send(x7c(0x02, kSensorEpc));
  auto first = b.take();
  ASSERT_EQ(first.size(), 1u);
  ASSERT_EQ(first[0].data.size(), 12u);
  EXPECT_EQ(Bytes(first[0].data.begin(), first[0].data.begin() + 4), (Bytes{0x01, 0x00, 0x00, 0x04}));

  const Bytes cal = {1, 2, 3, 4, 0x10, 6, 7, 8};
  b.send(x7c(0x06, kSensorEpc, 1, cal));
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0x7D, {0x01, 0x00}}}));
  b.send(x7c(0x02, kSensorEpc));
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0x7D, Bytes{0x01, 0x00, 0x00, 0x04} + cal}}));
  // Temperature code: (2375 + 4000) / 10 + calibration byte 4.
  b.send(x7c(0x05, kSensorEpc));
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0x7D, {0x01, 0x00, 0x00, 0x02, 0x00, 25, 0x02, 0x8D}}}));

  struct Row {
    const char* what;
    Bytes request;
    Bytes reply;
  } rows[] = {
      {"tag without sensor", x7c(0x01, kPlainEpc), {0x01, 0x01}},
      {"unknown EPC", x7c(0x01, {0x11, 0x22}), {0x01, 0x01}},
      {"antenna that does not see it", x7c(0x01, kSensorEpc, 2), {0x01, 0x01}},
      {"antenna out of range", x7c(0x01, kSensorEpc, 9), {0x01, 0x01}},
      {"unknown mode", x7c(0x09, kSensorEpc), {0x01, 0x03}},
      {"write without its 8 bytes", x7c(0x06, kSensorEpc), {0x01, 0x04}},
      {"read with extra bytes", x7c(0x01, kSensorEpc, 1, {0x00}), {0x01, 0x04}},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.what);
    b.send(r.request);
    EXPECT_EQ(b.take(), (std::vector<Reply>{{0x7D, r.reply}}));
  }
}

TEST(SimPackaged, ClockTicksWithTime) {
  Bench b;
  const Bytes set = {0x07, 0xE8, 0x02, 0x1D, 0x17, 0x3B, 0x30, 0x00};  // 2024-02-29 23:59:48
  b.send(package(1, Bytes{0x01} + set));
  EXPECT_EQ(written(b), pkg_reply(2, {0x01, 0x00}));
  b.advance(15s);
  b.send(package(1, {0x02}));
  // 2024-03-01 00:00:03, a Friday.
  EXPECT_EQ(written(b), pkg_reply(2, {0x02, 0x07, 0xE8, 0x03, 0x01, 0x00, 0x00, 0x03, 0x05}));

  const Bytes bad_dates[] = {
      {0x07, 0xE7, 0x02, 0x1D, 0x00, 0x00, 0x00, 0x00},  // 2023-02-29
      {0x07, 0xE8, 0x0D, 0x01, 0x00, 0x00, 0x00, 0x00},  // month 13
      {0x07, 0xE8, 0x01, 0x01, 0x18, 0x00, 0x00, 0x00},  // hour 24
  };
  for (const auto& d : bad_dates) {
    b.send(package(1, Bytes{0x01} + d));
    EXPECT_EQ(written(b), pkg_reply(2, {0x01, 0x01}));
  }
  b.send(package(1, {0x01, 0x00}));
  EXPECT_EQ(written(b), pkg_reply(2, {0x01, 0x01}));
}

TEST(SimPackaged, ParametersAndWorkModes) {
  struct Row {
    const char* what;
    std::vector<Bytes> requests;  // the replies to all but the last are not checked
    Bytes expect;
  };
  const Row rows[] = {
      {"type 2 default", {package(1, {0x04, 0x00, 0x02})}, pkg_reply(2, {0x04, 0x00, 0x02, 0x01})},
      {"type 5 set then read", {package(1, {0x03, 0x00, 0x05, 1, 2, 3, 4}), package(1, {0x04, 0x00, 0x05})},
       pkg_reply(2, {0x04, 0x00, 0x05, 1, 2, 3, 4})},
      {"type 5 of the wrong size", {package(1, {0x03, 0x00, 0x05, 1, 2, 3})}, pkg_reply(2, {0x03, 0x01})},
      {"type 3 only through the work-mode table", {package(1, {0x03, 0x00, 0x03, 0})}, pkg_reply(2, {0x03, 0x01})},
      {"free type keeps what it is given", {package(1, {0x03, 0x01, 0x00, 9, 8}), package(1, {0x04, 0x01, 0x00})},
       pkg_reply(2, {0x04, 0x01, 0x00, 9, 8})},
      {"unset type reads empty", {package(1, {0x04, 0x02, 0x00})}, pkg_reply(2, {0x04, 0x02, 0x00})},
      {"work modes then type 3",
       {package(1, Bytes{0x06, 0x02} + Bytes(14, 0x33)), package(1, {0x04, 0x00, 0x03})},
       pkg_reply(2, Bytes{0x04, 0x00, 0x03, 0x02} + Bytes(14, 0x33))},
      {"work-mode table cut short", {package(1, {0x06, 37, 0x00, 0x01, 0x02})}, pkg_reply(2, {0x06, 0x01})},
      {"no work modes yet", {package(1, {0x04, 0x00, 0x03})}, pkg_reply(2, {0x04, 0x00, 0x03, 0x00})},
      {"access bytes", {package(1, {0x05})},
       pkg_reply(2, {0x05, 0x20, 0x24, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0xA5, 0x5A, 0x00, 0x0C})},
      {"unknown sub-command", {package(1, {0x09})}, pkg_reply(2, {0x09, 0x01})},
      {"bad check byte: dropped", {[] { Bytes f = package(1, {0x05}); f[9] ^= 1; return f; }()}, {}},
      {"reply head AB from the host: dropped", {package(1, {0x05}, 0xAB)}, {}},
      {"inner length disagrees: dropped", {[] { Bytes f = package(1, {0x05, 0x00}); f[6] = 1; return f; }()}, {}},
      {"unknown type: dropped", {package(3, {0x05})}, {}},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.what);
    Bench b;
    for (const auto& q : r.requests) {
      b.out.clear();
      b.send(q);
    }
    EXPECT_EQ(b.out, r.expect);
  }
}

TEST(SimPackaged, PartitionsPassThroughAndUpgradeInfo) {
  Bench b;
  const Bytes tid = {0xE2, 0x80, 0x11, 0x05, 0x20, 0x00, 0x4A, 0xB1};
  b.send(package(11, tid + Bytes{3, 2, 2, 0xA1, 0xA2, 0xA3, 0xA4}));  // partition 3, word 2, 2 words
  EXPECT_EQ(written(b), pkg_reply(11, {0x01, 0x00}));
  b.send(package(10, {0x13}));  // flag 1, partition 3
  EXPECT_EQ(written(b), pkg_reply(10, Bytes(4, 0) + Bytes{0xA1, 0xA2, 0xA3, 0xA4} + Bytes(24, 0)));
  b.send(package(10, {0xF3, 0, 0, 0, 0}));  // flag 3 carries four more bytes
  const Bytes flag3 = written(b);
  ASSERT_GT(flag3.size(), 12u);
  EXPECT_EQ(flag3[8 + 4], 0xA1);  // data starts after A5 03 len len AB type n n
  b.send(package(10, {0x33}));  // flag 3 without them
  EXPECT_TRUE(written(b).empty());
  b.send(package(11, tid + Bytes{3, 15, 2, 1, 2, 3, 4}));  // past the 32-byte partition
  EXPECT_EQ(written(b), pkg_reply(11, {0x01, 0x01}));
  b.send(package(11, tid + Bytes{3, 0, 2, 1, 2}));  // fewer words than announced
  EXPECT_EQ(written(b), pkg_reply(11, {0x01, 0x01}));
  b.send(package(12, {9, 8, 7}));
  EXPECT_EQ(written(b), pkg_reply(11, {0x01, 0x00}));
  EXPECT_EQ(b.reader.state().packaged.special_partition, (Bytes{9, 8, 7}));

  b.send(package(6, {0x11, 0x00, 0x84, 0x00, 0x08}));
  EXPECT_EQ(written(b), pkg_reply(7, {0x00, 0x84, 0x00, 0x08, 0x90, 0x00}));
  b.send(package(6, Bytes{0x10} + Bytes(20, 0x42)));
  EXPECT_EQ(written(b), pkg_reply(7, Bytes(14, 0x42) + Bytes{0x90, 0x00}));
  b.send(package(6, {0x21, 0x01, 0x02}));
  EXPECT_EQ(written(b), pkg_reply(6, {0x21, 0x01, 0x02}));

  const Bytes info = {0x10, 0x20};
  uhfsim::send_upgrade_info(b.reader, 0x03, 0x00, info);
  EXPECT_EQ(written(b), pkg_reply(5, {0x03, 0x00, 0x10, 0x20}));
}

TEST(SimPackaged, PlainFramesAreAcknowledged) {
  Bench b;
  b.send(plain({0x01, 0x2A, 0x00, 0x0B, 0x00, 0x01, 0x00, 0x33, 0x00, 0x12, 0x34}));
  EXPECT_EQ(b.out, plain({0x01, 0x2B, 0x00, 0x06, 0x00, 0x01}));
  EXPECT_EQ(b.reader.state().packaged.config, (std::array<uint8_t, 2>{0x12, 0x34}));
  b.out.clear();

  Bytes sper = {0x01, 0x14, 0x00, 0x2D};
  sper.resize(45, 0x00);
  sper[37] = 0x01;
  b.send(plain(sper));
  EXPECT_EQ(b.out, plain({0x01, 0x15, 0x00, 0x06, 0x00, 0x00}));
  EXPECT_EQ(b.reader.state().packaged.inventory_sper, 1);
  b.out.clear();

  const Bytes head = {0x01, 0xFE, 0x00, 0x12, 0, 0, 0, 0, 0, 0, 0x01, 0x00};
  b.send(plain(head + Bytes{0x0A, 0x01, 0x34, 0x12, 0x00, 0x00}));
  b.send(plain(head + Bytes{0x08, 0x01, 0x01, 0x01, 0x00, 0x00}));
  EXPECT_TRUE(b.out.empty());
  EXPECT_EQ(b.reader.state().packaged.fixed_frequency, 0x1234);

  b.send(plain({0x01, 0x2A, 0x00, 0x0C, 0x00, 0x01, 0x00, 0x33, 0x00, 0x12, 0x34}));  // length field wrong
  b.send(plain({0x01, 0x77, 0x00, 0x04}));
  EXPECT_TRUE(b.out.empty());
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

TEST(SimEngine, AdvanceMovesTheReadersClockOnly) {
  Bench b(field());
  b.send(start(0, 0x1FC, 0, 60));
  b.take();
  b.reader.advance(10min);  // the caller's clock stays where it is
  b.send(a3(0x05));
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0xA4, {0x05, 0xC0, 11}}}));
  b.reader.start_inventory();
  auto due = b.reader.next_deadline();
  ASSERT_TRUE(due.has_value());
  EXPECT_GT(*due, b.now);  // in the caller's time, not ten minutes ahead
  EXPECT_LT(*due, b.now + 1s);
}
