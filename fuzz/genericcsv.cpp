#include "wavefile/GenericCsv.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

// Any bytes as a capture exported by another program, read twice: by one
// thread and with a second thread taking the rows after the middle. Both
// readings must agree exactly, and nothing accepted may hold a sample or an
// interval the analysis cannot take.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace mervasto;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    WaveRecord records[2];
    DsoSetup setups[2];
    WaveCsvLoadResult results[2];
    for (int way = 0; way < 2; ++way) {
        WaveImportOptions options;
        options.own.splitBytes = way == 0 ? ~uint64_t{0} : 1;
        results[way] = LoadGenericCsvBytes(bytes, "fuzz.csv", setups[way], records[way], options);
    }
    if (results[0].outcome != results[1].outcome || results[0].rowsRead != results[1].rowsRead ||
        results[0].warnings != results[1].warnings)
        std::abort();
    if (!results[0].ok()) return 0;
    const DsoSetup& s = setups[0];
    if (s.RecordLength != setups[1].RecordLength || s.SampleInterval != setups[1].SampleInterval ||
        s.TriggerDelay != setups[1].TriggerDelay || !(s.SampleInterval > 0 && std::isfinite(s.SampleInterval)))
        std::abort();
    const auto rows = static_cast<size_t>(results[0].rowsRead);
    for (size_t ch = 0; ch < 4; ++ch) {
        if (records[0].wave[ch].size() < rows || records[1].wave[ch].size() < rows) std::abort();
        if (rows > 0 && std::memcmp(records[0].wave[ch].data(), records[1].wave[ch].data(), rows * sizeof(float)) != 0)
            std::abort();
        if (!std::all_of(records[0].wave[ch].begin(), records[0].wave[ch].begin() + static_cast<std::ptrdiff_t>(rows),
                         [](float v) { return std::isfinite(v); }))
            std::abort();
    }
    return 0;
}
