// What an LLRP connection may know and ask of the reader behind it. The
// engine (one per connection, single-threaded) calls a Port; the server
// implements it over the supervisor, which drives the reader's worker. Every
// request is asynchronous: its answer comes back to the engine later, on the
// engine's thread, through Engine::done / Engine::access_done with the token
// the engine gave.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace uhfd::llrp {

// Facts the capabilities and configuration answers are built from: learnt by
// the worker at connect and after each change (the supervisor's details).
struct ReaderFacts {
    std::string name;              // the reader's name in uhfd
    std::string device_id;         // 8 hex digits, "" when unknown
    std::string software;          // firmware version text, "" when unknown
    std::string hardware;          // hardware version text, "" when unknown
    std::string region;            // uhfd's region word ("fcc", "etsi", "china-920", "china-840"), "" when unknown
    int antenna_count = 4;         // antennas the module has, numbered 1..antenna_count
    int power_min_dbm = 1;         // the module's power steps: whole dBm from min to max
    int power_max_dbm = 30;
    std::optional<int> power_dbm;  // what the reader holds now
    std::vector<int> antennas;     // antennas in use now, by number
    std::optional<int> session, q;
    bool connected = false;        // the worker has a live link
};

// One inventory as an LLRP ROSpec asks it: antennas (empty = all the reader
// has), the Gen2 parameters the AISpec names (unset = keep the reader's), and
// an optional select mask the module filters its inventory by.
struct InventoryPlan {
    std::vector<int> antennas;
    std::optional<int> power_dbm;  // from the antenna configuration, when given
    std::optional<int> session, q;
    struct Mask {
        uint8_t bank = 1;       // 1 EPC, 2 TID, 3 USER
        uint16_t bit_ptr = 0;   // bit address in the bank (EPC: from the start of the bank, CRC and PC included)
        std::vector<uint8_t> bits;  // mask bytes, bit_len bits used from the first
        uint16_t bit_len = 0;
    };
    std::optional<Mask> mask;
};

// One tag-access operation on one tag, chosen by its EPC.
struct AccessRequest {
    enum Kind : uint8_t { Read, Write, Lock } kind = Read;
    std::vector<uint8_t> epc;  // the tag's EPC as it was reported
    uint32_t password = 0;
    uint8_t bank = 3;          // 0 reserved, 1 EPC, 2 TID, 3 USER
    uint16_t word_ptr = 0;
    uint16_t word_count = 0;   // Read: words to read (0 = all the module gives)
    std::vector<uint8_t> data; // Write: the words, big-endian byte pairs
    // Lock: the Gen2 lock payload's mask and action, 10 bits each.
    uint16_t lock_mask = 0, lock_action = 0;
};

struct AccessResult {
    // Why it failed, as LLRP's OpSpecResult codes see it: the engine maps
    // these to the C1G2 result of the op it ran.
    enum Code : uint8_t { Ok, NoResponse, InsufficientPower, Locked, MemoryOverrun, OtherError } code = Ok;
    std::vector<uint8_t> data;  // Read: the words read, big-endian byte pairs
};

class Port {
public:
    virtual ~Port() = default;
    virtual ReaderFacts facts() = 0;
    // Start (or change) the inventory the engine reports from; done(token, err).
    virtual void start_inventory(const InventoryPlan& plan, uint32_t token) = 0;
    // The engine reports nothing more; the reader goes back to what it did
    // before the first start (inventory for the other outputs, or idle).
    virtual void stop_inventory(uint32_t token) = 0;
    // Transmit power for every antenna (SET_READER_CONFIG); done(token, err).
    virtual void set_power(int dbm, uint32_t token) = 0;
    // One tag-access operation; access_done(token, result).
    virtual void access(const AccessRequest& req, uint32_t token) = 0;
};

}  // namespace uhfd::llrp
