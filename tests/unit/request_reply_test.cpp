// The shared request builder and reply view.
#include <gtest/gtest.h>

#include <vector>

#include "uhf/reply.h"
#include "uhf/request.h"

using uhf::Reply;
using uhf::RequestBuf;

TEST(Request, OverflowPoisonsTheWholeRequest) {
    RequestBuf<4> r;
    r.u16(1).u16(2);
    EXPECT_TRUE(r.ok());
    r.u8(3);
    EXPECT_FALSE(r.ok());
    EXPECT_EQ(r.size(), 4u);

    RequestBuf<8> f;
    uint8_t mask[8] = {};
    f.filter(1, 0, 40, mask);  // 5 + 5 bytes
    EXPECT_FALSE(f.ok());

    RequestBuf<8> n;
    n.bytes(nullptr, 2);
    EXPECT_FALSE(n.ok());
    RequestBuf<8> z;
    z.bytes(nullptr, 0).filter(3, 0, 0, nullptr);
    EXPECT_TRUE(z.ok());
}

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
