#include <gtest/gtest.h>

#include <map>
#include <set>

#include "sim_test_util.h"

using namespace simtest;
using namespace std::chrono_literals;
using uhfsim::EngineOptions;
using uhfsim::InventoryMode;
using uhfsim::Tag;
using uhfsim::TagField;

namespace {

const Bytes kPowerDefaults = {0x01, 0x01, 0x0B, 0xB8, 0x0B, 0xB8, 0x02, 0x0B, 0xB8, 0x0B, 0xB8,
                              0x03, 0x0B, 0xB8, 0x0B, 0xB8, 0x04, 0x0B, 0xB8, 0x0B, 0xB8};

// Two known tags, no RSSI jitter, so every report byte can be written down.
//   A: EPC E200 3412 0123 4567 89AB CDEF, TID 6 words, USER 4 words, -52.5 dBm on 1, -71.0 on 2
//   B: EPC AABB CCDD, no TID/USER, -80.0 dBm on 2 only
TagField two_tags() {
  auto f = TagField::from_json(R"({"tags":[
    {"epc":"E200 3412 0123 4567 89AB CDEF","tid":"E280 1160 2000 7A1B 0C3D 4E5F",
     "user":"0011 2233 4455 6677","rssi":{"1":-52.5,"2":-71.0},"sensor":{"temperature":23.75}},
    {"epc":"AABB CCDD","rssi":{"2":-80.0}}]})");
  return *f;
}

EngineOptions quiet(uint32_t rate = 300) {
  EngineOptions o;
  o.rssi_jitter = 0;
  o.read_rate = rate;
  return o;
}

const Bytes kUiiA = {0x30, 0x00, 0xE2, 0x00, 0x34, 0x12, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
const Bytes kUiiB = {0x10, 0x00, 0xAA, 0xBB, 0xCC, 0xDD};
const Bytes kTidA = {0xE2, 0x80, 0x11, 0x60, 0x20, 0x00, 0x7A, 0x1B, 0x0C, 0x3D, 0x4E, 0x5F};

Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

}  // namespace

TEST(SimEngine, EachHandlerRepliesAsAModuleDoes) {
  struct Row {
    const char* what;
    uint8_t code;
    Bytes data;
    std::vector<Reply> expect;
  };
  const Row rows[] = {
      {"hardware version", 0x00, {}, {{0x01, {0x01, 0x02, 0x00}}}},
      {"software version", 0x02, {}, {{0x03, {0x02, 0x0A, 0x04}}}},
      {"module version", 0xC8, {}, {{0xC9, {0x03, 0x01, 0x07, 0x01, 0x0C, 'U', 'H', 'F', 'S', 'I', 'M', '-', 'R', '2', '0', '0', '0'}}}},
      {"device id", 0x04, {}, {{0x05, {0x20, 0x24, 0x00, 0x01}}}},
      {"temperature", 0x34, {}, {{0x35, {0x01, 0x0C, 0x4E}}}},
      {"get power", 0x12, {}, {{0x13, kPowerDefaults}}},
      {"set power", 0x10, {0x00, 0x02, 0x09, 0xC4, 0x07, 0xD0}, {{0x11, {0x01}}}},
      {"set power, two records", 0x10, {0x00, 0x01, 0x09, 0xC4, 0x07, 0xD0, 0x04, 0x00, 0x00, 0x0C, 0xE4}, {{0x11, {0x01}}}},
      {"set power, antenna 5 of 4", 0x10, {0x00, 0x05, 0x09, 0xC4, 0x07, 0xD0}, {{0x11, {0x00}}}},
      {"set power, antenna 0", 0x10, {0x00, 0x00, 0x09, 0xC4, 0x07, 0xD0}, {{0x11, {0x00}}}},
      {"set power, 33.01 dBm", 0x10, {0x00, 0x01, 0x0C, 0xE5, 0x00, 0x00}, {{0x11, {0x00}}}},
      {"set power, short", 0x10, {0x00, 0x01, 0x0B, 0xB8}, {{0x11, {0x00}}}},
      {"set power, ragged record", 0x10, {0x00, 0x01, 0x0B, 0xB8, 0x0B, 0xB8, 0x02}, {{0x11, {0x00}}}},
      {"get antennas", 0x2A, {}, {{0x2B, {0x00, 0x01}}}},
      {"set antennas 1+2", 0x28, {0x00, 0x00, 0x03}, {{0x29, {0x01}}}},
      {"set antennas, none", 0x28, {0x00, 0x00, 0x00}, {{0x29, {0x00}}}},
      {"set antennas, 5 of 4", 0x28, {0x00, 0x00, 0x10}, {{0x29, {0x00}}}},
      {"set antennas, high byte", 0x28, {0x00, 0x01, 0x00}, {{0x29, {0x00}}}},
      {"set antennas, short", 0x28, {0x00, 0x03}, {{0x29, {0x00}}}},
      {"set work time", 0x4A, {0x13, 0x23, 0x45}, {{0x4B, {0x01}}}},
      {"set work time, antenna 5", 0x4A, {0x05, 0x00, 0x10}, {{0x4B, {0x00}}}},
      {"get work time", 0x4C, {0x01, 0x00}, {{0x4D, {0x01, 0x01, 0x00, 0xC8}}}},
      {"get work time, antenna 9", 0x4C, {0x09, 0x00}, {{0x4D, {0x00}}}},
      {"get work time, no data", 0x4C, {}, {{0x4D, {0x00}}}},
      {"set region", 0x2C, {0x01, 0x05}, {{0x2D, {0x01}}}},
      {"set region 0", 0x2C, {0x00, 0x00}, {{0x2D, {0x00}}}},
      {"get region", 0x2E, {}, {{0x2F, {0x01, 0x01}}}},
      {"stop while idle", 0x8C, {}, {{0x8D, {0x01}}}},
      {"single inventory", 0x80, {0x00, 0x64}, {{0x81, cat({kUiiA, {0xFD, 0xF3, 0x01}})}}},
      {"batch", 0xEB, {}, {{0xEC, cat({{0x01, 0x11}, kUiiA, {0xFD, 0xF3, 0x01}})}}},
      {"start inventory has no reply", 0x82, {0x00, 0x00}, {}},
      {"unknown code", 0x77, {0x01}, {}},
      {"reply code is not a request", 0x81, {}, {}},
  };
  for (const auto& r : rows) {
    Bench b(two_tags(), quiet());
    b.send(frame(r.code, r.data));
    EXPECT_EQ(b.take(), r.expect) << r.what;
    EXPECT_EQ(b.reader.stats().requests[r.code], 1u) << r.what;
  }
}

