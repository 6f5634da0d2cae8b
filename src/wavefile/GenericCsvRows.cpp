#include "wavefile/GenericCsvRows.h"

#include <algorithm>
#include <cmath>

#include "common/LineScanner.h"
#include "wavefile/WaveRecord.h"

namespace mervasto {

namespace {

[[noreturn]] void notNumber(size_t c, const char* p, const char* e) {
    throw RowFault{RowFault::NotNumber, c, std::string(p, static_cast<size_t>(e - p))};
}

}  // namespace

void Rows::append(const Rows& more, size_t signals) {
    const size_t total = count + more.count;
    if (capacity < total) growTo(total);
    for (size_t c = 0; c < signals; ++c) {
        std::copy_n(more.values[c], more.count, values[c] + count);
        lo[c] = std::min(lo[c], more.lo[c]);
        hi[c] = std::max(hi[c], more.hi[c]);
    }
    // A row that failed part-way may have left its time behind.
    times.insert(times.end(), more.times.begin(),
                 more.times.begin() + static_cast<std::ptrdiff_t>(std::min(more.times.size(), more.count)));
    timeDigits = std::max(timeDigits, more.timeDigits);
    finestExp = std::min(finestExp, more.finestExp);
    count = total;
}

RowParser::RowParser(const CsvLayout& L)
    : L_(L), roles_(L.roles.data()), needed_(L.roles.size()), point_(L.point()), sep_(L.separator()) {
    for (size_t s = 0; s < L.signalFactor.size(); ++s) unscaled_[s] = L.signalFactor[s] == 1.0;
}

// The rare number the fast path cannot take exactly.
template <class T>
void RowParser::fromChars(size_t c, const char* p, const char* e, T& value) const {
    if (!ParseDecimal(p, e, point_, value)) notNumber(c, p, e);
}

float RowParser::signalValue(size_t c, size_t s, const Decimal& d, const char* p, const char* e) const {
    if (unscaled_[s]) {
        float v = 0;
        fromChars(c, p, e, v);
        return v;
    }
    double x = 0;
    if (!NearestDouble(d, x)) fromChars(c, p, e, x);
    return static_cast<float>(x * L_.signalFactor[s]);
}

void RowParser::storeTime(size_t c, const Decimal& d, const char* p, const char* e, Rows& rows) const {
    double t = 0;
    if (!NearestDouble(d, t)) fromChars(c, p, e, t);
    if (!std::isfinite(t)) notNumber(c, p, e);
    rows.times.push_back(t * L_.timeFactor);
    if (t != 0) {
        rows.timeDigits = std::max(rows.timeDigits, d.digits());
        rows.finestExp = std::min(rows.finestExp, d.unitExp);
    }
}

// Column c's number, scanned into d from its text [p, e). Kept small, as it
// runs for every field: what most fields never need is out of line.
inline void RowParser::store(size_t c, const Decimal& d, const char* p, const char* e, Rows& rows) const {
    const int8_t role = roles_[c];
    if (role == kTimeColumn) return storeTime(c, d, p, e, rows);
    const auto s = static_cast<size_t>(static_cast<uint8_t>(role));  // a signal's number, never negative here
    float v = 0;
    if (!(unscaled_[s] && NearestSingle(d, v))) v = signalValue(c, s, d, p, e);
    if (!std::isfinite(v)) notNumber(c, p, e);
    rows.values[s][rows.count] = v;
    rows.lo[s] = std::min(rows.lo[s], v);
    rows.hi[s] = std::max(rows.hi[s], v);
}

void RowParser::parseField(size_t c, const char* p, const char* e, Rows& rows) const {
    Decimal d;
    if (ScanDecimal(p, e, point_, d) != e) notNumber(c, p, e);
    store(c, d, p, e, rows);
}

void RowParser::grow(Rows& rows, size_t lineBytes, uint64_t bytesLeft) {
    // Room for the rest, estimated from this row's length with a margin;
    // as many again when the size is not known (a pipe).
    const uint64_t estimate = bytesLeft > 0 ? bytesLeft / (lineBytes + 1) : rows.count;
    const size_t want = static_cast<size_t>(
        std::min<uint64_t>(rows.count + estimate + estimate / 8 + 4096, static_cast<uint64_t>(kMaxSamples)));
    rows.growTo(std::max(want, rows.count + 1));
}

void RowParser::take(std::string_view line, Rows& rows, uint64_t bytesLeft) const {
    if (rows.count >= static_cast<size_t>(kMaxSamples)) throw RowFault{RowFault::TooMany, 0, {}};
    if (rows.count >= rows.capacity) grow(rows, line.size(), bytesLeft);
    const char* p = line.data();
    const char* const end = p + line.size();
    const bool blanks = L_.delim == Delim::Blanks;
    for (size_t c = 0; c < needed_; ++c) {
        while (p < end && (*p == ' ' || *p == '"' || (*p == '\t' && sep_ != '\t'))) ++p;
        if (roles_[c] == kSkipColumn) {
            if (blanks) {
                while (p < end && !IsCellBlank(*p)) ++p;
            } else {
                p = FindByte(p, end, sep_);
                if (p < end) ++p;
            }
            continue;
        }
        if (!blanks) {
            // The usual field, a number and the separator (or the row's
            // end after the last column), read in one pass; anything
            // else is split off first and then read, to be told apart.
            Decimal d;
            if (const char* q = ScanDecimal(p, end, point_, d)) {
                const char* r = q;
                while (r < end && (*r == ' ' || *r == '"' || (*r == '\t' && sep_ != '\t'))) ++r;
                if (r < end ? *r == sep_ : c + 1 == needed_) {
                    store(c, d, p, q, rows);
                    p = r < end ? r + 1 : end;
                    continue;
                }
            }
        }
        const char* fe;
        const char* next;
        if (blanks) {
            fe = p;
            while (fe < end && !IsCellBlank(*fe)) ++fe;
            next = fe;
        } else {
            fe = FindByte(p, end, sep_);
            next = fe < end ? fe + 1 : end;
            if (fe == end && c + 1 < needed_) {
                // The row ends before the columns it needs.
                const char* t = fe;
                while (t > p && (IsCellBlank(t[-1]) || t[-1] == '"')) --t;
                if (t == p) throw RowFault{RowFault::Empty, c, {}};
                parseField(c, p, t, rows);
                throw RowFault{RowFault::Empty, c + 1, {}};
            }
        }
        while (fe > p && (IsCellBlank(fe[-1]) || fe[-1] == '"')) --fe;
        if (fe == p) throw RowFault{RowFault::Empty, c, {}};
        parseField(c, p, fe, rows);
        p = next;
    }
    ++rows.count;
}

}  // namespace mervasto
