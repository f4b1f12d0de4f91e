// Everything the module remembers. Settings live in one struct with a saved
// copy: a set-command with its save flag writes both, a power cycle copies the
// saved one back. New settings are added to Settings and nowhere else.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "engine/regions.h"
#include "engine/tag_field.h"

namespace uhfsim {

enum class InventoryMode : uint8_t {
    Epc = 0,         // reports carry PC+EPC only
    EpcTid = 1,      // ... then the TID words
    EpcTidUser = 2,  // ... then TID, then USER words from user_addr
};

// A Select-style mask over tag memory; bit_len 0 lets every tag answer.
struct InventoryFilter {
    Bank bank = Bank::Epc;
    uint16_t bit_addr = 0;
    uint16_t bit_len = 0;
    std::vector<uint8_t> mask;
};

struct AntennaSettings {
    uint16_t read_power = 3000;  // 0.01 dBm
    uint16_t write_power = 3000;
    uint16_t work_time = 200;  // reader's unit (ms on most modules)
};

constexpr size_t kMaxUserParams = 1023;

// A network address as the module keeps it: bytes in wire order.
struct NetAddress {
    std::array<uint8_t, 4> ip{};
    std::array<uint8_t, 2> port{};
    std::array<uint8_t, 4> mask{};
    std::array<uint8_t, 4> gateway{};
};

struct Settings {
    std::array<AntennaSettings, kMaxAntennas> antennas{};
    uint16_t antenna_mask = 0x0001;  // bit 0 = antenna 1; wire order high byte first
    uint8_t region = 0x01;
    InventoryMode inventory_mode = InventoryMode::Epc;
    uint8_t tid_words = 6;  // TID words added in EpcTid / EpcTidUser modes
    uint8_t user_addr = 0;  // word address in USER
    uint8_t user_words = 0;
    bool sensor_inventory = false;  // reports become 0x7F with a sensor word

    // ---- RF link, hopping, Gen2 and inventory modes ----
    std::vector<uint32_t> hop_table = default_channels(0x01);         // kHz, inside the region's band
    uint8_t rf_link = 1;                                              // preset 0..3
    bool cw = false;                                                  // carrier on; never saved
    std::map<std::array<uint8_t, 5>, std::array<uint8_t, 4>> params;  // type + 4-byte id -> value
    uint8_t protocol_config = 0;
    std::array<uint8_t, 4> gen2{0x01, 0x40, 0xFD, 0x53};  // the packed Gen2 block
    bool fast_id = false;                                 // adds the TID to EPC-only reports
    bool tag_focus = false;
    InventoryFilter filter;  // limits which tags answer an inventory
    uint8_t dual_single = 0;
    uint8_t work_mode = 0;
    std::array<uint8_t, 6> work_mode_para{};
    std::array<uint8_t, 4> work_time{};
    uint8_t protocol_type = 0;
    // ---- end of RF link, hopping, Gen2 and inventory modes ----

    // ---- Device I/O, user parameters and network --------------------------
    // These commands carry no save flag. All but the outputs are kept at once
    // (written to the saved copy too); the outputs are live levels that drop
    // back to low on a restart.
    uint8_t temperature_protect = 0x01;
    uint8_t beep_mode = 0x01;
    std::array<uint8_t, 2> outputs{0, 0};  // level of output 1 and 2: 0 low, 1 high
    std::vector<uint8_t> user_params;      // opaque block, at most kMaxUserParams bytes
    NetAddress own{{192, 168, 1, 200}, {0x0F, 0xA1}, {255, 255, 255, 0}, {192, 168, 1, 1}};
    NetAddress destination{{192, 168, 1, 100}, {0x0F, 0xA2}, {}, {}};  // mask/gateway unused

    // ---- Tag access ---------------------------------------------------------
    // Bank region added to every report (0x30); a count of 0 leaves the
    // inventory mode's TID/USER data in place.
    struct ReportBank {
        uint8_t bank = 0;
        uint8_t addr = 0;   // word address
        uint8_t count = 0;  // words
    } report_bank;
    uint32_t dwell_time = 0;  // 0xB2, in the reader's own units
    uint32_t dwell_count = 0;

