// LLRP's decoders on a hostile byte stream: the framing, every parameter
// walked to the depth bound, the reader-description requests, and the
// configuration a SET_READER_CONFIG leaves, which must encode into a
// GET_READER_CONFIG answer that decodes again.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "llrp_caps.h"

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
        for (size_t skip = 0; skip <= 8 && skip <= p.body.size(); skip += 4) walk(ps.inside(p.body.substr(skip)), budget);
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
    case msg::GET_READER_CAPABILITIES:
        capabilities_response(out, h.id, body, f);
        return check_message(out, from);
    case msg::GET_READER_CONFIG:
        config_response(out, h.id, body, f, cfg);
        return check_message(out, from);
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
    default:
        return;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view in(reinterpret_cast<const char*>(data), size);
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
    return 0;
}
