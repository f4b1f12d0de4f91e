// Identity and status: versions, device id, temperature, supply voltage;
// temperature protection, beeper, digital outputs, the user-parameter block.
#include "engine/handlers_common.h"

namespace uhfsim {

namespace {

std::string hardware_version(VirtualReader& r, const Request& req) {
    const auto& v = r.state().identity.hardware_version;
    r.reply(reply_code(req), v);
    return "ok";
}

std::string software_version(VirtualReader& r, const Request& req) {
    const auto& v = r.state().identity.software_version;
    r.reply(reply_code(req), v);
    return "ok";
}

// 0xC8: three version numbers, then typed items (type, length, bytes).
// Item type 0x01 carries the module name.
std::string module_version(VirtualReader& r, const Request& req) {
    const auto& id = r.state().identity;
    std::vector<uint8_t> out(id.module_version.begin(), id.module_version.end());
    const size_t n = std::min<size_t>(id.module_name.size(), 64);
    out.push_back(0x01);
    out.push_back(static_cast<uint8_t>(n));
    out.insert(out.end(), id.module_name.begin(), id.module_name.begin() + static_cast<std::ptrdiff_t>(n));
    r.reply(reply_code(req), out);
    return "ok";
}

std::string device_id(VirtualReader& r, const Request& req) {
    const uint32_t id = r.state().identity.device_id;
    r.reply(reply_code(req), {static_cast<uint8_t>(id >> 24), static_cast<uint8_t>(id >> 16),
                              static_cast<uint8_t>(id >> 8), static_cast<uint8_t>(id)});
    return "ok";
}

std::string temperature(VirtualReader& r, const Request& req) {
    std::vector<uint8_t> out{kAccepted};
    put16(out, static_cast<uint16_t>(r.state().temperature_centi));
    r.reply(reply_code(req), out);
    return "ok";
}

// 0x08 01: 01 01, then the supply voltage as a signed 16-bit value.
std::string voltage(VirtualReader& r, const Request& req) {
    if (req.data.empty() || req.data[0] != 0x01) {
        r.reply(reply_code(req), {kAccepted, kRejected});
        return "unknown voltage query";
    }
    std::vector<uint8_t> out{kAccepted, 0x01};
    put16(out, static_cast<uint16_t>(r.state().supply_voltage));
    r.reply(reply_code(req), out);
    return "ok";
}

std::string set_temperature_protect(VirtualReader& r, const Request& req) {
    if (req.data.size() != 1) return status(r, req, false, "bad length");
    r.state().apply(true, [&](Settings& s) { s.temperature_protect = req.data[0]; });
    return status(r, req, true, "");
}

std::string get_temperature_protect(VirtualReader& r, const Request& req) {
    r.reply(reply_code(req), {kAccepted, r.settings().temperature_protect});
    return "ok";
}

// Sub-commands of 0xA1: the set answers 01, the query echoes its sub-command.
std::string set_beep(VirtualReader& r, const Request& req) {
    if (req.data.size() != 2) return status(r, req, false, "bad length");
    r.state().apply(true, [&](Settings& s) { s.beep_mode = req.data[1]; });
    return status(r, req, true, "");
}

std::string get_beep(VirtualReader& r, const Request& req) {
    r.reply(reply_code(req), {req.data[0], r.settings().beep_mode});
    return "ok";
}

// 0xA1 09 out1 out2 level: every output whose byte is non-zero takes the
// level (0 low, 1 high). Live only: a restart drops the outputs to low.
std::string set_outputs(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.size() != 4) return status(r, req, false, "bad length");
    if (d[3] > 1) return status(r, req, false, "bad level");
    r.state().apply(false, [&](Settings& s) {
        for (size_t k = 0; k < 2; ++k)
            if (d[1 + k] != 0) s.outputs[k] = d[3];
    });
    return status(r, req, true, "");
}

std::string get_outputs(VirtualReader& r, const Request& req) {
    const auto& o = r.settings().outputs;
    r.reply(reply_code(req), {req.data[0], o[0], o[1]});
    return "ok";
}

// 0xF0 01 block: store; answers 01 00, or 01 01 for a block that is too long.
std::string upload_user_params(VirtualReader& r, const Request& req) {
    const auto block = req.data.subspan(1);
    if (block.size() > kMaxUserParams) {
        r.reply(reply_code(req), {kAccepted, 0x01});
        return "block too long";
    }
    r.state().apply(true, [&](Settings& s) { s.user_params.assign(block.begin(), block.end()); });
    r.reply(reply_code(req), {kAccepted, 0x00});
    return "ok";
}

// 0xF0 02: 02 00, then the stored block.
std::string download_user_params(VirtualReader& r, const Request& req) {
    std::vector<uint8_t> out{0x02, 0x00};
    const auto& block = r.settings().user_params;
    out.insert(out.end(), block.begin(), block.end());
    r.reply(reply_code(req), out);
    return "ok";
}

}  // namespace

void register_device(Dispatcher& d) {
    d.on(0x00, "get hardware version", hardware_version);
    d.on(0x02, "get software version", software_version);
    d.on(0xC8, "get module version", module_version);
    d.on(0x04, "get device id", device_id);
    d.on(0x34, "get temperature", temperature);
    d.on(0x08, "get supply voltage", voltage);
    d.on(0x38, "set temperature protection", set_temperature_protect);
    d.on(0x3A, "get temperature protection", get_temperature_protect);
    d.on_sub(0xA1, 0x07, "set beeper", set_beep);
    d.on_sub(0xA1, 0x08, "get beeper", get_beep);
    d.on_sub(0xA1, 0x09, "set outputs", set_outputs);
    d.on_sub(0xA1, 0x0A, "get outputs", get_outputs);
    d.on_sub(0xF0, 0x01, "upload user parameters", upload_user_params);
    d.on_sub(0xF0, 0x02, "download user parameters", download_user_params);
}

}  // namespace uhfsim
