#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/Outcome.h"
#include "store/PassRecord.h"
#include "store/SqlDatabase.h"

// The results store: every pass in a SQLite file or, for a line of
// stations, on a PostgreSQL server with the same tables (see
// docs/results-store.md). Each pass is one transaction; each run gets its id
// from the database, so stations writing at once never mix their passes.
namespace mervasto {

inline constexpr const char* kResultStoreFileName = "results.sqlite";

struct StoreTarget {
    bool postgres = false;
    std::string location;  // the file's path, or the server's URI
};
// The ResultsDb setting: empty for the default file, "postgresql://..." (or
// "postgres://...") for a server, any other text a SQLite file's path.
StoreTarget StoreTargetOf(std::string_view resultsDb, std::string_view defaultFile);
// The target as the user is told it: the path, or the URI without a password.
std::string StoreTargetText(const StoreTarget& target);

// Which passes a reading takes: those of the runs named (all when none),
// started from `since` on and before `until` (normal forms of StoreTimeOf).
struct PassFilter {
    std::vector<int64_t> runs;
    std::optional<std::string> since;
    std::optional<std::string> until;
};

struct RunRow {
    int64_t id = 0;
    std::string station;
    std::string sample;
    std::string started;
    int64_t passes = 0;
    int64_t judged = 0;  // passes with a verdict
    int64_t go = 0;
};

// One pass, channel and kind; numbers in SI base units ("%" for the duty).
struct ExportRow {
    int64_t run = 0;
    std::string station;
    int32_t pass = 0;
    std::string started;
    std::string sampleName;
    std::string sampleIndex;
    std::string comment;
    std::string source;
    int channel = 1;  // 1..4
    std::string signalName;
    std::string type;
    Measure kind = Measure::OfType;
    std::string unit;
    bool measured = false;  // min .. sigma hold a measurement
    double min = 0, max = 0, mean = 0, sigma = 0;
    int32_t counts = 0;
    std::optional<bool> verdict;  // none where the kind has no limits
    int32_t LL = 0, UL = 0;
    double valueLL = 0, valueUL = 0;
};

// Per channel, type and kind over the chosen passes. Mean and sigma cover
// every cycle of those passes, pooled from each pass's count, mean and sigma.
struct SummaryRow {
    int channel = 1;  // 1..4
    int32_t typeIndex = 0;
    std::string type;
    Measure kind = Measure::OfType;
    std::string unit;
    int64_t passes = 0;
    int64_t cycles = 0;  // min .. sigma are measurements when cycles > 0
    double min = 0, max = 0, mean = 0, sigma = 0;
    int64_t judged = 0;  // passes whose limits of this kind were set
    int64_t go = 0;
    // The value limits of the latest of those passes, when set; Cp and Cpk
    // then (none for a sigma of 0).
    std::optional<std::array<double, 2>> valueLimits;
    std::optional<double> cp;
    std::optional<double> cpk;
};

class ResultStore {
public:
    ResultStore();
    ~ResultStore();
    ResultStore(const ResultStore&) = delete;
    ResultStore& operator=(const ResultStore&) = delete;

    // A writer makes the file (not its folder) and the tables when they are
    // missing; a reader (create false) needs a store that is there. A store
    // of an older version is brought up to this program's first.
    Outcome open(const StoreTarget& target, bool create);
    void close();
    bool isOpen() const { return db_ != nullptr; }
    const StoreTarget& target() const { return target_; }

    // --- writing ------------------------------------------------------------
    // The next pass begins a new run (an instrument run has begun). A pass
    // whose run differs from the last one's (station, settings, channels)
    // begins one too.
    void newRun() { newRun_ = true; }
    // One pass in one transaction, with its run's records and its limits'
    // when they are new. A failure leaves the store as it was.
    Outcome storePass(const RunInfo& run, const PassRecord& pass);
    // Passes stored between these two share one transaction (a whole
    // store built at once).
    Outcome beginBatch();
    Outcome commitBatch();
    int64_t runId() const { return runId_; }
    int32_t lastPass() const { return lastPass_; }

    // --- reading ------------------------------------------------------------
    Outcome listRuns(std::vector<RunRow>& rows);
    // Rows in pass order, then channel and kind.
    Outcome exportRows(const PassFilter& filter, const std::function<void(const ExportRow&)>& row);
    Outcome summarise(const PassFilter& filter, std::vector<SummaryRow>& rows);

private:
    // What a pass's transaction wrote, remembered once it is committed.
    struct Written {
        bool newRun = false;
        int64_t runId = 0;
        int32_t passNo = 0;
        std::optional<std::vector<double>> limits;  // a new limits record
        int64_t limitSetId = 0;
    };
    Written writePass(const RunInfo& run, const PassRecord& pass);
    int64_t writeRun(const RunInfo& run, const PassRecord& pass);
    std::string passWhere(const PassFilter& filter, std::vector<SqlValue>& params) const;

    StoreTarget target_;
    std::unique_ptr<SqlDatabase> db_;
    bool batch_ = false;
    bool newRun_ = true;
    // The run and limits the last pass was stored under.
    RunInfo run_;
    int64_t runId_ = 0;
    int32_t lastPass_ = 0;
    std::vector<double> limits_;
    int64_t limitSetId_ = 0;
};

}  // namespace mervasto
