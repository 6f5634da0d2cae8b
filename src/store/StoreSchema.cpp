#include "store/StoreSchema.h"

#include <array>
#include <string>
#include <vector>

#include "common/RuntimeError.h"

namespace mervasto {

namespace {

// "{id}" and "{norowid}" take each database's spelling.
using Migration = std::vector<const char*>;

const std::vector<Migration>& migrations() {
    static const std::vector<Migration> steps = {
        // 1: runs, their settings, channels and limits; passes and what they measured.
        {
            "CREATE TABLE run (id {id}, station TEXT NOT NULL, sample TEXT NOT NULL, started TEXT NOT NULL,"
            " program TEXT NOT NULL)",
            "CREATE TABLE run_setting (run_id BIGINT NOT NULL REFERENCES run (id), name TEXT NOT NULL,"
            " value TEXT NOT NULL, PRIMARY KEY (run_id, name)){norowid}",
            "CREATE TABLE run_channel (run_id BIGINT NOT NULL REFERENCES run (id), channel INTEGER NOT NULL,"
            " type_index INTEGER NOT NULL, type TEXT NOT NULL, name TEXT NOT NULL, PRIMARY KEY (run_id, channel))"
            "{norowid}",
            "CREATE TABLE limit_set (id {id}, run_id BIGINT NOT NULL REFERENCES run (id),"
            " first_pass INTEGER NOT NULL)",
            "CREATE TABLE limit_value (limit_set_id BIGINT NOT NULL REFERENCES limit_set (id),"
            " channel INTEGER NOT NULL, kind INTEGER NOT NULL, ll INTEGER NOT NULL, ul INTEGER NOT NULL,"
            " value_ll DOUBLE PRECISION NOT NULL, value_ul DOUBLE PRECISION NOT NULL,"
            " PRIMARY KEY (limit_set_id, channel, kind)){norowid}",
            "CREATE TABLE pass (id {id}, run_id BIGINT NOT NULL REFERENCES run (id), pass_no INTEGER NOT NULL,"
            " started TEXT NOT NULL, sample_name TEXT NOT NULL, sample_index TEXT NOT NULL, comment TEXT NOT NULL,"
            " source TEXT NOT NULL, limit_set_id BIGINT NOT NULL REFERENCES limit_set (id), verdict INTEGER,"
            " UNIQUE (run_id, pass_no))",
            "CREATE INDEX pass_started ON pass (started)",
            "CREATE TABLE pass_result (pass_id BIGINT NOT NULL REFERENCES pass (id), channel INTEGER NOT NULL,"
            " kind INTEGER NOT NULL, min DOUBLE PRECISION, max DOUBLE PRECISION, mean DOUBLE PRECISION,"
            " sigma DOUBLE PRECISION, counts INTEGER NOT NULL, go INTEGER NOT NULL,"
            " PRIMARY KEY (pass_id, channel, kind)){norowid}",
            "CREATE TABLE pass_jitter (pass_id BIGINT NOT NULL REFERENCES pass (id), channel INTEGER NOT NULL,"
            " c2c_min DOUBLE PRECISION NOT NULL, c2c_max DOUBLE PRECISION NOT NULL,"
            " c2c_mean DOUBLE PRECISION NOT NULL, c2c_sigma DOUBLE PRECISION NOT NULL,"
            " c2c_counts INTEGER NOT NULL, tie_rms DOUBLE PRECISION NOT NULL, tie_pp DOUBLE PRECISION NOT NULL,"
            " tie_counts INTEGER NOT NULL, runs INTEGER NOT NULL, PRIMARY KEY (pass_id, channel)){norowid}",
            "CREATE TABLE pass_encoder (pass_id BIGINT NOT NULL PRIMARY KEY REFERENCES pass (id),"
            " analysed INTEGER NOT NULL, note TEXT NOT NULL, position BIGINT NOT NULL, reversals INTEGER NOT NULL,"
            " dropped_bounces INTEGER NOT NULL, index_count INTEGER NOT NULL, illegal INTEGER NOT NULL,"
            " revolutions DOUBLE PRECISION NOT NULL, speed DOUBLE PRECISION NOT NULL)",
            "CREATE TABLE pass_encoder_statistic (pass_id BIGINT NOT NULL REFERENCES pass (id),"
            " quantity TEXT NOT NULL, min DOUBLE PRECISION NOT NULL, max DOUBLE PRECISION NOT NULL,"
            " mean DOUBLE PRECISION NOT NULL, sigma DOUBLE PRECISION NOT NULL, counts INTEGER NOT NULL,"
            " PRIMARY KEY (pass_id, quantity)){norowid}",
        },
    };
    return steps;
}

std::string spelled(std::string sql, bool postgres) {
    const std::array<std::pair<std::string, std::string>, 2> words = {{
        {"{id}", postgres ? "BIGSERIAL PRIMARY KEY" : "INTEGER PRIMARY KEY"},
        {"{norowid}", postgres ? "" : " WITHOUT ROWID"},
    }};
    for (const auto& [from, to] : words)
        for (size_t at; (at = sql.find(from)) != std::string::npos;) sql.replace(at, from.size(), to);
    return sql;
}

// Any number: PostgreSQL's lock that makes two stations' first openings wait
// for each other.
constexpr const char* kSchemaLock = "SELECT pg_advisory_xact_lock(58311031)";

}  // namespace

int StoreSchemaVersion(SqlDatabase& db) {
    const bool present =
        db.postgres()
            ? db.scalar(
                  "SELECT COUNT(*) FROM information_schema.tables WHERE table_name = 'store_schema'"
                  " AND table_schema = current_schema()",
                  {}, 0) > 0
            : db.scalar("SELECT COUNT(*) FROM sqlite_master WHERE type = 'table' AND name = 'store_schema'", {}, 0) > 0;
    return present ? static_cast<int>(db.scalar("SELECT MAX(version) FROM store_schema", {}, 0)) : 0;
}

void EnsureStoreSchema(SqlDatabase& db) {
    // A store that is up to date is only read: a reader needs no write lock
    // and no right to write.
    if (StoreSchemaVersion(db) == kStoreSchemaVersion) return;
    db.beginWrite();
    try {
        if (db.postgres()) db.exec(kSchemaLock);
        db.exec("CREATE TABLE IF NOT EXISTS store_schema (version INTEGER NOT NULL)");
        const int version = StoreSchemaVersion(db);
        if (version > kStoreSchemaVersion)
            throw RuntimeError(ErrorCode::FileIo, "the results store is of version " + std::to_string(version) +
                                                      ", newer than this program's " +
                                                      std::to_string(kStoreSchemaVersion));
        const auto& steps = migrations();
        for (size_t v = static_cast<size_t>(version); v < steps.size(); ++v)
            for (const char* sql : steps[v]) db.exec(spelled(sql, db.postgres()));
        if (version < kStoreSchemaVersion) {
            db.exec("DELETE FROM store_schema");
            db.exec("INSERT INTO store_schema (version) VALUES (" + std::to_string(kStoreSchemaVersion) + ")");
        }
        db.exec("COMMIT");
    } catch (...) {
        db.rollback();
        throw;
    }
}

}  // namespace mervasto
