// What the packaged protocol offers beyond answering requests.
#pragma once

#include <cstdint>
#include <span>

namespace uhfsim {

class VirtualReader;

// Sends the unsolicited type-5 upgrade-information package: operation,
// error, then info.
void send_upgrade_info(VirtualReader& r, uint8_t operation, uint8_t error, std::span<const uint8_t> info);

}  // namespace uhfsim
