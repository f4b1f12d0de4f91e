#include "presence.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <unordered_map>

namespace uhfd {

namespace {

constexpr size_t kEpcMax = std::tuple_size_v<decltype(Read::epc)>;

// Reader, antenna, EPC length and EPC packed into bytes: built on the stack
// per read, hashed over the bytes in use. The tail stays zero so whole keys compare.
struct TagKey {
    std::array<uint8_t, 4 + kEpcMax> bytes{};
    bool operator==(const TagKey&) const = default;
    size_t epc_len() const { return bytes[3]; }
};

// The worker is another process: an EPC length past the array is clamped, not trusted.
TagKey key_of(uint16_t reader, uint8_t antenna, uint8_t epc_len, const std::array<uint8_t, kEpcMax>& epc) {
    TagKey k;
    const size_t n = std::min<size_t>(epc_len, kEpcMax);
    k.bytes = {static_cast<uint8_t>(reader >> 8), static_cast<uint8_t>(reader), antenna, static_cast<uint8_t>(n)};
    std::memcpy(k.bytes.data() + 4, epc.data(), n);
    return k;
}

struct TagKeyHash {
    size_t operator()(const TagKey& k) const {
        const auto* p = reinterpret_cast<const char*>(k.bytes.data());
        return std::hash<std::string_view>{}(std::string_view(p, 4 + k.epc_len()));
    }
};

// The configured hex prefix as bytes; an odd count leaves half of the last byte to compare.
struct EpcPrefix {
    std::vector<uint8_t> bytes;
    size_t nibbles = 0;

    explicit EpcPrefix(const std::string& hex) : nibbles(hex.size()) {
        bytes.resize((nibbles + 1) / 2);
        for (size_t i = 0; i < nibbles; i++) bytes[i / 2] |= static_cast<uint8_t>(digit(hex[i]) << (i % 2 ? 0 : 4));
    }

    bool starts(const uint8_t* epc, size_t len) const {
        if (len * 2 < nibbles) return false;
        const size_t whole = nibbles / 2;
        if (!std::equal(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(whole), epc)) return false;
        return nibbles % 2 == 0 || (epc[whole] >> 4) == (bytes[whole] >> 4);
    }

    static int digit(char c) {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        throw std::invalid_argument("presence.epc_prefix is not hex");
    }
};

Event event_of(Event::Kind kind, const PresentTag& t, int64_t time_ms) {
    Event e;
    e.kind = kind;
    e.reader = t.reader;
    e.antenna = t.antenna;
    e.epc_len = t.epc_len;
    e.epc = t.epc;
    e.time_ms = time_ms;
    e.reads = t.reads;
    e.rssi_peak = t.rssi_peak;
    e.rssi_mean = t.reads ? static_cast<double>(t.rssi_sum) / static_cast<double>(t.reads) / 10.0 : 0;
    return e;
}

}  // namespace

struct Presence::Impl {
    // Last seen → tag, oldest first; equal times keep the order they were reached in.
    using Index = std::multimap<int64_t, PresentTag*>;
    struct Tracked {
        PresentTag tag;
        Index::iterator slot;
    };

    const int64_t depart_after_ms;
    const std::optional<long> floor_tenths;
    const EpcPrefix prefix;
    const size_t max_tags;
    std::unordered_map<TagKey, Tracked, TagKeyHash> tags;
    Index by_last_seen;
    std::vector<size_t> per_reader;
    uint64_t evictions = 0;

    explicit Impl(const PresenceConfig& c)
        : depart_after_ms(std::llround(c.depart_after * 1000)),
          floor_tenths(c.rssi_floor ? std::optional<long>(std::lround(*c.rssi_floor * 10)) : std::nullopt),
          prefix(c.epc_prefix),
          max_tags(c.max_tags) {}

    bool wanted(const Read& r) const {
        if (floor_tenths && r.rssi < *floor_tenths) return false;
        return prefix.starts(r.epc.data(), std::min<size_t>(r.epc_len, kEpcMax));
    }

