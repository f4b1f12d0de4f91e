// The failure rules every getter and setter shares, checked once over all of
// them: a status that is not the accepted one, a reply with no data, another
// code answering, silence, and a null output that must send nothing. The
// family files test only what each call sends and how it decodes a good reply.
#include "command_rows.h"

using namespace uhftest;

namespace {

struct Command {
    const char* name;
    uint8_t code;
    std::function<int()> call;
    Bytes good;       // reply data the call accepts
    bool status;      // byte 0 is a status (or echoed sub-command) the call checks
    int ok = 0;       // the call's result for `good`
    bool any = false; // formats whatever reply came, even an empty one
};

uint8_t b[1100];
unsigned short us;
unsigned int ui;
uint16_t u16;
int i32;
uint8_t pwd[4] = {0, 0, 0, 0};
uint8_t mask[12] = {0xE2};
uint8_t lock[3] = {0x00, 0x0C, 0x08};

const std::vector<Command>& commands() {
    static const std::vector<Command> all = {
        {"set power", 0x10, [] { return UHFSetPower(0, 20); }, {0x01}, true},
        {"get power", 0x12, [] { return UHFGetPower(b); }, {0x01, 0x01, 0x0B, 0xB8, 0x0B, 0xB8}, true},
        {"set antenna power", 0x10, [] { return UHFSetAntennaPower(0, 1, 100, 100); }, {0x01}, true},
        {"get antenna power", 0x12, [] { return UHFGetAntennaPower(b, &u16); }, {0x01, 0x01, 0x0B, 0xB8, 0x0B, 0xB8}, true},
        {"set antennas", 0x28, [] { return UHFSetANT(0, b); }, {0x01}, true},
        {"get antennas", 0x2A, [] { return UHFGetANT(b); }, {0x00, 0x0F}, false},
        {"set antenna time", 0x4A, [] { return UHFSetANTWorkTime(1, 0, 100); }, {0x01}, true},
        {"get antenna time", 0x4C, [] { return UHFGetANTWorkTime(1, &ui); }, {0x01, 0x01, 0x01, 0x2C}, true},
        {"set region", 0x2C, [] { return UHFSetRegion(0, 1); }, {0x01}, true},
        {"get region", 0x2E, [] { return UHFGetRegion(b); }, {0x01, 0x03}, true},
        {"set gen2", 0x20, [] { return UHFSetGen2(0, 0, 0, 1, 4, 0, 15, 1, 2, 1, 1, 1, 0, 3); }, {0x01}, true},
        {"get gen2", 0x22, [] { return UHFGetGen2(b, b, b, b, b, b, b, b, b, b, b, b, b, b); }, {1, 2, 3, 4}, false},
        {"set FastID", 0x5C, [] { return UHFSetFastID(1); }, {0x01}, true},
        {"get FastID", 0x5E, [] { return UHFGetFastID(b); }, {0x01, 0x01}, true},
        {"set TagFocus", 0x60, [] { return UHFSetTagfocus(1); }, {0x01}, true},
        {"get TagFocus", 0x62, [] { return UHFGetTagfocus(b); }, {0x01, 0x00}, true},
        {"set EPC/TID/USER mode", 0x70, [] { return UHFSetEPCTIDUSERMode(0, 1, 0, 2); }, {0x01}, true},
        {"set EPC/TID mode", 0x70, [] { return UHFSetEPCTIDMode(0, 1); }, {0x01}, true},
        {"get EPC/TID mode", 0x72, [] { return UHFGetEPCTIDMode(b); }, {0x01, 0x01, 0x00, 0x02}, true},
        {"get EPC/TID/USER mode", 0x72, [] { return UHFGetEPCTIDUSERMode(0, 0, b); }, {0x01, 0x01, 0x00, 0x02}, true, 3},
        {"set filter", 0x6E, [] { return UHFSetFilter(0, 1, 2, 4, mask); }, {0x01}, true},
        {"set dual/single", 0x6A, [] { return UHFSetDualSingelMode(0, 1); }, {0x01}, true},
        {"get dual/single", 0x6C, [] { return UHFGetDualSingelMode(b); }, {0x01, 0x01}, true},
        {"set work mode", 0xA1, [] { return UHFSetWorkMode(1); }, {0x01}, true},
        {"get work mode", 0xA1, [] { return UHFGetWorkMode(b); }, {0x06, 0x01}, true},
        {"set work mode parameters", 0xA1, [] { return UHFSetWorkModePara(b); }, {0x01}, true},
        {"get work mode parameters", 0xA1, [] { return UHFGetWorkModePara(b); }, {0x0C, 1, 2, 3, 4, 5, 6}, true},
        {"set work time", 0x3C, [] { return UHFSetWorkTime(1, 2, 3, 4, 5); }, {0x01}, true},
        {"get work time", 0x3E, [] { return UHFGetWorkTime(b); }, {0x01, 1, 2, 3, 4}, true, 4},
        {"set protocol", 0x06, [] { return UHFSetProtocolType(2); }, {0x00, 0x01}, true},
        {"get protocol", 0x06, [] { return UHFGetProtocolType(b); }, {0x01, 0x02}, true},
        {"set hopping", 0x14, [] { unsigned f = 902750; return UHFSetJumpFrequency(1, &f); }, {0x01}, true},
        {"set one hop", 0x14, [] { return UHF_Frequency_Hopping_Setting(0x1234); }, {0x01}, true},
        {"get hopping", 0x16, [] { return UHFGetJumpFrequency(reinterpret_cast<unsigned*>(b)); }, {0x01, 0x0D, 0xC6, 0x5E}, false},
        {"set RF link", 0x52, [] { return UHFSetRFLink(0, 1); }, {0x01}, true},
        {"get RF link", 0x54, [] { return UHFGetRFLink(b); }, {0x01, 0x00, 0x02}, true},
        {"set CW", 0x24, [] { return UHFSetCW(1); }, {0x01}, true},
        {"get CW", 0x26, [] { return UHFGetCW(b); }, {0x01}, false},
        {"set parameter", 0x18, [] { return UHF_Set_Param(2, b, b); }, {0x01}, true},
        {"get parameter", 0x1A, [] { return UHF_Get_Param(2, b, b + 8); }, {0x01, 0, 0, 0, 0, 1, 2, 3, 4}, true},
        {"protocol configuration", 0xC0, [] { return Vexa_Protocol_Configuration(5); }, {0x01}, true},
        {"hardware version", 0x00, [] { return UHFGetHardwareVersion(b); }, {1, 2, 3}, false, 0, true},
        {"software version", 0x02, [] { return UHFGetSoftwareVersion(b); }, {1, 2, 3}, false, 0, true},
        {"reader version", 0xC8, [] { return UHFGetReaderVersion(b); }, {1, 2, 3}, false},
        {"device id", 0x04, [] { return UHFGetDeviceID(&ui); }, {1, 2, 3, 4}, false, 0, true},
        {"temperature", 0x34, [] { return UHFGetTemperature(&i32); }, {0x01, 0x0C, 0x4E}, true},
        {"temperature, unsigned", 0x34, [] { return UHFGeTemperature(&u16); }, {0x01, 0x0C, 0x4E}, true},
        {"set temperature guard", 0x38, [] { return UHFSetTemperatureProtect(1); }, {0x01}, true},
        {"get temperature guard", 0x3A, [] { return UHFGetTemperatureProtect(b); }, {0x01, 0x01}, true},
        {"supply voltage", 0x08, [] { return UHFVerifyVoltage(&i32); }, {0x01, 0x01, 0x0C, 0x80}, true},
        {"set beep", 0xA1, [] { return UHFSetBeep(1); }, {0x01}, true},
        {"get beep", 0xA1, [] { return UHFGetBeep(b); }, {0x08, 0x01}, true},
        {"set outputs", 0xA1, [] { return UHFSetIOControl(1, 1, 1); }, {0x01}, true},
        {"get outputs", 0xA1, [] { return UHFGetIOControl(b); }, {0x0A, 0x01, 0x00}, true},
        {"set address", 0xA1, [] { return UHFSetIp(b, b, nullptr, nullptr); }, {0x01}, true},
        {"get address", 0xA1, [] { return UHFGetIp(b, b + 4, b + 8, b + 12); }, {0x02, 192, 168, 1, 2, 0x0F, 0xA1}, true},
        {"set destination", 0xA1, [] { return UHFSetDestIp(b, b); }, {0x01}, true},
        {"get destination", 0xA1, [] { return UHFGetDestIp(b, b + 4); }, {0x04, 192, 168, 1, 2, 0x0F, 0xA1}, true},
        {"soft reset", 0x68, [] { return UHFSetSoftReset(); }, {0x01}, true},
        {"default mode", 0x74, [] { return UHFSetDefaultMode(); }, {0x01}, true},
        {"start update", 0xC2, [] { return UHFStartUpd(); }, {0x01}, true},
        {"read tag", 0x84, [] { return UHFReadData(pwd, 1, 0x20, 0, mask, 3, 0, 1, b); }, {0x01, 0x00, 0x00, 0x01, 1, 2}, true},
        {"write tag", 0x86, [] { return UHFWriteData(pwd, 1, 0x20, 0, mask, 3, 0, 1, b); }, {0x01}, true},
        {"kill", 0x8A, [] { return UHFKillTag(pwd, 1, 0, 0, mask); }, {0x01, 0x00}, true},
        {"lock", 0x88, [] { return UHFLockTag(pwd, 1, 0, 0, mask, lock); }, {0x01, 0x00}, true},
        {"deactivate", 0xB0, [] { return UHFDeactivate(1, pwd, 1, 0, 0, nullptr); }, {0x01}, true},
        {"dwell", 0xB2, [] { return UHFDwell(1, 2); }, {0x01}, true},
        {"write calibration", 0x7C, [] { return UHFWriteCalibrationData(mask, 1, b, b); }, {0x01, 0x00}, true},
    };
    return all;
}

using FailureRules = CommandTest;

}  // namespace

