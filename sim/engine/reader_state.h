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
};

// What the module is; only a firmware upgrade changes it (software_version).
struct Identity {
  std::array<uint8_t, 3> hardware_version{1, 2, 0};
  std::array<uint8_t, 3> software_version{2, 10, 4};
  std::array<uint8_t, 3> module_version{3, 1, 7};
  std::string module_name = "UHFSIM-R2000";
  uint32_t device_id = 0x20240001;
  uint8_t antenna_count = 4;
};

struct ReaderState {
  Settings current;
  Settings saved;
  Identity identity;
  int16_t temperature_centi = 3150;  // 31.50 degrees C
  int16_t supply_voltage = 3300;     // reported unscaled (millivolts here)

  // Firmware upgrade in progress: entered by 0xC0, fed by 0xC2/0xC4/0xC6.
  struct BootLoader {
    bool active = false;       // 0xC0 accepted
    uint8_t target = 0;        // the boot target byte of that 0xC0
    bool receiving = false;    // 0xC2 accepted, blocks being appended
    bool last_failed = false;  // the last image was refused; reported once
    std::vector<uint8_t> image;
  } boot;

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
