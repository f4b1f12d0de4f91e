#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "sim_test_util.h"

using namespace simtest;
using namespace std::chrono_literals;
using uhfsim::EngineOptions;
using uhfsim::TagField;

namespace {

const Bytes kPowerDefaults = {0x01, 0x01, 0x0B, 0xB8, 0x0B, 0xB8, 0x02, 0x0B, 0xB8, 0x0B, 0xB8,
                              0x03, 0x0B, 0xB8, 0x0B, 0xB8, 0x04, 0x0B, 0xB8, 0x0B, 0xB8};

// Two known tags, so every report byte can be written down.
//   A: EPC E200 3412 0123 4567 89AB CDEF, -52.5 dBm on 1, -71.0 on 2
//   B: EPC AABB CCDD, -80.0 dBm on 2 and -70.0 on 3
TagField two_tags() {
  return *TagField::from_json(R"({"tags":[
    {"epc":"E200 3412 0123 4567 89AB CDEF","rssi":{"1":-52.5,"2":-71.0}},
    {"epc":"AABB CCDD","rssi":{"2":-80.0,"3":-70.0}}]})");
}

const Bytes kUiiA = {0x30, 0x00, 0xE2, 0x00, 0x34, 0x12, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
const Bytes kUiiB = {0x10, 0x00, 0xAA, 0xBB, 0xCC, 0xDD};
const Bytes kA1 = kUiiA + Bytes{0xFD, 0xF3, 0x01};  // A's report on antenna 1
const Bytes kStart = frame(0x82, {0x00, 0x00});

}  // namespace

// Settings that read back and survive a power cycle are in sim_config_test.cpp.
TEST(SimEngine, EachHandlerRepliesAsAModuleDoes) {
  struct Row {
    const char* what;
    std::vector<Bytes> requests;  // replies to all but the last are not checked
    std::vector<Reply> expect;
  };
  const Row rows[] = {
      {"hardware version", {frame(0x00)}, {{0x01, {0x01, 0x02, 0x00}}}},
      {"software version", {frame(0x02)}, {{0x03, {0x02, 0x0A, 0x04}}}},
      {"module version", {frame(0xC8)},
       {{0xC9, {0x03, 0x01, 0x07, 0x01, 0x08, 'U', 'H', 'F', 'S', 'I', 'M', '-', '1'}}}},
      {"device id", {frame(0x04)}, {{0x05, {0x20, 0x24, 0x00, 0x01}}}},
      {"temperature", {frame(0x34)}, {{0x35, {0x01, 0x0C, 0x4E}}}},
      {"set power, two records", {frame(0x10, {0x00, 0x01, 0x09, 0xC4, 0x07, 0xD0, 0x04, 0x00, 0x00, 0x0C, 0xE4})},
       {{0x11, {0x01}}}},
      {"set power, antenna 5 of 4", {frame(0x10, {0x00, 0x05, 0x09, 0xC4, 0x07, 0xD0})}, {{0x11, {0x00}}}},
      {"set power, antenna 0", {frame(0x10, {0x00, 0x00, 0x09, 0xC4, 0x07, 0xD0})}, {{0x11, {0x00}}}},
      {"set power, 33.01 dBm", {frame(0x10, {0x00, 0x01, 0x0C, 0xE5, 0x00, 0x00})}, {{0x11, {0x00}}}},
      {"set power, short", {frame(0x10, {0x00, 0x01, 0x0B, 0xB8})}, {{0x11, {0x00}}}},
      {"set power, ragged record", {frame(0x10, {0x00, 0x01, 0x0B, 0xB8, 0x0B, 0xB8, 0x02})}, {{0x11, {0x00}}}},
      // The second record is bad: the first must not be applied either.
      {"rejected set changes nothing",
       {frame(0x10, {0x02, 0x01, 0x07, 0xD0, 0x07, 0xD0, 0x09, 0x07, 0xD0, 0x07, 0xD0}), frame(0x12)},
       {{0x13, kPowerDefaults}}},
      {"set antennas, none", {frame(0x28, {0x00, 0x00, 0x00})}, {{0x29, {0x00}}}},
      {"set antennas, 5 of 4", {frame(0x28, {0x00, 0x00, 0x10})}, {{0x29, {0x00}}}},
      {"set antennas, high byte", {frame(0x28, {0x00, 0x01, 0x00})}, {{0x29, {0x00}}}},
      {"set antennas, short", {frame(0x28, {0x00, 0x03})}, {{0x29, {0x00}}}},
      {"set work time, antenna 5", {frame(0x4A, {0x05, 0x00, 0x10})}, {{0x4B, {0x00}}}},
      {"get work time, antenna 9", {frame(0x4C, {0x09, 0x00})}, {{0x4D, {0x00}}}},
      {"get work time, no data", {frame(0x4C)}, {{0x4D, {0x00}}}},
      {"set region 0", {frame(0x2C, {0x00, 0x00})}, {{0x2D, {0x00}}}},
      {"stop while idle", {frame(0x8C)}, {{0x8D, {0x01}}}},
      {"single inventory", {frame(0x80, {0x00, 0x64})}, {{0x81, kA1}}},
      {"batch", {frame(0xEB)}, {{0xEC, Bytes{0x01, 0x11} + kA1}}},
      {"start inventory has no reply", {kStart}, {}},
      {"unknown code", {frame(0x77, {0x01})}, {}},
      {"reply code is not a request", {frame(0x81)}, {}},
      {"no tag on antenna 4: no single reply", {frame(0x28, {0x00, 0x00, 0x08}), frame(0x80, {0x00, 0x64})}, {}},
      {"no tag on antenna 4: empty batch", {frame(0x28, {0x00, 0x00, 0x08}), frame(0xEB)}, {{0xEC, {0x00, 0x00}}}},
      {"filter matching no tag: no single reply",
       {frame(0x6E, {0x00, 0x01, 0x00, 0x20, 0x00, 0x08, 0x11}), frame(0x80, {0x00, 0x64})}, {}},
  };
  for (const auto& r : rows) {
    Bench b(two_tags(), quiet());
    EXPECT_EQ(last_replies(b, r.requests), r.expect) << r.what;
    EXPECT_EQ(b.reader.stats().requests[r.requests.back()[4]], 1u) << r.what;
  }
}

