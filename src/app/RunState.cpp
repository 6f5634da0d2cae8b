#include "app/RunState.h"

#include "analysis/Levels.h"
#include "app/core/DataFolders.h"
#include "app/core/ResumeFile.h"
#include "app/core/Startup.h"
#include "app/SampleCodeFill.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextFile.h"
#include "common/TextUtil.h"
#include "dso/DsoLink.h"
#include "results/Comparator.h"
#include "results/ResultFiles.h"

#include <algorithm>
#include <exception>

namespace mervasto {

namespace {
constexpr const char* kSelectInputTitle = "Select Input data file.";
constexpr const char* kDebugProposal = "C1Trace_pulse_00010.csv";

std::string nextIndexText(const std::string& index) { return std::to_string(ToInt16(Val(index) + 1)); }
}  // namespace

void RunHandler(UiPort& ui, const std::function<void()>& body) {
    try {
        body();
    } catch (const RuntimeError& e) {
        ui.messageBox(e.what(), MsgButtons::Ok, kRunTimeErrorTitle);
    } catch (const std::exception& e) {
        ui.messageBox(e.what(), MsgButtons::Ok, kRunTimeErrorTitle);
    }
}

RunState::RunState() : link(std::make_unique<DsoLink>()) {
    SetupResultGrid1(ResultGrid1);
    SetupLogGrid(LogGrid, 1000);
    SetupDetailDataGrid(DetailDataGrid, kDetailStartCycles);
}

RunState::~RunState() = default;

void RunState::FormLoad(const std::string& dataFolderOverride) {
    DataFolder =
        PrepareDataFolder(dataFolderOverride.empty() ? std::nullopt : std::optional<std::string>(dataFolderOverride));
    settingsProblems = LoadResumeParam(ResumeFileName(DataFolder), settings).problems;
    SmoothingCount = ApplyStartupSettings(settings, DataFolder);
    SetupResultGrid1(ResultGrid1);
    SetupLogGrid(LogGrid, static_cast<int32_t>(Val(settings.analysis.TotalRepeats)));
    SetupDetailDataGrid(DetailDataGrid, kDetailStartCycles);
    RunDone = WavesPresent = TransferFailed = false;
    logFirst = true;
}

Outcome RunState::FormUnload() {
    Outcome saved = SaveResumeParam(ResumeFileName(DataFolder), settings);
    if (link) link->close();
    return saved;
}

bool RunState::LoadSettingsFrom(const std::string& fileName) {
    if (!FileExists(fileName)) return false;
    settingsProblems = LoadResumeParam(fileName, settings).problems;
    SmoothingCount = ApplyStartupSettings(settings, DataFolder);
    return true;
}

Outcome RunState::checkFileNames(bool sample, bool detail, bool waveTable) const {
    Outcome ok = sample ? CheckFileNamePart(sampleName(), "The sample name") : Outcome::Ok();
    if (ok && detail) ok = CheckFileNamePart(settings.DetailBaseName, "The detail file name");
    if (ok && waveTable) ok = CheckFileNamePart(settings.WaveBaseName, "The wave data file name");
    return ok;
}

std::string RunState::resultFileName() const { return JoinPath(JoinPath(DataFolder, "OutputData"), kResultFileName); }

bool RunState::channelStateOn(int ch) const { return setup.traceOn(ch) == kChannelStateOn; }

std::array<std::string, kAnaChannels> RunState::typeTexts() const {
    std::array<std::string, kAnaChannels> t;
    for (int ch = 0; ch < kAnaChannels; ++ch)
        t[static_cast<size_t>(ch)] = std::string(settings.channels[static_cast<size_t>(ch)].signalText());
    return t;
}

ChannelDisplays RunState::channelDisplays() const {
    ChannelDisplays d;
    for (int ch = 0; ch < kAnaChannels; ++ch) {
        const auto& c = settings.channels[static_cast<size_t>(ch)];
        auto& o = d[static_cast<size_t>(ch)];
        o.typeIndex = c.ChInputSignal;
        o.typeText = std::string(c.signalText());
        o.SigName = c.SigName;
        o.DispOffCheck = c.DispOffCheck;
        o.channelState = setup.traceOn(ch);
        o.VRate = Val(c.VRate);
        o.backColour = static_cast<uint32_t>(c.BackColor);
        o.foreColour = static_cast<uint32_t>(c.ForeColor);
        o.note = results.note[static_cast<size_t>(ch)];
    }
    return d;
}

AnalysisParams RunState::analysisParams(AnalysisEntry entry) const {
    const auto& a = settings.analysis;
    AnalysisParams p;
    p.Histerisis = static_cast<float>(Val(a.Histerisis));
    p.PLevel = static_cast<float>(Val(a.PLevel));
    p.LimitPoints = static_cast<float>(Val(a.LimitPoints));
    p.MaxCycles = ToInt32(Val(a.MaxCycles));
    p.SmoothingNo = SmoothingCountOf(a.SmoothingNo);
    p.OmitRangeEffect = a.OmitRangeEffect;
    p.MemoryInput = MemoryInput;
    for (int ch = 0; ch < kAnaChannels; ++ch) {
        const auto& c = settings.channels[static_cast<size_t>(ch)];
        auto& o = p.channel[static_cast<size_t>(ch)];
        o.DispOff = c.DispOffCheck;
        o.SignalType = c.ChInputSignal;
        o.VRate = Val(c.VRate);
        o.PPCheck = c.PPCheck;
        o.DutyCheck = c.DutyCheck;
        o.channelStateOn = channelStateOn(ch);
    }
    p.rejectFlag = settings.RejectRangeSet;
    p.rejectStart = settings.RejectStart;
    p.rejectEnd = settings.RejectEnd;
    p.produceMessages = entry != AnalysisEntry::CommAnaProcess;
    p.requireStateOn = entry != AnalysisEntry::AnalysisCommon;
    p.levelMethod = a.LevelMethod == kLevelHalves ? LevelMethod::Halves : LevelMethod::Peaks;
    return p;
}

AnalysisInput RunState::analysisInput() const {
    AnalysisInput in;
    for (int ch = 0; ch < kAnaChannels; ++ch) {
        in.volts[static_cast<size_t>(ch)] = record.wave[static_cast<size_t>(ch)];
        in.raw[static_cast<size_t>(ch)] = record.raw[static_cast<size_t>(ch)];
        in.VoltsPerDiv[static_cast<size_t>(ch)] = setup.voltsPerDiv(ch);
        in.Offset[static_cast<size_t>(ch)] = setup.offset(ch);
    }
    in.WaveLength = record.WaveLength;
    in.SampleSec = record.SampleSec;
    return in;
}

void RunState::refreshResultGrid() {
    TotalWaveDatas = Disp_Result(ResultGrid1, record.WaveLength, channelDisplays(), results.table);
    resultsChanged();
}

void RunState::runAnalysis(UiPort* ui, AnalysisEntry entry) {
    lastOutcome = RunAnalysis(analysisInput(), analysisParams(entry), results);
    // Ch3 and Ch4 of a file whose model gives no channel count: say why they are empty.
    if (InputSource == kInputTypeFile && !lastFileLoad.channelCountNote.empty())
        for (size_t ch = 2; ch < kChannels; ++ch)
            if (results.note[ch].empty()) results.note[ch] = lastFileLoad.channelCountNote;
    if (lastOutcome.rejectRangeDropped) settings.RejectRangeSet = false;
    if (ui)
        for (const auto& m : lastOutcome.messages) ui->messageBox(m.text, MsgButtons::Ok, m.title);
    JudgeAll(results.table);
    if (ui && entry != AnalysisEntry::CommAnaProcess) ui->setStatus(1, kCompletedAnalysis);
    refreshResultGrid();
}

void RunState::AnalysisCommon(UiPort& ui) { runAnalysis(&ui, AnalysisEntry::AnalysisCommon); }

void RunState::CommAnaProcess(UiPort& ui) {
    (void)ui;
    runAnalysis(nullptr, AnalysisEntry::CommAnaProcess);
}

void RunState::LimitPoints_KeyPress(UiPort& ui) {
    RunHandler(ui, [&] {
        runAnalysis(&ui, AnalysisEntry::LimitPointsKeyPress);
        SaveResults(ui);
    });
}

void RunState::OmitRangeEffect_Click(UiPort& ui) { LimitPoints_KeyPress(ui); }

void RunState::LimitEdited(UiPort& ui) {
    if (!WavesPresent) {
        refreshResultGrid();
        return;
    }
    CommAnaProcess(ui);
    SaveResults(ui);
}

bool RunState::SaveResults(UiPort& ui) {
    if (!saveResultLine) return true;
    return resultLines.append(ui, resultFileName(), typeTexts(), ResultDataLine(sampleName(), results.table));
}

bool RunState::SaveUnsavedResults(UiPort& ui) { return resultLines.flush(ui, resultFileName(), typeTexts()); }

Outcome RunState::WaveTrans(UiPort& ui, std::string_view InpType, const std::string& filename) {
    if (InpType != kInputTypeFile) return TransferFromDso(ui);

    lastFileLoad = fileLoader ? fileLoader(filename, setup, record, fieldTable)
                              : LoadAnyWaveCsv(filename, setup, record, fieldTable, importOptions);
    const WaveCsvLoadResult& loaded = lastFileLoad;
    if (loaded.status < 0) {
        ui.setStatus(2, loaded.errorText);
        return Outcome(ErrorCode::FileIo,
                       loaded.errorText.empty() ? "The wave file could not be read." : loaded.errorText)
            .reported();
    }
    if (setup.RecordLength > kMaxSamples)
        throw RuntimeError(ErrorCode::Subscript, "The record is longer than 5000011 samples.");
    record.WaveLength = setup.RecordLength;
    record.SampleSec = setup.SampleInterval;
    record.ensureLength(record.WaveLength);

    FillSampleCodes(setup, record);
    ui.setStatus(1, kCompletedAllTranslations);
    return Outcome::Ok();
}

bool RunState::InputFromFile_Click(UiPort& ui) {
    bool analysing = false;
    try {
        settings.analysis.SmoothingNo = CheckSmoothingNo(settings.analysis.SmoothingNo);
        SmoothingCount = SmoothingCountOf(settings.analysis.SmoothingNo);
        InputSource = kInputTypeFile;
        std::string proposal = DebugCheck ? std::string(kDebugProposal) : sampleName() + ".csv";
        auto chosen = ui.chooseOpenFile(kSelectInputTitle, proposal, JoinPath(DataFolder, "Data"), "*.csv");
        if (!chosen) throw RuntimeError(ErrorCode::Canceled, kCanceled);
        if (RunDone) settings.analysis.SampleIndex = nextIndexText(settings.analysis.SampleIndex);
        if (const Outcome loaded = WaveTrans(ui, kInputTypeFile, *chosen); !loaded)
            throw RuntimeError(loaded.code(), loaded.text());
        WavesPresent = true;
        RunDone = true;
        analysing = true;
        runAnalysis(&ui, AnalysisEntry::AnalysisCommon);
        DispDetailData(DetailDataGrid, channelDisplays(), results.cycles, record.SampleSec);
        SaveResults(ui);
        // A file that loaded with something to say (cut short, say): panel 2.
        std::string warnings;
        for (const auto& w : lastFileLoad.warnings) warnings += (warnings.empty() ? "" : " ") + w;
        if (!warnings.empty()) ui.setStatus(2, warnings);
        settingsChanged();
        recordChanged();
        gridsChanged();
        return true;
    } catch (const RuntimeError& e) {
        if (analysing) {
            ui.messageBox(e.what(), MsgButtons::Ok, kRunTimeErrorTitle);
            return false;
        }
        ui.setStatus(1, kInputFromFileCanceled);
        if (e.code() != ErrorCode::Canceled) ui.setStatus(2, e.what());
        return false;
    }
}

void RunState::MaxCycles_KeyPress() {
    auto& t = settings.analysis.MaxCycles;
    if (RoundHalfEven(Val(t)) >= 500000) t = "500000";
    ResizeDetailDataGrid(DetailDataGrid, static_cast<int32_t>(std::clamp(RoundHalfEven(Val(t)), 0.0, 500000.0)));
    settingsChanged();
    gridsChanged();
}

void RunState::TotalRepeats_KeyPress() {
    auto& t = settings.analysis.TotalRepeats;
    if (RoundHalfEven(Val(t)) >= 16000) t = "16000";
    ResizeLogGrid(LogGrid, static_cast<int32_t>(std::clamp(RoundHalfEven(Val(t)), 0.0, 16000.0)));
    settingsChanged();
    gridsChanged();
}

void RunState::Histerisis_KeyPress() {
    auto& t = settings.analysis.Histerisis;
    if (RoundHalfEven(Val(t)) >= 50) t = "50";
}

void RunState::SampleNo_KeyPress() {
    settings.analysis.SampleIndex = "1";
    RunDone = false;
}

void RunState::ColorInit_Click() {
    const auto defaults = Settings::defaultChannels();
    for (size_t ch = 0; ch < settings.channels.size(); ++ch) settings.channels[ch].BackColor = defaults[ch].BackColor;
    refreshResultGrid();
}

void RunState::ResultCopy_Click(UiPort& ui, int index, int32_t row1, int32_t col1, int32_t row2, int32_t col2) {
    const Grid& grid = index == 0 ? LogGrid : DetailDataGrid;
    RunHandler(ui, [&] {
        ui.setClipboardText(GridClipboardText(grid, row1, col1, row2, col2));
        ui.messageBox(kResultCopiedText, MsgButtons::Ok, kResultCopiedTitle);
    });
}

void RunState::SelDataSaveFile_Click(UiPort& ui) {
    auto chosen = ui.chooseSaveFile(kDetailSaveTitle, settings.DetailFileName, settings.OutputFolder, "*.csv");
    if (!chosen) {
        ui.setStatus(1, kCanceled);
        return;
    }
    const std::string& path = *chosen;
    size_t cut = path.find_last_of("/\\");
    std::string folder = cut == std::string::npos ? std::string() : path.substr(0, cut);
    std::string name = cut == std::string::npos ? path : path.substr(cut + 1);
    std::string base = name.size() > 4 ? name.substr(0, name.size() - 4) : std::string();
    settings.OutputFolder = folder;
    settings.DetailFileName = name;
    settings.DetailBaseName = base;
    settings.WaveBaseName = base + "_Wave";
    settings.analysis.DDSaveCheck = true;
}

bool RunState::LoadComparator(UiPort& ui, const std::string& fileName) {
    settings.ComparatorFile = fileName;
    if (!FileExists(fileName)) {
        ui.messageBox(kNoFile, MsgButtons::Ok, fileName);
        return false;
    }
    ComparatorLoad load = LoadComparatorFile(fileName, results.table);
    if (!load.ok) ui.messageBox(load.message, MsgButtons::Ok, kConfirmationTitle);
    JudgeAll(results.table);
    refreshResultGrid();
    return load.ok;
}

void RunState::SelectComparator_Click(UiPort& ui) {
    // The dialog opens where the last comparator file was, with its name.
    std::string folder = JoinPath(DataFolder, "Comparator");
    std::string name = settings.ComparatorFile;
    if (const size_t cut = name.find_last_of("/\\"); cut != std::string::npos) {
        folder = name.substr(0, cut);
        name = name.substr(cut + 1);
    }
    auto chosen = ui.chooseOpenFile(kSelectComparatorTitle, name, folder, "*.txt;*.csv");
    if (!chosen) return;
    LoadComparator(ui, *chosen);
}

}  // namespace mervasto
