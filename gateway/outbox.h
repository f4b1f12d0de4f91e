// The durable outbox: reads and events wait here, in SQLite (WAL), from the
// moment the hub gives them a seq until every output that delivers them (the
// MQTT clients, the webhook) has had them acknowledged. It survives a broker
// outage and a restart of uhfd, kill -9 included, and is bounded in bytes:
// when full, the oldest reads go, counted in reads for every output that had
// not delivered them.
//
// The supervisor's thread stages items and writes them in one transaction per
// batch (rows of up to kRowItems items of one kind, contiguous seqs); the
// outputs' threads fetch from it and report what was acknowledged, which the
// next transaction persists and removes. One connection, one mutex.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "events.h"
#include "sqlite_db.h"

namespace uhfd {

struct OutboxItem {
    uint64_t seq = 0;
    bool event = false;
    std::string json;
};

class Outbox {
public:
    struct Options {
        std::string dir;                   // created when missing; holds outbox.db and its lock
        uint64_t max_bytes = 100u << 20;   // of items kept; the database file runs a little larger
        std::vector<std::string> readers;  // by configuration index; a reload adds more with add_reader
        std::vector<std::string> outputs;  // the outputs that deliver from it, e.g. "mqtt", "webhook"
        std::string boot;                  // this start's boot id: the reads added carry it
    };
    // Null with err when the directory or database cannot be used, or another
    // uhfd holds it.
    static std::unique_ptr<Outbox> open(const Options& o, std::string& err);
    ~Outbox();

    // Supervisor's thread: a reader added by a reload gets its slot as those of
    // open do. An earlier reader of the name (removed by a reload) hands its
    // items and progress over. False when the index is beyond kSlots or taken,
    // or the database fails.
    bool add_reader(uint16_t reader, const std::string& name, std::string& err);
    // The readers' indexes in use are below this; any thread.
    size_t readers() const { return readers_.load(); }
    // False for an index without a slot, or one a later reader of its name took over.
    bool serves(uint16_t reader) const;

    // The last seq a reader had given when uhfd last wrote here (0: never).
    uint64_t last_seq(uint16_t reader) const;
    int output(std::string_view name) const;  // index for the calls below, -1 when unknown

    // Supervisor's thread. add stages an item's JSON; a read is staged
    // binary (r.reader, r.seq set), about a fifth of its JSON, and becomes its
    // JSON when fetched. commit writes what is staged in one
    // transaction once kCommitMs have passed since the last (at once with
    // force), persists the outputs' progress, removes what all have delivered
    // and keeps within max_bytes. True while something stays staged.
    void add(uint16_t reader, uint64_t seq, bool event, std::string_view json);
    void add(const Read& r);
    bool commit(bool force = false);

    // Any thread. The items of a reader after seq, in seq order, at most max,
    // handed to each as JSON (valid for the call only).
    using Each = std::function<void(uint64_t seq, bool event, std::string_view json)>;
    void fetch(uint16_t reader, uint64_t after, size_t max, const Each& each);
    void fetch(uint16_t reader, uint64_t after, size_t max, std::vector<OutboxItem>& out);
    // Everything of the reader up to seq reached the output's far end.
    void delivered(int output, uint16_t reader, uint64_t seq);
    uint64_t delivered_up_to(int output, uint16_t reader) const;
    // The newest seq written for the reader: what an output may fetch up to.
    uint64_t written_up_to(uint16_t reader) const { return written_[reader].load(); }
    // Called (on the supervisor's thread) after each commit that wrote items.
    void watch(std::function<void()> wake);

    struct Depth {
        uint64_t rows = 0, reads = 0, bytes = 0;
    };
    // What the output has not delivered yet, in rows (partly sent ones whole).
    Depth depth(int output, uint16_t reader);
    uint64_t reads_dropped(int output, uint16_t reader) const;
    uint64_t bytes() const;

    static constexpr size_t kRowItems = 1000;
    // Reader indexes: fixed, so no array moves under the outputs' threads. A
    // reader a reload adds takes a new index, also when a removed one had its name.
    static constexpr size_t kSlots = 256;
    static constexpr std::chrono::milliseconds kCommitMs{10}, kTidyMs{200};

private:
    struct Staged;
    struct Row;
    Outbox() = default;
    bool create(const Options& o, std::string& err);
    bool prepare(std::string& err);
    bool load(const std::vector<std::string>& names, std::string& err);
    bool attach(uint16_t reader, const std::string& name, std::string& err);
    void take_over(uint16_t reader);
    Staged* stage(uint16_t reader, uint64_t seq, bool event, bool binary);
    bool write_staged(std::string& err);
    bool tidy(std::string& err);
    bool drop_oldest(std::string& err);
    void count_dropped(const Row& row);
    void fail(const std::string& err);
    size_t progress_slot(int output, uint16_t reader) const { return static_cast<size_t>(output) * kSlots + reader; }

    std::vector<std::string> outputs_;
    std::atomic<size_t> readers_{0};
    uint64_t max_bytes_ = 0;
    std::string row_head_;  // begins every row of binary reads: a mark and the boot id
    int lock_fd_ = -1;

    mutable std::mutex mu_;  // everything below, and the connection
    SqliteDb db_;
    SqliteStmt insert_, set_seq_, set_cursor_, remove_upto_, oldest_, remove_row_, fetch_, depth_;
    SqliteStmt add_name_, find_name_, progress_;
    std::vector<int64_t> ids_;         // the database's id of each reader, 0: none; changed on the supervisor's thread
    std::vector<std::string> names_;   // by reader, as ids_
    std::vector<uint64_t> last_seq_;   // given before this start (or the reader's addition), by reader
    std::vector<uint64_t> delivered_;  // by progress_slot
    std::vector<uint64_t> persisted_;  // delivered_ as the database holds it
    std::vector<uint64_t> removed_upto_;  // by reader: rows up to here are gone
    std::vector<uint64_t> dropped_;       // reads, by progress_slot
    uint64_t bytes_ = 0;
    std::vector<Staged> staged_;
    std::chrono::steady_clock::time_point last_commit_{}, last_tidy_{};
    std::string last_error_;
    int64_t overflow_said_ = 0;  // Unix seconds of the last "full" line

    std::unique_ptr<std::atomic<uint64_t>[]> written_;
    std::vector<std::function<void()>> watch_all_;
};

}  // namespace uhfd
