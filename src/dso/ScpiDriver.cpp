#include "dso/ScpiDriver.h"

#include "dso/ScpiSupport.h"

namespace mervasto {

Outcome ScpiDriver::readSetup(DsoLink& link, DsoSetup& setup, UiPort& ui, const std::string& addressText,
                              bool memoryInput) {
    (void)ui;
    (void)addressText;
    return Guarded([&] { readSetupFields(link, setup, memoryInput); });
}

void ScpiDriver::prepareForPass(DsoLink& link, const DsoSetup& setup) {
    (void)link;
    (void)setup;
}

Outcome ScpiDriver::fetch(DsoLink& link, DsoSetup& setup, WaveRecord& record, UiPort& ui, DsoTransferInputs& in) {
    ui.setStatus(1, kTranslationSetup);
    return Guarded([&]() -> Outcome {
        readSetupFields(link, setup, in.memoryInput);
        ui.setStatus(1, kTransferringWaves);
        const std::vector<int> on = ChannelsOn(setup);
        if (on.empty()) return {ErrorCode::Link, kEveryChannelOff};
        // A blank scale box reads 1, as the legacy transfer fills it.
        for (int ch : on) {
            std::string& rate = in.VRate[static_cast<size_t>(ch)];
            if (rate.empty() || rate == " ") rate = "1.0";
        }
        readWaves(link, setup, on, record, ui);
        FinishScpiRecord(setup, on, record, ui);
        return Outcome::Ok();
    });
}

std::string ScpiDriver::rejectRangePrompt() const { return {}; }

Outcome ScpiDriver::readRejectRange(DsoLink& link, DsoSetup& setup, int32_t recordLength, ZoomReadout& out) {
    (void)link;
    (void)setup;
    (void)recordLength;
    (void)out;
    return {ErrorCode::BadOption, supports(InstrumentFeature::RejectRange).whyNot};
}

Outcome ScpiDriver::saveScreen(DsoLink& link, UiPort& ui, const std::string& addressText, const std::string& fileName,
                               int32_t* bytes) {
    (void)link;
    (void)ui;
    (void)addressText;
    (void)fileName;
    if (bytes) *bytes = -1;
    return {ErrorCode::BadOption, supports(InstrumentFeature::Screen).whyNot};
}

}  // namespace mervasto
