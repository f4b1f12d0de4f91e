// A sensor tag's logging run through the library against the virtual reader.
#include <chrono>

#include "sim_link.h"

using namespace uhftest;
using namespace std::chrono_literals;

namespace {

const Bytes kSensorEpc = {0xE2, 0x00, 0x00, 0x17, 0x22, 0x0A};
const Bytes kPlainEpc = {0x30, 0x00, 0x00, 0x00, 0x00, 0x01};

uhfsim::Tag make_tag(const Bytes& epc, int16_t rssi) {
    uhfsim::Tag t;
    t.set_epc(epc);
    t.rssi[0] = rssi;
    return t;
}

uhfsim::SimOptions sensor_options() {
    uhfsim::SimOptions o;
    uhfsim::Tag sensor = make_tag(kSensorEpc, -500);
    sensor.sensor = uhfsim::TempSensor{};
    sensor.sensor->centi_celsius = 2375;
    sensor.sensor->code = 0x0947;
    sensor.sensor->battery_mv = 2800;
    o.tags = uhfsim::TagField({make_tag(kPlainEpc, -600), sensor});
    o.engine.read_rate = 20;
    o.engine.rssi_jitter = 0;
    return o;
}

class SensorE2E : public SimTcpTest {
protected:
    uhfsim::SimOptions options() override { return sensor_options(); }
    void advance(std::chrono::nanoseconds d) {
        with_reader([d](uhfsim::VirtualReader& r) { r.advance(d); });
    }
    Bytes sensor_epc = kSensorEpc;
    // Mask over the EPC of the sensor tag: bank 1 from bit 0x20.
    unsigned short mask_bits = static_cast<unsigned short>(kSensorEpc.size() * 8);
};

}  // namespace

TEST_F(SensorE2E, LoggingRunReadBackAsTemperatures) {
    ASSERT_EQ(UHFStartLogging(1, 0x20, mask_bits, sensor_epc.data(), 0.0f, 60.0f, 0, 60), 0);
    advance(10min);  // readings at 0, 60, ... 600 s

    unsigned short total = 0;
    unsigned char count = 0;
    float temps[255];
    ASSERT_EQ(UHFReadMultiTemp(1, 0x20, mask_bits, sensor_epc.data(), 0, 20, &total, &count, temps), 0);
    EXPECT_EQ(total, 11);
    ASSERT_EQ(count, 11);
    for (int k = 0; k < 11; k++) EXPECT_FLOAT_EQ(temps[k], 23.75f + 0.25f * float(k % 4)) << k;
    EXPECT_EQ(UHFStopLogging(1, 0x20, mask_bits, sensor_epc.data(), 0), 0);
    // No sensor tag under the mask.
    Bytes plain = kPlainEpc;
    EXPECT_EQ(UHFStartLogging(1, 0x20, mask_bits, plain.data(), 0.0f, 60.0f, 0, 60), 0x0A);
}
