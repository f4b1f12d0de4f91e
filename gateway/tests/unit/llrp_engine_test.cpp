// The LLRP engine driven with client bytes built by the codec's writer, and
// its output read back with the codec's reader: a fake Port records what the
// engine asks of the reader, and the tests answer for it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "llrp_engine.h"
#include "llrp_test_support.h"

namespace uhfd::llrp {
namespace {

using Strings = std::vector<std::string>;

// Fields as bytes; parameters and messages framed by the codec's writer.
std::string u8(unsigned v) { return std::string(1, char(v)); }
std::string u16(unsigned v) { return u8(v >> 8) + u8(v & 0xFF); }
std::string u32(uint32_t v) { return u16(v >> 16) + u16(v & 0xFFFF); }
std::string tlv(uint16_t type, const std::string& body = "") {
    std::string out;
    Writer w(out);
    size_t at = w.begin(type);
    w.bytes(body);
    w.end(at);
    return out;
}
std::string message(uint16_t type, const std::string& body = "", uint8_t version = kVersion) {
    std::string out;
    Writer w(out);
    size_t at = w.begin_message(type, 7, version);
    w.bytes(body);
    w.end_message(at);
    return out;
}
std::string with_id(uint16_t type, uint32_t id) { return message(type, u32(id)); }

// TagReportContentSelector bits.
constexpr unsigned kAnt = 1 << 12, kRssi = 1 << 10, kFirst = 1 << 9, kLast = 1 << 8, kCount = 1 << 7, kAccess = 1 << 6;

struct RO {
    unsigned id = 1, start = 1, offset = 0, period = 0, duration = 0;  // start 1: Immediate
    std::vector<uint16_t> antennas{1};
    unsigned ai_stop = 0, ai_duration = 0, n_tags = 0, ais = 1;
    std::vector<uint16_t> powers{};  // RFTransmitter index per antenna, when given
    unsigned trigger = 2, n = 0, content = kAnt | kCount | kFirst | kLast | kRssi;
    std::string in_ai = {}, in_ro = {};
};

std::string add(const RO& r) {
    std::string ids = u16(unsigned(r.antennas.size())), configs;
    for (size_t i = 0; i < r.antennas.size(); i++) {
        ids += u16(r.antennas[i]);
        std::string tx = i < r.powers.size() ? tlv(param::RFTransmitter, u16(1) + u16(1) + u16(r.powers[i])) : "";
        std::string singulation = tlv(param::C1G2SingulationControl, u8(2 << 6) + u16(5) + u32(0));
        configs += tlv(param::AntennaConfiguration,
                       u16(r.antennas[i]) + tx + tlv(param::C1G2InventoryCommand, u8(0) + singulation));
    }
    std::string tags = tlv(param::TagObservationTrigger, u8(0) + u8(0) + u16(r.n_tags) + u16(0) + u16(0) + u32(0));
    std::string stop = tlv(param::AISpecStopTrigger, u8(r.ai_stop) + u32(r.ai_duration) + (r.ai_stop == 3 ? tags : ""));
    std::string ai =
        tlv(param::AISpec, ids + stop + tlv(param::InventoryParameterSpec, u16(9) + u8(1) + configs) + r.in_ai);
    std::string periodic = r.start == 2 ? tlv(param::PeriodicTriggerValue, u32(r.offset) + u32(r.period)) : "";
    std::string boundary =
        tlv(param::ROBoundarySpec, tlv(param::ROSpecStartTrigger, u8(r.start) + periodic) +
                                       tlv(param::ROSpecStopTrigger, u8(r.duration ? 1 : 0) + u32(r.duration)));
    std::string body = u32(r.id) + u8(0) + u8(0) + boundary;
    for (unsigned k = 0; k < r.ais; k++) body += ai;
    body += r.in_ro +
            tlv(param::ROReportSpec, u8(r.trigger) + u16(r.n) + tlv(param::TagReportContentSelector, u16(r.content)));
    return message(msg::ADD_ROSPEC, tlv(param::ROSpec, body));
}

struct AS {
    unsigned id = 1, count = 0, mb = 1, pointer = 0x20, nbits = 0;
    std::string mask = {}, data = {}, ops = {};
};

std::string read_op(uint16_t id, uint16_t words) {
    return tlv(param::C1G2Read, u16(id) + u32(0) + u8(3 << 6) + u16(0) + u16(words));
}
std::string write_op(uint16_t id, const std::string& data) {
    return tlv(param::C1G2Write, u16(id) + u32(5) + u8(3 << 6) + u16(2) + u16(unsigned(data.size() / 2)) + data);
}
std::string lock_op(std::vector<std::pair<uint8_t, uint8_t>> payloads) {
    std::string body = u16(3) + u32(0);
    for (auto [privilege, field] : payloads) body += tlv(param::C1G2LockPayload, u8(privilege) + u8(field));
    return tlv(param::C1G2Lock, body);
}

std::string add(const AS& a) {
    std::string target = u8(a.mb << 6 | 1 << 5) + u16(a.pointer) + u16(a.nbits) + a.mask + u16(a.nbits) + a.data;
    std::string command = tlv(param::AccessCommand, tlv(param::C1G2TagSpec, tlv(param::C1G2TargetTag, target)) + a.ops);
    std::string stop = tlv(param::AccessSpecStopTrigger, u8(a.count ? 1 : 0) + u16(a.count));
    return message(msg::ADD_ACCESSSPEC, tlv(param::AccessSpec, u32(a.id) + u16(0) + u8(1) + u8(0) + u32(0) + stop +
                                                                   command + tlv(param::AccessReportSpec, u8(1))));
}

// What a client reads of one message: "type status" (0 when it has none), the event, or the report's size.
std::string summary(uint16_t type, std::string_view body) {
    Params ps(body);
    Param p;
    ps.next(p);
    if (type == msg::RO_ACCESS_REPORT) {
        int n = p.type == param::TagReportData;
        while (ps.next(p)) n++;
        return "Report " + std::to_string(n);
    }
    if (type != msg::READER_EVENT_NOTIFICATION) {  // a status, and the ParameterError's type and code under it
        Reader r(p.body);
        std::string s = std::to_string(type) + " " + std::to_string(r.u16());
        r.utf8();
        Params in = ps.inside(r.rest());
        if (in.next(p) && p.type == param::ParameterError) s += " " + std::to_string(Reader(p.body).u16());
        if (p.type == param::ParameterError) s += "/" + std::to_string(Reader(p.body.substr(2)).u16());
        return s;
    }
    Params in = ps.inside(p.body);
    in.next(p), in.next(p);  // the timestamp, then the event
    Reader r(p.body);
    if (p.type == param::ConnectionAttemptEvent) return "ConnectionAttempt " + std::to_string(r.u16());
    if (p.type == param::ReaderExceptionEvent) return "Exception " + std::string(r.utf8());
    uint8_t kind = r.u8();
    uint32_t id = r.u32();
    if (p.type == param::ROSpecEvent) return "ROSpecEvent " + std::to_string(kind) + " " + std::to_string(id);
    if (p.type == param::AISpecEvent) return "AISpecEvent " + std::to_string(id) + " " + std::to_string(r.u16());
    return "event " + std::to_string(p.type);
}

std::string said(uint16_t type, uint16_t code = 0) { return std::to_string(type) + " " + std::to_string(code); }
std::string refused(uint16_t type, uint16_t p, uint16_t code) {
    return said(type, M_ParameterError) + " " + std::to_string(p) + "/" + std::to_string(code);
}

struct Tag {
    std::string epc;
    int antenna = 0, rssi = 0, count = 0;
    uint64_t first = 0, last = 0;
    uint32_t access = 0;
    Strings ops;
};

void hex(std::string_view b, std::string& to) { append_hex(reinterpret_cast<const uint8_t*>(b.data()), b.size(), to); }

std::vector<Tag> tags(std::string_view report) {
    std::vector<Tag> out;
    Params ps(report);
    for (Param p; ps.next(p);) {
        Tag& t = out.emplace_back();
        Params in = ps.inside(p.body);
        for (Param q; in.next(q);) {
            Reader r(q.body);
            switch (q.type) {
                case param::EPC96: hex(q.body, t.epc); break;
                case param::EPCData: hex(q.body.substr(2), t.epc); break;
                case param::AntennaID: t.antenna = r.u16(); break;
                case param::PeakRSSI: t.rssi = int8_t(r.u8()); break;
                case param::FirstSeenTimestampUTC: t.first = r.u64(); break;
                case param::LastSeenTimestampUTC: t.last = r.u64(); break;
                case param::TagSeenCount: t.count = r.u16(); break;
                case param::AccessSpecID: t.access = r.u32(); break;
                default:  // an OpSpec result: its type, result and OpSpecID, then the words written or read
                    std::string op = std::to_string(q.type) + " " + std::to_string(r.u8());
                    op += " " + std::to_string(r.u16()) + " ";
                    if (q.type == param::C1G2WriteOpSpecResult) op += std::to_string(r.u16());
                    if (q.type == param::C1G2ReadOpSpecResult) hex(r.u16v(), op);
                    t.ops.push_back(op);
            }
        }
    }
    return out;
}

struct Rig {
    FakePort port;
    Engine e{port, 0};
    int64_t now = 0;
    Strings msgs;  // the bodies of the last out()'s messages