TEST(SimEngine, SettingsSurvivePowerCycleOnlyWhenSaved) {
  struct Row {
    const char* what;
    uint8_t set_code;
    Bytes set_unsaved, set_saved;
    uint8_t get_code;
    Bytes get_data;
    Bytes after_set, defaults;
  };
  Bytes power_after = kPowerDefaults;
  power_after[7] = 0x09, power_after[8] = 0xC4, power_after[9] = 0x07, power_after[10] = 0xD0;
  const Row rows[] = {
      {"antenna power", 0x10, {0x00, 0x02, 0x09, 0xC4, 0x07, 0xD0}, {0x02, 0x02, 0x09, 0xC4, 0x07, 0xD0}, 0x12, {},
       power_after, kPowerDefaults},
      {"antenna mask", 0x28, {0x00, 0x00, 0x05}, {0x01, 0x00, 0x05}, 0x2A, {}, {0x00, 0x05}, {0x00, 0x01}},
      {"work time", 0x4A, {0x02, 0x01, 0xF4}, {0x12, 0x01, 0xF4}, 0x4C, {0x02, 0x00}, {0x01, 0x02, 0x01, 0xF4},
       {0x01, 0x02, 0x00, 0xC8}},
      {"region", 0x2C, {0x00, 0x03}, {0x01, 0x03}, 0x2E, {}, {0x01, 0x03}, {0x01, 0x01}},
  };
  for (const auto& r : rows) {
    for (bool save : {false, true}) {
      Bench b;
      b.send(frame(r.set_code, save ? r.set_saved : r.set_unsaved));
      b.send(frame(r.get_code, r.get_data));
      const auto got = b.take();
      ASSERT_EQ(got.size(), 2u) << r.what;
      EXPECT_EQ(got[0].data, Bytes{0x01}) << r.what;
      EXPECT_EQ(got[1].data, r.after_set) << r.what << " save=" << save;

      b.reader.power_cycle();
      b.send(frame(r.get_code, r.get_data));
      const auto after = b.take();
      ASSERT_EQ(after.size(), 1u) << r.what;
      EXPECT_EQ(after[0].data, save ? r.after_set : r.defaults) << r.what << " save=" << save;
    }
  }
}

TEST(SimEngine, UnsavedChangeIsLostWhileALaterSavedOneOfAnotherSettingStays) {
  Bench b;
  b.send(frame(0x2C, {0x00, 0x07}));        // region 7, not saved
  b.send(frame(0x28, {0x01, 0x00, 0x02}));  // antenna 2, saved
  b.reader.power_cycle();
  b.take();
  b.send(frame(0x2E));
  b.send(frame(0x2A));
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0x2F, {0x01, 0x01}}, {0x2B, {0x00, 0x02}}}));
}

