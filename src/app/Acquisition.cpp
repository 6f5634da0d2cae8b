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
#include "dso/DsoScreen.h"
#include "dso/DsoSetupReadout.h"
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
constexpr const char* kDirectionText = "Set to Zoom Mode and Set Reject Range by Cursor !";
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

// The run's own flow ends a pass by exception: an instrument failure goes on as one.
void ThrowIfFailed(const Outcome& outcome) {
    if (!outcome) throw RuntimeError(outcome.code(), outcome.text());
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
    Outcome transferred = mervasto::TransferFromDso(*link_, setup_, record_, ui, in);
    if (transferred) {
        for (size_t ch = 0; ch < kChannels; ++ch) settings_.channels[ch].VRate = vrates[ch];
        return transferred;
    }
    if (ShowLinkBox(ui, transferred)) {
        ui.setStatus(1, kFailedTranslationSetup);
        return Outcome(transferred).reported();
    }
    ThrowIfFailed(transferred);
    return transferred;
}

void RunState::runPass(UiPort& ui) {
    PrepareDsoForPass(*link_, setup_);
    if (settings_.analysis.DaqCheck) {
        ui.setStatus(1, kAcquiringNewData);
        if (link_->WaitSingleAcquisition()) ui.setStatus(1, kAcquisitionAborted);
    }
    ui.setStatus(1, kTransferingWaves);
    InputSource = kInputTypeDso;
    const Outcome transferred = WaveTrans(ui, kInputTypeDso, {});
    WavesPresent = true;
    recordChanged();
    if (!transferred) {
        TransferFailed = true;
        if (runFailure_.ok()) runFailure_ = Outcome(ErrorCode::Link, kFailedTranslationSetup);
        return;
    }
    ReadRejectRange_Click(ui);
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
    SaveResults(ui);
    ++passesDone_;
    gridsChanged();
    passFinished();
}

void RunState::passWriteFailed(UiPort& ui, const Outcome& failed) {
    ui.messageBox(failed.text(), MsgButtons::Ok, kRunTimeErrorTitle);
    TransferFailed = true;
    if (runFailure_.ok()) runFailure_ = failed;  // the first failure stands
}

void RunState::WFStartCommand_Click(UiPort& ui) {
    if (running_) return;
    runFailure_ = Outcome::Ok();
    // A Stop left over from an earlier run must not cut this run's connect.
    link_->clearStop();
    ApplyExchangeDeadline(*link_, settings_.analysis.TimeoutSeconds);
    if (!link_->DsoLinked) {
        const Outcome linked = ConnectAndIdentify(*link_, setup_, ui, settings_.analysis.IPAdressText);
        if (!linked) {
            if (!ShowLinkBox(ui, linked)) RunHandler(ui, [&] { ThrowIfFailed(linked); });
            runFailure_ = Outcome(ErrorCode::Link, kDsoNotConnected);
            return;
        }
    }
    running_ = true;
    bool single = false;
    try {
        auto& a = settings_.analysis;
        a.SmoothingNo = CheckSmoothingNo(a.SmoothingNo);
        SmoothingCount = SmoothingCountOf(a.SmoothingNo);
        if (RoundHalfEven(Val(a.TotalRepeats)) >= 16000) a.TotalRepeats = "16000";
        RepeatLimit = ToInt32(Val(a.TotalRepeats));
        SetupLogGrid(logGrid_, std::max(RepeatLimit, 0));
        logFirst = true;
        link_->StopRequested = false;
        if (runDone_) a.SampleIndex = std::to_string(ToInt16(Val(a.SampleIndex) + 1));
        settingsChanged();
        gridsChanged();
        runStarted();
        if (a.RepeatCheck) {
            repeatCounter_ = 1;
            while (repeatCounter_ <= RepeatLimit) {
                TransferFailed = false;
                ui.setStatus(1, kRepeatCount + std::to_string(repeatCounter_));
                runPass(ui);
                if (TransferFailed || link_->StopRequested || !a.DaqCheck) break;
                if (repeatCounter_ == INT32_MAX)
                    throw RuntimeError(ErrorCode::Overflow, "Overflow: the repeat counter.");
                ++repeatCounter_;
            }
        } else {
            single = true;
            TransferFailed = false;
            ui.setStatus(1, "");
            repeatCounter_ = 1;
            runPass(ui);
            runDone_ = true;
        }
        if (single && !TransferFailed) ui.setStatus(1, kCompletedTransfer);
    } catch (const RuntimeError& e) {
        runFailure_ = Outcome::From(e);
        // A Stop that had to cut an exchange is the user's doing, not a fault to be boxed.
        if (e.code() == ErrorCode::Canceled)
            ui.setStatus(1, e.what());
        else if (!link_->aborted())
            ui.messageBox(e.what(), MsgButtons::Ok, kLinkErrorTitle);
    }
    const Outcome local = ReturnToLocal(*link_);
    if (!local) ui.setStatus(2, local.text());
    running_ = false;
    runEnded(runFailure_);
}

