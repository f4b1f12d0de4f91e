// The tag record queue: record layout, refusals, wrap-around, overflow and
// the consumer's buffer rule.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "UHF.h"

namespace {

using Bytes = std::vector<uint8_t>;

class TagQueue : public ::testing::Test {
protected:
    void SetUp() override { flushTagBuf(); }
    void TearDown() override { flushTagBuf(); }

    static bool ring_is_zero() {
        return std::all_of(tag_buf, tag_buf + TAG_BUF_SIZE, [](unsigned char b) { return b == 0; });
    }
    // Place both indices at pos on an empty ring.
    static void start_at(unsigned long pos) {
        add_tag_index = pos;
        drop_tag_index = pos;
    }
};

Bytes report(size_t len, uint8_t seed) {
    Bytes r(len);
    for (size_t i = 0; i < len; i++) r[i] = static_cast<uint8_t>(seed + i * 7 + 1);
    if (len > 0 && r[0] == 0) r[0] = 0x30;
    return r;
}

// What getTagData hands back: id high, id low, mode, report.
Bytes expected_record(int id, INVENTORY_MODE mode, const Bytes& rep) {
    Bytes r{static_cast<uint8_t>(id >> 8), static_cast<uint8_t>(id & 0xFF), static_cast<uint8_t>(mode)};
    r.insert(r.end(), rep.begin(), rep.end());
    return r;
}

Bytes take(uint16_t capacity = 300) {
    Bytes out(capacity, 0xCC);
    uint16_t n = getTagData(out.data(), capacity);
    out.resize(n);
    return out;
}

TEST_F(TagQueue, RecordAcrossTheRingEndComesBackIntact) {
    struct Case {
        const char* name;
        unsigned long start;
        uint16_t len;
    } cases[] = {
        {"split inside the report", TAG_BUF_SIZE - 10, 40},
        {"size byte is the last ring byte", TAG_BUF_SIZE - 1, 30},
        {"record ends on the last ring byte", TAG_BUF_SIZE - 34, 30},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        flushTagBuf();
        start_at(c.start);
        const Bytes rep = report(c.len, 0x40);
        ASSERT_EQ(addTagData(SENSOR_INVENTORY, rep.data(), c.len, 0x55AA), c.len + 3);
        const unsigned long after = (c.start + c.len + 4) & TAG_BUF_MASK;
        EXPECT_EQ(add_tag_index, after);
        EXPECT_EQ(tag_buf[c.start], c.len + 3);
        EXPECT_EQ(take(), expected_record(0x55AA, SENSOR_INVENTORY, rep));
        EXPECT_EQ(drop_tag_index, after);
        EXPECT_TRUE(ring_is_zero());
    }
}

// A report that does not fit drops the whole queue with it; the count of
// what was dropped follows the records taken out before.
TEST_F(TagQueue, OverflowDropsTheQueueAndCountsWhatWentWithIt) {
    const Bytes rep = report(17, 0x30);
    auto add = [&] { return addTagData(NORMAL_INVENTORY, rep.data(), 17, 1) != 0; };
    auto fill = [&] {
        uint64_t n = 0;
        while (add()) n++;
        return n;
    };
    uint64_t before = UHF_GetQueueOverflowCount();
    const uint64_t first = fill();
    EXPECT_EQ(UHF_GetQueueOverflowCount() - before, first + 1);
    EXPECT_TRUE(ring_is_zero());
    for (int i = 0; i < 5; i++) ASSERT_TRUE(add());
    for (int i = 0; i < 3; i++) ASSERT_FALSE(take().empty());
    before = UHF_GetQueueOverflowCount();
    const uint64_t second = fill();
    EXPECT_EQ(UHF_GetQueueOverflowCount() - before, 2 + second + 1);
}

TEST(TagQueueIsContain, CircularHalfOpenInterval) {
    struct Case {
        unsigned long from, end, index;
        unsigned char want;
    } cases[] = {
        {10, 20, 10, 0},
        {10, 20, 11, 1},
        {10, 20, 20, 1},
        // wrapping interval (20, 10]
        {20, 10, 20, 0},
        {20, 10, 21, 1},
        {20, 10, 10, 1},
        {20, 10, 11, 0},
        // from == end takes the wrapping branch, which covers every index
        {7, 7, 7, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "(" << c.from << "," << c.end << "] " << c.index);
        EXPECT_EQ(isContain(c.from, c.end, c.index), c.want);
    }
}

}  // namespace
