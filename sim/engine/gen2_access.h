// EPC Gen2 tag access as the virtual reader performs it: reading the fields
// of a tag-access request, selecting a tag by its filter, the access password
// and the secured state, the lock model (area lock bits, USER block
// permalock) and bank access through the QT memory views.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "engine/tag_field.h"

namespace uhfsim {

class VirtualReader;

// A failed access is answered 0x00 then one of these (sim/README.md).
enum class AccessError : uint8_t {
    MemoryOverrun = 0x03,  // the words lie past the end of the bank
    MemoryLocked = 0x04,   // a locked or permalocked area or block
    NoTag = 0x10,          // no tag in the field matches the filter
    NotSecured = 0x11,     // wrong password, or the command needs the access password
    BadRequest = 0x12,     // fields missing, left over or out of range
};
const char* describe(AccessError e);

// Reads big-endian request fields in order; a read past the end marks the
// reader bad and yields zeros.
class FieldReader {
public:
    explicit FieldReader(std::span<const uint8_t> d) : d_(d) {}
    uint8_t u8();
    uint16_t u16();
    uint32_t u32();
    std::span<const uint8_t> bytes(size_t n);
    bool ok() const { return ok_; }
    bool at_end() const { return ok_ && at_ == d_.size(); }

private:
    std::span<const uint8_t> d_;
    size_t at_ = 0;
    bool ok_ = true;
};

struct Filter {
    uint8_t bank = 0;
    uint16_t bit_addr = 0;
    uint16_t bit_len = 0;
    std::span<const uint8_t> mask;  // ceil(bit_len / 8) bytes
};

// Access password then filter block: the head of every tag-access request.
struct AccessHead {
    uint32_t password = 0;
    Filter filter;
};
AccessHead read_head(FieldReader& f);

// Whether the filter's bits equal the tag's memory as it shows it now. A
// filter of length 0 matches every tag.
bool filter_matches(const Tag& t, const Filter& f);

// The first tag of the field that is alive, seen by an enabled antenna and
// matched by the filter; null when none is.
Tag* select_tag(VirtualReader& r, const Filter& f);

// Gen2 access: a zero password leaves the tag in the open state (secured at
// once when its own access password is zero); any other must equal it.
std::optional<bool> secured_by(const Tag& t, uint32_t password);
uint32_t access_password(const Tag& t);
uint32_t kill_password(const Tag& t);

// A bank as one view of the tag presents it. The reserved bank is the same
// in both views; the public view shows its own EPC bank, the first TID words
// and no USER memory.
struct BankView {
    std::vector<uint16_t>* words = nullptr;
    size_t size = 0;  // words that exist in this view
};
BankView bank_view(Tag& t, uint8_t bank, bool public_view);

// Checks a read or write of count words at addr; nullopt when allowed. A
// count of 0 means "to the end of the bank".
std::optional<AccessError> check_read(Tag& t, uint8_t bank, size_t addr, size_t& count, bool secured, bool public_view);
std::optional<AccessError> check_write(Tag& t, uint8_t bank, size_t addr, size_t count, bool secured, bool public_view);
// Stores words (already checked) and keeps the stored CRC of an EPC bank.
void write_words(Tag& t, uint8_t bank, size_t addr, std::span<const uint16_t> words, bool public_view);

// A tag selected by a request head and opened with its password.
struct Opened {
    Tag* tag = nullptr;
    bool secured = false;
    std::optional<AccessError> error;
};
Opened open_tag(VirtualReader& r, const AccessHead& h);

// Which memory view an access goes through: the one the tag shows, or the
// one a QT command names.
enum class View { Shown, Private, Public };

// Reads count words (0: to the end of the bank) of the tag the head selects.
std::optional<AccessError> read_access(VirtualReader& r, const AccessHead& h, uint8_t bank, uint16_t addr,
                                       uint16_t count, View view, std::vector<uint16_t>& words);
// Writes data (whole words, big-endian) to the tag the head selects.
std::optional<AccessError> write_access(VirtualReader& r, const AccessHead& h, uint8_t bank, uint16_t addr,
                                        std::span<const uint8_t> data, View view);

// Gen2 Lock: the low 20 bits of payload are a 10-bit mask and a 10-bit
// action in the tag's lock-bit layout. All or nothing.
std::optional<AccessError> apply_lock(Tag& t, uint32_t payload, bool secured);

// USER block permalock, one block per word: `words` mask words from block
// 16 x ptr. Locking ORs mask into the tag's bits; both return the bits now.
std::optional<AccessError> permalock_blocks(Tag& t, uint16_t ptr, std::span<const uint8_t> mask, bool lock,
                                            bool secured, std::vector<uint8_t>& bits_out);

}  // namespace uhfsim
