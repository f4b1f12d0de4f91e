// The virtual reader's device, network and firmware handlers at the byte level,
// and the firmware image format.
#include <gtest/gtest.h>

#include <string>

#include "engine/firmware_image.h"
#include "bytes_ops.h"
#include "sim_test_util.h"

using namespace simtest;

namespace {

const Bytes kOwnDefault = {0xC0, 0xA8, 0x01, 0xC8, 0x0F, 0xA1, 0xFF, 0xFF, 0xFF, 0x00, 0xC0, 0xA8, 0x01, 0x01};

Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

}  // namespace

TEST(SimDevice, EachRequestGetsTheModulesReply) {
  struct Row {
    const char* what;
    std::vector<std::pair<uint8_t, Bytes>> requests;  // all but the last set the scene
    Reply expect;                                     // answer to the last request
  };
  const Row rows[] = {
      {"voltage", {{0x08, {0x01}}}, {0x09, {0x01, 0x01, 0x0C, 0xE4}}},
      {"voltage, unknown query", {{0x08, {0x02}}}, {0x09, {0x01, 0x00}}},
      {"voltage, no data", {{0x08, {}}}, {0x09, {0x01, 0x00}}},
      {"temperature protection", {{0x38, {0x50}}, {0x3A, {}}}, {0x3B, {0x01, 0x50}}},
      {"temperature protection, two bytes", {{0x38, {0x50, 0x01}}}, {0x39, {0x00}}},
      {"beeper", {{0xA1, {0x07, 0x02}}, {0xA1, {0x08}}}, {0xA1 + 1, {0x08, 0x02}}},
      {"beeper, no mode", {{0xA1, {0x07}}}, {0xA2, {0x00}}},
      {"output 2 high", {{0xA1, {0x09, 0x00, 0x01, 0x01}}, {0xA1, {0x0A}}}, {0xA2, {0x0A, 0x00, 0x01}}},
      {"level 2 refused", {{0xA1, {0x09, 0x01, 0x01, 0x02}}}, {0xA2, {0x00}}},
      {"outputs, short", {{0xA1, {0x09, 0x01, 0x01}}}, {0xA2, {0x00}}},
      {"user block", {{0xF0, {0x01, 0xAB, 0xCD}}, {0xF0, {0x02}}}, {0xF1, {0x02, 0x00, 0xAB, 0xCD}}},
      {"user block, empty at first", {{0xF0, {0x02}}}, {0xF1, {0x02, 0x00}}},
      {"user block, 1024 bytes refused", {{0xF0, Bytes{0x01} + Bytes(1024, 0x33)}}, {0xF1, {0x01, 0x01}}},
      {"own address, factory", {{0xA1, {0x02}}}, {0xA2, Bytes{0x02} + kOwnDefault}},
      {"own address, short form",
       {{0xA1, {0x01, 10, 0, 0, 2, 0x12, 0x34}}, {0xA1, {0x02}}},
       {0xA2, Bytes{0x02, 10, 0, 0, 2, 0x12, 0x34} + Bytes(kOwnDefault.begin() + 6, kOwnDefault.end())}},
      {"own address, 8 bytes refused", {{0xA1, {0x01, 10, 0, 0, 2, 0x12, 0x34, 0xFF}}}, {0xA2, {0x00}}},
      {"destination", {{0xA1, {0x03, 10, 0, 0, 9, 0x00, 0x50}}, {0xA1, {0x04}}}, {0xA2, {0x04, 10, 0, 0, 9, 0x00, 0x50}}},
      {"destination, long form refused", {{0xA1, Bytes{0x03} + kOwnDefault}}, {0xA2, {0x00}}},
      {"soft reset", {{0x68, {}}}, {0x69, {0x01}}},
      {"factory settings", {{0x74, {}}}, {0x75, {0x01}}},
      {"boot loader, unknown target", {{0xC0, {0x11}}}, {0xC1, {0x00}}},
      {"0xC0 with two bytes is a protocol configuration, no boot request",
       {{0xC0, {0xEE, 0x00}}, {0xC2, {}}}, {0xC3, {0x00}}},
      {"start outside the boot loader", {{0xC2, {}}}, {0xC3, {0x00}}},
      {"block before start", {{0xC0, {0xEE}}, {0xC4, Bytes(64, 0)}}, {0xC5, {0x00}}},
      {"end before start", {{0xC0, {0xEE}}, {0xC6, {}}}, {0xC7, {0x00}}},
      {"end of an empty image", {{0xC0, {0xCC}}, {0xC2, {}}, {0xC6, {}}}, {0xC7, {0x00}}},
  };
  for (const auto& r : rows) {
    Bench b;
    for (const auto& [code, data] : r.requests) b.send(frame(code, data));
    const auto got = b.take();
    ASSERT_EQ(got.size(), r.requests.size()) << r.what;
    EXPECT_EQ(got.back(), r.expect) << r.what;
  }
}

