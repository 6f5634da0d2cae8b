#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <variant>

// The one way the store talks to a database: statements with "?" parameters,
// rows handed over one at a time. SQLite and PostgreSQL each implement it, so
// that the store's tables and queries are written once.
namespace mervasto {

using SqlValue = std::variant<std::monostate, int64_t, double, std::string_view>;

class SqlRow {
public:
    virtual ~SqlRow() = default;
    virtual bool null(int col) const = 0;
    virtual int64_t integer(int col) const = 0;
    virtual double real(int col) const = 0;
    virtual std::string text(int col) const = 0;
    // NaN for a NULL.
    double realOrNan(int col) const;
};

using RowSink = std::function<void(const SqlRow&)>;

class SqlDatabase {
public:
    virtual ~SqlDatabase() = default;
    virtual bool postgres() const = 0;
    // Statements without parameters or rows (the schema, BEGIN, COMMIT).
    // Every failure throws a FileIo RuntimeError with the database's words.
    virtual void exec(const std::string& sql) = 0;
    // One statement; each row it gives goes to sink (when set). Statements
    // are prepared once and kept.
    virtual void query(const std::string& sql, std::span<const SqlValue> params, const RowSink& sink = {}) = 0;
    // Starts a transaction that writes: SQLite takes the write lock at once,
    // so that two stations never deadlock upgrading a read lock.
    virtual void beginWrite() = 0;
    // Ends a failed transaction; never throws.
    virtual void rollback() noexcept = 0;

    // The first column of the first row as a whole number, or fallback.
    int64_t scalar(const std::string& sql, std::span<const SqlValue> params, int64_t fallback);
};

// A SQLite file; create makes it (not its folder) when missing.
std::unique_ptr<SqlDatabase> OpenSqlite(const std::string& path, bool create);
// A PostgreSQL server by its connection URI (postgresql://USER@HOST/DB).
std::unique_ptr<SqlDatabase> OpenPostgres(const std::string& uri);

}  // namespace mervasto
