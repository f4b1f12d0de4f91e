// Device, I/O, user-parameter and network settings through the library
// against the virtual reader: set then get, restart, factory settings.
#include <string.h>

#include <functional>
#include <string>

#include "sim_link.h"

using namespace uhftest;

namespace {

using DeviceE2E = SimTcpTest;

std::string version_text(const uint8_t* v, size_t len) { return std::string(reinterpret_cast<const char*>(v + 1), len); }

// Region through the raw exchange: the one setting here whose command carries
// a save flag.
int set_region(uint8_t region, bool save) {
    uint8_t req[2] = {uint8_t(save ? 1 : 0), region};
    uint8_t rbuf[2048];
    uint16_t rlen = 0;
    int r = Vexa_SendAndRecv(0x2C, req, 2, rbuf, &rlen);
    return r == 0 && rlen >= 1 && rbuf[0] == 0x01 ? 0 : -1;
}

int get_region() {
    uint8_t rbuf[2048];
    uint16_t rlen = 0;
    if (Vexa_SendAndRecv(0x2E, nullptr, 0, rbuf, &rlen) != 0 || rlen < 2 || rbuf[0] != 0x01) return -1;
    return rbuf[1];
}

struct Net {
    uint8_t ip[4], port[2], mask[4], gate[4];
    bool operator==(const Net& o) const { return memcmp(this, &o, sizeof *this) == 0; }
};

Net own_address() {
    Net n;
    memset(&n, 0xEE, sizeof n);
    EXPECT_EQ(UHFGetIp(n.ip, n.port, n.mask, n.gate), 0);
    return n;
}

Net dest_address() {
    Net n;
    memset(&n, 0, sizeof n);
    EXPECT_EQ(UHFGetDestIp(n.ip, n.port), 0);
    return n;
}

uint8_t beep() {
    uint8_t m = 0xEE;
    EXPECT_EQ(UHFGetBeep(&m), 0);
    return m;
}

uint8_t protect() {
    uint8_t f = 0xEE;
    EXPECT_EQ(UHFGetTemperatureProtect(&f), 0);
    return f;
}

Bytes outputs() {
    uint8_t io[2] = {0xEE, 0xEE};
    EXPECT_EQ(UHFGetIOControl(io), 0);
    return Bytes(io, io + 2);
}

Bytes user_params() {
    Bytes block(1023, 0);
    unsigned short len = 0;
    EXPECT_EQ(UHFDownloadUserParam(block.data(), &len), 0);
    block.resize(len);
    return block;
}

}  // namespace

TEST_F(DeviceE2E, IdentityAndStatus) {
    uint8_t v[256];
    ASSERT_EQ(UHFGetHardwareVersion(v), 0);
    EXPECT_EQ(version_text(v, v[0]), "V1.2.0");
    ASSERT_EQ(UHFGetSoftwareVersion(v), 0);
    EXPECT_EQ(v[0], 8);
    EXPECT_EQ(version_text(v, 7), "V2.10.4");
    ASSERT_EQ(UHFGetReaderVersion(v), 0);
    EXPECT_EQ(version_text(v, v[0]), "V3.1.7,UHFSIM-1");

    unsigned int id = 0;
    ASSERT_EQ(UHFGetDeviceID(&id), 0);
    EXPECT_EQ(id, 0x20240001u);

    with_reader([](uhfsim::VirtualReader& r) {
        r.state().temperature_centi = -1234;
        r.state().supply_voltage = 3215;
    });
    int t = 0;
    uint16_t ut = 0;
    ASSERT_EQ(UHFGetTemperature(&t), 0);
    EXPECT_EQ(t, -12);
    ASSERT_EQ(UHFGeTemperature(&ut), 0);
    EXPECT_EQ(ut, (65536 - 1234) / 100);
    int volts = 0;
    ASSERT_EQ(UHFVerifyVoltage(&volts), 0);
    EXPECT_EQ(volts, 3215);
}

