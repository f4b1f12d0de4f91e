// Replies shared by the tag-access handler files (memory, security, QT).
#pragma once

#include <string>
#include <vector>

#include "engine/gen2_access.h"
#include "engine/handlers_common.h"

namespace uhfsim {

// Bank, word address and word count: the target of the memory commands.
struct Target {
    uint8_t bank = 0;
    uint16_t addr = 0;
    uint16_t count = 0;
};

inline Target read_target(FieldReader& f) {
    Target t;
    t.bank = f.u8();
    t.addr = f.u16();
    t.count = f.u16();
    return t;
}

// A failed access: 0x00, then the error code.
inline std::string refuse(VirtualReader& r, const Request& req, AccessError e) {
    r.reply(reply_code(req), {kRejected, static_cast<uint8_t>(e)});
    return describe(e);
}

// A tag-access success: 0x01 0x00, then `extra`.
inline std::string done(VirtualReader& r, const Request& req, std::span<const uint8_t> extra = {}) {
    std::vector<uint8_t> out{kAccepted, 0x00};
    out.insert(out.end(), extra.begin(), extra.end());
    r.reply(reply_code(req), out);
    return "ok";
}

// Either outcome of an access that returns no data.
inline std::string finish(VirtualReader& r, const Request& req, std::optional<AccessError> e) {
    return e ? refuse(r, req, *e) : done(r, req);
}

// Word count (2 bytes) and the words, as read replies carry them after the status.
inline std::vector<uint8_t> counted_words(const std::vector<uint16_t>& words) {
    std::vector<uint8_t> out;
    put16(out, static_cast<uint16_t>(words.size()));
    for (uint16_t w : words) put16(out, w);
    return out;
}

// Keeps the newest accepted blocks; older ones are dropped past a few dozen.
inline void keep_block(std::vector<std::vector<uint8_t>>& log, std::span<const uint8_t> data) {
    constexpr size_t kKept = 64;
    if (log.size() >= kKept) log.erase(log.begin());
    log.emplace_back(data.begin(), data.end());
}

}  // namespace uhfsim
