#include "outbox.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <tuple>

#include "oplog.h"
#include "tag_json.h"
#include "worker_wire.h"

namespace uhfd {

namespace {

// synchronous=NORMAL in WAL mode: a commit survives the process being killed
// (only a power cut may take the last ones), without an fsync per batch.
// Rows are large blobs written once and soon deleted: 64 KB pages (a new
// database only) keep their overflow chains short; the cache (16 MB at most)
// holds the rows an output is about to fetch, and a checkpoint comes every
// 32 MB of log (2 MB on 4 KB pages) instead of every 4 MB.
const char* const kSchema = R"(
PRAGMA page_size=65536;
PRAGMA journal_mode=WAL;
PRAGMA synchronous=NORMAL;
PRAGMA journal_size_limit=67108864;
PRAGMA cache_size=-16384;
PRAGMA wal_autocheckpoint=512;
CREATE TABLE IF NOT EXISTS readers(id INTEGER PRIMARY KEY, name TEXT UNIQUE NOT NULL, seq INTEGER NOT NULL DEFAULT 0);
CREATE TABLE IF NOT EXISTS rows(id INTEGER PRIMARY KEY, reader INTEGER NOT NULL, first INTEGER NOT NULL,
                                last INTEGER NOT NULL, event INTEGER NOT NULL, bytes INTEGER NOT NULL, body BLOB NOT NULL);
CREATE INDEX IF NOT EXISTS rows_of_reader ON rows(reader, last);
CREATE TABLE IF NOT EXISTS progress(output TEXT NOT NULL, reader INTEGER NOT NULL, seq INTEGER NOT NULL,
                                    PRIMARY KEY(output, reader)) WITHOUT ROWID;
)";

// Events (and reads written before rows held them binary) are kept one JSON
// object a line: JSON text never holds a raw newline. A row of binary reads
// begins with a byte no JSON text begins with, the boot id of the start that
// gave the seqs (u8 length, text), then the reads as a worker sends them.
constexpr char kItemEnd = '\n';
constexpr char kBinaryRow = '\x01';

uint64_t u64(int64_t v) { return static_cast<uint64_t>(v); }
int64_t i64(uint64_t v) { return static_cast<int64_t>(v); }

}  // namespace

struct Outbox::Staged {
    uint16_t reader = 0;
    bool event = false, binary = false;
    uint64_t first = 0, last = 0;
    size_t items = 0;
    std::string body;
};

struct Outbox::Row {
    int64_t id = 0, reader_id = 0;
    uint64_t first = 0, last = 0, bytes = 0;
    bool event = false;
};

std::unique_ptr<Outbox> Outbox::open(const Options& o, std::string& err) {
    std::unique_ptr<Outbox> box(new Outbox());
    if (!box->create(o, err)) return nullptr;
    return box;
}

Outbox::~Outbox() {
    if (lock_fd_ >= 0) close(lock_fd_);
}

bool Outbox::create(const Options& o, std::string& err) {
    namespace fs = std::filesystem;
    std::error_code ec;
    fs::create_directories(o.dir, ec);
    if (ec) return (err = o.dir + ": " + ec.message(), false);
    // Two gateways on one outbox would hand out the same seqs.
    const std::string lock = (fs::path(o.dir) / "outbox.lock").string();
    lock_fd_ = ::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lock_fd_ < 0) return (err = lock + ": " + std::strerror(errno), false);
    if (flock(lock_fd_, LOCK_EX | LOCK_NB) != 0)
        return (err = o.dir + ": another uhfd uses this state directory", false);
    if (o.readers.size() > kSlots) return (err = "more readers than the outbox has room for", false);
    outputs_ = o.outputs;
    max_bytes_ = o.max_bytes;
    row_head_.assign(1, kBinaryRow);
    row_head_ += static_cast<char>(std::min<size_t>(o.boot.size(), 255));
    row_head_.append(o.boot, 0, 255);
    const size_t slots = kSlots * outputs_.size();
    delivered_.assign(slots, 0);
    persisted_.assign(slots, 0);
    dropped_.assign(slots, 0);
    removed_upto_.assign(kSlots, 0);
    last_seq_.assign(kSlots, 0);
    ids_.assign(kSlots, 0);
    names_.assign(kSlots, {});
    written_ = std::make_unique<std::atomic<uint64_t>[]>(kSlots);
    const std::string path = (fs::path(o.dir) / "outbox.db").string();
    if (!db_.open(path, err)) return false;
    if (!db_.exec(kSchema, err) || !prepare(err) || !load(o.readers, err)) return (err = path + ": " + err, false);
    return true;
}

