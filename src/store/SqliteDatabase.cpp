#include "store/SqlDatabase.h"

#include <sqlite3.h>

#include <chrono>
#include <cmath>
#include <string>
#include <thread>
#include <unordered_map>

#include "common/RuntimeError.h"

namespace mervasto {

double SqlRow::realOrNan(int col) const { return null(col) ? std::nan("") : real(col); }

int64_t SqlDatabase::scalar(const std::string& sql, std::span<const SqlValue> params, int64_t fallback) {
    int64_t value = fallback;
    bool first = true;
    query(sql, params, [&](const SqlRow& row) {
        if (first && !row.null(0)) value = row.integer(0);
        first = false;
    });
    return value;
}

namespace {

// Another station holding the write lock is waited for this long; a pass
// takes a millisecond, so only a stuck writer runs into it.
constexpr int kBusyTimeoutMs = 30000;

class SqliteRow : public SqlRow {
public:
    explicit SqliteRow(sqlite3_stmt* s) : s_(s) {}
    bool null(int col) const override { return sqlite3_column_type(s_, col) == SQLITE_NULL; }
    int64_t integer(int col) const override { return sqlite3_column_int64(s_, col); }
    double real(int col) const override { return sqlite3_column_double(s_, col); }
    std::string text(int col) const override {
        const auto* t = reinterpret_cast<const char*>(sqlite3_column_text(s_, col));
        return t ? std::string(t, static_cast<size_t>(sqlite3_column_bytes(s_, col))) : std::string();
    }

private:
    sqlite3_stmt* s_;
};

class SqliteDatabase : public SqlDatabase {
public:
    SqliteDatabase(const std::string& path, bool create) {
        const int flags = SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0) | SQLITE_OPEN_NOMUTEX;
        const int rc = sqlite3_open_v2(path.c_str(), &db_, flags, nullptr);
        if (rc != SQLITE_OK) {
            const std::string why = db_ ? sqlite3_errmsg(db_) : sqlite3_errstr(rc);
            sqlite3_close(db_);
            db_ = nullptr;
            throw RuntimeError(ErrorCode::FileIo, path + ": " + why);
        }
        sqlite3_busy_timeout(db_, kBusyTimeoutMs);
        // Readers never wait for a writer, and a commit does not wait for
        // the disk: a crash may lose the last passes, never the file.
        switchToWal();
        exec("PRAGMA synchronous=NORMAL");
    }
    ~SqliteDatabase() override {
        for (auto& [sql, s] : cache_) sqlite3_finalize(s);
        sqlite3_close(db_);
    }
    SqliteDatabase(const SqliteDatabase&) = delete;
    SqliteDatabase& operator=(const SqliteDatabase&) = delete;

    bool postgres() const override { return false; }

    void exec(const std::string& sql) override {
        char* message = nullptr;
        if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
            const std::string why = message ? message : sqlite3_errmsg(db_);
            sqlite3_free(message);
            throw RuntimeError(ErrorCode::FileIo, why);
        }
    }

    void query(const std::string& sql, std::span<const SqlValue> params, const RowSink& sink) override {
        sqlite3_stmt* s = prepared(sql);
        sqlite3_reset(s);
        sqlite3_clear_bindings(s);
        int i = 1;
        for (const SqlValue& v : params) {
            int rc = SQLITE_OK;
            if (const auto* n = std::get_if<int64_t>(&v))
                rc = sqlite3_bind_int64(s, i, *n);
            else if (const auto* d = std::get_if<double>(&v))
                rc = sqlite3_bind_double(s, i, *d);
            else if (const auto* t = std::get_if<std::string_view>(&v))
                rc = sqlite3_bind_text(s, i, t->data(), static_cast<int>(t->size()), SQLITE_STATIC);
            if (rc != SQLITE_OK) fail();
            ++i;
        }
        const SqliteRow row(s);
        for (;;) {
            const int rc = sqlite3_step(s);
            if (rc == SQLITE_DONE) break;
            if (rc != SQLITE_ROW) {
                const std::string why = sqlite3_errmsg(db_);
                sqlite3_reset(s);
                throw RuntimeError(ErrorCode::FileIo, why);
            }
            if (sink) sink(row);
        }
        sqlite3_reset(s);
    }

    void beginWrite() override { exec("BEGIN IMMEDIATE"); }

    void rollback() noexcept override {
        if (!sqlite3_get_autocommit(db_)) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    }

private:
    // Stations that open a new store at the same moment race to switch it
    // to WAL, and the loser is told "locked" (or, caught mid-switch, an I/O
    // error) at once instead of waiting: it tries again for as long as it
    // would wait for a writer.
    void switchToWal() {
        const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(kBusyTimeoutMs);
        for (;;) {
            try {
                exec("PRAGMA journal_mode=WAL");
                return;
            } catch (const RuntimeError&) {
                if (std::chrono::steady_clock::now() > until) throw;
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        }
    }
    [[noreturn]] void fail() const { throw RuntimeError(ErrorCode::FileIo, sqlite3_errmsg(db_)); }

    sqlite3_stmt* prepared(const std::string& sql) {
        if (auto it = cache_.find(sql); it != cache_.end()) return it->second;
        sqlite3_stmt* s = nullptr;
        if (sqlite3_prepare_v3(db_, sql.c_str(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &s,
                               nullptr) != SQLITE_OK)
            fail();
        cache_.emplace(sql, s);
        return s;
    }

    sqlite3* db_ = nullptr;
    std::unordered_map<std::string, sqlite3_stmt*> cache_;
};

}  // namespace

std::unique_ptr<SqlDatabase> OpenSqlite(const std::string& path, bool create) {
    return std::make_unique<SqliteDatabase>(path, create);
}

}  // namespace mervasto
