#include "store/RunTally.h"

#include <bit>
#include <cmath>

#include "analysis/CycleQuantity.h"

namespace mervasto {

void RunTally::add(const RunInfo& run, const PassRecord& pass, int64_t runId) {
    if (newRun_ || passes_.empty() || !SameRun(run_, run)) {
        newRun_ = false;
        run_ = run;
        passes_.clear();
        judged_ = go_ = 0;
        runId_ = 0;
    }
    if (runId) runId_ = runId;
    TallyPass p;
    p.pass = pass.passNumber.value_or(passes_.empty() ? 1 : passes_.back().pass + 1);
    p.verdict = PassVerdict(pass);
    for (int ch = 0; ch < kChannels; ++ch) {
        if (!pass.inUse[static_cast<size_t>(ch)]) continue;
        p.inUse = static_cast<uint8_t>(p.inUse | (1u << ch));
        for (Measure kind : kMeasures) {
            const ChannelResult& r = pass.table.at(ch, kind);
            TallyValue v;
            v.measured = r.Valid && r.Counts > 0;
            if (v.measured) {
                v.min = r.Min;
                v.max = r.Max;
                v.mean = r.Mean;
                v.sigma = r.Sigma;
            }
            v.counts = r.Counts;
            v.judged = LimitsSet(r);
            v.go = r.Go;
            v.valueLL = r.ValueLimit1;
            v.valueUL = r.ValueLimit2;
            p.values.push_back(v);
        }
    }
    if (p.verdict) {
        ++judged_;
        go_ += *p.verdict ? 1 : 0;
    }
    passes_.push_back(std::move(p));
}

const TallyValue* RunTally::value(size_t pass, int ch, Measure kind) const {
    if (pass >= passes_.size() || ch < 0 || ch >= kChannels) return nullptr;
    const TallyPass& p = passes_[pass];
    if (!(p.inUse & (1u << ch))) return nullptr;
    // The channels in use below this one come first.
    const auto before = static_cast<size_t>(std::popcount(static_cast<unsigned>(p.inUse & ((1u << ch) - 1))));
    const size_t at = before * kKinds + static_cast<size_t>(kind);
    return at < p.values.size() ? &p.values[at] : nullptr;
}

ControlChartData RunTally::chart(int ch, Measure kind) const {
    ControlChartData c;
    if (ch >= 0 && ch < kChannels) c.unit = QuantityOf(kind, run_.channels[static_cast<size_t>(ch)].typeIndex).unit;
    double sum = 0;
    for (size_t i = 0; i < passes_.size(); ++i) {
        const TallyValue* v = value(i, ch, kind);
        if (!v) continue;
        if (v->valueLL < v->valueUL)
            c.valueLimits = std::array<double, 2>{v->valueLL, v->valueUL};
        else
            c.valueLimits.reset();
        if (!v->measured) continue;
        c.pass.push_back(passes_[i].pass);
        c.mean.push_back(v->mean);
        c.ng.push_back(v->judged && !v->go ? 1 : 0);
        c.from.push_back(i);
        sum += v->mean;
    }
    if (c.mean.empty()) return c;
    c.centre = sum / static_cast<double>(c.mean.size());
    double squares = 0;
    for (double m : c.mean) squares += (m - c.centre) * (m - c.centre);
    c.sigma = std::sqrt(squares / static_cast<double>(c.mean.size()));
    return c;
}

}  // namespace mervasto
