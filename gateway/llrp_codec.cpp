#include "llrp_codec.h"

#include <utility>

namespace uhfd::llrp {

namespace {

uint16_t be16(std::string_view b, size_t at) { return uint16_t(uint8_t(b[at]) << 8 | uint8_t(b[at + 1])); }

uint32_t be32(std::string_view b, size_t at) { return uint32_t(be16(b, at)) << 16 | be16(b, at + 2); }

void put16(std::string& out, size_t at, uint16_t v) {
    out[at] = char(v >> 8);
    out[at + 1] = char(v);
}

void put32(std::string& out, size_t at, uint32_t v) {
    put16(out, at, uint16_t(v >> 16));
    put16(out, at + 2, uint16_t(v));
}

// RFC 3629: no overlongs, no surrogates, nothing above U+10FFFF.
bool valid_utf8(std::string_view s) {
    size_t i = 0;
    while (i < s.size()) {
        uint8_t c = uint8_t(s[i]);
        size_t n = c < 0x80 ? 0 : c >= 0xC2 && c < 0xE0 ? 1 : c >= 0xE0 && c < 0xF0 ? 2 : c >= 0xF0 && c < 0xF5 ? 3 : 9;
        if (n == 9 || s.size() - i <= n) return false;
        uint8_t lo = 0x80, hi = 0xBF;
        if (c == 0xE0) lo = 0xA0;
        if (c == 0xED) hi = 0x9F;
        if (c == 0xF0) lo = 0x90;
        if (c == 0xF4) hi = 0x8F;
        for (size_t k = 1; k <= n; k++) {
            uint8_t d = uint8_t(s[i + k]);
            if (d < (k == 1 ? lo : 0x80) || d > (k == 1 ? hi : 0xBF)) return false;
        }
        i += n + 1;
    }
    return true;
}

}  // namespace

Error message_error(uint16_t code, std::string description) { return Error{code, std::move(description), 0, -1}; }

Error param_error(uint16_t code, uint16_t param, std::string description) {
    return Error{code, std::move(description), param, -1};
}

Error field_error(uint16_t code, uint16_t param, int field, std::string description) {
    return Error{code, std::move(description), param, field};
}

uint16_t top_status(const Error& e) {
    if (e.param != 0) return M_ParameterError;
    return e.field >= 0 ? uint16_t(M_FieldError) : e.code;
}

Frame frame(std::string_view bytes, Header& h) {
    if (bytes.size() < kHeaderSize) return Frame::NeedMore;
    uint16_t first = be16(bytes, 0);
    h.version = uint8_t(first >> 10 & 7);
    h.type = first & 0x3FF;
    h.length = be32(bytes, 2);
    h.id = be32(bytes, 6);
    if (h.length < kHeaderSize || h.length > kMaxMessage) return Frame::Bad;
    return bytes.size() >= h.length ? Frame::Whole : Frame::NeedMore;
}

int tv_body_length(uint8_t type) {
    // Indexed by TV type 1..20: the standard fixes each one's length.
    static constexpr int8_t lengths[] = {-1, 2, 8, 8, 8, 8, 1, 2, 2, 4, 2, 2, 2, 12, 2, 2, 4, 2, 4, 2, 2};
    return type < sizeof lengths ? lengths[type] : -1;
}

Params::Params(std::string_view bytes, int depth) : rest_(bytes), depth_(depth) {
    if (depth > kMaxDepth) {
        rest_ = {};
        err_ = message_error(M_ParameterError, "parameters nested too deep");
    }
}

bool Params::next(Param& p) {
    if (err_ || rest_.empty()) return false;
    uint8_t first = uint8_t(rest_[0]);
    if (first & 0x80) {
        uint8_t type = first & 0x7F;
        int n = tv_body_length(type);
        if (n < 0) {
            err_ = param_error(P_UnknownParameter, type, "unknown TV parameter");
            return false;
        }
        if (rest_.size() < size_t(n) + 1) {
            err_ = param_error(P_ParameterError, type, "TV parameter cut short");
            return false;
        }
        p = Param{type, true, rest_.substr(1, size_t(n))};
        rest_.remove_prefix(size_t(n) + 1);
        return true;
    }
    if (rest_.size() < 4) {
        err_ = message_error(M_ParameterError, "parameter header cut short");
        return false;
    }
    uint16_t type = be16(rest_, 0) & 0x3FF;
    uint16_t len = be16(rest_, 2);
    if (type < 128) {  // the TV range: a TLV there would pass for the TV parameter
        err_ = param_error(P_ParameterError, type, "TLV parameter with a TV type");
        return false;
    }
    if (len < 4 || len > rest_.size()) {
        err_ = param_error(P_ParameterError, type,
                           len < 4 ? "parameter length below its header" : "parameter longer than what holds it");
        return false;
    }
    p = Param{type, false, rest_.substr(4, len - 4u)};
    rest_.remove_prefix(len);
    return true;
}

bool Reader::take(size_t n) {
    if (!ok_ || left() < n) {
        ok_ = false;
        return false;
    }
    at_ += n;
    return true;
}

uint8_t Reader::u8() { return take(1) ? uint8_t(b_[at_ - 1]) : 0; }
uint16_t Reader::u16() { return take(2) ? be16(b_, at_ - 2) : 0; }
uint32_t Reader::u32() { return take(4) ? be32(b_, at_ - 4) : 0; }

uint64_t Reader::u64() {
    uint64_t hi = u32();
    return hi << 32 | u32();
}

std::string_view Reader::bytes(size_t n) { return take(n) ? b_.substr(at_ - n, n) : std::string_view{}; }

std::string_view Reader::u8v() { return bytes(u16()); }

std::string_view Reader::u16v() { return bytes(size_t(u16()) * 2); }

std::string_view Reader::bits(uint16_t& nbits) {
    nbits = u16();
    std::string_view b = bytes((size_t(nbits) + 7) / 8);
    if (!ok_) nbits = 0;
    return b;
}

std::string_view Reader::utf8() {
    std::string_view s = u8v();
    if (ok_ && !valid_utf8(s)) ok_ = false;
    return ok_ ? s : std::string_view{};
}

std::string_view Reader::rest() {
    std::string_view r = ok_ ? b_.substr(at_) : std::string_view{};
    at_ = b_.size();
    return r;
}

size_t Writer::begin_message(uint16_t type, uint32_t id, uint8_t version) {
    size_t at = out_.size();
    u16(uint16_t((version & 7) << 10 | (type & 0x3FF)));
    u32(0);
    u32(id);
    return at;
}

void Writer::end_message(size_t at) { put32(out_, at + 2, uint32_t(out_.size() - at)); }

size_t Writer::begin(uint16_t param_type) {
    size_t at = out_.size();
    u16(param_type & 0x3FF);
    u16(0);
    return at;
}

void Writer::end(size_t at) {
    size_t len = out_.size() - at;
    if (len > 0xFFFF) {
        out_.resize(at + 4);
        len = 4;
    }
    put16(out_, at + 2, uint16_t(len));
}

void Writer::u16(uint16_t v) {
    u8(uint8_t(v >> 8));
    u8(uint8_t(v));
}

void Writer::u32(uint32_t v) {
    u16(uint16_t(v >> 16));
    u16(uint16_t(v));
}

void Writer::u64(uint64_t v) {
    u32(uint32_t(v >> 32));
    u32(uint32_t(v));
}

void Writer::u8v(std::string_view b) {
    b = b.substr(0, 0xFFFF);
    u16(uint16_t(b.size()));
    bytes(b);
}

void Writer::u16v(std::string_view words) {
    words = words.substr(0, 0xFFFF * 2);
    u16(uint16_t(words.size() / 2));
    bytes(words.substr(0, words.size() / 2 * 2));
}

void Writer::bits(uint16_t nbits, std::string_view b) {
    size_t n = (size_t(nbits) + 7) / 8;
    if (b.size() < n) nbits = uint16_t(b.size() * 8), n = b.size();
    u16(nbits);
    bytes(b.substr(0, n));
}

void Writer::utf8(std::string_view s) { u8v(s); }

void write_status(Writer& w, const Error& e) {
    size_t at = w.begin(param::LLRPStatus);
    w.u16(top_status(e));
    w.utf8(e.description);
    auto field = [&] {
        size_t f = w.begin(param::FieldError);
        w.u16(uint16_t(e.field));
        w.u16(e.code);
        w.end(f);
    };
    if (e.param != 0) {
        size_t p = w.begin(param::ParameterError);
        w.u16(e.param);
        w.u16(e.field >= 0 ? uint16_t(P_FieldError) : e.code);
        if (e.field >= 0) field();
        w.end(p);
    } else if (e.field >= 0) {
        field();
    }
    w.end(at);
}

void status_message(std::string& out, uint16_t type, uint32_t id, const Error& e, uint8_t version) {
    Writer w(out);
    size_t at = w.begin_message(type, id, version);
    write_status(w, e);
    w.end_message(at);
}

}  // namespace uhfd::llrp
