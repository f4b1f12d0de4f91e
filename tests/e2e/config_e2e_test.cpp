// Reader configuration end to end: the library's commands against the
// virtual reader over TCP: setting and reading back, and what a soft reset
// keeps.
#include <array>
#include <chrono>
#include <memory>
#include <thread>

#include "outcome.h"
#include "sim_link.h"

using namespace uhftest;
using namespace std::chrono_literals;

namespace {

// A: on antennas 1 and 2, with TID and USER; B: on antenna 1 only, no TID.
uhfsim::TagField field_ab() {
    return *uhfsim::TagField::from_json(R"({"tags":[
      {"epc":"E200 0001 0000 0000 0000 00A1","tid":"E280 1160 0000 0001 0000 00A1","user":"1234 5678",
       "rssi":{"1":-50.0,"2":-55.0}},
      {"epc":"E200 0002 0000 0000 0000 00B2","rssi":{"1":-60.0}}]})");
}

class ConfigE2E : public SimTcpTest {
protected:
    uhfsim::SimOptions options() override {
        uhfsim::SimOptions o;
        o.tags = field_ab();
        o.engine.rssi_jitter = 0;
        o.engine.read_rate = 200;
        return o;
    }
    void TearDown() override {
        UHF_FlafCrcOff();
        SimTcpTest::TearDown();
    }

    uhfsim::ReaderState reader_state() {
        return with_radio([](uhfsim::Radio& r) { return r.state; });
    }
};

using Get = std::function<Outcome()>;

// A getter filling N bytes.
template <size_t N = 1>
Get bytes(int (*get)(uint8_t*)) {
    return [get] { return filled<uint8_t, N>(get); };
}

Outcome gen2_fields() {
    return filled<uint8_t, 14>([](uint8_t* f) {
        return UHFGetGen2(f, f + 1, f + 2, f + 3, f + 4, f + 5, f + 6, f + 7, f + 8, f + 9, f + 10, f + 11, f + 12,
                          f + 13);
    });
}

}  // namespace

TEST_F(ConfigE2E, EverySettingReadsBackWhatWasSet) {
    uint8_t mask[2] = {0x00, 0x05};
    unsigned freqs[2] = {920125, 924875};  // region 3 is set by then
    uint8_t id[4] = {1, 2, 3, 4}, value[4] = {0xDE, 0xAD, 0xBE, 0xEF};
    uint8_t para[6] = {6, 5, 4, 3, 2, 1};
    auto antenna_power = [] {
        uint16_t n = 0;
        Outcome o = filled<uint8_t, 64>([&](uint8_t* b) { return UHFGetAntennaPower(b, &n); });
        o.out.resize(12);
        o.out.insert(o.out.begin(), n);
        return o;
    };
    auto hops = [] {
        Outcome o = filled<unsigned, 256>(UHFGetJumpFrequency);
        o.out.resize(3);
        return o;
    };
    auto param = [&] { return filled<uint8_t, 4>([&](uint8_t* v) { return UHF_Get_Param(2, id, v); }); };
    auto report_mode = [] { return filled<uint8_t, 3>([](uint8_t* m) { return UHFGetEPCTIDUSERMode(0, 0, m); }); };
    auto work_time_2 = [] { return filled<unsigned, 1>([](unsigned* t) { return UHFGetANTWorkTime(2, t); }); };
    // clang-format off
    const struct {
        const char* name;
        std::function<int()> set;
        Get get;
        Outcome expect;
    } settings[] = {
        {"power", [] { return UHFSetPower(0, 25); }, bytes(UHFGetPower), {0, {25}}},
        // antenna 1 from the row above
        {"antenna power", [] { return UHFSetAntennaPower(0, 2, 2650, 2000); }, antenna_power, {0, {12, 1, 25, 25, 2, 26, 20, 3, 30, 30, 4, 30, 30}}},
        {"antennas", [&] { return UHFSetANT(0, mask); }, bytes<2>(UHFGetANT), {0, {0x00, 0x05}}},
        {"antenna work time", [] { return UHFSetANTWorkTime(2, 0, 500); }, work_time_2, {0, {500}}},
        {"region", [] { return UHFSetRegion(0, 3); }, bytes(UHFGetRegion), {0, {3}}},
        {"hopping table", [&] { return UHFSetJumpFrequency(2, freqs); }, hops, {0, {2, 920125, 924875}}},
        {"RF link", [] { return UHFSetRFLink(0, 2); }, bytes(UHFGetRFLink), {0, {2}}},
        {"RF link preset 1", [] { return UHF_Set_RFLink(1); }, bytes(UHF_Get_RFLink), {0, {1}}},
        {"CW", [] { return UHFSetCW(1); }, bytes(UHFGetCW), {0, {1}}},
        {"parameter", [&] { return UHF_Set_Param(2, id, value); }, param, {0, {0xDE, 0xAD, 0xBE, 0xEF}}},
        {"Gen2", [] { return UHFSetGen2(5, 1, 0, 1, 5, 2, 15, 1, 2, 0, 2, 1, 0, 6); }, gen2_fields, {0, {5, 1, 0, 1, 5, 2, 15, 1, 2, 0, 2, 1, 0, 6}}},
        {"FastID", [] { return UHFSetFastID(1); }, bytes(UHFGetFastID), {0, {1}}},
        {"FastID only when changed", [] { return R2000_Set_FastID(1); }, bytes(UHFGetFastID), {0, {1}}},
        {"TagFocus", [] { return R2000_Set_TagFocus(1); }, bytes(UHFGetTagfocus), {0, {1}}},
        {"EPC+TID+USER mode", [] { return UHFSetEPCTIDUSERMode(0, 2, 4, 2); }, report_mode, {3, {2, 4, 2}}},
        {"EPC+TID mode", [] { return UHF_OPENMODE(); }, bytes(UHFGetEPCTIDMode), {0, {1}}},
        {"dual/single", [] { return UHFSetDualSingelMode(0, 1); }, bytes(UHFGetDualSingelMode), {0, {1}}},
        {"work mode", [] { return UHFSetWorkMode(2); }, bytes(UHFGetWorkMode), {0, {2}}},
        {"work mode parameters", [&] { return UHFSetWorkModePara(para); }, bytes<6>(UHFGetWorkModePara), {0, {6, 5, 4, 3, 2, 1}}},
        {"work time", [] { return UHFSetWorkTime(0, 1, 2, 3, 4); }, bytes<4>(UHFGetWorkTime), {4, {1, 2, 3, 4}}},
        {"protocol type", [] { return UHFSetProtocolType(2); }, bytes(UHFGetProtocolType), {0, {2}}},
    };
    // clang-format on
    for (const auto& s : settings) {
        SCOPED_TRACE(s.name);
        EXPECT_EQ(s.set(), 0);
        EXPECT_EQ(s.get(), s.expect);
    }
    // The protocol configuration has no getter: look inside the reader.
    EXPECT_EQ(Vexa_Protocol_Configuration(7), 0);
    EXPECT_EQ(reader_state().current.protocol_config, 7);
}
