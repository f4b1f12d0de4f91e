// The reader-description family: the answers decode into what the reader's
// facts and configuration say, a SET_READER_CONFIG comes back in the next
// GET_READER_CONFIG, and a SET_READER_CONFIG the reader cannot honour is
// refused naming the parameter and field at fault.
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>
#include <vector>

#include "llrp_caps.h"

namespace uhfd::llrp {
namespace {

std::string hex(std::string_view h) {
    std::string out;
    for (size_t i = 0; i < h.size();) {
        if (h[i] == ' ') {
            i++;
            continue;
        }
        out.push_back(char(std::stoi(std::string(h.substr(i, 2)), nullptr, 16)));
        i += 2;
    }
    return out;
}

ReaderFacts facts() {
    ReaderFacts f;
    f.device_id = "0A1B2C3D";
    f.software = "2.1";
    f.region = "etsi";
    f.antenna_count = 4;
    f.power_min_dbm = 5;
    f.power_max_dbm = 10;
    f.power_dbm = 8;
    return f;
}

// A response's top-level parameters, its LLRPStatus first.
std::vector<Param> params_of(std::string_view message) {
    std::vector<Param> out;
    Params ps(message.substr(kHeaderSize));
    Param p;
    while (ps.next(p)) out.push_back(p);
    EXPECT_TRUE(ps.ok());
    return out;
}

std::vector<uint16_t> types_of(const std::vector<Param>& ps) {
    std::vector<uint16_t> out;
    for (const Param& p : ps) out.push_back(p.type);
    return out;
}

uint16_t status_of(const std::vector<Param>& ps) { return ps.empty() ? 0xFFFF : Reader(ps[0].body).u16(); }

TEST(LlrpCaps, PowerTableIsTheModulesSteps) {
    ReaderFacts f = facts();
    EXPECT_EQ(power_table_size(f), 6);
    const std::pair<uint16_t, std::optional<int>> by_index[] = {{0, {}}, {1, 5}, {6, 10}, {7, {}}};
    for (auto [index, dbm] : by_index) EXPECT_EQ(power_dbm(f, index), dbm) << index;
    const std::pair<int, uint16_t> by_dbm[] = {{3, 1}, {8, 4}, {40, 6}};
    for (auto [dbm, index] : by_dbm) EXPECT_EQ(power_index(f, dbm), index) << dbm;
}

TEST(LlrpCaps, CapabilitiesAnswerWhatIsAsked) {
    using namespace param;
    const std::pair<uint8_t, std::vector<uint16_t>> cases[] = {
        {0, {LLRPStatus, GeneralDeviceCapabilities, LLRPCapabilities, RegulatoryCapabilities, C1G2LLRPCapabilities}},
        {1, {LLRPStatus, GeneralDeviceCapabilities}},
        {3, {LLRPStatus, RegulatoryCapabilities}},
        {4, {LLRPStatus, C1G2LLRPCapabilities}},
        {5, {LLRPStatus}},
    };
    for (const auto& [want, types] : cases) {
        std::string out;
        capabilities_response(out, 7, std::string(1, char(want)), facts());
        auto ps = params_of(out);
        EXPECT_EQ(types_of(ps), types) << int(want);
        EXPECT_EQ(status_of(ps), want <= 4 ? M_Success : M_FieldError) << int(want);
    }
}

TEST(LlrpCaps, CapabilitiesCarryTheReadersFacts) {
    std::string out;
    capabilities_response(out, 7, std::string(1, '\0'), facts());
    auto ps = params_of(out);
    ASSERT_EQ(ps.size(), 5u);
    Reader general(ps[1].body);
    EXPECT_EQ(general.u16(), 4);  // antennas
    general.u16(), general.u32(), general.u32();
    EXPECT_EQ(general.utf8(), "2.1");
    std::vector<uint16_t> subs;
    Param p;
    for (Params in(general.rest(), 1); in.next(p);) subs.push_back(p.type);
    EXPECT_EQ(std::count(subs.begin(), subs.end(), param::PerAntennaAirProtocol), 4);

    Reader reg(ps[3].body);
    EXPECT_EQ(reg.u16(), 0);  // ETSI: no single country
    EXPECT_EQ(reg.u16(), 2);  // ETSI 302-208
    Params band(reg.rest(), 1);
    ASSERT_TRUE(band.next(p));
    std::vector<std::pair<uint16_t, uint16_t>> table;  // index, hundredths of dBm
    std::vector<uint16_t> others;
    for (Params in = band.inside(p.body); in.next(p);) {
        Reader e(p.body);
        if (p.type == param::TransmitPowerLevelTableEntry) {
            uint16_t i = e.u16();
            table.push_back({i, e.u16()});
        } else {
            others.push_back(p.type);
        }
    }
    const std::vector<std::pair<uint16_t, uint16_t>> steps = {{1, 500}, {2, 600}, {3, 700},
                                                              {4, 800}, {5, 900}, {6, 1000}};
    EXPECT_EQ(table, steps);
    EXPECT_EQ(others, (std::vector<uint16_t>{param::FrequencyInformation, param::C1G2UHFRFModeTable}));
}

struct ConfigAsk {
    uint16_t antenna;
    uint8_t want;
    size_t count;         // parameters after the status
    uint16_t first_type;  // the first of them
};

TEST(LlrpCaps, ConfigAnswersWhatIsAsked) {
    ReaderFacts f = facts();
    ReaderConfig c = factory_config(f);
    const ConfigAsk cases[] = {
        {0, 0, 1 + 4 + 4 + 6, param::Identification},
        {0, 2, 4, param::AntennaProperties},
        {3, 3, 1, param::AntennaConfiguration},
        {3, 1, 1, param::Identification},  // the antenna is not looked at
        {0, 4, 1, param::ROReportSpec},
        {0, 8, 1, param::KeepaliveSpec},
        {0, 9, 0, 0},  // no GPI ports
    };
    for (const ConfigAsk& k : cases) {
        std::string body = {char(k.antenna >> 8), char(k.antenna), char(k.want), 0, 0, 0, 0};
        std::string out;
        config_response(out, 1, body, f, c);
        auto ps = params_of(out);
        ASSERT_EQ(ps.size(), k.count + 1) << int(k.want);
        EXPECT_EQ(status_of(ps), M_Success);
        if (k.count) {
            EXPECT_EQ(ps[1].type, k.first_type) << int(k.want);
        }
    }
}

TEST(LlrpCaps, ConfigRefusesBadRequests) {
    const std::pair<const char*, Error> cases[] = {
        {"0005 00 0000 0000", field_error(A_OutOfRange, 0, 0, "")},
        {"0000 0C 0000 0000", field_error(A_OutOfRange, 0, 1, "")},
        {"0000 09 0001 0000", field_error(A_OutOfRange, 0, 2, "")},
        {"0000 00 0000", message_error(M_FieldError, "")},
        {"0000 00 0000 0000 03FF 0008 00000001", param_error(P_UnsupportedParameter, param::Custom, "")},
    };
    for (const auto& [body, want] : cases) {
        std::string out;
        config_response(out, 1, hex(body), facts(), factory_config(facts()));
        std::string expected;
        status_message(expected, msg::GET_READER_CONFIG_RESPONSE, 1, want);
        // The description aside, the answer is the status alone.
        auto got = params_of(out);
        ASSERT_EQ(got.size(), 1u) << body;
        Reader g(got[0].body), e(params_of(expected)[0].body);
        EXPECT_EQ(g.u16(), e.u16()) << body;
        g.utf8(), e.utf8();
        EXPECT_EQ(g.rest(), e.rest()) << body;
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
    EXPECT_EQ(ch.power_dbm, 7);
    EXPECT_EQ(ch.next.keepalive_ms, 5000u);
    EXPECT_EQ(ch.next.events, 1 << 2);

    std::string out;
    config_response(out, 1, hex("0000 00 0000 0000"), f, ch.next);
    ReaderConfig back;
    std::vector<AntennaConfig> antennas;
    for (const Param& p : params_of(out)) {
        if (p.type == param::ROReportSpec) {
            ASSERT_FALSE(parse_ro_report_spec(p.body, 0, back.ro_report));
        }
        if (p.type == param::AntennaConfiguration) {
            ASSERT_FALSE(parse_antenna_configuration(p.body, 0, f, antennas.emplace_back()));
        }
    }
    ReportContent content;
    content.antenna_id = content.peak_rssi = content.pc = true;
    EXPECT_EQ(back.ro_report, (ROReportSpec{ROReportSpec::AISpecEndOrN, 1, content}));
    ASSERT_EQ(antennas.size(), 4u);
    for (const AntennaConfig& a : antennas) EXPECT_EQ(a.power_index, 3) << a.antenna;  // one power for all
    ASSERT_TRUE(antennas[1].c1g2.mask);
    EXPECT_EQ(antennas[1].c1g2.session, 2);
    EXPECT_EQ(antennas[1].c1g2.mask->bit_ptr, 0x20);
    EXPECT_EQ(antennas[1].c1g2.mask->bits, std::vector<uint8_t>{0xE2});
    EXPECT_FALSE(antennas[0].c1g2.mask);

    ConfigChange reset;
    ASSERT_FALSE(parse_set_reader_config(hex("80"), f, ch.next, reset));
    EXPECT_EQ(reset.next.keepalive_ms, 0u);
    EXPECT_EQ(reset.next.ro_report, factory_config(f).ro_report);
    EXPECT_EQ(reset.power_dbm, 8);
}

struct Refusal {
    const char* name;
    const char* body;
    uint16_t code, param;
    int field;
};

TEST(LlrpCaps, SetConfigRefusals) {
    const Refusal cases[] = {
        {"empty", "", M_FieldError, 0, -1},
        {"a report parameter", "00 00F0 0005 00", P_UnexpectedParameter, param::TagReportData, -1},
        {"a TV parameter", "00 81 0001", P_UnexpectedParameter, param::AntennaID, -1},
        {"custom", "00 03FF 000C 00000001 00000002", P_UnsupportedParameter, param::Custom, -1},
        {"two keepalive specs", "00 00DC 0009 01 00001388 00DC 0009 01 00001388", P_DuplicateParameter,
         param::KeepaliveSpec, -1},
        {"keepalive trigger 2", "00 00DC 0009 02 00000000", A_OutOfRange, param::KeepaliveSpec, 0},
        {"periodic keepalive of 0 ms", "00 00DC 0009 01 00000000", A_OutOfRange, param::KeepaliveSpec, 1},
        {"keepalive with a sub-parameter", "00 00DC 000C 01 00001388 81 0001", P_UnexpectedParameter, param::AntennaID,
         -1},
        {"parameter beyond the message", "00 00DC 0020 01", P_ParameterError, param::KeepaliveSpec, -1},
        {"no such antenna", "00 00DE 0006 0005", A_OutOfRange, param::AntennaConfiguration, 0},
        {"power index 0", "00 00DE 0010 0001 00E0 000A 0001 0001 0000", A_OutOfRange, param::RFTransmitter, 2},
        {"power index beyond the table", "00 00DE 0010 0001 00E0 000A 0001 0001 0007", A_OutOfRange,
         param::RFTransmitter, 2},
        {"transmitter cut short", "00 00DE 000C 0001 00E0 0006 0001", P_ParameterError, param::RFTransmitter, -1},
        {"state-aware inventory", "00 00DE 000B 0001 014A 0005 80", A_Invalid, param::C1G2InventoryCommand, 0},
        {"two filters",
         "00 00DE 0029 0001 014A 0023 00 014B 000F 00 014C 000A 40 0020 0008 E2 014B 000F 00 014C 000A 40 0020 0008 E2",
         P_OverflowParameter, param::C1G2Filter, -1},
        {"filter without its mask", "00 00DE 0010 0001 014A 000A 00 014B 0005 00", P_MissingParameter,
         param::C1G2TagInventoryMask, -1},
        {"truncating filter", "00 00DE 0010 0001 014A 000A 00 014B 0005 80", A_Invalid, param::C1G2Filter, 0},
        {"mask on the reserved bank", "00 00DE 001A 0001 014A 0014 00 014B 000F 00 014C 000A 00 0020 0008 E2",
         A_OutOfRange, param::C1G2TagInventoryMask, 0},
        {"RF mode 1", "00 00DE 0013 0001 014A 000D 00 014F 0008 0001 0000", A_OutOfRange, param::C1G2RFControl, 0},
        {"report trigger 3", "00 00ED 0007 03 0000", A_OutOfRange, param::ROReportSpec, 0},
        {"report without its selector", "00 00ED 0007 02 0000", P_MissingParameter, param::TagReportContentSelector,
         -1},
        {"event type 9", "00 00F4 000B 00F5 0007 0009 80", A_OutOfRange, param::EventNotificationState, 0},
        {"antenna properties", "00 00DD 0009 80 0001 0000", P_UnsupportedParameter, param::AntennaProperties, -1},
        {"holding events", "00 00E2 0005 80", A_Invalid, param::EventsAndReports, 0},
        {"access report trigger 2", "00 00EF 0005 02", A_OutOfRange, param::AccessReportSpec, 0},
        {"a GPI port", "00 00E1 0008 0001 80 00", A_OutOfRange, param::GPIPortCurrentState, 0},
    };
    ReaderFacts f = facts();
    for (const Refusal& c : cases) {
        ConfigChange ch;
        Error e = parse_set_reader_config(hex(c.body), f, factory_config(f), ch);
        EXPECT_EQ(e.code, c.code) << c.name;
        EXPECT_EQ(e.param, c.param) << c.name;
        EXPECT_EQ(e.field, c.field) << c.name;
    }
}

TEST(LlrpCaps, VersionsAnswerAsLlrp101) {
    const std::tuple<uint8_t, uint16_t, bool> cases[] = {
        {2, msg::GET_SUPPORTED_VERSION, true},    {1, msg::GET_SUPPORTED_VERSION, true},
        {2, msg::SET_PROTOCOL_VERSION, true},     {2, msg::GET_READER_CAPABILITIES, true},
        {1, msg::GET_READER_CAPABILITIES, false},
    };
    for (auto [version, type, answered] : cases) {
        std::string out = "x";
        EXPECT_EQ(version_answer(out, Header{version, type, 10, 42}), answered) << type;
        if (!answered) {
            EXPECT_EQ(out, "x");
            continue;
        }
        Header h;
        ASSERT_EQ(frame(std::string_view(out).substr(1), h), Frame::Whole);
        EXPECT_EQ(h.version, 1);
        EXPECT_EQ(h.type, msg::ERROR_MESSAGE);
        EXPECT_EQ(h.id, 42u);
        EXPECT_EQ(status_of(params_of(std::string_view(out).substr(1))), M_UnsupportedVersion);
    }
}

}  // namespace
}  // namespace uhfd::llrp