TEST(SimDevice, SoftResetInTheMiddleOfAReadKeepsParsing) {
  // The restart happens while the parser is delivering the reset request; the
  // request after it in the same read must still be answered, by the
  // restarted reader.
  Bench b;
  b.send(frame(0xA1, {0x09, 0x01, 0x01, 0x01}) + frame(0x2C, {0x00, 0x07}));
  b.take();
  b.send(frame(0x68) + frame(0xA1, {0x0A}) + frame(0x2E));
  const auto got = b.take();
  ASSERT_EQ(got.size(), 3u);
  EXPECT_EQ(got[1], (Reply{0xA2, {0x0A, 0x00, 0x00}}));
  EXPECT_EQ(got[2], (Reply{0x2F, {0x01, 0x01}}));
}

TEST(SimDevice, BootTargetIsRecordedAndAGoodImageSwitchesVersions) {
  Bench b;
  const Bytes image = uhfsim::build_image({7, 0, 3}, text("firmware body"));
  b.send(frame(0xC0, {0xAA}));
  EXPECT_EQ(b.reader.state().boot.target, 0xAA);
  b.send(frame(0xC2));
  for (size_t at = 0; at < image.size(); at += 64) b.send(frame(0xC4, Bytes(image.begin() + long(at), image.begin() + long(at + 64))));
  b.send(frame(0xC6));
  b.send(frame(0x02));
  const auto got = b.take();
  ASSERT_EQ(got.size(), 4u + image.size() / 64);
  EXPECT_EQ(got[got.size() - 2], (Reply{0xC7, {0x01}}));
  EXPECT_EQ(got.back(), (Reply{0x03, {7, 0, 3}}));
  EXPECT_FALSE(b.reader.state().boot.active);
}

TEST(FirmwareImage, Crc32CheckValue) { EXPECT_EQ(uhfsim::crc32(text("123456789")), 0xCBF43926u); }

TEST(FirmwareImage, BuildLayout) {
  const Bytes img = uhfsim::build_image({1, 2, 3}, text("abc"));
  ASSERT_EQ(img.size(), 64u);
  const uint32_t crc = uhfsim::crc32(text("abc"));
  const Bytes head = {'U', 'H', 'F', 'I', 1, 2, 3, 0, 0, 0, 0, 3,
                      uint8_t(crc >> 24), uint8_t(crc >> 16), uint8_t(crc >> 8), uint8_t(crc), 'a', 'b', 'c'};
  EXPECT_EQ(Bytes(img.begin(), img.begin() + 19), head);
  EXPECT_EQ(Bytes(img.begin() + 19, img.end()), Bytes(45, 0xFF));
  EXPECT_EQ(uhfsim::build_image({1, 2, 3}, text("abc"), false).size(), 19u);
}

TEST(FirmwareImage, CheckAcceptsOnlyIntactImages) {
  const Bytes good = uhfsim::build_image({4, 5, 6}, text("0123456789abcdef0123456789"));
  auto with = [&](size_t at, uint8_t x) {
    Bytes b = good;
    b[at] ^= x;
    return b;
  };
  struct Row {
    const char* what;
    Bytes image;
    bool ok;
  } rows[] = {
      {"intact, padded", good, true},
      {"intact, unpadded", Bytes(good.begin(), good.begin() + 42), true},
      {"padding changed", with(50, 0x0F), true},
      {"magic", with(0, 0x01), false},
      {"format byte", with(7, 0x01), false},
      {"payload byte", with(20, 0x40), false},
      {"CRC byte", with(12, 0x01), false},
      {"length one more, into the padding", with(11, 0x01), false},
      {"length beyond the data", with(8, 0x01), false},
      {"payload cut short", Bytes(good.begin(), good.begin() + 41), false},
      {"header only", Bytes(good.begin(), good.begin() + 15), false},
      {"nothing", {}, false},
  };
  for (const auto& r : rows) {
    const auto v = uhfsim::check_image(r.image);
    EXPECT_EQ(v.has_value(), r.ok) << r.what;
    if (v) {
      EXPECT_EQ(*v, (std::array<uint8_t, 3>{4, 5, 6})) << r.what;
    }
  }
}
