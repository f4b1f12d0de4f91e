// The messages between the supervisor and a reader's worker, one per
// SOCK_SEQPACKET datagram: a type byte, then fields, big-endian. Reads travel
// binary in batches; the rare control messages (a reader's configuration, its
// details, settings to apply) carry a JSON text. Every decoder is bounds-checked:
// a message that does not parse is refused whole.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "events.h"

namespace uhfd::wire {

enum Type : uint8_t {
    // worker -> supervisor
    kReads = 1,      // u16 count, then per read: i64 time_ms, u8 antenna, u16 pc, i16 rssi, u8 epc_len, epc, u8 data_len, data
    kState = 2,      // u8 state (LinkState), text reason
    kDetails = 3,    // text JSON {"info":{…},"settings":{…}}
    kHeartbeat = 4,  // nothing
    kReply = 5,      // u32 request id, text error ("" when done)
    kAccessDone = 6, // u32 request id, u8 result (llrp::AccessResult::Code), the words read
    kOverflows = 7,  // u64: reports the library's full queue discarded in this worker's life
    // supervisor -> worker
    kStart = 10,      // text JSON: the reader's uri, settings and whether to inventory
    kApply = 11,      // u32 request id, text JSON settings
    kInventory = 12,  // u32 request id, u8 on
    kStop = 13,       // nothing: stop the inventory, close the link, exit
    kAccess = 14,     // u32 request id, text JSON: one tag-access operation (kAccessDone answers)
    kFilter = 15,     // u32 request id, text JSON: the inventory's select mask, {} lifts it (kReply answers)
};

// The largest message either side sends; batches of reads are cut to fit.
constexpr size_t kMaxMessage = 64 * 1024;
// A read's largest encoding: fixed fields plus a full EPC and data.
constexpr size_t kMaxReadBytes = 8 + 1 + 2 + 2 + 1 + 62 + 1 + 255;

// Builders: each starts a fresh message in out.
void begin_reads(std::string& out);
// False (and nothing appended) when the read would not fit kMaxMessage.
bool add_read(std::string& out, const Read& r);
void state(std::string& out, uint8_t state, std::string_view reason);
void text(std::string& out, Type type, std::string_view text);  // kDetails, kStart
void with_id(std::string& out, Type type, uint32_t id, std::string_view text);  // kReply, kApply, kAccess, kFilter
void access_done(std::string& out, uint32_t id, uint8_t result, std::string_view data);
void inventory(std::string& out, uint32_t id, bool on);
void bare(std::string& out, Type type);  // kHeartbeat, kStop
void overflows(std::string& out, uint64_t count);

// A decoded message. Views point into the datagram the message came from.
struct Message {
    Type type{};
    uint32_t id = 0;
    uint64_t count = 0;     // kOverflows
    uint8_t value = 0;      // kState: the state; kInventory: on; kAccessDone: the result
    std::string_view text;  // reason, JSON, error or (kAccessDone) the words read
};

// False when the datagram is not a well-formed message of a known type.
bool decode(std::string_view datagram, Message& m);
// One read in the layout a kReads message carries it (the outbox keeps reads
// so too); take_read moves in past it, false when it is malformed.
void put_read(std::string& out, const Read& r);
bool take_read(std::string_view& in, Read& r);
// The reads of a kReads datagram, appended to out with reader set; false
// (out unchanged) when any read is malformed or bytes are left over.
bool decode_reads(std::string_view datagram, uint16_t reader, std::vector<Read>& out);

}  // namespace uhfd::wire
