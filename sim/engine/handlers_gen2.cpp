// Gen2 block, FastID, TagFocus, EPC/TID/USER mode, inventory filter,
// dual/single mode, work mode and its parameters, work time, protocol type.
// Settings without a save byte are kept at once, as modules write them
// straight to flash.
#include "engine/handlers_common.h"

namespace uhfsim {

namespace {

constexpr uint8_t kDeviceSettings = 0xA1;

// 0x20: the 4-byte block (a preset may append 4 zero bytes). The Q limits
// must make sense: MinQ <= StartQ <= MaxQ.
std::string set_gen2(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.size() != 4 && d.size() != 8) return status(r, req, false, "bad length");
    const int start_q = d[1] >> 4, min_q = d[1] & 15, max_q = d[2] >> 4;
    if (min_q > start_q || start_q > max_q) return status(r, req, false, "Q limits out of order");
    keep(r, [&](Settings& s) { std::copy(d.begin(), d.begin() + 4, s.gen2.begin()); });
    return status(r, req, true, "");
}

// 0x22: the block alone, no status byte.
std::string get_gen2(VirtualReader& r, const Request& req) {
    r.reply(reply_code(req), r.settings().gen2);
    return "ok";
}

// 0x5C / 0x60: flag, 00.
std::string set_switch(VirtualReader& r, const Request& req, bool Settings::*field) {
    const auto d = req.data;
    if (d.size() != 2 || d[0] > 1) return status(r, req, false, "bad flag");
    keep(r, [&](Settings& s) { s.*field = d[0] != 0; });
    return status(r, req, true, "");
}

std::string get_switch(VirtualReader& r, const Request& req, bool Settings::*field) {
    r.reply(reply_code(req), {kAccepted, static_cast<uint8_t>(r.settings().*field)});
    return "ok";
}

// 0x70: save, mode 0..2, and optionally the USER word address and count.
std::string set_report_mode(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if ((d.size() != 2 && d.size() != 4) || d[1] > 2) return status(r, req, false, "bad mode");
    r.state().apply(d[0] != 0, [&](Settings& s) {
        s.inventory_mode = static_cast<InventoryMode>(d[1]);
        if (d.size() == 4) {
            s.user_addr = d[2];
            s.user_words = d[3];
        }
    });
    return status(r, req, true, "");
}

std::string get_report_mode(VirtualReader& r, const Request& req) {
    const Settings& s = r.settings();
    r.reply(reply_code(req), {kAccepted, static_cast<uint8_t>(s.inventory_mode), s.user_addr, s.user_words});
    return "ok";
}

// 0x6E: save, bank, bit address, bit length, ceil(length / 8) mask bytes.
// A length of 0 lifts the filter.
std::string set_filter(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.size() < 6 || d[1] > 3) return status(r, req, false, "bad filter");
    const uint16_t bits = get16(d, 4);
    if (d.size() != 6u + (bits + 7u) / 8u) return status(r, req, false, "mask length does not match");
    InventoryFilter f{static_cast<Bank>(d[1]), get16(d, 2), bits, std::vector<uint8_t>(d.begin() + 6, d.end())};
    r.state().apply(d[0] != 0, [&](Settings& s) { s.filter = f; });
    return status(r, req, true, "");
}

// 0x6A: save, mode 0 (single) or 1 (dual).
std::string set_dual_single(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.size() != 2 || d[1] > 1) return status(r, req, false, "bad mode");
    r.state().apply(d[0] != 0, [&](Settings& s) { s.dual_single = d[1]; });
    return status(r, req, true, "");
}

std::string get_dual_single(VirtualReader& r, const Request& req) {
    r.reply(reply_code(req), {kAccepted, r.settings().dual_single});
    return "ok";
}

// 0xA1 05: work mode 0..2 (command, automatic, triggered).
std::string set_work_mode(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.size() != 2 || d[1] > 2) return status(r, req, false, "bad mode");
    keep(r, [&](Settings& s) { s.work_mode = d[1]; });
    return status(r, req, true, "");
}

