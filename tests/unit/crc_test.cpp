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
    uint8_t a[] = {0x00, 0x12, 0x34}, b[] = {0xEE, 0x12, 0x34}, one[] = {0x99};
    EXPECT_EQ(CalcCRC(a, 3), CalcCRC(b, 3));
    EXPECT_EQ(CalcCRC(one, 1), 0xFFFF);  // nothing after the skipped byte: the seed, not inverted
}
