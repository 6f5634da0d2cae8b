#pragma once

#include "common/LineScanner.h"
#include "wavefile/GenericCsv.h"
#include "wavefile/WaveCsv.h"

// The readers on a source already chosen: a stream is opened once, for the
// look at its head and the reading both.
namespace mervasto {

WaveCsvLoadResult LoadWaveCsvFrom(const LineSource& source, DsoSetup& setup, WaveRecord& record,
                                  const WaveCsvReadOptions& options);
WaveCsvLoadResult LoadGenericCsvFrom(const LineSource& source, DsoSetup& setup, WaveRecord& record,
                                     const WaveImportOptions& options);

}  // namespace mervasto
