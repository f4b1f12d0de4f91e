#include "llrp_programs.h"

#include <algorithm>
#include <tuple>

#include "llrp_report.h"

namespace uhfd::llrp {

namespace {

std::string name(uint16_t type) {
    static constexpr std::pair<uint16_t, const char*> names[] = {
        {param::UTCTimestamp, "UTCTimestamp"},
        {param::ROSpec, "ROSpec"},
        {param::ROBoundarySpec, "ROBoundarySpec"},
        {param::ROSpecStartTrigger, "ROSpecStartTrigger"},
        {param::PeriodicTriggerValue, "PeriodicTriggerValue"},
        {param::GPITriggerValue, "GPITriggerValue"},
        {param::ROSpecStopTrigger, "ROSpecStopTrigger"},
        {param::AISpec, "AISpec"},
        {param::AISpecStopTrigger, "AISpecStopTrigger"},
        {param::TagObservationTrigger, "TagObservationTrigger"},
        {param::InventoryParameterSpec, "InventoryParameterSpec"},
        {param::RFSurveySpec, "RFSurveySpec"},
        {param::LoopSpec, "LoopSpec"},
        {param::AccessSpec, "AccessSpec"},
        {param::AccessSpecStopTrigger, "AccessSpecStopTrigger"},
        {param::AccessCommand, "AccessCommand"},
        {param::ClientRequestOpSpec, "ClientRequestOpSpec"},
        {param::AntennaConfiguration, "AntennaConfiguration"},
        {param::ROReportSpec, "ROReportSpec"},
        {param::AccessReportSpec, "AccessReportSpec"},
        {param::C1G2TagSpec, "C1G2TagSpec"},
        {param::C1G2TargetTag, "C1G2TargetTag"},
        {param::C1G2Read, "C1G2Read"},
        {param::C1G2Write, "C1G2Write"},
        {param::C1G2Kill, "C1G2Kill"},
        {param::C1G2Lock, "C1G2Lock"},
        {param::C1G2LockPayload, "C1G2LockPayload"},
        {param::C1G2BlockErase, "C1G2BlockErase"},
        {param::C1G2BlockWrite, "C1G2BlockWrite"},
        {param::C1G2Recommission, "C1G2Recommission"},
        {param::C1G2BlockPermalock, "C1G2BlockPermalock"},
        {param::C1G2GetBlockPermalockStatus, "C1G2GetBlockPermalockStatus"},
        {param::Custom, "Custom parameter"},
    };
    for (auto [t, n] : names)
        if (t == type) return n;
    return "parameter " + std::to_string(type);
}

// The parameters after a parameter's fields, one level below it.
Params sub(std::string_view rest, int depth) { return Params({}, depth).inside(rest); }

Error cut(uint16_t type) { return param_error(P_ParameterError, type, name(type) + " is cut short"); }

Error missing(uint16_t parent, uint16_t type) {
    return param_error(P_MissingParameter, parent, name(parent) + " lacks its " + name(type));
}

Error twice(uint16_t type) { return param_error(P_DuplicateParameter, type, name(type) + " is given twice"); }

// A parameter that has no place where it is, or that names what the module cannot do.
Error refuse(uint16_t type, uint16_t parent) {
    switch (type) {
        case param::RFSurveySpec:
        case param::LoopSpec:
        case param::GPITriggerValue:
        case param::Custom:
        case param::ClientRequestOpSpec:
        case param::C1G2Kill:
        case param::C1G2Recommission:
        case param::C1G2BlockErase:
        case param::C1G2BlockWrite:
        case param::C1G2BlockPermalock:
        case param::C1G2GetBlockPermalockStatus:
            return param_error(P_UnsupportedParameter, type, name(type) + " is not supported by this reader");
        default: return param_error(P_UnexpectedParameter, type, name(type) + " has no place in " + name(parent));
    }
}

Error no_gpi(uint16_t type) {
    return field_error(A_Invalid, type, 0, name(type) + ": GPI triggers are not supported: the reader has no GPI");
}

Error parse_periodic(std::string_view b, int depth, ROSpec& s) {
    Reader r(b);
    s.offset_ms = r.u32();
    s.period_ms = r.u32();
    if (!r.ok()) return cut(param::PeriodicTriggerValue);
    Params ps = sub(r.rest(), depth);
    Param p;
    while (ps.next(p)) {
        if (p.type != param::UTCTimestamp) return refuse(p.type, param::PeriodicTriggerValue);
        Reader t(p.body);
        uint64_t us = t.u64();
        if (!t.ok()) return cut(param::UTCTimestamp);
        s.utc_ms = int64_t(us / 1000);
    }
    return ps.error();
}

Error parse_start(std::string_view b, int depth, ROSpec& s) {
    Reader r(b);
    uint8_t type = r.u8();
    if (!r.ok()) return cut(param::ROSpecStartTrigger);
    if (type == 3) return no_gpi(param::ROSpecStartTrigger);
    if (type > 3) return field_error(A_OutOfRange, param::ROSpecStartTrigger, 0, "ROSpecStartTriggerType is 0 to 3");
    s.start = ROSpec::Start(type);
    bool periodic = false;
    Params ps = sub(r.rest(), depth);
    Param p;
    while (ps.next(p)) {
        if (p.type != param::PeriodicTriggerValue) return refuse(p.type, param::ROSpecStartTrigger);
        if (periodic) return twice(p.type);
        periodic = true;
        if (Error e = parse_periodic(p.body, depth + 1, s)) return e;
    }
    if (!ps.ok()) return ps.error();
    if (type == ROSpec::Periodic && !periodic) return missing(param::ROSpecStartTrigger, param::PeriodicTriggerValue);
    return {};
}

Error parse_stop(std::string_view b, int depth, ROSpec& s) {
    Reader r(b);
    uint8_t type = r.u8();
    uint32_t duration = r.u32();
    if (!r.ok()) return cut(param::ROSpecStopTrigger);
    if (type == 2) return no_gpi(param::ROSpecStopTrigger);
    if (type > 2) return field_error(A_OutOfRange, param::ROSpecStopTrigger, 0, "ROSpecStopTriggerType is 0 to 2");
    s.duration_ms = type == 1 ? duration : 0;
    Params ps = sub(r.rest(), depth);
    Param p;
    if (ps.next(p)) return refuse(p.type, param::ROSpecStopTrigger);
    return ps.error();
}

Error parse_boundary(std::string_view b, int depth, ROSpec& s) {
    bool start = false, stop = false;
    Params ps = sub(b, depth);
    Param p;
    while (ps.next(p)) {
        bool& seen = p.type == param::ROSpecStartTrigger ? start : stop;
        if (p.type != param::ROSpecStartTrigger && p.type != param::ROSpecStopTrigger)
            return refuse(p.type, param::ROBoundarySpec);
        if (seen) return twice(p.type);
        seen = true;
        Error e =
            p.type == param::ROSpecStartTrigger ? parse_start(p.body, depth + 1, s) : parse_stop(p.body, depth + 1, s);
        if (e) return e;
    }
    if (!ps.ok()) return ps.error();
    if (!start) return missing(param::ROBoundarySpec, param::ROSpecStartTrigger);
    if (!stop) return missing(param::ROBoundarySpec, param::ROSpecStopTrigger);
    return {};
}

Error parse_tag_observation(std::string_view b, AISpec& a) {
    Reader r(b);
    uint8_t type = r.u8();
    r.u8();
    a.n_tags = r.u16();
    r.u16();  // NumberOfAttempts
    r.u16();  // T
    a.timeout_ms = r.u32();
    if (!r.ok()) return cut(param::TagObservationTrigger);
    if (type > 4) return field_error(A_OutOfRange, param::TagObservationTrigger, 0, "TriggerType is 0 to 4");
    if (type != 0 && type != 3)
        return field_error(A_Invalid, param::TagObservationTrigger, 0,
                           "TagObservationTrigger: only 'upon seeing N tags, or timeout' is supported");
    return {};
}

Error parse_ai_stop(std::string_view b, int depth, AISpec& a) {
    Reader r(b);
    uint8_t type = r.u8();
    uint32_t duration = r.u32();
    if (!r.ok()) return cut(param::AISpecStopTrigger);
    if (type == 2) return no_gpi(param::AISpecStopTrigger);
    if (type > 3) return field_error(A_OutOfRange, param::AISpecStopTrigger, 0, "AISpecStopTriggerType is 0 to 3");
    a.stop = type == 3 ? AISpec::StopTags : type == 1 ? AISpec::StopDuration : AISpec::StopNull;
    a.duration_ms = type == 1 ? duration : 0;
    bool tags = false;
    Params ps = sub(r.rest(), depth);
    Param p;
    while (ps.next(p)) {
        if (p.type != param::TagObservationTrigger) return refuse(p.type, param::AISpecStopTrigger);
        if (tags) return twice(p.type);
        tags = true;
        if (type != 3) continue;  // only read when it is the trigger
        if (Error e = parse_tag_observation(p.body, a)) return e;
    }
    if (!ps.ok()) return ps.error();
    if (type == 3 && !tags) return missing(param::AISpecStopTrigger, param::TagObservationTrigger);
    return {};
}

bool uses(const AISpec& a, uint16_t antenna) {
    return antenna == 0 || a.antennas.empty() ||
           std::find(a.antennas.begin(), a.antennas.end(), antenna) != a.antennas.end();
}

Error parse_ips(std::string_view b, int depth, const ReaderFacts& f, AISpec& a) {
    Reader r(b);
    a.ips_id = r.u16();
    uint8_t protocol = r.u8();
    if (!r.ok()) return cut(param::InventoryParameterSpec);
    if (a.ips_id == 0)
        return field_error(A_Invalid, param::InventoryParameterSpec, 0, "InventoryParameterSpecID 0 is illegal");
    if (protocol != 1)
        return field_error(A_OutOfRange, param::InventoryParameterSpec, 1,
                           "ProtocolID: only EPCGlobal Class 1 Gen 2 (1)");
    Params ps = sub(r.rest(), depth);
    Param p;
    while (ps.next(p)) {
        if (p.type != param::AntennaConfiguration) return refuse(p.type, param::InventoryParameterSpec);
        AntennaConfig c;
        if (Error e = parse_antenna_configuration(p.body, depth + 1, f, c)) return e;
        if (uses(a, c.antenna)) a.configs.push_back(std::move(c));
    }
    return ps.error();
}

// The module has one radio: every antenna of an AISpec runs with the same settings.
Error one_setting(const std::vector<AntennaConfig>& configs) {
    auto differ = [&](auto key) {
        std::optional<decltype(key(configs[0]))> seen;
        for (const AntennaConfig& c : configs) {
            auto k = key(c);
            if (!seen)
                seen = k;
            else if (*seen != k)
                return true;
        }
        return false;
    };
    auto mask = [](const AntennaConfig& c) {
        const auto& m = c.c1g2.mask;
        return m ? std::tuple(true, m->bank, m->bit_ptr, m->bit_len, m->bits)
                 : std::tuple(false, uint8_t(0), uint16_t(0), uint16_t(0), std::vector<uint8_t>{});
    };
    if (configs.empty()) return {};
    if (differ([](const AntennaConfig& c) { return c.power_index; }) ||
        differ([](const AntennaConfig& c) { return c.c1g2.session; }) ||
        differ([](const AntennaConfig& c) { return c.c1g2.tag_population; }) || differ(mask))
        return param_error(P_ParameterError, param::AntennaConfiguration,
                           "the antennas of an AISpec ask different settings: the reader has one radio for all");
    return {};
}

Error parse_aispec(std::string_view b, int depth, const ReaderFacts& f, AISpec& a) {
    Reader r(b);
    std::string_view ids = r.u16v();
    if (!r.ok()) return cut(param::AISpec);
    if (ids.empty()) return field_error(A_Invalid, param::AISpec, 0, "an AISpec needs antennas");
    bool all = false;
    for (size_t i = 0; i < ids.size(); i += 2) {
        int id = uint8_t(ids[i]) << 8 | uint8_t(ids[i + 1]);
        if (id > f.antenna_count)
            return field_error(A_OutOfRange, param::AISpec, 0, "no antenna " + std::to_string(id));
        all |= id == 0;
        if (id != 0 && std::find(a.antennas.begin(), a.antennas.end(), id) == a.antennas.end())
            a.antennas.push_back(id);
    }
    if (all) a.antennas.clear();
    bool stop = false;
    size_t ips = 0;
    Params ps = sub(r.rest(), depth);
    Param p;
    while (ps.next(p)) {
        Error e;
        if (p.type == param::AISpecStopTrigger) {
            if (stop) return twice(p.type);
            stop = true;
            e = parse_ai_stop(p.body, depth + 1, a);
        } else if (p.type == param::InventoryParameterSpec) {
            if (++ips > kMaxInventoryParameterSpecsPerAISpec)
                return param_error(P_OverflowParameter, p.type, "one InventoryParameterSpec per AISpec");
            e = parse_ips(p.body, depth + 1, f, a);
        } else {
            return refuse(p.type, param::AISpec);
        }
        if (e) return e;
    }
    if (!ps.ok()) return ps.error();
    if (!stop) return missing(param::AISpec, param::AISpecStopTrigger);
    if (ips == 0) return missing(param::AISpec, param::InventoryParameterSpec);
    return one_setting(a.configs);
}

Error parse_target(std::string_view b, std::vector<TargetTag>& out) {
    Reader r(b);
    uint8_t mb_m = r.u8();
    TargetTag t;
    t.match = mb_m & 0x20;
    t.pointer = r.u16();
    t.mask = r.bits(t.nbits);
    uint16_t data_bits = 0;
    t.data = r.bits(data_bits);
    if (!r.ok()) return cut(param::C1G2TargetTag);
    if (t.nbits == 0) return {};  // matches every tag
    if (mb_m >> 6 != 1)
        return field_error(A_Invalid, param::C1G2TargetTag, 0, "only the EPC bank can be matched against a tag read");
    if (data_bits != t.nbits)
        return field_error(A_Invalid, param::C1G2TargetTag, 5, "TagData must be as long as TagMask");
    out.push_back(std::move(t));
    return {};
}

Error parse_tagspec(std::string_view b, int depth, AccessSpec& s) {
    size_t n = 0;
    Params ps = sub(b, depth);
    Param p;
    while (ps.next(p)) {
        if (p.type != param::C1G2TargetTag) return refuse(p.type, param::C1G2TagSpec);
        if (++n > 2) return param_error(P_OverflowParameter, p.type, "a C1G2TagSpec has one or two C1G2TargetTags");
        if (Error e = parse_target(p.body, s.targets)) return e;
    }
    if (!ps.ok()) return ps.error();
    return n == 0 ? missing(param::C1G2TagSpec, param::C1G2TargetTag) : Error{};
}

Error parse_lock_payloads(std::string_view rest, int depth, AccessRequest& q) {
    Params ps = sub(rest, depth);
    Param p;
    bool any = false;
    while (ps.next(p)) {
        if (p.type != param::C1G2LockPayload) return refuse(p.type, param::C1G2Lock);
        Reader r(p.body);
        uint8_t privilege = r.u8(), field = r.u8();
        if (!r.ok()) return cut(p.type);
        if (privilege > 3) return field_error(A_OutOfRange, p.type, 0, "Privilege is 0 to 3");
        if (field > 4) return field_error(A_OutOfRange, p.type, 1, "DataField is 0 to 4");
        // Gen2's lock payload: two bits per field (password/write lock, permalock), kill password first.
        int at = 8 - 2 * field;
        static constexpr uint16_t action[] = {0b10, 0b11, 0b01, 0b00};  // read/write, permalock, permaunlock, unlock
        q.lock_mask |= uint16_t(0b11 << at);
        q.lock_action = uint16_t((q.lock_action & ~(0b11 << at)) | action[privilege] << at);
        any = true;
    }
    if (!ps.ok()) return ps.error();
    return any ? Error{} : missing(param::C1G2Lock, param::C1G2LockPayload);
}

Error parse_op(const Param& p, int depth, OpSpec& op) {
    Reader r(p.body);
    op.type = p.type;
    op.id = r.u16();
    AccessRequest& q = op.req;
    q.password = r.u32();
    if (p.type == param::C1G2Lock) {
        q.kind = AccessRequest::Lock;
        if (!r.ok()) return cut(p.type);
        return parse_lock_payloads(r.rest(), depth, q);
    }
    q.bank = r.u8() >> 6;
    q.word_ptr = r.u16();
    if (p.type == param::C1G2Read) {
        q.kind = AccessRequest::Read;
        q.word_count = r.u16();
    } else {
        q.kind = AccessRequest::Write;
        std::string_view words = r.u16v();
        q.data.assign(words.begin(), words.end());
        q.word_count = uint16_t(words.size() / 2);
        if (r.ok() && words.empty()) return field_error(A_Invalid, p.type, 4, "C1G2Write has no data to write");
    }
    if (!r.ok()) return cut(p.type);
    Params ps = sub(r.rest(), depth);
    Param extra;
    if (ps.next(extra)) return refuse(extra.type, p.type);
    return ps.error();
}

Error parse_command(std::string_view b, int depth, AccessSpec& s) {
    bool tagspec = false;
    Params ps = sub(b, depth);
    Param p;
    while (ps.next(p)) {
        Error e;
        if (!tagspec) {
            if (p.type != param::C1G2TagSpec) return missing(param::AccessCommand, param::C1G2TagSpec);
            tagspec = true;
            e = parse_tagspec(p.body, depth + 1, s);
        } else if (p.type == param::C1G2Read || p.type == param::C1G2Write || p.type == param::C1G2Lock) {
            if (s.ops.size() == kMaxOpSpecsPerAccessSpec)
                return param_error(P_OverflowParameter, p.type, "too many OpSpecs in one AccessSpec");
            s.ops.emplace_back();
            e = parse_op(p, depth + 1, s.ops.back());
        } else {
            return refuse(p.type, param::AccessCommand);
        }
        if (e) return e;
    }
    if (!ps.ok()) return ps.error();
    if (!tagspec) return missing(param::AccessCommand, param::C1G2TagSpec);
    return s.ops.empty() ? param_error(P_MissingParameter, param::AccessCommand, "AccessCommand has no OpSpec")
                         : Error{};
}

Error parse_access_part(const Param& p, int depth, AccessSpec& s) {
    Reader r(p.body);
    if (p.type == param::AccessSpecStopTrigger) {
        uint8_t type = r.u8();
        uint16_t count = r.u16();
        if (!r.ok()) return cut(p.type);
        if (type > 1) return field_error(A_OutOfRange, p.type, 0, "AccessSpecStopTriggerType is 0 or 1");
        s.op_count = type == 1 ? count : 0;
        return {};
    }
    if (p.type == param::AccessReportSpec) {
        uint8_t trigger = r.u8();
        if (!r.ok()) return cut(p.type);
        if (trigger > 1) return field_error(A_OutOfRange, p.type, 0, "AccessReportTrigger is 0 or 1");
        s.report_trigger = trigger;
        return {};
    }
    return parse_command(p.body, depth + 1, s);
}

}  // namespace

Error parse_rospec(std::string_view body, int depth, const ReaderFacts& f, ROSpec& s) {
    Reader r(body);
    s.id = r.u32();
    s.priority = r.u8();
    uint8_t state = r.u8();
    if (!r.ok()) return cut(param::ROSpec);
    if (s.id == 0) return field_error(A_Invalid, param::ROSpec, 0, "ROSpecID 0 is illegal");
    if (s.priority > 7) return field_error(A_OutOfRange, param::ROSpec, 1, "Priority is 0 to 7");
    if (state != ROSpec::Disabled) return field_error(A_Invalid, param::ROSpec, 2, "a ROSpec is added Disabled");
    bool boundary = false;
    Params ps = sub(r.rest(), depth);
    Param p;
    while (ps.next(p)) {
        Error e;
        if (p.type == param::ROBoundarySpec) {
            if (boundary) return twice(p.type);
            boundary = true;
            e = parse_boundary(p.body, depth + 1, s);
        } else if (p.type == param::AISpec) {
            if (s.ai.size() == kMaxSpecsPerROSpec) return param_error(P_OverflowParameter, p.type, "too many AISpecs");
            s.ai.emplace_back();
            e = parse_aispec(p.body, depth + 1, f, s.ai.back());
        } else if (p.type == param::ROReportSpec) {
            if (s.report) return twice(p.type);
            e = parse_ro_report_spec(p.body, depth + 1, s.report.emplace());
        } else {
            return refuse(p.type, param::ROSpec);
        }
        if (e) return e;
    }
    if (!ps.ok()) return ps.error();
    if (!boundary) return missing(param::ROSpec, param::ROBoundarySpec);
    if (s.ai.empty()) return missing(param::ROSpec, param::AISpec);
    s.body.assign(body);
    return {};
}

void write_rospec(Writer& w, const ROSpec& s) {
    size_t at = w.begin(param::ROSpec);
    std::string_view b = s.body;
    w.bytes(b.substr(0, 5));
    w.u8(s.state);
    w.bytes(b.substr(6));
    w.end(at);
}

Error parse_accessspec(std::string_view body, int depth, const ReaderFacts& f, AccessSpec& s) {
    Reader r(body);
    s.id = r.u32();
    s.antenna = r.u16();
    uint8_t protocol = r.u8();
    uint8_t state = r.u8();
    s.rospec_id = r.u32();
    if (!r.ok()) return cut(param::AccessSpec);
    if (s.id == 0) return field_error(A_Invalid, param::AccessSpec, 0, "AccessSpecID 0 is illegal");
    if (s.antenna > f.antenna_count)
        return field_error(A_OutOfRange, param::AccessSpec, 1, "no antenna " + std::to_string(s.antenna));
    if (protocol != 1)
        return field_error(A_OutOfRange, param::AccessSpec, 2, "ProtocolID: only EPCGlobal Class 1 Gen 2 (1)");
    if (state & 0x80) return field_error(A_Invalid, param::AccessSpec, 3, "an AccessSpec is added disabled");
    bool stop = false, command = false;
    Params ps = sub(r.rest(), depth);
    Param p;
    while (ps.next(p)) {
        if (p.type == param::AccessSpecStopTrigger) {
            if (stop) return twice(p.type);
            stop = true;
        } else if (p.type == param::AccessCommand) {
            if (command) return twice(p.type);
            command = true;
        } else if (p.type == param::AccessReportSpec) {
            if (s.report_trigger) return twice(p.type);
        } else {
            return refuse(p.type, param::AccessSpec);
        }
        if (Error e = parse_access_part(p, depth + 1, s)) return e;
    }
    if (!ps.ok()) return ps.error();
    if (!stop) return missing(param::AccessSpec, param::AccessSpecStopTrigger);
    if (!command) return missing(param::AccessSpec, param::AccessCommand);
    s.body.assign(body);
    return {};
}

void write_accessspec(Writer& w, const AccessSpec& s) {
    size_t at = w.begin(param::AccessSpec);
    std::string_view b = s.body;
    w.bytes(b.substr(0, 7));
    w.u8(s.active ? 0x80 : 0);
    w.bytes(b.substr(8));
    w.end(at);
}

bool matches(const AccessSpec& s, uint16_t pc, const uint8_t* epc, size_t n) {
    if (s.targets.empty()) return true;
    // The EPC bank as the tag holds it: CRC, PC, then the EPC.
    uint8_t bank[4 + 62];
    n = std::min(n, sizeof bank - 4);
    uint16_t crc = gen2_crc(pc, epc, n);
    bank[0] = uint8_t(crc >> 8), bank[1] = uint8_t(crc);
    bank[2] = uint8_t(pc >> 8), bank[3] = uint8_t(pc);
    std::copy(epc, epc + n, bank + 4);
    size_t bits = (4 + n) * 8;
    auto bit = [](const void* p, size_t i) { return (static_cast<const uint8_t*>(p)[i / 8] >> (7 - i % 8)) & 1; };
    for (const TargetTag& t : s.targets) {
        bool hit = size_t(t.pointer) + t.nbits <= bits;
        for (size_t i = 0; hit && i < t.nbits; i++)
            if (bit(t.mask.data(), i) && bit(bank, t.pointer + i) != bit(t.data.data(), i)) hit = false;
        if (hit != t.match) return false;
    }
    return true;
}

}  // namespace uhfd::llrp
