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

// Written out by hand: check byte = XOR from the length high byte to the data end.
const Bytes kStop = {0xA5, 0x5A, 0x00, 0x08, 0x8C, 0x84, 0x0D, 0x0A};
const Bytes kSetPower = {0xA5, 0x5A, 0x00, 0x0E, 0x10, 0x02, 0x01, 0x0B, 0xB8, 0x0B, 0xB8, 0x1D, 0x0D, 0x0A};

}  // namespace

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
