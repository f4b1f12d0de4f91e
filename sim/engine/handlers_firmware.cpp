// Firmware upgrade: 0xC0 enters the boot loader, 0xC2 starts, 0xC4 appends a
// block, 0xC6 ends and checks the image (format in engine/firmware_image.h).
#include "engine/firmware_image.h"
#include "engine/handlers_common.h"

namespace uhfsim {

namespace {

constexpr size_t kMaxImage = 1u << 20;

bool valid_target(uint8_t t) { return t == 0xEE || t == 0xCC || t == 0xBB || t == 0xAA; }

// A refused image is reported once, by the next upgrade request answered
// with a status, so a host that sent 0xC6 without waiting still learns of it.
bool report_refused_image(VirtualReader& r, const Request& req) {
    auto& boot = r.state().boot;
    if (!boot.last_failed) return false;
    boot.last_failed = false;
    r.reply(reply_code(req), {kRejected});
    return true;
}

std::string jump_to_boot(VirtualReader& r, const Request& req) {
    // 0xC0 is shared: its two-byte form is the protocol configuration.
    if (req.data.size() == 2) return protocol_configuration(r, req);
    if (req.data.size() != 1) return status(r, req, false, "not a boot request");
    if (report_refused_image(r, req)) return "last image was refused";
    if (!valid_target(req.data[0])) return status(r, req, false, "unknown boot target");
    auto& boot = r.state().boot;
    boot = {};
    boot.active = true;
    boot.target = req.data[0];
    return status(r, req, true, "");
}

std::string start_update(VirtualReader& r, const Request& req) {
    if (report_refused_image(r, req)) return "last image was refused";
    auto& boot = r.state().boot;
    if (!boot.active) return status(r, req, false, "not in the boot loader");
    boot.receiving = true;
    boot.image.clear();
    return status(r, req, true, "");
}

std::string image_block(VirtualReader& r, const Request& req) {
    if (report_refused_image(r, req)) return "last image was refused";
    auto& boot = r.state().boot;
    if (!boot.receiving) return status(r, req, false, "no update started");
    if (req.data.size() > kMaxImage - boot.image.size()) return status(r, req, false, "image too large");
    boot.image.insert(boot.image.end(), req.data.begin(), req.data.end());
    return status(r, req, true, "");
}

// Answers 01 and restarts on the new version, or 00 and stays on the old one.
std::string end_update(VirtualReader& r, const Request& req) {
    auto& state = r.state();
    if (!state.boot.receiving) return status(r, req, false, "no update started");
    const auto version = check_image(state.boot.image);
    if (!version) {
        state.boot = {};
        state.boot.last_failed = true;
        return status(r, req, false, "image refused");
    }
    state.identity.software_version = *version;
    r.reply(reply_code(req), {kAccepted});
    r.restart();
    return "ok, new firmware running";
}

}  // namespace

void register_firmware(Dispatcher& d) {
    d.on(0xC0, "enter boot loader", jump_to_boot);
    d.on(0xC2, "start update", start_update);
    d.on(0xC4, "image block", image_block);
    d.on(0xC6, "end update", end_update);
}

}  // namespace uhfsim
