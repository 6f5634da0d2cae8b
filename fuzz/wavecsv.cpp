#include "wavefile/WaveCsv.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

// Any bytes as a wave file, read twice: by one thread and with the second
// thread taking over from the middle. Both readings must agree exactly.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace mervasto;
    // Fresh each time: the arrays of a kept record would grow differently in
    // the two ways and hold different stale samples beyond the rows read.
    WaveRecord records[2];
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    WaveCsvLoadResult results[2];
    DsoSetup setups[2];
    for (int way = 0; way < 2; ++way) {
        WaveCsvReadOptions options;
        options.splitBytes = way == 0 ? ~uint64_t{0} : 1;
        results[way] = LoadWaveCsvBytes(bytes, "fuzz.csv", setups[way], records[way], options);
    }
    if (results[0].outcome != results[1].outcome || results[0].rowsRead != results[1].rowsRead ||
        results[0].warnings != results[1].warnings || setups[0].RecordLength != setups[1].RecordLength)
        std::abort();
    // Nothing refused reaches the analysis with an interval that is not a
    // positive number.
    if (results[0].ok() && results[0].rowsRead > 0 &&
        !(setups[0].SampleInterval > 0 && setups[0].SampleInterval < 1e38f))
        std::abort();
    for (size_t ch = 0; ch < 4; ++ch) {
        if (records[0].wave[ch].empty() != records[1].wave[ch].empty()) std::abort();
        const size_t n = std::min(records[0].wave[ch].size(), records[1].wave[ch].size());
        if (n > 0 && std::memcmp(records[0].wave[ch].data(), records[1].wave[ch].data(), n * sizeof(float)) != 0)
            std::abort();
    }
    return 0;
}
