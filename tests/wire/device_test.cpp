// Device status, identity and I/O commands against the scripted reader.
#include <string.h>

#include <string>

#include "command_rows.h"

using namespace uhftest;

namespace {

using Device = CommandTest;

constexpr uint8_t kUntouched = 0xEE;

Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

}  // namespace

TEST_F(Device, VersionFormats) {
    using Fn = int (*)(uint8_t*);
    struct Case {
        const char* name;
        Fn fn;
        uint8_t cmd;
        Bytes reply;
        int result;
        Bytes version;  // count byte and text; nothing after it may change
    } cases[] = {
        {"hardware one char per part", UHFGetHardwareVersion, 0x00, {0x01, 0x0C, 0x03}, 0, Bytes{6} + text("V1.<.3")},
        {"hardware ignores extra bytes", UHFGetHardwareVersion, 0x00, {0x01, 0x02, 0x03, 0x04}, 0,
         Bytes{6} + text("V1.2.3")},
        {"software counts its count byte", UHFGetSoftwareVersion, 0x02, {0x01, 0x0C, 0x03}, 0,
         Bytes{8} + text("V1.12.3")},
        {"software two digits everywhere", UHFGetSoftwareVersion, 0x02, {0x0A, 0x09, 0x63}, 0,
         Bytes{9} + text("V10.9.99")},
        {"software part over 99 keeps two characters", UHFGetSoftwareVersion, 0x02, {200, 1, 2}, 0,
         Bytes{8} + text("VD0.1.2")},
        {"reader version with an item", UHFGetReaderVersion, 0xC8, Bytes{0x02, 0x01, 0x05, 0x01, 0x03} + text("ABC"), 0,
         Bytes{10} + text("V2.1.5,ABC")},
        {"reader version wide parts", UHFGetReaderVersion, 0xC8, {255, 255, 255}, 0, Bytes{12} + text("V255.255.255")},
        {"reader version two items, second empty", UHFGetReaderVersion, 0xC8,
         Bytes{1, 2, 3, 0x01, 0x02} + text("xy") + Bytes{0x05, 0x00}, 0, Bytes{10} + text("V1.2.3,xy,")},
        {"item cut short by the reply", UHFGetReaderVersion, 0xC8, Bytes{1, 2, 3, 0x01, 0x09} + text("ab"), 0,
         Bytes{9} + text("V1.2.3,ab")},
        {"lone type byte at the end", UHFGetReaderVersion, 0xC8, {1, 2, 3, 0x01}, 0, Bytes{7} + text("V1.2.3,")},
        {"reader version under 3 bytes", UHFGetReaderVersion, 0xC8, {1, 2}, -1, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        uint8_t version[300];
        memset(version, kUntouched, sizeof version);
        EXPECT_EQ(exchange(answer(c.cmd, c.reply), [&] { return c.fn(version); }), c.result);
        EXPECT_EQ(sent_cmd, c.cmd);
        EXPECT_TRUE(sent_data.empty());
        Bytes want = c.version;
        want.resize(sizeof version, kUntouched);
        EXPECT_EQ(Bytes(version, version + sizeof version), want);
    }
}

TEST_F(Device, ReaderVersionTextStopsAt255Bytes) {
    // Items adding up to far more text than one count byte can say.
    Bytes reply = {1, 2, 3};
    for (int i = 0; i < 3; i++) reply = reply + Bytes{0x01, 200} + Bytes(200, uint8_t('a' + i));
    uint8_t version[300];
    memset(version, kUntouched, sizeof version);
    ASSERT_EQ(exchange(answer(0xC8, reply), [&] { return UHFGetReaderVersion(version); }), 0);
    EXPECT_EQ(version[0], 255);
    std::string shown(reinterpret_cast<char*>(version + 1), 255);
    EXPECT_EQ(shown.substr(0, 8), "V1.2.3,a");
    EXPECT_EQ(shown.substr(206, 3), "a,b");  // "V1.2.3," and 200 a's fill 0..206
    EXPECT_EQ(shown[254], 'b');
    EXPECT_EQ(version[256], kUntouched);
}

TEST_F(Device, VersionsWithoutReplyLeaveTheBufferAlone) {
    uint8_t version[16];
    memset(version, kUntouched, sizeof version);
    EXPECT_EQ(exchange({}, [&] { return UHFGetHardwareVersion(version); }), -1);
    EXPECT_EQ(Bytes(version, version + 16), Bytes(16, kUntouched));
}

TEST_F(Device, NullOutputsAreRefusedWithoutTraffic) {
    unsigned short len = 0;
    uint8_t buf[4];
    EXPECT_EQ(refused([] { return UHFGetHardwareVersion(nullptr); }), -1);
    EXPECT_EQ(refused([] { return UHFGetSoftwareVersion(nullptr); }), -1);
    EXPECT_EQ(refused([] { return UHFGetReaderVersion(nullptr); }), -1);
    EXPECT_EQ(refused([] { return UHFGetDeviceID(nullptr); }), -1);
    EXPECT_EQ(refused([] { return UHFGeTemperature(nullptr); }), -1);
    EXPECT_EQ(refused([] { return UHFGetTemperature(nullptr); }), -1);
    EXPECT_EQ(refused([] { return UHFGetTemperatureProtect(nullptr); }), -1);
    EXPECT_EQ(refused([] { return UHFGetTempVal(nullptr); }), -1);
    EXPECT_EQ(refused([] { return UHFVerifyVoltage(nullptr); }), -1);
    EXPECT_EQ(refused([] { return UHFGetBeep(nullptr); }), -1);
    EXPECT_EQ(refused([] { return UHFGetIOControl(nullptr); }), -1);
    EXPECT_EQ(refused([] { return UHFUploadUserParam(nullptr, 5); }), -1);
    EXPECT_EQ(refused([&] { return UHFDownloadUserParam(nullptr, &len); }), -1);
    EXPECT_EQ(refused([&] { return UHFDownloadUserParam(buf, nullptr); }), -1);
}

TEST_F(Device, DeviceId) {
    struct Case {
        Bytes reply;
        unsigned int id;
    } cases[] = {
        {{0x01, 0x02, 0x03, 0x04}, 0x01020304u},
        {{0x80, 0x00, 0x00, 0x01, 0x99}, 0x80000001u},
    };
    for (const Case& c : cases) {
        unsigned int id = 0;
        EXPECT_EQ(exchange(answer(0x04, c.reply), [&] { return UHFGetDeviceID(&id); }), 0);
        EXPECT_EQ(sent_cmd, 0x04);
        EXPECT_TRUE(sent_data.empty());
        EXPECT_EQ(id, c.id);
    }
}

TEST_F(Device, TemperatureSignedAndUnsigned) {
    struct Case {
        const char* name;
        Bytes reply;
        int result;
        int signed_deg;
        uint16_t unsigned_deg;
    } cases[] = {
        {"minus two degrees", {0x01, 0xFF, 0x38}, 0, -2, 653},
        {"31.50 degrees", {0x01, 0x0C, 0x4E}, 0, 31, 31},
        {"-0.99 truncates toward zero", {0x01, 0xFF, 0x9D}, 0, 0, 654},
        {"most negative reading", {0x01, 0x80, 0x00}, 0, -327, 327},
        {"refused status", {0x00, 0x0C, 0x4E}, -1, 0, 0},
        {"short reply", {0x01, 0x0C}, -1, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        int deg = 12345;
        EXPECT_EQ(exchange(answer(0x34, c.reply), [&] { return UHFGetTemperature(&deg); }), c.result);
        EXPECT_EQ(sent_cmd, 0x34);
        EXPECT_TRUE(sent_data.empty());
        EXPECT_EQ(deg, c.result == 0 ? c.signed_deg : 12345);

        uint16_t udeg = 12345;
        EXPECT_EQ(exchange(answer(0x34, c.reply), [&] { return UHFGeTemperature(&udeg); }), c.result);
        EXPECT_EQ(sent_cmd, 0x34);
        EXPECT_EQ(udeg, c.result == 0 ? c.unsigned_deg : 12345);
    }
}

TEST_F(Device, TemperatureProtectionUnderBothNames) {
    using Set = int (*)(unsigned char);
    using Get = int (*)(unsigned char*);
    struct Name {
        Set set;
        Get get;
    } names[] = {{UHFSetTemperatureProtect, UHFGetTemperatureProtect}, {UHFSetTempVal, UHFGetTempVal}};
    struct SetCase {
        uint8_t value;
        Bytes reply;
        int result;
    } sets[] = {{0x55, {0x01}, 0}, {0x01, {0x00}, -1}, {0x01, {}, -1}};
    struct GetCase {
        Bytes reply;
        int result;
        uint8_t value;
    } gets[] = {{{0x01, 0xFF, 0x00}, 0, 0xFF}, {{0x00, 0x05}, -1, 0}, {{0x01}, -1, 0}};
    for (const Name& n : names) {
        for (const SetCase& c : sets) {
            EXPECT_EQ(exchange(answer(0x38, c.reply), [&] { return n.set(c.value); }), c.result);
            EXPECT_EQ(sent_cmd, 0x38);
            EXPECT_EQ(sent_data, Bytes{c.value});
        }
        for (const GetCase& c : gets) {
            unsigned char v = 0xAB;
            EXPECT_EQ(exchange(answer(0x3A, c.reply), [&] { return n.get(&v); }), c.result);
            EXPECT_EQ(sent_cmd, 0x3A);
            EXPECT_TRUE(sent_data.empty());
            EXPECT_EQ(v, c.result == 0 ? c.value : 0xAB);
        }
    }
}

TEST_F(Device, SupplyVoltage) {
    struct Case {
        const char* name;
        Bytes reply;
        int result;
        int value;
    } cases[] = {
        {"3200", {0x01, 0x01, 0x0C, 0x80}, 0, 3200},
        {"signed value", {0x01, 0x01, 0xFF, 0x38}, 0, -200},
        {"longer reply", {0x01, 0x01, 0x00, 0x05, 0x77}, 0, 5},
        {"second byte not 01", {0x01, 0x00, 0x0C, 0x80}, -1, 0},
        {"status not 01", {0x00, 0x01, 0x0C, 0x80}, -1, 0},
        {"three bytes", {0x01, 0x01, 0x0C}, -1, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        int v = 777;
        EXPECT_EQ(exchange(answer(0x08, c.reply), [&] { return UHFVerifyVoltage(&v); }), c.result);
        EXPECT_EQ(sent_cmd, 0x08);
        EXPECT_EQ(sent_data, Bytes{0x01});
        EXPECT_EQ(v, c.result == 0 ? c.value : 777);
    }
}

TEST_F(Device, BeepAndOutputs) {
    uint8_t mode = 0xAB;
    unsigned char io[3] = {0xAB, 0xAB, 0xAB};
    check_rows(0xA1, {
        {"set beep", [] { return UHFSetBeep(3); }, {0x07, 0x03}, {0x01}, 0},
        {"set beep refused", [] { return UHFSetBeep(0); }, {0x07, 0x00}, {0x00}, -1},
        {"set beep answered with an echo", [] { return UHFSetBeep(1); }, {0x07, 0x01}, {0x07}, -1},
        {"get beep", [&] { return UHFGetBeep(&mode); }, {0x08}, {0x08, 0x02}, 0},
        {"get beep without echo", [&] { return UHFGetBeep(&mode); }, {0x08}, {0x01, 0x05}, -1},
        {"get beep short", [&] { return UHFGetBeep(&mode); }, {0x08}, {0x08}, -1},
        {"set outputs", [] { return UHFSetIOControl(1, 2, 1); }, {0x09, 0x01, 0x02, 0x01}, {0x01}, 0},
        {"set outputs refused", [] { return UHFSetIOControl(2, 1, 0); }, {0x09, 0x02, 0x01, 0x00}, {0x00}, -1},
        {"get outputs", [&] { return UHFGetIOControl(io); }, {0x0A}, {0x0A, 0x01, 0x00, 0x99}, 0},
        {"get outputs short", [&] { return UHFGetIOControl(io); }, {0x0A}, {0x0A, 0x07}, -1},
        {"get outputs wrong echo", [&] { return UHFGetIOControl(io); }, {0x0A}, {0x09, 0x07, 0x07}, -1},
    });
    // Only the successful gets wrote, and only what they own.
    EXPECT_EQ(mode, 0x02);
    EXPECT_EQ(Bytes(io, io + 3), (Bytes{0x01, 0x00, 0xAB}));
}

TEST_F(Device, UploadUserParam) {
    struct Case {
        const char* name;
        Bytes param;
        Bytes reply;
        int result;
    } cases[] = {
        {"two bytes", {0xAA, 0xBB}, {0x01, 0x00}, 0},
        {"largest block", Bytes(1023, 0x5C), {0x01, 0x00}, 0},
        {"second byte not 00", {0x01}, {0x01, 0x01}, -1},
        {"status only", {0x01}, {0x01}, -1},
        {"wrong status", {0x01}, {0x02, 0x00}, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto call = [&] { return UHFUploadUserParam(c.param.data(), static_cast<unsigned short>(c.param.size())); };
        EXPECT_EQ(exchange(answer(0xF0, c.reply), call), c.result);
        EXPECT_EQ(sent_cmd, 0xF0);
        EXPECT_EQ(sent_data, Bytes{0x01} + c.param);
    }
    Bytes too_long(1024, 0x11);
    EXPECT_EQ(refused([&] { return UHFUploadUserParam(too_long.data(), 1024); }), -1);
    EXPECT_EQ(refused([&] { return UHFUploadUserParam(too_long.data(), 0xFFFF); }), -1);
}

TEST_F(Device, DownloadUserParam) {
    struct Case {
        const char* name;
        Bytes reply;
        int result;
        Bytes param;
    } cases[] = {
        {"three bytes", {0x02, 0x00, 0x11, 0x22, 0x33}, 0, {0x11, 0x22, 0x33}},
        {"empty block", {0x02, 0x00}, 0, {}},
        {"largest block", Bytes{0x02, 0x00} + Bytes(1023, 0x6D), 0, Bytes(1023, 0x6D)},
        {"block longer than any upload", Bytes{0x02, 0x00} + Bytes(1024, 0x6D), -1, {}},
        {"second byte not 00", {0x02, 0x01, 0x11}, -1, {}},
        {"status 01", {0x01, 0x00, 0x11}, -1, {}},
        {"one byte", {0x02}, -1, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes param(1100, kUntouched);
        unsigned short len = 0xBEEF;
        EXPECT_EQ(exchange(answer(0xF0, c.reply), [&] { return UHFDownloadUserParam(param.data(), &len); }),
                  c.result);
        EXPECT_EQ(sent_cmd, 0xF0);
        EXPECT_EQ(sent_data, Bytes{0x02});
        EXPECT_EQ(len, c.result == 0 ? c.param.size() : 0xBEEF);
        Bytes want = c.param;
        want.resize(param.size(), kUntouched);
        EXPECT_EQ(param, want);
    }
}

TEST_F(Device, UserParamWaitsThreeSeconds) {
    // Lower bounds only: a slow machine can make the wait longer, never shorter.
    unsigned char block[4] = {1, 2, 3, 4};
    unsigned short len = 0;
    for (int down = 0; down < 2; down++) {
        auto t0 = std::chrono::steady_clock::now();
        int r = exchange({}, [&] { return down ? UHFDownloadUserParam(block, &len) : UHFUploadUserParam(block, 4); });
        double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        EXPECT_EQ(r, -1);
        EXPECT_GE(waited, 2.9) << (down ? "download" : "upload");
    }
}
