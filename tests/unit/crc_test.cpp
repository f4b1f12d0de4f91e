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