bool Outbox::prepare(std::string& err) {
    return insert_.prepare(
               db_, "INSERT INTO rows(reader, first, last, event, bytes, body) VALUES(?1, ?2, ?3, ?4, ?5, ?6)", err) &&
           set_seq_.prepare(db_, "UPDATE readers SET seq = ?2 WHERE id = ?1", err) &&
           set_cursor_.prepare(db_,
                               "INSERT INTO progress(output, reader, seq) VALUES(?1, ?2, ?3) "
                               "ON CONFLICT(output, reader) DO UPDATE SET seq = excluded.seq",
                               err) &&
           remove_upto_.prepare(db_, "DELETE FROM rows WHERE reader = ?1 AND last <= ?2 RETURNING bytes", err) &&
           oldest_.prepare(
               db_, "SELECT id, reader, first, last, event, bytes FROM rows WHERE event = ?1 ORDER BY id LIMIT 256",
               err) &&
           remove_row_.prepare(db_, "DELETE FROM rows WHERE id = ?1", err) &&
           fetch_.prepare(db_, "SELECT first, event, body, last FROM rows WHERE reader = ?1 AND last > ?2 ORDER BY last",
                          err) &&
           depth_.prepare(db_,
                          "SELECT count(*), coalesce(sum(CASE WHEN event THEN 0 ELSE last - first + 1 END), 0), "
                          "coalesce(sum(bytes), 0) FROM rows WHERE reader = ?1 AND last > ?2",
                          err) &&
           add_name_.prepare(db_, "INSERT OR IGNORE INTO readers(name) VALUES(?1)", err) &&
           find_name_.prepare(db_, "SELECT id, seq FROM readers WHERE name = ?1", err) &&
           progress_.prepare(db_, "SELECT seq FROM progress WHERE output = ?1 AND reader = ?2", err);
}

// Each reader's slot and the bytes held.
bool Outbox::load(const std::vector<std::string>& names, std::string& err) {
    for (size_t r = 0; r < names.size(); r++)
        if (!attach(static_cast<uint16_t>(r), names[r], err)) return false;
    readers_ = names.size();
    SqliteStmt bytes;
    if (!bytes.prepare(db_, "SELECT coalesce(sum(bytes), 0) FROM rows", err)) return false;
    if (!bytes.step()) return (err = db_.error(), false);
    bytes_ = u64(bytes.int_at(0));
    return true;
}

// The reader's id (its row made on first sight), its counter and each output's progress.
bool Outbox::attach(uint16_t r, const std::string& name, std::string& err) {
    if (!add_name_.reset().bind(1, std::string_view(name)).run() ||
        !find_name_.reset().bind(1, std::string_view(name)).step())
        return (err = db_.error(), false);
    ids_[r] = find_name_.int_at(0);
    names_[r] = name;
    last_seq_[r] = u64(find_name_.int_at(1));
    find_name_.reset();
    written_[r] = last_seq_[r];
    for (size_t o = 0; o < outputs_.size(); o++) {
        const size_t slot = progress_slot(static_cast<int>(o), r);
        if (progress_.reset().bind(1, std::string_view(outputs_[o])).bind(2, ids_[r]).step())
            delivered_[slot] = persisted_[slot] = u64(progress_.int_at(0));
        progress_.reset();
    }
    return true;
}

bool Outbox::add_reader(uint16_t reader, const std::string& name, std::string& err) {
    if (reader >= kSlots || reader < readers_)
        return (err = "the outbox has no slot left for readers added by reloads (uhfd must restart)", false);
    commit(true);  // an earlier reader of the name leaves its counter and progress in the database
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (!attach(reader, name, err)) return (ids_[reader] = 0, false);
        take_over(reader);
    }
    readers_ = reader + 1u;
    return true;
}

