// Frequency hopping, RF link preset, CW, generic parameters, protocol
// configuration, and the power-amplifier status over the escaped frame.
// Settings without a save byte are kept at once, as modules write them
// straight to flash; only the carrier switch is never kept.
#include "engine/handlers_common.h"

namespace uhfsim {

namespace {

uint32_t get24(std::span<const uint8_t> d, size_t at) { return static_cast<uint32_t>(d[at]) << 16 | get16(d, at + 1); }

// 0x14: count, then 3-byte frequencies in kHz, all inside the region's band.
std::string set_hop_table(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.empty() || d[0] == 0 || d.size() != 1 + 3u * d[0]) return status(r, req, false, "bad length");
    std::vector<uint32_t> table;
    for (size_t i = 1; i < d.size(); i += 3) {
        const uint32_t f = get24(d, i);
        if (!in_region(r.settings().region, f)) return status(r, req, false, "frequency outside the region");
        table.push_back(f);
    }
    keep(r, [&](Settings& s) { s.hop_table = table; });
    return status(r, req, true, "");
}

// 0x16: no status byte, the count then the frequencies.
std::string get_hop_table(VirtualReader& r, const Request& req) {
    const auto& table = r.settings().hop_table;
    std::vector<uint8_t> out{static_cast<uint8_t>(table.size())};
    for (uint32_t f : table) {
        out.push_back(static_cast<uint8_t>(f >> 16));
        put16(out, static_cast<uint16_t>(f));
    }
    r.reply(reply_code(req), out);
    return "ok";
}

// 0x52: 00, save, preset 0..3.
std::string set_rf_link(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.size() != 3 || d[2] > 3) return status(r, req, false, "bad preset");
    r.state().apply(d[1] != 0, [&](Settings& s) { s.rf_link = d[2]; });
    return status(r, req, true, "");
}

std::string get_rf_link(VirtualReader& r, const Request& req) {
    r.reply(reply_code(req), {kAccepted, 0x00, r.settings().rf_link});
    return "ok";
}

std::string set_cw(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.size() != 1 || d[0] > 1) return status(r, req, false, "bad flag");
    r.settings().cw = d[0] != 0;
    return status(r, req, true, "");
}

// 0x26: the flag alone, no status byte.
std::string get_cw(VirtualReader& r, const Request& req) {
    r.reply(reply_code(req), {static_cast<uint8_t>(r.settings().cw)});
    return "ok";
}

std::array<uint8_t, 5> param_key(std::span<const uint8_t> d) { return {d[0], d[1], d[2], d[3], d[4]}; }

// 0x18: type, 4-byte id, 4-byte value.
std::string set_param(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.size() != 9) return status(r, req, false, "bad length");
    const std::array<uint8_t, 4> value{d[5], d[6], d[7], d[8]};
    keep(r, [&](Settings& s) { s.params[param_key(d)] = value; });
    return status(r, req, true, "");
}

// 0x1A: type, id -> status, the id echoed, the value. Unknown keys are refused.
std::string get_param(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.size() != 5) return status(r, req, false, "bad length");
    const auto& params = r.settings().params;
    const auto it = params.find(param_key(d));
    if (it == params.end()) return status(r, req, false, "no such parameter");
    std::vector<uint8_t> out{kAccepted, d[1], d[2], d[3], d[4]};
    out.insert(out.end(), it->second.begin(), it->second.end());
    r.reply(reply_code(req), out);
    return "ok";
}

// Escaped frame AA len code [data] [crc16] 55. In CRC mode the code has bit 7
// set and a CRC-16 over length..data follows; the answer uses the same mode.
std::string escaped(VirtualReader& r, const Frame& f) {
    const auto& body = f.data;  // length byte first, unescaped
    const bool crc_mode = (f.code & 0x80) != 0;
    if (crc_mode) {
        if (body.size() < 4) return "escaped frame too short for its CRC";
        const size_t n = body.size() - 2;
        if (gen2_crc16(std::span(body).first(n)) != get16(body, n)) return "escaped frame with a bad CRC";
    }
    if ((f.code & 0x7F) != 0x00) return "escaped command not handled";
    std::vector<uint8_t> out{0x03, f.code, r.state().pa_status};
    if (crc_mode) {
        out[0] = 0x05;
        put16(out, gen2_crc16(out));
    }
    r.send_raw(encode_escaped(out));
    return "amplifier status";
}

}  // namespace

// 0xC0 with two bytes (value, 00); the firmware handler of 0xC0 routes this
// form here, since its one-byte form is the boot-loader jump.
std::string protocol_configuration(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.size() != 2) return status(r, req, false, "not a protocol configuration");
    keep(r, [&](Settings& s) { s.protocol_config = d[0]; });
    return status(r, req, true, "");
}

void register_rf_link(Dispatcher& d) {
    d.on(0x14, "set hopping table", set_hop_table);
    d.on(0x16, "get hopping table", get_hop_table);
    d.on(0x52, "set RF link", set_rf_link);
    d.on(0x54, "get RF link", get_rf_link);
    d.on(0x24, "set CW", set_cw);
    d.on(0x26, "get CW", get_cw);
    d.on(0x18, "set parameter", set_param);
    d.on(0x1A, "get parameter", get_param);
    d.on_frame(FrameKind::Escaped, escaped);
}

}  // namespace uhfsim