// Get-sub-commands of 0xA1 echo the sub-command where others put a status.
std::string get_work_mode(VirtualReader& r, const Request& req) {
    r.reply(reply_code(req), {req.data[0], r.settings().work_mode});
    return "ok";
}

std::string set_work_mode_para(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.size() != 7) return status(r, req, false, "bad length");
    keep(r, [&](Settings& s) { std::copy(d.begin() + 1, d.end(), s.work_mode_para.begin()); });
    return status(r, req, true, "");
}

std::string get_work_mode_para(VirtualReader& r, const Request& req) {
    std::vector<uint8_t> out{req.data[0]};
    out.insert(out.end(), r.settings().work_mode_para.begin(), r.settings().work_mode_para.end());
    r.reply(reply_code(req), out);
    return "ok";
}

// 0x3C: save, then the 4 work-time bytes that 0x3E hands back.
std::string set_work_time(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.size() != 5) return status(r, req, false, "bad length");
    r.state().apply(d[0] != 0, [&](Settings& s) { std::copy(d.begin() + 1, d.end(), s.work_time.begin()); });
    return status(r, req, true, "");
}

std::string get_work_time(VirtualReader& r, const Request& req) {
    std::vector<uint8_t> out{kAccepted};
    out.insert(out.end(), r.settings().work_time.begin(), r.settings().work_time.end());
    r.reply(reply_code(req), out);
    return "ok";
}

// 0x06 00 type: the reply echoes the 00 and puts the status second.
std::string set_protocol_type(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    const bool ok = d.size() == 2 && d[1] <= 2;
    if (ok) keep(r, [&](Settings& s) { s.protocol_type = d[1]; });
    r.reply(reply_code(req), {0x00, ok ? kAccepted : kRejected});
    return ok ? "ok" : "bad protocol type";
}

std::string get_protocol_type(VirtualReader& r, const Request& req) {
    r.reply(reply_code(req), {kAccepted, r.settings().protocol_type});
    return "ok";
}

}  // namespace

void register_gen2(Dispatcher& d) {
    d.on(0x20, "set Gen2", set_gen2);
    d.on(0x22, "get Gen2", get_gen2);
    d.on(0x5C, "set FastID", [](VirtualReader& r, const Request& q) { return set_switch(r, q, &Settings::fast_id); });
    d.on(0x5E, "get FastID", [](VirtualReader& r, const Request& q) { return get_switch(r, q, &Settings::fast_id); });
    d.on(0x60, "set TagFocus",
         [](VirtualReader& r, const Request& q) { return set_switch(r, q, &Settings::tag_focus); });
    d.on(0x62, "get TagFocus",
         [](VirtualReader& r, const Request& q) { return get_switch(r, q, &Settings::tag_focus); });
    d.on(0x70, "set report mode", set_report_mode);
    d.on(0x72, "get report mode", get_report_mode);
    d.on(0x6E, "set filter", set_filter);
    d.on(0x6A, "set dual/single mode", set_dual_single);
    d.on(0x6C, "get dual/single mode", get_dual_single);
    d.on_sub(kDeviceSettings, 0x05, "set work mode", set_work_mode);
    d.on_sub(kDeviceSettings, 0x06, "get work mode", get_work_mode);
    d.on_sub(kDeviceSettings, 0x0B, "set work mode parameters", set_work_mode_para);
    d.on_sub(kDeviceSettings, 0x0C, "get work mode parameters", get_work_mode_para);
    d.on(0x3C, "set work time", set_work_time);
    d.on(0x3E, "get work time", get_work_time);
    // 0x06 also carries tag commands; these two sub-commands are the protocol type.
    d.on_sub(0x06, 0x00, "set protocol type", set_protocol_type);
    d.on_sub(0x06, 0x01, "get protocol type", get_protocol_type);
}

}  // namespace uhfsim
