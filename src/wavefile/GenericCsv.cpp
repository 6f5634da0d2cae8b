#include "wavefile/GenericCsv.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "common/LineScanner.h"
#include "common/RuntimeError.h"
#include "common/TextFile.h"
#include "wavefile/GenericCsvLayout.h"
#include "wavefile/GenericCsvRows.h"
#include "wavefile/GenericCsvTimeBase.h"
#include "wavefile/SplitRead.h"
#include "wavefile/WaveSource.h"

namespace mervasto {

namespace {

[[noreturn]] void fail(ErrorCode code, const std::string& text) { throw RuntimeError(code, text); }

std::string fileDate(const std::string& fileName) {
    std::error_code ec;
    const auto stamp = std::filesystem::last_write_time(PathFromText(fileName), ec);
    if (ec) return "";
    const auto sys = std::chrono::file_clock::to_sys(stamp);
    const std::time_t t = std::chrono::system_clock::to_time_t(sys);
    std::tm local{};
#ifdef _WIN32
    localtime_s(&local, &t);
#else
    localtime_r(&t, &local);
#endif
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y/%m/%d %H:%M:%S", &local);
    return buf;
}

void loadGeneric(const LineSource& source, DsoSetup& setup, WaveRecord& record, const WaveImportOptions& options,
                 WaveCsvLoadResult& result) {
    LineScanner in;
    source.open(in);
    const std::string& name = source.name;
    const CsvHead head = ReadCsvHead(in, name);
    const CsvLayout L = ReadCsvLayout(head, options.sampleInterval, name);
    if (L.ignoredColumns > 0)
        result.warnings.push_back(name + ": the file has " + std::to_string(L.ignoredColumns + kMaxImportSignals) +
                                  " signal columns; the first 4 are taken.");

    const size_t signals = L.signalFactor.size();
    const RowParser parser(L);
    Rows first;
    first.growTo = [&](size_t n) {
        record.ensureLength(static_cast<int32_t>(n));
        for (size_t c = 0; c < signals; ++c) first.values[c] = record.wave[c].data();
        first.capacity = n;
    };
    const uint64_t size = in.size();
    if (L.timeColumn && size > 0)
        first.times.reserve(std::min<uint64_t>(size / (4 * parser.needed()) + 16, kMaxSamples));

    auto faultText = [&](const RowFault& f, uint64_t lineNo) {
        // The row limit is said without a line: the second reader cannot
        // tell which line would have been one row too many.
        const bool atLine = lineNo > 0 && f.kind != RowFault::TooMany;
        std::string where = name + (atLine ? ", line " + std::to_string(lineNo) : std::string()) + ": ";
        switch (f.kind) {
        case RowFault::Empty: return where + ColumnLabel(L, f.column) + " is empty.";
        case RowFault::NotNumber:
            return where + "\"" + FromNarrow(f.text) + "\" in " + ColumnLabel(L, f.column) + " is not a number.";
        case RowFault::TooMany: break;
        }
        return where + "more than " + std::to_string(kMaxSamples) + " rows; the longest record the program takes is " +
               std::to_string(kMaxSamples) + " samples.";
    };
    auto refuse = [&](const RowFault& f, uint64_t lineNo) {
        result.rowsRead = static_cast<int32_t>(first.count);
        fail(f.kind == RowFault::TooMany ? ErrorCode::Subscript : ErrorCode::TypeMismatch, faultText(f, lineNo));
    };
    auto take = [&](std::string_view row, uint64_t lineNo) {
        try {
            parser.take(row, first, size > in.lineStart() ? size - in.lineStart() : 0);
        } catch (const RowFault& f) {
            refuse(f, lineNo);
        }
    };

    // The second reader's rows go to arrays of its own, on the heap.
    auto tail = std::make_unique<Rows>();
    tail->growTo = [rows = tail.get(),
                    store = std::make_shared<std::array<std::unique_ptr<float[]>, kMaxImportSignals>>(), signals,
                    timeColumn = L.timeColumn](size_t n) {
        for (size_t c = 0; c < signals; ++c) {
            std::unique_ptr<float[]> bigger(new float[n]);
            std::copy_n(rows->values[c], rows->count, bigger.get());
            (*store)[c] = std::move(bigger);
            rows->values[c] = (*store)[c].get();
        }
        if (timeColumn) rows->times.reserve(n);
        rows->capacity = n;
    };
    SplitRead split;
    split.start(source, size, in.lineStart(), options.own.splitBytes,
                [&parser, t = tail.get(), size](std::string_view row, const LineScanner& at) {
                    if (TrimCell(row).empty()) return true;
                    try {
                        parser.take(row, *t, size > at.lineStart() ? size - at.lineStart() : 0);
                    } catch (const RowFault& f) {
                        t->fault = f;
                        t->faultLine = at.lineNumber() - 1;  // its first line is the one after the part-line
                        return false;
                    }
                    return true;
                });

    for (size_t i = L.rowsAt; i < head.lines.size(); ++i) take(head.lines[i], head.lineNumbers[i]);
    std::string_view line;
    while (in.next(line)) {
        if (split.reached(in.lineStart())) {
            if (split.joinAt(in.lineStart())) {
                // The second reader's rows before its fault are kept, and so
                // is the row limit, just as one reader would have kept them.
                std::optional<RowFault> fault = tail->fault;
                const uint64_t faultLine = fault ? in.lineNumber() + tail->faultLine - 1 : 0;
                const size_t room = static_cast<size_t>(kMaxSamples) - first.count;
                if (tail->count > room) {
                    tail->count = room;
                    fault = RowFault{RowFault::TooMany, 0, {}};
                }
                first.append(*tail, signals);
                tail.reset();
                if (fault) refuse(*fault, faultLine);
                break;
            }
            tail.reset();
        }
        if (TrimCell(line).empty()) continue;
        take(line, in.lineNumber());
    }
    const size_t rows = first.count;
    result.rowsRead = static_cast<int32_t>(rows);
    if (rows < kMinImportRows)
        fail(ErrorCode::TypeMismatch, name + ": " + std::to_string(rows) + " sample row" + (rows == 1 ? "" : "s") +
                                          "; a capture needs at least " + std::to_string(kMinImportRows) + ".");

    const double dt = ImportInterval(first, L, options.sampleInterval, name);
    const double t0 = L.hasStart ? L.start : L.timeColumn ? first.times.front() : 0.0;
    DsoSetup s = ImportedSetup(rows, signals, first.lo.data(), first.hi.data(), dt, t0,
                               source.memory || source.stream ? "" : fileDate(name), name);
    // The samples the length rounded to tens claims beyond the rows repeat
    // the last row; a channel of the record without a column is flat at 0,
    // and one beyond the record's channels is empty.
    const auto channels = static_cast<size_t>(s.ChannelCount);
    const auto length = static_cast<size_t>(std::max<int32_t>(s.RecordLength, static_cast<int32_t>(rows)));
    record.ensureLength(static_cast<int32_t>(length));
    for (size_t c = 0; c < kChannels; ++c) {
        auto& w = record.wave[c];
        if (c >= channels)
            w.clear();
        else if (c >= signals || rows == 0)
            std::fill_n(w.begin(), length, 0.0f);
        else
            std::fill(w.begin() + static_cast<std::ptrdiff_t>(rows), w.begin() + static_cast<std::ptrdiff_t>(length),
                      w[rows - 1]);
    }
    setup = std::move(s);

    result.generic = true;
    result.layout = LayoutText(L, dt);
}

WaveCsvLoadResult guardedGeneric(const LineSource& source, DsoSetup& setup, WaveRecord& record,
                                 const WaveImportOptions& options) {
    WaveCsvLoadResult result;
    result.generic = true;  // also when refused: the setup was left as it was
    try {
        loadGeneric(source, setup, record, options, result);
    } catch (const RuntimeError& e) {
        std::string text = e.what();
        if (text.rfind(source.name, 0) != 0) text = source.name + ": " + text;
        result.outcome = Outcome(e.code(), std::move(text));
    } catch (const std::bad_alloc&) {
        result.outcome = Outcome(ErrorCode::OutOfMemory, source.name + ": out of memory.");
    }
    return result;
}

}  // namespace

WaveCsvLoadResult LoadGenericCsv(std::string_view fileName, DsoSetup& setup, WaveRecord& record,
                                 const WaveImportOptions& options) {
    return guardedGeneric(LineSource::Input(fileName), setup, record, options);
}

WaveCsvLoadResult LoadGenericCsvFrom(const LineSource& source, DsoSetup& setup, WaveRecord& record,
                                     const WaveImportOptions& options) {
    return guardedGeneric(source, setup, record, options);
}

WaveCsvLoadResult LoadGenericCsvBytes(std::string_view bytes, std::string_view name, DsoSetup& setup,
                                      WaveRecord& record, const WaveImportOptions& options) {
    return guardedGeneric(LineSource::Bytes(bytes, name), setup, record, options);
}

}  // namespace mervasto
