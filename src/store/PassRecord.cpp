#include "store/PassRecord.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>

#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace mervasto {

bool CountLimitsSet(const ChannelResult& r) { return r.LL != 0 || r.UL != 0; }

std::optional<bool> PassVerdict(const PassRecord& pass) {
    std::optional<bool> verdict;
    for (int ch = 0; ch < kChannels; ++ch) {
        if (!pass.inUse[static_cast<size_t>(ch)]) continue;
        for (Measure kind : kMeasures) {
            const ChannelResult& r = pass.table.at(ch, kind);
            if (LimitsSet(r)) verdict = verdict.value_or(true) && r.Go;
        }
    }
    return verdict;
}

namespace {
bool perPass(const std::string& name) {
    return std::find(kPerPassSettings.begin(), kPerPassSettings.end(), name) != kPerPassSettings.end();
}
}  // namespace

bool SameRun(const RunInfo& a, const RunInfo& b) {
    if (a.station != b.station || a.sample != b.sample || a.program != b.program) return false;
    for (size_t ch = 0; ch < a.channels.size(); ++ch) {
        const StoredChannel& x = a.channels[ch];
        const StoredChannel& y = b.channels[ch];
        if (x.typeIndex != y.typeIndex || x.typeText != y.typeText || x.name != y.name) return false;
    }
    // The settings come in one order; those a pass carries are passed over.
    auto x = a.settings.begin(), y = b.settings.begin();
    for (;;) {
        while (x != a.settings.end() && perPass(x->first)) ++x;
        while (y != b.settings.end() && perPass(y->first)) ++y;
        if (x == a.settings.end() || y == b.settings.end()) return x == a.settings.end() && y == b.settings.end();
        if (*x++ != *y++) return false;
    }
}

std::string YieldText(int64_t judged, int64_t go) {
    if (judged <= 0) return "—";
    char text[32];
    std::snprintf(text, sizeof text, "%.2f %%", 100.0 * static_cast<double>(go) / static_cast<double>(judged));
    return text;
}

std::string StoreTimeNow() {
    using namespace std::chrono;
    const auto now = system_clock::now();
    const std::time_t seconds = system_clock::to_time_t(now);
    const auto millis = duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm utc{};
#ifdef _WIN32
    gmtime_s(&utc, &seconds);
#else
    gmtime_r(&seconds, &utc);
#endif
    char text[80];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                  utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<int>(millis));
    return text;
}

std::optional<std::string> StoreTimeOf(std::string_view text) {
    // Digits where the pattern has 'd', the pattern's own character elsewhere.
    static constexpr std::string_view kPattern = "dddd-dd-ddTdd:dd:dd.ddd";
    std::string out(text);
    if (!out.empty() && (out.back() == 'Z' || out.back() == 'z')) out.pop_back();
    if (out.size() > 10 && out[10] == ' ') out[10] = 'T';
    // Whole parts only: a date, then minutes, seconds or milliseconds.
    if (out.size() != 10 && out.size() != 16 && out.size() != 19 && out.size() != 23) return std::nullopt;
    for (size_t i = 0; i < out.size(); ++i) {
        const bool digit = out[i] >= '0' && out[i] <= '9';
        if (kPattern[i] == 'd' ? !digit : out[i] != kPattern[i]) return std::nullopt;
    }
    return out;
}

std::string HostName() {
#ifdef _WIN32
    char name[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD size = sizeof name;
    if (GetComputerNameA(name, &size)) return std::string(name, size);
#else
    char name[256] = {};
    if (gethostname(name, sizeof name - 1) == 0) return name;
#endif
    return "station";
}

}  // namespace mervasto
