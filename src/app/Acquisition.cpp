// The instrument handlers of the run state: a run of passes, the reject range
// from the zoom cursors, and saving the waves and the instrument's screen.
#include "app/RunState.h"

#include "app/core/DataFolders.h"
#include "app/core/Startup.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextFile.h"
#include "common/TextUtil.h"
#include "dso/DsoLink.h"
#include "dso/DsoSetupReadout.h"
#include "dso/DsoScreen.h"
#include "dso/WaveTransfer.h"
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
constexpr const char* kTranslationSetup = "Translation the DSO setup.";
constexpr const char* kFailedTranslationSetup = "Failed translation of the DSO setup.";
constexpr const char* kTransferringWaves = "Transferring waves from the DSO.";
constexpr const char* kCompletedWaveTranslation = "Completed wave translation.";
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

void makeFolder(const std::string& path) {
    std::error_code ec;
    std::filesystem::create_directories(PathFromText(path), ec);
}
}  // namespace

int16_t RunState::TransferFromDso(UiPort& ui) {
    ui.setStatus(1, kTranslationSetup);
    if (ReadDsoSetup(*link, setup, ui, settings.analysis.IPAdressText, MemoryInput)) {
        ui.setStatus(1, kFailedTranslationSetup);
        return -1;
    }
    record.WaveLength = setup.RecordLength;
    record.SampleSec = setup.SampleInterval;
    ui.setStatus(1, kTransferringWaves);
    std::array<std::string, 4> vrates;
    for (size_t ch = 0; ch < 4; ++ch) vrates[ch] = settings.channels[ch].VRate;
    WaveTransferContext ctx{setup, record, vrates, std::string(settings.channels[3].signalText()), &ui};
    for (int ch = 0; ch < kAnaChannels; ++ch) {
        if (ch >= setup.ChannelCount) {
            record.raw[static_cast<size_t>(ch)].clear();
            continue;
        }
        TransferDsoChannel(*link, ch, ctx, record);
    }
    ui.progress(0, 0);
    for (size_t ch = 0; ch < 4; ++ch) settings.channels[ch].VRate = vrates[ch];
    record.WaveLength = setup.RecordLength;
    record.ensureLength(record.WaveLength);
    ui.setStatus(1, kCompletedWaveTranslation);
    return 0;
}

void RunState::runPass(UiPort& ui) {
    if (Val(MidText(setup.Model, 5, 1)) > 3) link->SendDsoCommand("STOP;ROLL OFF;DISP OFF");
    if (settings.analysis.DaqCheck) {
        ui.setStatus(1, kAcquiringNewData);
        if (link->WaitSingleAcquisition()) ui.setStatus(1, kAcquisitionAborted);
    }
    ui.setStatus(1, kTransferingWaves);
    InputSource = kInputTypeDso;
    int16_t status = WaveTrans(ui, kInputTypeDso, {});
    WavesPresent = true;
    if (onChanged) onChanged();
    if (status < 0) {
        TransferFailed = true;
        if (RunFailure.empty()) RunFailure = kFailedTranslationSetup;
        return;
    }
    ReadRejectRange_Click(ui);
    AnalysisCommon(ui);
    const ChannelDisplays displays = channelDisplays();
    CopyResultToLog(logFirst ? 1 : 0, ResultGrid1, LogGrid, displays);
    logFirst = false;
    DispDetailData(DetailDataGrid, displays, results.cycles, record.SampleSec);
    const std::string counter = std::to_string(RepeatCounter);
    if (settings.analysis.DDSaveCheck)
        SaveDetailData(JoinPath(settings.OutputFolder, settings.DetailBaseName + "_" + counter + ".csv"),
                       DetailDataGrid);
    if (settings.analysis.WDSaveCheck) {
        std::array<bool, 4> shown{};
        for (size_t ch = 0; ch < 4; ++ch) shown[ch] = !settings.channels[ch].DispOffCheck;
        AppendWaveTable(JoinPath(settings.OutputFolder, settings.WaveBaseName + "_" + counter + ".csv"), record,
                        record.WaveLength, shown);
    }
    SaveResults(ui);
    ++passesDone;
    if (onChanged) onChanged();
}