void RunState::Stop_Click() { link_->requestStop(); }

bool RunState::linked() const { return link_->DsoLinked; }
void RunState::setReplyTimeoutMs(int ms) { link_->setReplyTimeoutMs(ms); }
void RunState::setExchangeDeadlineMs(int ms) { link_->setExchangeDeadlineMs(ms); }
void RunState::abortLink() { link_->abort(); }

Outcome RunState::ConnectInstrument(UiPort& ui, const std::string& ip) {
    return ConnectAndIdentify(*link_, setup_, ui, ip);
}

Outcome RunState::ReadInstrumentSetup(UiPort& ui, const std::string& ip) {
    return ReadDsoSetup(*link_, setup_, ui, ip, false);
}

Outcome RunState::HandBackInstrument() { return ReturnToLocal(*link_); }

void RunState::ReadRejectRange_Click(UiPort& ui) {
    if (!WavesPresent || !settings_.analysis.OmitRangeEffect || record_.WaveLength < 500) return;
    ApplyExchangeDeadline(*link_, settings_.analysis.TimeoutSeconds);
    settings_.RejectRangeSet = false;
    if (!link_->DsoLinked) {
        const Outcome linked = ConnectAndIdentify(*link_, setup_, ui, settings_.analysis.IPAdressText);
        if (!linked && ShowLinkBox(ui, linked)) return;
        ThrowIfFailed(linked);
    }
    ThrowIfFailed(ReturnToLocal(*link_));
    if (ui.messageBox(kDirectionText, MsgButtons::OkCancel, kDirectionTitle) == MsgAnswer::Cancel) return;
    ZoomReadout zoom;
    ThrowIfFailed(ReadRejectRangeFromDso(*link_, setup_, record_.WaveLength, zoom));
    ZoomTimePerDiv = zoom.ZoomTimePerDiv;
    ZoomDelay = zoom.ZoomDelay;
    ZoomStart = zoom.range.ZoomStart;
    ZoomEnd = zoom.range.ZoomEnd;
    settings_.RejectRangeSet = zoom.CursorsFromDso;
    settings_.RejectStart = zoom.range.RejectStart;
    settings_.RejectEnd = zoom.range.RejectEnd;
    AnalysisCommon(ui);
}

void RunState::WaveSave_Click(UiPort& ui) {
    if (!running_) link_->clearStop();  // a Stop of the last run is not meant for this
    ApplyExchangeDeadline(*link_, settings_.analysis.TimeoutSeconds);
    RunHandler(ui, [&] {
        const std::string dataDir = JoinPath(dataFolder_, "Data");
        const std::string screenDir = JoinPath(dataFolder_, "VScreen");
        const std::string base = sampleName();
        ThrowIfFailed(checkFileNames(true));
        if (settings_.analysis.SaveWavesCheck) {
            makeFolder(dataDir);
            const std::string file = JoinPath(dataDir, base + ".csv");
            if (FileExists(file) &&
                ui.messageBox(kMayIOverwrite, MsgButtons::YesNo, kConfirmationTitle) == MsgAnswer::No) {
                ui.setStatus(1, kAbortedStoring);
            } else {
                const Outcome saved = SaveWaveCsv(file, setup_, record_);
                ThrowIfFailed(saved);  // the run-time error box
                ui.setStatus(1, kStoredData);
            }
        }
        if (settings_.analysis.SaveScreenCheck) {
            makeFolder(screenDir);
            ui.setStatus(1, kStoringScreen);
            const Outcome saved =
                SaveDsoScreen(*link_, ui, settings_.analysis.IPAdressText, JoinPath(screenDir, base + ".png"));
            if (!saved && !ShowLinkBox(ui, saved)) ThrowIfFailed(saved);
            ui.setStatus(1, kCompletedScreen);
        }
    });
}

}  // namespace mervasto
