#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "common/WorkPool.h"
#include "wavefile/DsoSetup.h"
#include "wavefile/GenericCsv.h"
#include "wavefile/WaveCsv.h"
#include "wavefile/WaveRecord.h"

namespace mervasto {

// Loads the files of `analyze FILE...` in jobs of the work pool, so that
// files are read on every core the cap allows while the output, the result
// lines and the sample index still advance file by file.
//
// A load depends on nothing loaded before it, so files are read side by side
// into records of their own. They go in groups as large as the cap (and of
// at most 1 GiB of files, as each record waits in memory for its turn): the
// first of a group is read by the thread that asks for it, straight into the
// run state, the others by jobs begun at the same time, each handed over
// when its turn comes. (Jobs queued further ahead would only be begun by the
// workers before the file the asking thread needs next, leaving it waiting.)
class FilePreload {
public:
    FilePreload(std::vector<std::string> files, WaveImportOptions options);
    FilePreload(const FilePreload&) = delete;
    FilePreload& operator=(const FilePreload&) = delete;

    // Loads file into setup and record.wave as LoadAnyWaveCsv would: the
    // next of the list from its job, or here when it has none. A file its job
    // could not load is read again here, so that what a refused file leaves
    // behind is the same either way. Asked for anything but the next of the
    // list, it stops reading ahead and loads directly, from then on.
    WaveCsvLoadResult load(const std::string& file, DsoSetup& setup, WaveRecord& record);

private:
    struct Loaded {
        WaveCsvLoadResult result;
        DsoSetup setup;
        WaveRecord record;
    };

    std::vector<std::string> files_;
    WaveImportOptions options_;
    size_t next_ = 0;  // the file asked for next; pending_ holds the loads of those after it
    bool direct_ = false;
    std::deque<Task<std::unique_ptr<Loaded>>> pending_;
};

}  // namespace mervasto
