#pragma once

#include <future>
#include <memory>
#include <string>
#include <vector>

#include "wavefile/DsoSetup.h"
#include "wavefile/GenericCsv.h"
#include "wavefile/WaveCsv.h"
#include "wavefile/WaveRecord.h"

namespace mervasto {

// Loads a list of wave files one ahead of their analysis, on a second
// thread, so that `analyze FILE...` keeps both cores busy while the output,
// the result lines and the sample index still advance file by file.
//
// Loading a file depends on what the files before it left: the field table
// (a 2-column row copies columns 3 and 4 of an earlier, longer line), the
// setup fields a file does not name and the samples it does not overwrite.
// So the loads run strictly in order on one chain of setup, samples and
// field table that starts as the run state's, and each load hands back a
// copy of that chain: exactly what loading in the run state would give.
class FilePreload {
public:
    // The chain starts from these (the run state before its first file).
    FilePreload(std::vector<std::string> files, const DsoSetup& setup, const WaveRecord& record,
                const WaveFieldTable& table, WaveImportOptions options);
    ~FilePreload();
    FilePreload(const FilePreload&) = delete;
    FilePreload& operator=(const FilePreload&) = delete;

    // Loads file into setup, record.wave and table as LoadAnyWaveCsv would,
    // from the preloaded copy when file is the next of the list, and starts
    // loading the one after it. Asked for anything else, it stops preloading
    // and loads directly, from then on.
    WaveCsvLoadResult load(const std::string& file, DsoSetup& setup, WaveRecord& record, WaveFieldTable& table);

private:
    struct Loaded {
        WaveCsvLoadResult result;
        DsoSetup setup;
        std::array<std::vector<float>, kWaveChannels> wave;
        WaveFieldTable table;
    };
    void startNext();

    std::vector<std::string> files_;
    WaveImportOptions options_;
    size_t next_ = 0;  // the file the pending load reads
    bool direct_ = false;
    // The chain: touched only by the pending load, or by nobody.
    DsoSetup setup_;
    WaveRecord record_;
    WaveFieldTable table_;
    std::future<std::unique_ptr<Loaded>> pending_;
};

}  // namespace mervasto
