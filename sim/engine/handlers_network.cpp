// Network settings (0xA1 sub-commands 01-04), soft reset and factory settings.
#include <algorithm>

#include "engine/handlers_common.h"

namespace uhfsim {

namespace {

template <size_t N>
void take(std::array<uint8_t, N>& dst, std::span<const uint8_t> d, size_t at) {
    std::copy_n(d.begin() + static_cast<std::ptrdiff_t>(at), N, dst.begin());
}

template <size_t N>
void give(std::vector<uint8_t>& out, const std::array<uint8_t, N>& src) {
    out.insert(out.end(), src.begin(), src.end());
}

// Sub-command, ip, port, and for the own address optionally mask and
// gateway; the short form keeps mask and gateway.
std::string set_address(VirtualReader& r, const Request& req, NetAddress Settings::*which, bool long_form) {
    const auto d = req.data;
    if (d.size() != 7 && !(long_form && d.size() == 15)) return status(r, req, false, "bad length");
    r.state().apply(true, [&](Settings& s) {
        NetAddress& a = s.*which;
        take(a.ip, d, 1);
        take(a.port, d, 5);
        if (d.size() == 15) {
            take(a.mask, d, 7);
            take(a.gateway, d, 11);
        }
    });
    return status(r, req, true, "");
}

// The query's sub-command echoed, then the address; mask and gateway only
// for the reader's own address.
std::string reply_address(VirtualReader& r, const Request& req, const NetAddress& a, bool with_mask) {
    std::vector<uint8_t> out{req.data[0]};
    give(out, a.ip);
    give(out, a.port);
    if (with_mask) {
        give(out, a.mask);
        give(out, a.gateway);
    }
    r.reply(reply_code(req), out);
    return "ok";
}

std::string set_own(VirtualReader& r, const Request& req) { return set_address(r, req, &Settings::own, true); }

std::string get_own(VirtualReader& r, const Request& req) { return reply_address(r, req, r.settings().own, true); }

std::string set_destination(VirtualReader& r, const Request& req) {
    return set_address(r, req, &Settings::destination, false);
}

std::string get_destination(VirtualReader& r, const Request& req) {
    return reply_address(r, req, r.settings().destination, false);
}

// The reply leaves before the restart, as a module acknowledges and then reboots.
std::string soft_reset(VirtualReader& r, const Request& req) {
    r.reply(reply_code(req), {kAccepted});
    r.restart();
    return "ok, restarted";
}

std::string default_mode(VirtualReader& r, const Request& req) {
    r.state().factory_reset();
    return status(r, req, true, "");
}

}  // namespace

void register_network(Dispatcher& d) {
    d.on_sub(0xA1, 0x01, "set own address", set_own);
    d.on_sub(0xA1, 0x02, "get own address", get_own);
    d.on_sub(0xA1, 0x03, "set destination address", set_destination);
    d.on_sub(0xA1, 0x04, "get destination address", get_destination);
    d.on(0x68, "soft reset", soft_reset);
    d.on(0x74, "factory settings", default_mode);
}

}  // namespace uhfsim
