// Single-shot, batch and continuous inventory.
#include "engine/handlers_common.h"

namespace uhfsim {

namespace {

// What one 0xEC reply may carry; the host's batch buffer is 512 bytes.
constexpr size_t kMaxBatchData = 512;

// 0x80 (data 00 64): one tag per request, rotating through the field. With no
// tag in the field a module stays silent and the host times out.
std::string single(VirtualReader& r, const Request& req) {
    const auto read = r.next_single_read();
    if (!read) return "no tag, no reply";
    const auto report = r.make_report(r.field().tags()[read->first], read->second, false);
    r.count_report();
    r.reply(reply_code(req), report);
    return "ok";
}

std::string batch(VirtualReader& r, const Request& req) {
    const auto reports = r.take_batch(kMaxBatchData);
    if (reports.empty()) {
        r.reply(reply_code(req), {0x00, 0x00});
        return "no tags";
    }
    std::vector<uint8_t> out{static_cast<uint8_t>(reports.size())};
    for (const auto& rep : reports) {
        out.push_back(static_cast<uint8_t>(rep.size()));
        out.insert(out.end(), rep.begin(), rep.end());
    }
    r.reply(reply_code(req), out);
    return std::to_string(reports.size()) + " tags";
}

// 0x82: no reply of its own; the 0x83/0x7F reports are the answer.
std::string start(VirtualReader& r, const Request&) {
    r.start_inventory();
    return "inventory running";
}

std::string stop(VirtualReader& r, const Request& req) {
    r.stop_inventory();
    r.reply(reply_code(req), {kAccepted});
    return "stopped";
}

// 0x30: password (not checked), bank, 00 word address, 00 word count: the
// region added to every report from now on (count 0: none).
std::string inventory_bank(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.size() != 9 || d[4] > 3 || d[5] != 0 || d[7] != 0) return status(r, req, false, "bad request");
    keep(r, [&](Settings& s) { s.report_bank = {d[4], d[6], d[8]}; });
    return status(r, req, true, "");
}

}  // namespace

void register_inventory(Dispatcher& d) {
    d.on(0x30, "set inventory bank", inventory_bank);
    d.on(0x80, "single inventory", single);
    d.on(0xEB, "get tag batch", batch);
    d.on(0x82, "start inventory", start);
    d.on(0x8C, "stop inventory", stop);
}

}  // namespace uhfsim
