// One request/response exchange of a command on the selected link.
#pragma once

#include "terminal.h"
#include "uhf/reply.h"
#include "uhf/request.h"

namespace uhf {

constexpr uint16_t kDefaultTimeoutMs = 1500;
// The status byte most replies carry first when the reader accepted a request.
constexpr uint8_t kAccepted = 0x01;
// The device-settings command: its first data byte selects a sub-command.
constexpr uint8_t kCmdDeviceSettings = 0xA1;

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

// The common shape of a command: exchange, then demand that the first reply
// byte is `status` (0x01 "accepted", or the echoed sub-command of a query).
// Every failure, a reply with another code included, is -1.
inline int transact_status(uint8_t cmd, const Request& req, Reply& out, uint8_t status,
                           uint16_t timeout_ms = kDefaultTimeoutMs) {
    return transact(cmd, req, out, timeout_ms) == 0 && out.is(0, status) ? 0 : -1;
}

inline int transact_status(uint8_t cmd, Reply& out, uint8_t status, uint16_t timeout_ms = kDefaultTimeoutMs) {
    return transact(cmd, out, timeout_ms) == 0 && out.is(0, status) ? 0 : -1;
}

// A query by sub-command (as in the device-settings command 0xA1): the request
// is the sub-command byte alone and the reply must echo it first.
inline int transact_query(uint8_t cmd, uint8_t sub, Reply& out) {
    RequestBuf<1> req;
    req.u8(sub);
    return transact_status(cmd, req, out, sub);
}

// transact_status, and the reply holds at least min_len bytes.
inline int query(uint8_t cmd, const Request& req, Reply& out, size_t min_len, uint8_t status = kAccepted) {
    return transact_status(cmd, req, out, status) == 0 && out.has(min_len) ? 0 : -1;
}

inline int query(uint8_t cmd, Reply& out, size_t min_len, uint8_t status = kAccepted) {
    return transact_status(cmd, out, status) == 0 && out.has(min_len) ? 0 : -1;
}

// A set-command: 0 when the reader accepted it, else -1.
inline int set(uint8_t cmd, const Request& req) {
    Reply out;
    return transact_status(cmd, req, out, kAccepted);
}

}  // namespace uhf
