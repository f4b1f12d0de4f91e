// Every getter and setter in one table: the request it sends, what it makes
// of a good reply, and the failure rules they all share, checked once over
// all of them: a status that is not the accepted one, a reply with no data,
// another code answering, silence, and arguments refused before any traffic.
// Tag commands, whose status bytes differ, are in tag_rules_test.cpp; the
// other family files keep the encodings and decodings with rules of their own.
#include "command_rows.h"

using namespace uhftest;

namespace {

uint8_t b[1100];
unsigned short us;
unsigned int ui;
uint16_t u16;
int i32;
uint8_t pwd[4] = {0x12, 0x34, 0x56, 0x78};
uint8_t mask[12] = {0xE2};
uint8_t ip[6] = {192, 168, 1, 200, 0x0F, 0xA1};

struct Command {
    const char* name;
    uint8_t code;
    std::function<int()> call;
    Bytes request;
    Bytes good;                   // reply data the call accepts
    std::function<bool()> check;  // what the good reply left in the outputs
    bool status = true;           // byte 0 is a status (or echoed sub-command) the call checks
    int ok = 0;                   // the call's result for `good`
    bool any = false;             // formats whatever reply came, even an empty one
};

// password, EPC bank from bit 32, 8 bits
const Bytes kIp = {192, 168, 1, 200, 0x0F, 0xA1};

const std::vector<Command>& commands() {
    // clang-format off
    static const std::vector<Command> all = {
        {"set power", 0x10, [] { return UHFSetPower(1, 20); }, {0x02, 0x01, 0x07, 0xD0, 0x07, 0xD0}, {0x01}, {}},
        {"get power", 0x12, [] { return UHFGetPower(b); }, {}, {0x01, 0x01, 0x0A, 0x27, 0x0B, 0xB8}, [] { return b[0] == 25; }},
        {"set antenna power", 0x10, [] { return UHFSetAntennaPower(0, 2, 2500, 2000); }, {0x00, 0x02, 0x09, 0xC4, 0x07, 0xD0}, {0x01}, {}},
        {"get antenna power", 0x12, [] { return UHFGetAntennaPower(b, &u16); }, {}, {0x01, 0x02, 0x0A, 0x27, 0x03, 0xE9},
         [] { return u16 == 3 && b[0] == 2 && b[1] == 25 && b[2] == 10; }},
        {"set antennas", 0x28, [] { uint8_t m[2] = {0x00, 0x0F}; return UHFSetANT(5, m); }, {0x05, 0x00, 0x0F}, {0x01}, {}},
        {"get antennas", 0x2A, [] { return UHFGetANT(b); }, {}, {0x80, 0x0F}, [] { return b[0] == 0x80 && b[1] == 0x0F; }, false},
        {"set antenna time", 0x4A, [] { return UHFSetANTWorkTime(3, 1, 0x12345); }, {0x13, 0x23, 0x45}, {0x01}, {}},
        {"get antenna time", 0x4C, [] { return UHFGetANTWorkTime(2, &ui); }, {0x02, 0x00}, {0x01, 0x02, 0x01, 0x2C}, [] { return ui == 300; }},
        {"set region", 0x2C, [] { return UHFSetRegion(5, 3); }, {0x01, 0x03}, {0x01}, {}},
        {"get region", 0x2E, [] { return UHFGetRegion(b); }, {}, {0x01, 0x03}, [] { return b[0] == 3; }},
        {"set gen2", 0x20, [] { return UHFSetGen2(0, 0, 0, 1, 4, 0, 15, 1, 2, 1, 1, 1, 0, 3); }, {0x01, 0x40, 0xFD, 0x53}, {0x01}, {}},
        {"get gen2", 0x22, [] { return UHFGetGen2(b, b + 1, b + 2, b + 3, b + 4, b + 5, b + 6, b + 7, b + 8, b + 9, b + 10, b + 11, b + 12, b + 13); },
         {}, {0xA5, 0x5A, 0x3C, 0x96}, [] { return Bytes(b, b + 14) == Bytes{5, 1, 0, 1, 5, 10, 3, 1, 2, 0, 2, 1, 0, 6}; }, false},
        {"set FastID", 0x5C, [] { return UHFSetFastID(1); }, {0x01, 0x00}, {0x01}, {}},
        {"get FastID", 0x5E, [] { return UHFGetFastID(b); }, {0x00, 0x00}, {0x01, 0x01}, [] { return b[0] == 1; }},
        {"set TagFocus", 0x60, [] { return UHFSetTagfocus(1); }, {0x01, 0x00}, {0x01}, {}},
        {"get TagFocus", 0x62, [] { return UHFGetTagfocus(b); }, {0x00, 0x00}, {0x01, 0x00}, [] { return b[0] == 0; }},
        {"set EPC/TID/USER mode", 0x70, [] { return UHFSetEPCTIDUSERMode(7, 2, 0x10, 4); }, {0x07, 0x02, 0x10, 0x04}, {0x01}, {}},
        {"set EPC/TID mode", 0x70, [] { return UHFSetEPCTIDMode(0x10, 9); }, {0x10, 0x09}, {0x01}, {}},
        {"open mode", 0x70, [] { return UHF_OPENMODE(); }, {0x00, 0x01}, {0x01}, {}},
        {"get EPC/TID mode", 0x72, [] { return UHFGetEPCTIDMode(b); }, {0x00, 0x00}, {0x01, 0x02, 0x10, 0x04}, [] { return b[0] == 2; }},
        {"get EPC/TID/USER mode", 0x72, [] { return UHFGetEPCTIDUSERMode(0xAB, 0xCD, b); }, {0xAB, 0xCD}, {0x01, 0x02, 0x10, 0x04},
         [] { return b[0] == 2 && b[1] == 0x10 && b[2] == 4; }, true, 3},
        {"set dual/single", 0x6A, [] { return UHFSetDualSingelMode(1, 2); }, {0x01, 0x02}, {0x01}, {}},
        {"get dual/single", 0x6C, [] { return UHFGetDualSingelMode(b); }, {}, {0x01, 0x02}, [] { return b[0] == 2; }},
        {"set work mode", 0xA1, [] { return UHFSetWorkMode(3); }, {0x05, 0x03}, {0x01}, {}},
        {"get work mode", 0xA1, [] { return UHFGetWorkMode(b); }, {0x06}, {0x06, 0x03}, [] { return b[0] == 3; }},
        {"set work mode parameters", 0xA1, [] { uint8_t p[6] = {1, 2, 3, 4, 5, 6}; return UHFSetWorkModePara(p); }, {0x0B, 1, 2, 3, 4, 5, 6}, {0x01}, {}},
        {"get work mode parameters", 0xA1, [] { return UHFGetWorkModePara(b); }, {0x0C}, {0x0C, 9, 8, 7, 6, 5, 4},
         [] { return Bytes(b, b + 6) == Bytes{9, 8, 7, 6, 5, 4}; }},
        {"set work time", 0x3C, [] { return UHFSetWorkTime(1, 2, 3, 4, 5); }, {1, 2, 3, 4, 5}, {0x01}, {}},
        {"get work time", 0x3E, [] { return UHFGetWorkTime(b); }, {}, {0x01, 0x0A, 0x0B, 0x0C, 0x0D},
         [] { return Bytes(b, b + 4) == Bytes{0x0A, 0x0B, 0x0C, 0x0D}; }, true, 4},
        {"set protocol", 0x06, [] { return UHFSetProtocolType(0x102); }, {0x00, 0x02}, {0x00, 0x01}, {}},
        {"get protocol", 0x06, [] { return UHFGetProtocolType(b); }, {0x01}, {0x01, 0x05}, [] { return b[0] == 5; }},
        {"set one hop", 0x14, [] { return UHF_Frequency_Hopping_Setting(0x1234); }, {0x01, 0x00, 0x12, 0x34}, {0x01}, {}},
        {"set RF link", 0x52, [] { return UHFSetRFLink(7, 9); }, {0x00, 0x07, 0x09}, {0x01}, {}},
        {"get RF link", 0x54, [] { return UHFGetRFLink(b); }, {0x00, 0x00}, {0x01, 0x00, 0x02}, [] { return b[0] == 2; }},
        {"set CW", 0x24, [] { return UHFSetCW(1); }, {0x01}, {0x01}, {}},
        {"get CW", 0x26, [] { return UHFGetCW(b); }, {}, {0x01}, [] { return b[0] == 1; }, false},
        {"set parameter", 0x18, [] { uint8_t id[4] = {1, 2, 3, 4}, v[4] = {0xAA, 0xBB, 0xCC, 0xDD}; return UHF_Set_Param(2, id, v); },
         {0x02, 1, 2, 3, 4, 0xAA, 0xBB, 0xCC, 0xDD}, {0x01}, {}},
        {"get parameter skips the echoed id", 0x1A, [] { uint8_t id[4] = {0x10, 0x20, 0x30, 0x40}; return UHF_Get_Param(2, id, b); },
         {0x02, 0x10, 0x20, 0x30, 0x40}, {0x01, 0x10, 0x20, 0x30, 0x40, 0x11, 0x22, 0x33, 0x44},
         [] { return Bytes(b, b + 4) == Bytes{0x11, 0x22, 0x33, 0x44}; }},
        {"protocol configuration", 0xC0, [] { return Vexa_Protocol_Configuration(5); }, {0x05, 0x00}, {0x01}, {}},
        {"device id", 0x04, [] { return UHFGetDeviceID(&ui); }, {}, {0x80, 0x00, 0x00, 0x01, 0x99}, [] { return ui == 0x80000001u; }, false, 0, true},
        {"temperature", 0x34, [] { return UHFGetTemperature(&i32); }, {}, {0x01, 0xFF, 0x9D}, [] { return i32 == 0; }},  // -0.99 truncates
        {"temperature, unsigned", 0x34, [] { return UHFGeTemperature(&u16); }, {}, {0x01, 0xFF, 0x38}, [] { return u16 == 653; }},
        {"set temperature guard", 0x38, [] { return UHFSetTemperatureProtect(0x55); }, {0x55}, {0x01}, {}},
        {"get temperature guard", 0x3A, [] { return UHFGetTempVal(b); }, {}, {0x01, 0xFF, 0x00}, [] { return b[0] == 0xFF; }},
        {"supply voltage", 0x08, [] { return UHFVerifyVoltage(&i32); }, {0x01}, {0x01, 0x01, 0xFF, 0x38}, [] { return i32 == -200; }},
        {"set beep", 0xA1, [] { return UHFSetBeep(3); }, {0x07, 0x03}, {0x01}, {}},
        {"get beep", 0xA1, [] { return UHFGetBeep(b); }, {0x08}, {0x08, 0x02}, [] { return b[0] == 2; }},
        {"set outputs", 0xA1, [] { return UHFSetIOControl(1, 2, 1); }, {0x09, 0x01, 0x02, 0x01}, {0x01}, {}},
        {"get outputs", 0xA1, [] { b[2] = 0xAB; return UHFGetIOControl(b); }, {0x0A}, {0x0A, 0x01, 0x00, 0x99},
         [] { return b[0] == 1 && b[1] == 0 && b[2] == 0xAB; }},
        {"set address, long form", 0xA1, [] { return UHFSetIp(ip, ip + 4, mask, mask); }, Bytes{0x01} + kIp + Bytes{0xE2, 0, 0, 0, 0xE2, 0, 0, 0}, {0x01}, {}},
        {"set address without a mask", 0xA1, [] { return UHFSetIp(ip, ip + 4, nullptr, mask); }, Bytes{0x01} + kIp, {0x01}, {}},
        {"get address", 0xA1, [] { return UHFGetIp(b, b + 4, b + 6, b + 10); }, {0x02}, Bytes{0x02} + kIp + Bytes{255, 0, 0, 0, 10, 0, 0, 1},
         [] { return Bytes(b, b + 14) == kIp + Bytes{255, 0, 0, 0, 10, 0, 0, 1}; }},
        {"set destination", 0xA1, [] { return UHFSetDestIp(ip, ip + 4); }, Bytes{0x03} + kIp, {0x01}, {}},
        {"get destination", 0xA1, [] { return UHFGetDestIp(b, b + 4); }, {0x04}, Bytes{0x04} + kIp, [] { return Bytes(b, b + 6) == kIp; }},
        {"soft reset", 0x68, [] { return UHFSetSoftReset(); }, {}, {0x01}, {}},
        {"default mode", 0x74, [] { return UHFSetDefaultMode(); }, {}, {0x01}, {}},
        {"start update", 0xC2, [] { return UHFStartUpd(); }, {}, {0x01}, {}},
        {"deactivate", 0xB0, [] { return UHFDeactivate(1, pwd, 1, 0, 0, nullptr); }, {0x00, 0x01, 0x12, 0x34, 0x56, 0x78, 0x01, 0, 0, 0, 0}, {0x01}, {}},
        {"dwell", 0xB2, [] { return UHFDwell(0x01020304, 0xA0B0C0D0); }, {1, 2, 3, 4, 0xA0, 0xB0, 0xC0, 0xD0}, {0x01}, {}},
    };
    // clang-format on
    return all;
}

using Commands = CommandTest;

}  // namespace

