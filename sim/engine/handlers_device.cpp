// Identity and status: versions, device id, temperature.
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

}  // namespace

void register_device(Dispatcher& d) {
  d.on(0x00, "get hardware version", hardware_version);
  d.on(0x02, "get software version", software_version);
  d.on(0xC8, "get module version", module_version);
  d.on(0x04, "get device id", device_id);
  d.on(0x34, "get temperature", temperature);
}

}  // namespace uhfsim
