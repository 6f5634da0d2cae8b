#include "analysis/Encoder.h"

#include <algorithm>
#include <cmath>

#include "analysis/RunningStatistic.h"
#include "analysis/SampleSources.h"
#include "analysis/Smoothing.h"

namespace mervasto {

std::string EncoderNote(int line, const char* text) {
    static constexpr const char* kLines[] = {"A", "B", "Z"};
    return std::string(kLines[std::clamp(line, 0, 2)]) + text;
}

std::string IllegalNote(int32_t illegal) {
    return std::to_string(illegal) + (illegal == 1 ? " illegal transition" : " illegal transitions") +
           kEncoderIllegalTail;
}

namespace {

// The quadrature step an A (line 0) or B edge makes from the lines' states
// a and b, which it updates; 0 when the line was already in that state.
int32_t quadratureStep(const EncoderEdge& e, bool& a, bool& b) {
    if (e.line == 0) {
        if (e.high == a) return 0;
        a = e.high;
        return a != b ? 1 : -1;
    }
    if (e.high == b) return 0;
    b = e.high;
    return a == b ? 1 : -1;
}

EncoderStatistic StatisticOf(const RunningStatistic& a) {
    EncoderStatistic s;
    if (a.count > 0) a.storeInto(s);
    return s;
}

}  // namespace

void ScanEncoderEdges(const EncoderLine& line, const EncoderScan& scan, std::vector<float>& scratch,
                      std::vector<double>& at, std::vector<uint8_t>& rising) {
    at.clear();
    rising.clear();
    const int32_t n = scan.count;
    const int32_t start = scan.start;
    if (n <= 0 || start < 0 || static_cast<size_t>(start) + static_cast<size_t>(n) > line.record.size()) return;
    const int32_t halfSmooth = HalfSmooth(scan.SmoothingNo);
    const float* x = line.record.data() + start;
    if (halfSmooth > 0) {
        if (scratch.size() < static_cast<size_t>(n)) scratch.resize(static_cast<size_t>(n));
        SmoothSamples(line.record, start, n, scan.SmoothingNo,
                      std::span<float>(scratch.data(), static_cast<size_t>(n)));
        x = scratch.data();
    }
    samples::PlainSamples src(x, n);

    const float level = line.level;
    const float h = (line.high - level) * scan.Histerisis / 100.0f;
    samples::BandWalk<samples::PlainSamples> walk(src, n, level, h, n - halfSmooth - 2);
    const float lowT = walk.lowT;
    const float highT = walk.highT;
    samples::RejectSplit reject(scan.rejectInForce, scan.rejectStart, scan.rejectEnd, start);

    bool high = false;
    const bool interpolated = scan.edgeTiming == EdgeTiming::Interpolated;
    int32_t lowest = 0;  // the first sample a crossing may be looked for at
    // e: the whole-sample edge; fine: where the level is crossed, window-relative.
    auto record = [&](int32_t e, bool up, double fine) {
        if (up == high) return;  // a band walk that went back: no change of state
        high = up;
        at.push_back(start + (interpolated ? fine : static_cast<double>(e)));
        rising.push_back(up ? 1 : 0);
    };

    // A channel that starts beyond the band is taken as it stands.
    if (x[0] >= highT && x[0] > level) {
        walk.armed = true;
        high = true;
        walk.p = x[0];
    }
    for (;;) {
        const int32_t segEnd = reject.segmentEnd(n);
        while (walk.j < segEnd) {
            if (!walk.advance(segEnd)) break;
            const int32_t j = walk.j;
            const float v = x[j];
            if (v > lowT && v < highT) {
                // A walk the window ends has not decided where the line goes.
                const float w = walk.crossBand(v);
                if (std::fabs(w - v) >= walk.exitDistance) {
                    const int32_t e = walk.bandEdge(start, j);
                    record(e, w > v,
                           interpolated ? samples::crossingNear(src, std::max(j - 1, lowest), walk.j, level, e) : e);
                }
                walk.settleThenLook(w);
            } else {
                if ((v - level) * (walk.p - level) < 0.0f)
                    record(walk.jumpEdge(start, j), v > level, walk.jumpCrossing(j, v));
                walk.p = v;
                walk.prev = j;
            }
            ++walk.j;
        }
        if (!reject.pending) break;
        // Nothing inside the rejected stretch is seen. A line that comes out
        // of it on the other side changed there: that change is counted at
        // the range's end, so the position stays as close as it can.
        reject.pending = false;
        const int32_t j = reject.to;
        walk.j = j;
        lowest = j;
        walk.armed = false;
        if (j < n && (x[j] >= highT || x[j] <= lowT) && x[j] != level) {
            if ((x[j] > level) != high) record(j, x[j] > level, j);
            walk.armed = true;
            walk.p = x[j];
            walk.prev = j;
        }
    }
}

int32_t DropShortStates(std::vector<double>& at, std::vector<uint8_t>& rising, double minWidth) {
    if (!(minWidth > 0)) return 0;
    int32_t dropped = 0;
    size_t kept = 0;
    for (size_t i = 0; i < at.size(); ++i) {
        // The state that the last kept edge opened is too short: it goes, and
        // with it the edge that closes it, so the lists keep alternating. One
        // such pair is one bounce.
        if (kept > 0 && at[i] - at[kept - 1] < minWidth) {
            --kept;
            ++dropped;
            continue;
        }
        at[kept] = at[i];
        rising[kept] = rising[i];
        ++kept;
    }
    at.resize(kept);
    rising.resize(kept);
    return dropped;
}

void DecodeEncoder(std::span<const double> aAt, std::span<const uint8_t> aRising, std::span<const double> bAt,
                   std::span<const uint8_t> bRising, std::span<const double> zAt, std::span<const uint8_t> zRising,
                   double SampleSec, double countsPerRev, EncoderWorkspace& ws, EncoderResult& out) {
    out.stepAt.clear();
    out.stepPosition.clear();
    auto& merged = ws.merged;
    merged.clear();
    merged.reserve(aAt.size() + bAt.size());
    size_t ia = 0, ib = 0;
    while (ia < aAt.size() || ib < bAt.size()) {
        // A first when both change on the same sample.
        if (ib >= bAt.size() || (ia < aAt.size() && aAt[ia] <= bAt[ib])) {
            merged.push_back({aAt[ia], 0, aRising[ia] != 0});
            ++ia;
        } else {
            merged.push_back({bAt[ib], 1, bRising[ib] != 0});
            ++ib;
        }
    }

    // Each line's level before its first edge is the opposite of that edge.
    const bool aBefore = !aRising.empty() && aRising[0] == 0;
    const bool bBefore = !bRising.empty() && bRising[0] == 0;
    bool a = aBefore;
    bool b = bBefore;
    int64_t position = 0;
    int32_t lastStep = 0;
    int32_t reversals = 0;
    int32_t illegal = 0;
    RunningStatistic phase, phasePlus, phaseMinus, width, dutyA, dutyB, direction;

    // One cycle of a line (rising edge to rising edge): whether the direction
    // stayed the same through it, and what happened inside it.
    struct Cycle {
        bool open = false;
        double start = 0;
        int32_t step = 0;  // the step of its first edge
        bool steady = true;
        double fall = -1;
        int otherRises = 0;
        double otherRise = 0;
    };
    Cycle cycleA, cycleB;
    auto closeCycle = [&](Cycle& c, double t, int32_t step, RunningStatistic& duty, bool isA) {
        if (c.open && c.steady && step == c.step && t > c.start) {
            if (c.fall >= 0) duty.add((c.fall - c.start) * 100.0 / (t - c.start));
            if (isA) direction.add(step);
            if (isA && c.otherRises == 1) {
                const double degrees = (c.otherRise - c.start) * 360.0 / (t - c.start);
                phase.add(degrees);
                (step > 0 ? phasePlus : phaseMinus).add(degrees);
            }
        }
        c = Cycle{true, t, step, true, -1, 0, 0};
    };

    // Steps of the merged edges, kept for the index below.
    auto& steps = ws.steps;
    steps.assign(merged.size(), 0);
    double lastAt = 0;
    bool anyStep = false;
    for (size_t i = 0; i < merged.size(); ++i) {
        const EncoderEdge& e = merged[i];
        // A and B changing on one sample: the order, and so the direction,
        // is unknown. Both lines take their new levels, the position stays,
        // and the cycles in progress are left out.
        if (i + 1 < merged.size() && e.line == 0 && merged[i + 1].line == 1 && merged[i + 1].at == e.at &&
            e.high != a && merged[i + 1].high != b) {
            a = e.high;
            b = merged[i + 1].high;
            ++illegal;
            if (anyStep) width.add((e.at - lastAt) * SampleSec);
            cycleA.open = cycleB.open = false;
            lastAt = e.at;
            anyStep = true;
            ++i;
            continue;
        }
        const int32_t step = quadratureStep(e, a, b);
        steps[i] = static_cast<int8_t>(step);
        if (step == 0) continue;
        position += step;
        out.stepAt.push_back(e.at);
        out.stepPosition.push_back(static_cast<double>(position));
        if (lastStep != 0 && step != lastStep) ++reversals;
        lastStep = step;
        if (anyStep) width.add((e.at - lastAt) * SampleSec);
        lastAt = e.at;
        anyStep = true;

        for (Cycle* c : {&cycleA, &cycleB})
            if (c->open && step != c->step) c->steady = false;
        if (e.line == 0) {
            if (e.high) {
                closeCycle(cycleA, e.at, step, dutyA, true);
            } else if (cycleA.open) {
                cycleA.fall = e.at;
            }
            if (e.high && cycleB.open) {
                ++cycleB.otherRises;
                cycleB.otherRise = e.at;
            }
        } else {
            if (e.high) {
                closeCycle(cycleB, e.at, step, dutyB, false);
                if (cycleA.open) {
                    ++cycleA.otherRises;
                    cycleA.otherRise = e.at;
                }
            } else if (cycleB.open) {
                cycleB.fall = e.at;
            }
        }
    }

    // Index: its width and the position at its rising edge (every A and B
    // edge up to and including that sample counted).
    RunningStatistic zWidth, zPosition;
    int32_t indexCount = 0;
    {
        size_t k = 0;
        int64_t pos = 0;
        double riseAt = -1;
        for (size_t i = 0; i < zAt.size(); ++i) {
            if (zRising[i]) {
                for (; k < merged.size() && merged[k].at <= zAt[i]; ++k) pos += steps[k];
                ++indexCount;
                zPosition.add(static_cast<double>(pos));
                riseAt = zAt[i];
            } else if (riseAt >= 0) {
                zWidth.add((zAt[i] - riseAt) * SampleSec);
                riseAt = -1;
            }
        }
    }

    out.position = position;
    out.reversals = reversals;
    out.directionAtEnd = lastStep;
    out.illegal = illegal;
    if (illegal > 0) out.note = IllegalNote(illegal);
    out.phase = StatisticOf(phase);
    out.phasePlus = StatisticOf(phasePlus);
    out.phaseMinus = StatisticOf(phaseMinus);
    out.stateWidth = StatisticOf(width);
    out.dutyA = StatisticOf(dutyA);
    out.dutyB = StatisticOf(dutyB);
    out.zWidth = StatisticOf(zWidth);
    out.indexPosition = StatisticOf(zPosition);
    out.direction = StatisticOf(direction);
    out.indexCount = indexCount;
    out.revolutions = countsPerRev > 0 ? static_cast<double>(position) / countsPerRev : 0.0;
}

void AnalyseEncoder(const EncoderLine lines[3], const EncoderScan& scan, const EncoderParams& params,
                    EncoderWorkspace& ws, EncoderResult& out) {
    {
        // The trend's room is kept from run to run, like the workspace.
        std::vector<double> at = std::move(out.stepAt), position = std::move(out.stepPosition);
        at.clear();
        position.clear();
        out = EncoderResult{};
        out.stepAt = std::move(at);
        out.stepPosition = std::move(position);
    }
    const int count = params.z >= 0 ? 3 : 2;
    for (int l = 0; l < 3; ++l) {
        ws.edges[l].clear();
        ws.rising[l].clear();
        if (l < count) ScanEncoderEdges(lines[l], scan, ws.smoothed, ws.edges[l], ws.rising[l]);
    }
    const double minWidth = scan.SampleSec > 0 ? params.minStateWidth / scan.SampleSec : 0.0;
    out.droppedBounces =
        DropShortStates(ws.edges[0], ws.rising[0], minWidth) + DropShortStates(ws.edges[1], ws.rising[1], minWidth);
    DecodeEncoder(ws.edges[0], ws.rising[0], ws.edges[1], ws.rising[1], ws.edges[2], ws.rising[2], scan.SampleSec,
                  params.countsPerRev, ws, out);
    const double seconds = static_cast<double>(scan.count) * scan.SampleSec;
    if (seconds > 0) out.speed = out.revolutions / seconds;
    out.analysed = true;
}

}  // namespace mervasto
