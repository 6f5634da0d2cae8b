#include "store/SqlDatabase.h"

#include <libpq-fe.h>

#include <charconv>
#include <cmath>
#include <string>
#include <unordered_map>
#include <vector>

#include "common/Numeric.h"
#include "common/RuntimeError.h"

namespace mervasto {

namespace {

// A server that does not answer must not hold a pass (or the window) for
// the operating system's minutes.
constexpr const char* kConnectTimeoutSeconds = "5";

std::string trimmed(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    return text;
}

// "?" parameters numbered as PostgreSQL wants them ($1, $2, ...). The
// store's statements hold no "?" inside a quoted text.
std::string numbered(const std::string& sql) {
    std::string out;
    out.reserve(sql.size() + 16);
    int n = 0;
    for (char c : sql) {
        if (c == '?')
            out += '$' + std::to_string(++n);
        else
            out += c;
    }
    return out;
}

class PostgresRow : public SqlRow {
public:
    explicit PostgresRow(const PGresult* r) : r_(r) {}
    bool null(int col) const override { return PQgetisnull(r_, 0, col) != 0; }
    int64_t integer(int col) const override {
        const char* t = PQgetvalue(r_, 0, col);
        int64_t v = 0;
        std::from_chars(t, t + PQgetlength(r_, 0, col), v);
        return v;
    }
    double real(int col) const override {
        const std::string_view t(PQgetvalue(r_, 0, col), static_cast<size_t>(PQgetlength(r_, 0, col)));
        if (t == "NaN") return std::nan("");
        if (t == "Infinity") return HUGE_VAL;
        if (t == "-Infinity") return -HUGE_VAL;
        double v = 0;
        std::from_chars(t.data(), t.data() + t.size(), v);
        return v;
    }
    std::string text(int col) const override {
        return {PQgetvalue(r_, 0, col), static_cast<size_t>(PQgetlength(r_, 0, col))};
    }

private:
    const PGresult* r_;
};

class PostgresDatabase : public SqlDatabase {
public:
    explicit PostgresDatabase(const std::string& uri) {
        const char* keys[] = {"connect_timeout", "dbname", nullptr};
        const char* values[] = {kConnectTimeoutSeconds, uri.c_str(), nullptr};
        // The URI's own settings, a time-out among them, come after ours and win.
        conn_ = PQconnectdbParams(keys, values, 1);
        if (!conn_ || PQstatus(conn_) != CONNECTION_OK) {
            const std::string why = conn_ ? trimmed(PQerrorMessage(conn_)) : "out of memory";
            PQfinish(conn_);
            conn_ = nullptr;
            throw RuntimeError(ErrorCode::FileIo, why);
        }
        prepareSession();
    }
    ~PostgresDatabase() override { PQfinish(conn_); }
    PostgresDatabase(const PostgresDatabase&) = delete;
    PostgresDatabase& operator=(const PostgresDatabase&) = delete;

    bool postgres() const override { return true; }

    void exec(const std::string& sql) override {
        PGresult* r = PQexec(conn_, sql.c_str());
        const ExecStatusType status = PQresultStatus(r);
        const std::string why = trimmed(PQresultErrorMessage(r));
        PQclear(r);
        if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) fail(why);
    }

    void query(const std::string& sql, std::span<const SqlValue> params, const RowSink& sink) override {
        const std::string& name = prepared(sql);
        std::vector<std::string> texts(params.size());
        std::vector<const char*> values(params.size(), nullptr);
        for (size_t i = 0; i < params.size(); ++i) {
            const SqlValue& v = params[i];
            if (const auto* n = std::get_if<int64_t>(&v))
                texts[i] = std::to_string(*n);
            else if (const auto* d = std::get_if<double>(&v))
                texts[i] = ExactText(*d);  // reads back to the same double
            else if (const auto* t = std::get_if<std::string_view>(&v))
                texts[i].assign(*t);
            else
                continue;
            values[i] = texts[i].c_str();
        }
        if (!PQsendQueryPrepared(conn_, name.c_str(), static_cast<int>(params.size()), values.data(), nullptr, nullptr,
                                 0))
            fail(trimmed(PQerrorMessage(conn_)));
        PQsetSingleRowMode(conn_);
        std::string why;
        while (PGresult* r = PQgetResult(conn_)) {
            const ExecStatusType status = PQresultStatus(r);
            if (status == PGRES_SINGLE_TUPLE) {
                if (sink && why.empty()) sink(PostgresRow(r));
            } else if (status != PGRES_TUPLES_OK && status != PGRES_COMMAND_OK && why.empty()) {
                why = trimmed(PQresultErrorMessage(r));
            }
            PQclear(r);
        }
        if (!why.empty()) fail(why);
    }

    void beginWrite() override {
        // A connection the server dropped (a restart, the network) is made
        // again before the next pass, not left failing every pass after.
        if (PQstatus(conn_) != CONNECTION_OK) {
            PQreset(conn_);
            prepared_.clear();
            if (PQstatus(conn_) != CONNECTION_OK) fail(trimmed(PQerrorMessage(conn_)));
            prepareSession();
        }
        exec("BEGIN");
    }

    void rollback() noexcept override {
        if (PQtransactionStatus(conn_) != PQTRANS_IDLE) PQclear(PQexec(conn_, "ROLLBACK"));
    }

private:
    [[noreturn]] static void fail(const std::string& why) {
        throw RuntimeError(ErrorCode::FileIo, why.empty() ? "the server gave no reason" : why);
    }

    void prepareSession() {
        PQsetClientEncoding(conn_, "UTF8");
        // "relation already exists, skipping" and the like are no news.
        PQsetNoticeProcessor(
            conn_, [](void*, const char*) {}, nullptr);
    }

    const std::string& prepared(const std::string& sql) {
        if (auto it = prepared_.find(sql); it != prepared_.end()) return it->second;
        std::string name = "s" + std::to_string(prepared_.size());
        PGresult* r = PQprepare(conn_, name.c_str(), numbered(sql).c_str(), 0, nullptr);
        const bool ok = PQresultStatus(r) == PGRES_COMMAND_OK;
        const std::string why = trimmed(PQresultErrorMessage(r));
        PQclear(r);
        if (!ok) fail(why);
        return prepared_.emplace(sql, std::move(name)).first->second;
    }

    PGconn* conn_ = nullptr;
    std::unordered_map<std::string, std::string> prepared_;
};

}  // namespace

std::unique_ptr<SqlDatabase> OpenPostgres(const std::string& uri) { return std::make_unique<PostgresDatabase>(uri); }

}  // namespace mervasto
