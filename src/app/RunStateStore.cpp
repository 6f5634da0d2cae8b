// The run state's side of the results store: what a pass and its run are
// to the store, storing each pass beside its result line, the run's tally,
// and what status panel 3 says of an instrument run.
#include "app/RunState.h"

#include "app/core/SettingsTable.h"
#include "common/PackageVersion.h"
#include "common/TextFile.h"
#include "results/ResultNumbers.h"
#include "store/ResultStore.h"

namespace mervasto {

namespace {
constexpr const char* kFailedToStoreResults = "Failed to store the results in ";  // + target + ": " + why

std::string passes(int64_t n) { return std::to_string(n) + (n == 1 ? " pass" : " passes"); }
}  // namespace

StoreTarget RunState::storeTarget() const {
    return StoreTargetOf(settings_.analysis.ResultsDb, outputFileName(kResultStoreFileName));
}

RunInfo RunState::storeRunInfo() const {
    RunInfo run;
    const auto& a = settings_.analysis;
    run.station = a.StationName.empty() ? HostName() : a.StationName;
    run.sample = a.SampleNo;
    run.program = std::string(kPackageVersion);
    for (const SettingField& f : SettingFields()) {
        for (int ch = f.perChannel ? 0 : -1; ch < (f.perChannel ? kChannels : 0); ++ch) {
            const FieldRef ref{&f, ch};
            std::string value = FieldText(settings_, ref);
            // A password in the server's address stays out of the store.
            if (f.name == "ResultsDb") value = StoreTargetText(StoreTargetOf(value, ""));
            run.settings.emplace_back(FieldName(ref), std::move(value));
        }
    }
    const ChannelDisplays displays = channelDisplays();
    for (size_t ch = 0; ch < kChannels; ++ch) {
        StoredChannel& c = run.channels[ch];
        c.typeIndex = settings_.channels[ch].ChInputSignal;
        c.typeText = displays[ch].typeText;
        c.name = displays[ch].SigName;
    }
    return run;
}

void RunState::storePass(UiPort& ui) {
    lastStore_ = Outcome::Ok();
    const RunInfo run = storeRunInfo();
    PassRecord pass;
    if (running_) pass.passNumber = repeatCounter_;
    pass.started = passStarted_.empty() ? StoreTimeNow() : passStarted_;
    passStarted_.clear();
    pass.sampleName = sampleName();
    pass.sampleIndex = settings_.analysis.SampleIndex;
    pass.comment = settings_.analysis.Comment;
    if (InputSource == kInputTypeDso) {
        pass.source = linkedInstrument();
        if (pass.source.empty()) pass.source = setup_.Model + " at " + settings_.analysis.IPAdressText;
    } else {
        pass.source = inputFile_;
    }
    const ChannelDisplays displays = channelDisplays();
    for (size_t ch = 0; ch < kChannels; ++ch) pass.inUse[ch] = displays[ch].shown() && !displays[ch].isGate();
    pass.table = results_.table;
    pass.jitter = results_.jitter;
    if (settings_.analysis.Encoder) pass.encoder = &results_.encoder;
    if (newRun_) {
        tally_.newRun();
        if (store_) store_->newRun();
        newRun_ = false;
    }

    int64_t runId = 0;
    if (storeResults_) {
        const StoreTarget target = storeTarget();
        if (!store_) store_ = std::make_unique<ResultStore>();
        Outcome stored = Outcome::Ok();
        if (!store_->isOpen() || store_->target().postgres != target.postgres ||
            store_->target().location != target.location)
            stored = store_->open(target, true);
        if (stored) stored = store_->storePass(run, pass);
        if (stored) {
            ++passesStored_;
            runId = store_->runId();
        } else {
            ++storeFailures_;
            lastStore_ =
                Outcome(ErrorCode::FileIo, kFailedToStoreResults + StoreTargetText(target) + ": " + stored.text())
                    .reported();
            ui.setStatus(2, lastStore_.text());
        }
    }
    tally_.add(run, pass, runId);
}

void RunState::showSeriesPass(UiPort& ui) const {
    ui.setStatus(3, "Pass " + std::to_string(repeatCounter_) + " / " + std::to_string(seriesPlanned_));
}

void RunState::countSeriesPass(UiPort& ui) {
    ++seriesDone_;
    PassRecord pass;
    const ChannelDisplays displays = channelDisplays();
    for (size_t ch = 0; ch < kChannels; ++ch) pass.inUse[ch] = displays[ch].shown() && !displays[ch].isGate();
    pass.table = results_.table;
    if (const std::optional<bool> verdict = PassVerdict(pass)) ++(*verdict ? seriesGo_ : seriesNg_);
    ui.seriesProgress(seriesDone_, seriesPlanned_);
}

void RunState::showSeriesEnd(UiPort& ui) const {
    ui.seriesProgress(0, 0);
    if (seriesDone_ < seriesPlanned_)
        ui.setStatus(3, "Stopped after " + std::to_string(seriesDone_) + " of " + passes(seriesPlanned_) + ".");
    else
        ui.setStatus(3, "Completed " + passes(seriesPlanned_) + ": " + std::to_string(seriesGo_) + " Go, " +
                            std::to_string(seriesNg_) + " NG.");
}

Outcome RunState::ResultCopyNumbers_Click(UiPort& ui) {
    return Guarded([&] {
        ui.setClipboardText(ResultNumbersText(channelDisplays(), results_.table));
        ui.messageBox(kResultCopiedText, MsgButtons::Ok, kResultCopiedTitle);
    });
}

}  // namespace mervasto
