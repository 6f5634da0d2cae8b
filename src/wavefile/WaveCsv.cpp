#include "wavefile/WaveCsv.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <memory>

#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextFile.h"
#include "common/TextUtil.h"
#include "common/LineScanner.h"
#include "wavefile/SampleText.h"
#include "wavefile/SplitRead.h"
#include "wavefile/WaveSource.h"

namespace mervasto {

namespace {

// Header values must be numbers; a stray text ends the read.
float headerSingle(std::string_view text) { return ToSingle(NumberText(text)); }

[[noreturn]] void subscriptError() { throw RuntimeError(ErrorCode::Subscript, "Subscript out of range."); }

// Where each comma-separated field of a line lies.
struct FieldSpan {
    uint32_t start;
    uint32_t length;
};

void splitSpans(std::string_view line, std::vector<FieldSpan>& spans) {
    spans.clear();
    const char* base = line.data();
    const auto size = static_cast<uint32_t>(line.size());
    uint32_t fieldStart = 0;
    uint32_t at = 0;
    // Eight bytes at a time; every comma in a group is a field end.
    // Lines are at most kMaxLineBytes long, so the spans of a line of too many
    // fields cost a few MiB at most before it is refused below.
    for (; size - at >= 8; at += 8) {
        uint64_t chunk;
        std::memcpy(&chunk, base + at, sizeof chunk);
        for (uint64_t hit = ByteMask(chunk, ','); hit != 0; hit &= hit - 1) {
            const uint32_t comma = at + static_cast<uint32_t>(std::countr_zero(hit) >> 3);
            spans.push_back({fieldStart, comma - fieldStart});
            fieldStart = comma + 1;
        }
    }
    for (; at < size; ++at) {
        if (base[at] == ',') {
            spans.push_back({fieldStart, at - fieldStart});
            fieldStart = at + 1;
        }
    }
    spans.push_back({fieldStart, size - fieldStart});
    if (spans.size() > kMaxFields) TooManyFields();
}

// Which setup line a first field names; None for sample rows and ignored lines.
enum class HeaderKey { None, Points, Channel, Model, File, DateTime, TimePerDiv, Delay, Delta, Mode, DataStart };

HeaderKey classify(std::string_view key) {
    // Tested in this order; the first that holds decides. Plain string_view
    // tests, since every sample row goes through here too.
    if (key.starts_with("Points")) return HeaderKey::Points;
    if (key.size() >= 8) {
        std::string_view attr = key.substr(4, 4);
        if (attr == "Disp" || attr == "Volt" || attr == "Offs") return HeaderKey::Channel;
    }
    if (key.starts_with("Model")) return HeaderKey::Model;
    if (key.starts_with("File")) return HeaderKey::File;
    if (key.ends_with("Time")) return HeaderKey::DateTime;
    if (key.starts_with("Time")) return HeaderKey::TimePerDiv;
    if (key.starts_with("Delay")) return HeaderKey::Delay;
    if (key.starts_with("Delta")) return HeaderKey::Delta;
    if (key.ends_with("Mode")) return HeaderKey::Mode;
    if (key == "Ch1 V") return HeaderKey::DataStart;
    return HeaderKey::None;
}

// A time or voltage scale that is not finite would carry Inf or NaN into
// every result; a sample interval must also be above zero.
float checkedScale(std::string_view value, bool positive) {
    const float v = headerSingle(value);
    if (!std::isfinite(v) || (positive && !(v > 0)))
        throw RuntimeError(ErrorCode::TypeMismatch, positive ? "must be a number above 0" : "must be a finite number");
    return v;
}

void applyHeaderValue(HeaderKey what, std::string_view key, std::string_view value, DsoSetup& setup) {
    switch (what) {
    case HeaderKey::Points: setup.RecordLength = ToInt32(NumberText(value)); break;
    case HeaderKey::Channel: {
        // "CH3 Offset": the digit picks the entry; 5 is the math trace.
        double c = Val(MidText(key, 3, 1));
        if (!(c >= 1 && c <= 5)) subscriptError();
        TraceSetup& trace = setup.trace(static_cast<int>(c) - 1);
        const std::string_view attr = MidText(key, 5, 4);
        if (attr == "Disp")
            trace.TraceOn = std::string(value);
        else if (attr == "Volt")
            trace.VoltsPerDiv = checkedScale(value, false);
        else
            trace.Offset = checkedScale(value, false);
        break;
    }
    case HeaderKey::Model:
        setup.Model = std::string(value);
        // "DS-5354 " still names four channels.
        setup.ChannelCount = ToInt16(Val(RightText(TrimBlanks(setup.Model), 1)));
        break;
    case HeaderKey::File: setup.InfoDigit = std::string(value); break;
    case HeaderKey::DateTime: setup.DateTime = std::string(value); break;
    case HeaderKey::TimePerDiv: setup.TimePerDiv = checkedScale(value, false); break;
    case HeaderKey::Delay: setup.TriggerDelay = checkedScale(value, false); break;
    case HeaderKey::Delta: setup.SampleInterval = checkedScale(value, true); break;
    case HeaderKey::Mode: setup.AcqMode = std::string(value); break;
    case HeaderKey::DataStart:
    case HeaderKey::None: break;
    }
}

// The table every line is split into. A line overwrites only as many
// entries as it has fields, so within a file a 2-column row after a 4-column
// one still finds columns 3 and 4 of that row (and copies them, as it always
// has). Each file starts with an empty table.
struct FieldTable {
    std::vector<std::string> fields = std::vector<std::string>(8);

