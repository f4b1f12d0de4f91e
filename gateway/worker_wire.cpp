#include "worker_wire.h"

#include <algorithm>

namespace uhfd::wire {

namespace {

void put16(std::string& out, uint16_t v) {
    out += static_cast<char>(v >> 8);
    out += static_cast<char>(v);
}

void put32(std::string& out, uint32_t v) {
    put16(out, static_cast<uint16_t>(v >> 16));
    put16(out, static_cast<uint16_t>(v));
}

void put64(std::string& out, uint64_t v) {
    put32(out, static_cast<uint32_t>(v >> 32));
    put32(out, static_cast<uint32_t>(v));
}

// A bounds-checked cursor over one datagram: every take fails once the
// bytes run out, and the failure sticks.
class Cursor {
public:
    explicit Cursor(std::string_view d) : d_(d) {}
    bool ok() const { return ok_; }
    size_t left() const { return d_.size() - pos_; }
    uint64_t take(size_t bytes) {
        if (!ok_ || left() < bytes) return ok_ = false, 0;
        uint64_t v = 0;
        for (size_t i = 0; i < bytes; i++) v = v << 8 | static_cast<uint8_t>(d_[pos_++]);
        return v;
    }
    bool copy(uint8_t* to, size_t n) {
        if (!ok_ || left() < n) return ok_ = false;
        for (size_t i = 0; i < n; i++) to[i] = static_cast<uint8_t>(d_[pos_++]);
        return true;
    }
    std::string_view rest() {
        std::string_view r = d_.substr(pos_);
        pos_ = d_.size();
        return r;
    }

private:
    std::string_view d_;
    size_t pos_ = 0;
    bool ok_ = true;
};

}  // namespace

void begin_reads(std::string& out) {
    out.clear();
    out += static_cast<char>(kReads);
    put16(out, 0);
}

bool add_read(std::string& out, const Read& r) {
    if (out.size() < 3 || r.epc_len > r.epc.size()) return false;
    uint16_t count = static_cast<uint16_t>(static_cast<uint8_t>(out[1]) << 8 | static_cast<uint8_t>(out[2]));
    if (count == 0xFFFF || out.size() + 16 + r.epc_len + r.data_len > kMaxMessage) return false;
    put_read(out, r);
    count++;
    out[1] = static_cast<char>(count >> 8);
    out[2] = static_cast<char>(count);
    return true;
}

void put_read(std::string& out, const Read& r) {
    put64(out, static_cast<uint64_t>(r.time_ms));
    out += static_cast<char>(r.antenna);
    put16(out, r.pc);
    put16(out, static_cast<uint16_t>(r.rssi));
    const size_t epc = std::min<size_t>(r.epc_len, r.epc.size());
    out += static_cast<char>(epc);
    out.append(reinterpret_cast<const char*>(r.epc.data()), epc);
    out += static_cast<char>(r.data_len);
    out.append(reinterpret_cast<const char*>(r.data.data()), r.data_len);
}

void state(std::string& out, uint8_t state, std::string_view reason) {
    out.assign(1, static_cast<char>(kState));
    out += static_cast<char>(state);
    out += reason;
}

void text(std::string& out, Type type, std::string_view text) {
    out.assign(1, static_cast<char>(type));
    out += text;
}

void with_id(std::string& out, Type type, uint32_t id, std::string_view text) {
    out.assign(1, static_cast<char>(type));
    put32(out, id);
    out += text;
}

void access_done(std::string& out, uint32_t id, uint8_t result, std::string_view data) {
    with_id(out, kAccessDone, id, {});
    out += static_cast<char>(result);
    out += data;
}

void inventory(std::string& out, uint32_t id, bool on) {
    with_id(out, kInventory, id, {});
    out += static_cast<char>(on);
}

void bare(std::string& out, Type type) { out.assign(1, static_cast<char>(type)); }

void overflows(std::string& out, uint64_t count) {
    bare(out, kOverflows);
    put64(out, count);
}

bool decode(std::string_view datagram, Message& m) {
    Cursor c(datagram);
    m = Message{};
    m.type = static_cast<Type>(c.take(1));
    switch (m.type) {
        case kReads: c.take(2); break;  // the reads themselves: decode_reads
        case kState:
            m.value = static_cast<uint8_t>(c.take(1));
            m.text = c.rest();
            break;
        case kDetails:
        case kStart: m.text = c.rest(); break;
        case kReply:
        case kApply:
        case kAccess:
        case kFilter:
            m.id = static_cast<uint32_t>(c.take(4));
            m.text = c.rest();
            break;
        case kAccessDone:
            m.id = static_cast<uint32_t>(c.take(4));
            m.value = static_cast<uint8_t>(c.take(1));
            m.text = c.rest();
            break;
        case kInventory:
            m.id = static_cast<uint32_t>(c.take(4));
            m.value = static_cast<uint8_t>(c.take(1));
            if (c.left()) return false;
            break;
        case kOverflows:
            m.count = c.take(8);
            if (c.left()) return false;
            break;
        case kHeartbeat:
        case kStop:
            if (c.left()) return false;
            break;
        default: return false;
    }
    return c.ok();
}

namespace {

bool take_read(Cursor& c, Read& r) {
    r.time_ms = static_cast<int64_t>(c.take(8));
    r.antenna = static_cast<uint8_t>(c.take(1));
    r.pc = static_cast<uint16_t>(c.take(2));
    r.rssi = static_cast<int16_t>(c.take(2));
    r.epc_len = static_cast<uint8_t>(c.take(1));
    if (r.epc_len > r.epc.size()) return false;
    c.copy(r.epc.data(), r.epc_len);
    r.data_len = static_cast<uint8_t>(c.take(1));
    c.copy(r.data.data(), r.data_len);
    return c.ok();
}

}  // namespace

bool take_read(std::string_view& in, Read& r) {
    Cursor c(in);
    if (!take_read(c, r)) return false;
    in.remove_prefix(in.size() - c.left());
    return true;
}

bool decode_reads(std::string_view datagram, uint16_t reader, std::vector<Read>& out) {
    Cursor c(datagram);
    if (c.take(1) != kReads) return false;
    const size_t count = static_cast<size_t>(c.take(2)), first = out.size();
    bool ok = c.ok();
    for (size_t i = 0; i < count && ok; i++) {
        Read& r = out.emplace_back();
        r.reader = reader;
        ok = take_read(c, r);
    }
    if (!ok || c.left()) {
        out.resize(first);
        return false;
    }
    return true;
}

}  // namespace uhfd::wire