TEST(SimEngine, RejectedSetChangesNothing) {
  Bench b;
  // Second record is bad: the first must not be applied either.
  b.send(frame(0x10, {0x02, 0x01, 0x07, 0xD0, 0x07, 0xD0, 0x09, 0x07, 0xD0, 0x07, 0xD0}));
  b.send(frame(0x12));
  const auto got = b.take();
  ASSERT_EQ(got.size(), 2u);
  EXPECT_EQ(got[0].data, Bytes{0x00});
  EXPECT_EQ(got[1].data, kPowerDefaults);
}

TEST(SimEngine, SingleInventoryRotatesThroughEnabledAntennasAndTags) {
  Bench b(two_tags(), quiet());
  b.send(frame(0x28, {0x00, 0x00, 0x03}));
  b.take();
  for (int i = 0; i < 4; ++i) b.send(frame(0x80, {0x00, 0x64}));
  // Antenna 1 sees A; antenna 2 sees A and B.
  EXPECT_EQ(b.take(), (std::vector<Reply>{
                          {0x81, cat({kUiiA, {0xFD, 0xF3, 0x01}})},
                          {0x81, cat({kUiiA, {0xFD, 0x3A, 0x02}})},
                          {0x81, cat({kUiiB, {0xFC, 0xE0, 0x02}})},
                          {0x81, cat({kUiiA, {0xFD, 0xF3, 0x01}})},
                      }));
}

TEST(SimEngine, NoTagInTheFieldMeansNoSingleReplyAndAnEmptyBatch) {
  Bench b(two_tags(), quiet());
  b.send(frame(0x28, {0x00, 0x00, 0x04}));  // antenna 3: nobody there
  b.take();
  b.send(frame(0x80, {0x00, 0x64}));
  b.send(frame(0xEB));
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0xEC, {0x00, 0x00}}}));
  EXPECT_EQ(b.reader.stats().requests[0x80], 1u);
}

TEST(SimEngine, InventoryModesAddBankDataBeforeRssi) {
  struct Row {
    const char* what;
    InventoryMode mode;
    uint8_t user_addr, user_words;
    bool sensor;
    uint8_t code;
    Bytes report_a;
  };
  const Row rows[] = {
      {"epc", InventoryMode::Epc, 0, 0, false, 0x83, cat({kUiiA, {0xFD, 0xF3, 0x01}})},
      {"epc+tid", InventoryMode::EpcTid, 0, 0, false, 0x83, cat({kUiiA, kTidA, {0xFD, 0xF3, 0x01}})},
      {"epc+tid+user", InventoryMode::EpcTidUser, 1, 2, false, 0x83,
       cat({kUiiA, kTidA, {0x22, 0x33, 0x44, 0x55}, {0xFD, 0xF3, 0x01}})},
      {"user past the bank end reads zero", InventoryMode::EpcTidUser, 3, 2, false, 0x83,
       cat({kUiiA, kTidA, {0x66, 0x77, 0x00, 0x00}, {0xFD, 0xF3, 0x01}})},
      // 23.75 C -> sensor word 2375 = 0x0947, right after the EPC.
      {"sensor", InventoryMode::Epc, 0, 0, true, 0x7F, cat({kUiiA, {0x09, 0x47}, {0xFD, 0xF3, 0x01}})},
      {"sensor+tid", InventoryMode::EpcTid, 0, 0, true, 0x7F, cat({kUiiA, {0x09, 0x47}, kTidA, {0xFD, 0xF3, 0x01}})},
  };
  for (const auto& r : rows) {
    auto opts = quiet(10);
    auto& s = opts.state.current;
    s.inventory_mode = r.mode;
    s.user_addr = r.user_addr;
    s.user_words = r.user_words;
    s.sensor_inventory = r.sensor;
    Bench b(two_tags(), opts);
    b.send(frame(0x82, {0x00, 0x00}));
    b.advance(100ms);  // one read at 10/s
    EXPECT_EQ(b.take(), (std::vector<Reply>{{r.code, r.report_a}})) << r.what;
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
      {250, 2000ms, 7ms, 500},
      {1, 3000ms, 100ms, 3},
      {100000, 100ms, 1ms, 10000},
  };
  for (const auto& r : rows) {
    Bench b(TagField::random(20, 3), quiet(r.rate));
    b.send(frame(0x82, {0x00, 0x00}));
    for (auto t = 0ms; t < r.span; t += r.step) b.advance(r.step);
    const auto got = b.take();
    EXPECT_EQ(got.size(), r.expect) << r.rate << "/s";
    size_t reports = 0;
    for (const auto& g : got) reports += g.code == 0x83;
    EXPECT_EQ(reports, got.size());
    EXPECT_EQ(b.reader.stats().tag_reports, r.expect);
  }
}

