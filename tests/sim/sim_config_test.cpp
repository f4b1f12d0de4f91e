// The virtual reader's RF link, hopping, Gen2 and inventory-mode settings:
// replies, what is kept across a power cycle, and what they change in reports.
#include <gtest/gtest.h>

#include "sim_test_util.h"

using namespace simtest;
using namespace std::chrono_literals;
using uhfsim::EngineOptions;
using uhfsim::TagField;

namespace {

// A: EPC 3000 E200 0001..., TID E280 1160 0000 0001 0000 00A1, on antenna 1
// B: EPC 3000 E200 0002..., no TID, on antenna 1
TagField field_ab() {
  return *TagField::from_json(R"({"tags":[
    {"epc":"E200 0001 0000 0000 0000 00A1","tid":"E280 1160 0000 0001 0000 00A1","user":"1234 5678",
     "rssi":{"1":-50.0}},
    {"epc":"E200 0002 0000 0000 0000 00B2","rssi":{"1":-60.0}}]})");
}

EngineOptions quiet() {
  EngineOptions o;
  o.rssi_jitter = 0;
  o.read_rate = 100;
  return o;
}

Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

Bytes freq(uint32_t khz) { return {uint8_t(khz >> 16), uint8_t(khz >> 8), uint8_t(khz)}; }

// The default FCC table: 50 channels from 902.75 MHz, 500 kHz apart.
Bytes fcc_table() {
  Bytes t = {50};
  for (uint32_t k = 0; k < 50; ++k) t = cat({t, freq(902750 + 500 * k)});
  return t;
}

const Bytes kUiiA = {0x30, 0x00, 0xE2, 0x00, 0x00, 0x01, 0, 0, 0, 0, 0, 0, 0x00, 0xA1};
const Bytes kUiiB = {0x30, 0x00, 0xE2, 0x00, 0x00, 0x02, 0, 0, 0, 0, 0, 0, 0x00, 0xB2};
const Bytes kTidA = {0xE2, 0x80, 0x11, 0x60, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0xA1};

// CRC-16 of the escaped frame (EPC Gen2 form), written out here so the
// reader's own helper is not what checks it.
uint16_t crc16(const Bytes& b) {
  uint16_t c = 0xFFFF;
  for (uint8_t x : b) {
    c ^= uint16_t(x << 8);
    for (int i = 0; i < 8; ++i) c = (c & 0x8000) ? uint16_t((c << 1) ^ 0x1021) : uint16_t(c << 1);
  }
  return uint16_t(~c);
}

}  // namespace

