#include "oplog.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

namespace uhfd {

namespace {

// A value is quoted when it holds anything beyond a bare word.
void append_value(std::string& out, std::string_view v) {
    const bool bare = !v.empty() && v.find_first_of(" \"=\\\n\t") == std::string_view::npos;
    if (bare) {
        out += v;
        return;
    }
    out += '"';
    for (char c : v) {
        if (c == '"' || c == '\\') out += '\\';
        if (c == '\n') {
            out += "\\n";
            continue;
        }
        out += c;
    }
    out += '"';
}

const char* name_of(Level l) { return l == Level::Error ? "error" : l == Level::Warn ? "warn" : "info"; }
const char* priority_of(Level l) { return l == Level::Error ? "<3>" : l == Level::Warn ? "<4>" : "<6>"; }

}  // namespace

void oplog(Level level, std::string_view reader, std::string_view event, std::initializer_list<Field> fields) {
    static const bool journald = std::getenv("JOURNAL_STREAM") != nullptr;
    static std::mutex mu;  // whole lines, whichever thread logs
    std::string line = journald ? priority_of(level) : "";
    line += "uhfd: level=";
    line += name_of(level);
    if (!reader.empty()) {
        line += " reader=";
        append_value(line, reader);
    }
    line += " event=";
    append_value(line, event);
    for (const auto& [k, v] : fields) {
        line += ' ';
        line += k;
        line += '=';
        append_value(line, v);
    }
    line += '\n';
    std::lock_guard<std::mutex> lock(mu);
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

}  // namespace uhfd
