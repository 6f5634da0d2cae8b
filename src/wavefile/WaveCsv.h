#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "wavefile/DsoSetup.h"
#include "wavefile/WaveRecord.h"

namespace mervasto {

// The field table the wave CSV reader splits every line into. It belongs to
// the caller and lives as long as the program: a line overwrites only as many
// entries as it has fields, so a 2-column row read after a 4-column file still
// finds that file's last columns 3 and 4 (and copies them, as it always has).
struct WaveFieldTable {
    std::vector<std::string> fields = std::vector<std::string>(8);

    // Entry i (0-based); an entry never written reads as empty.
    std::string_view field(size_t i) const {
        return i < fields.size() ? std::string_view(fields[i]) : std::string_view();
    }
};

// Outcome of LoadWaveCsv: status 0 on completion, negative when a fault ended
// the read (the setup fields and samples read before it stay set).
struct WaveCsvLoadResult {
    int status = 0;
    std::string errorText;
    int32_t rowsRead = 0;
};

// Writes the setup header and RecordLength sample rows (4 columns unless
// ChannelCount is 2). Errors are ignored; always returns 0.
int16_t SaveWaveCsv(std::string_view fileName, const DsoSetup& setup, const WaveRecord& record);

// Reads a wave CSV file into setup and record.wave (grown as needed, never
// beyond kMaxSamples). RecordLength ends as the number of rows rounded to
// tens. WaveLength and SampleSec are left to the caller.
WaveCsvLoadResult LoadWaveCsv(std::string_view fileName, DsoSetup& setup, WaveRecord& record, WaveFieldTable& table);

// Files of at least this many bytes are read by two threads, the second
// reading the rows after the middle while the first reads up to there; the
// result is the same as one thread's. 8 MiB unless set (tests set it low).
void SetWaveCsvSplitBytes(uint64_t bytes);

// Appends one "//波形のcsv形式ファイル" block of count rows with the shown
// channels (shown[i] is true when DispOffCheck(i) is clear). Always returns 0.
int16_t AppendWaveTable(std::string_view fileName, const WaveRecord& record, int32_t count, std::array<bool, 4> shown);

// The trigger address written in the header: the sample at the trigger
// instant of a ten-division screen with the trigger at division 5. 0 when it
// cannot be computed (no time base, or out of range).
int32_t TriggerAddress(const DsoSetup& setup);

}  // namespace mervasto
