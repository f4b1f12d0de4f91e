// Tag reports in the escaped AA..55 form, for readers set to stream them
// (Settings::escaped_reports) instead of 0x83/0x7F command frames.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "engine/tag_field.h"

namespace uhfsim {

class VirtualReader;

// AA, length, code, data, [CRC-16 high, low], 55 (escaped as the frame codec
// does). The length counts itself, the code, the data and the CRC; the CRC
// (EPC Gen2) covers length, code and data.
std::vector<uint8_t> escaped_frame(uint8_t code, std::span<const uint8_t> data, bool crc);

// One tag read: code 0x91 (0x11 without CRC), or 0xA6 (0x26) for a sensor
// tag; data = status 00, then the report as 0x83/0x7F frames carry it.
std::vector<uint8_t> escaped_tag_frame(VirtualReader& r, const Tag& tag, int antenna);

}  // namespace uhfsim
