#include "wavefile/GenericCsvTimeBase.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "common/DecimalScan.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "wavefile/GenericCsv.h"

namespace mervasto {

namespace {

constexpr double kMinVoltsPerDiv = 1e-3;
// A channel is scaled no finer than a fifth of the coarsest channel's scale,
// so that noise beside a real signal stays below a third of a division.
constexpr double kFloorRatio = 5;

[[noreturn]] void fail(const std::string& text) { throw RuntimeError(ErrorCode::TypeMismatch, text); }

// The interval of a time column, each row checked against it.
double timeColumnInterval(const Rows& rows, double timeFactor, const std::string& name) {
    const size_t n = rows.count;
    const std::vector<double>& times = rows.times;
    const double t0 = times.front();
    const double dt = (times.back() - t0) / static_cast<double>(n - 1);
    // Half a unit of the last digit: the finest unit printed anywhere in the
    // column, or the column's digits at this row's magnitude when that is
    // coarser (a fixed count of significant digits).
    const int timeDigits = rows.timeDigits;
    const double finestUnit =
        rows.finestExp == kNoExp ? std::numeric_limits<double>::infinity() : PowerOfTen(rows.finestExp) * timeFactor;
    const double fixed = std::isfinite(finestUnit) ? finestUnit : 0.0;
    double decadeLo = 1, decadeHi = 0, decadeUnit = 0;  // the last decade met, so that most rows cost no log
    auto unitAt = [&](double t) {
        const double a = std::fabs(t);
        if (a == 0 || timeDigits == 0) return fixed;
        if (!(a >= decadeLo && a < decadeHi)) {
            // log10 of an exact power of ten may come out a hair below it.
            int e = static_cast<int>(std::floor(std::log10(a)));
            if (PowerOfTen(e + 1) <= a) ++e;
            if (PowerOfTen(e) > a) --e;
            decadeLo = PowerOfTen(e);
            decadeHi = PowerOfTen(e + 1);
            decadeUnit = std::max(fixed, PowerOfTen(e - timeDigits + 1));
        }
        return decadeUnit;
    };
    // Rounding never reverses two times, but it prints two of them alike
    // where the column's digits are coarser than the interval: only there
    // may a time repeat. A step of a whole unit never prints twice; dt
    // within 1 % of a unit counts as one, as a faulty row at an end moves it.
    auto outOfOrder = [&](size_t k) {
        return times[k] < times[k - 1] || (times[k] == times[k - 1] && !(dt < 0.99 * unitAt(times[k])));
    };
    auto refuseOrder = [&](size_t k) {
        fail(name + ": row " + std::to_string(k + 1) + " is at time " + ShortestText(times[k]) + " s, " +
             (times[k] == times[k - 1] ? "the same as" : "before") + " row " + std::to_string(k) + " (" +
             ShortestText(times[k - 1]) + " s): the time must increase from row to row.");
    };
    if (times[1] <= times[0] && outOfOrder(1)) refuseOrder(1);
    if (!(dt > 0) || !std::isfinite(dt)) {
        for (size_t k = 1; k < n; ++k)
            if (outOfOrder(k)) refuseOrder(k);
        fail(name + ": the time column does not increase from its first to its last row.");
    }
    // The ends set the interval, so their rounding moves every place.
    const double endSlack = 0.5 * std::max(unitAt(times.front()), unitAt(times.back()));
    // A row out of order is named as such, not as the row before it that
    // then seems out of place: the order is checked one row ahead.
    for (size_t k = 1; k + 1 < n; ++k) {
        if (times[k + 1] <= times[k] && outOfOrder(k + 1)) refuseOrder(k + 1);
        const double place = t0 + dt * static_cast<double>(k);
        const double allowed = 0.01 * dt + 0.5 * unitAt(times[k]) + endSlack;
        if (std::fabs(times[k] - place) > allowed)
            fail(name + ": row " + std::to_string(k + 1) + " is at time " + ShortestText(times[k]) + " s, not at " +
                 ShortestText(place) + " s: the rows are not evenly spaced (interval " + ShortestText(dt) +
                 " s), so the capture cannot be analysed as one record.");
    }
    return dt;
}

}  // namespace

double ImportInterval(const Rows& rows, const CsvLayout& layout, double givenInterval, const std::string& name) {
    if (layout.timeColumn) {
        const double dt = timeColumnInterval(rows, layout.timeFactor, name);
        if (!layout.timeFromIndex && layout.interval > 0 && std::fabs(dt - layout.interval) > 0.01 * layout.interval)
            fail(name + ", line " + std::to_string(layout.intervalLine) + ": the sample interval is " +
                 ShortestText(layout.interval) + " s, but the time column steps " + ShortestText(dt) +
                 " s; which one holds cannot be told.");
        return dt;
    }
    const double dt = givenInterval > 0 ? givenInterval : layout.interval;
    if (!(dt > 0))
        fail(name +
             ": no time column and no sample interval: give it with --import-interval or a \"Sample Interval\" line.");
    return dt;
}

DsoSetup ImportedSetup(size_t rows, size_t signals, const float* lo, const float* hi, double interval, double t0,
                       std::string dateTime, const std::string& name) {
    const float sampleSec = ToSingle(interval);
    if (!(sampleSec > 0)) fail(name + ": the sample interval is too small.");

    DsoSetup s;
    const int channels = signals <= 2 ? 2 : 4;
    s.Model = channels == 2 ? kImportModel2 : kImportModel4;
    s.ChannelCount = static_cast<int16_t>(channels);
    s.DateTime = std::move(dateTime);
    s.SampleInterval = sampleSec;
    s.RecordLength = static_cast<int32_t>(RoundHalfEven(static_cast<double>(rows) / 10.0)) * 10;
    s.TimePerDiv = ToSingle(static_cast<double>(s.RecordLength) * interval / 10.0);
    // The trigger sits where the file's time 0 is, so that times read as the file's own.
    s.TriggerDelay = ToSingle(-t0 - 5.0 * static_cast<double>(s.TimePerDiv));
    std::array<float, kMaxImportSignals> own{};
    double coarsest = 0;
    for (size_t c = 0; c < signals; ++c) {
        own[c] = VoltsPerDivFor(static_cast<double>(hi[c]) - lo[c], 0);
        coarsest = std::max<double>(coarsest, own[c]);
    }
    const double floor = VoltsPerDivFor(coarsest / kFloorRatio * 8.0, kMinVoltsPerDiv);
    for (int ch = 0; ch < channels; ++ch) {
        const auto c = static_cast<size_t>(ch);
        const bool used = c < signals;
        TraceSetup& t = s.trace(ch);
        t.TraceOn = used ? kTraceOn : kTraceOff;
        t.VoltsPerDiv = used ? std::max(own[c], static_cast<float>(floor)) : static_cast<float>(floor);
        t.Offset = used ? ToSingle(-(static_cast<double>(hi[c]) + lo[c]) / 2.0) : 0.0f;
        t.Coupling = "DC";
    }
    return s;
}

float VoltsPerDivFor(double range, double floor) {
    const double need = std::max(range / 8.0, floor);
    if (!(need > 0) || !std::isfinite(need)) return static_cast<float>(floor > 0 ? floor : kMinVoltsPerDiv);
    double decade = std::pow(10.0, std::floor(std::log10(need)));
    for (int i = 0; i < 8; ++i) {
        for (double step : {1.0, 2.0, 5.0}) {
            // Slack for the decade's own rounding: 0.3 / 8 must give 0.05, not 0.1.
            const double v = step * decade;
            if (v * (1 + 1e-9) >= need) return static_cast<float>(v);
        }
        decade *= 10;
    }
    return static_cast<float>(need);
}

}  // namespace mervasto
