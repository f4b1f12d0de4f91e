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

TEST_F(SensorE2E, VoltageAndCalibrationWriteThenRead) {
    float v = 0;
    ASSERT_EQ(UHFReadTagVoltage(1, 0x20, mask_bits, sensor_epc.data(), &v), 0);
    EXPECT_NEAR(v, 2.8f, 0.001f);
    Bytes epc = kSensorEpc;
    epc.resize(16, 0);
    uint8_t power[2] = {0x0B, 0xB8};
    uint8_t data[96];
    ASSERT_EQ(UHFGetSensorCode(epc.data(), 1, power, data), 2);
    EXPECT_EQ(Bytes(data, data + 2), (Bytes{0x09, 0x47}));

    uint8_t cal[8] = {0x10, 0x20, 0x30, 0x40, 0x05, 0x60, 0x70, 0x80};
    ASSERT_EQ(UHFWriteCalibrationData(epc.data(), 1, power, cal), 0);
    ASSERT_EQ(UHFGetCalibrationData(epc.data(), 1, power, data), 8);
    EXPECT_EQ(Bytes(data, data + 8), Bytes(cal, cal + 8));
    ASSERT_EQ(UHFGetCalibrationDataEX(2, epc.data(), 1, power, data), 8);
    EXPECT_EQ(Bytes(data, data + 8), Bytes(cal, cal + 8));
    // Temperature code follows the calibration: (2375 + 4000) / 10 + 5.
    ASSERT_EQ(UHFGetTempertureCode(epc.data(), 1, power, data), 2);
    EXPECT_EQ(data[0] << 8 | data[1], 642);
    ASSERT_EQ(UHFGetOnChipRSSIAndTempCode(epc.data(), 1, power, data), 4);
    EXPECT_EQ(Bytes(data, data + 4), (Bytes{0x00, 25, 0x02, 0x82}));
    // A tag without a sensor, or an antenna that does not see the tag.
    Bytes other = kPlainEpc;
    other.resize(16, 0);
    EXPECT_EQ(UHFGetOnChipRSSI(other.data(), 1, power, data), -1);
    EXPECT_EQ(UHFGetOnChipRSSI(epc.data(), 2, power, data), -1);
}

TEST_F(PackagedE2E, ClockSetThenReadTicks) {
    uint8_t set[8] = {0x07, 0xE8, 0x05, 0x11, 0x0C, 0x00, 0x00, 0x00};  // 2024-05-17 12:00:00
    ASSERT_EQ(Config_SetRTC(set), 0);
    advance(90s);
    uint8_t rtc[8] = {};
    ASSERT_EQ(Config_ReadRTC(rtc), 0);
    // 12:01:30 or a second later, should the real clock have ticked meanwhile.
    EXPECT_EQ(Bytes(rtc, rtc + 5), (Bytes{0x07, 0xE8, 0x05, 0x11, 0x0C}));
    EXPECT_EQ(rtc[5], 0x01);
    EXPECT_GE(rtc[6], 30);
    EXPECT_LE(rtc[6], 31);
    EXPECT_EQ(rtc[7], 5);  // a Friday
    uint8_t bad[8] = {0x07, 0xE8, 0x02, 0x1E, 0, 0, 0, 0};  // 30 February
    EXPECT_EQ(Config_SetRTC(bad), -4);
}

TEST_F(PackagedE2E, WorkModeTableAndParameters) {
    uint8_t entries[21];
    for (int i = 0; i < 21; i++) entries[i] = uint8_t(0xC0 + i);
    ASSERT_EQ(Config_SetWorkMode(3, entries), 0);
    uint16_t len = 0;
    uint8_t buf[128];
    ASSERT_EQ(Config_GetPara(3, &len, buf), 0);
    ASSERT_EQ(len, 3 * 7 + 1);
    EXPECT_EQ(Bytes(buf, buf + len), Bytes{3} + Bytes(entries, entries + 21));

    // The reader refuses a table whose length was cut to 8 bits on the way.
    uint8_t many[37 * 7] = {};
    EXPECT_EQ(Config_SetWorkMode(37, many), -3);

    uint8_t value[4] = {0x00, 0x00, 0x13, 0x88};
    ASSERT_EQ(Config_SetPara(5, 4, value), 0);
    ASSERT_EQ(Config_GetPara(5, &len, buf), 0);
    EXPECT_EQ(Bytes(buf, buf + len), Bytes(value, value + 4));
    EXPECT_EQ(Config_SetPara(5, 3, value), -4);  // the type's size is 4
}

