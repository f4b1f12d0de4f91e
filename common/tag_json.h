// The JSON object of one tag read, as uhfctl's JSON lines and uhfd's outputs
// carry it: {"time":…,"reader":…,"epc":…,"pc":…,"data":…,"rssi":…,"antenna":…}.
#pragma once

#include <string>
#include <string_view>

namespace uhftools {

struct TagJson {
    double time = 0;      // Unix seconds (unix_now())
    std::string reader;   // its label or name
    std::string epc, pc;  // upper-case hex
    std::string data;     // TID/USER hex; left out when empty
    int rssi_tenths = 0;  // 0.1 dBm
    int antenna = 0;
};

std::string tag_json(const TagJson& t);

// The time of reads and events in uhfctl and uhfd: Unix seconds, kept to
// the millisecond in JSON (1764050000.123) and as ISO 8601 UTC in CSV.
double unix_now();
double to_ms(double seconds);              // rounded to the millisecond, as JSON carries it
std::string iso8601(double unix_seconds);  // "2025-11-25T06:13:20.123Z"

// A JSON string literal of s, quotes included.
std::string json_string(const std::string& s);
// A number as JSON prints it (shortest form that reads back, no trailing zeros).
std::string json_number(double v);
// The same, appended to out: encoders on a hot path reuse one buffer.
void append_json_string(std::string_view s, std::string& out);
void append_json_number(double v, std::string& out);

}  // namespace uhftools
