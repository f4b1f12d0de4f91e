// A virtual reader inside this process, served on a loopback port, so --sim
// and the demo exercise the same TCP path as a real networked reader.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace uhfsim {
class TcpServer;
}

namespace uhftools {

// The first tag of every in-process virtual reader, whatever the seed, so
// help examples and scripts can name it: a temperature sensor, and passwords
// set for lock and kill.
inline constexpr const char* kSimFirstEpc = "E20034120123456789ABCDEF";
inline constexpr uint32_t kSimFirstAccessPassword = 0x12345678;
inline constexpr uint32_t kSimFirstKillPassword = 0x0BADCAFE;

class SimReader {
public:
    SimReader(unsigned tags, unsigned rate, unsigned seed);
    ~SimReader();
    // False with err set when the listener cannot start.
    bool start(std::string& err);
    uint16_t port() const;
    size_t tag_count() const { return tags_; }

private:
    std::unique_ptr<uhfsim::TcpServer> server_;
    size_t tags_;
};

}  // namespace uhftools