TEST_F(Commands, EveryCommandsRequestDecodingAndRefusals) {
    for (const Command& c : commands()) {
        SCOPED_TRACE(c.name);
        uhf::forget_late_replies(cur_index);
        memset(b, 0xEE, sizeof b);
        ASSERT_EQ(exchange(answer(c.code, c.good), c.call), c.ok) << "the good reply must pass";
        EXPECT_EQ(sent_cmd, c.code);
        EXPECT_EQ(sent_data, c.request);
        if (c.check) {
            EXPECT_TRUE(c.check()) << "decoded outputs";
        }
        if (c.status) {
            Bytes refused = c.good;
            refused[0] = 0xFE;
            EXPECT_NE(exchange(answer(c.code, refused), c.call), c.ok) << "status 0xFE";
        }
        if (!c.any) {
            EXPECT_NE(exchange(answer(c.code, {}), c.call), c.ok) << "no data";
        }
    }
}

// Another code answering and silence each cost a whole time limit: one call
// stands for the rest, as every command runs through the one exchange.
TEST_F(Commands, AnotherCodeAnsweringFails) {
    uint8_t region = 0xEE;
    EXPECT_EQ(exchange(answer(0x10, {0x01, 0x03}), [&] { return UHFGetRegion(&region); }), -1);
    EXPECT_EQ(region, 0xEE);
}

