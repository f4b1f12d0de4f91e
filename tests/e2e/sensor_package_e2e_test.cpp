// A sensor tag's logging run through the library against the virtual reader.
#include <chrono>

#include "sim_link.h"

using namespace uhftest;
using namespace std::chrono_literals;

namespace {

Bytes kSensorEpc = {0xE2, 0x00, 0x00, 0x17, 0x22, 0x0A};
Bytes kPlainEpc = {0x30, 0x00, 0x00, 0x00, 0x00, 0x01};

class SensorE2E : public SimTcpTest {
protected:
    uhfsim::SimOptions options() override {
        uhfsim::SimOptions o;
        o.tags = *uhfsim::TagField::from_json(
            R"({"tags":[{"epc":"3000 0000 0001"},{"epc":"E200 0017 220A","sensor":{"temperature":23.75}}]})");
        return o;
    }
    void advance(std::chrono::nanoseconds d) {
        with_radio([d](uhfsim::Radio& r) { r.advance(d); });
    }
    // Mask over the EPC of the sensor tag: bank 1 from bit 0x20.
    unsigned short mask_bits = static_cast<unsigned short>(kSensorEpc.size() * 8);
};

}  // namespace

TEST_F(SensorE2E, LoggingRunReadBackAsTemperatures) {
    ASSERT_EQ(UHFStartLogging(1, 0x20, mask_bits, kSensorEpc.data(), 0.0f, 60.0f, 0, 60), 0);
    advance(10min);  // readings at 0, 60, ... 600 s

    unsigned short total = 0;
    unsigned char count = 0;
    float temps[255];
    ASSERT_EQ(UHFReadMultiTemp(1, 0x20, mask_bits, kSensorEpc.data(), 0, 20, &total, &count, temps), 0);
    EXPECT_EQ(total, 11);
    ASSERT_EQ(count, 11);
    for (int k = 0; k < 11; k++) EXPECT_FLOAT_EQ(temps[k], 23.75f + 0.25f * float(k % 4)) << k;
    EXPECT_EQ(UHFStopLogging(1, 0x20, mask_bits, kSensorEpc.data(), 0), 0);
    // No sensor tag under the mask.
    EXPECT_EQ(UHFStartLogging(1, 0x20, mask_bits, kPlainEpc.data(), 0.0f, 60.0f, 0, 60), 0x0A);
}
