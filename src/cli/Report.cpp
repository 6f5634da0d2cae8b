#include "cli/Report.h"

#include "app/RunState.h"
#include "cli/Json.h"
#include "common/Numeric.h"
#include "results/Comparator.h"
#include "results/EncoderFiles.h"

#include <algorithm>
#include <ostream>

namespace mervasto {

namespace {

void printGrid(std::ostream& out, const Grid& grid) {
    int32_t lastCol = 0;
    for (int32_t r = 0; r < grid.rows(); ++r)
        for (int32_t c = 0; c < grid.cols(); ++c)
            if (!grid.text(r, c).empty()) lastCol = std::max(lastCol, c);
    std::vector<size_t> width(static_cast<size_t>(lastCol + 1), 0);
    auto chars = [](const std::string& s) {
        size_t n = 0;
        for (unsigned char ch : s) n += (ch & 0xC0) != 0x80;  // UTF-8 characters
        return n;
    };
    for (int32_t r = 0; r < grid.rows(); ++r)
        for (int32_t c = 0; c <= lastCol; ++c)
            width[static_cast<size_t>(c)] = std::max(width[static_cast<size_t>(c)], chars(grid.text(r, c)));
    for (int32_t r = 0; r < grid.rows(); ++r) {
        std::string line;
        for (int32_t c = 0; c <= lastCol; ++c) {
            const std::string& t = grid.text(r, c);
            line += t;
            if (c < lastCol) line.append(width[static_cast<size_t>(c)] - chars(t) + 2, ' ');
        }
        while (!line.empty() && line.back() == ' ') line.pop_back();
        out << line << '\n';
    }
}

}  // namespace

bool analysedChannel(const RunState& state, int ch) {
    const auto& c = state.settings().channels[static_cast<size_t>(ch)];
    if (c.DispOffCheck || c.ChInputSignal == kGateIndex) return false;
    // A note alone does not leave a channel out ("Max Periods", "levels by Halves").
    return !state.results().leftOut[static_cast<size_t>(ch)] &&
           static_cast<int32_t>(state.record().raw[static_cast<size_t>(ch)].size()) >= state.record().WaveLength &&
           state.record().WaveLength > 0;
}

namespace {

// The comparator view: verdict rows per channel. Returns true on any "NG".
bool verdictGrid(const RunState& state, Grid& grid) {
    SetupDetailCycleGrid(grid);
    auto rows = BuildVerdictGrid(grid, state.channelDisplays(), state.results().table);
    bool ng = false;
    for (size_t i = 0; i < rows.size(); ++i)
        if (grid.contains(static_cast<int32_t>(i) + grid.fixedRows, kCycleColVerdict) &&
            grid.text(static_cast<int32_t>(i) + grid.fixedRows, kCycleColVerdict) == kVerdictNg)
            ng = true;
    return ng;
}

// A limit a channel breaks, and the count or value that breaks it.
struct BrokenLimit {
    Measure kind;
    const char* limit;
    double limitValue;
    double value;
};

// What the command line judges of a channel (as BuildVerdictGrid does): the
// count limits of the first kind, and the value limits of every kind.
std::vector<BrokenLimit> brokenLimits(const ChannelResultTable& t, int ch) {
    std::vector<BrokenLimit> broken;
    for (Measure kind : kMeasures) {
        const ChannelResult& r = t.at(ch, kind);
        const LimitCheck c = CheckLimits(r, kind == kLimitKinds[0]);
        if (c.belowLL) broken.push_back({kind, "LL", static_cast<double>(r.LL), static_cast<double>(r.Counts)});
        if (c.aboveUL) broken.push_back({kind, "UL", static_cast<double>(r.UL), static_cast<double>(r.Counts)});
        if (c.belowValueLL) broken.push_back({kind, "Value LL", r.ValueLimit1, r.Lowest});
        if (c.aboveValueUL) broken.push_back({kind, "Value UL", r.ValueLimit2, r.Highest});
    }
    return broken;
}

// The encoder block of the csv form: a line per statistic under the channel
// column "encoder", then the totals with their value in the counts column.
void printEncoderCsv(std::ostream& out, const std::string& file, std::optional<int32_t> passNumber,
                     const EncoderResult& r) {
    const std::string head = file + ',' + (passNumber ? std::to_string(*passNumber) : "") + ",encoder,";
    const char* analysed = r.analysed ? "true" : "false";
    auto statistic = [&](const char* key, const EncoderStatistic& s) {
        out << head << key << ',' << analysed << ',' << ExactText(s.Min) << ',' << ExactText(s.Max) << ','
            << ExactText(s.Mean) << ',' << ExactText(s.Sigma) << ',' << s.Counts << ",," << r.note << '\n';
    };
    statistic("phase", r.phase);
    for (const auto& row : EncoderStatisticRows()) statistic(row.key, r.*(row.member));
    const std::pair<const char*, int64_t> totals[] = {{"position", r.position},
                                                      {"reversals", r.reversals},
                                                      {"droppedBounces", r.droppedBounces},
                                                      {"indexCount", r.indexCount},
                                                      {"illegal", r.illegal}};
    for (const auto& [key, v] : totals) out << head << key << ',' << analysed << ",,,,," << v << ",," << r.note << '\n';
}

void writeEncoderStatistic(JsonWriter& j, const EncoderStatistic& s) {
    j.beginObject();
    j.key("min").value(s.Min).key("max").value(s.Max).key("mean").value(s.Mean).key("sigma").value(s.Sigma);
    j.key("counts").value(s.Counts);
    j.endObject();
}

void writeEncoderJson(JsonWriter& j, const EncoderResult& r) {
    j.key("encoder").beginObject();
    j.key("analysed").value(r.analysed);
    j.key("note").value(r.note);
    j.key("position").value(r.position);
    j.key("reversals").value(r.reversals);
    j.key("droppedBounces").value(r.droppedBounces);
    j.key("indexCount").value(r.indexCount);
    j.key("illegal").value(r.illegal);
    j.key("revolutions").value(r.revolutions);
    j.key("speed").value(r.speed);
    j.key("phase");  // over all A cycles, turning either way
    writeEncoderStatistic(j, r.phase);
    for (const auto& row : EncoderStatisticRows()) {
        j.key(row.key);
        writeEncoderStatistic(j, r.*(row.member));
    }
    j.endObject();
}

}  // namespace

void PrintSetupText(std::ostream& out, const std::string& source, const DsoSetup& s) {
    out << "Source: " << source << '\n'
        << "Model: " << s.Model << '\n'
        << "ChannelCount: " << s.ChannelCount << '\n'
        << "InfoDigit: " << s.InfoDigit << '\n'
        << "DateTime: " << s.DateTime << '\n'
        << "AcqMode: " << s.AcqMode << '\n'
        << "TimePerDiv: " << ShortestText(s.TimePerDiv) << '\n'
        << "TriggerDelay: " << ShortestText(s.TriggerDelay) << '\n'
        << "SampleInterval: " << ShortestText(s.SampleInterval) << '\n'
        << "RecordLength: " << s.RecordLength << '\n'
        << "TriggerLevel: " << ShortestText(s.TriggerLevel) << '\n'
        << "TriggerSource: " << s.TriggerSource << '\n'
        << "TriggerMode: " << s.TriggerMode << '\n';
    for (int ch = 0; ch < kChannels; ++ch) {
        out << "CH" << ch + 1 << ": VoltsPerDiv " << ShortestText(s.voltsPerDiv(ch)) << ", Offset "
            << ShortestText(s.offset(ch)) << ", Coupling " << s.coupling(ch) << ", BandwidthLimit "
            << s.bandwidthLimit(ch) << ", TraceOn " << s.traceOn(ch) << ", Inverted "
            << (s.inverted(ch) ? "True" : "False") << '\n';
    }
    out << "CursorPos: " << ShortestText(s.CursorPos[0]) << ", " << ShortestText(s.CursorPos[1])
        << (s.CursorsFromDso ? " (from the instrument)" : " (defaults)") << '\n';
}

void PrintSetupJson(std::ostream& out, const DsoSetup& s) {
    JsonWriter j;
    j.beginObject();
    j.key("Model").value(s.Model);
    j.key("ChannelCount").value(int32_t{s.ChannelCount});
    j.key("InfoDigit").value(s.InfoDigit);
    j.key("DateTime").value(s.DateTime);
    j.key("AcqMode").value(s.AcqMode);
    j.key("TimePerDiv").value(double{s.TimePerDiv});
    j.key("TriggerDelay").value(double{s.TriggerDelay});
    j.key("SampleInterval").value(double{s.SampleInterval});
    j.key("RecordLength").value(s.RecordLength);
    j.key("TriggerLevel").value(double{s.TriggerLevel});
    j.key("TriggerSource").value(s.TriggerSource);
    j.key("TriggerMode").value(s.TriggerMode);
    j.key("channels").beginArray();
    for (int ch = 0; ch < kChannels; ++ch) {
        j.beginObject();
        j.key("channel").value(int32_t{ch + 1});
        j.key("VoltsPerDiv").value(double{s.voltsPerDiv(ch)});
        j.key("Offset").value(double{s.offset(ch)});
        j.key("Coupling").value(s.coupling(ch));
        j.key("BandwidthLimit").value(s.bandwidthLimit(ch));
        j.key("TraceOn").value(s.traceOn(ch));
        j.key("Inverted").value(s.inverted(ch));
        j.endObject();
    }
    j.endArray();
    j.key("CursorPos").beginArray().value(double{s.CursorPos[0]}).value(double{s.CursorPos[1]}).endArray();
    j.key("CursorsFromDso").value(s.CursorsFromDso);
    j.endObject();
    out << j.text() << '\n';
}

void PrintRecordSummary(std::ostream& out, const DsoSetup& setup, const WaveRecord& record) {
    const int channels = setup.ChannelCount == 2 ? 2 : 4;
    for (int ch = 0; ch < channels; ++ch) {
        const auto& w = record.wave[static_cast<size_t>(ch)];
        const size_t n = std::min(w.size(), static_cast<size_t>(std::max(setup.RecordLength, 0)));
        out << "Ch" << ch + 1 << ": " << n << " samples";
        if (n > 0) {
            auto [lo, hi] = std::minmax_element(w.begin(), w.begin() + static_cast<std::ptrdiff_t>(n));
            out << ", min " << ShortestText(*lo) << " V, max " << ShortestText(*hi) << " V";
        }
        out << '\n';
    }
}

ReportWriter::ReportWriter(std::ostream& out, std::string format, bool cycles)
    : out_(out), format_(std::move(format)), cycles_(cycles) {
    if (format_ == "json") out_ << "[";
    if (format_ == "csv") out_ << "file,pass,channel,type,analysed,min,max,mean,sigma,counts,verdict,note\n";
}

bool ReportWriter::pass(const std::string& file, const RunState& state, const std::vector<ScriptedUi::Box>& messages,
                        bool verdicts, std::optional<int32_t> passNumber) {
    const auto& t = state.results().table;
    const auto& w = t.window();
    Grid verdictView;
    bool ng = verdicts && verdictGrid(state, verdictView);
    auto verdictOf = [&](int ch) -> std::string {
        if (!verdicts) return "";
        return brokenLimits(t, ch).empty() ? kVerdictGo : kVerdictNg;
    };

    if (format_ == "table") {
        if (!file.empty()) out_ << "== " << file << '\n';
        if (passNumber) out_ << "== pass " << *passNumber << '\n';
        printGrid(out_, state.resultGrid());
        out_ << state.totalWaveDatas() << '\n';
        for (const auto& m : messages) out_ << m.title << ": " << m.text << '\n';
        if (verdicts) printGrid(out_, verdictView);
        if (state.settings().analysis.Encoder) {
            Grid encoder;
            FillEncoderGrid(encoder, state.results().encoder, true);
            out_ << "Encoder\n";
            printGrid(out_, encoder);
        }
        Grid jitter;
        DispJitter(jitter, state.channelDisplays(), state.results().jitter);
        out_ << "Jitter\n";
        printGrid(out_, jitter);
        out_ << '\n';
    } else if (format_ == "csv") {
        for (int ch = 0; ch < kChannels; ++ch) {
            const auto& r = t.at(ch, Measure::OfType);
            out_ << file << ',' << (passNumber ? std::to_string(*passNumber) : "") << ',' << ch + 1 << ','
                 << state.settings().channels[static_cast<size_t>(ch)].signalText() << ','
                 << (analysedChannel(state, ch) ? "true" : "false") << ',' << ExactText(r.Min) << ','
                 << ExactText(r.Max) << ',' << ExactText(r.Mean) << ',' << ExactText(r.Sigma) << ',' << r.Counts << ','
                 << verdictOf(ch) << ',' << state.results().note[static_cast<size_t>(ch)] << '\n';
        }
        if (state.settings().analysis.Encoder) printEncoderCsv(out_, file, passNumber, state.results().encoder);
    } else {
        JsonWriter j;
        j.beginObject();
        if (passNumber) j.key("pass").value(*passNumber);
        j.key("file").value(file);
        j.key("waveLength").value(state.record().WaveLength);
        j.key("sampleSec").value(double{state.record().SampleSec});
        j.key("anaStart").value(w.AnaStart);
        j.key("anaEnd").value(w.AnaEnd);
        j.key("gateStart").value(w.GateStart);
        j.key("gateEnd").value(w.GateEnd);
        j.key("messages").beginArray();
        for (const auto& m : messages)
            j.beginObject().key("title").value(m.title).key("text").value(m.text).endObject();
        j.endArray();
        j.key("channels").beginArray();
        for (int ch = 0; ch < kChannels; ++ch) {
            const auto& lv = t.levels(ch);
            j.beginObject();
            j.key("channel").value(ch + 1);
            j.key("type").value(state.settings().channels[static_cast<size_t>(ch)].signalText());
            j.key("analysed").value(analysedChannel(state, ch));
            j.key("note").value(state.results().note[static_cast<size_t>(ch)]);
            j.key("highLevel").value(double{lv.HighLevel});
            j.key("lowLevel").value(double{lv.LowLevel});
            j.key("level").value(double{lv.Level});
            if (verdicts) {
                j.key("verdict").value(verdictOf(ch));
                j.key("failed").beginArray();
                for (const BrokenLimit& b : brokenLimits(t, ch)) {
                    j.beginObject().key("kind").value(static_cast<int32_t>(b.kind)).key("limit").value(b.limit);
                    j.key("limitValue").value(b.limitValue).key("value").value(b.value).endObject();
                }
                j.endArray();
            }
            j.key("rows").beginArray();
            for (Measure kind : kMeasures) {
                const auto& r = t.at(ch, kind);
                j.beginObject();
                j.key("kind").value(static_cast<int32_t>(kind));
                j.key("min").value(r.Min);
                j.key("max").value(r.Max);
                j.key("mean").value(r.Mean);
                j.key("sigma").value(r.Sigma);
                j.key("counts").value(r.Counts);
                if (verdicts) {
                    j.key("LL").value(r.LL).key("UL").value(r.UL);
                    j.key("valueLL").value(double{r.ValueLimit1}).key("valueUL").value(double{r.ValueLimit2});
                }
                j.endObject();
            }
            j.endArray();
            const JitterResult& jr = state.results().jitter[static_cast<size_t>(ch)];
            j.key("jitter").beginObject();
            j.key("valid").value(jr.Valid);
            j.key("c2cMin").value(jr.Min).key("c2cMax").value(jr.Max);
            j.key("c2cMean").value(jr.Mean).key("c2cSigma").value(jr.Sigma);
            j.key("c2cCounts").value(jr.Counts);
            j.key("tieRms").value(jr.TieRms).key("tiePeakToPeak").value(jr.TiePeakToPeak);
            j.key("tieCounts").value(jr.TieCounts).key("runs").value(jr.Runs);
            j.key("note").value(jr.withinOneSample ? kJitterWholeSampleHint : "");
            j.endObject();
            if (cycles_) {
                j.key("cycles").beginArray();
                for (const auto& c : state.results().cycles.channel[static_cast<size_t>(ch)]) {
                    j.beginObject();
                    j.key("Ample").value(c.Ample).key("Duty").value(c.Duty).key("MidEdge").value(c.MidEdge);
                    j.key("PulseWidth").value(c.PulseWidth).key("Period").value(c.Period).key("Freq").value(c.Freq);
                    j.key("Rms").value(c.Rms).key("MaxValue").value(c.MaxValue).key("MinValue").value(c.MinValue);
                    j.endObject();
                }
                j.endArray();
            }
            j.endObject();
        }
        j.endArray();
        if (state.settings().analysis.Encoder) writeEncoderJson(j, state.results().encoder);
        j.endObject();
        out_ << (count_ ? ",\n" : "\n") << j.text();
    }
    out_.flush();
    ++count_;
    return ng;
}

void ReportWriter::finish() {
    if (format_ == "json") out_ << (count_ ? "\n]\n" : "]\n");
}

}  // namespace mervasto
