// The virtual reader's device, network and firmware handlers at the byte level,
// and the firmware image format.
#include <gtest/gtest.h>

#include <string>

#include "bytes_ops.h"
#include "engine/firmware_image.h"
#include "sim_test_util.h"

using namespace simtest;

namespace {


Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

}  // namespace

TEST(SimDevice, BootTargetIsRecordedAndAGoodImageSwitchesVersions) {
    Bench b;
    const Bytes image = uhfsim::build_image({7, 0, 3}, text("firmware body"));
    b.send(frame(0xC0, {0xAA}));
    EXPECT_EQ(b.reader.state().boot.target, 0xAA);
    b.send(frame(0xC2));
    for (size_t at = 0; at < image.size(); at += 64)
        b.send(frame(0xC4, Bytes(image.begin() + long(at), image.begin() + long(at + 64))));
    b.send(frame(0xC6));
    b.send(frame(0x02));
    const auto got = b.take();
    ASSERT_EQ(got.size(), 4u + image.size() / 64);
    EXPECT_EQ(got[got.size() - 2], (Reply{0xC7, {0x01}}));
    EXPECT_EQ(got.back(), (Reply{0x03, {7, 0, 3}}));
    EXPECT_FALSE(b.reader.state().boot.active);
}

TEST(FirmwareImage, Crc32CheckValue) { EXPECT_EQ(uhfsim::crc32(text("123456789")), 0xCBF43926u); }

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
