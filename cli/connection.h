// The readers of one run (--tcp, --serial, --usb, --sim, UHF_READER), opened
// all or none (inventory: as many as will open), with exit code 3 and a
// specific message for each failure.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "reader_link.h"
#include "session.h"

namespace uhfctl {

using uhftools::kDefaultBaud;
using uhftools::kDefaultTcpPort;
using uhftools::parse_serial;
using uhftools::parse_target;
using uhftools::parse_tcp;
using uhftools::Target;

struct ConnectOptions {
    std::vector<std::string> tcp;
    std::vector<std::string> serial;
    bool usb = false;
    int sim = 0;  // number of in-process virtual readers
    unsigned sim_tags = 30;
    unsigned sim_rate = 300;
    unsigned sim_seed = 1;
};

}  // namespace uhfctl
namespace uhftools {
class SimReader;
}  // namespace uhftools
namespace uhfctl {

// Owns the open links and the in-process virtual readers behind --sim.
class Connections {
public:
    Connections();
    ~Connections();

    // Targets from the options, or from UHF_READER (comma-separated) when the
    // options name none. kUsage with err for bad text or no target at all.
    int targets(const ConnectOptions& o, std::vector<Target>& out, std::string& err) const;
    // Opens every target in order, all or none: kConnection with err. With
    // keep_going one that fails is said on stderr and left in out not open.
    int open(const std::vector<Target>& targets, const ConnectOptions& o, std::vector<Reader>& out, std::string& err,
             bool keep_going = false);
    // Tag count of the first in-process reader (0 without one).
    size_t sim_tag_count() const;
    void close_all();
    // Opens one target into r: kOk, or kConnection with err and r not open.
    int open_one(const Target& t, const ConnectOptions& o, Reader& r, std::string& err);

private:
    std::vector<std::unique_ptr<uhftools::SimReader>> sims_;
    bool opened_ = false;
};

}  // namespace uhfctl
