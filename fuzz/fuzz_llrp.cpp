// LLRP on hostile input. An input whose first byte is even is a byte stream
// for the decoders: the framing, every parameter walked to the depth bound,
// the reader-description requests, and the configuration a
// SET_READER_CONFIG leaves, which must encode into a GET_READER_CONFIG answer
// that decodes again. An odd first byte makes the rest a script for one
// connection's Engine: client bytes, the reader's answers, tag reads, time
// passing, the link going down; everything the engine sends must be whole,
// well-formed messages.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <string>
#include <string_view>

#include "llrp_caps.h"
#include "llrp_engine.h"

namespace {

using namespace uhfd::llrp;

void check(bool ok) {
    if (!ok) abort();
}

// Every parameter in every sequence, TLV bodies read as sub-parameters
// after each possible field length: covers the cursor at every depth.
void walk(Params ps, int& budget) {
    Param p;
    while (budget-- > 0 && ps.next(p)) {
        check(p.body.size() <= 0xFFFF);
        if (p.tv) {
            check(int(p.body.size()) == tv_body_length(uint8_t(p.type)));
            continue;
        }
        for (size_t skip = 0; skip <= 8 && skip <= p.body.size(); skip += 4)
            walk(ps.inside(p.body.substr(skip)), budget);
    }
}

// A response must frame as one whole message of its own length.
void check_message(const std::string& out, size_t from) {
    Header h;
    check(frame(std::string_view(out).substr(from), h) == Frame::Whole && h.length == out.size() - from);
    int budget = 10000;
    Params ps(std::string_view(out).substr(from + kHeaderSize));
    walk(ps, budget);
    Param p;
    while (ps.next(p)) {
    }
    check(ps.ok());
}

ReaderFacts facts() {
    ReaderFacts f;
    f.device_id = "0A1B2C3D";
    f.region = "fcc";
    f.antenna_count = 4;
    f.power_min_dbm = 5;
    f.power_max_dbm = 30;
    f.power_dbm = 20;
    return f;
}

void one_message(const Header& h, std::string_view body, const ReaderFacts& f, ReaderConfig& cfg, std::string& out) {
    size_t from = out.size();
    if (version_answer(out, h)) return check_message(out, from);
    switch (h.type) {
        case msg::GET_READER_CAPABILITIES: capabilities_response(out, h.id, body, f); return check_message(out, from);
        case msg::GET_READER_CONFIG: config_response(out, h.id, body, f, cfg); return check_message(out, from);
        case msg::SET_READER_CONFIG: {
            ConfigChange ch;
            Error e = parse_set_reader_config(body, f, cfg, ch);
            status_message(out, msg::SET_READER_CONFIG_RESPONSE, h.id, e);
            check_message(out, from);
            if (e) return;
            check(!ch.power_dbm || power_dbm(f, power_index(f, *ch.power_dbm)) == ch.power_dbm);
            cfg = ch.next;
            // What was accepted is given back, and reads again as it was.
            std::string get;
            config_response(get, 1, std::string_view("\0\0\0\0\0\0\0", 7), f, cfg);
            Params ps(std::string_view(get).substr(kHeaderSize));
            Param p;
            size_t antenna = 0;
            while (ps.next(p)) {
                if (p.type == param::ROReportSpec) {
                    ROReportSpec back;
                    check(!parse_ro_report_spec(p.body, 0, back) && back == cfg.ro_report);
                } else if (p.type == param::AntennaConfiguration) {
                    AntennaConfig back;
                    check(!parse_antenna_configuration(p.body, 0, f, back));
                    check(antenna < cfg.antennas.size() && back.power_index == cfg.antennas[antenna].power_index);
                    antenna++;
                }
            }
            check(ps.ok() && antenna == cfg.antennas.size());
            return;
        }
        default: return;
    }
}

void decoders(std::string_view in) {
    ReaderFacts f = facts();
    ReaderConfig cfg = factory_config(f);
    std::string out;
    while (!in.empty()) {
        Header h;
        Frame fr = frame(in, h);
        if (fr != Frame::Whole) break;
        std::string_view body = in.substr(kHeaderSize, h.length - kHeaderSize);
        int budget = 10000;
        walk(Params(body), budget);
        one_message(h, body, f, cfg, out);
        in.remove_prefix(h.length);
        out.clear();
    }
}

// The reader behind the engine: it records what was asked, and the script
// says when and how each request is answered.
class FakePort : public Port {
public:
    ReaderFacts facts() override {
        ReaderFacts f = ::facts();
        f.connected = true;
        return f;
    }
    void start_inventory(const InventoryPlan& plan, uint32_t token) override {
        check(plan.antennas.size() <= 64);
        done_.push_back(token);
    }
    void stop_inventory(uint32_t) override {}
    void set_power(int dbm, uint32_t token) override {
        check(dbm >= 5 && dbm <= 30);
        done_.push_back(token);
    }
    void access(const AccessRequest& req, uint32_t token) override {
        check(req.epc.size() <= 62 && req.bank <= 3);
        access_.push_back(token);
    }
    std::deque<uint32_t> done_, access_;
};

// Everything the engine sent: whole messages, each a walkable parameter sequence.
void check_output(std::string& out) {
    std::string_view rest = out;
    while (!rest.empty()) {
        Header h;
        check(frame(rest, h) == Frame::Whole);
        Params ps(rest.substr(kHeaderSize, h.length - kHeaderSize));
        Param p;
        while (ps.next(p)) {
        }
        check(ps.ok());
        rest.remove_prefix(h.length);
    }
    out.clear();
}

struct Script {
    std::string_view in;
    uint8_t u8() {
        if (in.empty()) return 0;
        uint8_t v = uint8_t(in[0]);
        in.remove_prefix(1);
        return v;
    }
    std::string_view bytes(size_t n) {
        std::string_view b = in.substr(0, n);
        in.remove_prefix(b.size());
        return b;
    }
};

void engine(std::string_view script) {
    Script s{script};
    FakePort port;
    int64_t now = 1700000000000;
    Engine e(port, now);
    e.connected(now);
    bool open = true;
    while (open && !s.in.empty()) {
        uint8_t op = s.u8() % 8;
        switch (op) {
            case 0: {  // client bytes
                size_t n = size_t(s.u8()) << 8 | s.u8();
                std::string_view b = s.bytes(n);
                open = e.input(reinterpret_cast<const uint8_t*>(b.data()), b.size(), now);
                break;
            }
            case 1:
            case 2:  // the oldest request answered: done or failed
                if (!port.done_.empty()) {
                    e.done(port.done_.front(), op == 1 ? "" : "the reader failed", now);
                    port.done_.pop_front();
                }
                break;
            case 3: {  // the oldest access answered
                AccessResult r;
                r.code = AccessResult::Code(s.u8() % 6);
                std::string_view d = s.bytes(s.u8() % 8);
                r.data.assign(d.begin(), d.end());
                if (!port.access_.empty()) {
                    e.access_done(port.access_.front(), r, now);
                    port.access_.pop_front();
                }
                break;
            }
            case 4: {  // a tag read
                uhfd::Read r;
                r.antenna = s.u8() % 6;
                r.epc_len = s.u8() % 63;
                std::string_view epc = s.bytes(r.epc_len);
                std::copy(epc.begin(), epc.end(), r.epc.begin());
                r.epc_len = uint8_t(epc.size());
                r.rssi = int16_t(-10 * s.u8());
                r.time_ms = now;
                e.tag_read(r, now);
                break;
            }
            case 5:  // time passes
                now += int64_t(s.u8()) * 50;
                e.tick(now);
                break;
            case 6: e.link(s.u8() & 1, "link", now); break;
            case 7:  // the next deadline comes
                if (e.next_deadline() != INT64_MAX) now = std::max(now, e.next_deadline());
                e.tick(now);
                break;
        }
        check_output(e.output());
    }
    e.disconnected(now);
    check_output(e.output());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view in(reinterpret_cast<const char*>(data), size);
    if (!in.empty() && (in[0] & 1)) {
        engine(in.substr(1));
    } else {
        decoders(in);
    }
    return 0;
}