void RunState::WFStartCommand_Click(UiPort& ui) {
    if (Running) return;
    RunFailure.clear();
    // A Stop left over from an earlier run must not cut this run's connect.
    link->clearStop();
    ApplyExchangeDeadline(*link, settings.analysis.TimeoutSeconds);
    if (!link->DsoLinked) {
        bool linked = false;
        RunHandler(ui, [&] { linked = ConnectAndIdentify(*link, setup, ui, settings.analysis.IPAdressText); });
        if (!linked) {
            RunFailure = kDsoNotConnected;
            return;
        }
    }
    Running = true;
    bool single = false;
    try {
        auto& a = settings.analysis;
        a.SmoothingNo = CheckSmoothingNo(a.SmoothingNo);
        SmoothingCount = SmoothingCountOf(a.SmoothingNo);
        if (RoundHalfEven(Val(a.TotalRepeats)) >= 16000) a.TotalRepeats = "16000";
        RepeatLimit = ToInt32(Val(a.TotalRepeats));
        SetupLogGrid(LogGrid, std::max(RepeatLimit, 0));
        logFirst = true;
        link->StopRequested = false;
        if (RunDone) a.SampleIndex = std::to_string(ToInt16(Val(a.SampleIndex) + 1));
        if (onChanged) onChanged();
        if (a.RepeatCheck) {
            RepeatCounter = 1;
            while (RepeatCounter <= RepeatLimit) {
                TransferFailed = false;
                ui.setStatus(1, kRepeatCount + std::to_string(RepeatCounter));
                runPass(ui);
                if (TransferFailed || link->StopRequested || !a.DaqCheck) break;
                if (RepeatCounter == INT32_MAX)
                    throw RuntimeError(ErrorCode::Overflow, "Overflow: the repeat counter.");
                ++RepeatCounter;
            }
        } else {
            single = true;
            TransferFailed = false;
            ui.setStatus(1, "");
            RepeatCounter = 1;
            runPass(ui);
            RunDone = true;
        }
        if (single && !TransferFailed) ui.setStatus(1, kCompletedTransfer);
    } catch (const RuntimeError& e) {
        RunFailure = e.what();
        // A Stop that had to cut an exchange is the user's doing, not a fault to be boxed.
        if (e.code() == ErrorCode::Canceled)
            ui.setStatus(1, e.what());
        else if (!link->aborted())
            ui.messageBox(e.what(), MsgButtons::Ok, kLinkErrorTitle);
    }
    try {
        if (link->DsoLinked) link->SendDsoCommand("GTL");
    } catch (const RuntimeError& e) {
        ui.setStatus(2, e.what());
    }
    Running = false;
    if (onChanged) onChanged();
}

void RunState::Stop_Click() { link->requestStop(); }

void RunState::ReadRejectRange_Click(UiPort& ui) {
    if (!WavesPresent || !settings.analysis.OmitRangeEffect || record.WaveLength < 500) return;
    ApplyExchangeDeadline(*link, settings.analysis.TimeoutSeconds);
    settings.RejectRangeSet = false;
    if (!link->DsoLinked && !ConnectAndIdentify(*link, setup, ui, settings.analysis.IPAdressText)) return;
    link->SendDsoCommand("GTL");
    if (ui.messageBox(kDirectionText, MsgButtons::OkCancel, kDirectionTitle) == MsgAnswer::Cancel) return;
    ZoomTimePerDiv = static_cast<float>(Val(link->QueryDso("TDIV?", 80)));
    ZoomDelay = static_cast<float>(Val(link->QueryDso("TRDL?", 80)));
    const double T = setup.TimePerDiv;
    const double D = setup.TriggerDelay;
    const double N = record.WaveLength;
    if (T == 0) throw RuntimeError(ErrorCode::DivisionByZero, "Division by zero: the time base is 0.");
    const double shift = (D - ZoomDelay) / T * (N / 10);
    ZoomStart = ToInt32(N / 2 - (ZoomTimePerDiv / T) * N / 2 + shift);
    ZoomEnd = ToInt32((ZoomTimePerDiv / T) * N + ZoomStart);
    ReadDsoCursors(*link, setup);
    settings.RejectRangeSet = setup.CursorsFromDso;
    const double c1 = setup.CursorPos[1];
    const double c2 = setup.CursorPos[2];
    settings.RejectStart = ToInt32(((10 - c1) * ZoomStart + c1 * ZoomEnd) / 10);
    settings.RejectEnd = ToInt32(((10 - c2) * ZoomStart + c2 * ZoomEnd) / 10);
    link->SendDsoCommand("TDIV " + ShortestText(setup.TimePerDiv));
    link->SendDsoCommand("GTL");
    AnalysisCommon(ui);
}

void RunState::WaveSave_Click(UiPort& ui) {
    if (!Running) link->clearStop();  // a Stop of the last run is not meant for this
    ApplyExchangeDeadline(*link, settings.analysis.TimeoutSeconds);
    RunHandler(ui, [&] {
        const std::string dataDir = JoinPath(DataFolder, "Data");
        const std::string screenDir = JoinPath(DataFolder, "VScreen");
        const std::string base = sampleName();
        if (settings.analysis.SaveWavesCheck) {
            makeFolder(dataDir);
            const std::string file = JoinPath(dataDir, base + ".csv");
            if (FileExists(file) &&
                ui.messageBox(kMayIOverwrite, MsgButtons::YesNo, kConfirmationTitle) == MsgAnswer::No) {
                ui.setStatus(1, kAbortedStoring);
            } else {
                SaveWaveCsv(file, setup, record);
                ui.setStatus(1, kStoredData);
            }
        }
        if (settings.analysis.SaveScreenCheck) {
            makeFolder(screenDir);
            ui.setStatus(1, kStoringScreen);
            SaveDsoScreen(*link, ui, settings.analysis.IPAdressText, JoinPath(screenDir, base + ".png"));
            ui.setStatus(1, kCompletedScreen);
        }
    });
}

}  // namespace mervasto
