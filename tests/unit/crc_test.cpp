// Checksums of the escaped frame family.
#include <gtest/gtest.h>

#include <cstring>

#include "UHF.h"

TEST(Crc16, Gen2CheckValueByteOrderAndEmptyInput) {
    uint8_t digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    uint8_t out[2] = {0, 0};
    CRC16Calculation(digits, sizeof digits, out);
    EXPECT_EQ(out[0] << 8 | out[1], 0xD64E);
    CRC16Calculation(nullptr, 0, out);  // the inverted initial value
    EXPECT_EQ(out[0] << 8 | out[1], 0x0000);
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
    EXPECT_EQ(reg, 0xE1F0);  // eight shifts of 0xFFFF, each with the top bit set
}

