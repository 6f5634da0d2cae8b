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

namespace mervasto {

namespace {

constexpr size_t kFlushBytes = size_t{4} << 20;

template <class Out>
void flushIfFull(std::string& buf, Out& out) {
    if (buf.size() >= kFlushBytes) {
        out.write(buf);
        buf.clear();
    }
}

// Header values must be numbers; a stray text ends the read.
float headerSingle(std::string_view text) { return ToSingle(NumberText(text)); }

[[noreturn]] void subscriptError() { throw RuntimeError(ErrorCode::Subscript, "Subscript out of range."); }

// Rows in the file cannot run past the arrays the writer was given.
size_t writableRows(const WaveRecord& record, int32_t count, int columns) {
    if (count <= 0) return 0;
    size_t n = static_cast<size_t>(count);
    for (int c = 0; c < columns; ++c) n = std::min(n, record.wave[c].size());
    return n;
}

}  // namespace

int32_t TriggerAddress(const DsoSetup& setup) {
    float divs = setup.TriggerDelay / setup.TimePerDiv + 5.0f;
    double address = static_cast<double>(divs) * setup.RecordLength / 10.0;
    try {
        return ToInt32(address);
    } catch (const RuntimeError&) {
        return 0;
    }
}

Outcome SaveWaveCsv(std::string_view fileName, const DsoSetup& setup, const WaveRecord& record) {
    FileReplacer out(fileName);

    std::string head;
    auto line = [&](std::string_view key, std::string_view value) {
        head.append(key);
        head.append(value);
        head.append("\r\n");
    };
    line("ModelName,", setup.Model);
    line("FileVersion,", setup.InfoDigit);
    line("Acquisition Time, ", setup.DateTime);
    line("Time/div(second),", PrintForm(setup.TimePerDiv));
    line("Delay (second),", PrintForm(setup.TriggerDelay));
    line("Delta (second),", PrintForm(setup.SampleInterval));
    line("Acquisition Mode,", setup.AcqMode);
    line("Trigger Address,", PrintForm(TriggerAddress(setup)));

    // Grouped by attribute, not by channel, numbered from 1; traces past the
    // setup's are skipped.
    const int traces = std::min<int>(setup.ChannelCount, kSetupTraces);
    auto group = [&](const char* attr, auto valueOf) {
        for (int t = 0; t < traces; ++t) line("CH" + std::to_string(t + 1) + " " + attr + ",", valueOf(setup.trace(t)));
    };
    group("Display", [](const TraceSetup& t) { return t.TraceOn; });
    group("Volt/div", [](const TraceSetup& t) { return PrintForm(t.VoltsPerDiv); });
    group("Offset", [](const TraceSetup& t) { return PrintForm(t.Offset); });
    group("Coupling", [](const TraceSetup& t) { return t.Coupling; });
    group("Bandwidth", [](const TraceSetup& t) { return t.BandwidthLimit; });
    line("Points ,", PrintForm(setup.RecordLength));

    const int columns = setup.ChannelCount == 2 ? 2 : 4;
    head.append(columns == 2 ? "Ch1 V,Ch2 V\r\n" : "Ch1 V,Ch2 V,Ch3 V,Ch4 V\r\n");
    out.write(ToNarrow(head));

    const size_t rows = writableRows(record, setup.RecordLength, columns);
    std::string buf(kFlushBytes + 4 * kSampleTextMax + 16, '\0');
    char* const base = buf.data();
    char* o = base;
    const float* w[4] = {record.wave[0].data(), record.wave[1].data(), record.wave[2].data(), record.wave[3].data()};
    SampleTextCache cache;
    for (size_t k = 0; k < rows; ++k) {
        o = cache.write(o, w[0][k]);
        for (int c = 1; c < columns; ++c) {
            *o++ = ',';
            o = cache.write(o, w[c][k]);
        }
        *o++ = '\r';
        *o++ = '\n';
        if (static_cast<size_t>(o - base) >= kFlushBytes) {
            out.write(std::string_view(base, static_cast<size_t>(o - base)));
            o = base;
        }
    }
    out.write(std::string_view(base, static_cast<size_t>(o - base)));
    return out.commit();
}

namespace {

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

void applyHeader(HeaderKey what, const WaveFieldTable& table, DsoSetup& setup) {
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
// only takes plain sample rows: all with the same number of fields, at least
// four, the third not empty, no setup line. Any other shape leaves them
// unused and the first reader reads on by itself, so that every quirk of the
// row-by-row reading stays where it was.
struct TailRows {
    std::array<std::vector<float>, kWaveChannels> values;
    size_t rows = 0;
    size_t fields = 0;
    std::string lastLine;  // the last row, for the field table

    // Takes one line; false where the rows stop being plain.
    bool take(std::string_view line, const LineScanner& in) {
        if (begin == UINT64_MAX) begin = in.lineStart();
        if (line.empty()) return true;
        splitSpans(line, spans);
        if (classify(line.substr(0, spans[0].length)) != HeaderKey::None) return false;
        if (rows == 0) fields = spans.size();
        if (spans.size() != fields || fields < kWaveChannels || spans[2].length == 0) return false;
        if (rows >= static_cast<size_t>(kMaxSamples)) return false;
        if (rows == reservedFor) {
            // Room for the rest, estimated from the bytes per row so far.
            const uint64_t done = in.lineStart() - begin + line.size() + 1;
            const uint64_t left = in.size() > in.lineStart() ? in.size() - in.lineStart() : 0;
            const uint64_t more = rows == 0 ? 4096 : left * (rows + 1) / done + rows / 64 + 1024;
            reservedFor = std::min<uint64_t>(rows + more, static_cast<uint64_t>(kMaxSamples));
            for (auto& v : values) v.reserve(reservedFor);
        }
        for (size_t ch = 0; ch < kWaveChannels; ++ch)
            values[ch].push_back(SampleValue(line.substr(spans[ch].start, spans[ch].length)));
        ++rows;
        lastLine.assign(line);
        return true;
    }

private:
    std::vector<FieldSpan> spans;
    uint64_t begin = UINT64_MAX;
    uint64_t reservedFor = 0;
};

WaveCsvLoadResult load(const LineSource& source, DsoSetup& setup, WaveRecord& record, WaveFieldTable& table,
                       const WaveCsvReadOptions& options) {
    WaveCsvLoadResult result;
    LineScanner in;
    int32_t counter = 0;
    bool inData = false;
    int displayLines = 0;  // the highest trace with a "CHn Display" line
    auto& f = table.fields;

    // Sample rows are not copied into the field table one by one: the last
    // row is kept aside and written into the table only when a shorter line,
    // a header line or the end of the read needs the table as it would be.
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
                    if (tail->fields < pendingSpans.size()) settlePending();
                    ensureCapacity(static_cast<size_t>(counter) + tail->rows);
                    for (size_t ch = 0; ch < kWaveChannels; ++ch)
                        std::copy(tail->values[ch].begin(), tail->values[ch].end(), record.wave[ch].begin() + counter);
                    counter += static_cast<int32_t>(tail->rows);
                    pendingLine.swap(tail->lastLine);
                    splitSpans(pendingLine, pendingSpans);
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
            }
            ++counter;
            if (counter == setup.RecordLength) break;
        }
        settlePending();
        in.close();
    } catch (const std::exception& e) {
        settlePending();
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
    setup.RecordLength = static_cast<int32_t>(RoundHalfEven(counter / 10.0)) * 10;
    record.ensureLength(setup.RecordLength);
    return result;
}

}  // namespace