TEST_F(DeviceE2E, SetThenGet) {
    struct Case {
        const char* name;
        std::function<int()> set;
        std::function<void()> check;
    };
    Net own{{10, 1, 2, 3}, {0x13, 0x88}, {255, 255, 0, 0}, {10, 1, 0, 1}};
    Net dest{{10, 9, 8, 7}, {0x23, 0x28}, {}, {}};
    Bytes block(1023);
    for (size_t i = 0; i < block.size(); i++) block[i] = uint8_t(i * 7 + 3);
    Case cases[] = {
        {"temperature protection", [] { return UHFSetTemperatureProtect(0x55); }, [] { EXPECT_EQ(protect(), 0x55); }},
        {"same setting, second name", [] { return UHFSetTempVal(0x46); },
         [] {
             uint8_t v = 0;
             EXPECT_EQ(UHFGetTempVal(&v), 0);
             EXPECT_EQ(v, 0x46);
         }},
        {"beeper", [] { return UHFSetBeep(0x00); }, [] { EXPECT_EQ(beep(), 0x00); }},
        {"output 1 high", [] { return UHFSetIOControl(1, 0, 1); }, [] { EXPECT_EQ(outputs(), (Bytes{1, 0})); }},
        {"output 2 high too", [] { return UHFSetIOControl(0, 1, 1); }, [] { EXPECT_EQ(outputs(), (Bytes{1, 1})); }},
        {"both low", [] { return UHFSetIOControl(1, 1, 0); }, [] { EXPECT_EQ(outputs(), (Bytes{0, 0})); }},
        {"user parameters, largest block", [&] { return UHFUploadUserParam(block.data(), 1023); },
         [&] { EXPECT_EQ(user_params(), block); }},
        {"user parameters, small block", [] { return UHFUploadUserParam((const unsigned char*)"\x01\x02\x03", 3); },
         [] { EXPECT_EQ(user_params(), (Bytes{1, 2, 3})); }},
        {"own address, long form", [&] { return UHFSetIp(own.ip, own.port, own.mask, own.gate); },
         [&] { EXPECT_EQ(own_address(), own); }},
        {"own address, short form keeps mask and gateway",
         [] {
             uint8_t ip[4] = {10, 1, 2, 99}, port[2] = {0x00, 0x50};
             return UHFSetIp(ip, port, nullptr, nullptr);
         },
         [&] {
             Net want = own;
             want.ip[3] = 99;
             want.port[0] = 0x00;
             want.port[1] = 0x50;
             EXPECT_EQ(own_address(), want);
         }},
        {"destination address", [&] { return UHFSetDestIp(dest.ip, dest.port); },
         [&] { EXPECT_EQ(dest_address(), dest); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_EQ(c.set(), 0);
        c.check();
    }
}

TEST_F(DeviceE2E, SoftResetKeepsSavedSettingsAndDefaultModeRestoresFactory) {
    Net own{{172, 16, 0, 5}, {0x1F, 0x90}, {255, 240, 0, 0}, {172, 16, 0, 1}};
    EXPECT_EQ(UHFSetIOControl(1, 1, 2), -1);  // a level is 0 or 1
    ASSERT_EQ(set_region(0x03, true), 0);
    ASSERT_EQ(set_region(0x02, false), 0);  // live only
    ASSERT_EQ(UHFSetBeep(0x02), 0);
    ASSERT_EQ(UHFSetTemperatureProtect(0x3C), 0);
    ASSERT_EQ(UHFSetIOControl(1, 1, 1), 0);
    ASSERT_EQ(UHFUploadUserParam((const unsigned char*)"keep", 4), 0);
    ASSERT_EQ(UHFSetIp(own.ip, own.port, own.mask, own.gate), 0);
    ASSERT_EQ(UHFSetDestIp(own.ip, own.port), 0);
    EXPECT_EQ(get_region(), 0x02);
    EXPECT_EQ(outputs(), (Bytes{1, 1}));

    ASSERT_EQ(UHFSetSoftReset(), 0);
    EXPECT_EQ(get_region(), 0x03) << "the unsaved region falls back to the saved one";
    EXPECT_EQ(outputs(), (Bytes{0, 0})) << "outputs are live levels";
    EXPECT_EQ(beep(), 0x02);
    EXPECT_EQ(protect(), 0x3C);
    EXPECT_EQ(user_params(), (Bytes{'k', 'e', 'e', 'p'}));
    EXPECT_EQ(own_address(), own);

    ASSERT_EQ(UHFSetIOControl(1, 0, 1), 0);
    ASSERT_EQ(UHFSetDefaultMode(), 0);
    // Factory settings are kept: they are still there after a restart.
    const uhfsim::Settings factory;
    for (int pass = 0; pass < 2; pass++) {
        SCOPED_TRACE(pass == 0 ? "after default mode" : "after the restart");
        EXPECT_EQ(get_region(), factory.region);
        EXPECT_EQ(beep(), factory.beep_mode);
        EXPECT_EQ(protect(), factory.temperature_protect);
        EXPECT_EQ(outputs(), (Bytes{0, 0}));
        EXPECT_TRUE(user_params().empty());
        Net now = own_address();
        EXPECT_EQ(Bytes(now.ip, now.ip + 4), Bytes(factory.own.ip.begin(), factory.own.ip.end()));
        EXPECT_EQ(Bytes(now.gate, now.gate + 4), Bytes(factory.own.gateway.begin(), factory.own.gateway.end()));
        Net dest = dest_address();
        EXPECT_EQ(Bytes(dest.port, dest.port + 2), Bytes(factory.destination.port.begin(), factory.destination.port.end()));
        if (pass == 0) {
            ASSERT_EQ(UHFSetSoftReset(), 0);
        }
    }
}
