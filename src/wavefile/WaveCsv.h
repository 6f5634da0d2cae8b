#pragma once

#include "common/Channels.h"
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/Outcome.h"
#include "wavefile/DsoSetup.h"
#include "wavefile/WaveRecord.h"

namespace mervasto {

// What LoadWaveCsv read: its outcome is a failure when a fault ended the read
// (the setup fields and samples read before it stay set). Texts name the file,
// and the line when one is at fault.
struct WaveCsvLoadResult {
    Outcome outcome;
    bool ok() const { return outcome.ok(); }
    int32_t rowsRead = 0;
    // The rows the file's own "Points" line declares; -1 without one.
    int32_t rowsDeclared = -1;
    // A completed read that the user should still hear about: a file cut
    // short in the middle of its samples, a model name without a channel count.
    std::vector<std::string> warnings;
    // Set when the model name gives no channel count of 2 or 4, so that Ch3
    // and Ch4 are left out: why, for those channels' notes.
    std::string channelCountNote;
    // Set by the generic reader: the file was not in the program's own
    // layout (also when it was refused, in which case the setup was left as
    // it was), and what was recognised in it.
    bool generic = false;
    std::string layout;
};

struct WaveCsvReadOptions {
    // Inputs of at least this many bytes are read by two threads, the second
    // reading the rows after the middle while the first reads up to there;
    // the result is the same as one thread's.
    uint64_t splitBytes = uint64_t{8} << 20;
};

// Writes the setup header and RecordLength sample rows (4 columns unless
// ChannelCount is 2) through a temporary file, so that a failed write leaves
// the old file whole. The outcome names the file and the reason.
Outcome SaveWaveCsv(std::string_view fileName, const DsoSetup& setup, const WaveRecord& record);

// Reads a wave CSV file into setup and record.wave (grown as needed, never
// beyond kMaxSamples). What was there before is not read: the setup starts
// afresh, and Ch3 and Ch4 are left empty unless the model records four
// channels (any count but 2) and the rows give them. RecordLength ends as the
// number of rows rounded to tens; the up to four samples that claims beyond
// the rows repeat the last row. WaveLength and SampleSec are left to the
// caller. A line longer than kMaxLineBytes or of more than kMaxFields fields,
// a header value that is no number, a sample interval ("Delta") that is not
// above 0 and a time or voltage scale that is not finite end the read with a
// fault.
WaveCsvLoadResult LoadWaveCsv(std::string_view fileName, DsoSetup& setup, WaveRecord& record,
                              const WaveCsvReadOptions& options = {});
// The same from a file's bytes in memory; name stands for the file in texts.
WaveCsvLoadResult LoadWaveCsvBytes(std::string_view bytes, std::string_view name, DsoSetup& setup, WaveRecord& record,
                                   const WaveCsvReadOptions& options = {});

// Appends one "//波形のcsv形式ファイル" block of count rows with the shown
// channels (shown[i] is true when DispOffCheck(i) is clear). Every write is
// checked; on a failure the file is cut back to its old length and the
// outcome names the file and the reason.
Outcome AppendWaveTable(std::string_view fileName, const WaveRecord& record, int32_t count,
                        std::array<bool, kChannels> shown);

// The trigger address written in the header: the sample at the trigger
// instant of a ten-division screen with the trigger at division 5. 0 when it
// cannot be computed (no time base, or out of range).
int32_t TriggerAddress(const DsoSetup& setup);

}  // namespace mervasto
