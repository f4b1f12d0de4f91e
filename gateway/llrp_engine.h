// One LLRP connection's protocol: single-threaded, no sockets, time passed in
// (Unix ms). The server feeds it the client's bytes, the reader's reads and
// the Port's answers, calls tick() by next_deadline(), and sends output().
//
// How it behaves where the standard leaves a choice:
// - A request that needs the reader (ENABLE_ROSPEC or START_ROSPEC that starts
//   an inventory, SET_READER_CONFIG with a transmit power) is answered once
//   the Port's done() comes, with R_DeviceError naming why when it failed (or
//   when no answer came in kPortTimeoutMs); the client's later messages wait
//   in order until then. A failed ENABLE leaves its ROSpecs Disabled, a failed
//   START leaves it Inactive. A start no request waits on (periodic, next
//   AISpec) that fails ends the ROSpec with a ReaderExceptionEvent.
// - One ROSpec is active at a time. START_ROSPEC of another while one is
//   active is refused; Immediate and Periodic starts that come due meanwhile
//   wait for it to end (lowest Priority value, then the first added, first).
//   Immediate starts once, when enabled.
// - AISpecs of a ROSpec run one after the other, each with its own
//   InventoryPlan; with a Null stop trigger an AISpec runs until the ROSpec
//   ends, so the ones after it never run.
// - Reads are folded per EPC, SpecIndex and (when reported) antenna within a
//   report. At most TagList::kMax tags are held: a report is sent when they
//   are reached, or, with ROReportTrigger None, new tags are dropped and a
//   ReportBufferOverflowErrorEvent is sent once until GET_REPORT empties it.
// - Events and reports are never held: nothing of a connection outlives it
//   (HoldEventsAndReportsUponReconnect is refused), so
//   ENABLE_EVENTS_AND_REPORTS has nothing to release.
// - AccessSpecs run on reads while a ROSpec is active, one access at a time:
//   a read that comes while one is in flight is reported but not accessed.
//   Each execution (all its OpSpecs up to the first failure) counts towards
//   the operation count; at the count the AccessSpec is deleted. An access in
//   flight when its ROSpec ends, or its AccessSpec goes, is dropped.
// - A lost reader link ends the active ROSpec (report, ReaderExceptionEvent,
//   end events); it is Inactive and can be started again.
// - KEEPALIVE_ACKs are not counted: TCP tells a dead client soon enough.
#pragma once

#include <climits>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "events.h"
#include "llrp_caps.h"
#include "llrp_codec.h"
#include "llrp_port.h"
#include "llrp_report.h"
#include "llrp_programs.h"

namespace uhfd::llrp {

// How long a request waits for the Port's answer before it is failed.
constexpr int64_t kPortTimeoutMs = 10000;
// Client bytes held while a request waits for the reader; more closes the connection.
constexpr size_t kMaxHeldInput = 4 * kMaxMessage;

class Engine {
public:
    Engine(Port& port, int64_t now_ms);
    // The client connected: queues READER_EVENT_NOTIFICATION with ConnectionAttemptEvent (Success).
    void connected(int64_t now_ms);
    // Bytes from the client (any split). False when the connection must be closed once output() is flushed
    // (CLOSE_CONNECTION answered, or a stream that cannot be framed any more).
    bool input(const uint8_t* p, size_t n, int64_t now_ms);
    void tag_read(const Read& r, int64_t now_ms);                       // every read of the reader behind this endpoint
    void done(uint32_t token, const std::string& err, int64_t now_ms);  // answer to a Port request
    void access_done(uint32_t token, const AccessResult& r, int64_t now_ms);
    void link(bool up, const std::string& why, int64_t now_ms);  // the reader's link was lost / is back
    void tick(int64_t now_ms);              // timers: keepalive, periodic starts, durations, Port answers overdue
    int64_t next_deadline() const;          // when tick() is next needed; INT64_MAX for never
    std::string& output() { return out_; }  // bytes to send; the server takes them and clears it
    // False once the connection is to be closed after output() is flushed: input() says so, and so
    // may done() and tick(), which go on with the client's messages that waited for the reader.
    bool open() const { return !closing_; }
    void disconnected(int64_t now_ms);  // the client is gone: stop what this connection started

private:
    struct Pending {  // a response waiting for the Port
        uint32_t token = 0;
        uint16_t type = 0;  // the response's message type
        uint32_t id = 0;
        int64_t deadline = INT64_MAX;
        std::vector<uint32_t> enabled;       // ENABLE_ROSPEC: what goes back to Disabled on failure
        std::optional<ConfigChange> change;  // SET_READER_CONFIG: what to hold once done
    };
    struct Run {              // the active ROSpec
        uint32_t rospec = 0;  // 0: none
        size_t ai = 0;        // index of the AISpec running
        uint32_t token = 0;   // its start_inventory
        int64_t ro_end = INT64_MAX, ai_end = INT64_MAX;
        ROReportSpec report;
    };
    struct Access {          // the access in flight
        uint32_t token = 0;  // 0: none
        uint32_t access_id = 0;  // the AccessSpec it runs
        size_t op = 0;
        AccessedTag tag;
    };
    bool process(int64_t now);
    void handle(const Header& h, std::string_view body, int64_t now);
    void answer(uint16_t type, uint32_t id, const Error& e = {});
    void wait_for(uint32_t token, uint16_t type, uint32_t id, int64_t now);
    void finish_pending(const std::string& err, int64_t now);

