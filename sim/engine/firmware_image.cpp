#include "engine/firmware_image.h"

#include <algorithm>

namespace uhfsim {

namespace {

constexpr std::array<uint8_t, 4> kMagic{'U', 'H', 'F', 'I'};

void put32(std::vector<uint8_t>& out, uint32_t v) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(v >> shift));
}

uint32_t get32(std::span<const uint8_t> d, size_t at) {
    return uint32_t{d[at]} << 24 | uint32_t{d[at + 1]} << 16 | uint32_t{d[at + 2]} << 8 | d[at + 3];
}

}  // namespace

uint32_t crc32(std::span<const uint8_t> bytes) {
    uint32_t crc = 0xFFFFFFFFu;
    for (uint8_t b : bytes) {
        crc ^= b;
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

std::vector<uint8_t> build_image(std::array<uint8_t, 3> version, std::span<const uint8_t> payload, bool pad_to_blocks) {
    // Sized once up front: growing a 4-byte vector by inserts is correct, but
    // GCC 12's optimiser then reports a false out-of-bounds copy.
    std::vector<uint8_t> out;
    out.reserve(kImageHeaderLen + payload.size() + kImageBlockLen);
    for (uint8_t b : kMagic) out.push_back(b);
    for (uint8_t b : version) out.push_back(b);
    out.push_back(0);
    put32(out, static_cast<uint32_t>(payload.size()));
    put32(out, crc32(payload));
    out.insert(out.end(), payload.begin(), payload.end());
    if (pad_to_blocks) out.resize((out.size() + kImageBlockLen - 1) / kImageBlockLen * kImageBlockLen, 0xFF);
    return out;
}

std::optional<std::array<uint8_t, 3>> check_image(std::span<const uint8_t> image) {
    if (image.size() < kImageHeaderLen) return std::nullopt;
    if (!std::equal(kMagic.begin(), kMagic.end(), image.begin()) || image[7] != 0) return std::nullopt;
    const uint32_t len = get32(image, 8);
    if (len > image.size() - kImageHeaderLen) return std::nullopt;
    if (crc32(image.subspan(kImageHeaderLen, len)) != get32(image, 12)) return std::nullopt;
    return std::array<uint8_t, 3>{image[4], image[5], image[6]};
}

}  // namespace uhfsim