TEST(SimEngine, ReadsOwedBeyondTheBacklogAreLost) {
  Bench b(TagField::random(3, 1), quiet(300));
  b.send(frame(0x82, {0x00, 0x00}));
  b.advance(10s);
  EXPECT_EQ(b.take().size(), 300u);  // one second's worth, not ten
  b.advance(100ms);
  EXPECT_EQ(b.take().size(), 30u);   // and the pace goes on from there
}

TEST(SimEngine, DeadlineTellsTransportsWhenTheNextReadIsDue) {
  Bench b(TagField::random(3, 1), quiet(200));
  EXPECT_FALSE(b.reader.next_deadline());
  b.send(frame(0x82, {0x00, 0x00}));
  ASSERT_TRUE(b.reader.next_deadline());
  EXPECT_EQ(*b.reader.next_deadline(), b.now + 5ms);
  b.advance(4ms);
  EXPECT_TRUE(b.out.empty());
  b.advance(1ms);
  EXPECT_EQ(b.take().size(), 1u);
  EXPECT_EQ(*b.reader.next_deadline(), b.now + 5ms);
}

TEST(SimEngine, StreamAlternatesOnlyAmongEnabledAntennas) {
  auto field = two_tags();
  field.tags()[1].rssi[2] = -700;  // B also on antenna 3, which stays disabled
  Bench b(field, quiet(100));
  b.send(frame(0x28, {0x00, 0x00, 0x03}));
  b.take();
  b.send(frame(0x82, {0x00, 0x00}));
  b.advance(1s);
  const auto got = b.take();
  ASSERT_EQ(got.size(), 100u);
  std::map<std::pair<Bytes, uint8_t>, int> seen;
  for (const auto& g : got) {
    const uint8_t ant = g.data.back();
    seen[{Bytes(g.data.begin(), g.data.end() - 3), ant}]++;
  }
  // Plan: A@1, A@2, B@2, repeated.
  EXPECT_EQ(seen.size(), 3u);
  EXPECT_EQ((seen[{kUiiA, 1}]), 34);
  EXPECT_EQ((seen[{kUiiA, 2}]), 33);
  EXPECT_EQ((seen[{kUiiB, 2}]), 33);
}

TEST(SimEngine, RssiJitterStaysInsideTheAcceptedWindow) {
  auto field = TagField::from_json(R"({"tags":[{"epc":"1111","rssi":{"1":-25.5}},{"epc":"2222","rssi":{"1":-119.5}}]})");
  EngineOptions opts;
  opts.rssi_jitter = 50;
  opts.read_rate = 1000;
  Bench b(*field, opts);
  b.send(frame(0x82, {0x00, 0x00}));
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

TEST(SimEngine, StopHandshakeEndsTheStream) {
  Bench b(TagField::random(5, 2), quiet(300));
  b.send(frame(0x82, {0x00, 0x00}));
  b.advance(100ms);
  EXPECT_EQ(b.take().size(), 30u);
  b.send(frame(0x8C));
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0x8D, {0x01}}}));
  EXPECT_FALSE(b.reader.inventory_running());
  EXPECT_FALSE(b.reader.next_deadline());
  b.advance(1s);
  EXPECT_TRUE(b.out.empty());
}

TEST(SimEngine, IgnoredStopLeavesTheStreamRunning) {
  auto opts = quiet(300);
  opts.ignored_codes = {0x8C};
  Bench b(TagField::random(5, 2), opts);
  b.send(frame(0x82, {0x00, 0x00}));
  b.send(frame(0x8C));
  b.advance(100ms);
  const auto got = b.take();
  EXPECT_EQ(got.size(), 30u);
  for (const auto& g : got) EXPECT_EQ(g.code, 0x83);
  EXPECT_EQ(b.reader.stats().ignored, 1u);
  EXPECT_EQ(b.reader.stats().requests[0x8C], 1u);
}