    void record(const Read& r, std::vector<Event>& arrived) {
        const TagKey key = key_of(r.reader, r.antenna, r.epc_len, r.epc);
        if (auto known = tags.find(key); known != tags.end()) return seen(known->second, r);
        arrived.push_back(event_of(Event::Arrive, admit(key, r).tag, r.time_ms));
    }

    // No allocation: the index node moves to its new place.
    void seen(Tracked& t, const Read& r) {
        PresentTag& tag = t.tag;
        tag.reads++;
        tag.rssi_sum += r.rssi;
        tag.rssi_peak = std::max(tag.rssi_peak, r.rssi);
        tag.first_ms = std::min(tag.first_ms, r.time_ms);
        if (r.time_ms <= tag.last_ms) return;  // a late batch from a slower worker
        tag.last_ms = r.time_ms;
        auto node = by_last_seen.extract(t.slot);
        node.key() = r.time_ms;
        t.slot = by_last_seen.insert(by_last_seen.end(), std::move(node));  // usually the newest: no search
    }

    Tracked& admit(const TagKey& key, const Read& r) {
        if (tags.size() >= max_tags && !by_last_seen.empty()) {
            drop(by_last_seen.begin());
            evictions++;
        }
        PresentTag tag;
        tag.reader = r.reader;
        tag.antenna = r.antenna;
        tag.epc_len = static_cast<uint8_t>(key.epc_len());
        std::copy_n(key.bytes.begin() + 4, tag.epc_len, tag.epc.begin());
        tag.first_ms = tag.last_ms = r.time_ms;
        Tracked& t = tags.emplace(key, Tracked{tag, {}}).first->second;
        t.slot = by_last_seen.emplace(r.time_ms, &t.tag);
        if (per_reader.size() <= r.reader) per_reader.resize(r.reader + 1u);
        per_reader[r.reader]++;
        seen(t, r);
        return t;
    }

    void drop(Index::iterator slot) {
        const PresentTag& tag = *slot->second;
        const TagKey key = key_of(tag.reader, tag.antenna, tag.epc_len, tag.epc);
        per_reader[tag.reader]--;
        by_last_seen.erase(slot);
        tags.erase(key);
    }

    void expire(int64_t now_ms, std::vector<Event>& departed) {
        while (!by_last_seen.empty() && now_ms - by_last_seen.begin()->first >= depart_after_ms) {
            departed.push_back(event_of(Event::Depart, *by_last_seen.begin()->second, now_ms));
            drop(by_last_seen.begin());
        }
    }
};

Presence::Presence(const PresenceConfig& c) : impl_(std::make_unique<Impl>(c)) {}
Presence::~Presence() = default;

bool Presence::add(const Read& r, std::vector<Event>& arrived) {
    if (!impl_->wanted(r)) return false;  // the filters are fixed at construction: no lock
    std::lock_guard<std::mutex> lock(mu_);
    impl_->record(r, arrived);
    return true;
}

void Presence::expire(int64_t now_ms, std::vector<Event>& departed) {
    std::lock_guard<std::mutex> lock(mu_);
    impl_->expire(now_ms, departed);
}

std::vector<PresentTag> Presence::snapshot() const {
    std::lock_guard<std::mutex> lock(mu_);
    std::vector<PresentTag> out;
    out.reserve(impl_->tags.size());
    for (const auto& [last_ms, tag] : impl_->by_last_seen) out.push_back(*tag);
    return out;
}

size_t Presence::count(uint16_t reader) const {
    std::lock_guard<std::mutex> lock(mu_);
    return reader < impl_->per_reader.size() ? impl_->per_reader[reader] : 0;
}

size_t Presence::size() const {
    std::lock_guard<std::mutex> lock(mu_);
    return impl_->tags.size();
}

uint64_t Presence::evictions() const {
    std::lock_guard<std::mutex> lock(mu_);
    return impl_->evictions;
}

}  // namespace uhfd