// Two slots on one id would fetch each other's items: the earlier one goes
// quiet, its progress since the commit and its counts carried over.
void Outbox::take_over(uint16_t reader) {
    for (uint16_t r = 0; r < readers_; r++) {
        if (ids_[r] != ids_[reader]) continue;
        ids_[r] = 0;
        for (size_t o = 0; o < outputs_.size(); o++) {
            const size_t from = progress_slot(static_cast<int>(o), r), to = progress_slot(static_cast<int>(o), reader);
            delivered_[to] = std::max(delivered_[to], delivered_[from]);
            dropped_[to] += std::exchange(dropped_[from], 0);
        }
    }
}

bool Outbox::serves(uint16_t reader) const {
    std::lock_guard<std::mutex> lock(mu_);
    return reader < readers_ && ids_[reader] != 0;
}

uint64_t Outbox::last_seq(uint16_t reader) const { return reader < last_seq_.size() ? last_seq_[reader] : 0; }

int Outbox::output(std::string_view name) const {
    auto it = std::find(outputs_.begin(), outputs_.end(), name);
    return it == outputs_.end() ? -1 : static_cast<int>(it - outputs_.begin());
}

void Outbox::watch(std::function<void()> wake) { watch_all_.push_back(std::move(wake)); }

// A row holds items of one reader, kind and form with contiguous seqs, so an
// item's seq is its row's first plus its place, and a row of reads counts its reads.
Outbox::Staged* Outbox::stage(uint16_t reader, uint64_t seq, bool event, bool binary) {
    if (reader >= readers_ || !ids_[reader]) return nullptr;
    Staged* row = nullptr;
    for (auto it = staged_.rbegin(); it != staged_.rend() && !row; ++it)
        if (it->reader == reader) row = &*it;
    if (!row || row->event != event || row->binary != binary || row->last + 1 != seq || row->items >= kRowItems) {
        staged_.push_back({reader, event, binary, seq, seq, 0, binary ? row_head_ : std::string()});
        row = &staged_.back();
    }
    row->last = seq;
    row->items++;
    return row;
}

void Outbox::add(uint16_t reader, uint64_t seq, bool event, std::string_view json) {
    if (Staged* row = stage(reader, seq, event, false)) {
        row->body.append(json);
        row->body += kItemEnd;
    }
}

void Outbox::add(const Read& r) {
    if (Staged* row = stage(r.reader, r.seq, false, true)) wire::put_read(row->body, r);
}

bool Outbox::commit(bool force) {
    const auto now = std::chrono::steady_clock::now();
    if (staged_.empty() && !force && now - last_tidy_ < kTidyMs) return false;
    if (!staged_.empty() && !force && now - last_commit_ < kCommitMs) return true;
    const bool wrote = !staged_.empty();
    {
        std::lock_guard<std::mutex> lock(mu_);
        // A failed transaction leaves the database as it was; so must it the counts.
        const auto kept = std::make_tuple(bytes_, persisted_, removed_upto_, dropped_);
        std::string err;
        bool ok = db_.exec("BEGIN", err);
        ok = ok && write_staged(err) && tidy(err) && drop_oldest(err) && db_.exec("COMMIT", err);
        if (!ok) {
            std::string ignored;
            db_.exec("ROLLBACK", ignored);
            std::tie(bytes_, persisted_, removed_upto_, dropped_) = kept;
            fail(err);
        }
        for (const Staged& s : staged_) {
            if (ok) {
                written_[s.reader] = std::max(written_[s.reader].load(), s.last);
            } else if (!s.event) {
                for (size_t o = 0; o < outputs_.size(); o++)
                    dropped_[progress_slot(static_cast<int>(o), s.reader)] += s.items;
            }
        }
    }
    staged_.clear();
    last_commit_ = last_tidy_ = now;
    if (wrote)
        for (auto& wake : watch_all_) wake();
    return false;
}

