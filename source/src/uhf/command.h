// One request/response exchange of a command on the selected link.
#pragma once

#include "log.h"
#include "terminal.h"
#include "uhf/reply.h"
#include "uhf/request.h"

namespace uhf {

// Why an exchange of command cmd failed, under the function category:
// every failing command says what went wrong, and nothing is printed while
// the category is off.
inline int trace_exchange(uint8_t cmd, int r, uint16_t timeout_ms) {
    if (r == -1) UHF_LOG(kLogFunction, "cmd 0x%02X: no reply in %u ms", cmd, timeout_ms);
    if (r == -4) UHF_LOG(kLogFunction, "cmd 0x%02X: another code answered", cmd);
    return r;
}

inline int trace_status(uint8_t cmd, const Reply& out, uint8_t status) {
    if (out.is(0, status)) return 0;
    if (out.size() == 0)
        UHF_LOG(kLogFunction, "cmd 0x%02X: empty reply", cmd);
    else
        UHF_LOG(kLogFunction, "cmd 0x%02X: status 0x%02X, 0x%02X expected", cmd, out[0], status);
    return -1;
}

inline int trace_length(uint8_t cmd, const Reply& out, size_t min_len) {
    if (out.has(min_len)) return 0;
    UHF_LOG(kLogFunction, "cmd 0x%02X: reply too short (%u bytes, %u needed)", cmd, static_cast<unsigned>(out.size()),
            static_cast<unsigned>(min_len));
    return -1;
}

constexpr uint16_t kDefaultTimeoutMs = 1500;
// The status byte most replies carry first when the reader accepted a request.
constexpr uint8_t kAccepted = 0x01;
// The device-settings command: its first data byte selects a sub-command.
constexpr uint8_t kCmdDeviceSettings = 0xA1;

// Codes more than one command file sends.
constexpr uint8_t kCmdProtocol = 0x06;  // the protocol type; the GB lock is its sub-command 0x02
constexpr uint8_t kCmdSetGen2 = 0x20;
constexpr uint8_t kCmdReadData = 0x84;
constexpr uint8_t kCmdWriteData = 0x86;
constexpr uint8_t kCmdDeactivate = 0xB0;  // also the crypto pass-through
constexpr uint8_t kCmdDwell = 0xB2;

// Sends req with code cmd and waits for code cmd + 1. Returns 0 when a reply
// arrived (its data in out), -1 when req overflowed its buffer (nothing is
// sent) or the exchange failed, -4 when only other codes answered.
inline int transact(uint8_t cmd, const Request& req, Reply& out, uint16_t timeout_ms = kDefaultTimeoutMs) {
    if (!req.ok() || req.size() > 0xFFFF) {
        UHF_LOG(kLogFunction, "cmd 0x%02X: argument refused (the request does not fit its buffer)", cmd);
        return -1;
    }
    int r = ExternalSend(cmd, req.data(), static_cast<uint16_t>(req.size()), out.raw(), out.raw_len(), timeout_ms);
    return trace_exchange(cmd, r, timeout_ms);
}

// A command with no request data.
inline int transact(uint8_t cmd, Reply& out, uint16_t timeout_ms = kDefaultTimeoutMs) {
    return trace_exchange(cmd, ExternalSend(cmd, nullptr, 0, out.raw(), out.raw_len(), timeout_ms), timeout_ms);
}

// The common shape of a command: exchange, then demand that the first reply
// byte is `status` (0x01 "accepted", or the echoed sub-command of a query).
// Every failure, a reply with another code included, is -1.
inline int transact_status(uint8_t cmd, const Request& req, Reply& out, uint8_t status,
                           uint16_t timeout_ms = kDefaultTimeoutMs) {
    return transact(cmd, req, out, timeout_ms) == 0 ? trace_status(cmd, out, status) : -1;
}

inline int transact_status(uint8_t cmd, Reply& out, uint8_t status, uint16_t timeout_ms = kDefaultTimeoutMs) {
    return transact(cmd, out, timeout_ms) == 0 ? trace_status(cmd, out, status) : -1;
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
    return transact_status(cmd, req, out, status) == 0 ? trace_length(cmd, out, min_len) : -1;
}

inline int query(uint8_t cmd, Reply& out, size_t min_len, uint8_t status = kAccepted) {
    return transact_status(cmd, out, status) == 0 ? trace_length(cmd, out, min_len) : -1;
}

// A set-command: 0 when the reader accepted it, else -1.
inline int set(uint8_t cmd, const Request& req) {
    Reply out;
    return transact_status(cmd, req, out, kAccepted);
}

}  // namespace uhf
