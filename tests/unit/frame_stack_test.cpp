// The frame stack's full and empty rules, and the EBV converters.
#include <gtest/gtest.h>

#include "UHF.h"

TEST(FrameStack, EmptyFullAndOrder) {
    Init_UhfStack();
    uint8_t out[80];
    uint8_t len = 77;
    EXPECT_EQ(Fetch_UhfStack(out, &len), -1);
    EXPECT_EQ(len, 77);  // untouched
    EXPECT_EQ(Fetch_UhfStack(nullptr, &len), -2);
    EXPECT_EQ(Fetch_UhfStack(out, nullptr), -2);

    for (int i = 0; i < 1000; i++) {
        uint8_t frame[3] = {0xAA, static_cast<uint8_t>(i), static_cast<uint8_t>(i >> 8)};
        Insert_UhfStack(frame, 3);
    }
    // 999 fit; the thousandth was dropped and the first comes out first.
    for (int i = 0; i < 999; i++) {
        ASSERT_EQ(Fetch_UhfStack(out, &len), 0) << i;
        ASSERT_EQ(len, 3);
        EXPECT_EQ(out[1] | out[2] << 8, i);
    }
    EXPECT_EQ(Fetch_UhfStack(out, &len), -1);
}

TEST(Ebv, BothDirections) {
    struct Case {
        int value;
        uint8_t b0, b1;
        int back;
    } cases[] = {
        {0, 0x00, 0, 0},          {127, 0x7F, 0, 127},        {128, 0x81, 0x00, 128},
        {300, 0x82, 0x2C, 300},   {16383, 0xFF, 0x7F, 16383}, {16384, 0x80, 0x00, 0},  // high bits lost
        {-1, 0xFF, 0, 127 * 128},  // negatives read back as the two-byte form (second byte as left)
    };
    for (const Case& c : cases) {
        uint8_t e[2] = {0, 0};
        IntToEBV(c.value, e);
        EXPECT_EQ(e[0], c.b0) << c.value;
        EXPECT_EQ(e[1], c.b1) << c.value;
        EXPECT_EQ(EBVToInt(e), c.back) << c.value;
    }
}
