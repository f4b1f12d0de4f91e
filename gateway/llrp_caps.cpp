#include "llrp_caps.h"

#include <algorithm>
#include <utility>

#include "llrp_programs.h"

namespace uhfd::llrp {

namespace {

constexpr uint8_t kC1G2 = 1;                           // LLRP's protocol ID of EPCglobal Class 1 Gen 2
constexpr uint16_t kMinTari = 6250, kMaxTari = 25000;  // ns: Gen2's whole range
constexpr int kEventTypes = 9;                         // EventNotificationState types of LLRP 1.0.1

// Regulatory facts per uhfd region word: ISO 3166 country, LLRP's
// communications standard, and the channels the module hops over (kHz).
struct Region {
    uint16_t country, standard;
    uint32_t first_khz, step_khz;
    uint16_t channels;
};

Region region_of(const std::string& word) {
    if (word == "fcc") return {840, 1, 902750, 500, 50};
    if (word == "etsi") return {0, 2, 865700, 600, 4};
    if (word == "china-920" || word == "china1") return {156, 14, 920625, 250, 16};
    if (word == "china-840" || word == "china2") return {156, 13, 840625, 250, 16};
    return {0, 0, 902750, 500, 50};  // unknown: no standard claimed, a plausible table
}

Error unexpected(const Param& p) {
    if (p.type == param::Custom)
        return param_error(P_UnsupportedParameter, p.type, "custom parameters are not supported");
    return param_error(P_UnexpectedParameter, p.type, "parameter not expected here");
}

// A parameter whose sub-parameters we take none of.
Error expect_none(Params ps) {
    Param p;
    if (ps.next(p)) return unexpected(p);
    return ps.error();
}

Error cut_short(uint16_t type) { return param_error(P_ParameterError, type, "fields cut short"); }

Error parse_content(std::string_view body, int depth, ReportContent& c) {
    Reader r(body);
    uint16_t bits = r.u16();
    if (!r.ok()) return cut_short(param::TagReportContentSelector);
    bool* flags[] = {&c.rospec_id, &c.spec_index, &c.inv_param_spec_id, &c.antenna_id, &c.channel_index,
                     &c.peak_rssi, &c.first_seen, &c.last_seen,         &c.seen_count, &c.access_spec_id};
    for (int i = 0; i < 10; i++) *flags[i] = bits >> (15 - i) & 1;
    Params ps(r.rest(), depth + 1);
    Param p;
    while (ps.next(p)) {
        if (p.type != param::C1G2EPCMemorySelector) return unexpected(p);
        Reader m(p.body);
        uint8_t f = m.u8();
        if (!m.ok()) return cut_short(p.type);
        c.crc = f & 0x80, c.pc = f & 0x40, c.xpc = f & 0x20;
        if (Error e = expect_none(ps.inside(m.rest()))) return e;
    }
    return ps.error();
}

Error parse_mask(std::string_view body, int depth, InventoryPlan::Mask& m) {
    Reader r(body);
    uint8_t mb = r.u8() >> 6;
    m.bit_ptr = r.u16();
    std::string_view bits = r.bits(m.bit_len);
    if (!r.ok()) return cut_short(param::C1G2TagInventoryMask);
    if (mb == 0) return field_error(A_OutOfRange, param::C1G2TagInventoryMask, 0, "no select on the reserved bank");
    if (m.bit_len > 255)
        return field_error(A_OutOfRange, param::C1G2TagInventoryMask, 2, "a Gen2 Select mask has at most 255 bits");
    m.bank = mb;
    m.bits.assign(bits.begin(), bits.end());
    return expect_none(Params(r.rest(), depth + 1));
}

// One C1G2Filter: a mask, with no action or the plain select-matching one.
Error parse_filter(std::string_view body, int depth, std::optional<InventoryPlan::Mask>& mask) {
    Reader r(body);
    uint8_t t = r.u8() >> 6;
    if (!r.ok()) return cut_short(param::C1G2Filter);
    if (t == 2) return field_error(A_Invalid, param::C1G2Filter, 0, "the reader does not truncate replies");
    Params ps(r.rest(), depth + 1);
    Param p;
    while (ps.next(p)) {
        if (p.type == param::C1G2TagInventoryMask && !mask) {
            mask = InventoryPlan::Mask{};
            if (Error e = parse_mask(p.body, ps.depth(), *mask)) return e;
        } else if (p.type == param::C1G2TagInventoryStateUnawareFilterAction) {
            Reader a(p.body);
            uint8_t action = a.u8();
            if (!a.ok()) return cut_short(p.type);
            if (action != 0)
                return field_error(A_OutOfRange, p.type, 0, "only action 0 (select matching) is supported");
        } else if (p.type == param::C1G2TagInventoryStateAwareFilterAction) {
            return param_error(P_UnsupportedParameter, p.type, "no state-aware filters");
        } else {
            return p.type == param::C1G2TagInventoryMask
                       ? param_error(P_DuplicateParameter, p.type, "one mask per filter")
                       : unexpected(p);
        }
    }
    if (!ps.ok()) return ps.error();
    if (!mask) return param_error(P_MissingParameter, param::C1G2TagInventoryMask, "a filter needs its mask");
    return {};
}

Error parse_inventory_command(std::string_view body, int depth, C1G2Settings& c) {
    Reader r(body);
    uint8_t s = r.u8();
    if (!r.ok()) return cut_short(param::C1G2InventoryCommand);
    if (s & 0x80) return field_error(A_Invalid, param::C1G2InventoryCommand, 0, "no state-aware inventory");
    Params ps(r.rest(), depth + 1);
    Param p;
    bool filtered = false;
    while (ps.next(p)) {
        Reader f(p.body);
        if (p.type == param::C1G2Filter) {
            if (filtered) return param_error(P_OverflowParameter, p.type, "one filter per inventory");
            filtered = true;
            if (Error e = parse_filter(p.body, ps.depth(), c.mask)) return e;
            continue;
        }
        if (p.type == param::C1G2RFControl) {
            uint16_t mode = f.u16(), tari = f.u16();
            if (!f.ok()) return cut_short(p.type);
            if (mode != 0) return field_error(A_OutOfRange, p.type, 0, "the reader has one RF mode: 0");
            if (tari != 0 && (tari < kMinTari || tari > kMaxTari))
                return field_error(A_OutOfRange, p.type, 1, "Tari out of range");
            c.mode_index = mode, c.tari = tari;
        } else if (p.type == param::C1G2SingulationControl) {
            c.session = f.u8() >> 6;
            c.tag_population = f.u16();
            f.u32();  // TagTransitTime: the module has no use for it
            if (!f.ok()) return cut_short(p.type);
        } else {
            return unexpected(p);
        }
        // A state-aware singulation action under the singulation control is refused here too.
        if (Error e = expect_none(ps.inside(f.rest()))) return e;
    }
    return ps.error();
}

void write_inventory_command(Writer& w, const C1G2Settings& c) {
    size_t at = w.begin(param::C1G2InventoryCommand);
    w.u8(0);
    if (c.mask) {
        size_t f = w.begin(param::C1G2Filter);
        w.u8(0);
        size_t m = w.begin(param::C1G2TagInventoryMask);
        w.u8(uint8_t(c.mask->bank << 6));
        w.u16(c.mask->bit_ptr);
        w.bits(c.mask->bit_len,
               std::string_view(reinterpret_cast<const char*>(c.mask->bits.data()), c.mask->bits.size()));
        w.end(m);
        w.end(f);
    }
    size_t rf = w.begin(param::C1G2RFControl);
    w.u16(c.mode_index), w.u16(c.tari);
    w.end(rf);
    if (c.session || c.tag_population) {
        size_t s = w.begin(param::C1G2SingulationControl);
        w.u8(uint8_t(c.session.value_or(0) << 6)), w.u16(c.tag_population.value_or(0)), w.u32(0);
        w.end(s);
    }
    w.end(at);
}

void write_u8_param(Writer& w, uint16_t type, uint8_t v) {
    size_t at = w.begin(type);
    w.u8(v);
    w.end(at);
}

}  // namespace

uint16_t power_table_size(const ReaderFacts& f) {
    return uint16_t(std::clamp(f.power_max_dbm - f.power_min_dbm + 1, 0, 100));
}

std::optional<int> power_dbm(const ReaderFacts& f, uint16_t index) {
    if (index < 1 || index > power_table_size(f)) return std::nullopt;
    return f.power_min_dbm + index - 1;
}

uint16_t power_index(const ReaderFacts& f, int dbm) {
    return uint16_t(std::clamp(dbm - f.power_min_dbm + 1, 1, std::max<int>(1, power_table_size(f))));
}

Error parse_ro_report_spec(std::string_view body, int depth, ROReportSpec& out) {
    Reader r(body);
    ROReportSpec s;
    s.trigger = r.u8();
    s.n = r.u16();
    if (!r.ok()) return cut_short(param::ROReportSpec);
    if (s.trigger > ROReportSpec::ROSpecEndOrN)
        return field_error(A_OutOfRange, param::ROReportSpec, 0, "unsupported report trigger");
    Params ps(r.rest(), depth + 1);
    Param p;
    bool content = false;
    while (ps.next(p)) {
        if (p.type != param::TagReportContentSelector) return unexpected(p);
        if (content) return param_error(P_DuplicateParameter, p.type, "one content selector");
        content = true;
        if (Error e = parse_content(p.body, ps.depth(), s.content)) return e;
    }
    if (!ps.ok()) return ps.error();
    if (!content)
        return param_error(P_MissingParameter, param::TagReportContentSelector, "the content selector is missing");
    out = s;
    return {};
}

void write_ro_report_spec(Writer& w, const ROReportSpec& s) {
    size_t at = w.begin(param::ROReportSpec);
    w.u8(s.trigger), w.u16(s.n);
    size_t sel = w.begin(param::TagReportContentSelector);
    const ReportContent& c = s.content;
    const bool flags[] = {c.rospec_id, c.spec_index, c.inv_param_spec_id, c.antenna_id, c.channel_index,
                          c.peak_rssi, c.first_seen, c.last_seen,         c.seen_count, c.access_spec_id};
    uint16_t bits = 0;
    for (int i = 0; i < 10; i++) bits |= uint16_t(flags[i] << (15 - i));
    w.u16(bits);
    write_u8_param(w, param::C1G2EPCMemorySelector, uint8_t(c.crc << 7 | c.pc << 6 | c.xpc << 5));
    w.end(sel);
    w.end(at);
}

Error parse_antenna_configuration(std::string_view body, int depth, const ReaderFacts& f, AntennaConfig& out) {
    Reader r(body);
    AntennaConfig a;
    a.antenna = r.u16();
    if (!r.ok()) return cut_short(param::AntennaConfiguration);
    if (a.antenna > f.antenna_count)
        return field_error(A_OutOfRange, param::AntennaConfiguration, 0, "no such antenna");
    Params ps(r.rest(), depth + 1);
    Param p;
    while (ps.next(p)) {
        Reader x(p.body);
        if (p.type == param::RFReceiver) {
            uint16_t sensitivity = x.u16();
            if (!x.ok()) return cut_short(p.type);
            if (sensitivity != 1) return field_error(A_OutOfRange, p.type, 0, "the sensitivity table has index 1 only");
        } else if (p.type == param::RFTransmitter) {
            x.u16(), x.u16();  // hop table and channel: the module hops by itself
            a.power_index = x.u16();
            if (!x.ok()) return cut_short(p.type);
            if (!power_dbm(f, *a.power_index)) return field_error(A_OutOfRange, p.type, 2, "no such power index");
        } else if (p.type == param::C1G2InventoryCommand && !a.c1g2_given) {
            a.c1g2_given = true;
            if (Error e = parse_inventory_command(p.body, ps.depth(), a.c1g2)) return e;
            continue;
        } else {
            return p.type == param::C1G2InventoryCommand
                       ? param_error(P_DuplicateParameter, p.type, "one per air protocol")
                       : unexpected(p);
        }
        if (Error e = expect_none(ps.inside(x.rest()))) return e;
    }
    if (!ps.ok()) return ps.error();
    out = std::move(a);
    return {};
}

ReaderConfig factory_config(const ReaderFacts& f) {
    ReaderConfig c;
    c.ro_report.trigger = ROReportSpec::ROSpecEndOrN;
    c.ro_report.n = 1;
    c.ro_report.content.antenna_id = c.ro_report.content.peak_rssi = true;
    c.ro_report.content.first_seen = c.ro_report.content.seen_count = true;
    uint16_t power = power_index(f, f.power_dbm.value_or(f.power_max_dbm));
    for (int i = 1; i <= f.antenna_count; i++) {
        AntennaConfig a;
        a.antenna = uint16_t(i);
        a.power_index = power;
        a.c1g2.session = f.session;
        c.antennas.push_back(a);
    }
    return c;
}

namespace {

Error parse_events(std::string_view body, int depth, uint16_t& events) {
    Params ps(body, depth + 1);
    Param p;
    while (ps.next(p)) {
        if (p.type != param::EventNotificationState) return unexpected(p);
        Reader r(p.body);
        uint16_t type = r.u16();
        bool on = r.u8() & 0x80;
        if (!r.ok()) return cut_short(p.type);
        if (type >= kEventTypes) return field_error(A_OutOfRange, p.type, 0, "no such event type");
        events = uint16_t(on ? events | 1u << type : events & ~(1u << type));
        if (Error e = expect_none(ps.inside(r.rest()))) return e;
    }
    return ps.error();
}

void apply_antenna(ConfigChange& out, const AntennaConfig& a) {
    for (AntennaConfig& mine : out.next.antennas) {
        if (a.c1g2_given && (a.antenna == 0 || mine.antenna == a.antenna)) mine.c1g2 = a.c1g2;
    }
    if (!a.power_index) return;
    for (AntennaConfig& mine : out.next.antennas) mine.power_index = a.power_index;  // one power for all
}

// One SET_READER_CONFIG parameter applied to out.
Error set_one(const Param& p, int depth, const ReaderFacts& f, ConfigChange& out) {
    Reader r(p.body);
    switch (p.type) {
        case param::ReaderEventNotificationSpec: return parse_events(p.body, depth, out.next.events);
        case param::AntennaConfiguration: {
            AntennaConfig a;
            if (Error e = parse_antenna_configuration(p.body, depth, f, a)) return e;
            apply_antenna(out, a);
            if (a.power_index) out.power_dbm = power_dbm(f, *a.power_index);
            return {};
        }
        case param::ROReportSpec: return parse_ro_report_spec(p.body, depth, out.next.ro_report);
        case param::AccessReportSpec: {
            uint8_t t = r.u8();
            if (!r.ok()) return cut_short(p.type);
            if (t > 1) return field_error(A_OutOfRange, p.type, 0, "no such access report trigger");
            out.next.access_report_trigger = t;
            break;
        }
        case param::KeepaliveSpec: {
            uint8_t t = r.u8();
            uint32_t ms = r.u32();
            if (!r.ok()) return cut_short(p.type);
            if (t > 1) return field_error(A_OutOfRange, p.type, 0, "no such keepalive trigger");
            if (t == 1 && ms == 0)
                return field_error(A_OutOfRange, p.type, 1, "a periodic keepalive needs an interval");
            out.next.keepalive_ms = t == 1 ? ms : 0;
            break;
        }
        case param::EventsAndReports:
            if (r.u8() & 0x80)
                return field_error(A_Invalid, p.type, 0, "events and reports are not held across connections");
            if (!r.ok()) return cut_short(p.type);
            break;
        case param::AntennaProperties:
            return param_error(P_UnsupportedParameter, p.type, "antenna properties cannot be set");
        case param::GPIPortCurrentState:
        case param::GPOWriteData: return field_error(A_OutOfRange, p.type, 0, "the reader has no GPIO ports");
        default: return unexpected(p);
    }
    return expect_none(Params(r.rest(), depth + 1));
}

}  // namespace

Error parse_set_reader_config(std::string_view body, const ReaderFacts& f, const ReaderConfig& now, ConfigChange& out) {
    Reader r(body);
    bool reset = r.u8() & 0x80;
    if (!r.ok()) return message_error(M_FieldError, "message cut short");
    out.next = reset ? factory_config(f) : now;
    out.power_dbm.reset();
    if (reset && !out.next.antennas.empty()) out.power_dbm = power_dbm(f, *out.next.antennas[0].power_index);
    Params ps(r.rest());
    Param p;
    uint32_t seen = 0;  // the parameters allowed once, by their position in singles
    const uint16_t singles[] = {param::ReaderEventNotificationSpec, param::ROReportSpec, param::AccessReportSpec,
                                param::KeepaliveSpec, param::EventsAndReports};
    while (ps.next(p)) {
        for (int i = 0; i < 5; i++) {
            if (p.type != singles[i]) continue;
            if (seen & 1u << i) return param_error(P_DuplicateParameter, p.type, "parameter given twice");
            seen |= 1u << i;
        }
        if (Error e = set_one(p, ps.depth(), f, out)) return e;
    }
    return ps.error();
}

namespace {

void write_general(Writer& w, const ReaderFacts& f) {
    size_t at = w.begin(param::GeneralDeviceCapabilities);
    w.u16(uint16_t(f.antenna_count));
    w.u16(0x4000);       // HasUTCClockCapability; antenna properties cannot be set
    w.u32(0), w.u32(0);  // no IANA enterprise number, no model number
    w.utf8(f.software.empty() ? "unknown" : f.software);
    size_t s = w.begin(param::ReceiveSensitivityTableEntry);
    w.u16(1), w.u16(0);
    w.end(s);
    size_t g = w.begin(param::GPIOCapabilities);
    w.u16(0), w.u16(0);
    w.end(g);
    for (int i = 1; i <= f.antenna_count; i++) {
        size_t a = w.begin(param::PerAntennaAirProtocol);
        w.u16(uint16_t(i)), w.u16(1), w.u8(kC1G2);
        w.end(a);
    }
    w.end(at);
}

void write_llrp_caps(Writer& w) {
    size_t at = w.begin(param::LLRPCapabilities);
    w.u8(0);  // no RF survey, buffer warning, client request op, state-aware singulation or event holding
    w.u8(7);  // ROSpec priorities 0 to 7
    w.u16(0);
    w.u32(uint32_t(kMaxROSpecs)), w.u32(uint32_t(kMaxSpecsPerROSpec)),
        w.u32(uint32_t(kMaxInventoryParameterSpecsPerAISpec));
    w.u32(uint32_t(kMaxAccessSpecs)), w.u32(uint32_t(kMaxOpSpecsPerAccessSpec));
    w.end(at);
}

void write_regulatory(Writer& w, const ReaderFacts& f) {
    Region r = region_of(f.region);
    size_t at = w.begin(param::RegulatoryCapabilities);
    w.u16(r.country), w.u16(r.standard);
    size_t band = w.begin(param::UHFBandCapabilities);
    for (int i = 1; i <= power_table_size(f); i++) {
        size_t e = w.begin(param::TransmitPowerLevelTableEntry);
        w.u16(uint16_t(i)), w.u16(uint16_t(*power_dbm(f, uint16_t(i)) * 100));
        w.end(e);
    }
    size_t fi = w.begin(param::FrequencyInformation);
    w.u8(0x80);  // hopping
    size_t hop = w.begin(param::FrequencyHopTable);
    w.u8(1), w.u8(0), w.u16(r.channels);
    for (uint32_t c = 0; c < r.channels; c++) w.u32(r.first_khz + c * r.step_khz);
    w.end(hop);
    w.end(fi);
    size_t table = w.begin(param::C1G2UHFRFModeTable);
    size_t mode = w.begin(param::C1G2UHFRFModeTableEntry);
    w.u32(0);    // mode identifier
    w.u8(0x80);  // DR 64/3, no EPC HAG T&C conformance claimed
    w.u8(2);     // Miller 4
    w.u8(0);     // PR-ASK
    w.u8(2);     // multi-interrogator spectral mask
    w.u32(62500), w.u32(1500), w.u32(kMinTari), w.u32(kMaxTari), w.u32(kMinTari);
    w.end(mode);
    w.end(table);
    w.end(band);
    w.end(at);
}

void write_c1g2_caps(Writer& w) {
    size_t at = w.begin(param::C1G2LLRPCapabilities);
    w.u8(0), w.u16(1);  // no block erase/write, permalock, recommissioning, UMI or XPC; one select filter
    w.end(at);
}

// The status a bad request gets, or nothing: fields cut short, unknown
// RequestedData, parameters where the request takes only custom ones.
Error request_error(Reader& r, uint8_t requested, uint8_t max_requested, int requested_field) {
    if (!r.ok()) return message_error(M_FieldError, "message cut short");
    if (requested > max_requested) return field_error(A_OutOfRange, 0, requested_field, "no such RequestedData");
    return expect_none(Params(r.rest()));
}

}  // namespace

void capabilities_response(std::string& out, uint32_t id, std::string_view body, const ReaderFacts& f) {
    Reader r(body);
    uint8_t want = r.u8();
    Writer w(out);
    size_t at = w.begin_message(msg::GET_READER_CAPABILITIES_RESPONSE, id);
    Error e = request_error(r, want, 4, 0);
    write_status(w, e);
    if (!e) {
        if (want == 0 || want == 1) write_general(w, f);
        if (want == 0 || want == 2) write_llrp_caps(w);
        if (want == 0 || want == 3) write_regulatory(w, f);
        if (want == 0 || want == 4) write_c1g2_caps(w);
    }
    w.end_message(at);
}

namespace {

void write_identification(Writer& w, const ReaderFacts& f) {
    auto nibble = [](char c) { return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10; };
    std::string id;
    if (f.device_id.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos) {
        for (size_t i = 0; i + 2 <= f.device_id.size(); i += 2) {
            id.push_back(char(nibble(f.device_id[i]) << 4 | nibble(f.device_id[i + 1])));
        }
    }
    size_t at = w.begin(param::Identification);
    w.u8(1);  // an EPC-like identifier: the device id is no MAC address
    w.u8v(id);
    w.end(at);
}

void write_antennas(Writer& w, const ReaderFacts& f, const ReaderConfig& c, uint16_t antenna, bool props, bool conf) {
    for (const AntennaConfig& a : c.antennas) {
        if (antenna != 0 && a.antenna != antenna) continue;
        if (props) {
            bool used = f.antennas.empty() || std::count(f.antennas.begin(), f.antennas.end(), a.antenna);
            size_t at = w.begin(param::AntennaProperties);
            w.u8(used ? 0x80 : 0), w.u16(a.antenna), w.u16(0);
            w.end(at);
        }
        if (conf) {
            size_t at = w.begin(param::AntennaConfiguration);
            w.u16(a.antenna);
            size_t rx = w.begin(param::RFReceiver);
            w.u16(1);
            w.end(rx);
            size_t tx = w.begin(param::RFTransmitter);
            w.u16(1), w.u16(1), w.u16(a.power_index.value_or(power_table_size(f)));
            w.end(tx);
            write_inventory_command(w, a.c1g2);
            w.end(at);
        }
    }
}

void write_config(Writer& w, const ReaderFacts& f, const ReaderConfig& c, uint8_t want, uint16_t antenna) {
    auto asked = [want](uint8_t what) { return want == 0 || want == what; };
    if (asked(1)) write_identification(w, f);
    write_antennas(w, f, c, antenna, asked(2), asked(3));
    if (asked(5)) {
        size_t at = w.begin(param::ReaderEventNotificationSpec);
        for (uint16_t t = 0; t < kEventTypes; t++) {
            size_t s = w.begin(param::EventNotificationState);
            w.u16(t), w.u8(c.events >> t & 1 ? 0x80 : 0);
            w.end(s);
        }
        w.end(at);
    }
    if (asked(4)) write_ro_report_spec(w, c.ro_report);
    if (asked(6)) write_u8_param(w, param::AccessReportSpec, c.access_report_trigger);
    if (asked(7)) {
        size_t at = w.begin(param::LLRPConfigurationStateValue);
        w.u32(c.state_value);
        w.end(at);
    }
    if (asked(8)) {
        size_t at = w.begin(param::KeepaliveSpec);
        w.u8(c.keepalive_ms ? 1 : 0), w.u32(c.keepalive_ms);
        w.end(at);
    }
    if (asked(11)) write_u8_param(w, param::EventsAndReports, 0);
}

}  // namespace

void config_response(std::string& out, uint32_t id, std::string_view body, const ReaderFacts& f,
                     const ReaderConfig& c) {
    Reader r(body);
    uint16_t antenna = r.u16();
    uint8_t want = r.u8();
    uint16_t gpi = r.u16(), gpo = r.u16();
    Error e = request_error(r, want, 11, 1);
    if (!e && antenna > f.antenna_count && (want == 0 || want == 2 || want == 3)) {
        e = field_error(A_OutOfRange, 0, 0, "no such antenna");
    } else if (!e && gpi != 0 && (want == 0 || want == 9)) {
        e = field_error(A_OutOfRange, 0, 2, "the reader has no GPI ports");
    } else if (!e && gpo != 0 && (want == 0 || want == 10)) {
        e = field_error(A_OutOfRange, 0, 3, "the reader has no GPO ports");
    }
    Writer w(out);
    size_t at = w.begin_message(msg::GET_READER_CONFIG_RESPONSE, id);
    write_status(w, e);
    if (!e) write_config(w, f, c, want, antenna);
    w.end_message(at);
}

bool version_answer(std::string& out, const Header& h) {
    if (h.version == kVersion && h.type != msg::GET_SUPPORTED_VERSION && h.type != msg::SET_PROTOCOL_VERSION) {
        return false;
    }
    status_message(out, msg::ERROR_MESSAGE, h.id,
                   message_error(M_UnsupportedVersion, "this reader speaks LLRP 1.0.1 only"), h.version);
    return true;
}

}  // namespace uhfd::llrp
