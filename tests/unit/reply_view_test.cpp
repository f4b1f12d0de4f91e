// The reply view every command reads its reply through: reads past the end
// find nothing. (Requests that would not fit are refused at the API, in the
// wire tests.)
#include <gtest/gtest.h>

#include <cstring>

#include "uhf/reply.h"

using uhf::Reply;

TEST(Reply, ReadsAreBounded) {
    Reply r;
    const uint8_t src[] = {0x01, 0x00, 0x12, 0x34};
    memcpy(r.raw(), src, 4);
    *r.raw_len() = 4;
    EXPECT_TRUE(r.is(0, 0x01));
    EXPECT_FALSE(r.is(4, 0x00));  // past the end never matches
    EXPECT_EQ(r.be16(2), 0x1234);
    EXPECT_EQ(r.be16(3), 0x3400);
    EXPECT_EQ(r[100], 0);
    uint8_t out[4] = {9, 9, 9, 9};
    EXPECT_TRUE(r.copy(out, 2, 2));
    EXPECT_EQ(out[0], 0x12);
    EXPECT_FALSE(r.copy(out, 2, 3));
    EXPECT_FALSE(r.copy(nullptr, 0, 1));
    EXPECT_EQ(out[2], 9);
}
