#pragma once

#include "common/Channels.h"
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "common/UiPort.h"
#include "dso/DsoLink.h"
#include "wavefile/DsoSetup.h"
#include "wavefile/WaveRecord.h"

namespace mervasto {

struct WaveTransferResult {
    int32_t points = 0;  // payload bytes of the block
    float maxValue = 0;  // extremes of the converted record, volts
    float minValue = 0;
};

// What a channel transfer needs besides the link and the destination.
struct WaveTransferContext {
    DsoSetup& setup;                            // RecordLength (raised to 10), AcqMode
    const WaveRecord& range;                    // TransferStart / TransferEnd
    std::array<std::string, kChannels>& VRate;  // the channels' VRate texts
    std::string ch4SignalText;                  // Ch4's ChInputSignal text ("Gate" takes the whole record)
    UiPort* progress = nullptr;
};

// The source name of a channel index: "CH1".."CH4", "MATH" from 4 on.
std::string DsoSourceName(int channelIndex);

// Configures the transfer, reads the block of `source` and converts it into
// volts and raw (sized to the record length). Samples after the transferred
// range get the offset in counts and 0 V.
WaveTransferResult TransferDsoWave(DsoLink& link, const std::string& source, WaveTransferContext& ctx,
                                   std::vector<float>& volts, std::vector<int16_t>& raw, float offset,
                                   float voltsPerDiv, bool inverted);

WaveTransferResult TransferDsoChannel(DsoLink& link, int channelIndex, WaveTransferContext& ctx,
                                      std::vector<float>& volts, std::vector<int16_t>& raw, float offset,
                                      float voltsPerDiv, bool inverted);

// Channel ch (0..3) of the record with the setup's scale, offset and inversion.
WaveTransferResult TransferDsoChannel(DsoLink& link, int channelIndex, WaveTransferContext& ctx, WaveRecord& record);

}  // namespace mervasto
