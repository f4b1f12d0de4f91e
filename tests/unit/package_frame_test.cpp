// Package (A5 03) and plain (A5 02) frames: the bytes built and how a
// collected reply is classified.
#include <gtest/gtest.h>

#include <vector>

#include "bytes_ops.h"
#include "uhf/package.h"

using Bytes = std::vector<uint8_t>;

namespace {

Bytes bytes_of(const uhf::Request& r) { return {r.data(), r.data() + r.size()}; }

Bytes package(uint8_t type, uint16_t dlen, const uint8_t* data) {
    uhf::RequestBuf<1024> r;
    uhf::build_package(r, 0xAA, type, 2, dlen, data);
    EXPECT_TRUE(r.ok());
    return bytes_of(r);
}

}  // namespace

TEST(PackageFrame, BuildMixesByteOrdersAndChecksFromTheTypeByte) {
    const uint8_t one[] = {0x02};
    EXPECT_EQ(package(1, 1, one), (Bytes{0xA5, 0x03, 0x00, 0x06, 0xAA, 0x12, 0x01, 0x00, 0x02, 0x11, 0x03}));

    Bytes data(300, 0x5A);
    Bytes f = package(11, 300, data.data());
    ASSERT_EQ(f.size(), 310u);
    EXPECT_EQ(Bytes(f.begin(), f.begin() + 8), (Bytes{0xA5, 0x03, 0x01, 0x31, 0xAA, 0xB2, 0x2C, 0x01}));
    EXPECT_EQ(f[308], 0xB2 ^ 0x2C ^ 0x01);  // 300 data bytes of 0x5A cancel out
    EXPECT_EQ(f[309], 0x03);
    // Null data: the declared length goes out, without data.
    EXPECT_EQ(package(1, 3, nullptr), (Bytes{0xA5, 0x03, 0x00, 0x08, 0xAA, 0x12, 0x03, 0x00, 0x12 ^ 0x03, 0x03}));
}

TEST(PackageFrame, ParseOutcomes) {
    const Bytes good = {0xA5, 0x03, 0x00, 0x07, 0xAB, 0x25, 0x02, 0x00, 0x10, 0x20, 0x35, 0x03};
    struct Case {
        const char* name;
        Bytes wire;
        int result;
        uint8_t type;
        Bytes data;
    } cases[] = {
        {"package", good, 0, 2, {0x10, 0x20}},
        {"wrong check byte accepted",
         {0xA5, 0x03, 0x00, 0x07, 0xAB, 0x25, 0x02, 0x00, 0x10, 0x20, 0x00, 0x03}, 0, 2, {0x10, 0x20}},
        {"empty package", {0xA5, 0x03, 0x00, 0x05, 0xAB, 0x70, 0x00, 0x00, 0x70, 0x03}, 0, 7, {}},
        {"trailing bytes ignored", good + Bytes{0xEE, 0xEE}, 0, 2, {0x10, 0x20}},
        {"plain ack 01", {0xA5, 0x02, 0x00, 0x02, 0x01, 0x00, 0x03}, 1, 0, {}},
        {"plain ack 4C", {0xA5, 0x02, 0x00, 0x02, 0x00, 0x4C, 0x03}, 1, 0, {}},
        {"plain not an ack", {0xA5, 0x02, 0x00, 0x02, 0x00, 0x00, 0x03}, -3, 0, {}},
        {"plain empty body", {0xA5, 0x02, 0x00, 0x00, 0x03, 0x4C}, -3, 0, {}},
        {"plain ack with bad end byte", {0xA5, 0x02, 0x00, 0x02, 0x01, 0x00, 0x04}, -2, 0, {}},
        {"bad end byte before the head test",
         {0xA5, 0x03, 0x00, 0x07, 0xAC, 0x25, 0x02, 0x00, 0x10, 0x20, 0x35, 0x00}, -2, 0, {}},
        {"request head", {0xA5, 0x03, 0x00, 0x07, 0xAA, 0x25, 0x02, 0x00, 0x10, 0x20, 0x35, 0x03}, -3, 0, {}},
        {"short", Bytes(good.begin(), good.end() - 1), -1, 0, {}},
        {"nothing", {}, -1, 0, {}},
        {"wrong start", {0xA4, 0x02, 0x00, 0x02, 0x01, 0x00, 0x03}, -1, 0, {}},
        {"wrong class", {0xA5, 0x5A, 0x00, 0x02, 0x01, 0x00, 0x03}, -1, 0, {}},
        {"inner length past the body",
         {0xA5, 0x03, 0x00, 0x07, 0xAB, 0x25, 0x04, 0x00, 0x10, 0x20, 0x35, 0x03}, -1, 0, {}},
        {"inner length exactly to the end byte",
         {0xA5, 0x03, 0x00, 0x07, 0xAB, 0x25, 0x03, 0x00, 0x10, 0x20, 0x35, 0x03}, 0, 2, {0x10, 0x20, 0x35}},
        {"body too short for the inner header", {0xA5, 0x03, 0x00, 0x02, 0xAB, 0x25, 0x03}, -1, 0, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        uhf::Package p{0xEE, 0xEEEE, nullptr};
        EXPECT_EQ(uhf::parse_frame(c.wire.data(), c.wire.size(), &p), c.result);
        if (c.result == 0) {
            EXPECT_EQ(p.type, c.type);
            ASSERT_EQ(p.len, c.data.size());
            EXPECT_EQ(Bytes(p.data, p.data + p.len), c.data);
        }
    }
}

TEST(PackageFrame, CollectStopsAtTheFirstQuietPollAfterDataAndAtItsCapacity) {
    struct Case {
        const char* name;
        std::vector<int> reads;  // bytes per poll, 0 = nothing
        size_t cap;
        size_t kept;
        int polls;
    } cases[] = {
        {"pieces then quiet", {0, 0, 3, 4, 0, 5}, 100, 7, 5},
        {"never anything", {}, 100, 0, 500},
        {"passes the capacity", {60, 60, 60}, 100, 100, 2},
        {"exactly the capacity, then more", {50, 50, 7}, 100, 100, 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        int polls = 0;
        uint8_t next = 0;
        auto read = [&](uint8_t* p, uint16_t n) {
            int k = polls < int(c.reads.size()) ? c.reads[size_t(polls)] : 0;
            polls++;
            for (int i = 0; i < k && i < n; i++) p[i] = next++;
            return k;
        };
        Bytes out(c.cap + 8, 0xEE);
        EXPECT_EQ(uhf::collect(read, out.data(), c.cap, 0), c.kept);
        EXPECT_EQ(polls, c.polls);
        for (size_t i = 0; i < c.kept; i++) ASSERT_EQ(out[i], uint8_t(i));
        EXPECT_EQ(out[c.cap], 0xEE);  // nothing written past the capacity
    }
}