bool Outbox::write_staged(std::string& err) {
    std::vector<uint64_t> newest(readers_, 0);
    for (const Staged& s : staged_) {
        if (!insert_.reset()
                 .bind(1, ids_[s.reader])
                 .bind(2, i64(s.first))
                 .bind(3, i64(s.last))
                 .bind(4, int64_t{s.event})
                 .bind(5, i64(s.body.size()))
                 .bind_blob(6, s.body)
                 .run())
            return (err = db_.error(), false);
        bytes_ += s.body.size();
        newest[s.reader] = s.last;
    }
    // The counter goes with the rows: a restart goes on from what was written.
    for (size_t r = 0; r < newest.size(); r++)
        if (newest[r] && !set_seq_.reset().bind(1, ids_[r]).bind(2, i64(newest[r])).run())
            return (err = db_.error(), false);
    return true;
}

// Persists the outputs' progress and removes the rows every output delivered.
bool Outbox::tidy(std::string& err) {
    const size_t readers = readers_;
    for (size_t o = 0; o < outputs_.size(); o++)
        for (uint16_t r = 0; r < readers; r++) {
            const size_t slot = progress_slot(static_cast<int>(o), r);
            if (!ids_[r] || delivered_[slot] == persisted_[slot]) continue;
            if (!set_cursor_.reset()
                     .bind(1, std::string_view(outputs_[o]))
                     .bind(2, ids_[r])
                     .bind(3, i64(delivered_[slot]))
                     .run())
                return (err = db_.error(), false);
            persisted_[slot] = delivered_[slot];
        }
    for (uint16_t r = 0; r < readers && !outputs_.empty(); r++) {
        uint64_t floor = UINT64_MAX;
        for (size_t o = 0; o < outputs_.size(); o++)
            floor = std::min(floor, persisted_[progress_slot(static_cast<int>(o), r)]);
        if (!ids_[r] || floor <= removed_upto_[r]) continue;
        remove_upto_.reset().bind(1, ids_[r]).bind(2, i64(floor));
        while (remove_upto_.step()) bytes_ -= std::min(bytes_, u64(remove_upto_.int_at(0)));
        const bool ok = remove_upto_.done();
        remove_upto_.reset();
        if (!ok) return (err = db_.error(), false);
        removed_upto_[r] = floor;
    }
    return true;
}

// Over the bound, the oldest reads go first; events only when no reads are left.
bool Outbox::drop_oldest(std::string& err) {
    while (bytes_ > max_bytes_) {
        std::vector<Row> oldest;
        for (int64_t event : {0, 1}) {
            oldest_.reset().bind(1, event);
            while (oldest_.step())
                oldest.push_back({oldest_.int_at(0), oldest_.int_at(1), u64(oldest_.int_at(2)), u64(oldest_.int_at(3)),
                                  u64(oldest_.int_at(5)), oldest_.int_at(4) != 0});
            const bool ok = oldest_.done();
            oldest_.reset();
            if (!ok) return (err = db_.error(), false);
            if (!oldest.empty()) break;
        }
        if (oldest.empty()) return true;
        // Said when it starts and at most once a minute while it lasts.
        const int64_t now = static_cast<int64_t>(uhftools::unix_now());
        if (now - overflow_said_ >= 60) {
            overflow_said_ = now;
            oplog(Level::Warn, "", "outbox", {{"state", "full"}, {"dropping", "the oldest reads"}});
        }
        for (const Row& row : oldest) {
            if (bytes_ <= max_bytes_) break;
            if (!remove_row_.reset().bind(1, row.id).run()) return (err = db_.error(), false);
            bytes_ -= std::min(bytes_, row.bytes);
            count_dropped(row);
        }
    }
    return true;
}

// Each output that had not delivered them loses the row's reads past its progress.
void Outbox::count_dropped(const Row& row) {
    const auto end = ids_.begin() + static_cast<std::ptrdiff_t>(readers_.load());
    auto it = std::find(ids_.begin(), end, row.reader_id);
    if (row.event || it == end) return;
    const auto r = static_cast<uint16_t>(it - ids_.begin());
    for (size_t o = 0; o < outputs_.size(); o++) {
        const size_t slot = progress_slot(static_cast<int>(o), r);
        const uint64_t done = std::max(delivered_[slot], row.first - 1);
        if (done < row.last) dropped_[slot] += row.last - done;
    }
}

