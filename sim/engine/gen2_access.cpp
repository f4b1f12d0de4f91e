#include "engine/gen2_access.h"

#include <algorithm>

#include "engine/virtual_reader.h"

namespace uhfsim {

const char* describe(AccessError e) {
    switch (e) {
        case AccessError::MemoryOverrun: return "memory overrun";
        case AccessError::MemoryLocked: return "memory locked";
        case AccessError::NoTag: return "no tag matches the filter";
        case AccessError::NotSecured: return "password refused";
        case AccessError::BadRequest: return "bad request";
    }
    return "error";
}

// ---- request fields ---------------------------------------------------------

uint8_t FieldReader::u8() {
    if (!ok_ || at_ >= d_.size()) {
        ok_ = false;
        return 0;
    }
    return d_[at_++];
}

uint16_t FieldReader::u16() {
    const uint8_t hi = u8();
    return static_cast<uint16_t>(hi << 8 | u8());
}

uint32_t FieldReader::u32() {
    const uint16_t hi = u16();
    return static_cast<uint32_t>(hi) << 16 | u16();
}

std::span<const uint8_t> FieldReader::bytes(size_t n) {
    if (!ok_ || d_.size() - at_ < n) {
        ok_ = false;
        return {};
    }
    const auto out = d_.subspan(at_, n);
    at_ += n;
    return out;
}

AccessHead read_head(FieldReader& f) {
    AccessHead h;
    h.password = f.u32();
    h.filter.bank = f.u8();
    h.filter.bit_addr = f.u16();
    h.filter.bit_len = f.u16();
    h.filter.mask = f.bytes((h.filter.bit_len + 7u) / 8u);
    return h;
}

// ---- views and selection ----------------------------------------------------

BankView bank_view(Tag& t, uint8_t bank, bool public_view) {
    switch (bank) {
        case 0: return {&t.reserved, t.reserved.size()};
        case 1: {
            auto& epc = public_view && !t.public_epc_bank.empty() ? t.public_epc_bank : t.epc_bank;
            return {&epc, epc.size()};
        }
        case 2: return {&t.tid, public_view ? std::min(t.tid.size(), Tag::kPublicTidWords) : t.tid.size()};
        case 3: return {&t.user, public_view ? 0 : t.user.size()};
        default: return {};
    }
}

bool filter_matches(const Tag& t, const Filter& f) {
    if (f.bank > 3) return false;
    return t.matches(static_cast<Bank>(f.bank), f.bit_addr, f.bit_len, f.mask);
}

Tag* select_tag(VirtualReader& r, const Filter& f) {
    const int ants = std::min<int>(r.state().identity.antenna_count, kMaxAntennas);
    const uint16_t enabled = r.settings().antenna_mask;
    for (Tag& t : r.field().tags()) {
        bool seen = false;
        for (int a = 1; a <= ants && !seen; ++a) seen = (enabled & (1u << (a - 1))) && t.visible_on(a);
        if (seen && filter_matches(t, f)) return &t;
    }
    return nullptr;
}

// ---- passwords ----------------------------------------------------------------

static uint32_t reserved_pair(const Tag& t, size_t at) {
    if (t.reserved.size() < at + 2) return 0;
    return static_cast<uint32_t>(t.reserved[at]) << 16 | t.reserved[at + 1];
}

uint32_t kill_password(const Tag& t) { return reserved_pair(t, 0); }
uint32_t access_password(const Tag& t) { return reserved_pair(t, 2); }

std::optional<bool> secured_by(const Tag& t, uint32_t password) {
    const uint32_t own = access_password(t);
    if (password == 0) return own == 0;
    if (password == own) return true;
    return std::nullopt;
}

Opened open_tag(VirtualReader& r, const AccessHead& h) {
    Opened o;
    o.tag = select_tag(r, h.filter);
    if (o.tag == nullptr) {
        o.error = AccessError::NoTag;
        return o;
    }
    const auto secured = secured_by(*o.tag, h.password);
    if (!secured) o.error = AccessError::NotSecured;
    o.secured = secured.value_or(false);
    return o;
}

static bool use_public(const Tag& t, View view) {
    return view == View::Public || (view == View::Shown && t.shows_public());
}

std::optional<AccessError> read_access(VirtualReader& r, const AccessHead& h, uint8_t bank, uint16_t addr,
                                       uint16_t count, View view, std::vector<uint16_t>& words) {
    const Opened o = open_tag(r, h);
    if (o.error) return o.error;
    const bool pub = use_public(*o.tag, view);
    size_t n = count;
    if (auto e = check_read(*o.tag, bank, addr, n, o.secured, pub)) return e;
    const auto& mem = *bank_view(*o.tag, bank, pub).words;
    words.assign(mem.begin() + addr, mem.begin() + static_cast<std::ptrdiff_t>(addr + n));
    return std::nullopt;
}

std::optional<AccessError> write_access(VirtualReader& r, const AccessHead& h, uint8_t bank, uint16_t addr,
                                        std::span<const uint8_t> data, View view) {
    if (data.size() % 2 != 0) return AccessError::BadRequest;
    const Opened o = open_tag(r, h);
    if (o.error) return o.error;
    const bool pub = use_public(*o.tag, view);
    if (auto e = check_write(*o.tag, bank, addr, data.size() / 2, o.secured, pub)) return e;
    std::vector<uint16_t> words;
    for (size_t i = 0; i < data.size(); i += 2) words.push_back(static_cast<uint16_t>(data[i] << 8 | data[i + 1]));
    write_words(*o.tag, bank, addr, words, pub);
    return std::nullopt;
}

// ---- lock model ---------------------------------------------------------------

namespace {

enum Area { kKillPwd = 0, kAccessPwd = 1, kEpcArea = 2, kTidArea = 3, kUserArea = 4, kNoArea = -1 };

uint16_t pwd_bit(int area) { return static_cast<uint16_t>(1u << (9 - 2 * area)); }
uint16_t perma_bit(int area) { return static_cast<uint16_t>(1u << (8 - 2 * area)); }

int area_of(uint8_t bank, size_t word) {
    switch (bank) {
        case 0: return word < 2 ? kKillPwd : word < 4 ? kAccessPwd : kNoArea;
        case 1: return kEpcArea;
        case 2: return kTidArea;
        case 3: return kUserArea;
        default: return kNoArea;
    }
}

bool block_locked(const Tag& t, size_t word) {
    const size_t i = word / 16;
    return i < t.user_block_locks.size() && ((t.user_block_locks[i] >> (15 - word % 16)) & 1);
}

std::optional<AccessError> check_range(BankView v, size_t addr, size_t count) {
    if (v.words == nullptr || addr >= v.size || count > v.size - addr) return AccessError::MemoryOverrun;
    return std::nullopt;
}

}  // namespace

std::optional<AccessError> check_read(Tag& t, uint8_t bank, size_t addr, size_t& count, bool secured,
                                      bool public_view) {
    const BankView v = bank_view(t, bank, public_view);
    if (count == 0 && v.words != nullptr && addr < v.size) count = v.size - addr;
    if (auto e = check_range(v, addr, count)) return e;
    // Only the passwords can be read-locked.
    for (size_t w = addr; bank == 0 && w < addr + count; ++w) {
        const int area = area_of(bank, w);
        if (area != kNoArea && (t.lock_bits & pwd_bit(area)) && ((t.lock_bits & perma_bit(area)) || !secured))
            return AccessError::MemoryLocked;
    }
    return std::nullopt;
}

std::optional<AccessError> check_write(Tag& t, uint8_t bank, size_t addr, size_t count, bool secured,
                                       bool public_view) {
    if (count == 0) return AccessError::BadRequest;
    if (auto e = check_range(bank_view(t, bank, public_view), addr, count)) return e;
    for (size_t w = addr; w < addr + count; ++w) {
        const int area = area_of(bank, w);
        if (area == kNoArea) return AccessError::MemoryOverrun;
        const bool pwd = t.lock_bits & pwd_bit(area), perma = t.lock_bits & perma_bit(area);
        if (pwd && (perma || !secured)) return AccessError::MemoryLocked;
        if (bank == 3 && block_locked(t, w)) return AccessError::MemoryLocked;
    }
    return std::nullopt;
}

void write_words(Tag& t, uint8_t bank, size_t addr, std::span<const uint16_t> words, bool public_view) {
    auto& mem = *bank_view(t, bank, public_view).words;
    std::copy(words.begin(), words.end(), mem.begin() + static_cast<std::ptrdiff_t>(addr));
    // The stored CRC follows the PC and EPC unless the host wrote it itself.
    if (bank == 1 && addr > 0) mem[0] = gen2_crc16(words_to_bytes(std::span(mem).subspan(1)));
}

std::optional<AccessError> apply_lock(Tag& t, uint32_t payload, bool secured) {
    if (!secured) return AccessError::NotSecured;
    const uint16_t mask = (payload >> 10) & 0x3FF, action = payload & 0x3FF;
    const uint16_t next = static_cast<uint16_t>((t.lock_bits & ~mask) | (action & mask));
    for (int area = kKillPwd; area <= kUserArea; ++area) {
        const uint16_t both = pwd_bit(area) | perma_bit(area);
        // A permalocked or permanently unlocked area keeps its bits for good.
        if ((t.lock_bits & perma_bit(area)) && ((next ^ t.lock_bits) & both)) return AccessError::MemoryLocked;
    }
    t.lock_bits = next;
    return std::nullopt;
}

std::optional<AccessError> permalock_blocks(Tag& t, uint16_t ptr, std::span<const uint8_t> mask, bool lock,
                                            bool secured, std::vector<uint8_t>& bits_out) {
    if (!secured) return AccessError::NotSecured;
    if (mask.size() % 2 != 0) return AccessError::BadRequest;
    const size_t first = size_t{ptr} * 16, blocks = mask.size() * 8;
    t.user_block_locks.resize(std::max(t.user_block_locks.size(), (t.user.size() + 15) / 16), 0);
    if (lock) {
        for (size_t i = 0; i < blocks; ++i)
            if (((mask[i / 8] >> (7 - i % 8)) & 1) && first + i >= t.user.size()) return AccessError::MemoryOverrun;
        // Every set bit lies within USER now, so words past the table are all zero.
        for (size_t j = 0; j < mask.size() / 2 && ptr + j < t.user_block_locks.size(); ++j)
            t.user_block_locks[ptr + j] |= static_cast<uint16_t>(mask[2 * j] << 8 | mask[2 * j + 1]);
    }
    bits_out.clear();
    for (size_t j = 0; j < mask.size() / 2; ++j) {
        const uint16_t w = ptr + j < t.user_block_locks.size() ? t.user_block_locks[ptr + j] : 0;
        bits_out.push_back(static_cast<uint8_t>(w >> 8));
        bits_out.push_back(static_cast<uint8_t>(w & 0xFF));
    }
    return std::nullopt;
}

}  // namespace uhfsim
