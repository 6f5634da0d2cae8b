#include "app/core/Startup.h"

#include <cmath>
#include <limits>

#include "app/core/DataFolders.h"
#include "common/Numeric.h"
#include "common/TextUtil.h"

namespace mervasto {

std::string CheckSmoothingNo(std::string_view text) {
    if (Val(text) < 1) return "1";
    return std::string(text);
}

int32_t SmoothingCountOf(std::string_view smoothingNo) {
    double v = RoundHalfEven(Val(smoothingNo));
    if (std::isnan(v) || v < 1) return 1;
    if (v > std::numeric_limits<int32_t>::max()) return std::numeric_limits<int32_t>::max();
    return static_cast<int32_t>(v);
}

int32_t ApplyStartupSettings(Settings& settings, std::string_view dataFolder) {
    AnalysisSettings& a = settings.analysis;
    for (ChannelSettings& c : settings.channels)
        if (c.ChInputSignal < 0) c.ChInputSignal = 1;
    a.TotalRepeats = LimitValueText(a.TotalRepeats, 1, kMaxTotalRepeats);
    a.MaxCycles = LimitValueText(a.MaxCycles, 1, kMaxMaxCycles);
    a.SmoothingNo = CheckSmoothingNo(a.SmoothingNo);

    // An old resume file, or none: everything goes to the default folder.
    if (settings.OutputFolder.empty()) {
        settings.OutputFolder = JoinPath(dataFolder, "Outputdata");
        settings.DetailBaseName = a.SampleNo + a.SampleIndex + "_Detail";
        settings.WaveBaseName = a.SampleNo + a.SampleIndex + "_Wave";
        settings.DetailFileName = settings.DetailBaseName + ".csv";
    }
    return SmoothingCountOf(a.SmoothingNo);
}

}  // namespace mervasto