TEST(SimEngine, UnsavedChangeIsLostWhileALaterSavedOneOfAnotherSettingStays) {
  Bench b;
  b.send(frame(0x2C, {0x00, 0x07}));        // region 7, not saved
  b.send(frame(0x28, {0x01, 0x00, 0x02}));  // antenna 2, saved
  b.reader.power_cycle();
  b.take();
  b.send(frame(0x2E) + frame(0x2A));
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0x2F, {0x01, 0x01}}, {0x2B, {0x00, 0x02}}}));
}

TEST(SimEngine, InventoryVisitsEachTagOnEachEnabledAntennaInTurn) {
  // Antennas 1 and 2 enabled: A@1, A@2, B@2, again; B on disabled antenna 3 never.
  const std::vector<Bytes> plan = {kA1, kUiiA + Bytes{0xFD, 0x3A, 0x02}, kUiiB + Bytes{0xFC, 0xE0, 0x02}, kA1};
  for (bool stream : {false, true}) {
    Bench b(two_tags(), quiet(100));
    b.send(frame(0x28, {0x00, 0x00, 0x03}));
    b.take();
    if (stream) {
      b.send(kStart);
      b.advance(40ms);
    } else {
      for (int i = 0; i < 4; ++i) b.send(frame(0x80, {0x00, 0x64}));
    }
    std::vector<Reply> want;
    for (const auto& p : plan) want.push_back({uint8_t(stream ? 0x83 : 0x81), p});
    EXPECT_EQ(b.take(), want) << "stream=" << stream;
  }
}

TEST(SimEngine, StreamsExactlyTheRateOverSimulatedTime) {
  struct Row {
    uint32_t rate;
    std::chrono::milliseconds span, step;
    size_t expect;
  };
  const Row rows[] = {
      {300, 1000ms, 10ms, 300},
      {300, 1000ms, 1000ms, 300},  // one late pump catches up
      {300, 10s, 10s, 300},        // but reads owed beyond a second's backlog are lost
      {250, 2000ms, 7ms, 500},
      {1, 3000ms, 100ms, 3},
      {100000, 100ms, 1ms, 10000},
  };
  for (const auto& r : rows) {
    Bench b(TagField::random(20, 3), quiet(r.rate));
    b.send(kStart);
    for (auto t = 0ms; t < r.span; t += r.step) b.advance(r.step);
    const auto got = b.take();
    EXPECT_EQ(got.size(), r.expect) << r.rate << "/s";
    EXPECT_EQ(std::count_if(got.begin(), got.end(), [](const Reply& g) { return g.code == 0x83; }), long(r.expect));
    EXPECT_EQ(b.reader.stats().tag_reports, r.expect);
    b.advance(100ms);  // the pace goes on from there
    EXPECT_EQ(b.take().size(), r.rate / 10) << r.rate << "/s";
  }
}

TEST(SimEngine, DeadlineTellsTransportsWhenTheNextReadIsDue) {
  Bench b(TagField::random(3, 1), quiet(200));
  EXPECT_FALSE(b.reader.next_deadline());
  b.send(kStart);
  ASSERT_TRUE(b.reader.next_deadline());
  EXPECT_EQ(*b.reader.next_deadline(), b.now + 5ms);
  b.advance(4ms);
  EXPECT_TRUE(b.out.empty());
  b.advance(1ms);
  EXPECT_EQ(b.take().size(), 1u);
  EXPECT_EQ(*b.reader.next_deadline(), b.now + 5ms);
}