    // ---- Escaped tag stream -------------------------------------------------
    // Continuous inventory sends AA..55 tag frames instead of 0x83/0x7F:
    // 0x91/0xA6 with a CRC, 0x11/0x26 without (0xA6/0x26 for sensor tags).
    struct EscapedReports {
        bool on = false;
        bool crc = true;
    } escaped_reports;
};

// The packaged (A5 03) protocol's memory: clock, parameters by type, access
// bytes, work modes, partitions. Kept across power cycles, like flash and a
// battery-backed clock.
struct PackagedState {
    // The clock reads rtc_seconds (seconds since 1970, UTC) plus the time since
    // rtc_anchor; anchored at its first use.
    int64_t rtc_seconds = 1704067200;  // 2024-01-01 00:00:00
    std::optional<std::chrono::steady_clock::time_point> rtc_anchor;
    // Parameter values by type; type 3 is the work-mode table, type 4 has none.
    std::map<uint16_t, std::vector<uint8_t>> params{
        {0, {0x55, 0x48, 0x46, 0x53, 0x49, 0x4D, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01}},
        {1, {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x27, 0x10}},
        {2, {0x01}},
        {5, {0x00, 0x00, 0x0B, 0xB8}}};
    std::array<uint8_t, 12> access{0x20, 0x24, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0xA5, 0x5A, 0x00, 0x0C};
    std::vector<std::array<uint8_t, 7>> work_modes;
    std::array<std::array<uint8_t, 32>, 16> partitions{};
    std::array<std::array<uint8_t, 8>, 16> partition_tid{};  // TID of each partition's last write
    std::vector<uint8_t> special_partition;
    // What the plain-frame bodies set.
    std::array<uint8_t, 2> config{};
    uint8_t inventory_sper = 0;
    uint16_t fixed_frequency = 0;
};

// What the module is; only a firmware upgrade changes it (software_version).
struct Identity {
    std::array<uint8_t, 3> hardware_version{1, 2, 0};
    std::array<uint8_t, 3> software_version{2, 10, 4};
    std::array<uint8_t, 3> module_version{3, 1, 7};
    std::string module_name = "UHFSIM-1";
    uint32_t device_id = 0x20240001;
    uint8_t antenna_count = 4;
};

// Requests the reader accepts without modelling them, kept whole for tests.
struct AcceptedBlocks {
    std::vector<std::vector<uint8_t>> gb_locks;  // 0x06 sub 0x02 data
    std::vector<std::vector<uint8_t>> b0;        // 0xB0 data: deactivate, crypto pass-through
};

struct ReaderState {
    Settings current;
    Settings saved;
    Identity identity;
    int16_t temperature_centi = 3150;  // 31.50 degrees C
    uint8_t pa_status = 0;             // power amplifier: 0 is healthy
    int16_t supply_voltage = 3300;     // reported unscaled (millivolts here)

    // Firmware upgrade in progress: entered by 0xC0, fed by 0xC2/0xC4/0xC6.
    struct BootLoader {
        bool active = false;       // 0xC0 accepted
        uint8_t target = 0;        // the boot target byte of that 0xC0
        bool receiving = false;    // 0xC2 accepted, blocks being appended
        bool last_failed = false;  // the last image was refused; reported once
        std::vector<uint8_t> image;
    } boot;
    AcceptedBlocks accepted;

    PackagedState packaged;

    // Applies `change` to the live settings and, when asked, to the saved copy.
    template <typename F>
    void apply(bool save, F&& change) {
        change(current);
        if (save) change(saved);
    }

    void power_cycle() { current = saved; }
    // Factory settings, kept at once. The firmware (identity) stays as it is.
    void factory_reset() { current = saved = Settings{}; }
};

}  // namespace uhfsim
