#include "settings_table.h"

#include <cstdlib>

#include "tag_json.h"

namespace uhftools {

namespace {

SettingRow number(const char* name, const char* meaning, const char* unit, long min, long max, int gen2 = -1) {
    return {name, meaning, unit, min, max, {}, gen2};
}

SettingRow words(const char* name, const char* meaning, std::vector<Choice> choices) {
    return {name, meaning, "", 0, 0, std::move(choices), -1};
}

std::vector<SettingRow> make_table() {
    const std::vector<Choice> on_off = {{"off", 0}, {"on", 1}};
    return {
        number("power", "output power of each antenna (read and write)", "dBm", 1, 30),
        number("antennas", "antennas in use, by number", "", 1, 16),
        // Region codes as modules commonly number them.
        words("region", "regulatory region: the band the reader hops in",
              {{"fcc", 1}, {"etsi", 2}, {"china-920", 3}, {"china-840", 4}}),
        number("frequencies", "hopping table, 1 to 84 channels", "kHz", 1, 0xFFFFFF),
        number("rflink", "RF link preset of the reader", "", 0, 3),
        // Gen2 fields, in UHFSetGen2's order.
        number("select_target", "Select command's target (0..3 flags S0..S3, 4 SL)", "", 0, 7, 0),
        number("select_action", "Select command's action on matching and other tags", "", 0, 7, 1),
        number("truncate", "Select's truncate bit: matching tags reply with part of their EPC", "", 0, 1, 2),
        number("q_algorithm", "Q algorithm: 0 fixed Q, 1 dynamic Q between min_q and max_q", "", 0, 1, 3),
        number("q", "initial Q: a Query opens 2^q slots", "", 0, 15, 4),
        number("min_q", "lowest Q of the dynamic Q algorithm", "", 0, 15, 5),
        number("max_q", "highest Q of the dynamic Q algorithm", "", 0, 15, 6),
        number("dr", "divide ratio of the Query: 0 DR=8, 1 DR=64/3", "", 0, 1, 7),
        number("coding", "tag reply coding, Miller M: 0 FM0, 1 M=2, 2 M=4, 3 M=8", "", 0, 3, 8),
        number("trext", "TRext: 1 asks tags for a pilot tone before each reply", "", 0, 1, 9),
        number("sel", "Sel of the Query: 0 and 1 all tags, 2 not SL, 3 SL", "", 0, 3, 10),
        number("session", "inventory session S0..S3", "", 0, 3, 11),
        number("target", "inventoried flag a Query targets: 0 A, 1 B", "", 0, 1, 12),
        number("link_frequency", "backscatter link frequency, the reader's code", "", 0, 7, 13),
        words("fastid", "FastID: the TID comes with every EPC", on_off),
        words("tagfocus", "TagFocus: a read tag keeps quiet for the rest of the round", on_off),
        words("mode", "what an inventory reports besides the EPC", {{"epc", 0}, {"epc+tid", 1}, {"epc+tid+user", 2}}),
        words("filter", "inventory filter: the bank whose memory must match, or off",
              {{"reserved", 0}, {"epc", 1}, {"tid", 2}, {"user", 3}}),
        number("work-mode", "work mode: 0 on command, 1 automatic, 2 on trigger", "", 0, 2),
        number("temp-protect", "over-temperature protection byte", "", 0, 255),
        number("beep", "beeper mode (the reader defines the modes)", "", 0, 255),
        words("outputs", "level of digital output 1, 2 or all", {{"low", 0}, {"high", 1}}),
        number("ip", "the reader's own address; the range is its TCP port's", "port", 1, 65535),
        number("dest-ip", "the address the reader sends to; the range is its TCP port's", "port", 1, 65535),
        number("user-params", "opaque block kept in the reader, hex", "bytes", 0, 1023),
    };
}

}  // namespace

const std::vector<SettingRow>& settings_table() {
    static const std::vector<SettingRow> table = make_table();
    return table;
}

const SettingRow* find_setting_row(const std::string& name) {
    for (const SettingRow& r : settings_table())
        if (name == r.name) return &r;
    return nullptr;
}

const SettingRow& setting_row(const std::string& name) {
    const SettingRow* r = find_setting_row(name);
    if (!r) std::abort();  // a name in the code that the table lacks
    return *r;
}

std::string range_text(const SettingRow& row) {
    if (row.choices.empty())
        return std::to_string(row.min) + ".." + std::to_string(row.max) + (*row.unit ? " " : "") + row.unit;
    std::string s;
    for (const Choice& c : row.choices) s += (s.empty() ? "" : ", ") + std::string(c.word);
    return s;
}

std::string range_error(const SettingRow& row) {
    return std::string(row.name) + (row.choices.empty() ? " must be " : " must be one of ") + range_text(row);
}

bool in_range(const SettingRow& row, long value) { return row.choices.empty() && value >= row.min && value <= row.max; }

bool choice_code(const SettingRow& row, const std::string& text, int& code) {
    for (const Choice& c : row.choices)
        if (text == c.word || text == std::to_string(c.code)) {
            code = c.code;
            return true;
        }
    return false;
}

std::string choice_word(const SettingRow& row, int code) {
    for (const Choice& c : row.choices)
        if (c.code == code) return c.word;
    return std::to_string(code);
}

std::string row_json(const SettingRow& row) {
    std::string j = "{\"name\":" + json_string(row.name) + ",\"meaning\":" + json_string(row.meaning);
    if (row.choices.empty())
        return j + ",\"unit\":" + json_string(row.unit) + ",\"min\":" + std::to_string(row.min) +
               ",\"max\":" + std::to_string(row.max) + "}";
    j += ",\"choices\":[";
    for (size_t i = 0; i < row.choices.size(); i++) j += (i ? "," : "") + json_string(row.choices[i].word);
    return j + "]}";
}

std::vector<const SettingRow*> gen2_rows() {
    std::vector<const SettingRow*> rows(kGen2Fields);
    for (const SettingRow& r : settings_table())
        if (r.gen2 >= 0) rows[static_cast<size_t>(r.gen2)] = &r;
    return rows;
}

}  // namespace uhftools
