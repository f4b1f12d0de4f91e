// Tag memory: read (0x84), write (0x86), block write (0x93), block erase
// (0x95) and the screen-tag block write (0x90). Each request is password,
// filter, then bank, word address, word count and any data.
#include "engine/handlers_access.h"

namespace uhfsim {

namespace {

std::string read(VirtualReader& r, const Request& req) {
    FieldReader f(req.data);
    const AccessHead head = read_head(f);
    const Target t = read_target(f);
    if (!f.at_end()) return refuse(r, req, AccessError::BadRequest);
    std::vector<uint16_t> words;
    if (auto e = read_access(r, head, t.bank, t.addr, t.count, View::Shown, words)) return refuse(r, req, *e);
    return done(r, req, counted_words(words));
}

// 0x86 and 0x93 take the same request.
std::string write(VirtualReader& r, const Request& req) {
    FieldReader f(req.data);
    const AccessHead head = read_head(f);
    const Target t = read_target(f);
    const auto data = f.bytes(2u * t.count);
    if (!f.at_end()) return refuse(r, req, AccessError::BadRequest);
    return finish(r, req, write_access(r, head, t.bank, t.addr, data, View::Shown));
}

std::string erase(VirtualReader& r, const Request& req) {
    FieldReader f(req.data);
    const AccessHead head = read_head(f);
    const Target t = read_target(f);
    if (!f.at_end()) return refuse(r, req, AccessError::BadRequest);
    const std::vector<uint8_t> zeros(2u * t.count, 0);
    return finish(r, req, write_access(r, head, t.bank, t.addr, zeros, View::Shown));
}

// 0x90: a leading 0x01, then as a write with the "type" byte as the bank.
// Success is answered 01 01.
std::string screen_write(VirtualReader& r, const Request& req) {
    FieldReader f(req.data);
    const bool lead = f.u8() == 0x01;
    const AccessHead head = read_head(f);
    const Target t = read_target(f);
    const auto data = f.bytes(2u * t.count);
    if (!lead || !f.at_end()) return refuse(r, req, AccessError::BadRequest);
    if (auto e = write_access(r, head, t.bank, t.addr, data, View::Shown)) return refuse(r, req, *e);
    r.reply(reply_code(req), {kAccepted, 0x01});
    return "ok";
}

}  // namespace

void register_tag_memory(Dispatcher& d) {
    d.on(0x84, "read tag memory", read);
    d.on(0x86, "write tag memory", write);
    d.on(0x93, "block write tag memory", write);
    d.on(0x95, "block erase tag memory", erase);
    d.on(0x90, "screen block write", screen_write);
}

}  // namespace uhfsim
