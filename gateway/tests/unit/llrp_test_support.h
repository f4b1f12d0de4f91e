// What the LLRP unit tests share: a Port that records what the engine asks of
// the reader (the tests answer for it), and bytes written by hand.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "llrp_port.h"

namespace uhfd::llrp {

struct FakePort : Port {
    FakePort() { f.antenna_count = 4, f.power_min_dbm = 10, f.power_max_dbm = 30; }
    ReaderFacts f;
    std::vector<std::pair<InventoryPlan, uint32_t>> starts;
    std::vector<uint32_t> stops;
    std::vector<std::pair<int, uint32_t>> powers;
    std::vector<std::pair<AccessRequest, uint32_t>> accesses;
    ReaderFacts facts() override { return f; }
    void start_inventory(const InventoryPlan& p, uint32_t t) override { starts.push_back({p, t}); }
    void stop_inventory(uint32_t t) override { stops.push_back(t); }
    void set_power(int dbm, uint32_t t) override { powers.push_back({dbm, t}); }
    void access(const AccessRequest& q, uint32_t t) override { accesses.push_back({q, t}); }
};

// "04 0A 'text'" -> bytes: hex digits in pairs, spaces between pairs, quoted text as it is.
inline std::string hex(std::string_view h) {
    std::string out;
    for (size_t i = 0; i < h.size();) {
        if (h[i] == ' ') {
            i++;
        } else if (h[i] == '\'') {
            size_t end = std::min(h.find('\'', i + 1), h.size());
            out.append(h.substr(i + 1, end - i - 1));
            i = end + 1;
        } else {
            out.push_back(char(std::stoi(std::string(h.substr(i, 2)), nullptr, 16)));
            i += 2;
        }
    }
    return out;
}

}  // namespace uhfd::llrp
