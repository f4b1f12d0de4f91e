// One request/response exchange of a command on the selected link.
#pragma once

#include "terminal.h"
#include "uhf/reply.h"
#include "uhf/request.h"

namespace uhf {

constexpr uint16_t kDefaultTimeoutMs = 1500;

// Sends req with code cmd and waits for code cmd + 1. Returns 0 when a reply
// arrived (its data in out), -1 when req overflowed its buffer (nothing is
// sent) or the exchange failed, -4 when only other codes answered.
inline int transact(uint8_t cmd, const Request& req, Reply& out, uint16_t timeout_ms = kDefaultTimeoutMs) {
    if (!req.ok() || req.size() > 0xFFFF) return -1;
    return ExternalSend(cmd, req.data(), static_cast<uint16_t>(req.size()), out.raw(), out.raw_len(), timeout_ms);
}

// A command with no request data.
inline int transact(uint8_t cmd, Reply& out, uint16_t timeout_ms = kDefaultTimeoutMs) {
    return ExternalSend(cmd, nullptr, 0, out.raw(), out.raw_len(), timeout_ms);
}

// An exchange whose reply must start with status and hold at least min_len
// bytes: 0 when it did, -1 for any failure (-4 included).
inline int query(uint8_t cmd, const Request& req, Reply& out, size_t min_len, uint8_t status = 0x01) {
    if (transact(cmd, req, out) != 0) return -1;
    return out.is(0, status) && out.has(min_len) ? 0 : -1;
}

inline int query(uint8_t cmd, Reply& out, size_t min_len, uint8_t status = 0x01) {
    if (transact(cmd, out) != 0) return -1;
    return out.is(0, status) && out.has(min_len) ? 0 : -1;
}

// A set-command: 0 when the reader answered with the accepted status 0x01.
inline int set(uint8_t cmd, const Request& req) {
    Reply out;
    return query(cmd, req, out, 1);
}

}  // namespace uhf
