#include "wavefile/GenericCsv.h"

#include <string>

#include "common/LineScanner.h"
#include "common/RuntimeError.h"
#include "wavefile/GenericCsvLayout.h"
#include "wavefile/WaveSource.h"

// The one entry for file input: which reader a file goes to.
namespace mervasto {

namespace {

// The program's own layout goes to loadOwn, any other to loadGeneric; the
// first bytes tell which.
template <class LoadOwn, class LoadGeneric>
WaveCsvLoadResult loadAny(const LineSource& source, LoadOwn loadOwn, LoadGeneric loadGeneric) {
    std::string head;
    try {
        head = source.head(kLayoutBytes);
    } catch (const RuntimeError& e) {
        WaveCsvLoadResult r;
        r.outcome = Outcome(e.code(), source.name + ": " + e.what());
        return r;
    }
    return IsOwnWaveLayout(head) ? loadOwn() : loadGeneric();
}

}  // namespace

bool IsOwnWaveLayout(std::string_view head) {
    bool first = true;
    bool delta = false;
    bool points = false;
    while (!head.empty()) {
        const size_t end = head.find_first_of("\r\n");
        std::string_view line = head.substr(0, end);
        head = end == std::string_view::npos ? std::string_view() : head.substr(end + 1);
        if (line.empty()) continue;
        const std::string_view key = line.substr(0, line.find(','));
        if (first) {
            if (!key.starts_with("Model")) return false;
            first = false;
            continue;
        }
        if (key.starts_with("Delta")) delta = true;
        if (key.starts_with("Points")) points = true;
        if (key == "Ch1 V") return delta && points;
    }
    return false;
}

WaveCsvLoadResult LoadAnyWaveCsv(std::string_view fileName, DsoSetup& setup, WaveRecord& record,
                                 const WaveImportOptions& options) {
    const LineSource source = LineSource::Input(fileName);
    return loadAny(
        source, [&] { return LoadWaveCsvFrom(source, setup, record, options.own); },
        [&] { return LoadGenericCsvFrom(source, setup, record, options); });
}

WaveCsvLoadResult LoadAnyWaveCsvBytes(std::string_view bytes, std::string_view name, DsoSetup& setup,
                                      WaveRecord& record, const WaveImportOptions& options) {
    return loadAny(
        LineSource::Bytes(bytes, name), [&] { return LoadWaveCsvBytes(bytes, name, setup, record, options.own); },
        [&] { return LoadGenericCsvBytes(bytes, name, setup, record, options); });
}

}  // namespace mervasto