TEST_F(Commands, SilenceFails) {
    uint8_t version[8];
    memset(version, 0xEE, sizeof version);
    EXPECT_EQ(exchange({}, [&] { return UHFGetHardwareVersion(version); }), -1);
    EXPECT_EQ(Bytes(version, version + 8), Bytes(8, 0xEE));
}

// A null output, an argument out of range, or a request that would not fit
// its buffer (or a frame) is refused before a byte leaves.
TEST_F(Commands, BadArgumentsSendNothing) {
    static uint8_t big[8192];
    // clang-format off
    const std::function<int()> calls[] = {
        [] { return UHFSetPower(1, 0); },
        [] { return UHFSetPower(1, 31); },
        [] { return UHFSetEPCTIDUSERMode(0, 3, 0, 0); },
        [] { return UHF_Set_RFLink(4); },
        [] { unsigned f[85] = {}; return UHFSetJumpFrequency(85, f); },
        [] { return UHFSetFilter(0, 3, 0, 95, big); },
        [] { return UHFSetFilter(0, 3, 0, 8192, big); },
        [] { return UHFUploadUserParam(big, 1024); },
        [] { return UHFSetQT(pwd, 1, 0, 96 * 8, big, 0); },                    // 106 of 100 bytes
        [] { return UHFWriteData(pwd, 1, 0x20, 96, mask, 3, 0, 38, big); },     // 102 of 100
        [] { return UHF_WriteQTData_Ex(pwd, 1, 0, 0, mask, 3, 0, 1013, big); }, // over a frame
        [] { return UHFBlockWriteData(pwd, 1, 0x20, 0, mask, 3, 0, 1014, big); },
        [] { return UHFStartLogging(1, 0, 0xFFFF, big, 0, 1, 0, 0); },
        [] { return UHFDeactivate(1, pwd, 1, 0, 720, big); },
        [] { return Config_SetPara(1, 62, big); },
        [] { return Request_WritePart(big, 1, 0, 27, big); },
        [] { return Trans_Psam(1, 512, big); },
        [] { return Trans_Psam(3, 1, big); },
        [] { return UHFGetPower(nullptr); },
        [] { return UHFGetAntennaPower(b, nullptr); },
        [] { return UHFSetANT(1, nullptr); },
        [] { return UHFGetANTWorkTime(1, nullptr); },
        [] { return UHFGetGen2(b, b, b, b, b, b, b, b, b, b, b, b, b, nullptr); },
        [] { return UHFGetEPCTIDUSERMode(0, 0, nullptr); },
        [] { return UHFSetFilter(0, 1, 0, 2, nullptr); },
        [] { return UHFSetWorkModePara(nullptr); },
        [] { return UHFGetWorkTime(nullptr); },
        [] { return UHFSetJumpFrequency(3, nullptr); },
        [] { return UHFGetJumpFrequency(nullptr); },
        [] { return UHF_Get_RFLink(nullptr); },
        [] { return UHF_Set_Param(2, nullptr, b); },
        [] { return UHF_Get_Param(1, b, nullptr); },
        [] { return UHFGetHardwareVersion(nullptr); },
        [] { return UHFGetReaderVersion(nullptr); },
        [] { return UHFGetDeviceID(nullptr); },
        [] { return UHFGeTemperature(nullptr); },
        [] { return UHFVerifyVoltage(nullptr); },
        [] { return UHFGetIOControl(nullptr); },
        [] { return UHFDownloadUserParam(nullptr, &us); },
        [] { return UHFSetIp(nullptr, b, b, b); },
        [] { return UHFGetDestIp(nullptr, b); },
        [] { return UHFSetIp(b, nullptr, b, b); },
        [] { return UHFSetDestIp(b, nullptr); },
        [] { return UHFUpdating(nullptr); },
    };
    // clang-format on
    refused([&] {
        for (size_t i = 0; i < std::size(calls); i++) EXPECT_EQ(calls[i](), -1) << "call " << i;
        return 0;
    });
}