TEST(SimConfig, HandlersAnswerAsAModuleDoes) {
  struct Row {
    const char* what;
    uint8_t code;
    Bytes data;
    std::vector<Reply> expect;
  };
  const Row rows[] = {
      {"hopping table, default", 0x16, {}, {{0x17, fcc_table()}}},
      {"hopping table inside FCC", 0x14, cat({{2}, freq(902750), freq(927250)}), {{0x15, {0x01}}}},
      {"hopping table outside FCC", 0x14, cat({{1}, freq(865700)}), {{0x15, {0x00}}}},
      {"hopping table, count disagrees", 0x14, cat({{2}, freq(902750)}), {{0x15, {0x00}}}},
      {"hopping table, empty", 0x14, {0x00}, {{0x15, {0x00}}}},
      {"RF link, default", 0x54, {0x00, 0x00}, {{0x55, {0x01, 0x00, 0x01}}}},
      {"RF link 3", 0x52, {0x00, 0x01, 0x03}, {{0x53, {0x01}}}},
      {"RF link 4", 0x52, {0x00, 0x01, 0x04}, {{0x53, {0x00}}}},
      {"CW, default off", 0x26, {}, {{0x27, {0x00}}}},
      {"CW on", 0x24, {0x01}, {{0x25, {0x01}}}},
      {"CW 2", 0x24, {0x02}, {{0x25, {0x00}}}},
      {"parameter set", 0x18, {0x02, 1, 2, 3, 4, 9, 8, 7, 6}, {{0x19, {0x01}}}},
      {"parameter never set", 0x1A, {0x02, 1, 2, 3, 4}, {{0x1B, {0x00}}}},
      {"parameter, short", 0x18, {0x02, 1, 2, 3, 4, 9, 8, 7}, {{0x19, {0x00}}}},
      {"protocol configuration", 0xC0, {0x05, 0x00}, {{0xC1, {0x01}}}},
      {"Gen2, default", 0x22, {}, {{0x23, {0x01, 0x40, 0xFD, 0x53}}}},
      {"Gen2 set", 0x20, {0x01, 0x00, 0x0D, 0x53}, {{0x21, {0x01}}}},
      {"Gen2 preset form", 0x20, {0x01, 0x40, 0xFD, 0x53, 0, 0, 0, 0}, {{0x21, {0x01}}}},
      {"Gen2, MinQ above MaxQ", 0x20, {0x01, 0x44, 0x3D, 0x53}, {{0x21, {0x00}}}},
      {"Gen2, StartQ above MaxQ", 0x20, {0x01, 0x80, 0x4D, 0x53}, {{0x21, {0x00}}}},
      {"FastID, default", 0x5E, {0x00, 0x00}, {{0x5F, {0x01, 0x00}}}},
      {"FastID on", 0x5C, {0x01, 0x00}, {{0x5D, {0x01}}}},
      {"FastID 2", 0x5C, {0x02, 0x00}, {{0x5D, {0x00}}}},
      {"TagFocus on", 0x60, {0x01, 0x00}, {{0x61, {0x01}}}},
      {"TagFocus, default", 0x62, {0x00, 0x00}, {{0x63, {0x01, 0x00}}}},
      {"report mode, default", 0x72, {0x00, 0x00}, {{0x73, {0x01, 0x00, 0x00, 0x00}}}},
      {"report mode EPC+TID+USER", 0x70, {0x00, 0x02, 0x00, 0x02}, {{0x71, {0x01}}}},
      {"report mode 3", 0x70, {0x00, 0x03}, {{0x71, {0x00}}}},
      {"filter on EPC", 0x6E, {0x00, 0x01, 0x00, 0x20, 0x00, 0x10, 0xE2, 0x00}, {{0x6F, {0x01}}}},
      {"filter, mask length disagrees", 0x6E, {0x00, 0x01, 0x00, 0x20, 0x00, 0x11, 0xE2, 0x00}, {{0x6F, {0x00}}}},
      {"filter, bank 4", 0x6E, {0x00, 0x04, 0x00, 0x00, 0x00, 0x00}, {{0x6F, {0x00}}}},
      {"dual/single, default", 0x6C, {}, {{0x6D, {0x01, 0x00}}}},
      {"dual/single 1", 0x6A, {0x00, 0x01}, {{0x6B, {0x01}}}},
      {"dual/single 2", 0x6A, {0x00, 0x02}, {{0x6B, {0x00}}}},
      {"work mode, default", 0xA1, {0x06}, {{0xA2, {0x06, 0x00}}}},
      {"work mode 2", 0xA1, {0x05, 0x02}, {{0xA2, {0x01}}}},
      {"work mode 3", 0xA1, {0x05, 0x03}, {{0xA2, {0x00}}}},
      {"work mode parameters", 0xA1, {0x0B, 1, 2, 3, 4, 5, 6}, {{0xA2, {0x01}}}},
      {"work mode parameters, default", 0xA1, {0x0C}, {{0xA2, {0x0C, 0, 0, 0, 0, 0, 0}}}},
      {"work mode parameters, short", 0xA1, {0x0B, 1, 2, 3}, {{0xA2, {0x00}}}},
      {"work time", 0x3C, {0x00, 1, 2, 3, 4}, {{0x3D, {0x01}}}},
      {"work time, default", 0x3E, {}, {{0x3F, {0x01, 0, 0, 0, 0}}}},
      {"protocol type: status second", 0x06, {0x00, 0x01}, {{0x07, {0x00, 0x01}}}},
      {"protocol type 9 refused", 0x06, {0x00, 0x09}, {{0x07, {0x00, 0x00}}}},
      {"protocol type, default", 0x06, {0x01}, {{0x07, {0x01, 0x00}}}},
  };
  for (const auto& r : rows) {
    Bench b(field_ab(), quiet());
    b.send(frame(r.code, r.data));
    EXPECT_EQ(b.take(), r.expect) << r.what;
  }
}

