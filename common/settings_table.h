// The reader settings by name: what each means, its unit and the values it
// takes. uhfctl (get, set, info, their help) and uhfd (configuration file,
// REST body) check and describe settings from this one table; the Python
// package mirrors it and its test compares against `uhfctl settings`.
#pragma once

#include <string>
#include <vector>

namespace uhftools {

struct Choice {
    const char* word;
    int code;  // what the reader is sent
};

struct SettingRow {
    const char* name;
    const char* meaning;          // one line
    const char* unit;             // "" when the number has none
    long min, max;                // a number's range; unused with choices
    std::vector<Choice> choices;  // the words it takes; empty for a number
    int gen2 = -1;                // position among UHFSetGen2's parameters, -1 if not a Gen2 field
};

// Every row, in the order uhfctl lists them.
const std::vector<SettingRow>& settings_table();
// The row of a name; the program is wrong (it aborts) when there is none.
const SettingRow& setting_row(const std::string& name);
const SettingRow* find_setting_row(const std::string& name);

// "1..30 dBm" or "fcc, etsi, china-920, china-840".
std::string range_text(const SettingRow& row);
// "power must be 1..30 dBm": the message every refusal of a value uses.
std::string range_error(const SettingRow& row);
bool in_range(const SettingRow& row, long value);
// A choice by its word or by its code written as a number; false otherwise.
bool choice_code(const SettingRow& row, const std::string& text, int& code);
// The word of a code, or the code as a number when the table has none.
std::string choice_word(const SettingRow& row, int code);
// The row as one JSON object: name, meaning, unit, min, max or name, meaning, choices.
std::string row_json(const SettingRow& row);

// Position i of the Gen2 block (reader_settings.h) is the row whose gen2 is i.
constexpr int kGen2Fields = 14;
// The rows of the Gen2 fields, in block order.
std::vector<const SettingRow*> gen2_rows();

}  // namespace uhftools
