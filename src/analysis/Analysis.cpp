#include "analysis/Analysis.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <exception>

#include "analysis/EdgeScan.h"
#include "analysis/GateWindow.h"
#include "common/WorkPool.h"

namespace mervasto {

std::string SignalCheckText(int ch) {
    return std::string(kSignalCheckTextHead) + std::to_string(ch + 1) + kSignalCheckTextTail;
}

std::string MaxPeriodsNote(int32_t limit) {
    return std::string(kNoteMaxPeriodsHead) + std::to_string(limit) + kNoteMaxPeriodsTail;
}

std::string LevelsCloseNote(float low, float high, float voltsPerDiv) {
    char text[96];
    std::snprintf(text, sizeof text, "levels %.4g V and %.4g V span %.4g", static_cast<double>(low),
                  static_cast<double>(high), std::fabs(static_cast<double>(high) - low) / voltsPerDiv);
    return text + std::string(kNoteLevelsCloseTail);
}

std::string SchmittNote(int32_t passed) {
    return kNoteSchmittHead + std::to_string(passed) + (passed == 1 ? " level crossing" : " level crossings");
}

namespace {

// The settings that say whether and where samples are rejected.
ScanSettings rejectSettings(const AnalysisParams& p) {
    ScanSettings s;
    s.OmitRangeEffect = p.OmitRangeEffect;
    s.rejectFlag = p.rejectFlag;
    s.rejectStart = p.rejectStart;
    s.rejectEnd = p.rejectEnd;
    return s;
}

struct Run {
    const AnalysisInput& in;
    const AnalysisParams& par;
    AnalysisResults& res;
    int32_t n;
    bool withMessages;
    std::vector<AnalysisMessage> gateMessages;
    std::array<std::vector<AnalysisMessage>, kChannels> channelMessages;

    bool inUse(int ch) const {
        const ChannelParams& cp = par.channel[static_cast<size_t>(ch)];
        if (cp.DispOff) return false;
        return !par.requireStateOn || cp.channelStateOn;
    }

    // A channel of a two-channel record has no scale and no samples.
    bool recorded(int ch) const {
        const float vdiv = in.VoltsPerDiv[static_cast<size_t>(ch)];
        return vdiv > 0 && std::isfinite(vdiv) && in.volts[static_cast<size_t>(ch)].size() >= static_cast<size_t>(n) &&
               in.raw[static_cast<size_t>(ch)].size() >= static_cast<size_t>(n);
    }

    void addNote(int ch, const std::string& text) {
        std::string& note = res.note[static_cast<size_t>(ch)];
        note += (note.empty() ? "" : "; ") + text;
    }

    void clearChannel(int ch) {
        ClearChannelResult(res.table, ch);
        res.cycles.channel[static_cast<size_t>(ch)].clear();
        res.jitter[static_cast<size_t>(ch)] = JitterResult{};
        ClearTieTrend(res.tie[static_cast<size_t>(ch)]);
    }

    void gate(AnalysisWorkspace::Lane& lane) {
        ChannelResult& w = res.table.window();
        const float vdiv = in.VoltsPerDiv[3];
        const GateLevels g = GetGateLevels(in.raw[3], n, vdiv, in.Offset[3], par.levelMethod, lane.histogram);
        if (!par.MemoryInput && (!g.ok || vdiv / 3.0f >= g.HighLevel - g.LowLevel)) {
            if (withMessages) gateMessages.push_back({kGateSignalTitle, kGateSignalText});
            res.note[3] = kNoteGateLevelsClose;
            return;  // the whole record stays the gate
        }
        const float h = (g.HighLevel - g.centre) * par.Histerisis / 100.0f;
        FindGateRange(in.volts[3].first(static_cast<size_t>(n)), g.centre, h, 0, n - 1, w.GateStart, w.GateEnd);
    }

