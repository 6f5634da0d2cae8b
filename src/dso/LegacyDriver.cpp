#include "dso/LegacyDriver.h"

#include "dso/DsoScreen.h"
#include "dso/DsoSetupReadout.h"

namespace mervasto {

const InstrumentFamily& LegacyFamily() {
    static const InstrumentFamily family{
        "Legacy", "DS-5352, DS-5354", kDsoPort,
        // Its maker's field is no one's in particular: the instrument is the
        // one whose model the program can count the channels of.
        [](const Identity& id) {
            const int16_t channels = ChannelCountOfModel(id.model);
            return channels == 2 || channels == 4;
        },
        [] { return std::unique_ptr<InstrumentDriver>(std::make_unique<LegacyDriver>()); }};
    return family;
}

void LegacyDriver::identify(DsoLink& link, const std::string& reply, DsoSetup& setup) {
    TakeLegacyIdentity(link, reply, setup);
}

Outcome LegacyDriver::readSetup(DsoLink& link, DsoSetup& setup, UiPort& ui, const std::string& addressText,
                                bool memoryInput) {
    return ReadDsoSetup(link, setup, ui, addressText, memoryInput);
}

void LegacyDriver::prepareForPass(DsoLink& link, const DsoSetup& setup) { PrepareDsoForPass(link, setup); }

bool LegacyDriver::acquireSingle(DsoLink& link) { return link.WaitSingleAcquisition(); }

Outcome LegacyDriver::fetch(DsoLink& link, DsoSetup& setup, WaveRecord& record, UiPort& ui, DsoTransferInputs& in) {
    return TransferFromDso(link, setup, record, ui, in);
}

Outcome LegacyDriver::returnToLocal(DsoLink& link) { return ReturnToLocal(link); }

std::string LegacyDriver::rejectRangePrompt() const { return kZoomCursorDirection; }

Outcome LegacyDriver::readRejectRange(DsoLink& link, DsoSetup& setup, int32_t recordLength, ZoomReadout& out) {
    return ReadRejectRangeFromDso(link, setup, recordLength, out);
}

Outcome LegacyDriver::saveScreen(DsoLink& link, UiPort& ui, const std::string& addressText, const std::string& fileName,
                                 int32_t* bytes) {
    return SaveDsoScreen(link, ui, addressText, fileName, bytes);
}

}  // namespace mervasto