    void on_capabilities(const Header& h, std::string_view body, int64_t now);
    void on_get_config(const Header& h, std::string_view body, int64_t now);
    void on_set_config(const Header& h, std::string_view body, int64_t now);
    void on_close(const Header& h, std::string_view body, int64_t now);
    void on_add_rospec(const Header& h, std::string_view body, int64_t now);
    void on_rospec_op(const Header& h, std::string_view body, int64_t now);
    void on_get_rospecs(const Header& h, std::string_view body, int64_t now);
    void on_add_access(const Header& h, std::string_view body, int64_t now);
    void on_access_op(const Header& h, std::string_view body, int64_t now);
    void on_get_access(const Header& h, std::string_view body, int64_t now);
    void on_get_report(const Header& h, std::string_view body, int64_t now);
    void unframeable(const Header& h, int64_t now);

    struct RoEntry {
        ROSpec s;
        int64_t next = INT64_MAX;  // when its start trigger fires next
    };
    struct AccEntry {
        AccessSpec s;
        uint32_t runs = 0;
    };
    Error start_rospec(uint32_t id, int64_t now, uint32_t& token);
    Error stop_rospec(uint32_t id, int64_t now);
    Error enable_rospec(uint32_t id, int64_t now, uint32_t& token);
    Error disable_rospec(uint32_t id, int64_t now);
    Error delete_rospec(uint32_t id, int64_t now);
    void arm(RoEntry& e, int64_t now);
    void apply(const ConfigChange& c, int64_t now);

    RoEntry* rospec(uint32_t id);
    AccEntry* access_spec(uint32_t id);
    uint32_t schedule(int64_t now);  // starts the ROSpec due first, when none runs; its token
    uint32_t begin_run(ROSpec& s, int64_t now);
    uint32_t start_ai(size_t ai, int64_t now);
    void close_ai(int64_t now);
    void end_ai(int64_t now);
    void end_run(int64_t now, ROSpec::State to);
    InventoryPlan plan(const AISpec& a);
    void hold(const TagSeen& t, int64_t now);
    void maybe_access(const TagSeen& t);
    void issue_access();
    void finish_access(size_t at);

    // reply_to: the GET_REPORT this answers, whose ID the report carries; it is sent even when empty.
    void flush(std::optional<uint32_t> reply_to = {});
    bool event_on(int type) const { return cfg_.events >> type & 1; }
    void rospec_event(int64_t now, uint8_t type, uint32_t id);
    void exception_event(int64_t now, const std::string& message);

    Port& port_;
    ReaderFacts facts_;
    ReaderConfig cfg_;
    std::string in_, out_;
    uint32_t msg_id_ = 0, token_ = 0;
    bool closing_ = false, gone_ = false, processing_ = false, overflowed_ = false;
    int64_t keepalive_at_ = INT64_MAX;
    std::vector<RoEntry> ro_;       // in the order added
    std::vector<AccEntry> access_;  // in the order added
    Pending pending_;
    Run run_;
    Access acc_;
    ReportContent content_;  // the last ROSpec's, for what is held after it
    TagList held_, unique_;
    std::vector<AccessedTag> accessed_;  // AccessReportTrigger 0: sent with the next report
};

// What a second client gets before it is closed: READER_EVENT_NOTIFICATION, ConnectionAttemptEvent
// status Failed_A_Client_Initiated_Connection_Already_Exists (2).
void write_connection_refused(std::string& out, int64_t now_ms);

}  // namespace uhfd::llrp