WaveCsvLoadResult LoadWaveCsv(std::string_view fileName, DsoSetup& setup, WaveRecord& record, WaveFieldTable& table,
                              const WaveCsvReadOptions& options) {
    return load(LineSource::File(fileName), setup, record, table, options);
}

WaveCsvLoadResult LoadWaveCsvBytes(std::string_view bytes, std::string_view name, DsoSetup& setup, WaveRecord& record,
                                   WaveFieldTable& table, const WaveCsvReadOptions& options) {
    return load(LineSource::Bytes(bytes, name), setup, record, table, options);
}

Outcome AppendWaveTable(std::string_view fileName, const WaveRecord& record, int32_t count,
                        std::array<bool, kChannels> shown) {
    FileAppender out(fileName);
    std::string head = "//波形のcsv形式ファイル\r\nAddress";
    for (int i = 0; i < 4; ++i)
        if (shown[i]) head += ",Ch" + std::to_string(i + 1) + "(V)";
    head.append("\r\n");
    out.write(ToNarrow(head));

    size_t rows = count > 0 ? static_cast<size_t>(count) : 0;
    for (int i = 0; i < 4; ++i)
        if (shown[i]) rows = std::min(rows, record.wave[i].size());
    std::string buf;
    buf.reserve(kFlushBytes + 256);
    for (size_t a = 0; a < rows; ++a) {
        buf.append(std::to_string(a));
        for (int i = 0; i < 4; ++i) {
            if (!shown[i]) continue;
            buf.push_back(',');
            AppendShortestText(buf, record.wave[i][a]);
        }
        buf.append("\r\n");
        flushIfFull(buf, out);
    }
    out.write(buf);
    return out.finish();
}

}  // namespace mervasto
