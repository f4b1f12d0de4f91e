#include "llrp_engine.h"

#include <algorithm>

namespace uhfd::llrp {

namespace {

// GET_ROSPECS / GET_ACCESSSPECS: Success, then every one held, as added.
template <typename Entries, typename WriteOne>
void write_listing(std::string& out, uint16_t type, uint32_t id, const Entries& all, WriteOne write_one) {
    Writer w(out);
    const size_t at = w.begin_message(type, id);
    write_status(w, {});
    for (const auto& e : all) write_one(w, e);
    w.end_message(at);
}

// EventNotificationState types.
constexpr int kROSpecEvent = 2, kExceptionEvent = 4, kAISpecEvent = 6;

// READER_EVENT_NOTIFICATION around what body writes.
template <class F>
void write_event(std::string& out, uint32_t id, int64_t now, F body) {
    Writer w(out);
    size_t m = w.begin_message(msg::READER_EVENT_NOTIFICATION, id);
    size_t d = w.begin(param::ReaderEventNotificationData);
    size_t t = w.begin(param::UTCTimestamp);
    w.u64(uint64_t(now) * 1000);
    w.end(t);
    body(w);
    w.end(d);
    w.end_message(m);
}

void connection_attempt(std::string& out, uint32_t id, int64_t now, uint16_t status) {
    write_event(out, id, now, [&](Writer& w) {
        size_t p = w.begin(param::ConnectionAttemptEvent);
        w.u16(status);
        w.end(p);
    });
}

void empty_event(std::string& out, uint32_t id, int64_t now, uint16_t type) {
    write_event(out, id, now, [&](Writer& w) { w.end(w.begin(type)); });
}

// The ROSpecID / AccessSpecID that is the whole body of the ID messages.
Error id_field(std::string_view body, uint32_t& id) {
    Reader r(body);
    id = r.u32();
    if (!r.ok()) return field_error(A_Invalid, 0, 0, "the message is cut short");
    if (r.left()) return message_error(M_UnexpectedParameter, "unexpected bytes after the message's field");
    return {};
}

Error empty_body(std::string_view body) {
    return body.empty() ? Error{} : message_error(M_UnexpectedParameter, "this message has no parameters");
}

// The single parameter of ADD_ROSPEC / ADD_ACCESSSPEC.
Error one_param(std::string_view body, uint16_t type, const char* name, Param& p) {
    Params ps(body);
    if (!ps.next(p)) return ps.ok() ? message_error(M_MissingParameter, std::string(name) + " is missing") : ps.error();
    if (p.type != type) return message_error(M_UnexpectedParameter, std::string("expected a ") + name);
    Param extra;
    if (ps.next(extra)) return message_error(M_UnexpectedParameter, std::string("only one ") + name);
    return ps.error();
}

Error no_spec(const char* what, uint32_t id) {
    return field_error(A_Invalid, 0, 0, std::string("no ") + what + " " + std::to_string(id));
}

Error invalid(uint32_t id, const char* why) {
    return field_error(A_Invalid, 0, 0, "ROSpec " + std::to_string(id) + " " + why);
}

// The messages only a reader sends.
bool from_reader(uint16_t t) {
    return t == msg::CLOSE_CONNECTION_RESPONSE || (t >= 11 && t <= 13) || (t >= 30 && t <= 36) || t == 45 ||
           (t >= 50 && t <= 54) || t == 56 || t == 57 || (t >= 61 && t <= 63);
}

bool uses(const AISpec& a, int antenna) {
    return antenna == 0 || a.antennas.empty() ||
           std::find(a.antennas.begin(), a.antennas.end(), antenna) != a.antennas.end();
}

// Q from the tag population LLRP estimates: the first Q with 2^Q slots for them all.
int q_for(uint16_t population) {
    int q = 0;
    while (q < 15 && (1u << q) < population) q++;
    return q;
}

}  // namespace

void write_connection_refused(std::string& out, int64_t now_ms) { connection_attempt(out, 0, now_ms, 2); }

Engine::Engine(Port& port, int64_t now_ms) : port_(port), facts_(port.facts()), cfg_(factory_config(facts_)) {
    content_ = cfg_.ro_report.content;
    keepalive_at_ = cfg_.keepalive_ms ? now_ms + cfg_.keepalive_ms : INT64_MAX;
}

void Engine::connected(int64_t now_ms) { connection_attempt(out_, ++msg_id_, now_ms, 0); }

bool Engine::input(const uint8_t* p, size_t n, int64_t now_ms) {
    if (gone_ || closing_) return false;
    in_.append(reinterpret_cast<const char*>(p), n);
    return process(now_ms);
}

bool Engine::process(int64_t now) {
    if (processing_) return !closing_;
    processing_ = true;
    size_t at = 0;
    while (!pending_.token && !closing_) {
        Header h;
        std::string_view rest = std::string_view(in_).substr(at);
        Frame f = frame(rest, h);
        if (f == Frame::NeedMore) break;
        if (f == Frame::Bad) {
            unframeable(h, now);
            break;
        }
        at += h.length;
        handle(h, rest.substr(kHeaderSize, h.length - kHeaderSize), now);
        schedule(now);
    }
    in_.erase(0, at);
    if (closing_) in_.clear();
    if (in_.size() > kMaxHeldInput) {
        empty_event(out_, ++msg_id_, now, param::ConnectionCloseEvent);
        closing_ = true;
    }
    processing_ = false;
    return !closing_;
}

// A length no message can have: nothing after it can be found again.
void Engine::unframeable(const Header& h, int64_t now) {
    answer(msg::ERROR_MESSAGE, h.id,
           message_error(M_FieldError, "message length " + std::to_string(h.length) + " is impossible: closing"));
    empty_event(out_, ++msg_id_, now, param::ConnectionCloseEvent);
    closing_ = true;
}

void Engine::handle(const Header& h, std::string_view body, int64_t now) {
    if (h.type == msg::ERROR_MESSAGE) return;  // never answered
    if (version_answer(out_, h)) return;
    switch (h.type) {
        case msg::GET_READER_CAPABILITIES: return on_capabilities(h, body, now);
        case msg::GET_READER_CONFIG: return on_get_config(h, body, now);
        case msg::SET_READER_CONFIG: return on_set_config(h, body, now);
        case msg::CLOSE_CONNECTION: return on_close(h, body, now);
        case msg::ADD_ROSPEC: return on_add_rospec(h, body, now);
        case msg::DELETE_ROSPEC:
        case msg::START_ROSPEC:
        case msg::STOP_ROSPEC:
        case msg::ENABLE_ROSPEC:
        case msg::DISABLE_ROSPEC: return on_rospec_op(h, body, now);
        case msg::GET_ROSPECS: return on_get_rospecs(h, body, now);
        case msg::ADD_ACCESSSPEC: return on_add_access(h, body, now);
        case msg::DELETE_ACCESSSPEC:
        case msg::ENABLE_ACCESSSPEC:
        case msg::DISABLE_ACCESSSPEC: return on_access_op(h, body, now);
        case msg::GET_ACCESSSPECS: return on_get_access(h, body, now);
        case msg::GET_REPORT: return on_get_report(h, body, now);
        case msg::KEEPALIVE_ACK:
        case msg::ENABLE_EVENTS_AND_REPORTS:   // nothing is ever held
        case msg::CLIENT_REQUEST_OP_RESPONSE:  // no ClientRequestOpSpec is ever run
            return;
        default: break;
    }
    std::string what = "message type " + std::to_string(h.type);
    answer(msg::ERROR_MESSAGE, h.id,
           from_reader(h.type) ? message_error(M_UnexpectedMessage, what + " is sent by readers, not to them")
                               : message_error(M_UnsupportedMessage, what + " is not supported"));
}

void Engine::answer(uint16_t type, uint32_t id, const Error& e) { status_message(out_, type, id, e); }

void Engine::wait_for(uint32_t token, uint16_t type, uint32_t id, int64_t now) {
    pending_.token = token;
    pending_.type = type;
    pending_.id = id;
    pending_.deadline = now + kPortTimeoutMs;
}

void Engine::finish_pending(const std::string& err, int64_t now) {
    Pending p = std::move(pending_);
    pending_ = {};
    Error e = err.empty() ? Error{} : message_error(R_DeviceError, "the reader: " + err);
    if (p.change && !e) apply(*p.change, now);
    if (!p.change && e) {  // the start failed: the request did not happen
        if (run_.token == p.token) end_run(now, ROSpec::Inactive);
        for (uint32_t id : p.enabled)
            if (RoEntry* r = rospec(id)) r->s.state = ROSpec::Disabled, r->next = INT64_MAX;
    }
    answer(p.type, p.id, e);
    process(now);  // what the client sent meanwhile
}

void Engine::on_capabilities(const Header& h, std::string_view body, int64_t) {
    capabilities_response(out_, h.id, body, facts_ = port_.facts());
}

void Engine::on_get_config(const Header& h, std::string_view body, int64_t) {
    config_response(out_, h.id, body, facts_ = port_.facts(), cfg_);
}

void Engine::on_set_config(const Header& h, std::string_view body, int64_t now) {
    facts_ = port_.facts();
    ConfigChange c;
    if (Error e = parse_set_reader_config(body, facts_, cfg_, c))
        return answer(msg::SET_READER_CONFIG_RESPONSE, h.id, e);
    if (!c.power_dbm) {
        apply(c, now);
        return answer(msg::SET_READER_CONFIG_RESPONSE, h.id);
    }
    int dbm = *c.power_dbm;
    wait_for(++token_, msg::SET_READER_CONFIG_RESPONSE, h.id, now);
    pending_.change = std::move(c);
    port_.set_power(dbm, pending_.token);
}

void Engine::apply(const ConfigChange& c, int64_t now) {
    uint32_t state = cfg_.state_value + 1;
    cfg_ = c.next;
    cfg_.state_value = state;
    keepalive_at_ = cfg_.keepalive_ms ? now + cfg_.keepalive_ms : INT64_MAX;
    if (!run_.rospec) content_ = cfg_.ro_report.content;
}

void Engine::on_close(const Header& h, std::string_view, int64_t) {
    answer(msg::CLOSE_CONNECTION_RESPONSE, h.id);
    closing_ = true;
}

void Engine::on_add_rospec(const Header& h, std::string_view body, int64_t) {
    Param p;
    ROSpec s;
    Error e = one_param(body, param::ROSpec, "ROSpec", p);
    if (!e) e = parse_rospec(p.body, 0, facts_ = port_.facts(), s);
    if (!e && rospec(s.id)) e = field_error(A_Invalid, param::ROSpec, 0, "ROSpec " + std::to_string(s.id) + " exists");
    if (!e && ro_.size() >= kMaxROSpecs) e = message_error(M_OverflowParameter, "the reader holds " + std::to_string(kMaxROSpecs) + " ROSpecs at most");
    if (!e) {
        ro_.push_back({std::move(s)});
        cfg_.state_value++;
    }
    answer(msg::ADD_ROSPEC_RESPONSE, h.id, e);
}

void Engine::on_rospec_op(const Header& h, std::string_view body, int64_t now) {
    uint32_t id = 0, token = 0;
    Error e = id_field(body, id);
    if (!e) {
        switch (h.type) {
            case msg::DELETE_ROSPEC: e = delete_rospec(id, now); break;
            case msg::START_ROSPEC: e = start_rospec(id, now, token); break;
            case msg::STOP_ROSPEC: e = stop_rospec(id, now); break;
            case msg::ENABLE_ROSPEC: e = enable_rospec(id, now, token); break;
            default: e = disable_rospec(id, now); break;
        }
    }
    uint16_t response = uint16_t(h.type + 10);  // each *_ROSPEC_RESPONSE is its request + 10
    if (token) return wait_for(token, response, h.id, now);
    answer(response, h.id, e);
}

Error Engine::start_rospec(uint32_t id, int64_t now, uint32_t& token) {
    if (id == 0) return field_error(A_Invalid, 0, 0, "START_ROSPEC needs a ROSpecID");
    RoEntry* r = rospec(id);
    if (!r) return no_spec("ROSpec", id);
    if (r->s.state == ROSpec::Disabled) return invalid(id, "is disabled");
    if (r->s.state == ROSpec::Active) return invalid(id, "is active already");
    if (run_.rospec) return invalid(run_.rospec, "is active: one ROSpec runs at a time");
    token = begin_run(r->s, now);
    return {};
}

Error Engine::stop_rospec(uint32_t id, int64_t now) {
    if (id == 0) return field_error(A_Invalid, 0, 0, "STOP_ROSPEC needs a ROSpecID");
    RoEntry* r = rospec(id);
    if (!r) return no_spec("ROSpec", id);
    if (r->s.state != ROSpec::Active) return invalid(id, "is not active");
    end_run(now, ROSpec::Inactive);
    return {};
}

Error Engine::enable_rospec(uint32_t id, int64_t now, uint32_t& token) {
    if (id != 0 && !rospec(id)) return no_spec("ROSpec", id);
    std::vector<uint32_t> enabled;
    for (RoEntry& r : ro_) {
        if ((id != 0 && r.s.id != id) || r.s.state != ROSpec::Disabled) continue;
        r.s.state = ROSpec::Inactive;
        arm(r, now);
        enabled.push_back(r.s.id);
    }
    token = schedule(now);
    if (token) pending_.enabled = std::move(enabled);
    return {};
}

void Engine::arm(RoEntry& r, int64_t now) {
    const ROSpec& s = r.s;
    r.next = INT64_MAX;
    if (s.start == ROSpec::Immediate) r.next = now;
    if (s.start != ROSpec::Periodic) return;
    r.next = s.utc_ms.value_or(now) + s.offset_ms;
    if (r.next < now && s.period_ms) r.next += (now - r.next + s.period_ms - 1) / s.period_ms * s.period_ms;
}

Error Engine::disable_rospec(uint32_t id, int64_t now) {
    if (id != 0 && !rospec(id)) return no_spec("ROSpec", id);
    for (RoEntry& r : ro_) {
        if (id != 0 && r.s.id != id) continue;
        if (r.s.state == ROSpec::Active) end_run(now, ROSpec::Disabled);
        r.s.state = ROSpec::Disabled;
        r.next = INT64_MAX;
    }
    return {};
}

Error Engine::delete_rospec(uint32_t id, int64_t now) {
    if (id != 0 && !rospec(id)) return no_spec("ROSpec", id);
    if (run_.rospec && (id == 0 || id == run_.rospec)) end_run(now, ROSpec::Disabled);
    if (std::erase_if(ro_, [&](const RoEntry& r) { return id == 0 || r.s.id == id; })) cfg_.state_value++;
    return {};
}

void Engine::on_get_rospecs(const Header& h, std::string_view body, int64_t) {
    if (Error e = empty_body(body)) return answer(msg::GET_ROSPECS_RESPONSE, h.id, e);
    write_listing(out_, msg::GET_ROSPECS_RESPONSE, h.id, ro_, [](Writer& w, const RoEntry& r) { write_rospec(w, r.s); });
}

void Engine::on_add_access(const Header& h, std::string_view body, int64_t) {
    Param p;
    AccessSpec s;
    Error e = one_param(body, param::AccessSpec, "AccessSpec", p);
    if (!e) e = parse_accessspec(p.body, 0, facts_ = port_.facts(), s);
    if (!e && access_spec(s.id))
        e = field_error(A_Invalid, param::AccessSpec, 0, "AccessSpec " + std::to_string(s.id) + " exists");
    if (!e && access_.size() >= kMaxAccessSpecs)
        e = message_error(M_OverflowParameter, "the reader holds " + std::to_string(kMaxAccessSpecs) + " AccessSpecs at most");
    if (!e) {
        access_.push_back({std::move(s)});
        cfg_.state_value++;
    }
    answer(msg::ADD_ACCESSSPEC_RESPONSE, h.id, e);
}

void Engine::on_access_op(const Header& h, std::string_view body, int64_t) {
    uint32_t id = 0;
    Error e = id_field(body, id);
    if (!e && id != 0 && !access_spec(id)) e = no_spec("AccessSpec", id);
    if (!e) {
        auto hit = [&](const AccEntry& a) { return id == 0 || a.s.id == id; };
        if (acc_.token && (id == 0 || acc_.access_id == id) && h.type != msg::ENABLE_ACCESSSPEC) acc_ = {};
        if (h.type == msg::DELETE_ACCESSSPEC && std::erase_if(access_, hit)) cfg_.state_value++;
        for (AccEntry& a : access_)
            if (hit(a)) a.s.active = h.type == msg::ENABLE_ACCESSSPEC;
    }
    answer(uint16_t(h.type + 10), h.id, e);
}

void Engine::on_get_access(const Header& h, std::string_view body, int64_t) {
    if (Error e = empty_body(body)) return answer(msg::GET_ACCESSSPECS_RESPONSE, h.id, e);
    write_listing(out_, msg::GET_ACCESSSPECS_RESPONSE, h.id, access_,
                  [](Writer& w, const AccEntry& a) { write_accessspec(w, a.s); });
}

void Engine::on_get_report(const Header& h, std::string_view, int64_t) { flush(h.id); }

Engine::RoEntry* Engine::rospec(uint32_t id) {
    for (RoEntry& r : ro_)
        if (r.s.id == id) return &r;
    return nullptr;
}

Engine::AccEntry* Engine::access_spec(uint32_t id) {
    for (AccEntry& a : access_)
        if (a.s.id == id) return &a;
    return nullptr;
}

uint32_t Engine::schedule(int64_t now) {
    if (run_.rospec || gone_) return 0;
    RoEntry* due = nullptr;
    for (RoEntry& r : ro_)
        if (r.s.state == ROSpec::Inactive && r.next <= now && (!due || r.s.priority < due->s.priority)) due = &r;
    if (!due) return 0;
    const ROSpec& s = due->s;
    if (s.start == ROSpec::Periodic && s.period_ms)
        due->next += ((now - due->next) / s.period_ms + 1) * int64_t(s.period_ms);
    else
        due->next = INT64_MAX;
    return begin_run(due->s, now);
}

uint32_t Engine::begin_run(ROSpec& s, int64_t now) {
    facts_ = port_.facts();
    s.state = ROSpec::Active;
    run_ = Run{};
    run_.rospec = s.id;
    run_.report = s.report.value_or(cfg_.ro_report);
    run_.ro_end = s.duration_ms ? now + s.duration_ms : INT64_MAX;
    if (!(run_.report.content == content_)) flush();  // what is held was seen under the other selector
    content_ = run_.report.content;
    if (event_on(kROSpecEvent)) rospec_event(now, 0, s.id);
    return start_ai(0, now);
}

uint32_t Engine::start_ai(size_t ai, int64_t now) {
    const AISpec& a = rospec(run_.rospec)->s.ai[ai];
    run_.ai = ai;
    run_.ai_end = INT64_MAX;
    if (a.stop == AISpec::StopDuration && a.duration_ms) run_.ai_end = now + a.duration_ms;
    if (a.stop == AISpec::StopTags && a.timeout_ms) run_.ai_end = now + a.timeout_ms;
    unique_.clear();
    run_.token = ++token_;
    port_.start_inventory(plan(a), run_.token);
    return run_.token;
}

InventoryPlan Engine::plan(const AISpec& a) {
    InventoryPlan p;
    p.antennas = a.antennas;
    // The AISpec's own settings first, then the reader configuration's for its antennas.
    auto take = [&](const AntennaConfig& c) {
        if (!p.power_dbm && c.power_index) p.power_dbm = power_dbm(facts_, *c.power_index);
        if (!p.session) p.session = c.c1g2.session;
        if (!p.q && c.c1g2.tag_population) p.q = q_for(*c.c1g2.tag_population);
        if (!p.mask) p.mask = c.c1g2.mask;
    };
    for (const AntennaConfig& c : a.configs) take(c);
    for (const AntennaConfig& c : cfg_.antennas)
        if (uses(a, c.antenna)) take(c);
    return p;
}

void Engine::close_ai(int64_t now) {
    if (run_.report.trigger == ROReportSpec::AISpecEndOrN) flush();
    if (event_on(kAISpecEvent)) {
        write_event(out_, ++msg_id_, now, [&](Writer& w) {
            size_t p = w.begin(param::AISpecEvent);
            w.u8(0);
            w.u32(run_.rospec);
            w.u16(uint16_t(run_.ai + 1));
            w.end(p);
        });
    }
}

void Engine::end_ai(int64_t now) {
    if (run_.ai + 1 >= rospec(run_.rospec)->s.ai.size()) return end_run(now, ROSpec::Inactive);
    close_ai(now);
    start_ai(run_.ai + 1, now);
}

void Engine::end_run(int64_t now, ROSpec::State to) {
    RoEntry* r = rospec(run_.rospec);
    if (!r) return;
    close_ai(now);
    if (run_.report.trigger != ROReportSpec::None) flush();
    acc_ = {};
    port_.stop_inventory(++token_);
    r->s.state = to;
    run_ = Run{};
    if (event_on(kROSpecEvent)) rospec_event(now, 1, r->s.id);
}

void Engine::tag_read(const Read& r, int64_t now) {
    if (gone_ || !run_.rospec) return;
    const ROSpec& s = rospec(run_.rospec)->s;
    const AISpec& a = s.ai[run_.ai];
    if (!a.antennas.empty() && std::find(a.antennas.begin(), a.antennas.end(), r.antenna) == a.antennas.end()) return;
    TagSeen t;
    t.epc_len = std::min<uint8_t>(r.epc_len, uint8_t(t.epc.size()));
    std::copy_n(r.epc.begin(), t.epc_len, t.epc.begin());
    t.pc = r.pc;
    t.antenna = r.antenna;
    t.spec_index = uint16_t(run_.ai + 1);
    t.ips_id = a.ips_id;
    t.rospec_id = s.id;
    t.rssi = r.rssi;
    t.first_ms = t.last_ms = r.time_ms;
    hold(t, now);
    maybe_access(t);
    if (a.stop == AISpec::StopTags && a.n_tags) {
        unique_.add(t, false);
        if (unique_.size() >= std::min<size_t>(a.n_tags, TagList::kMax)) {
            end_ai(now);
            schedule(now);
        }
    }
}

void Engine::hold(const TagSeen& t, int64_t now) {
    const ROReportSpec& rs = run_.report;
    if (!held_.add(t, content_.antenna_id)) {
        if (rs.trigger != ROReportSpec::None) {
            flush();
            held_.add(t, content_.antenna_id);
        } else if (!overflowed_) {  // mandatory, whatever the events asked
            overflowed_ = true;
            empty_event(out_, ++msg_id_, now, param::ReportBufferOverflowErrorEvent);
        }
    }
    if (rs.trigger != ROReportSpec::None && rs.n && held_.size() >= rs.n) flush();
}

void Engine::flush(std::optional<uint32_t> reply_to) {
    if (held_.size() == 0 && accessed_.empty() && !reply_to) return;
    write_report(out_, reply_to ? *reply_to : ++msg_id_, content_, held_.tags(), accessed_);
    held_.clear();
    accessed_.clear();
    overflowed_ = false;
}

void Engine::maybe_access(const TagSeen& t) {
    if (acc_.token) return;
    for (const AccEntry& a : access_) {
        const AccessSpec& s = a.s;
        if (!s.active || (s.antenna && s.antenna != t.antenna) || (s.rospec_id && s.rospec_id != run_.rospec) ||
            !matches(s, t.pc, t.epc.data(), t.epc_len))
            continue;
        acc_ = Access{};
        acc_.access_id = s.id;
        acc_.tag.tag = t;
        acc_.tag.tag.access_spec_id = s.id;
        return issue_access();
    }
}

void Engine::issue_access() {
    AccessRequest q = access_spec(acc_.access_id)->s.ops[acc_.op].req;
    const TagSeen& t = acc_.tag.tag;
    q.epc.assign(t.epc.begin(), t.epc.begin() + t.epc_len);
    acc_.token = ++token_;
    port_.access(q, acc_.token);
}

void Engine::access_done(uint32_t token, const AccessResult& r, int64_t) {
    if (gone_ || !acc_.token || token != acc_.token) return;
    AccEntry* a = access_spec(acc_.access_id);
    const OpSpec& op = a->s.ops[acc_.op];
    acc_.tag.results.push_back(op_result(op.req.kind, op.id, r, op.req.word_count));
    if (r.code == AccessResult::Ok && ++acc_.op < a->s.ops.size()) return issue_access();
    finish_access(size_t(a - access_.data()));
}

void Engine::finish_access(size_t at) {
    AccEntry& a = access_[at];
    acc_.token = 0;
    if (a.s.report_trigger.value_or(cfg_.access_report_trigger) == 1) {
        write_report(out_, ++msg_id_, content_, {}, std::span(&acc_.tag, 1));
    } else {
        if (accessed_.size() >= TagList::kMax) flush();
        accessed_.push_back(std::move(acc_.tag));
    }
    acc_ = {};
    if (a.s.op_count && ++a.runs >= a.s.op_count) {
        access_.erase(access_.begin() + ptrdiff_t(at));
        cfg_.state_value++;
    }
}

void Engine::done(uint32_t token, const std::string& err, int64_t now) {
    if (gone_) return;
    if (pending_.token && token == pending_.token) return finish_pending(err, now);
    if (!err.empty() && run_.rospec && token == run_.token) {
        if (event_on(kExceptionEvent)) exception_event(now, "the reader could not start the inventory: " + err);
        end_run(now, ROSpec::Inactive);
        schedule(now);
    }
}

void Engine::link(bool up, const std::string& why, int64_t now) {
    if (gone_) return;
    if (event_on(kExceptionEvent)) exception_event(now, up ? "the reader is back" : "the reader is gone: " + why);
    if (!up && run_.rospec) end_run(now, ROSpec::Inactive);
}

void Engine::tick(int64_t now) {
    if (gone_) return;
    if (pending_.token && now >= pending_.deadline)
        finish_pending("no answer in " + std::to_string(kPortTimeoutMs / 1000) + " s", now);
    if (now >= keepalive_at_) {
        Writer w(out_);
        w.end_message(w.begin_message(msg::KEEPALIVE, ++msg_id_));
        keepalive_at_ = now + cfg_.keepalive_ms;
    }
    if (run_.rospec && now >= run_.ro_end) end_run(now, ROSpec::Inactive);
    if (run_.rospec && now >= run_.ai_end) end_ai(now);
    schedule(now);
}

int64_t Engine::next_deadline() const {
    if (gone_) return INT64_MAX;
    int64_t t = std::min(keepalive_at_, pending_.token ? pending_.deadline : INT64_MAX);
    if (run_.rospec) return std::min({t, run_.ro_end, run_.ai_end});
    for (const RoEntry& r : ro_)
        if (r.s.state == ROSpec::Inactive) t = std::min(t, r.next);
    return t;
}

void Engine::disconnected(int64_t now) {
    if (gone_) return;
    if (run_.rospec) end_run(now, ROSpec::Inactive);
    gone_ = true;
    acc_ = {};
    pending_ = {};
    out_.clear();
}

void Engine::rospec_event(int64_t now, uint8_t type, uint32_t id) {
    write_event(out_, ++msg_id_, now, [&](Writer& w) {
        size_t p = w.begin(param::ROSpecEvent);
        w.u8(type);
        w.u32(id);
        w.u32(0);
        w.end(p);
    });
}

void Engine::exception_event(int64_t now, const std::string& message) {
    write_event(out_, ++msg_id_, now, [&](Writer& w) {
        size_t p = w.begin(param::ReaderExceptionEvent);
        w.utf8(message);
        if (run_.rospec) w.tv(param::ROSpecID), w.u32(run_.rospec);
        w.end(p);
    });
}

}  // namespace uhfd::llrp
