// A thin hold on SQLite: a connection and prepared statements that finalize
// themselves, with the error text kept where the caller can say it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace uhfd {

class SqliteDb {
public:
    SqliteDb() = default;
    ~SqliteDb();
    SqliteDb(const SqliteDb&) = delete;
    SqliteDb& operator=(const SqliteDb&) = delete;

    bool open(const std::string& path, std::string& err);
    // Runs statements that return no rows; false with err naming the failure.
    bool exec(const char* sql, std::string& err);
    std::string error() const;
    sqlite3* handle() const { return db_; }

private:
    sqlite3* db_ = nullptr;
};

class SqliteStmt {
public:
    SqliteStmt() = default;
    ~SqliteStmt();
    SqliteStmt(const SqliteStmt&) = delete;
    SqliteStmt& operator=(const SqliteStmt&) = delete;

    bool prepare(SqliteDb& db, const char* sql, std::string& err);
    // Binds start again from a reset statement: bind(1, …), bind(2, …).
    SqliteStmt& reset();
    SqliteStmt& bind(int i, int64_t v);
    SqliteStmt& bind(int i, std::string_view text);
    SqliteStmt& bind_blob(int i, std::string_view bytes);
    // True while there is a row; done() tells a finished statement from an error.
    bool step();
    bool done() const { return done_; }
    // Steps a statement that returns no rows; false on an error.
    bool run();
    int64_t int_at(int col) const;
    std::string_view blob_at(int col) const;

private:
    sqlite3_stmt* s_ = nullptr;
    bool done_ = false;
};

}  // namespace uhfd
