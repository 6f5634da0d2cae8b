#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "wavefile/GenericCsv.h"
#include "wavefile/GenericCsvTimeBase.h"

namespace mervasto {

namespace {

// One file of the capture, as it loaded alone.
struct Part {
    std::string file;
    DsoSetup setup;
    WaveRecord record;
    int32_t rows = 0;
    std::vector<int> channels;  // its channels that hold samples
};

}  // namespace

std::string CombinedName(const std::vector<std::string>& files) {
    std::string name;
    for (const auto& f : files) name += (name.empty() ? "" : " + ") + f;
    return name;
}

WaveCsvLoadResult LoadCombinedWaveCsv(const std::vector<std::string>& files, DsoSetup& setup, WaveRecord& record,
                                      const WaveImportOptions& options) {
    WaveCsvLoadResult result;
    result.generic = true;
    const std::string name = CombinedName(files);
    auto refuse = [&](const std::string& text) {
        result.outcome = Outcome(ErrorCode::TypeMismatch, text);
        return result;
    };
    if (files.empty()) return refuse("No file to combine.");

    std::vector<std::unique_ptr<Part>> parts;
    size_t channels = 0;
    for (const auto& file : files) {
        auto p = std::make_unique<Part>();
        p->file = file;
        WaveCsvLoadResult r = LoadAnyWaveCsv(file, p->setup, p->record, options);
        result.warnings.insert(result.warnings.end(), r.warnings.begin(), r.warnings.end());
        if (!r.ok()) {
            r.generic = true;
            r.warnings = result.warnings;
            return r;
        }
        p->rows = r.rowsRead;
        for (int ch = 0; ch < std::min<int>(p->setup.ChannelCount, kChannels); ++ch)
            if (p->setup.traceOn(ch) == kTraceOn) p->channels.push_back(ch);
        channels += p->channels.size();
        for (size_t ch = 0; ch < p->record.wave.size(); ++ch)
            if (std::find(p->channels.begin(), p->channels.end(), static_cast<int>(ch)) == p->channels.end())
                std::vector<float>().swap(p->record.wave[ch]);
        const Part& one = *parts.emplace_back(std::move(p));
        const Part& first = *parts.front();
        if (one.rows != first.rows)
            return refuse(one.file + " has " + std::to_string(one.rows) + " sample rows and " + first.file + " " +
                          std::to_string(first.rows) + ": the files of one capture have the same length.");
        const double a = first.setup.SampleInterval;
        const double b = one.setup.SampleInterval;
        if (std::fabs(a - b) > 1e-6 * a)
            return refuse(one.file + " is sampled every " + ShortestText(one.setup.SampleInterval) + " s and " +
                          first.file + " every " + ShortestText(first.setup.SampleInterval) +
                          " s: the files of one capture have the same interval.");
    }
    if (channels == 0) return refuse(name + ": the files hold no channel.");
    if (channels > static_cast<size_t>(kChannels))
        return refuse(name + ": the files hold " + std::to_string(channels) + " channels; a record takes at most " +
                      std::to_string(kChannels) + ".");

    const Part& first = *parts.front();
    const auto rows = static_cast<size_t>(first.rows);
    std::array<float, kChannels> lo{};
    std::array<float, kChannels> hi{};
    std::array<const float*, kChannels> source{};
    size_t c = 0;
    for (const auto& p : parts)
        for (int ch : p->channels) {
            const float* v = p->record.wave[static_cast<size_t>(ch)].data();
            const auto [mn, mx] = std::minmax_element(v, v + rows);
            lo[c] = rows > 0 ? *mn : 0.0f;
            hi[c] = rows > 0 ? *mx : 0.0f;
            source[c++] = v;
        }
    const double t0 = -(static_cast<double>(first.setup.TriggerDelay) + 5.0 * first.setup.TimePerDiv);
    try {
        DsoSetup s = ImportedSetup(rows, channels, lo.data(), hi.data(), first.setup.SampleInterval, t0,
                                   first.setup.DateTime, name);
        record.ensureLength(std::max<int32_t>(s.RecordLength, first.rows));
        for (size_t k = 0; k < static_cast<size_t>(s.ChannelCount); ++k) {
            float* to = record.wave[k].data();
            if (k < channels)
                std::copy_n(source[k], rows, to);
            else
                std::fill_n(to, rows, 0.0f);
        }
        setup = std::move(s);
    } catch (const RuntimeError& e) {
        return refuse(e.what());
    }
    result.rowsRead = first.rows;
    result.layout =
        std::to_string(parts.size()) + " files combined, their channels in order as Ch1..Ch" + std::to_string(channels);
    return result;
}

}  // namespace mervasto
