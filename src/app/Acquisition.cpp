// The instrument handlers of the run state: a run of passes, the reject range
// from the zoom cursors, and saving the waves and the instrument's screen.
#include "app/RunState.h"

#include "app/core/DataFolders.h"
#include "app/core/Startup.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextFile.h"
#include "common/TextUtil.h"
#include "dso/AcquisitionPass.h"
#include "dso/DsoLink.h"
#include "dso/Instrument.h"
#include "dso/RejectRange.h"
#include "results/ResultFiles.h"

#include <filesystem>

namespace mervasto {

namespace {
constexpr const char* kConnecting = "Connecting to the DSO.";
constexpr const char* kRepeatCount = "Repeat count=";
constexpr const char* kAcquiringNewData = "Acquiring New Data.";
constexpr const char* kAcquisitionAborted = "Data Acquisition Aborted.";
constexpr const char* kTransferingWaves = "Transfering waves from the DSO.";
constexpr const char* kCompletedTransfer = "Completed data transffering.";
constexpr const char* kFailedTranslationSetup = "Failed translation of the DSO setup.";
constexpr const char* kDirectionTitle = "Direction";
constexpr const char* kAbortedStoring = "Aborted Storing the Data to the File.";
constexpr const char* kStoredData = "Stored the Data to the File.";
constexpr const char* kStoringScreen = "Storing the DSO's Screen.";
constexpr const char* kCompletedScreen = "Copmpleted Storing the DSO's Screen.";
constexpr const char* kLinkErrorTitle = "DSO";

// The window's "Time-out (s)": the deadline of every exchange with the instrument.
void ApplyExchangeDeadline(DsoLink& link, const std::string& secondsText) {
    const double seconds = Val(secondsText);
    if (seconds > 0 && seconds <= 3600) link.setExchangeDeadlineMs(ToInt32(seconds * 1000));
}

// Shows the "Confirmation" box an instrument outcome has always had; false
// when it has none.
bool ShowLinkBox(UiPort& ui, const Outcome& outcome) {
    const std::optional<LinkBox> box = LinkBoxOf(outcome);
    if (!box) return false;
    ui.messageBox(outcome.text(), box->buttons, box->title);
    return true;
}

// A failure with a "Confirmation" box of its own has been told by it.
Outcome ShownInLinkBox(UiPort& ui, Outcome failed) {
    if (failed || !ShowLinkBox(ui, failed)) return failed;
    return std::move(failed).reported();
}

// Whatever broke an exchange with the instrument (a reply that is no
// number, a record too long), the remedy is at the instrument: the failure
// is the link's. A Stop that had to cut the exchange stays the user's.
Outcome InstrumentFailure(Outcome failed) {
    if (failed.ok() || failed.code() == ErrorCode::Link || failed.code() == ErrorCode::Canceled) return failed;
    return {ErrorCode::Link, failed.text()};
}

// A Stop that had to cut an exchange is the user's doing, not a fault to be
// boxed: its text goes to the status bar.
Outcome StopToStatus(UiPort& ui, Outcome failed) {
    if (failed.code() != ErrorCode::Canceled || failed.wasReported()) return failed;
    ui.setStatus(1, failed.text());
    return std::move(failed).reported();
}

void makeFolder(const std::string& path) {
    std::error_code ec;
    std::filesystem::create_directories(PathFromText(path), ec);
}
}  // namespace

Outcome RunState::TransferFromDso(UiPort& ui) {
    std::array<std::string, kChannels> vrates;
    for (size_t ch = 0; ch < kChannels; ++ch) vrates[ch] = settings_.channels[ch].VRate;
    DsoTransferInputs in{settings_.analysis.IPAdressText, MemoryInput, vrates,
                         std::string(settings_.channels[3].signalText())};
    Outcome transferred = instrument_->fetch(setup_, record_, ui, in);
    if (transferred) {
        for (size_t ch = 0; ch < kChannels; ++ch) settings_.channels[ch].VRate = vrates[ch];
        return transferred;
    }
    if (ShowLinkBox(ui, transferred)) {
        ui.setStatus(1, kFailedTranslationSetup);
        return std::move(transferred).reported();
    }
    return InstrumentFailure(std::move(transferred));
}

Outcome RunState::runPass(UiPort& ui) {
    passStarted_ = StoreTimeNow();
    if (linkedElsewhere()) {
        // Another instrument since the last pass: the old one gets its front
        // panel back, the new one is connected and identified as at a start.
        if (const Outcome local = instrument_->returnToLocal(); !local) ui.setStatus(2, local.text());
        instrument_->close();
    }
    if (!instrument_->linked()) {
        Outcome linked = InstrumentFailure(connectInstrument(ui, settings_.analysis.IPAdressText));
        if (!linked) return ShownInLinkBox(ui, std::move(linked));
    }
    instrument_->prepareForPass(setup_);
    if (settings_.analysis.DaqCheck) {
        ui.setStatus(1, kAcquiringNewData);
        if (instrument_->acquireSingle()) ui.setStatus(1, kAcquisitionAborted);
    }
    ui.setStatus(1, kTransferingWaves);
    InputSource = kInputTypeDso;
    Outcome transferred = WaveTrans(ui, kInputTypeDso, {});
    WavesPresent = true;
    recordChanged();
    if (!transferred) {
        if (!transferred.wasReported()) return transferred;
        // The link box and its status text: the series ends after this pass.
        TransferFailed = true;
        if (runFailure_.ok()) runFailure_ = Outcome(ErrorCode::Link, kFailedTranslationSetup).reported();
        return Outcome::Ok();
    }
    // A link box of the reject range leaves the pass to go on without it.
    if (Outcome range = readRejectRange(ui); !range && !range.wasReported()) return range;
    AnalysisCommon(ui);
    const ChannelDisplays displays = channelDisplays();
    CopyResultToLog(logFirst ? 1 : 0, resultGrid_, logGrid_, displays);
    logFirst = false;
    DispDetailData(detailGrid_, displays, results_.cycles, record_.SampleSec);
    const std::string counter = std::to_string(repeatCounter_);
    const Outcome names = checkFileNames(false, settings_.analysis.DDSaveCheck, settings_.analysis.WDSaveCheck);
    if (!names) passWriteFailed(ui, names);  // the pass's result line is still kept
    if (names && settings_.analysis.DDSaveCheck) {
        const Outcome saved = SaveDetailData(
            JoinPath(settings_.OutputFolder, settings_.DetailBaseName + "_" + counter + ".csv"), detailGrid_);
        if (!saved) passWriteFailed(ui, saved);
    }
    if (names && settings_.analysis.WDSaveCheck) {
        std::array<bool, kChannels> shown{};
        for (size_t ch = 0; ch < kChannels; ++ch) shown[ch] = !settings_.channels[ch].DispOffCheck;
        const Outcome saved =
            AppendWaveTable(JoinPath(settings_.OutputFolder, settings_.WaveBaseName + "_" + counter + ".csv"), record_,
                            record_.WaveLength, shown);
        if (!saved) passWriteFailed(ui, saved);
    }
    (void)SaveResults(ui);  // a refused line waits for the next pass
    countSeriesPass(ui);
    ++passesDone_;
    gridsChanged();
    passFinished();
    return Outcome::Ok();
}

Outcome RunState::shownInRunBox(UiPort& ui, Outcome failed) const {
    if (failed.ok()) return failed;
    if (!failed.wasReported() && !instrument_->link().aborted())
        ui.messageBox(failed.text(), MsgButtons::Ok, kLinkErrorTitle);
    return std::move(failed).reported();
}

void RunState::passWriteFailed(UiPort& ui, const Outcome& failed) {
    ui.messageBox(failed.text(), MsgButtons::Ok, kRunTimeErrorTitle);
    TransferFailed = true;
    if (runFailure_.ok()) runFailure_ = Outcome(failed).reported();  // the first failure stands
}

Outcome RunState::WFStartCommand_Click(UiPort& ui) {
    if (running_) return Outcome::Ok();
    runFailure_ = Outcome::Ok();
    // A Stop left over from an earlier run must not cut this run's connect.
    instrument_->link().clearStop();
    ApplyExchangeDeadline(instrument_->link(), settings_.analysis.TimeoutSeconds);
    if (linkedElsewhere()) instrument_->close();
    if (!instrument_->linked()) {
        Outcome linked = InstrumentFailure(connectInstrument(ui, settings_.analysis.IPAdressText));
        runFailure_ = shownInRunBox(ui, StopToStatus(ui, ShownInLinkBox(ui, std::move(linked))));
        if (!runFailure_) {
            runEnded(runFailure_);
            return runFailure_;
        }
    }
    running_ = true;
    if (Outcome ended = Guarded([&] { return runSeries(ui); }); !ended)
        runFailure_ = shownInRunBox(ui, StopToStatus(ui, std::move(ended)));
    showSeriesEnd(ui);
    const Outcome local = instrument_->returnToLocal();
    if (!local) ui.setStatus(2, local.text());
    running_ = false;
    runEnded(runFailure_);
    return runFailure_;
}

Outcome RunState::runSeries(UiPort& ui) {
    auto& a = settings_.analysis;
    a.SmoothingNo = CheckSmoothingNo(a.SmoothingNo);
    SmoothingCount = SmoothingCountOf(a.SmoothingNo);
    if (RoundHalfEven(Val(a.TotalRepeats)) >= 16000) a.TotalRepeats = "16000";
    RepeatLimit = ToInt32(Val(a.TotalRepeats));
    SetupLogGrid(logGrid_, std::max(RepeatLimit, 0));
    logFirst = true;
    instrument_->link().StopRequested = false;
    if (runDone_) a.SampleIndex = NextSampleIndex(a.SampleIndex);
    // A series repeats only with New Acquisition ticked.
    seriesPlanned_ = a.RepeatCheck && a.DaqCheck ? std::max(RepeatLimit, 0) : 1;
    seriesDone_ = seriesGo_ = seriesNg_ = 0;
    newRun_ = true;
    settingsChanged();
    gridsChanged();
    runStarted();
    if (!a.RepeatCheck) {
        TransferFailed = false;
        ui.setStatus(1, "");
        repeatCounter_ = 1;
        showSeriesPass(ui);
        if (Outcome pass = runPass(ui); !pass) return pass;
        runDone_ = true;
        if (!TransferFailed) ui.setStatus(1, kCompletedTransfer);
        return Outcome::Ok();
    }
    for (repeatCounter_ = 1; repeatCounter_ <= RepeatLimit; ++repeatCounter_) {
        TransferFailed = false;
        ui.setStatus(1, kRepeatCount + std::to_string(repeatCounter_));
        showSeriesPass(ui);
        if (Outcome pass = runPass(ui); !pass) return pass;
        if (TransferFailed || instrument_->link().StopRequested || !a.DaqCheck) break;
        if (repeatCounter_ == INT32_MAX) throw RuntimeError(ErrorCode::Overflow, "Overflow: the repeat counter.");
    }
    return Outcome::Ok();
}

void RunState::Stop_Click() { instrument_->link().requestStop(); }

void RunState::IPAdressText_Change() {
    if (!running_ && linkedElsewhere()) instrument_->close();
}

bool RunState::linkedElsewhere() const {
    return instrument_->linkedElsewhere(settings_.analysis.IPAdressText, settings_.analysis.Instrument);
}

bool RunState::linked() const { return instrument_->linked(); }

std::string RunState::linkedInstrument() const {
    const std::string peer = instrument_->link().peer();
    return instrument_->linked() && !peer.empty() ? setup_.Model + " at " + peer : std::string();
}
void RunState::setReplyTimeoutMs(int ms) { instrument_->link().setReplyTimeoutMs(ms); }
void RunState::setExchangeDeadlineMs(int ms) { instrument_->link().setExchangeDeadlineMs(ms); }
void RunState::abortLink() { instrument_->link().abort(); }

Outcome RunState::connectInstrument(UiPort& ui, const std::string& ip) {
    return instrument_->connect(setup_, ui, ip, settings_.analysis.Instrument);
}

Outcome RunState::ConnectInstrument(UiPort& ui, const std::string& ip) {
    return InstrumentFailure(connectInstrument(ui, ip));
}

Outcome RunState::ReadInstrumentSetup(UiPort& ui, const std::string& ip) {
    return InstrumentFailure(instrument_->readSetup(setup_, ui, ip, settings_.analysis.Instrument, false));
}

Outcome RunState::HandBackInstrument() { return InstrumentFailure(instrument_->returnToLocal()); }

FeatureSupport RunState::instrumentSupports(InstrumentFeature feature) const {
    return instrument_->supports(feature, settings_.analysis.Instrument);
}

std::string RunState::instrumentFamily() const {
    return std::string(instrument_->family(settings_.analysis.Instrument).name);
}

uint16_t RunState::probedPort() const { return instrument_->probedPort(); }

Outcome RunState::ReadRejectRange_Click(UiPort& ui) { return StopToStatus(ui, readRejectRange(ui)); }

Outcome RunState::readRejectRange(UiPort& ui) {
    if (!WavesPresent || !settings_.analysis.OmitRangeEffect || record_.WaveLength < 500) return Outcome::Ok();
    return Guarded([&]() -> Outcome {
        ApplyExchangeDeadline(instrument_->link(), settings_.analysis.TimeoutSeconds);
        settings_.RejectRangeSet = false;
        if (!running_ && linkedElsewhere()) instrument_->close();
        if (!instrumentSupports(InstrumentFeature::RejectRange).available) return Outcome::Ok();
        if (!instrument_->linked()) {
            Outcome linked =
                ShownInLinkBox(ui, InstrumentFailure(connectInstrument(ui, settings_.analysis.IPAdressText)));
            if (!linked) return linked;
        }
        if (Outcome local = instrument_->returnToLocal(); !local) return InstrumentFailure(std::move(local));
        const std::string direction = instrument_->driver(settings_.analysis.Instrument).rejectRangePrompt();
        if (ui.messageBox(direction, MsgButtons::OkCancel, kDirectionTitle) == MsgAnswer::Cancel) return Outcome::Ok();
        ZoomReadout zoom;
        if (Outcome read = instrument_->readRejectRange(setup_, record_.WaveLength, zoom); !read)
            return InstrumentFailure(std::move(read));
        ZoomTimePerDiv = zoom.ZoomTimePerDiv;
        ZoomDelay = zoom.ZoomDelay;
        ZoomStart = zoom.range.ZoomStart;
        ZoomEnd = zoom.range.ZoomEnd;
        settings_.RejectRangeSet = zoom.CursorsFromDso;
        settings_.RejectStart = zoom.range.RejectStart;
        settings_.RejectEnd = zoom.range.RejectEnd;
        AnalysisCommon(ui);
        return Outcome::Ok();
    });
}

Outcome RunState::WaveSave_Click(UiPort& ui) {
    if (!running_) instrument_->link().clearStop();  // a Stop of the last run is not meant for this
    Outcome saved = Guarded([&]() -> Outcome {
        ApplyExchangeDeadline(instrument_->link(), settings_.analysis.TimeoutSeconds);
        const std::string dataDir = JoinPath(dataFolder_, "Data");
        const std::string screenDir = JoinPath(dataFolder_, "VScreen");
        const std::string base = sampleName();
        if (Outcome names = checkFileNames(true); !names) return names;
        if (settings_.analysis.SaveWavesCheck) {
            makeFolder(dataDir);
            const std::string file = JoinPath(dataDir, base + ".csv");
            if (FileExists(file) &&
                ui.messageBox(kMayIOverwrite, MsgButtons::YesNo, kConfirmationTitle) == MsgAnswer::No) {
                ui.setStatus(1, kAbortedStoring);
            } else {
                if (Outcome written = SaveWaveCsv(file, setup_, record_); !written) return written;
                ui.setStatus(1, kStoredData);
            }
        }
        if (!settings_.analysis.SaveScreenCheck) return Outcome::Ok();
        if (!running_ && linkedElsewhere()) instrument_->close();
        if (const FeatureSupport screen = instrumentSupports(InstrumentFeature::Screen); !screen.available)
            return {ErrorCode::BadOption, screen.whyNot};
        makeFolder(screenDir);
        ui.setStatus(1, kStoringScreen);
        Outcome screen = ShownInLinkBox(
            ui, instrument_->saveScreen(setup_, ui, settings_.analysis.IPAdressText, settings_.analysis.Instrument,
                                        JoinPath(screenDir, base + ".png")));
        if (!screen && !screen.wasReported()) return screen;
        ui.setStatus(1, kCompletedScreen);  // after the link's own box too, as it always was
        return screen;
    });
    return StopToStatus(ui, std::move(saved));
}

}  // namespace mervasto
