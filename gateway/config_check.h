// Strict reading of JSON objects for uhfd's configuration: every key known,
// every value of its type and within its range, nothing wrapped or coerced,
// and each refusal names the JSON path of the value at fault.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace uhfd {

// "PATH: what is wrong" (just what for the whole document); the first fault
// found ends the reading.
struct ConfigFault : std::runtime_error {
    using std::runtime_error::runtime_error;
};

[[noreturn]] void fault(const std::string& path, const std::string& what);
// "readers[2]": the path of an array's item.
std::string item_path(const std::string& path, size_t i);

// "line 3, column 14: syntax error ..." for a parse error of text.
std::string parse_error_text(const std::string& text, const nlohmann::json::parse_error& e);
// The same for a number too large for a double (1e400).
std::string overflow_text(const std::string& text, const nlohmann::json::out_of_range& e);

// Parses a document (comments allowed) refusing a key given twice in one
// object, which JSON parsers otherwise resolve silently (the last one wins):
// ConfigFault "PATH: given twice". Syntax errors throw as json::parse does.
nlohmann::json parse_strict(const std::string& text);

// Whole numbers and strings read from single values; path names the value.
long long whole_number(const nlohmann::json& v, const std::string& path, long long min, long long max,
                       std::string_view unit = "");
double real_number(const nlohmann::json& v, const std::string& path, double min, double max,
                   std::string_view unit = "");
std::string text(const nlohmann::json& v, const std::string& path);
const nlohmann::json& array(const nlohmann::json& v, const std::string& path);

// One JSON object whose keys must all be among known.
class Fields {
public:
    Fields(const nlohmann::json& j, std::string path, const std::vector<std::string_view>& known);

    bool has(std::string_view key) const { return j_.contains(key); }
    const nlohmann::json& operator[](std::string_view key) const;  // faults "missing" when absent
    std::string path(std::string_view key) const;

    // Each reads key into out when present and leaves out alone otherwise.
    void get(std::string_view key, std::string& out) const;
    void get(std::string_view key, std::vector<std::string>& out) const;
    void get(std::string_view key, double& out, double min, double max, std::string_view unit = "") const;
    void get(std::string_view key, std::optional<double>& out, double min, double max,
             std::string_view unit = "") const;
    template <typename Int>
    void get(std::string_view key, Int& out, long long min, long long max, std::string_view unit = "") const {
        if (has(key)) out = static_cast<Int>(whole_number((*this)[key], path(key), min, max, unit));
    }

private:
    const nlohmann::json& j_;
    std::string path_;
};

}  // namespace uhfd
