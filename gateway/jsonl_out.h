// Reads and events as JSON lines, to standard output or a file that
// logrotate may move away: reopen() (on SIGHUP) starts the file again.
#pragma once

#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>

namespace uhfd {

class JsonLines {
public:
    // path "-" is standard output.
    bool open(const std::string& path, std::string& err);
    void write(std::string_view json);
    bool reopen(std::string& err);
    ~JsonLines();

private:
    std::mutex mu_;
    std::string path_;
    FILE* f_ = nullptr;
};

}  // namespace uhfd
