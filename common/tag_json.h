// The JSON object of one tag read, as uhfctl's JSON lines and uhfd's outputs
// carry it: {"time":…,"reader":…,"epc":…,"pc":…,"data":…,"rssi":…,"antenna":…}.
#pragma once

#include <string>

namespace uhftools {

struct TagJson {
    double time = 0;      // seconds (since the run began, or the Unix epoch)
    std::string reader;   // its label or name
    std::string epc, pc;  // upper-case hex
    std::string data;     // TID/USER hex; left out when empty
    int rssi_tenths = 0;  // 0.1 dBm
    int antenna = 0;
};

std::string tag_json(const TagJson& t);
// A JSON string literal of s, quotes included.
std::string json_string(const std::string& s);
// A number as JSON prints it (shortest form that reads back, no trailing zeros).
std::string json_number(double v);

}  // namespace uhftools
