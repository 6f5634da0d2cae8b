#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/Outcome.h"
#include "wavefile/DsoSetup.h"
#include "wavefile/WaveCsv.h"
#include "wavefile/WaveRecord.h"

// Captures exported by other instruments and programs as plain CSV: a few
// metadata lines, one or two header lines, then a time column and up to four
// signal columns (or signal columns alone with the interval given elsewhere).
// They become ordinary wave records, so that everything after the load works
// as it does on the program's own files.
namespace mervasto {

struct WaveImportOptions {
    // Seconds between samples for a file without a time column; 0 when not
    // given (a metadata line of the file may still give it).
    double sampleInterval = 0;
    WaveCsvReadOptions own;
};

// The names an imported record carries.
inline constexpr const char* kImportModel2 = "IMPORT-2";
inline constexpr const char* kImportModel4 = "IMPORT-4";
inline constexpr const char* kTraceOn = "ON";
inline constexpr const char* kTraceOff = "OFF";

// True when the head of a file (its first lines) is the program's own wave
// CSV layout: the model line first, then the setup keys with "Delta" and
// "Points", then the "Ch1 V" column header.
bool IsOwnWaveLayout(std::string_view head);

// Reads a generic capture into setup and record (setup is replaced whole;
// see docs/file-formats.md for the rules). The result's layout text says what
// was recognised.
WaveCsvLoadResult LoadGenericCsv(std::string_view fileName, DsoSetup& setup, WaveRecord& record,
                                 const WaveImportOptions& options = {});
WaveCsvLoadResult LoadGenericCsvBytes(std::string_view bytes, std::string_view name, DsoSetup& setup,
                                      WaveRecord& record, const WaveImportOptions& options = {});

// The one entry for file input: the program's own layout through
// LoadWaveCsv, anything else through the generic reader.
WaveCsvLoadResult LoadAnyWaveCsv(std::string_view fileName, DsoSetup& setup, WaveRecord& record,
                                 const WaveImportOptions& options = {});
WaveCsvLoadResult LoadAnyWaveCsvBytes(std::string_view bytes, std::string_view name, DsoSetup& setup,
                                      WaveRecord& record, const WaveImportOptions& options = {});

// The files of one capture written one per channel (or a few channels
// each): one record with the files' channels as Ch1, Ch2, ... in the order
// given. Files of different lengths or intervals, and more than four
// channels in all, are refused naming the files.
WaveCsvLoadResult LoadCombinedWaveCsv(const std::vector<std::string>& files, DsoSetup& setup, WaveRecord& record,
                                      const WaveImportOptions& options = {});
// "a.csv + b.csv": the name of a record read from several files.
std::string CombinedName(const std::vector<std::string>& files);

// Writes "Time(s),CH1(V),CH2(V)[,CH3(V),CH4(V)]" and one row per sample, the
// times as the record's own (from the delay), through a temporary file.
Outcome SaveGenericCsv(std::string_view fileName, const DsoSetup& setup, const WaveRecord& record);

// The smallest value of the 1-2-5 series (… 0.1, 0.2, 0.5, 1, 2 …) whose 8
// divisions hold range, but not below floor.
float VoltsPerDivFor(double range, double floor);

}  // namespace mervasto
