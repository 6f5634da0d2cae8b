#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "analysis/AnalysisTypes.h"

// The quadrature analysis of an incremental encoder: channels A and B (and an
// optional index Z) read together. See docs/analysis.md, "Encoder".
namespace mervasto {

// Why the encoder analysis was left out.
inline constexpr const char* kEncoderSameChannel = "A, B and Z must be different channels";
inline constexpr const char* kEncoderGateChannel = " is the gate";  // "A is the gate"
inline constexpr const char* kEncoderChannelOff = " is off";        // "B is off"
inline constexpr const char* kEncoderNoWindow = "no analysis window";
// Analysed, with A and B changing on one sample: IllegalNote.
inline constexpr const char* kEncoderIllegalTail = ": A and B changed on the same sample";

struct EncoderParams {
    bool on = false;
    int a = 0;  // channel indices 0..3
    int b = 1;
    int z = -1;                // -1: no index channel
    double countsPerRev = 0;   // 0: unknown (no revolutions)
    double minStateWidth = 0;  // seconds; 0: no bounce removal
};

struct EncoderStatistic {
    double Min = 0;
    double Max = 0;
    double Mean = 0;
    double Sigma = 0;
    int32_t Counts = 0;
};

// One edge as the decoder takes it: where (sample number of the record, with
// a fraction when edge timing finer than a sample is in use), which channel
// (0 = A, 1 = B, 2 = Z) and the level the channel goes to.
struct EncoderEdge {
    double at = 0;
    int8_t line = 0;
    bool high = false;
};

struct EncoderResult {
    bool analysed = false;
    // Why it was left out; when analysed, that some changes were illegal.
    std::string note;

    EncoderStatistic phase;          // degrees, B's rising edge within each A cycle
    EncoderStatistic phasePlus;      // the same over the cycles turning forward
    EncoderStatistic phaseMinus;     // and turning back
    EncoderStatistic stateWidth;     // seconds between successive edges of A and B
    EncoderStatistic dutyA;          // percent
    EncoderStatistic dutyB;          // percent
    EncoderStatistic zWidth;         // seconds
    EncoderStatistic indexPosition;  // counts at each index pulse
    EncoderStatistic direction;      // +1 / -1 per A cycle without a reversal

    int64_t position = 0;  // x4 count over the window, + = B lags A
    int32_t reversals = 0;
    int32_t droppedBounces = 0;  // states shorter than the min. state width dropped, A and B
    int32_t indexCount = 0;
    int32_t illegal = 0;         // A and B changed on the same sample: no step
    double revolutions = 0;      // position / counts per revolution (0 when unknown)
    double speed = 0;            // revolutions per second over the window (0 when unknown)
    int32_t directionAtEnd = 0;  // +1, -1, 0 when nothing moved
    // The position after each step and when it came (record samples), for
    // the position-against-time trend.
    std::vector<double> stepAt;
    std::vector<double> stepPosition;
};

// Samples of the A, B and Z channels (volts) with their levels and what the
// scan needs; the window is [start, start + count).
struct EncoderLine {
    std::span<const float> record;
    float level = 0;
    float high = 0;  // the high level: the band is (high - level) x Histerisis %
};

struct EncoderScan {
    int32_t start = 0;
    int32_t count = 0;
    int32_t SmoothingNo = 1;
    float Histerisis = 0;
    float SampleSec = 0;
    // Reject range as sample numbers, applied when inForce.
    bool rejectInForce = false;
    int32_t rejectStart = 0;
    int32_t rejectEnd = 0;
    // Edges where the smoothed signal crosses the level, as the channels'.
    EdgeTiming edgeTiming = EdgeTiming::Samples;
};

// Scratch kept from run to run so that a repeated analysis allocates nothing.
struct EncoderWorkspace {
    std::vector<float> smoothed;
    std::vector<double> edges[3];
    std::vector<uint8_t> rising[3];
    std::vector<EncoderEdge> merged;
    std::vector<int8_t> steps;
};

// Every edge of one channel in the window with the hysteresis scan of the
// per-channel analysis under the Schmitt rule (no cycle limit): positions in
// `at`, the new level in `rising` (1 = high). The list alternates; unlike
// the per-channel scan, a channel that starts high is taken as high, so that
// its first falling edge counts.
void ScanEncoderEdges(const EncoderLine& line, const EncoderScan& scan, std::vector<float>& scratch,
                      std::vector<double>& at, std::vector<uint8_t>& rising);

// Drops every high or low state shorter than minWidth samples, with its
// closing edge, so that a bounce burst leaves the edge where the contact
// settles. Returns the number of bounces dropped (a short state and the edge
// that ends it; the state before it joins the one after).
int32_t DropShortStates(std::vector<double>& at, std::vector<uint8_t>& rising, double minWidth);

// Decodes the edges of A, B (and Z) into the result; edges in samples.
void DecodeEncoder(std::span<const double> aAt, std::span<const uint8_t> aRising, std::span<const double> bAt,
                   std::span<const uint8_t> bRising, std::span<const double> zAt, std::span<const uint8_t> zRising,
                   double SampleSec, double countsPerRev, EncoderWorkspace& ws, EncoderResult& out);

// The whole encoder analysis: A, B, Z scanned, bounces dropped, decoded.
// lines[2] is ignored when the params have no Z.
void AnalyseEncoder(const EncoderLine lines[3], const EncoderScan& scan, const EncoderParams& params,
                    EncoderWorkspace& ws, EncoderResult& out);

// "A", "B" or "Z" + text.
std::string EncoderNote(int line, const char* text);

// "2 illegal transitions: A and B changed on the same sample"
std::string IllegalNote(int32_t illegal);

}  // namespace mervasto
