// The packaged protocol: A5 03 package frames (configuration, partitions,
// pass-through) and A5 02 plain frames (fixed configuration bodies).
#include "engine/packaged.h"

#include <ctime>

#include "engine/handlers_common.h"

namespace uhfsim {

namespace {

constexpr uint8_t kRequestHead = 0xAA;
constexpr uint8_t kReplyHead = 0xAB;
constexpr uint8_t kVersion = 2;

// Package types.
enum : uint8_t {
    kConfig = 1,
    kConfigReply = 2,
    kUpgradeInfo = 5,
    kPassThrough = 6,
    kPsamReply = 7,
    kReadPart = 10,
    kWritePart = 11,
    kWriteSpecialPart = 12,
};

constexpr uint8_t kOk = 0x00;
constexpr uint8_t kRefused = 0x01;

std::vector<uint8_t> wrap(uint8_t cls, std::span<const uint8_t> body) {
    std::vector<uint8_t> f{0xA5, cls};
    put16(f, static_cast<uint16_t>(body.size()));
    f.insert(f.end(), body.begin(), body.end());
    f.push_back(0x03);
    return f;
}

void send_package(VirtualReader& r, uint8_t type, std::span<const uint8_t> data) {
    std::vector<uint8_t> body{kReplyHead, static_cast<uint8_t>(type << 4 | kVersion),
                              static_cast<uint8_t>(data.size() & 0xFF), static_cast<uint8_t>(data.size() >> 8)};
    body.insert(body.end(), data.begin(), data.end());
    uint8_t x = 0;
    for (size_t i = 1; i < body.size(); ++i) x ^= body[i];
    body.push_back(x);
    r.send_raw(wrap(0x03, body));
}

void send_package(VirtualReader& r, uint8_t type, std::initializer_list<uint8_t> data) {
    send_package(r, type, std::span<const uint8_t>(data.begin(), data.size()));
}

// ---- the clock ----------------------------------------------------------------
// 8 bytes: year (2, big-endian), month, day, hour, minute, second, weekday
// (0 = Sunday), in UTC.

int64_t clock_now(PackagedState& p, TimePoint now) {
    if (!p.rtc_anchor) p.rtc_anchor = now;
    return p.rtc_seconds + std::chrono::duration_cast<std::chrono::seconds>(now - *p.rtc_anchor).count();
}

std::optional<int64_t> clock_from_bytes(std::span<const uint8_t> b) {
    std::tm tm{};
    tm.tm_year = get16(b, 0) - 1900;
    tm.tm_mon = b[2] - 1;
    tm.tm_mday = b[3];
    tm.tm_hour = b[4];
    tm.tm_min = b[5];
    tm.tm_sec = b[6];
    std::tm want = tm;
    const time_t t = timegm(&tm);
    // timegm normalises out-of-range fields; a real date comes back unchanged.
    if (t == static_cast<time_t>(-1) || tm.tm_year != want.tm_year || tm.tm_mon != want.tm_mon ||
        tm.tm_mday != want.tm_mday || tm.tm_hour != want.tm_hour || tm.tm_min != want.tm_min ||
        tm.tm_sec != want.tm_sec)
        return std::nullopt;
    return static_cast<int64_t>(t);
}

std::vector<uint8_t> clock_to_bytes(int64_t seconds) {
    const time_t t = static_cast<time_t>(seconds);
    std::tm tm{};
    gmtime_r(&t, &tm);
    std::vector<uint8_t> out;
    put16(out, static_cast<uint16_t>(tm.tm_year + 1900));
    for (int v : {tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, tm.tm_wday})
        out.push_back(static_cast<uint8_t>(v));
    return out;
}

// ---- configuration (type 1; replies type 2 echo the sub-command) -------------

// Value sizes of the parameter types with a fixed size.
std::optional<size_t> param_size(uint16_t type) {
    switch (type) {
        case 0: return 12;
        case 1: return 8;
        case 2: return 1;
        case 4: return 0;
        case 5: return 4;
        default: return std::nullopt;
    }
}

std::string config(VirtualReader& r, std::span<const uint8_t> d) {
    PackagedState& p = r.state().packaged;
    if (d.empty()) return "empty configuration request";
    const uint8_t sub = d[0];
    auto status = [&](bool ok, const char* why) {
        send_package(r, kConfigReply, {sub, ok ? kOk : kRefused});
        return std::string(ok ? "ok" : why);
    };
    switch (sub) {
        case 0x01: {  // set the clock
            if (d.size() != 9) return status(false, "bad length");
            const auto t = clock_from_bytes(d.subspan(1));
            if (!t) return status(false, "not a date");
            p.rtc_seconds = *t;
            p.rtc_anchor = r.now();
            return status(true, "");
        }
        case 0x02: {  // read the clock
            std::vector<uint8_t> out{sub};
            const auto b = clock_to_bytes(clock_now(p, r.now()));
            out.insert(out.end(), b.begin(), b.end());
            send_package(r, kConfigReply, out);
            return "ok";
        }
        case 0x03: {  // set a parameter: type (2), value
            if (d.size() < 3) return status(false, "bad length");
            const uint16_t type = get16(d, 1);
            const auto value = d.subspan(3);
            if (type == 3) return status(false, "work modes are set by 0x06");
            if (auto n = param_size(type); n && value.size() != *n) return status(false, "wrong size for its type");
            p.params[type].assign(value.begin(), value.end());
            return status(true, "");
        }
        case 0x04: {  // read a parameter: 04, type, value
            if (d.size() != 3) return status(false, "bad length");
            const uint16_t type = get16(d, 1);
            std::vector<uint8_t> out(d.begin(), d.end());
            if (type == 3) {
                out.push_back(static_cast<uint8_t>(p.work_modes.size()));
                for (const auto& e : p.work_modes) out.insert(out.end(), e.begin(), e.end());
            } else if (auto it = p.params.find(type); it != p.params.end()) {
                out.insert(out.end(), it->second.begin(), it->second.end());
            }
            send_package(r, kConfigReply, out);
            return "ok";
        }
        case 0x05: {  // access bytes
            std::vector<uint8_t> out{sub};
            out.insert(out.end(), p.access.begin(), p.access.end());
            send_package(r, kConfigReply, out);
            return "ok";
        }
        case 0x06: {  // work-mode table: count, 7 bytes per entry
            if (d.size() < 2 || d.size() != 2 + size_t{d[1]} * 7) return status(false, "table length");
            p.work_modes.assign(d[1], {});
            for (size_t i = 0; i < d[1]; ++i)
                std::copy_n(d.begin() + 2 + static_cast<long>(i) * 7, 7, p.work_modes[i].begin());
            return status(true, "");
        }
        default: return status(false, "unknown sub-command");
    }
}

// ---- partitions ------------------------------------------------------------------

// Type 10: control byte (speed << 7 | des << 6 | flag << 4 | partition), four
// more bytes when flag is 3. Answered with the partition's bytes.
std::string read_partition(VirtualReader& r, std::span<const uint8_t> d) {
    if (d.empty() || d.size() != (((d[0] >> 4) & 3) == 3 ? 5u : 1u)) return "bad partition read";
    const auto& part = r.state().packaged.partitions[d[0] & 0x0F];
    send_package(r, kReadPart, part);
    return "ok";
}

// Type 11: TID (8), partition, word address, word count, the words.
std::string write_partition(VirtualReader& r, std::span<const uint8_t> d) {
    PackagedState& p = r.state().packaged;
    if (d.size() < 11 || d.size() != 11 + size_t{d[10]} * 2) {
        send_package(r, kWritePart, {0x01, kRefused});
        return "bad length";
    }
    const size_t part = d[8], at = size_t{d[9]} * 2, n = size_t{d[10]} * 2;
    if (part >= p.partitions.size() || at + n > p.partitions[0].size()) {
        send_package(r, kWritePart, {0x01, kRefused});
        return "outside the partition";
    }
    std::copy(d.begin() + 11, d.end(), p.partitions[part].begin() + static_cast<long>(at));
    std::copy_n(d.begin(), 8, p.partition_tid[part].begin());
    send_package(r, kWritePart, {0x01, kOk});
    return "ok";
}

// Type 12: bytes as given, kept whole; answered as a partition write.
std::string write_special_partition(VirtualReader& r, std::span<const uint8_t> d) {
    r.state().packaged.special_partition.assign(d.begin(), d.end());
    send_package(r, kWritePart, {0x01, kOk});
    return "ok";
}

// Type 6: first byte 0x10/0x11 for PSAM slot 1/2, answered type 7 with the
// command echoed and 90 00; any other operator byte gets its data echoed in
// a type-6 package. Replies stay within 16 bytes.
std::string pass_through(VirtualReader& r, std::span<const uint8_t> d) {
    if (d.empty()) return "empty pass-through";
    const bool psam = d[0] == 0x10 || d[0] == 0x11;
    std::vector<uint8_t> out;
    if (psam) {
        out.assign(d.begin() + 1, d.begin() + 1 + static_cast<long>(std::min<size_t>(d.size() - 1, 14)));
        out.push_back(0x90);
        out.push_back(0x00);
    } else {
        out.assign(d.begin(), d.begin() + static_cast<long>(std::min<size_t>(d.size(), 16)));
    }
    send_package(r, psam ? kPsamReply : kPassThrough, out);
    return psam ? "PSAM echo" : "operator echo";
}

// A5 03 body: AA, type << 4 | version, length (2, little-endian), data, XOR.
std::string package_frame(VirtualReader& r, const Frame& f) {
    const auto& b = f.data;
    if (b.size() < 5 || b[0] != kRequestHead) return "package: bad head";
    const size_t n = b[2] | size_t{b[3]} << 8;
    if (b.size() != n + 5) return "package: length";
    uint8_t x = 0;
    for (size_t i = 1; i < b.size() - 1; ++i) x ^= b[i];
    if (x != b.back()) return "package: check byte";
    const auto data = std::span<const uint8_t>(b).subspan(4, n);
    switch (b[1] >> 4) {
        case kConfig: return "config: " + config(r, data);
        case kReadPart: return "partition read: " + read_partition(r, data);
        case kWritePart: return "partition write: " + write_partition(r, data);
        case kWriteSpecialPart: return "special partition write: " + write_special_partition(r, data);
        case kPassThrough: return "pass-through: " + pass_through(r, data);
        default: return "package: unknown type";
    }
}

// ---- plain frames ----------------------------------------------------------------
// Body: 01, command, total length (2), fields. Acknowledged with the body
// 01, command + 1, 00 06, then two bytes that tell what was done.

void acknowledge(VirtualReader& r, uint8_t cmd, uint8_t a, uint8_t b) {
    const uint8_t body[] = {0x01, static_cast<uint8_t>(cmd + 1), 0x00, 0x06, a, b};
    r.send_raw(wrap(0x02, body));
}

std::string plain_frame(VirtualReader& r, const Frame& f) {
    const auto& b = f.data;
    PackagedState& p = r.state().packaged;
    if (b.size() < 4 || b[0] != 0x01 || get16(b, 2) != b.size()) return "plain: malformed body";
    switch (b[1]) {
        case 0x2A:  // configuration bytes
            if (b.size() != 11) return "plain 0x2A: length";
            p.config = {b[9], b[10]};
            acknowledge(r, b[1], 0x00, 0x01);
            return "plain 0x2A: ok";
        case 0x14:  // inventory settings with one switch byte
            if (b.size() != 45) return "plain 0x14: length";
            p.inventory_sper = b[37];
            acknowledge(r, b[1], 0x00, 0x00);
            return "plain 0x14: ok";
        case 0xFE:  // fixed frequency, three bodies; the host reads no answer
            if (b.size() != 18) return "plain 0xFE: length";
            if (b[12] == 0x0A) p.fixed_frequency = static_cast<uint16_t>(b[14] | b[15] << 8);
            return "plain 0xFE: taken";
        default: return "plain: unknown command";
    }
}

}  // namespace

void send_upgrade_info(VirtualReader& r, uint8_t operation, uint8_t error, std::span<const uint8_t> info) {
    std::vector<uint8_t> data{operation, error};
    data.insert(data.end(), info.begin(), info.end());
    send_package(r, kUpgradeInfo, data);
}

void register_package(Dispatcher& d) {
    d.on_frame(FrameKind::Packaged, package_frame);
    d.on_frame(FrameKind::Plain, plain_frame);
}

}  // namespace uhfsim