TEST(SimConfig, SetThenGetReadsBackAndPowerCycleKeepsOnlyWhatIsKept) {
  struct Row {
    const char* what;
    uint8_t set_code;
    Bytes set_data;
    uint8_t get_code;
    Bytes get_data;
    Bytes after_set;
    bool survives;
  };
  const Row rows[] = {
      {"hopping table (no save byte)", 0x14, cat({{1}, freq(915250)}), 0x16, {}, cat({{1}, freq(915250)}), true},
      {"RF link, unsaved", 0x52, {0x00, 0x00, 0x02}, 0x54, {0x00, 0x00}, {0x01, 0x00, 0x02}, false},
      {"RF link, saved", 0x52, {0x00, 0x01, 0x02}, 0x54, {0x00, 0x00}, {0x01, 0x00, 0x02}, true},
      {"CW is never kept", 0x24, {0x01}, 0x26, {}, {0x01}, false},
      {"parameter", 0x18, {0x07, 0xA, 0xB, 0xC, 0xD, 1, 2, 3, 4}, 0x1A, {0x07, 0xA, 0xB, 0xC, 0xD},
       {0x01, 0xA, 0xB, 0xC, 0xD, 1, 2, 3, 4}, true},
      {"Gen2 block", 0x20, {0xA5, 0x52, 0xFC, 0x96}, 0x22, {}, {0xA5, 0x52, 0xFC, 0x96}, true},
      {"FastID", 0x5C, {0x01, 0x00}, 0x5E, {0x00, 0x00}, {0x01, 0x01}, true},
      {"TagFocus", 0x60, {0x01, 0x00}, 0x62, {0x00, 0x00}, {0x01, 0x01}, true},
      {"report mode, unsaved", 0x70, {0x00, 0x02, 0x04, 0x02}, 0x72, {0x00, 0x00}, {0x01, 0x02, 0x04, 0x02}, false},
      {"report mode, saved", 0x70, {0x01, 0x02, 0x04, 0x02}, 0x72, {0x00, 0x00}, {0x01, 0x02, 0x04, 0x02}, true},
      {"dual/single, unsaved", 0x6A, {0x00, 0x01}, 0x6C, {}, {0x01, 0x01}, false},
      {"dual/single, saved", 0x6A, {0x01, 0x01}, 0x6C, {}, {0x01, 0x01}, true},
      {"work mode", 0xA1, {0x05, 0x01}, 0xA1, {0x06}, {0x06, 0x01}, true},
      {"work mode parameters", 0xA1, {0x0B, 6, 5, 4, 3, 2, 1}, 0xA1, {0x0C}, {0x0C, 6, 5, 4, 3, 2, 1}, true},
      {"work time, unsaved", 0x3C, {0x00, 9, 8, 7, 6}, 0x3E, {}, {0x01, 9, 8, 7, 6}, false},
      {"work time, saved", 0x3C, {0x01, 9, 8, 7, 6}, 0x3E, {}, {0x01, 9, 8, 7, 6}, true},
      {"protocol type", 0x06, {0x00, 0x02}, 0x06, {0x01}, {0x01, 0x02}, true},
  };
  for (const auto& r : rows) {
    Bench b(field_ab(), quiet());
    b.send(frame(r.get_code, r.get_data));
    const auto before = b.take();
    b.send(frame(r.set_code, r.set_data));
    b.send(frame(r.get_code, r.get_data));
    const auto got = b.take();
    ASSERT_EQ(got.size(), 2u) << r.what;
    EXPECT_NE(got[0].data, Bytes{0x00}) << r.what << ": set refused";
    EXPECT_EQ(got[1].data, r.after_set) << r.what;
    b.reader.power_cycle();
    b.send(frame(r.get_code, r.get_data));
    const auto after = b.take();
    ASSERT_EQ(after.size(), 1u) << r.what;
    ASSERT_EQ(before.size(), 1u) << r.what;
    EXPECT_EQ(after[0].data, r.survives ? r.after_set : before[0].data) << r.what;
  }
}

TEST(SimConfig, RegionLimitsTheHoppingTable) {
  Bench b(field_ab(), quiet());
  // ETSI: the FCC channels do not fit, so the table becomes ETSI's own four.
  b.send(frame(0x2C, {0x00, 0x02}));
  b.send(frame(0x16));
  b.send(frame(0x14, cat({{1}, freq(915250)})));  // an FCC channel is now refused
  b.send(frame(0x14, cat({{2}, freq(866300), freq(867500)})));
  b.send(frame(0x2C, {0x00, 0x09}));  // a custom region keeps what is inside its band
  b.send(frame(0x16));
  EXPECT_EQ(b.take(), (std::vector<Reply>{
                          {0x2D, {0x01}},
                          {0x17, cat({{4}, freq(865700), freq(866300), freq(866900), freq(867500)})},
                          {0x15, {0x00}},
                          {0x15, {0x01}},
                          {0x2D, {0x01}},
                          {0x17, cat({{2}, freq(866300), freq(867500)})},
                      }));
}

