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

}  // namespace uhf