TEST(SimEngine, RssiJitterStaysInsideTheAcceptedWindow) {
  EngineOptions opts;
  opts.rssi_jitter = 50;
  opts.read_rate = 1000;
  Bench b(*TagField::from_json(R"({"tags":[{"epc":"1111","rssi":{"1":-25.5}},{"epc":"2222","rssi":{"1":-119.5}}]})"),
          opts);
  b.send(kStart);
  b.advance(1s);
  std::set<int16_t> values;
  for (const auto& g : b.take()) {
    const auto rssi = static_cast<int16_t>(g.data[4] << 8 | g.data[5]);
    values.insert(rssi);
    ASSERT_LE(rssi, -250);
    ASSERT_GE(rssi, -1200);
  }
  EXPECT_GT(values.size(), 20u) << "jitter should vary the reading";
}

TEST(SimEngine, StopEndsTheStreamUnlessIgnored) {
  for (bool ignored : {false, true}) {
    auto opts = quiet(300);
    if (ignored) opts.ignored_codes = {0x8C};
    Bench b(TagField::random(5, 2), opts);
    b.send(kStart);
    b.advance(100ms);
    EXPECT_EQ(b.take().size(), 30u);
    b.send(frame(0x8C));
    b.advance(100ms);
    const auto got = b.take();
    EXPECT_EQ(b.reader.stats().requests[0x8C], 1u);
    EXPECT_EQ(b.reader.stats().ignored, ignored ? 1u : 0u);
    EXPECT_EQ(b.reader.inventory_running(), ignored);
    EXPECT_EQ(b.reader.next_deadline().has_value(), ignored);
    if (ignored) {
      EXPECT_EQ(got.size(), 30u);
      for (const auto& g : got) EXPECT_EQ(g.code, 0x83);
    } else {
      EXPECT_EQ(got, (std::vector<Reply>{{0x8D, {0x01}}}));
    }
  }
}

TEST(SimEngine, BufferedDeliveryHandsReadsOutInBatches) {
  auto opts = quiet(100);
  opts.delivery = uhfsim::ReportDelivery::Buffered;
  Bench b(two_tags(), opts);
  b.send(kStart);
  b.advance(30ms);  // three reads of A on antenna 1
  EXPECT_TRUE(b.out.empty()) << "buffered reads are not streamed";
  b.send(frame(0xEB));
  const Bytes entry = Bytes{0x11} + kA1;
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0xEC, Bytes{0x03} + entry + entry + entry}}));
  b.send(frame(0xEB));  // drained, inventory still running
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0xEC, {0x00, 0x00}}}));
}

TEST(SimEngine, BatchStaysWithinTheHostBuffer) {
  Bench b(TagField::random(100, 9), quiet());
  b.send(frame(0xEB));
  const auto got = b.take();
  ASSERT_EQ(got.size(), 1u);
  const Bytes& d = got[0].data;
  // Each random tag report is 14 + 3 = 17 bytes, 18 with its length byte.
  ASSERT_EQ(d.size(), 1u + (512 - 1) / 18 * 18);
  EXPECT_EQ(d[0], (512 - 1) / 18);
  for (size_t pos = 1; pos < d.size(); pos += 18) EXPECT_EQ(d[pos], 17);
}

TEST(SimEngine, TraceGivesOneLinePerRequest) {
  std::vector<std::string> lines;
  EngineOptions opts;
  opts.trace = [&](const std::string& l) { lines.push_back(l); };
  Bench b({}, opts);
  b.send(frame(0x2C, {0x00, 0x00}) + frame(0x77) + frame(0x80, {0x00, 0x64}));
  EXPECT_EQ(lines, (std::vector<std::string>{"0x2C set region: no such region", "0x77 unknown command, no reply",
                                             "0x80 single inventory: no tag, no reply"}));
}

TEST(SimEngine, HalfFrameIsDroppedAfterAQuietSpell) {
  Bench b;
  b.send({0xA5, 0x5A, 0x00, 0x40, 0x2E});  // promises 64 bytes, never sends them
  b.send(frame(0x2E));
  EXPECT_TRUE(b.out.empty());
  ASSERT_TRUE(b.reader.next_deadline());
  b.advance(99ms);
  EXPECT_TRUE(b.out.empty());
  b.advance(1ms);
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0x2F, {0x01, 0x01}}}));
  EXPECT_FALSE(b.reader.next_deadline());
}

TEST(SimEngine, HostileInputNeverBreaksTheReader) {
  uhfsim::Rng rng(5);
  Bench b(TagField::random(3, 1), quiet(1000));
  b.send({0xA5, 0x5A, 0xFF, 0xFF, 0x10});
  for (int i = 0; i < 2000; ++i) {
    Bytes chunk(static_cast<size_t>(rng.range(1, 40)));
    for (auto& x : chunk) x = static_cast<uint8_t>(rng.next());
    if (rng.chance(0.2)) chunk = frame(static_cast<uint8_t>(rng.next()), Bytes(static_cast<size_t>(rng.range(0, 20)), 0x5A));
    b.send(chunk);
    b.advance(std::chrono::milliseconds(rng.range(0, 150)));
  }
  b.advance(200ms);
  b.send(frame(0x8C));
  EXPECT_EQ(last_replies(b, {frame(0x04)}), (std::vector<Reply>{{0x05, {0x20, 0x24, 0x00, 0x01}}}));
}
