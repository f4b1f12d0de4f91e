#include "llrp_report.h"

#include <algorithm>
#include <cstring>

namespace uhfd::llrp {

OpResult op_result(AccessRequest::Kind k, uint16_t opspec_id, const AccessResult& r, uint16_t words) {
    // By AccessResult::Code (Ok, NoResponse, InsufficientPower, Locked, MemoryOverrun, OtherError),
    // each op's own codes; a read has no power code and gets its tag error.
    static constexpr uint8_t codes[3][6] = {{0, 2, 1, 5, 4, 3}, {0, 5, 3, 2, 1, 6}, {0, 3, 1, 7, 6, 4}};
    static constexpr uint16_t types[3] = {param::C1G2ReadOpSpecResult, param::C1G2WriteOpSpecResult,
                                          param::C1G2LockOpSpecResult};
    OpResult o;
    o.type = types[k];
    o.result = r.code <= AccessResult::OtherError ? codes[k][r.code] : codes[k][AccessResult::OtherError];
    o.opspec_id = opspec_id;
    if (k == AccessRequest::Write && r.code == AccessResult::Ok) o.words_written = words;
    if (k == AccessRequest::Read && r.code == AccessResult::Ok) {
        o.data.assign(r.data.begin(), r.data.end());
        if (o.data.size() % 2) o.data.push_back('\0');
    }
    return o;
}

uint16_t gen2_crc(uint16_t pc, const uint8_t* epc, size_t n) {
    uint16_t crc = 0xFFFF;
    auto feed = [&crc](uint8_t b) {
        crc ^= uint16_t(b << 8);
        for (int i = 0; i < 8; i++) crc = crc & 0x8000 ? uint16_t(crc << 1 ^ 0x1021) : uint16_t(crc << 1);
    };
    feed(uint8_t(pc >> 8));
    feed(uint8_t(pc));
    for (size_t i = 0; i < n; i++) feed(epc[i]);
    return uint16_t(~crc);
}

bool TagList::add(const TagSeen& t, bool by_antenna) {
    if (slot_.empty()) slot_.assign(2 * kMax, 0);  // a power of two, never more than half full
    uint16_t antenna = by_antenna ? t.antenna : 0;
    uint64_t h = 14695981039346656037ull;
    auto mix = [&h](uint8_t b) { h = (h ^ b) * 1099511628211ull; };
    for (size_t i = 0; i < t.epc_len; i++) mix(t.epc[i]);
    mix(uint8_t(antenna)), mix(uint8_t(antenna >> 8)), mix(uint8_t(t.spec_index)), mix(uint8_t(t.epc_len));
    size_t mask = slot_.size() - 1;
    for (size_t i = size_t(h ^ h >> 32) & mask;; i = (i + 1) & mask) {
        if (slot_[i] == 0) {
            if (tags_.size() == kMax) return false;
            tags_.push_back(t);
            home_.push_back(uint32_t(i));
            slot_[i] = uint32_t(tags_.size());
            return true;
        }
        TagSeen& e = tags_[slot_[i] - 1];
        if (e.epc_len != t.epc_len || e.spec_index != t.spec_index || (by_antenna && e.antenna != t.antenna) ||
            std::memcmp(e.epc.data(), t.epc.data(), t.epc_len) != 0)
            continue;
        e.count = e.count + t.count < e.count ? UINT32_MAX : e.count + t.count;
        e.rssi = std::max(e.rssi, t.rssi);
        e.first_ms = std::min(e.first_ms, t.first_ms);
        e.last_ms = std::max(e.last_ms, t.last_ms);
        e.pc = t.pc;
        return true;
    }
}

void TagList::clear() {
    for (uint32_t i : home_) slot_[i] = 0;
    home_.clear();
    tags_.clear();
}

void write_tag_data(Writer& w, const ReportContent& c, const TagSeen& t, std::span<const OpResult> results) {
    size_t at = w.begin(param::TagReportData);
    std::string_view epc(reinterpret_cast<const char*>(t.epc.data()), std::min<size_t>(t.epc_len, t.epc.size()));
    if (epc.size() == 12) {
        w.tv(param::EPC96);
        w.bytes(epc);
    } else {
        size_t e = w.begin(param::EPCData);
        w.bits(uint16_t(epc.size() * 8), epc);
        w.end(e);
    }
    if (c.rospec_id) w.tv(param::ROSpecID), w.u32(t.rospec_id);
    if (c.spec_index) w.tv(param::SpecIndex), w.u16(t.spec_index);
    if (c.inv_param_spec_id) w.tv(param::InventoryParameterSpecID), w.u16(t.ips_id);
    if (c.antenna_id) w.tv(param::AntennaID), w.u16(t.antenna);
    if (c.peak_rssi) {
        int dbm = (t.rssi >= 0 ? t.rssi + 5 : t.rssi - 5) / 10;
        w.tv(param::PeakRSSI), w.u8(uint8_t(int8_t(std::clamp(dbm, -128, 127))));
    }
    // ChannelIndex: the module does not say which channel it heard a tag on.
    if (c.first_seen) w.tv(param::FirstSeenTimestampUTC), w.u64(uint64_t(t.first_ms) * 1000);
    if (c.last_seen) w.tv(param::LastSeenTimestampUTC), w.u64(uint64_t(t.last_ms) * 1000);
    if (c.seen_count) w.tv(param::TagSeenCount), w.u16(uint16_t(std::min<uint32_t>(t.count, 0xFFFF)));
    if (c.pc) w.tv(param::C1G2PC), w.u16(t.pc);
    if (c.crc) w.tv(param::C1G2CRC), w.u16(gen2_crc(t.pc, t.epc.data(), epc.size()));
    if (c.access_spec_id) w.tv(param::AccessSpecID), w.u32(t.access_spec_id);
    for (const OpResult& r : results) {
        size_t p = w.begin(r.type);
        w.u8(r.result);
        w.u16(r.opspec_id);
        if (r.type == param::C1G2ReadOpSpecResult) w.u16v(r.data);
        if (r.type == param::C1G2WriteOpSpecResult) w.u16(r.words_written);
        w.end(p);
    }
    w.end(at);
}

void write_report(std::string& out, uint32_t id, const ReportContent& c, std::span<const TagSeen> tags,
                  std::span<const AccessedTag> accessed) {
    Writer w(out);
    size_t at = w.begin_message(msg::RO_ACCESS_REPORT, id);
    for (const TagSeen& t : tags) write_tag_data(w, c, t);
    for (const AccessedTag& a : accessed) write_tag_data(w, c, a.tag, a.results);
    w.end_message(at);
}

}  // namespace uhfd::llrp