TEST_F(FailureRules, RefusedStatusAndEmptyReplyFailEveryCommand) {
    for (const Command& c : commands()) {
        SCOPED_TRACE(c.name);
        uhf::forget_late_replies(cur_index);
        ASSERT_EQ(exchange(answer(c.code, c.good), c.call), c.ok) << "the good reply must pass";
        EXPECT_EQ(sent_cmd, c.code);
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

// Another code answering and silence each cost a whole time limit: a getter
// and a setter stand for the rest, as both paths run through one exchange.
TEST_F(FailureRules, AnotherCodeAnsweringFails) {
    uint8_t region = 0xEE;
    EXPECT_EQ(exchange(answer(0x10, {0x01, 0x03}), [&] { return UHFGetRegion(&region); }), -1);
    EXPECT_EQ(region, 0xEE);
    EXPECT_EQ(exchange(answer(0x12, {0x01}), [] { return UHFSetPower(0, 20); }), -1);
}

TEST_F(FailureRules, SilenceFails) {
    uint8_t version[8];
    memset(version, 0xEE, sizeof version);
    EXPECT_EQ(exchange({}, [&] { return UHFGetHardwareVersion(version); }), -1);
    EXPECT_EQ(Bytes(version, version + 8), Bytes(8, 0xEE));
    EXPECT_EQ(exchange({}, [] { return UHFSetRegion(0, 1); }), -1);
}

// A null output, or a request that would not fit its buffer (or a frame),
// is refused before a byte leaves.
TEST_F(FailureRules, BadArgumentsSendNothing) {
    static uint8_t big[8192];
    const std::function<int()> calls[] = {
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
        [] { return UHFGetAntennaPower(nullptr, &u16); },
        [] { return UHFSetANT(1, nullptr); },
        [] { return UHFGetANT(nullptr); },
        [] { return UHFGetANTWorkTime(1, nullptr); },
        [] { return UHFGetRegion(nullptr); },
        [] { return UHFGetGen2(b, b, b, b, b, b, b, b, b, b, b, b, b, nullptr); },
        [] { return UHFGetTagfocus(nullptr); },
        [] { return UHFGetEPCTIDUSERMode(0, 0, nullptr); },
        [] { return UHFSetFilter(0, 1, 0, 2, nullptr); },
        [] { return UHFSetWorkModePara(nullptr); },
        [] { return UHFGetWorkTime(nullptr); },
        [] { return UHFSetJumpFrequency(3, nullptr); },
        [] { return UHFGetJumpFrequency(nullptr); },
        [] { return UHFGetRFLink(nullptr); },
        [] { return UHF_Get_RFLink(nullptr); },
        [] { return UHFGetCW(nullptr); },
        [] { return UHF_Set_Param(2, nullptr, b); },
        [] { return UHF_Get_Param(1, b, nullptr); },
        [] { return UHFGetHardwareVersion(nullptr); },
        [] { return UHFGetSoftwareVersion(nullptr); },
        [] { return UHFGetReaderVersion(nullptr); },
        [] { return UHFGetDeviceID(nullptr); },
        [] { return UHFGeTemperature(nullptr); },
        [] { return UHFGetTemperature(nullptr); },
        [] { return UHFGetTempVal(nullptr); },
        [] { return UHFVerifyVoltage(nullptr); },
        [] { return UHFGetBeep(nullptr); },
        [] { return UHFGetIOControl(nullptr); },
        [] { return UHFUploadUserParam(nullptr, 5); },
        [] { return UHFDownloadUserParam(nullptr, &us); },
        [] { return UHFSetIp(nullptr, b, b, b); },
        [] { return UHFGetDestIp(nullptr, b); },
    };
    refused([&] {
        for (size_t i = 0; i < std::size(calls); i++) EXPECT_EQ(calls[i](), -1) << "call " << i;
        return 0;
    });
}
