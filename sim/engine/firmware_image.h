// The firmware image the virtual reader's boot loader accepts: a 16-byte
// header, then the payload; anything after the payload is transfer padding.
//
//   0  4  magic "UHFI"
//   4  3  software version the image carries (major, minor, patch)
//   7  1  format, 0
//   8  4  payload length, big-endian
//  12  4  CRC-32 of the payload, big-endian (IEEE 802.3: reflected 0x04C11DB7,
//         init 0xFFFFFFFF, final XOR 0xFFFFFFFF; "123456789" gives 0xCBF43926)
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace uhfsim {

constexpr size_t kImageHeaderLen = 16;
constexpr size_t kImageBlockLen = 64;  // what UHFUpdating sends per block

uint32_t crc32(std::span<const uint8_t> bytes);

// Header plus payload, padded with 0xFF to whole 64-byte blocks when asked.
std::vector<uint8_t> build_image(std::array<uint8_t, 3> version, std::span<const uint8_t> payload,
                                 bool pad_to_blocks = true);

// The version an image carries, or nullopt when its magic, format, length or
// CRC does not hold.
std::optional<std::array<uint8_t, 3>> check_image(std::span<const uint8_t> image);

}  // namespace uhfsim
