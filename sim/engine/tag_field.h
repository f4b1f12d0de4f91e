// The tags in front of the virtual reader: EPC Gen2 memory as 16-bit words,
// where each tag is visible, and how strongly.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "engine/rng.h"

namespace uhfsim {

constexpr int kMaxAntennas = 16;     // one bit each in the two-byte antenna mask
constexpr int16_t kRssiMax = -250;   // -25.0 dBm, strongest a report may carry
constexpr int16_t kRssiMin = -1200;  // -120.0 dBm, weakest

// EPC Gen2 CRC-16: poly 0x1021, init 0xFFFF, MSB first, result inverted.
uint16_t gen2_crc16(std::span<const uint8_t> bytes);

enum class Bank : uint8_t { Reserved = 0, Epc = 1, Tid = 2, User = 3 };

struct TempSensor {
    int16_t centi_celsius = 2500;  // what the chip measures now
    uint16_t code = 0;             // raw sensor word sent in sensor inventory reports

    // ---- Logging, battery and calibration (0xA3, 0x7C) ----------------------
    uint16_t battery_mv = 3000;
    std::optional<std::array<uint8_t, 8>> calibration;  // unset: derived from the EPC
    // A logging run: a reading every interval_s seconds, the first delay_s
    // seconds after the start, until the stop.
    struct LogRun {
        bool started = false;
        bool running = false;
        std::chrono::steady_clock::time_point start{};
        std::chrono::steady_clock::time_point stop{};
        uint16_t delay_s = 0;
        uint16_t interval_s = 1;
        uint16_t min_code = 0;  // limits as 10-bit codes
        uint16_t max_code = 0;
    } log;
};

struct Tag {
    // Reserved bank: kill password in words 0-1, access password in words 2-3.
    std::vector<uint16_t> reserved = std::vector<uint16_t>(4, 0);
    // EPC bank: word 0 stored CRC, word 1 PC, EPC from word 2. Use set_epc().
    std::vector<uint16_t> epc_bank = std::vector<uint16_t>(2, 0);
    std::vector<uint16_t> tid;
    std::vector<uint16_t> user;

    // Base RSSI per antenna in 0.1 dBm; nullopt = not in that antenna's field.
    std::array<std::optional<int16_t>, kMaxAntennas> rssi{};

    // Gen2 lock state in the layout of the Lock payload's action field: two
    // bits per area (password/write lock, permalock), kill password in bits
    // 9-8, access password 7-6, EPC 5-4, TID 3-2, USER 1-0.
    uint16_t lock_bits = 0;
    // Block permalock of USER: one bit per word, most significant bit first,
    // 16 words per entry.
    std::vector<uint16_t> user_block_locks;
    bool killed = false;
    // QT control: bit 1 set shows the public memory view.
    uint16_t qt_control = 0;
    // EPC bank of the public view (CRC, PC, EPC); empty: the private one is shown.
    std::vector<uint16_t> public_epc_bank;
    std::optional<TempSensor> sensor;

    // Stores the EPC (whole words), fixes the PC length bits and the CRC.
    // Other PC bits come from `pc_flags` (its length bits are ignored).
    void set_epc(std::span<const uint8_t> epc, uint16_t pc_flags = 0);
    uint16_t pc() const { return epc_bank[1]; }
    uint16_t stored_crc() const { return epc_bank[0]; }
    size_t epc_words() const { return epc_bank.size() - 2; }
    std::vector<uint8_t> epc() const;
    std::vector<uint8_t> uii() const;  // PC then EPC of the view shown, as inventory reports carry it
    std::vector<uint16_t>* bank(Bank b);
    const std::vector<uint16_t>* bank(Bank b) const;
    // True when bit_len bits of bank b from bit_addr (MSB of word 0 is bit 0)
    // equal the leading bits of mask, in the memory the tag shows (QT view).
    // Memory the tag lacks never matches.
    bool matches(Bank b, size_t bit_addr, size_t bit_len, std::span<const uint8_t> mask) const;
    // A public EPC for the QT public view (PC and CRC made as by set_epc).
    void set_public_epc(std::span<const uint8_t> epc);
    bool shows_public() const { return (qt_control & kQtPublic) != 0; }
    // The EPC bank, TID and USER as the tag shows them now: the public view
    // shows its own EPC, the first kPublicTidWords of the TID and no USER.
    const std::vector<uint16_t>& shown_epc_bank() const;
    std::span<const uint16_t> shown_tid() const;
    std::span<const uint16_t> shown_user() const;
    std::span<const uint16_t> shown_bank(Bank b) const;

    static constexpr uint16_t kQtPublic = 0x0002;
    static constexpr size_t kPublicTidWords = 2;
    bool visible_on(int antenna) const;  // antenna numbered from 1
};

std::vector<uint8_t> words_to_bytes(std::span<const uint16_t> words);

class TagField {
public:
    TagField() = default;
    explicit TagField(std::vector<Tag> tags) : tags_(std::move(tags)) {}

    // Loads the JSON tag file (format in sim/README.md). On failure returns
    // nullopt and, when `error` is given, says what was wrong.
    static std::optional<TagField> from_json(const std::string& text, std::string* error = nullptr);
    static std::optional<TagField> load_file(const std::string& path, std::string* error = nullptr);
    // `count` tags with random EPC/TID, present on antenna 1 and on each of the
    // next `antennas`-1 antennas with even odds. Same seed, same field.
    static TagField random(size_t count, uint64_t seed, int antennas = 1);

    std::vector<Tag>& tags() { return tags_; }
    const std::vector<Tag>& tags() const { return tags_; }
    size_t size() const { return tags_.size(); }
    void add(Tag t) { tags_.push_back(std::move(t)); }

private:
    std::vector<Tag> tags_;
};

}  // namespace uhfsim