    void channel(int ch, AnalysisWorkspace::Lane& lane) {
        const size_t c = static_cast<size_t>(ch);
        const ChannelParams& cp = par.channel[c];
        const ChannelResult& w = res.table.window();
        ChannelResult& r0 = res.table.levels(ch);
        const float vdiv = in.VoltsPerDiv[c];

        const SignalLevels keep{r0.HighLevel, r0.LowLevel, r0.Level, true};
        const SignalLevels lv = GetSignalLevels(in.raw[c], w.AnaStart, w.AnaEnd, vdiv, in.Offset[c], par.PLevel,
                                                par.levelMethod, lane.histogram, keep);
        r0.HighLevel = lv.HighLevel;
        r0.LowLevel = lv.LowLevel;
        r0.Level = lv.Level;
        if (!lv.ok && withMessages) channelMessages[c].push_back({kSignalCheckTitle, SignalCheckText(ch)});
        if (*lv.note) addNote(ch, lv.note);

        if (!par.MemoryInput && lv.ok && vdiv / 3.0f > std::fabs(lv.HighLevel - lv.LowLevel)) {
            clearChannel(ch);
            addNote(ch, LevelsCloseNote(lv.LowLevel, lv.HighLevel, vdiv));
            res.leftOut[c] = true;
            return;
        }

        const int32_t len = w.AnaEnd - w.AnaStart + 1;
        ScanSettings s = rejectSettings(par);
        s.signalType = cp.SignalType;
        s.PPCheck = cp.PPCheck;
        s.DutyCheck = cp.DutyCheck;
        s.Histerisis = par.Histerisis;
        s.MaxCycles = par.MaxCycles;
        s.SampleSec = in.SampleSec;
        s.VRate = cp.VRate;
        s.edgeTiming = par.edgeTiming;
        s.edgeRule = par.edgeRule;
        bool more = false;
        int32_t passed = 0;
        ExtractCyclesFromRecord(ch, in.volts[c].first(static_cast<size_t>(n)), w.AnaStart, len, par.SmoothingNo, s,
                                res.table, res.cycles.channel[c], lane.smoothed, &more, &passed);
        res.cycleLimitReached[c] = more;
        JitterResult& jitter = res.jitter[c];
        jitter = MeasureJitter(cp.SignalType, res.cycles.channel[c], in.SampleSec, &res.tie[c]);
        // Whole-sample edges alone move a period by up to one sample either
        // way, so successive periods differ by -1, 0 or 1 sample.
        jitter.withinOneSample = par.edgeTiming == EdgeTiming::Samples && jitter.Valid &&
                                 jitter.Sigma <= static_cast<double>(in.SampleSec) * (1 + 1e-9);
        if (par.edgeRule == EdgeRule::Auto && passed > 0) addNote(ch, SchmittNote(passed));
        if (more) addNote(ch, MaxPeriodsNote(CycleLimit(par.MaxCycles)));
    }