    Strings out() {
        Strings s;
        msgs.clear();
        std::string_view b = e.output();
        Header h;
        while (frame(b, h) == Frame::Whole) {
            msgs.push_back(std::string(b.substr(kHeaderSize, h.length - kHeaderSize)));
            s.push_back(summary(h.type, msgs.back()));
            b.remove_prefix(h.length);
        }
        e.output().clear();
        return s;
    }
    bool input(const std::string& m) { return e.input(reinterpret_cast<const uint8_t*>(m.data()), m.size(), now); }
    Strings send(const std::string& m) {
        EXPECT_TRUE(input(m));
        return out();
    }
    Strings started(const std::string& m) {  // a request the reader's start answers
        Strings s = send(m);
        e.done(port.starts.back().second, "", now);
        for (std::string& x : out()) s.push_back(x);
        return s;
    }
    std::vector<std::string_view> listed(uint16_t get) {  // the ROSpecs or AccessSpecs GET_ROSPECS / GET_ACCESSSPECS gives
        send(message(get));
        std::vector<std::string_view> v;
        Params ps(msgs.at(0));
        for (Param p; ps.next(p);)
            if (p.type != param::LLRPStatus) v.push_back(p.body);
        return v;
    }
    uint8_t state() { return uint8_t(listed(msg::GET_ROSPECS).at(0).at(5)); }  // the first ROSpec's CurrentState
    void read(uint8_t id, uint8_t antenna = 1, int16_t rssi = -600) {
        Read r;
        r.epc_len = 12, r.antenna = antenna, r.rssi = rssi, r.time_ms = now, r.pc = 0x3000;
        r.epc[0] = 0xE2, r.epc[11] = id;
        e.tag_read(r, now);
    }
    std::vector<Tag> report() { return tags(msgs.at(0)); }
    void active(const RO& r) {  // added, enabled, started
        send(add(r));
        started(with_id(msg::ENABLE_ROSPEC, r.id));
    }
};

std::string events(std::vector<int> on) {
    std::string states;
    for (int t : on) states += tlv(param::EventNotificationState, u16(unsigned(t)) + u8(0x80));
    return message(msg::SET_READER_CONFIG, u8(0) + tlv(param::ReaderEventNotificationSpec, states));
}

TEST(LlrpEngine, EachRequestGetsItsResponseAndARefusalChangesNothing) {
    auto one = [](uint16_t type) { return tlv(type, u32(0) + u32(0)); };
    const uint16_t ADD_RO = msg::ADD_ROSPEC_RESPONSE, ADD_AS = msg::ADD_ACCESSSPEC_RESPONSE;
    struct Case {
        std::string m, expect;
    } cases[] = {
        {message(msg::GET_ROSPECS), said(msg::GET_ROSPECS_RESPONSE)},
        {add(RO{.start = 0}), said(ADD_RO)},
        {add(RO{.id = 5}), refused(ADD_RO, param::ROSpec, P_FieldError)},  // exists
        {with_id(msg::DELETE_ROSPEC, 0), said(msg::DELETE_ROSPEC_RESPONSE)},
        {with_id(msg::DELETE_ROSPEC, 9), said(msg::DELETE_ROSPEC_RESPONSE, M_FieldError)},
        {message(msg::DELETE_ROSPEC, u16(1)), said(msg::DELETE_ROSPEC_RESPONSE, M_FieldError)},
        {with_id(msg::START_ROSPEC, 0), said(msg::START_ROSPEC_RESPONSE, M_FieldError)},
        {with_id(msg::START_ROSPEC, 5), said(msg::START_ROSPEC_RESPONSE, M_FieldError)},  // disabled
        {with_id(msg::STOP_ROSPEC, 5), said(msg::STOP_ROSPEC_RESPONSE, M_FieldError)},    // not active
        {with_id(msg::DISABLE_ROSPEC, 0), said(msg::DISABLE_ROSPEC_RESPONSE)},
        {with_id(msg::ENABLE_ROSPEC, 9), said(msg::ENABLE_ROSPEC_RESPONSE, M_FieldError)},
        {add(AS{}), refused(ADD_AS, param::AccessCommand, P_MissingParameter)},                      // no OpSpec
        {add(AS{.id = 5, .ops = read_op(1, 2)}), refused(ADD_AS, param::AccessSpec, P_FieldError)},  // exists
        {with_id(msg::ENABLE_ACCESSSPEC, 5), said(msg::ENABLE_ACCESSSPEC_RESPONSE)},
        {with_id(msg::DELETE_ACCESSSPEC, 9), said(msg::DELETE_ACCESSSPEC_RESPONSE, M_FieldError)},
        {message(msg::GET_ROSPECS, u8(1)), said(msg::GET_ROSPECS_RESPONSE, M_UnexpectedParameter)},
        {message(msg::ADD_ROSPEC, u16(param::ROSpec) + u16(40)), refused(ADD_RO, param::ROSpec, P_ParameterError)},
        {message(900), said(msg::ERROR_MESSAGE, M_UnsupportedMessage)},
        {message(msg::RO_ACCESS_REPORT), said(msg::ERROR_MESSAGE, M_UnexpectedMessage)},
        {message(msg::GET_ROSPECS, {}, 2), said(msg::ERROR_MESSAGE, M_UnsupportedVersion)},
        {message(msg::KEEPALIVE_ACK), ""},
        {message(msg::ERROR_MESSAGE), ""},
        // What the module cannot do, refused naming the parameter.
        {add(RO{.in_ro = one(param::RFSurveySpec)}), refused(ADD_RO, param::RFSurveySpec, P_UnsupportedParameter)},
        {add(RO{.in_ro = one(param::LoopSpec)}), refused(ADD_RO, param::LoopSpec, P_UnsupportedParameter)},
        {add(RO{.in_ai = one(param::Custom)}), refused(ADD_RO, param::Custom, P_UnsupportedParameter)},
        {add(RO{.start = 3}), refused(ADD_RO, param::ROSpecStartTrigger, P_FieldError)},
        {add(RO{.ai_stop = 2}), refused(ADD_RO, param::AISpecStopTrigger, P_FieldError)},
        {add(RO{.antennas = {1, 9}}), refused(ADD_RO, param::AISpec, P_FieldError)},
        {add(RO{.antennas = {1, 2}, .powers = {3, 4}}), refused(ADD_RO, param::AntennaConfiguration, P_ParameterError)},
        {add(RO{.ais = 9}), refused(ADD_RO, param::AISpec, P_OverflowParameter)},
        {add(AS{.ops = tlv(param::C1G2Kill, u16(1) + u32(1))}),
         refused(ADD_AS, param::C1G2Kill, P_UnsupportedParameter)},
        {add(AS{.ops = one(param::ClientRequestOpSpec)}),
         refused(ADD_AS, param::ClientRequestOpSpec, P_UnsupportedParameter)},
        {add(AS{.mb = 2, .nbits = 8, .mask = "\xFF", .data = "\x01", .ops = read_op(1, 1)}),
         refused(ADD_AS, param::C1G2TargetTag, P_FieldError)},
        {add(AS{.ops = lock_op({{4, 1}})}), refused(ADD_AS, param::C1G2LockPayload, P_FieldError)},
    };
    for (const Case& c : cases) {
        Rig rig;
        rig.send(add(RO{.id = 5}));
        rig.send(add(AS{.id = 5, .ops = read_op(1, 2)}));
        EXPECT_EQ(rig.send(c.m), c.expect.empty() ? Strings{} : Strings{c.expect});
        if (!c.expect.ends_with(" 0")) {  // refused: nothing changed
            EXPECT_EQ(rig.listed(msg::GET_ROSPECS).size() + rig.listed(msg::GET_ACCESSSPECS).size(), 2u) << c.expect;
        }
    }
}

std::string set_power(unsigned index) {
    std::string tx = tlv(param::RFTransmitter, u16(1) + u16(1) + u16(index));
    return message(msg::SET_READER_CONFIG, u8(0) + tlv(param::AntennaConfiguration, u16(0) + tx));
}

TEST(LlrpEngine, ROSpecLifeCycleWithItsEventsAndReportsInOrder) {
    Rig rig;
    rig.send(events({2, 6}));
    rig.send(add(RO{.antennas = {1, 2}, .powers = {5, 5}, .trigger = 1}));
    EXPECT_EQ(rig.send(with_id(msg::ENABLE_ROSPEC, 1)), Strings{"ROSpecEvent 0 1"});  // answered once the reader is
    ASSERT_EQ(rig.port.starts.size(), 1u);
    const InventoryPlan& p = rig.port.starts[0].first;
    // Power index 5 of a table from 10 dBm, Q for a population of 5.
    EXPECT_EQ(std::tuple(p.antennas, p.power_dbm, p.session, p.q), std::tuple(std::vector<int>{1, 2}, 14, 2, 3));
    rig.e.done(rig.port.starts[0].second, "", 0);
    EXPECT_EQ(rig.out(), Strings{said(msg::ENABLE_ROSPEC_RESPONSE)});
    EXPECT_EQ(rig.state(), ROSpec::Active);

    rig.now = 1000, rig.read(1, 1, -500);
    rig.now = 1500, rig.read(1), rig.read(1, 2), rig.read(2), rig.read(3, 3);  // antenna 3 is not the AISpec's
    EXPECT_EQ(rig.send(with_id(msg::STOP_ROSPEC, 1)),
              (Strings{"Report 3", "AISpecEvent 1 1", "ROSpecEvent 1 1", said(msg::STOP_ROSPEC_RESPONSE)}));
    std::vector<Tag> t = rig.report();
    ASSERT_EQ(t.size(), 3u);
    EXPECT_EQ(t[0].epc, "E20000000000000000000001");
    EXPECT_EQ(std::tuple(t[0].antenna, t[0].count, t[0].rssi, t[0].first, t[0].last),
              std::tuple(1, 2, -50, 1000000ull, 1500000ull));
    EXPECT_EQ(std::tuple(t[1].antenna, t[1].count, t[2].epc.back()), std::tuple(2, 1, '2'));
    EXPECT_EQ(rig.port.stops.size(), 1u);
    EXPECT_EQ(rig.state(), ROSpec::Inactive);

    EXPECT_EQ(rig.started(with_id(msg::START_ROSPEC, 1)),
              (Strings{"ROSpecEvent 0 1", said(msg::START_ROSPEC_RESPONSE)}));
    EXPECT_EQ(rig.send(with_id(msg::START_ROSPEC, 1)), Strings{said(msg::START_ROSPEC_RESPONSE, M_FieldError)});
    EXPECT_EQ(rig.send(with_id(msg::DISABLE_ROSPEC, 1)),
              (Strings{"AISpecEvent 1 1", "ROSpecEvent 1 1", said(msg::DISABLE_ROSPEC_RESPONSE)}));
    EXPECT_EQ(rig.state(), ROSpec::Disabled);
}

TEST(LlrpEngine, ALostLinkEndsTheROSpecWhichCanStartAgain) {
    Rig rig;
    rig.send(events({2, 4}));
    rig.active(RO{});
    rig.read(1);
    rig.e.link(false, "serial port gone", 0);
    EXPECT_EQ(rig.out(), (Strings{"Exception the reader is gone: serial port gone", "Report 1", "ROSpecEvent 1 1"}));
    EXPECT_EQ(rig.port.stops.size(), 1u);
    rig.e.link(true, "", 0);
    EXPECT_EQ(rig.started(with_id(msg::START_ROSPEC, 1)).back(), said(msg::START_ROSPEC_RESPONSE));
    rig.e.disconnected(0);  // the client goes: what it started stops
    EXPECT_EQ(rig.port.stops.size(), 2u);
}

TEST(LlrpEngine, PeriodicStartsDurationsAndAISpecsInTurn) {
    Rig rig;
    rig.send(add(RO{.start = 2, .offset = 1000, .period = 5000, .duration = 2000}));
    EXPECT_EQ(rig.send(with_id(msg::ENABLE_ROSPEC, 1)), Strings{said(msg::ENABLE_ROSPEC_RESPONSE)});  // nothing due yet
    EXPECT_EQ(rig.e.next_deadline(), 1000);
    rig.e.tick(1000);
    ASSERT_EQ(rig.port.starts.size(), 1u);
    rig.e.done(rig.port.starts[0].second, "", 1000);
    rig.now = 1500, rig.read(1);
    EXPECT_EQ(rig.e.next_deadline(), 3000);
    rig.e.tick(3000);
    EXPECT_EQ(rig.out(), Strings{"Report 1"});
    EXPECT_EQ(rig.port.stops.size(), 1u);
    EXPECT_EQ(rig.e.next_deadline(), 6000);
    rig.e.tick(6000);
    EXPECT_EQ(rig.port.starts.size(), 2u);

    Rig two;  // two AISpecs of a second each, one after the other, then the ROSpec is done
    two.active(RO{.antennas = {2}, .ai_stop = 1, .ai_duration = 1000, .ais = 2});
    two.e.tick(1000);
    ASSERT_EQ(two.port.starts.size(), 2u);
    EXPECT_EQ(two.port.starts[1].first.antennas, std::vector<int>{2});
    EXPECT_TRUE(two.port.stops.empty());
    two.e.tick(2000);
    EXPECT_EQ(two.port.stops.size(), 1u);
}

TEST(LlrpEngine, ReportsEveryNTagsAndEndsTheAISpecAtNUniqueTags) {
    Rig rig;
    rig.active(RO{.ai_stop = 3, .n_tags = 3, .trigger = 1, .n = 2});
    rig.read(1), rig.read(1);
    EXPECT_EQ(rig.out(), Strings{});
    rig.read(2);
    EXPECT_EQ(rig.out(), Strings{"Report 2"});
    rig.read(2), rig.read(3);
    EXPECT_EQ(rig.out(), Strings{"Report 2"});
    EXPECT_EQ(rig.port.stops.size(), 1u);

    Rig held;  // trigger None: held until GET_REPORT, which answers even when there is nothing
    held.active(RO{.trigger = 0});
    held.read(1), held.read(2);
    EXPECT_EQ(held.send(with_id(msg::STOP_ROSPEC, 1)), Strings{said(msg::STOP_ROSPEC_RESPONSE)});
    EXPECT_EQ(held.send(message(msg::GET_REPORT)), Strings{"Report 2"});
    EXPECT_EQ(held.send(message(msg::GET_REPORT)), Strings{"Report 0"});
}

TEST(LlrpEngine, AccessRunsOpSpecsOnMatchingTagsAndReportsTheirResults) {
    Rig rig;
    rig.active(RO{.content = kAnt | kAccess});
    // The last EPC byte is 02: bits 0x78.. of the EPC bank.
    std::string ops = read_op(1, 2) + write_op(2, std::string("\x12\x34", 2));
    rig.send(add(AS{.count = 1, .pointer = 0x78, .nbits = 8, .mask = "\xFF", .data = "\x02", .ops = ops}));
    rig.send(with_id(msg::ENABLE_ACCESSSPEC, 1));
    rig.read(1);
    EXPECT_TRUE(rig.port.accesses.empty());
    rig.read(2), rig.read(2);  // one access at a time
    ASSERT_EQ(rig.port.accesses.size(), 1u);
    const AccessRequest& q = rig.port.accesses[0].first;
    EXPECT_EQ(std::tuple(q.kind, q.bank, q.word_count, q.epc.size(), q.epc.back()),
              std::tuple(AccessRequest::Read, 3, 2, 12u, 2));
    rig.e.access_done(rig.port.accesses[0].second, AccessResult{AccessResult::Ok, {0xAB, 0xCD, 0xEF, 0x01}}, 0);
    ASSERT_EQ(rig.port.accesses.size(), 2u);
    const AccessRequest& w = rig.port.accesses[1].first;
    EXPECT_EQ(std::tuple(w.kind, w.word_ptr, w.password, w.data),
              std::tuple(AccessRequest::Write, 2, 5u, std::vector<uint8_t>{0x12, 0x34}));
    EXPECT_EQ(rig.out(), Strings{});
    rig.e.access_done(rig.port.accesses[1].second, AccessResult{}, 0);
    EXPECT_EQ(rig.out(), Strings{"Report 1"});  // AccessReportTrigger 1: at once
    std::vector<Tag> t = rig.report();
    EXPECT_EQ(t[0].access, 1u);
    EXPECT_EQ(t[0].ops, (Strings{"349 0 1 ABCDEF01", "350 0 2 1"}));
    EXPECT_TRUE(rig.listed(msg::GET_ACCESSSPECS).empty());  // its one operation done: deleted
    rig.read(2);
    EXPECT_EQ(rig.port.accesses.size(), 2u);

    Rig fail;  // a lock that fails: the read after it is not run, and without a count the AccessSpec stays
    fail.active(RO{});
    fail.send(add(AS{.ops = lock_op({{0, 2}, {1, 1}, {2, 4}, {3, 0}}) + read_op(1, 2)}));
    fail.send(with_id(msg::ENABLE_ACCESSSPEC, 0));
    fail.read(1);
    const AccessRequest& lock = fail.port.accesses.at(0).first;  // Gen2's payload: kill, access, EPC, TID, user
    using Lock = std::pair<uint16_t, uint16_t>;
    EXPECT_EQ(Lock(lock.lock_mask, lock.lock_action), Lock(0b1111110011, 0b0011100001));
    fail.e.access_done(fail.port.accesses[0].second, AccessResult{AccessResult::NoResponse, {}}, 0);
    EXPECT_EQ(fail.out(), Strings{"Report 1"});
    EXPECT_EQ(fail.report()[0].ops, Strings{"352 3 3 "});
    fail.read(1);
    EXPECT_EQ(fail.port.accesses.size(), 2u);
}

TEST(LlrpEngine, RequestsForTheReaderAnswerAfterItWhatFollowsWaitsAndKeepalives) {
    Rig rig;
    rig.send(add(RO{}));
    EXPECT_EQ(rig.send(with_id(msg::ENABLE_ROSPEC, 1)), Strings{});
    rig.e.done(rig.port.starts[0].second, "no link", 0);
    EXPECT_EQ(rig.out(), Strings{said(msg::ENABLE_ROSPEC_RESPONSE, R_DeviceError)});
    EXPECT_EQ(rig.state(), ROSpec::Disabled);

    EXPECT_EQ(rig.send(set_power(6) + message(msg::GET_ROSPECS)), Strings{});
    ASSERT_EQ(rig.port.powers.size(), 1u);
    EXPECT_EQ(rig.port.powers[0].first, 15);
    rig.e.done(rig.port.powers[0].second, "", 0);
    EXPECT_EQ(rig.out(), (Strings{said(msg::SET_READER_CONFIG_RESPONSE), said(msg::GET_ROSPECS_RESPONSE)}));

    rig.send(set_power(7));
    rig.e.tick(kPortTimeoutMs - 1);
    EXPECT_EQ(rig.out(), Strings{});
    rig.e.tick(kPortTimeoutMs);
    EXPECT_EQ(rig.out(), Strings{said(msg::SET_READER_CONFIG_RESPONSE, R_DeviceError)});

    EXPECT_EQ(rig.e.next_deadline(), INT64_MAX);  // keepalives when asked
    rig.send(message(msg::SET_READER_CONFIG, u8(0) + tlv(param::KeepaliveSpec, u8(1) + u32(1000))));
    EXPECT_EQ(rig.e.next_deadline(), 1000);
    rig.e.tick(999);
    EXPECT_EQ(rig.out(), Strings{});
    rig.e.tick(1000);
    EXPECT_EQ(rig.out(), Strings{said(msg::KEEPALIVE)});
    EXPECT_EQ(rig.e.next_deadline(), 2000);
}

TEST(LlrpEngine, FollowsAnySplitAndClosesOnlyWhenAskedOrLost) {
    Rig rig;
    rig.e.connected(0);
    EXPECT_EQ(rig.out(), Strings{"ConnectionAttempt 0"});
    std::string m = add(RO{}) + message(msg::GET_ROSPECS);
    for (char c : m) EXPECT_TRUE(rig.input(std::string(1, c)));
    EXPECT_EQ(rig.out(), (Strings{said(msg::ADD_ROSPEC_RESPONSE), said(msg::GET_ROSPECS_RESPONSE)}));

    EXPECT_FALSE(rig.input(message(msg::CLOSE_CONNECTION)));
    EXPECT_EQ(rig.out(), Strings{said(msg::CLOSE_CONNECTION_RESPONSE)});

    Rig lost;
    std::string bad = message(msg::GET_ROSPECS);
    bad[5] = 4;  // a length below the header's
    EXPECT_FALSE(lost.input(bad));
    EXPECT_EQ(lost.out(), (Strings{said(msg::ERROR_MESSAGE, M_FieldError), "event 257"}));

    write_connection_refused(lost.e.output(), 0);
    EXPECT_EQ(lost.out(), Strings{"ConnectionAttempt 2"});
}

TEST(LlrpSpecs, TargetTagsMatchTheEpcBankOfARead) {
    const uint8_t epc[12] = {0xE2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01};
    uint16_t crc = gen2_crc(0x3000, epc, 12);
    std::string crc_bytes{char(crc >> 8), char(crc)};
    std::pair<TargetTag, bool> cases[] = {
        {{true, 0x20, 8, "\xFF", "\xE2"}, true},
        {{true, 0x20, 8, "\xFF", "\xE3"}, false},
        {{true, 0x20, 8, "\xF0", "\xE3"}, true},
        {{false, 0x20, 8, "\xFF", "\xE3"}, true},
        {{true, 0x10, 16, "\xFF\xFF", std::string("\x30\x00", 2)}, true},  // the PC
        {{true, 0x00, 16, "\xFF\xFF", crc_bytes}, true},                   // the CRC
        {{true, 0x20 + 96, 8, "\xFF", std::string(1, '\0')}, false},       // past the EPC
    };
    for (const auto& [target, expect] : cases) {
        AccessSpec s;
        s.targets.push_back(target);
        EXPECT_EQ(matches(s, 0x3000, epc, 12), expect) << target.pointer << " " << target.match;
    }
    EXPECT_EQ(gen2_crc(0x3132, reinterpret_cast<const uint8_t*>("3456789"), 7), 0xD64E);  // CRC-16/GENIBUS check
}

TEST(LlrpReport, Epc96OrEpcDataAndOnlyTheSelectedFields) {
    TagSeen a, b;
    a.epc_len = 12, a.epc[11] = 0x11, a.antenna = 2, a.rssi = -655, a.first_ms = 1000, a.last_ms = 2000,
    a.count = 70000;
    b.epc_len = 8, b.epc[0] = 0xAB;
    ReportContent c;
    c.antenna_id = c.peak_rssi = c.first_seen = c.seen_count = true;
    std::string out;
    TagSeen both[] = {a, b};
    write_report(out, 1, c, both);
    std::vector<Tag> t = tags(std::string_view(out).substr(kHeaderSize));
    ASSERT_EQ(t.size(), 2u);
    EXPECT_EQ(out[kHeaderSize + 4], char(0x80 | param::EPC96));
    EXPECT_EQ(std::tuple(t[0].epc, t[0].antenna, t[0].rssi, t[0].first, t[0].last, t[0].count),
              std::tuple(std::string("000000000000000000000011"), 2, -66, 1000000ull, 0ull, 65535));
    EXPECT_EQ(t[1].epc, "AB00000000000000");

    TagList list;  // bounded: past kMax a new tag is not kept
    for (size_t i = 0; i <= TagList::kMax; i++) a.epc[0] = uint8_t(i), a.epc[1] = uint8_t(i >> 8), list.add(a, false);
    EXPECT_EQ(list.size(), TagList::kMax);
}

}  // namespace
}  // namespace uhfd::llrp