TEST(SimConfig, ReportModesFastIdFilterAndPowerShapeInventory) {
  struct Row {
    const char* what;
    std::vector<Bytes> setup;  // 0x?? frames as {code, data...}
    std::vector<Bytes> reports;
  };
  const Bytes rssi_a = {0xFE, 0x0C, 0x01};  // -50.0 dBm on antenna 1
  const Bytes rssi_b = {0xFD, 0xA8, 0x01};  // -60.0
  const Row rows[] = {
      {"EPC only", {}, {cat({kUiiA, rssi_a}), cat({kUiiB, rssi_b})}},
      {"FastID adds the TID", {{0x5C, 0x01, 0x00}},
       {cat({kUiiA, kTidA, rssi_a}), cat({kUiiB, Bytes(12, 0), rssi_b})}},
      {"FastID in EPC+TID mode adds it once", {{0x5C, 0x01, 0x00}, {0x70, 0x00, 0x01}},
       {cat({kUiiA, kTidA, rssi_a}), cat({kUiiB, Bytes(12, 0), rssi_b})}},
      {"EPC+TID+USER", {{0x70, 0x00, 0x02, 0x01, 0x01}},
       {cat({kUiiA, kTidA, {0x56, 0x78}, rssi_a}), cat({kUiiB, Bytes(12, 0), {0x00, 0x00}, rssi_b})}},
      // EPC bank bits 32.. are the EPC itself; 0x20 bits E200 0002 pick B.
      {"filter on the EPC picks B", {{0x6E, 0x00, 0x01, 0x00, 0x20, 0x00, 0x20, 0xE2, 0x00, 0x00, 0x02}},
       {cat({kUiiB, rssi_b}), cat({kUiiB, rssi_b})}},
      {"filter on the TID: only A has one", {{0x6E, 0x00, 0x02, 0x00, 0x00, 0x00, 0x0C, 0xE2, 0x80}},
       {cat({kUiiA, rssi_a}), cat({kUiiA, rssi_a})}},
      {"filter of length 0 lets all through", {{0x6E, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00}},
       {cat({kUiiA, rssi_a}), cat({kUiiB, rssi_b})}},
      // 25 dBm instead of 30: 5 dB weaker.
      {"power scales RSSI", {{0x10, 0x00, 0x01, 0x09, 0xC4, 0x09, 0xC4}},
       {cat({kUiiA, {0xFD, 0xDA, 0x01}}), cat({kUiiB, {0xFD, 0x76, 0x01}})}},
  };
  for (const auto& r : rows) {
    Bench b(field_ab(), quiet());
    for (const Bytes& s : r.setup) b.send(frame(s[0], Bytes(s.begin() + 1, s.end())));
    b.take();
    b.send(frame(0x82, {0x00, 0x00}));
    b.advance(20ms);  // two reads at 100/s
    std::vector<Bytes> got;
    for (const auto& rep : b.take()) got.push_back(rep.data);
    EXPECT_EQ(got, r.reports) << r.what;
  }
}

TEST(SimConfig, FilterThatMatchesNoTagSilencesSingleInventory) {
  Bench b(field_ab(), quiet());
  b.send(frame(0x6E, {0x00, 0x01, 0x00, 0x20, 0x00, 0x08, 0x11}));
  b.send(frame(0x80, {0x00, 0x64}));
  b.send(frame(0xEB));
  EXPECT_EQ(b.take(), (std::vector<Reply>{{0x6F, {0x01}}, {0xEC, {0x00, 0x00}}}));
}

TEST(SimConfig, AmplifierStatusOverTheEscapedFrame) {
  const uint16_t req_crc = crc16({0x04, 0x80});
  const Bytes crc_request = {0xAA, 0x04, 0x80, uint8_t(req_crc >> 8), uint8_t(req_crc), 0x55};
  auto crc_reply = [&](uint8_t status) {
    const uint16_t c = crc16({0x05, 0x80, status});
    Bytes body = {0x05, 0x80, status, uint8_t(c >> 8), uint8_t(c)};
    Bytes out = {0xAA};
    for (uint8_t x : body) {
      if (x == 0xAA || x == 0x55 || x == 0xFF) out.push_back(0xFF);
      out.push_back(x);
    }
    out.push_back(0x55);
    return out;
  };
  struct Row {
    const char* what;
    uint8_t pa_status;
    Bytes request;
    Bytes reply;
  };
  const Row rows[] = {
      {"plain, healthy", 0, {0xAA, 0x02, 0x00, 0x55}, {0xAA, 0x03, 0x00, 0x00, 0x55}},
      {"plain, fault", 3, {0xAA, 0x02, 0x00, 0x55}, {0xAA, 0x03, 0x00, 0x03, 0x55}},
      {"plain, status that needs escaping", 0x55, {0xAA, 0x02, 0x00, 0x55}, {0xAA, 0x03, 0x00, 0xFF, 0x55, 0x55}},
      {"CRC, healthy", 0, crc_request, crc_reply(0)},
      {"CRC, fault", 1, crc_request, crc_reply(1)},
      {"CRC, bad check", 0, {0xAA, 0x04, 0x80, uint8_t((req_crc >> 8) ^ 1), uint8_t(req_crc), 0x55}, {}},
      {"another escaped command", 0, {0xAA, 0x02, 0x11, 0x55}, {}},
  };
  for (const auto& r : rows) {
    Bench b(field_ab(), quiet());
    b.reader.state().pa_status = r.pa_status;
    b.send(r.request);
    EXPECT_EQ(b.out, r.reply) << r.what;
  }
}
