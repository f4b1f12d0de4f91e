// What every subcommand works with: the open readers, the output format and
// the exit codes the tool promises.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace uhfctl {

enum Exit { kOk = 0, kReaderFailed = 1, kUsage = 2, kConnection = 3 };

enum class Format { Text, Json, Csv };

// One open link: its slot in the library's link table and how it was named.
struct Reader {
    int slot = -1;      // -1: not open (inventory keeps such a reader to retry or report)
    std::string label;  // "tcp 127.0.0.1:4001", "serial /dev/ttyUSB0@115200", ...
    bool is_open() const { return slot >= 0; }
};

struct Session {
    std::vector<Reader> readers;
    Format format = Format::Text;

    bool several() const { return readers.size() > 1; }
    // Closes readers[i] and opens its target again into readers[i]: kOk, or
    // kConnection with err. Empty when readers cannot be reopened (demo).
    std::function<int(size_t i, std::string& err)> reopen;
    // Selects each reader in turn and runs fn on it; the worst exit code.
    int each(const std::function<int(const Reader&)>& fn) const;
};

// "uhfctl: <message>" on stderr; returns code.
int fail(int code, const std::string& message);
// The usual failure of a command the reader refused or left unanswered.
int reader_failed(const Reader& r, const std::string& what);

// Ctrl-C and SIGTERM set a flag; long-running loops poll it and stop the
// reader cleanly instead of dying with it running.
void install_stop_handler();
bool stop_requested();
void request_stop();

}  // namespace uhfctl