    // Entry i (0-based); an entry never written reads as empty.
    std::string_view field(size_t i) const {
        return i < fields.size() ? std::string_view(fields[i]) : std::string_view();
    }
};

void applyHeader(HeaderKey what, const FieldTable& table, DsoSetup& setup) {
    const std::string_view key = table.field(0);
    const std::string_view value = table.field(1);
    try {
        applyHeaderValue(what, key, value, setup);
    } catch (const RuntimeError& e) {
        const std::string why = e.what();
        const std::string field = "\"" + std::string(key) + "\" ";
        const std::string quoted = "\"" + std::string(value) + "\"";
        throw RuntimeError(e.code(), why.starts_with("must") ? field + why + ", not " + quoted + "."
                                                             : field + "holds " + quoted + ": " + why);
    }
}

// The rows after the middle of a long file, read by the second reader. It
// only takes plain sample rows, whose samples come from their own fields: at
// least four fields, the third not empty, no setup line. Any other shape
// leaves them unused and the first reader reads on by itself, so that every
// quirk of the row-by-row reading stays where it was.
struct TailRows {
    std::array<std::vector<float>, kChannels> values;
    size_t rows = 0;

    // Takes one line; false where the rows stop being plain.
    bool take(std::string_view line, const LineScanner& in) {
        if (begin == UINT64_MAX) begin = in.lineStart();
        if (line.empty()) return true;
        splitSpans(line, spans);
        if (classify(line.substr(0, spans[0].length)) != HeaderKey::None) return false;
        if (spans.size() < kChannels || spans[2].length == 0) return false;
        if (rows >= static_cast<size_t>(kMaxSamples)) return false;
        if (rows == reservedFor) {
            // Room for the rest, estimated from the bytes per row so far.
            const uint64_t done = in.lineStart() - begin + line.size() + 1;
            const uint64_t left = in.size() > in.lineStart() ? in.size() - in.lineStart() : 0;
            const uint64_t more = rows == 0 ? 4096 : left * (rows + 1) / done + rows / 64 + 1024;
            reservedFor = std::min<uint64_t>(rows + more, static_cast<uint64_t>(kMaxSamples));
            for (auto& v : values) v.reserve(reservedFor);
        }
        for (size_t ch = 0; ch < kChannels; ++ch)
            values[ch].push_back(SampleValue(line.substr(spans[ch].start, spans[ch].length)));
        ++rows;
        return true;
    }

private:
    std::vector<FieldSpan> spans;
    uint64_t begin = UINT64_MAX;
    uint64_t reservedFor = 0;
};

// The record of the rows read: its length is their count rounded to tens,
// and the samples that claims beyond them repeat the last row. Ch3 and Ch4
// stay only when rows gave them and the model records more than two channels.
void finishRecord(int32_t rows, bool ch34, DsoSetup& setup, WaveRecord& record) {
    setup.RecordLength = static_cast<int32_t>(RoundHalfEven(rows / 10.0)) * 10;
    record.ensureLength(setup.RecordLength);
    const size_t held = ch34 && setup.ChannelCount != 2 ? 4 : 2;
    for (size_t c = 0; c < kChannels; ++c) {
        auto& w = record.wave[c];
        if (c >= held)
            w.clear();
        else if (rows > 0)
            std::fill(w.begin() + rows, w.begin() + std::max(rows, setup.RecordLength), w[rows - 1]);
    }
}

WaveCsvLoadResult load(const LineSource& source, DsoSetup& setup, WaveRecord& record,
                       const WaveCsvReadOptions& options) {
    WaveCsvLoadResult result;
    LineScanner in;
    int32_t counter = 0;
    bool inData = false;
    bool ch34 = false;  // some row gave Ch3 and Ch4
    setup = DsoSetup{};
    FieldTable table;
    int displayLines = 0;  // the highest trace with a "CHn Display" line
    auto& f = table.fields;

    // Sample rows are not copied into the field table one by one: the last
    // row is kept aside and written into the table only when a shorter line
    // or a header line needs the table as it would be.
    std::string_view line;
    std::string pendingLine;
    std::vector<FieldSpan> spans;
    std::vector<FieldSpan> pendingSpans;
    auto pendingField = [&](size_t i) {
        return std::string_view(pendingLine).substr(pendingSpans[i].start, pendingSpans[i].length);
    };
    auto settlePending = [&] {
        if (f.size() < pendingSpans.size()) f.resize(pendingSpans.size());
        for (size_t i = 0; i < pendingSpans.size(); ++i) f[i].assign(pendingField(i));
        pendingSpans.clear();
    };

    // On the heap, away from this reader's own variables: the second reader
    // writes there all the time.
    auto tail = std::make_unique<TailRows>();
    SplitRead split;

    try {
        source.open(in, 0);
        size_t capacity = record.wave[0].size();
        for (const auto& w : record.wave) capacity = std::min(capacity, w.size());
        auto ensureCapacity = [&](size_t rows) {
            if (rows <= capacity) return;
            size_t want = std::max<size_t>({rows, capacity * 2, 4096});
            if (setup.RecordLength > counter) want = std::max<size_t>(want, static_cast<size_t>(setup.RecordLength));
            // A row takes at least two bytes: a file cannot hold more rows
            // than that, whatever its "Points" line claims.
            const uint64_t size = in.size();
            if (size > in.lineStart())
                want = std::min<size_t>(want, std::max<size_t>(rows, counter + (size - in.lineStart()) / 2 + 1));
            want = std::min<size_t>(want, static_cast<size_t>(kMaxSamples));
            record.ensureLength(static_cast<int32_t>(want));
            capacity = want;
        };

        while (in.next(line)) {
            if (split.reached(in.lineStart())) {
                // The second reader has read from here on: take its rows when
                // reading on row by row would give the same.
                const bool same =
                    split.joinAt(in.lineStart()) && split.ended() && tail->rows > 0 && inData &&
                    static_cast<uint64_t>(counter) + tail->rows <= static_cast<uint64_t>(kMaxSamples) &&
                    !(setup.RecordLength > counter && static_cast<uint64_t>(setup.RecordLength) < counter + tail->rows);
                if (same) {
                    ensureCapacity(static_cast<size_t>(counter) + tail->rows);
                    for (size_t ch = 0; ch < kChannels; ++ch)
                        std::copy(tail->values[ch].begin(), tail->values[ch].end(), record.wave[ch].begin() + counter);
                    counter += static_cast<int32_t>(tail->rows);
                    ch34 = true;
                    tail.reset();
                    break;
                }
                tail.reset();
            }
            if (line.empty()) continue;
            splitSpans(line, spans);
            const HeaderKey what = classify(line.substr(0, spans[0].length));
            if (what != HeaderKey::None || !inData) {
                settlePending();
                SplitFieldsInto(FromNarrow(line), f);
                applyHeader(what, table, setup);
                if (what == HeaderKey::Points) result.rowsDeclared = setup.RecordLength;
                if (what == HeaderKey::Channel && MidText(table.field(0), 5, 4) == "Disp")
                    displayLines = std::max(displayLines, static_cast<int>(Val(MidText(table.field(0), 3, 1))));
                if (what == HeaderKey::DataStart) {
                    inData = true;
                    counter = 0;
                    if (tail)
                        split.start(
                            source, in.size(), in.lineStart(), options.splitBytes,
                            [t = tail.get()](std::string_view row, const LineScanner& at) { return t->take(row, at); });
                }
                continue;
            }

            // A sample row.
            if (spans.size() < pendingSpans.size()) settlePending();
            pendingLine.assign(line);
            std::swap(spans, pendingSpans);
            auto field = [&](size_t i) { return i < pendingSpans.size() ? pendingField(i) : table.field(i); };

            if (static_cast<size_t>(counter) >= capacity) {
                if (counter >= kMaxSamples) subscriptError();
                ensureCapacity(static_cast<size_t>(counter) + 1);
            }
            const auto k = static_cast<size_t>(counter);
            record.wave[0][k] = SampleValue(field(0));
            record.wave[1][k] = SampleValue(field(1));
            const std::string_view third = field(2);
            if (!third.empty()) {
                record.wave[2][k] = SampleValue(third);
                record.wave[3][k] = SampleValue(field(3));
                ch34 = true;
            } else {
                record.wave[2][k] = record.wave[3][k] = 0.0f;
            }
            ++counter;
            if (counter == setup.RecordLength) break;
        }
        in.close();
    } catch (const std::exception& e) {
        const auto* runtime = dynamic_cast<const RuntimeError*>(&e);
        std::string text = source.name;
        if (in.lineNumber() > 0) text += ", line " + std::to_string(in.lineNumber());
        text += ": ";
        text += e.what();
        const ErrorCode code = runtime                                              ? runtime->code()
                               : dynamic_cast<const std::bad_alloc*>(&e) != nullptr ? ErrorCode::OutOfMemory
                                                                                    : ErrorCode::Internal;
        result.outcome = Outcome(code, std::move(text));
        result.rowsRead = counter;
        return result;
    }
    result.rowsRead = counter;
    if (inData && counter > 0 && !(std::isfinite(setup.SampleInterval) && setup.SampleInterval > 0)) {
        // Periods and frequencies from no interval would be 0 and Inf.
        result.outcome =
            Outcome(ErrorCode::TypeMismatch, source.name + ": no \"Delta\" line gives the sample interval.");
        return result;
    }
    if (inData && result.rowsDeclared > counter)
        result.warnings.push_back(source.name + ": the file ends after " + std::to_string(counter) + " of the " +
                                  std::to_string(result.rowsDeclared) + " sample rows it declares.");
    // A model name of another maker (DS1104Z) carries no count; the channel
    // lines this program wrote for it do.
    if (setup.ChannelCount != 2 && setup.ChannelCount != 4 && (displayLines == 2 || displayLines == 4))
        setup.ChannelCount = static_cast<int16_t>(displayLines);
    if (inData && counter > 0 && setup.ChannelCount != 2 && setup.ChannelCount != 4) {
        result.channelCountNote =
            "The model name \"" + setup.Model + "\" gives no channel count; Ch3 and Ch4 are left out.";
        result.warnings.push_back(source.name + ": " + result.channelCountNote);
    }
    // Later analysis relies on a multiple of ten, even if that claims up to
    // four samples more than the file held.
    finishRecord(counter, ch34, setup, record);
    return result;
}

}  // namespace

WaveCsvLoadResult LoadWaveCsv(std::string_view fileName, DsoSetup& setup, WaveRecord& record,
                              const WaveCsvReadOptions& options) {
    return load(LineSource::Input(fileName), setup, record, options);
}

WaveCsvLoadResult LoadWaveCsvFrom(const LineSource& source, DsoSetup& setup, WaveRecord& record,
                                  const WaveCsvReadOptions& options) {
    return load(source, setup, record, options);
}

WaveCsvLoadResult LoadWaveCsvBytes(std::string_view bytes, std::string_view name, DsoSetup& setup, WaveRecord& record,
                                   const WaveCsvReadOptions& options) {
    return load(LineSource::Bytes(bytes, name), setup, record, options);
}

}  // namespace mervasto
