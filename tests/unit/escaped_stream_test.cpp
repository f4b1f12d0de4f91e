// The detection thread's stream parser: unescaping, frame kinds by CRC mode,
// the carry-over between reads and the bounds it keeps.
#include <gtest/gtest.h>

#include <vector>

#include "UHF.h"
#include "bytes_ops.h"
#include "uhf/escaped_stream.h"

using Bytes = std::vector<uint8_t>;

namespace {

std::vector<Bytes> drain_stack() {
    std::vector<Bytes> out;
    uint8_t buf[80];
    uint8_t len = 0;
    while (Fetch_UhfStack(buf, &len) == 0) out.emplace_back(buf, buf + len);
    return out;
}

// Feed each read in turn and return what the stack holds afterwards.
std::vector<Bytes> run(const std::vector<Bytes>& reads, bool crc) {
    Init_UhfStack();
    uhf::EscapedStream s;
    for (const Bytes& r : reads) s.feed(r.data(), r.size(), crc);
    return drain_stack();
}

}  // namespace

TEST(EscapedStream, FramesStoredPerMode) {
    const Bytes tag91 = {0xAA, 0x04, 0x91, 0x00, 0x12, 0x55};
    const Bytes tag11 = {0xAA, 0x04, 0x11, 0x00, 0x12, 0x55};
    const Bytes big = Bytes{0xAA, 0x44, 0x11, 0x00} + Bytes(0x44 - 3, 0x01) + Bytes{0x55};
    // clang-format off
    struct Case {
        const char* name;
        bool crc;
        std::vector<Bytes> reads;
        std::vector<Bytes> stored;
    } cases[] = {
        {"escaped FF inside, CRC mode", true, {{0xAA, 0x06, 0x91, 0x00, 0xFF, 0xFF, 0x12, 0x34, 0x55}}, {{0xAA, 0x06, 0x91, 0x00, 0xFF, 0x12, 0x34, 0x55}}},
        {"escaped 55 and AA inside", true, {{0xAA, 0x05, 0xA6, 0x00, 0xFF, 0x55, 0xFF, 0xAA, 0x55}}, {{0xAA, 0x05, 0xA6, 0x00, 0x55, 0xAA, 0x55}}},
        {"two frames in one read", true, {tag91 + Bytes{0xAA, 0x03, 0xA6, 0x00, 0x55}}, {tag91, {0xAA, 0x03, 0xA6, 0x00, 0x55}}},
        {"non-CRC kinds refused in CRC mode", true, {tag11}, {}},
        {"CRC kinds refused without CRC", false, {tag91}, {}},
        {"non-CRC kinds", false, {tag11 + Bytes{0xAA, 0x03, 0x26, 0x00, 0x55}}, {tag11, {0xAA, 0x03, 0x26, 0x00, 0x55}}},
        {"status 1 never stored", true, {{0xAA, 0x04, 0x91, 0x01, 0x12, 0x55}}, {}},
        {"wrong closing byte", true, {{0xAA, 0x04, 0x91, 0x00, 0x12, 0x56}}, {}},
        {"noise before a frame", true, {Bytes{0x00, 0x13, 0x55} + tag91}, {tag91}},
        {"frame cut by a read is lost in CRC mode", true, {Bytes(tag91.begin(), tag91.begin() + 3), Bytes(tag91.begin() + 3, tag91.end())}, {}},
        {"frame cut by a read is joined without CRC", false, {Bytes(tag11.begin(), tag11.begin() + 3), Bytes(tag11.begin() + 3, tag11.end())}, {tag11}},
        {"escape split across reads, non-CRC",
         false,
         {{0xAA, 0x06, 0x11, 0x00, 0xFF}, {0xFF, 0x12, 0x34, 0x55}},
         {{0xAA, 0x06, 0x11, 0x00, 0xFF, 0x12, 0x34, 0x55}}},
        {"frame longer than a slot refused", true, {Bytes{0xAA, 0x50, 0x91, 0x00} + Bytes(0x50 - 3, 0x01) + Bytes{0x55}}, {}},
        {"a slot-sized frame fits",
         true,
         {Bytes{0xAA, 0x4E, 0x91, 0x00} + Bytes(0x4E - 3, 0x01) + Bytes{0x55}},
         {Bytes{0xAA, 0x4E, 0x91, 0x00} + Bytes(0x4E - 3, 0x01) + Bytes{0x55}}},
        {"length byte that would wrap the slot length", true, {Bytes{0xAA, 0xFE, 0x91, 0x00} + Bytes(0xFE - 3, 0x01) + Bytes{0x55}}, {}},
        {"AA as the last byte", true, {{0x00, 0xAA}}, {}},
        // 60 bytes of a 70-byte frame overflow the 50-byte carry-over: the
        // frame is lost, the stream recovers at the next one.
        {"carry-over longer than its buffer",
         false,
         {Bytes(big.begin(), big.begin() + 60), Bytes(big.begin() + 60, big.end()), tag11},
         {tag11}},
        // A refused frame is carried with the rest of its read, so the good
        // frame behind it is parsed again with the next read.
        {"refused frame carried with what follows",
         false,
         {Bytes{0xAA, 0x03, 0x22, 0x00, 0x55} + tag11, {0x00}},
         {tag11, tag11}},
        {"frame straddling byte 500 of a read", true, {Bytes(496, 0x00) + tag91}, {}},
        {"frame ending at byte 500", true, {Bytes(494, 0x00) + tag91}, {tag91}},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(run(c.reads, c.crc), c.stored);
    }
}