TEST(SimEngine, BufferedDeliveryHandsReadsOutInBatches) {
  auto opts = quiet(100);
  opts.delivery = uhfsim::ReportDelivery::Buffered;
  Bench b(two_tags(), opts);
  b.send(frame(0x82, {0x00, 0x00}));
  b.advance(30ms);  // three reads of A on antenna 1
  EXPECT_TRUE(b.out.empty()) << "buffered reads are not streamed";
  b.send(frame(0xEB));
  const Bytes entry = cat({{0x11}, kUiiA, {0xFD, 0xF3, 0x01}});
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0xEC, cat({{0x03}, entry, entry, entry})}}));
  b.send(frame(0xEB));  // drained, inventory still running
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0xEC, {0x00, 0x00}}}));
}

TEST(SimEngine, BatchStaysWithinTheHostBuffer) {
  Bench b(TagField::random(100, 9), quiet());
  b.send(frame(0xEB));
  const auto got = b.take();
  ASSERT_EQ(got.size(), 1u);
  const Bytes& d = got[0].data;
  ASSERT_LE(d.size(), 512u);
  // Each random tag report is 14 + 3 = 17 bytes, 18 with its length byte.
  EXPECT_EQ(d[0], (512 - 1) / 18);
  size_t pos = 1;
  for (int i = 0; i < d[0]; ++i) {
    ASSERT_LT(pos, d.size());
    EXPECT_EQ(d[pos], 17);
    pos += 1 + d[pos];
  }
  EXPECT_EQ(pos, d.size());
}

TEST(SimEngine, EveryFrameFormHasAHandler) {
  Bench b;
  b.send({0xAA, 0x02, 0x11, 0x55});  // an escaped command nobody answers
  b.send(frame(0x2E));
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0x2F, {0x01, 0x01}}}));
  b.send({0xA5, 0x03, 0x00, 0x06, 0xAA, 0x12, 0x01, 0x00, 0x05, 0x16, 0x03});  // access bytes
  b.send({0xA5, 0x02, 0x00, 0x04, 0x01, 0x77, 0x00, 0x04, 0x03});              // unknown plain command
  EXPECT_FALSE(b.out.empty());
  EXPECT_EQ(b.reader.stats().unhandled_frames, 0u);
}

TEST(SimEngine, HandlerTableAcceptsNewFamiliesAndSubCommands) {
  Bench b;
  auto& d = b.reader.dispatcher();
  d.on(0xA1, "device settings", [](uhfsim::VirtualReader& r, const uhfsim::Request& q) {
    r.reply(0xA2, {0xEE});
    return std::string(q.data.empty() ? "empty" : "other");
  });
  d.on_sub(0xA1, 0x08, "get beep", [](uhfsim::VirtualReader& r, const uhfsim::Request&) {
    r.reply(0xA2, {0x08, 0x01});
    return std::string("ok");
  });
  d.on_frame(uhfsim::FrameKind::Escaped, [](uhfsim::VirtualReader& r, const uhfsim::Frame& f) {
    r.reply(0x00, {f.data[1]});
    return std::string("ok");
  });
  b.send(frame(0xA1, {0x08}));
  b.send(frame(0xA1, {0x0D}));
  b.send(frame(0xA1));
  b.send({0xAA, 0x02, 0x42, 0x55});
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0xA2, {0x08, 0x01}}, {0xA2, {0xEE}}, {0xA2, {0xEE}}, {0x00, {0x42}}}));
  EXPECT_EQ(b.reader.stats().unhandled_frames, 0u);
}

TEST(SimEngine, TraceGivesOneLinePerRequest) {
  std::vector<std::string> lines;
  EngineOptions opts;
  opts.trace = [&](const std::string& l) { lines.push_back(l); };
  Bench b({}, opts);
  b.send(frame(0x2C, {0x00, 0x00}));
  b.send(frame(0x77));
  b.send(frame(0x80, {0x00, 0x64}));
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], "0x2C set region: no such region");
  EXPECT_EQ(lines[1], "0x77 unknown command, no reply");
  EXPECT_EQ(lines[2], "0x80 single inventory: no tag, no reply");
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
  const Bytes huge = {0xA5, 0x5A, 0xFF, 0xFF, 0x10};
  b.send(huge);
  for (int i = 0; i < 2000; ++i) {
    Bytes chunk(static_cast<size_t>(rng.range(1, 40)));
    for (auto& x : chunk) x = static_cast<uint8_t>(rng.next());
    if (rng.chance(0.2)) chunk = frame(static_cast<uint8_t>(rng.next()), Bytes(static_cast<size_t>(rng.range(0, 20)), 0x5A));
    b.send(chunk);
    b.advance(std::chrono::milliseconds(rng.range(0, 150)));
  }
  b.out.clear();
  b.advance(200ms);
  b.send(frame(0x8C));
  b.out.clear();
  b.send(frame(0x04));
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0x05, {0x20, 0x24, 0x00, 0x01}}}));
}
