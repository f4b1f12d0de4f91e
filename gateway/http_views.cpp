#include "http_views.h"

#include <cmath>

namespace uhfd {

using nlohmann::json;

namespace {

double tenth(double v) { return std::round(v * 10) / 10; }

json tag_json(const PresentTag& t, const Hub& hub) {
    std::string epc;
    append_hex(t.epc.data(), t.epc_len, epc);
    const double mean_tenths = t.reads ? static_cast<double>(t.rssi_sum) / static_cast<double>(t.reads) : 0;
    return {{"reader", t.reader < hub.readers() ? hub.name(t.reader) : std::to_string(t.reader)},
            {"epc", epc},
            {"antenna", t.antenna},
            {"reads", t.reads},
            {"rssi_peak", t.rssi_peak / 10.0},
            {"rssi_mean", tenth(mean_tenths / 10)},
            {"first_seen", static_cast<double>(t.first_ms) / 1000},
            {"last_seen", static_cast<double>(t.last_ms) / 1000}};
}

}  // namespace

json view_json(const ReaderView& v) {
    json j = {{"name", v.name},
              {"uri", v.uri},
              {"state", state_name(v.state)},
              {"reads", v.reads},
              {"reads_per_s", tenth(v.reads_per_s)},
              {"reconnects", v.reconnects}};
    if (!v.error.empty()) j["error"] = v.error;
    return j;
}

json tags_json(const std::vector<PresentTag>& tags, const Hub& hub) {
    json list = json::array();
    for (const PresentTag& t : tags) list.push_back(tag_json(t, hub));
    return list;
}

}  // namespace uhfd
