// Sensor tags, the packaged protocol and the detection thread through the
// library against the virtual reader.
#include <chrono>
#include <map>
#include <thread>

#include "sim_link.h"

using namespace uhftest;
using namespace std::chrono_literals;

namespace {

const Bytes kSensorEpc = {0xE2, 0x00, 0x00, 0x17, 0x22, 0x0A};
const Bytes kPlainEpc = {0x30, 0x00, 0x00, 0x00, 0x00, 0x01};
const Bytes kEscapeEpc = {0xFF, 0x55, 0xAA, 0x01};  // every byte the escaped form escapes

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
    o.tags = uhfsim::TagField({make_tag(kPlainEpc, -600), sensor, make_tag(kEscapeEpc, -650)});
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

using PackagedE2E = SensorE2E;

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
    // Running, recording, within the limits, 11 readings.
    EXPECT_EQ(UHFCheckOpMode(1, 0x20, mask_bits, sensor_epc.data()), 0xC00B);

    ASSERT_EQ(UHFStopLogging(1, 0x20, mask_bits, sensor_epc.data(), 0), 0);
    advance(1h);
    ASSERT_EQ(UHFReadMultiTemp(1, 0x20, mask_bits, sensor_epc.data(), 9, 20, &total, &count, temps), 0);
    EXPECT_EQ(total, 11);
    ASSERT_EQ(count, 2);
    EXPECT_FLOAT_EQ(temps[0], 24.0f);
    EXPECT_FLOAT_EQ(temps[1], 24.25f);
    // The reader's own error code comes back: no run to stop.
    EXPECT_EQ(UHFStopLogging(1, 0x20, mask_bits, sensor_epc.data(), 0), 0x0C);
    // No sensor tag under the mask.
    Bytes plain = kPlainEpc;
    EXPECT_EQ(UHFStartLogging(1, 0x20, mask_bits, plain.data(), 0.0f, 60.0f, 0, 60), 0x0A);
}

// ---- the detection thread on a pseudo-terminal ---------------------------------

namespace {

class DetectE2E : public ::testing::Test {
protected:
    void SetUp() override {
        reset_links();
        server = std::make_unique<uhfsim::PtyServer>(sensor_options());
        ASSERT_TRUE(server->start()) << server->error();
        ASSERT_EQ(ComOpen(server->slave_path().c_str()), 0);
    }
    void TearDown() override {
        Stop_DectThread();
        UHF_FlagCrcOn();
        reset_links();
        server.reset();
    }
    void stream(bool on, bool crc) {
        server->for_each_reader([&](uhfsim::VirtualReader& r) {
            r.settings().escaped_reports = {on, crc};
            if (on)
                r.start_inventory();
            else
                r.stop_inventory();
        });
    }
    // Frames fetched until every tag was seen (at most 10 s), by EPC.
    std::map<Bytes, Bytes> collect(size_t epc_at, size_t tags) {
        std::map<Bytes, Bytes> seen;
        auto end = std::chrono::steady_clock::now() + 10s;
        while (seen.size() < tags && std::chrono::steady_clock::now() < end) {
            uint8_t buf[80];
            uint8_t len = 0;
            if (Fetch_UhfStack(buf, &len) != 0) {
                std::this_thread::sleep_for(5ms);
                continue;
            }
            Bytes f(buf, buf + len);
            EXPECT_GE(len, epc_at + 2);
            if (len < epc_at + 2) continue;
            size_t words = (f[epc_at - 2] >> 3);  // PC's length field
            seen[Bytes(f.begin() + long(epc_at), f.begin() + long(epc_at + 2 * words))] = f;
        }
        return seen;
    }
    std::unique_ptr<uhfsim::PtyServer> server;
};

}  // namespace

