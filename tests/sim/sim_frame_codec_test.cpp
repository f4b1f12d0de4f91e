#include <gtest/gtest.h>

#include "bytes_ops.h"
#include "engine/frame_codec.h"
#include "engine/rng.h"

using uhfsim::Frame;
using uhfsim::FrameKind;
using uhfsim::FrameParser;
using Bytes = std::vector<uint8_t>;

namespace {

std::vector<Frame> parse(const Bytes& in, FrameParser& p) {
  std::vector<Frame> got;
  p.feed(in.data(), in.size(), [&](const Frame& f) { got.push_back(f); });
  return got;
}

std::vector<Frame> parse(const Bytes& in) {
  FrameParser p;
  return parse(in, p);
}

// Written out by hand: check byte = XOR from the length high byte to the data end.
const Bytes kStop = {0xA5, 0x5A, 0x00, 0x08, 0x8C, 0x84, 0x0D, 0x0A};
const Bytes kSetPower = {0xA5, 0x5A, 0x00, 0x0E, 0x10, 0x02, 0x01, 0x0B, 0xB8, 0x0B, 0xB8, 0x1D, 0x0D, 0x0A};
const Bytes kStart = {0xA5, 0x5A, 0x00, 0x0A, 0x82, 0x00, 0x00, 0x88, 0x0D, 0x0A};

}  // namespace

TEST(SimFrameCodec, EncodesGoldenFrames) {
  struct Row {
    uint8_t code;
    Bytes data;
    Bytes wire;
  };
  const Row rows[] = {
      {0x8C, {}, kStop},
      {0x10, {0x02, 0x01, 0x0B, 0xB8, 0x0B, 0xB8}, kSetPower},
      {0x82, {0x00, 0x00}, kStart},
  };
  for (const auto& r : rows) EXPECT_EQ(uhfsim::encode_command(r.code, r.data), r.wire) << int(r.code);
}

TEST(SimFrameCodec, ParsesGoldenFramesInAnySplit) {
  const Bytes stream = kSetPower + kStop + kStart;
  for (size_t cut1 = 0; cut1 <= stream.size(); ++cut1) {
    for (size_t cut2 = cut1; cut2 <= stream.size(); cut2 += 3) {
      FrameParser p;
      std::vector<Frame> got;
      auto sink = [&](const Frame& f) { got.push_back(f); };
      p.feed(stream.data(), cut1, sink);
      p.feed(stream.data() + cut1, cut2 - cut1, sink);
      p.feed(stream.data() + cut2, stream.size() - cut2, sink);
      std::vector<std::pair<uint8_t, Bytes>> seen;
      for (const auto& f : got) seen.emplace_back(f.code, f.data);
      EXPECT_EQ(seen, (std::vector<std::pair<uint8_t, Bytes>>{
                          {0x10, {0x02, 0x01, 0x0B, 0xB8, 0x0B, 0xB8}}, {0x8C, {}}, {0x82, {0x00, 0x00}}}))
          << cut1 << "/" << cut2;
      EXPECT_FALSE(p.has_pending());
    }
  }
}

TEST(SimFrameCodec, SkipsBrokenInputAndResynchronises) {
  Bytes bad_check = kSetPower;
  bad_check[11] ^= 0x40;
  Bytes bad_trailer = kStop;
  bad_trailer[7] = 0x0B;
  struct Row {
    const char* name;
    Bytes junk;
  };
  const Row rows[] = {
      {"junk", {0x00, 0x13, 0x5A, 0xFE}},
      {"bad check byte", bad_check},
      {"bad trailer", bad_trailer},
      {"lone head", {0xA5}},
      {"length below 8", {0xA5, 0x5A, 0x00, 0x07}},
      {"length above 4096", {0xA5, 0x5A, 0x10, 0x01}},
      {"packaged without end byte", {0xA5, 0x03, 0x00, 0x01, 0x42, 0x44}},
      {"escaped frame too short", {0xAA, 0x01, 0x55}},
      {"escaped frame overlong", {0xAA, 0x02, 0x10, 0x20, 0x55}},
      {"bad escape", {0xAA, 0x03, 0xFF, 0x10, 0x00, 0x55}},
  };
  for (const auto& r : rows) {
    FrameParser p;
    const auto got = parse(r.junk + kStop, p);
    ASSERT_EQ(got.size(), 1u) << r.name;
    EXPECT_EQ(got[0].kind, FrameKind::Command) << r.name;
    EXPECT_EQ(got[0].code, 0x8C) << r.name;
    EXPECT_GT(p.skipped_bytes(), 0u) << r.name;
  }
}

TEST(SimFrameCodec, RecognisesPackagedPlainAndEscapedFrames) {
  struct Row {
    const char* name;
    Bytes wire;
    FrameKind kind;
    Bytes body;
  };
  const Row rows[] = {
      {"packaged", {0xA5, 0x03, 0x00, 0x06, 0xAA, 0x12, 0x01, 0x00, 0x02, 0x11, 0x03}, FrameKind::Packaged,
       {0xAA, 0x12, 0x01, 0x00, 0x02, 0x11}},
      {"plain", {0xA5, 0x02, 0x00, 0x02, 0x01, 0x00, 0x03}, FrameKind::Plain, {0x01, 0x00}},
      {"escaped", {0xAA, 0x02, 0x00, 0x55}, FrameKind::Escaped, {0x02, 0x00}},
      // 0xFF escapes a 0x55 and a 0xFF inside the body.
      {"escaped with escapes", {0xAA, 0x04, 0x80, 0xFF, 0x55, 0xFF, 0xFF, 0x55}, FrameKind::Escaped,
       {0x04, 0x80, 0x55, 0xFF}},
  };
  for (const auto& r : rows) {
    const auto got = parse(r.wire + kStop);
    ASSERT_EQ(got.size(), 2u) << r.name;
    EXPECT_EQ(got[0].kind, r.kind) << r.name;
    EXPECT_EQ(got[0].data, r.body) << r.name;
    EXPECT_EQ(got[1].code, 0x8C) << r.name;
  }
}