TEST_F(PackagedE2E, PartitionWriteThenRead) {
    uint8_t tid[8] = {0xE2, 0x80, 0x11, 0x05, 0x20, 0x00, 0x4A, 0xB1};
    uint8_t words[4] = {0x5A, 0x11, 0x22, 0x33};
    ASSERT_EQ(Request_WritePart(tid, 3, 0, 2, words), 0);
    EXPECT_EQ(Requset_ReadPart(0, 0, 1, 3, 0, 0), 0x5A);
    EXPECT_EQ(Requset_ReadPart(1, 1, 3, 3, 0, 0), 0x5A);  // the five-byte form
    EXPECT_EQ(Requset_ReadPart(0, 0, 1, 4, 0, 0), 0x00);  // an untouched partition
    uint8_t special[3] = {1, 2, 3};
    EXPECT_EQ(Request_WriteSpecialPart(3, special), 0);
    with_reader([&](uhfsim::VirtualReader& r) {
        EXPECT_EQ(r.state().packaged.partition_tid[3], (std::array<uint8_t, 8>{0xE2, 0x80, 0x11, 0x05, 0x20, 0x00, 0x4A, 0xB1}));
        EXPECT_EQ(r.state().packaged.special_partition, Bytes(special, special + 3));
    });
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

// AA len code status PC EPC [sensor word] RSSI antenna [CRC] 55.
void check_frame(const Bytes& f, bool crc, bool sensor) {
    ASSERT_GE(f.size(), 8u);
    EXPECT_EQ(f.front(), 0xAA);
    EXPECT_EQ(f.back(), 0x55);
    EXPECT_EQ(f[1] + 2u, f.size());
    EXPECT_EQ(f[2], (sensor ? 0x26 : 0x11) | (crc ? 0x80 : 0));
    EXPECT_EQ(f[3], 0x00);
    if (crc) {
        uint8_t c[2];
        CRC16Calculation(const_cast<uint8_t*>(f.data() + 1), uint16_t(f.size() - 4), c);
        EXPECT_EQ(c[0], f[f.size() - 3]);
        EXPECT_EQ(c[1], f[f.size() - 2]);
    }
}

}  // namespace

TEST_F(DetectE2E, CollectsEscapedTagFramesInBothCrcModes) {
    for (bool crc : {true, false}) {
        SCOPED_TRACE(crc);
        if (crc)
            UHF_FlagCrcOn();
        else
            UHF_FlafCrcOff();
        ASSERT_EQ(Creat_DectThread(), 0);
        stream(true, crc);
        auto seen = collect(6, 3);
        stream(false, crc);
        EXPECT_EQ(Stop_DectThread(), 0);
        ASSERT_EQ(seen.size(), 3u);
        ASSERT_TRUE(seen.count(kEscapeEpc));
        const Bytes& ff = seen[kEscapeEpc];
        // Unescaped in the stack: AA len code 00 PC(10 00) FF 55 AA 01 RSSI(FD 76) 01 [CRC] 55.
        EXPECT_EQ(Bytes(ff.begin() + 3, ff.begin() + 13),
                  (Bytes{0x00, 0x10, 0x00, 0xFF, 0x55, 0xAA, 0x01, 0xFD, 0x76, 0x01}));
        check_frame(ff, crc, false);
        check_frame(seen[kPlainEpc], crc, false);
        check_frame(seen[kSensorEpc], crc, true);
        Bytes& s = seen[kSensorEpc];
        EXPECT_EQ(Bytes(s.begin() + 12, s.begin() + 14), (Bytes{0x09, 0x47}));  // the sensor word
    }
}
