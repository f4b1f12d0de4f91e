// The virtual reader's boot loader: the firmware image format and its check.
#include <gtest/gtest.h>

#include <string>

#include "bytes_ops.h"
#include "engine/firmware_image.h"

using Bytes = std::vector<uint8_t>;

namespace {

Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

}  // namespace

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
        {"magic", with(0, 0x01), false},
        {"format byte", with(7, 0x01), false},
        {"payload byte", with(20, 0x40), false},
        {"length beyond the data", with(8, 0x01), false},
        {"payload cut short", Bytes(good.begin(), good.begin() + 41), false},
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
