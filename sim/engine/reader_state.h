// Everything the module remembers. Settings live in one struct with a saved
// copy: a set-command with its save flag writes both, a power cycle copies the
// saved one back. New settings are added to Settings and nowhere else.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/tag_field.h"

namespace uhfsim {

enum class InventoryMode : uint8_t {
  Epc = 0,         // reports carry PC+EPC only
  EpcTid = 1,      // ... then the TID words
  EpcTidUser = 2,  // ... then TID, then USER words from user_addr
};

struct AntennaSettings {
  uint16_t read_power = 3000;  // 0.01 dBm
  uint16_t write_power = 3000;
  uint16_t work_time = 200;  // reader's unit (ms on most modules)
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
  // Bank region added to every report (0x30); a count of 0 leaves the
  // inventory mode's TID/USER data in place.
  struct ReportBank {
    uint8_t bank = 0;
    uint8_t addr = 0;  // word address
    uint8_t count = 0;  // words
  } report_bank;
  uint32_t dwell_time = 0;  // 0xB2, in the reader's own units
  uint32_t dwell_count = 0;
};

// What the module is; not changed by commands.
struct Identity {
  std::array<uint8_t, 3> hardware_version{1, 2, 0};
  std::array<uint8_t, 3> software_version{2, 10, 4};
  std::array<uint8_t, 3> module_version{3, 1, 7};
  std::string module_name = "UHFSIM-R2000";
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
  AcceptedBlocks accepted;

  // Applies `change` to the live settings and, when asked, to the saved copy.
  template <typename F>
  void apply(bool save, F&& change) {
    change(current);
    if (save) change(saved);
  }

  void power_cycle() { current = saved; }
};

}  // namespace uhfsim
