// One LLRP connection's Engine on hostile input: the input is a script of
// client bytes (any framing, any content), the reader's answers, tag reads,
// time passing and the link going down. Whatever the engine sends must be
// whole, well-formed messages; nothing may crash, leak or hang.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <string>
#include <string_view>

#include "llrp_engine.h"

namespace {

using namespace uhfd::llrp;

void check(bool ok) {
    if (!ok) abort();
}

void check_output(std::string& out) {
    for (std::string_view rest = out; !rest.empty();) {
        Header h;
        check(frame(rest, h) == Frame::Whole);
        Params ps(rest.substr(kHeaderSize, h.length - kHeaderSize));
        for (Param p; ps.next(p);) {
        }
        check(ps.ok());
        rest.remove_prefix(h.length);
    }
    out.clear();
}

// The reader behind the engine: the script says when each request is answered.
class FakePort : public Port {
public:
    ReaderFacts facts() override {
        ReaderFacts f;
        f.power_min_dbm = 5, f.power_max_dbm = 30, f.power_dbm = 20, f.connected = true;
        return f;
    }
    void start_inventory(const InventoryPlan&, uint32_t token) override { done.push_back(token); }
    void stop_inventory(uint32_t) override {}
    void set_power(int dbm, uint32_t token) override {
        check(dbm >= 5 && dbm <= 30);
        done.push_back(token);
    }
    void access(const AccessRequest& req, uint32_t token) override {
        check(req.epc.size() <= 62 && req.bank <= 3);
        accesses.push_back(token);
    }
    std::deque<uint32_t> done, accesses;
};

void engine(std::string_view s) {
    auto u8 = [&s] {
        uint8_t v = s.empty() ? 0 : uint8_t(s[0]);
        s.remove_prefix(s.empty() ? 0 : 1);
        return v;
    };
    auto bytes = [&s](size_t n) {
        std::string_view b = s.substr(0, n);
        s.remove_prefix(b.size());
        return b;
    };
    FakePort port;
    int64_t now = 1700000000000;
    Engine e(port, now);
    e.connected(now);
    for (bool open = true; open && !s.empty(); check_output(e.output())) {
        uint8_t op = u8() % 8;
        if (op == 0) {  // client bytes
            size_t n = size_t(u8()) << 8;
            std::string_view b = bytes(n | u8());
            open = e.input(reinterpret_cast<const uint8_t*>(b.data()), b.size(), now);
        } else if ((op == 1 || op == 2) && !port.done.empty()) {  // the oldest request done, or failed
            e.done(port.done.front(), op == 1 ? "" : "the reader failed", now);
            port.done.pop_front();
        } else if (op == 3) {  // the oldest access answered
            AccessResult r;
            r.code = AccessResult::Code(u8() % 6);
            std::string_view d = bytes(u8() % 8);
            r.data.assign(d.begin(), d.end());
            if (!port.accesses.empty()) e.access_done(port.accesses.front(), r, now);
            if (!port.accesses.empty()) port.accesses.pop_front();
        } else if (op == 4) {  // a tag read
            uhfd::Read r;
            r.antenna = u8() % 6;
            std::string_view epc = bytes(u8() % 63);
            std::copy(epc.begin(), epc.end(), r.epc.begin());
            r.epc_len = uint8_t(epc.size());
            r.rssi = int16_t(-10 * u8());
            r.time_ms = now;
            e.tag_read(r, now);
        } else if (op == 5 || op == 7) {  // time passes, or the next deadline comes
            now = op == 5 ? now + u8() * 50 : std::max(now, std::min(e.next_deadline(), now + 86400000));
            e.tick(now);
        } else if (op == 6) {
            e.link(u8() & 1, "link", now);
        }
    }
    e.disconnected(now);
    check_output(e.output());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    engine(std::string_view(reinterpret_cast<const char*>(data), size));
    return 0;
}
