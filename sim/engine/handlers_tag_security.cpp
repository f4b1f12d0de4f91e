// Kill (0x8A), lock (0x88), block permalock (0x9F), authenticate (0x8E), and
// the commands accepted without a model: GB lock (0x06 sub 0x02), 0xB0
// blocks (deactivate, crypto pass-through) and dwell (0xB2).
#include "engine/handlers_access.h"

namespace uhfsim {

namespace {

// The request's password is the kill password; a tag whose kill password is
// zero cannot be killed (Gen2).
std::string kill(VirtualReader& r, const Request& req) {
    FieldReader f(req.data);
    const AccessHead head = read_head(f);
    if (!f.at_end()) return refuse(r, req, AccessError::BadRequest);
    Tag* tag = select_tag(r, head.filter);
    if (tag == nullptr) return refuse(r, req, AccessError::NoTag);
    if (kill_password(*tag) == 0 || head.password != kill_password(*tag))
        return refuse(r, req, AccessError::NotSecured);
    tag->killed = true;
    return done(r, req);
}

// Three bytes after the filter carry the 20-bit payload (mask, action).
std::string lock(VirtualReader& r, const Request& req) {
    FieldReader f(req.data);
    const AccessHead head = read_head(f);
    const uint32_t payload = static_cast<uint32_t>(f.u8()) << 16 | f.u16();
    if (!f.at_end()) return refuse(r, req, AccessError::BadRequest);
    const Opened o = open_tag(r, head);
    if (o.error) return refuse(r, req, *o.error);
    return finish(r, req, apply_lock(*o.tag, payload, o.secured));
}

// ReadLock (0 read, else lock), bank (USER only), block pointer in units of
// 16 blocks, range in mask words, the mask. Answers the bits now set.
std::string block_permalock(VirtualReader& r, const Request& req) {
    FieldReader f(req.data);
    const AccessHead head = read_head(f);
    const bool lock_them = f.u8() != 0;
    const uint8_t bank = f.u8();
    const uint16_t ptr = f.u16();
    const uint16_t range = f.u16();
    const auto mask = f.bytes(2u * range);
    if (!f.at_end() || bank != 3) return refuse(r, req, AccessError::BadRequest);
    const Opened o = open_tag(r, head);
    if (o.error) return refuse(r, req, *o.error);
    std::vector<uint8_t> bits;
    if (auto e = permalock_blocks(*o.tag, ptr, mask, lock_them, o.secured, bits)) return refuse(r, req, *e);
    return done(r, req, bits);
}

// The response is derived so a test can predict it: each challenge byte
// XOR the key id, a 0x00 pad to a whole word, then the tag's first TID word.
std::string authenticate(VirtualReader& r, const Request& req) {
    FieldReader f(req.data);
    const AccessHead head = read_head(f);
    const uint8_t count = f.u8();
    const uint8_t key_id = f.u8();
    const auto challenge = f.bytes(count > 0 ? count - 1u : 0u);
    if (count == 0 || !f.at_end()) return refuse(r, req, AccessError::BadRequest);
    const Opened o = open_tag(r, head);
    if (o.error) return refuse(r, req, *o.error);
    std::vector<uint8_t> response;
    for (uint8_t b : challenge) response.push_back(b ^ key_id);
    if (response.size() % 2 != 0) response.push_back(0x00);
    put16(response, o.tag->tid.empty() ? 0 : o.tag->tid[0]);
    std::vector<uint8_t> out;
    put16(out, static_cast<uint16_t>(response.size() / 2));
    out.insert(out.end(), response.begin(), response.end());
    return done(r, req, out);
}

std::string gb_lock(VirtualReader& r, const Request& req) {
    keep_block(r.state().accepted.gb_locks, req.data);
    r.reply(reply_code(req), {0x02, kAccepted});
    return "recorded";
}

std::string block_b0(VirtualReader& r, const Request& req) {
    keep_block(r.state().accepted.b0, req.data);
    return status(r, req, true, "");
}

// Two 32-bit values: dwell time and count.
std::string dwell(VirtualReader& r, const Request& req) {
    FieldReader f(req.data);
    const uint32_t time = f.u32();
    const uint32_t count = f.u32();
    if (!f.at_end()) return status(r, req, false, "bad length");
    keep(r, [&](Settings& s) {
        s.dwell_time = time;
        s.dwell_count = count;
    });
    return status(r, req, true, "");
}

}  // namespace

void register_tag_security(Dispatcher& d) {
    d.on(0x8A, "kill tag", kill);
    d.on(0x88, "lock tag", lock);
    d.on(0x9F, "block permalock", block_permalock);
    d.on(0x8E, "authenticate", authenticate);
    d.on_sub(0x06, 0x02, "GB tag lock", gb_lock);
    d.on(0xB0, "deactivate / crypto block", block_b0);
    d.on(0xB2, "set dwell", dwell);
}

}  // namespace uhfsim
