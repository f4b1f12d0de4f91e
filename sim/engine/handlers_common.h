// Small helpers shared by the handler files.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "engine/virtual_reader.h"

namespace uhfsim {

constexpr uint8_t kAccepted = 0x01;
constexpr uint8_t kRejected = 0x00;

inline void put16(std::vector<uint8_t>& out, uint16_t v) {
    out.push_back(static_cast<uint8_t>(v >> 8));
    out.push_back(static_cast<uint8_t>(v & 0xFF));
}

inline uint16_t get16(std::span<const uint8_t> d, size_t at) { return static_cast<uint16_t>(d[at] << 8 | d[at + 1]); }

inline uint8_t reply_code(const Request& req) { return static_cast<uint8_t>(req.code + 1); }

// Answers with a lone status byte and returns the log word.
inline std::string status(VirtualReader& r, const Request& req, bool ok, const char* why_not) {
    r.reply(reply_code(req), {ok ? kAccepted : kRejected});
    return ok ? "ok" : why_not;
}

// Applies a setting whose command has no save byte: modules keep those at once.
template <typename F>
void keep(VirtualReader& r, F&& change) {
    r.state().apply(true, change);
}

// 0xC0's two-byte form (handlers_rf_link.cpp); the firmware family owns 0xC0.
std::string protocol_configuration(VirtualReader& r, const Request& req);

inline bool valid_antenna(VirtualReader& r, int ant) {
    return ant >= 1 && ant <= r.state().identity.antenna_count && ant <= kMaxAntennas;
}

}  // namespace uhfsim
