// Naming readers (--tcp, --serial, --usb, --sim, UHF_READER) and opening
// them, with a specific message and exit code 3 for each way it can fail.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "session.h"

namespace uhfctl {

constexpr int kDefaultTcpPort = 8888;
constexpr int kDefaultBaud = 115200;

struct Target {
    enum Kind { Tcp, Serial, Usb, Sim } kind = Tcp;
    std::string host;  // tcp
    int port = kDefaultTcpPort;
    std::string path;  // serial
    int baud = kDefaultBaud;

    std::string label() const;
};

// "HOST[:PORT]" of --tcp.
bool parse_tcp(const std::string& text, Target& out, std::string& err);
// "PATH[@BAUD]" of --serial.
bool parse_serial(const std::string& text, Target& out, std::string& err);
// One UHF_READER entry: tcp:HOST[:PORT], serial:PATH[@BAUD], usb or sim.
bool parse_target(const std::string& text, Target& out, std::string& err);

struct ConnectOptions {
    std::vector<std::string> tcp;
    std::vector<std::string> serial;
    bool usb = false;
    int sim = 0;  // number of in-process virtual readers
    unsigned sim_tags = 30;
    unsigned sim_rate = 300;
    unsigned sim_seed = 1;
};

class SimReader;

// Owns the open links and the in-process virtual readers behind --sim.
class Connections {
public:
    Connections();
    ~Connections();

    // Targets from the options, or from UHF_READER (comma-separated) when the
    // options name none. kUsage with err for bad text or no target at all.
    int targets(const ConnectOptions& o, std::vector<Target>& out, std::string& err) const;
    // Opens every target in order, all or none. kConnection with err.
    int open(const std::vector<Target>& targets, const ConnectOptions& o, std::vector<Reader>& out,
             std::string& err);
    // Tag count of the first in-process reader (0 without one).
    size_t sim_tag_count() const;
    void close_all();
    // Opens one target into r: kOk, or kConnection with err.
    int open_one(const Target& t, const ConnectOptions& o, Reader& r, std::string& err);

private:
    std::vector<std::unique_ptr<SimReader>> sims_;
    bool opened_ = false;
};

}  // namespace uhfctl
