#include "sqlite_db.h"

#include <sqlite3.h>

namespace uhfd {

SqliteDb::~SqliteDb() {
    if (db_) sqlite3_close_v2(db_);
}

bool SqliteDb::open(const std::string& path, std::string& err) {
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;  // the caller serializes
    if (sqlite3_open_v2(path.c_str(), &db_, flags, nullptr) == SQLITE_OK) return true;
    err = path + ": " + error();
    return false;
}

bool SqliteDb::exec(const char* sql, std::string& err) {
    char* msg = nullptr;
    if (sqlite3_exec(db_, sql, nullptr, nullptr, &msg) == SQLITE_OK) return true;
    err = msg ? msg : error();
    sqlite3_free(msg);
    return false;
}

std::string SqliteDb::error() const { return db_ ? sqlite3_errmsg(db_) : "out of memory"; }

SqliteStmt::~SqliteStmt() { sqlite3_finalize(s_); }

bool SqliteStmt::prepare(SqliteDb& db, const char* sql, std::string& err) {
    if (sqlite3_prepare_v3(db.handle(), sql, -1, SQLITE_PREPARE_PERSISTENT, &s_, nullptr) == SQLITE_OK) return true;
    err = db.error();
    return false;
}

SqliteStmt& SqliteStmt::reset() {
    sqlite3_reset(s_);
    sqlite3_clear_bindings(s_);
    done_ = false;
    return *this;
}

SqliteStmt& SqliteStmt::bind(int i, int64_t v) {
    sqlite3_bind_int64(s_, i, v);
    return *this;
}

SqliteStmt& SqliteStmt::bind(int i, std::string_view text) {
    sqlite3_bind_text(s_, i, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    return *this;
}

// The bytes stay the caller's until the statement is stepped: no copy.
SqliteStmt& SqliteStmt::bind_blob(int i, std::string_view bytes) {
    sqlite3_bind_blob(s_, i, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
    return *this;
}

bool SqliteStmt::step() {
    const int rc = sqlite3_step(s_);
    done_ = rc == SQLITE_DONE;
    return rc == SQLITE_ROW;
}

bool SqliteStmt::run() {
    while (step()) {
    }
    const bool ok = done_;
    sqlite3_reset(s_);
    return ok;
}

int64_t SqliteStmt::int_at(int col) const { return sqlite3_column_int64(s_, col); }

std::string_view SqliteStmt::blob_at(int col) const {
    const void* p = sqlite3_column_blob(s_, col);
    return {static_cast<const char*>(p), static_cast<size_t>(sqlite3_column_bytes(s_, col))};
}

}  // namespace uhfd
