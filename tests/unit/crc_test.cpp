// Checksums of the escaped frame family.
#include <gtest/gtest.h>

#include <cstring>

#include "UHF.h"

TEST(Crc16, Gen2CheckValueAndByteOrder) {
    uint8_t digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    uint8_t out[2] = {0, 0};
    CRC16Calculation(digits, sizeof digits, out);
    EXPECT_EQ(out[0], 0xD6);
    EXPECT_EQ(out[1], 0x4E);
}

TEST(Crc16, EmptyInputIsInvertedInitialValue) {
    uint8_t out[2] = {1, 1};
    CRC16Calculation(nullptr, 0, out);
    EXPECT_EQ(out[0], 0x00);
    EXPECT_EQ(out[1], 0x00);
}

TEST(CalcCrc, SkipsFirstByteAndIsNotInverted) {
    // The first byte never matters; one step over 0x00 from 0xFFFF shifts
    // eight times with the top bit set each time.
    uint8_t a[] = {0x00, 0x12, 0x34};
    uint8_t b[] = {0xEE, 0x12, 0x34};
    EXPECT_EQ(CalcCRC(a, 3), CalcCRC(b, 3));
    uint8_t one[] = {0x99};
    EXPECT_EQ(CalcCRC(one, 1), 0xFFFF);

    uint16_t reg = 0xFFFF;
    CRC_calcCrc8(&reg, 0x1021, 0x00);
    // Reference computed bit by bit: register fed with data bits at bit 0.
    uint16_t ref = 0xFFFF;
    for (int i = 0; i < 8; i++) {
        bool top = ref & 0x8000;
        ref = static_cast<uint16_t>(ref << 1);
        if (top) ref ^= 0x1021;
    }
    EXPECT_EQ(reg, ref);
}

TEST(CrcFlag, StartsOnAndToggles) {
    EXPECT_EQ(g_uflagCrc, 1);
    UHF_FlafCrcOff();
    EXPECT_EQ(g_uflagCrc, 0);
    UHF_FlagCrcOn();
    EXPECT_EQ(g_uflagCrc, 1);
}
