#include "wavefile/WaveCsv.h"

#include <algorithm>
#include <string>

#include "common/Numeric.h"
#include "common/TextFile.h"
#include "common/TextUtil.h"
#include "wavefile/SampleText.h"

// The program's own wave files written: the setup header and the sample
// rows, and the wave table blocks appended per pass.
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

// Rows in the file cannot run past the arrays the writer was given. A
// channel the record does not hold (no samples) is written as empty fields,
// which read back as no samples.
size_t writableRows(const WaveRecord& record, int32_t count, int columns) {
    if (count <= 0) return 0;
    size_t n = static_cast<size_t>(count);
    for (int c = 0; c < columns; ++c)
        if (!record.wave[c].empty()) n = std::min(n, record.wave[c].size());
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
    const float* w[kChannels] = {};
    for (int c = 0; c < columns; ++c)
        if (!record.wave[c].empty()) w[c] = record.wave[c].data();
    SampleTextCache cache;
    for (size_t k = 0; k < rows; ++k) {
        if (w[0]) o = cache.write(o, w[0][k]);
        for (int c = 1; c < columns; ++c) {
            *o++ = ',';
            if (w[c]) o = cache.write(o, w[c][k]);
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

Outcome AppendWaveTable(std::string_view fileName, const WaveRecord& record, int32_t count,
                        std::array<bool, kChannels> shown) {
    FileAppender out(fileName);
    std::string head = "//波形のcsv形式ファイル\r\nAddress";
    for (int i = 0; i < kChannels; ++i)
        if (shown[i]) head += ",Ch" + std::to_string(i + 1) + "(V)";
    head.append("\r\n");
    out.write(ToNarrow(head));

    size_t rows = count > 0 ? static_cast<size_t>(count) : 0;
    for (int i = 0; i < kChannels; ++i)
        if (shown[i]) rows = std::min(rows, record.wave[i].size());
    std::string buf;
    buf.reserve(kFlushBytes + 256);
    for (size_t a = 0; a < rows; ++a) {
        buf.append(std::to_string(a));
        for (int i = 0; i < kChannels; ++i) {
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