void Outbox::fail(const std::string& err) {
    if (err == last_error_) return;  // said once, not at every batch
    last_error_ = err;
    oplog(Level::Error, "", "outbox", {{"error", err}, {"batch", "dropped and counted"}});
}

// The rows are copied under the lock and made JSON after it, so the
// supervisor's commits do not wait for the encoding.
void Outbox::fetch(uint16_t reader, uint64_t after, size_t max, const Each& each) {
    struct Taken {
        uint64_t first;
        bool event;
        size_t at, size;
    };
    thread_local std::vector<Taken> rows;
    thread_local std::string bodies, json;
    rows.clear();
    bodies.clear();
    std::string name;
    if (reader >= kSlots || max == 0) return;
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (!ids_[reader]) return;
        name = names_[reader];
        fetch_.reset().bind(1, ids_[reader]).bind(2, i64(after));
        for (uint64_t items = 0; items < max && fetch_.step();) {
            const uint64_t first = u64(fetch_.int_at(0)), last = u64(fetch_.int_at(3));
            const std::string_view body = fetch_.blob_at(2);
            rows.push_back({first, fetch_.int_at(1) != 0, bodies.size(), body.size()});
            bodies.append(body);
            items += last - std::max(first - 1, after);
        }
        fetch_.reset();
    }
    size_t given = 0;
    for (const Taken& row : rows) {
        std::string_view body(bodies.data() + row.at, row.size);
        uint64_t seq = row.first;
        if (!row.event && !body.empty() && body[0] == kBinaryRow) {
            const size_t boot_len = body.size() > 1 ? static_cast<uint8_t>(body[1]) : 0;
            if (body.size() < 2 + boot_len) continue;  // not a row this code wrote
            const std::string_view boot = body.substr(2, boot_len);
            body.remove_prefix(2 + boot_len);
            Read r;
            r.reader = reader;
            for (; given < max && !body.empty() && wire::take_read(body, r); seq++) {
                if (seq <= after) continue;
                r.seq = seq;
                json.clear();
                append_read_json(r, name, boot, json);
                each(seq, false, json);
                given++;
            }
            continue;
        }
        for (size_t end; given < max && (end = body.find(kItemEnd)) != std::string_view::npos; seq++) {
            if (seq > after) {
                each(seq, row.event, body.substr(0, end));
                given++;
            }
            body.remove_prefix(end + 1);
        }
    }
}

void Outbox::fetch(uint16_t reader, uint64_t after, size_t max, std::vector<OutboxItem>& out) {
    fetch(reader, after, max, [&out](uint64_t seq, bool event, std::string_view json) {
        out.push_back({seq, event, std::string(json)});
    });
}

void Outbox::delivered(int output, uint16_t reader, uint64_t seq) {
    if (output < 0 || static_cast<size_t>(output) >= outputs_.size() || reader >= kSlots) return;
    std::lock_guard<std::mutex> lock(mu_);
    uint64_t& at = delivered_[progress_slot(output, reader)];
    at = std::max(at, seq);
}

uint64_t Outbox::delivered_up_to(int output, uint16_t reader) const {
    std::lock_guard<std::mutex> lock(mu_);
    return delivered_.at(progress_slot(output, reader));
}

Outbox::Depth Outbox::depth(int output, uint16_t reader) {
    std::lock_guard<std::mutex> lock(mu_);
    depth_.reset().bind(1, ids_.at(reader)).bind(2, i64(delivered_.at(progress_slot(output, reader))));
    Depth d;
    if (depth_.step()) d = {u64(depth_.int_at(0)), u64(depth_.int_at(1)), u64(depth_.int_at(2))};
    depth_.reset();
    return d;
}

uint64_t Outbox::reads_dropped(int output, uint16_t reader) const {
    std::lock_guard<std::mutex> lock(mu_);
    return dropped_.at(progress_slot(output, reader));
}

uint64_t Outbox::bytes() const {
    std::lock_guard<std::mutex> lock(mu_);
    return bytes_;
}

}  // namespace uhfd
