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

// 0xA1 01 ip port [mask gateway]: the short form keeps mask and gateway.
std::string set_own(VirtualReader& r, const Request& req) {
  const auto d = req.data;
  if (d.size() != 7 && d.size() != 15) return status(r, req, false, "bad length");
  r.state().apply(true, [&](Settings& s) {
    take(s.own.ip, d, 1);
    take(s.own.port, d, 5);
    if (d.size() == 15) {
      take(s.own.mask, d, 7);
      take(s.own.gateway, d, 11);
    }
  });
  return status(r, req, true, "");
}

std::string get_own(VirtualReader& r, const Request& req) {
  const NetAddress& a = r.settings().own;
  std::vector<uint8_t> out{req.data[0]};
  give(out, a.ip);
  give(out, a.port);
  give(out, a.mask);
  give(out, a.gateway);
  r.reply(reply_code(req), out);
  return "ok";
}

std::string set_destination(VirtualReader& r, const Request& req) {
  const auto d = req.data;
  if (d.size() != 7) return status(r, req, false, "bad length");
  r.state().apply(true, [&](Settings& s) {
    take(s.destination.ip, d, 1);
    take(s.destination.port, d, 5);
  });
  return status(r, req, true, "");
}

std::string get_destination(VirtualReader& r, const Request& req) {
  const NetAddress& a = r.settings().destination;
  std::vector<uint8_t> out{req.data[0]};
  give(out, a.ip);
  give(out, a.port);
  r.reply(reply_code(req), out);
  return "ok";
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
