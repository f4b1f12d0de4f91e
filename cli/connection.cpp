#include "connection.h"

#include <cstdlib>

#include "UHF.h"
#include "sim_reader.h"

namespace uhfctl {

Connections::Connections() = default;

Connections::~Connections() { close_all(); }

int Connections::targets(const ConnectOptions& o, std::vector<Target>& out, std::string& err) const {
    out.clear();
    Target t;
    for (const auto& s : o.tcp) {
        if (!parse_tcp(s, t, err)) return kUsage;
        out.push_back(t);
    }
    for (const auto& s : o.serial) {
        if (!parse_serial(s, t, err)) return kUsage;
        out.push_back(t);
    }
    t = Target{};
    t.kind = Target::Usb;
    if (o.usb) out.push_back(t);
    t.kind = Target::Sim;
    for (int i = 0; i < o.sim; i++) out.push_back(t);
    if (!out.empty()) return kOk;

    const char* env = std::getenv("UHF_READER");
    std::string list = env ? env : "";
    size_t start = 0;
    while (start < list.size()) {
        size_t comma = list.find(',', start);
        std::string item = list.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        start = comma == std::string::npos ? list.size() : comma + 1;
        if (item.empty()) continue;
        if (!parse_target(item, t, err)) {
            err = "UHF_READER: " + err;
            return kUsage;
        }
        out.push_back(t);
    }
    if (out.empty()) {
        err =
            "no reader given: use --tcp HOST[:PORT], --serial PATH[@BAUD], --usb or --sim, or set UHF_READER "
            "(for example UHF_READER=tcp:192.168.1.50:8888)";
        return kUsage;
    }
    return kOk;
}

int Connections::open(const std::vector<Target>& targets, const ConnectOptions& o, std::vector<Reader>& out,
                      std::string& err, bool keep_going) {
    if (targets.size() > MAX_TERMINALS) {
        err = "at most " + std::to_string(MAX_TERMINALS) + " readers at once";
        return kUsage;
    }
    opened_ = true;
    out.clear();
    for (const Target& t : targets) {
        Reader r;
        int rc = open_one(t, o, r, err);
        if (rc != kOk && keep_going) {
            fail(rc, err);
        } else if (rc != kOk) {
            close_all();
            out.clear();
            return rc;
        }
        out.push_back(r);
    }
    return kOk;
}

int Connections::open_one(const Target& given, const ConnectOptions& o, Reader& r, std::string& err) {
    Target t = given;
    r.slot = -1;
    r.label = t.label();
    if (t.kind == Target::Sim) {
        // Each virtual reader gets its own seed so several of them hold different tags.
        auto sim = std::make_unique<uhftools::SimReader>(o.sim_tags, o.sim_rate,
                                                         o.sim_seed + static_cast<unsigned>(sims_.size()));
        if (!sim->start(err)) return kConnection;
        t.host = "127.0.0.1";
        t.port = sim->port();
        sims_.push_back(std::move(sim));
    }
    r.label = t.label();

    if (!uhftools::open_target(t, err)) return kConnection;
    r.slot = LinkGetSelected();
    return kOk;
}

size_t Connections::sim_tag_count() const { return sims_.empty() ? 0 : sims_.front()->tag_count(); }

void Connections::close_all() {
    if (opened_) LinkCloseAll();
    opened_ = false;
    sims_.clear();
}

}  // namespace uhfctl
