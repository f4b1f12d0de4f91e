// The reader-description family: the answers decode into what the reader's
// facts and configuration say, a SET_READER_CONFIG comes back in the next
// GET_READER_CONFIG, and what the reader cannot honour is refused naming the
// parameter and field at fault.
#include <gtest/gtest.h>

#include <vector>

#include "llrp_caps.h"
#include "llrp_test_support.h"

namespace uhfd::llrp {
namespace {

ReaderFacts facts() {
    ReaderFacts f;
    f.region = "etsi";
    f.power_min_dbm = 5, f.power_max_dbm = 10, f.power_dbm = 8;
    return f;
}

// The parameters of a sequence: LLRPStatus first in a response's.
std::vector<Param> params_of(std::string_view bytes) {
    std::vector<Param> out;
    Params ps(bytes);
    for (Param p; ps.next(p);) out.push_back(p);
    EXPECT_TRUE(ps.ok());
    return out;
}

uint16_t status_of(std::string_view message) { return Reader(params_of(message.substr(kHeaderSize))[0].body).u16(); }

TEST(LlrpCaps, CapabilitiesCarryTheReadersFacts) {
    std::string out;
    capabilities_response(out, 7, std::string(1, '\3'), facts());
    Reader reg(params_of(std::string_view(out).substr(kHeaderSize))[1].body);
    EXPECT_EQ(reg.u16(), 0);  // ETSI: no single country
    EXPECT_EQ(reg.u16(), 2);  // ETSI 302-208
    std::vector<int> table;   // index, then hundredths of dBm
    std::vector<uint16_t> others;
    for (const Param& p : params_of(params_of(reg.rest())[0].body)) {
        Reader e(p.body);
        if (p.type != param::TransmitPowerLevelTableEntry) others.push_back(p.type);
        if (p.type == param::TransmitPowerLevelTableEntry) table.push_back(e.u16()), table.push_back(e.u16());
    }
    EXPECT_EQ(table, (std::vector<int>{1, 500, 2, 600, 3, 700, 4, 800, 5, 900, 6, 1000}));
    EXPECT_EQ(others, (std::vector<uint16_t>{param::FrequencyInformation, param::C1G2UHFRFModeTable}));
}

TEST(LlrpCaps, AnswersWhatIsAsked) {
    // A GET_READER_CAPABILITIES body (RequestedData) or a GET_READER_CONFIG one (AntennaID,
    // RequestedData, GPIPortNum, GPOPortNum) -> the status, how many parameters follow it, the first.
    const std::tuple<const char*, uint16_t, size_t, uint16_t> cases[] = {
        {"00", M_Success, 4, param::GeneralDeviceCapabilities},
        {"04", M_Success, 1, param::C1G2LLRPCapabilities},
        {"05", M_FieldError, 0, 0},
        {"0000 00 0000 0000", M_Success, 1 + 4 + 4 + 6, param::Identification},
        {"0003 03 0000 0000", M_Success, 1, param::AntennaConfiguration},
        {"0003 08 0000 0000", M_Success, 1, param::KeepaliveSpec},  // the antenna is not looked at
        {"0005 00 0000 0000", M_FieldError, 0, 0},                  // no such antenna
        {"0000 0C 0000 0000", M_FieldError, 0, 0},                  // no such RequestedData
        {"0000 09 0001 0000", M_FieldError, 0, 0},                  // no GPI port 1
        {"0000 00 0000", M_FieldError, 0, 0},
        {"0000 00 0000 0000 03FF 0008 00000001", M_ParameterError, 0, 0},  // custom: unsupported
    };
    for (const auto& [body, status, count, first] : cases) {
        std::string out, b = hex(body);
        if (b.size() == 1) capabilities_response(out, 1, b, facts());
        if (b.size() > 1) config_response(out, 1, b, facts(), factory_config(facts()));
        auto ps = params_of(std::string_view(out).substr(kHeaderSize));
        EXPECT_EQ(status_of(out), status) << body;
        ASSERT_EQ(ps.size(), count + 1) << body;
        EXPECT_EQ(count ? ps[1].type : 0, first) << body;
    }
}

TEST(LlrpCaps, SetConfigComesBackInGetConfig) {
    ReaderFacts f = facts();
    // Keepalive 5 s; ROSpec events on; antenna 2: power index 3, session 2, a
    // mask on the EPC; reports of every tag with its antenna and peak RSSI.
    std::string body =
        hex("00  00DC 0009 01 00001388  00F4 000B 00F5 0007 0002 80"
            "  00DE 002F 0002  00E0 000A 0001 0001 0003"
            "    014A 001F 00  014B 000F 00 014C 000A 40 0020 0008 E2  0150 000B 80 0004 00000000"
            "  00ED 0012 01 0001  00EE 000B 1400 015C 0005 40");
    ConfigChange ch;
    ASSERT_FALSE(parse_set_reader_config(body, f, factory_config(f), ch));
    EXPECT_EQ(std::make_tuple(ch.power_dbm, ch.next.keepalive_ms, ch.next.events), std::make_tuple(7, 5000u, 4));

    std::string out;
    config_response(out, 1, hex("0000 00 0000 0000"), f, ch.next);
    ROReportSpec report;
    std::vector<AntennaConfig> antennas;
    bool parsed = true;
    for (const Param& p : params_of(std::string_view(out).substr(kHeaderSize))) {
        if (p.type == param::ROReportSpec) parsed &= !parse_ro_report_spec(p.body, 0, report);
        if (p.type == param::AntennaConfiguration)
            parsed &= !parse_antenna_configuration(p.body, 0, f, antennas.emplace_back());
    }
    ReportContent content;
    content.antenna_id = content.peak_rssi = content.pc = true;
    EXPECT_EQ(report, (ROReportSpec{ROReportSpec::AISpecEndOrN, 1, content}));
    ASSERT_TRUE(parsed && antennas.size() == 4);
    for (const AntennaConfig& a : antennas) EXPECT_EQ(a.power_index, 3) << a.antenna;  // one power for all
    const C1G2Settings& c = antennas[1].c1g2;
    ASSERT_TRUE(c.mask && !antennas[0].c1g2.mask);
    EXPECT_EQ(std::make_tuple(c.session, c.mask->bit_ptr, c.mask->bits),
              std::make_tuple(2, 0x20, std::vector<uint8_t>{0xE2}));

    ConfigChange reset;  // to factory defaults
    ASSERT_FALSE(parse_set_reader_config(hex("80"), f, ch.next, reset));
    EXPECT_EQ(std::make_tuple(reset.next.keepalive_ms, reset.power_dbm), std::make_tuple(0u, 8));
}

TEST(LlrpCaps, SetConfigRefusals) {
    // Body -> the code, parameter and field at fault.
    const std::tuple<const char*, uint16_t, uint16_t, int> cases[] = {
        {"", M_FieldError, 0, -1},
        {"00 00DC 0009 01 00001388 00DC 0009 01 00001388", P_DuplicateParameter, param::KeepaliveSpec, -1},
        {"00 00DC 0009 01 00000000", A_OutOfRange, param::KeepaliveSpec, 1},  // periodic, every 0 ms
        {"00 00DC 000C 01 00001388 81 0001", P_UnexpectedParameter, param::AntennaID, -1},
        {"00 00DE 0006 0005", A_OutOfRange, param::AntennaConfiguration, 0},
        {"00 00DE 0010 0001 00E0 000A 0001 0001 0007", A_OutOfRange, param::RFTransmitter, 2},
        {"00 00DE 000B 0001 014A 0005 80", A_Invalid, param::C1G2InventoryCommand, 0},  // state-aware
        {"00 00DE 0029 0001 014A 0023 00 014B 000F 00 014C 000A 40 0020 0008 E2 014B 000F 00 014C 000A 40 0020 0008 E2",
         P_OverflowParameter, param::C1G2Filter, -1},
        {"00 00DE 0010 0001 014A 000A 00 014B 0005 00", P_MissingParameter, param::C1G2TagInventoryMask, -1},
        {"00 00ED 0007 03 0000", A_OutOfRange, param::ROReportSpec, 0},
        {"00 00F4 000B 00F5 0007 0009 80", A_OutOfRange, param::EventNotificationState, 0},
        {"00 00DD 0009 80 0001 0000", P_UnsupportedParameter, param::AntennaProperties, -1},
        {"00 00E2 0005 80", A_Invalid, param::EventsAndReports, 0},  // hold events and reports
    };
    for (const auto& [body, code, type, field] : cases) {
        ConfigChange ch;
        Error e = parse_set_reader_config(hex(body), facts(), factory_config(facts()), ch);
        EXPECT_EQ(std::make_tuple(e.code, e.param, e.field), std::make_tuple(code, type, field)) << body;
    }
}

TEST(LlrpCaps, VersionsAnswerAsLlrp101) {
    const std::tuple<uint8_t, uint16_t> answered[] = {
        {2, msg::GET_SUPPORTED_VERSION}, {1, msg::SET_PROTOCOL_VERSION}, {2, msg::GET_READER_CAPABILITIES}};
    for (auto [version, type] : answered) {
        std::string out;
        Header h;
        ASSERT_TRUE(version_answer(out, Header{version, type, 10, 42}) && frame(out, h) == Frame::Whole) << type;
        EXPECT_EQ(std::make_tuple(h.version, h.type, h.id), std::make_tuple(version, uint16_t(100), 42u));
        EXPECT_EQ(status_of(out), M_UnsupportedVersion);
    }
    std::string out;
    EXPECT_TRUE(!version_answer(out, Header{1, msg::GET_READER_CAPABILITIES, 10, 42}) && out.empty());
}

}  // namespace
}  // namespace uhfd::llrp