    // After the channels: A, B and Z take the levels their channels found.
    void encoder(AnalysisWorkspace& ws) {
        const EncoderParams& e = par.encoder;
        EncoderResult& out = res.encoder;
        out = EncoderResult{};
        const int chs[3] = {e.a, e.b, e.z};
        const int lines = e.z >= 0 ? 3 : 2;
        if (e.a == e.b || e.z == e.a || e.z == e.b) {
            out.note = kEncoderSameChannel;
            return;
        }
        const ChannelResult& w = res.table.window();
        EncoderLine line[3];
        for (int l = 0; l < lines; ++l) {
            const int ch = chs[l];
            if (ch < 0 || ch >= kChannels || !inUse(ch) || !recorded(ch)) {
                out.note = EncoderNote(l, kEncoderChannelOff);
                return;
            }
            if (ch == 3 && par.channel[3].SignalType == kTypeGate) {
                out.note = EncoderNote(l, kEncoderGateChannel);
                return;
            }
            const ChannelResult& r0 = res.table.levels(ch);
            if (res.leftOut[static_cast<size_t>(ch)]) {
                const std::string why =
                    " " + LevelsCloseNote(r0.LowLevel, r0.HighLevel, in.VoltsPerDiv[static_cast<size_t>(ch)]);
                out.note = EncoderNote(l, why.c_str());
                return;
            }
            line[l] = {in.volts[static_cast<size_t>(ch)].first(static_cast<size_t>(n)), r0.Level, r0.HighLevel};
        }
        if (w.AnaEnd < w.AnaStart || n <= 0) {
            out.note = kEncoderNoWindow;
            return;
        }
        EncoderScan scan;
        scan.start = w.AnaStart;
        scan.count = w.AnaEnd - w.AnaStart + 1;
        scan.SmoothingNo = par.SmoothingNo;
        scan.Histerisis = par.Histerisis;
        scan.SampleSec = in.SampleSec;
        scan.edgeTiming = par.edgeTiming;
        scan.rejectInForce = RejectRangeInForce(rejectSettings(par), scan.count);
        scan.rejectStart = par.rejectStart;
        scan.rejectEnd = par.rejectEnd;
        AnalyseEncoder(line, scan, e, ws.encoder, out);
    }
};

}  // namespace

AnalysisOutcome RunAnalysis(const AnalysisInput& input, const AnalysisParams& params, AnalysisResults& results) {
    Run run{input, params, results, std::max<int32_t>(input.WaveLength, 0), params.produceMessages, {}, {}};
    const int32_t n = run.n;
    AnalysisWorkspace& ws = results.workspace;
    if (ws.lanes.empty()) ws.lanes.resize(1);
    for (auto& note : results.note) note.clear();
    results.cycleLimitReached.fill(false);
    results.leftOut.fill(false);

    ChannelResult& w = results.table.window();
    w.GateStart = 0;
    w.GateEnd = n - 1;
    if (run.inUse(3) && params.channel[3].SignalType == kTypeGate && run.recorded(3) && n > 0) run.gate(ws.lanes[0]);

    const SampleRange win = ApplyLimitPoints(w.GateStart, w.GateEnd, n, params.LimitPoints);
    w.AnaStart = win.start;
    w.AnaEnd = win.end;

    std::vector<int> jobs;
    for (int ch = 0; ch < kChannels; ++ch) {
        const int32_t type = params.channel[static_cast<size_t>(ch)].SignalType;
        if (!run.inUse(ch)) {
            run.clearChannel(ch);
        } else if (ch == 3 && type == kTypeGate) {
            // The gate keeps its statistics; it has no levels of its own.
            ChannelResult& r0 = results.table.levels(3);
            r0.HighLevel = r0.LowLevel = r0.Level = 0;
            results.jitter[3] = JitterResult{};
            ClearTieTrend(results.tie[3]);
        } else if (type < 0 || type > kTypeMin || !run.recorded(ch) || win.end < win.start) {
            run.clearChannel(ch);
        } else {
            jobs.push_back(ch);
        }
    }

    // Channels are independent: each lane takes the next channel and uses
    // its own scratch, so the results do not depend on how many lanes ran.
    // The lanes beyond this thread's are jobs of the work pool; one that no
    // worker has begun by the time this thread is done finds nothing left.
    const size_t lanes = std::clamp<size_t>(Jobs(), 1, std::max<size_t>(jobs.size(), 1));
    if (ws.lanes.size() < lanes) ws.lanes.resize(lanes);
    std::atomic<size_t> next{0};
    std::vector<std::exception_ptr> failures(lanes);
    auto work = [&](size_t lane) {
        try {
            for (size_t j = next++; j < jobs.size(); j = next++) run.channel(jobs[j], ws.lanes[lane]);
        } catch (...) {
            failures[lane] = std::current_exception();
        }
    };
    std::vector<Task<void>> helpers;
    for (size_t lane = 1; lane < lanes; ++lane) helpers.push_back(Submit([&work, lane] { work(lane); }));
    work(0);
    for (auto& h : helpers) h.wait();
    for (auto& f : failures)
        if (f) std::rethrow_exception(f);

    if (params.encoder.on)
        run.encoder(ws);
    else
        results.encoder = EncoderResult{};

    AnalysisOutcome outcome;
    outcome.messages = std::move(run.gateMessages);
    outcome.rejectRangeDropped = params.OmitRangeEffect && params.rejectFlag && !jobs.empty() &&
                                 !RejectRangeInForce(rejectSettings(params), win.end - win.start + 1);
    for (auto& m : run.channelMessages)
        for (auto& msg : m) outcome.messages.push_back(std::move(msg));
    return outcome;
}

}  // namespace mervasto
