// The exported temperature converter is the encoder the logging commands use.
#include <gtest/gtest.h>

#include "UHF.h"

TEST(TempCodeExport, MatchesTheEncoder) {
    EXPECT_EQ(convert10BitValue(25.6f), 0x066);
    EXPECT_EQ(convert10BitValue(-0.1f), 0x3FF);
    EXPECT_EQ(convert10BitValue(-10.0f), 0x3D8);
}
