#include "jsonl_out.h"

#include <cerrno>
#include <cstring>

namespace uhfd {

bool JsonLines::open(const std::string& path, std::string& err) {
    std::lock_guard<std::mutex> lock(mu_);
    path_ = path;
    f_ = path == "-" ? stdout : std::fopen(path.c_str(), "a");
    if (!f_) err = "cannot write " + path + ": " + std::strerror(errno);
    return f_ != nullptr;
}

void JsonLines::write(std::string_view json) {
    std::lock_guard<std::mutex> lock(mu_);
    if (!f_) return;
    std::fwrite(json.data(), 1, json.size(), f_);
    std::fputc('\n', f_);
    std::fflush(f_);
}

bool JsonLines::reopen(std::string& err) {
    std::lock_guard<std::mutex> lock(mu_);
    if (!f_ || f_ == stdout) return true;
    std::fclose(f_);
    f_ = std::fopen(path_.c_str(), "a");
    if (!f_) err = "cannot write " + path_ + ": " + std::strerror(errno);
    return f_ != nullptr;
}

JsonLines::~JsonLines() {
    if (f_ && f_ != stdout) std::fclose(f_);
}

}  // namespace uhfd
