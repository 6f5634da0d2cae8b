#include "dso/AcquisitionPass.h"

#include "common/Numeric.h"
#include "common/TextUtil.h"
#include "dso/DsoSetupReadout.h"
#include "dso/WaveTransfer.h"

namespace mervasto {

void PrepareDsoForPass(DsoLink& link, const DsoSetup& setup) {
    if (Val(MidText(setup.Model, 5, 1)) > 3) link.SendDsoCommand("STOP;ROLL OFF;DISP OFF");
}

Outcome TransferFromDso(DsoLink& link, DsoSetup& setup, WaveRecord& record, UiPort& ui, DsoTransferInputs& in) {
    ui.setStatus(1, kTranslationSetup);
    Outcome readout = ReadDsoSetup(link, setup, ui, in.addressText, in.memoryInput);
    if (!readout) return readout;
    return Guarded([&] {
        record.WaveLength = setup.RecordLength;
        record.SampleSec = setup.SampleInterval;
        ui.setStatus(1, kTransferringWaves);
        WaveTransferContext ctx{setup, record, in.VRate, in.ch4SignalText, &ui};
        for (int ch = 0; ch < kChannels; ++ch) {
            if (ch >= setup.ChannelCount) {
                record.raw[static_cast<size_t>(ch)].clear();
                continue;
            }
            TransferDsoChannel(link, ch, ctx, record);
        }
        ui.progress(0, 0);
        record.WaveLength = setup.RecordLength;
        record.ensureLength(record.WaveLength);
        ui.setStatus(1, kCompletedWaveTranslation);
    });
}

Outcome ReturnToLocal(DsoLink& link) {
    return Guarded([&] {
        if (link.DsoLinked) link.SendDsoCommand("GTL");
    });
}

}  // namespace mervasto
