// The reader settings `get`, `set` and `info` share: one entry per name,
// registered by the file of its command family.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "format.h"
#include "settings_table.h"

namespace uhfctl {

struct Value {
    std::string text;  // what a person reads
    Json json;         // what a script reads
};

struct Setting {
    std::string name;
    std::string help;    // one line: what it is
    std::string syntax;  // arguments of `set`; empty: read-only
    // Reads it from the selected reader; false when the reader refused or was silent.
    std::function<bool(Value&)> get;
    // Writes it: kOk, kUsage (err says why) or kReaderFailed.
    std::function<int(const std::vector<std::string>& args, bool save, std::string& err)> set;
    bool in_info = true;
};

// Every setting, in the order `info` shows them.
const std::vector<Setting>& all_settings();
const Setting* find_setting(const std::string& name);

// Family registrations, called once by all_settings().
void register_identity_settings(std::vector<Setting>& out);  // versions, id, temperature
void register_config_settings(std::vector<Setting>& out);    // power, antennas, region, Gen2...
void register_device_settings(std::vector<Setting>& out);    // I/O and network

// Helpers for the families.
Setting make_setting(std::string name, std::string help, std::string syntax);
// A setting of the shared table: its help is the table's meaning and range.
Setting table_setting(const std::string& name, std::string syntax);
Setting read_only(std::string name, std::string help, std::function<bool(Value&)> get);
// A one-byte setting in its table range, with a get and a set call.
Setting byte_setting(const std::string& name, std::string syntax, int (*get)(unsigned char*),
                     std::function<int(bool save, unsigned char)> set);
// A whole number in the table range of a setting.
bool parse_in_range(const uhftools::SettingRow& row, const std::string& text, unsigned long& out);
// err = why; kUsage.
int usage(std::string& err, const std::string& why);
// kOk for a library result of 0, else kReaderFailed.
int set_status(int rc);
Value text_value(const std::string& text);
Value number_value(double n, const std::string& text);
// "A.B.C.D" into 4 bytes.
bool parse_ipv4(const std::string& text, uint8_t out[4]);
std::string ipv4_text(const uint8_t ip[4]);

}  // namespace uhfctl
