// The sensor tags' 10-bit temperature code in both directions.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "UHF.h"
#include "uhf/sensor.h"

using uhf::code10_to_temp;
using uhf::temp_to_code10;

TEST(TempCode, EncoderRoundsDownToTheQuarterDegree) {
    struct Case {
        float temp;
        uint16_t code;
    } cases[] = {
        {25.6f, 0x066},
        {0.24f, 0x000},
        {0.25f, 0x001},
        {-0.1f, 0x3FF},
        {-0.25f, 0x3FF},
        {-0.26f, 0x3FE},
        {-10.0f, 0x3D8},
        {127.75f, 0x1FF},
        {-128.0f, 0x200},
        {128.0f, 0x200},  // wraps into the 8-bit integer field
        {1.0e9f, 0x000},
        // no integer part to take
        {std::numeric_limits<float>::quiet_NaN(), 0},
        {std::numeric_limits<float>::infinity(), 0},
    };
    for (const Case& c : cases) EXPECT_EQ(temp_to_code10(c.temp), c.code) << c.temp;
}

TEST(TempCode, DecoderKeepsTheExtraMinusOneOnNegativeQuarters) {
    struct Case {
        uint16_t code;
        float temp;
    } cases[] = {
        {0x066, 25.5f},   {0x1FF, 127.75f}, {0x3FF, -1.25f},   {0x3FE, -1.5f},  {0x3FC, -1.0f},
        {0x3D9, -10.75f}, {0x200, -128.0f}, {0x201, -128.75f}, {0xFC66, 25.5f},  // bits above the tenth are ignored
    };
    for (const Case& c : cases) EXPECT_FLOAT_EQ(code10_to_temp(c.code), c.temp) << std::hex << c.code;
}

// The exported converter is the encoder the logging commands use.
TEST(TempCode, ExportedConverterIsTheEncoder) {
    for (float t : {25.6f, -0.1f, -10.0f}) EXPECT_EQ(convert10BitValue(t), temp_to_code10(t)) << t;
}
