#include "app/RunState.h"

#include "analysis/Levels.h"
#include "app/core/DataFolders.h"
#include "app/core/EncoderSettings.h"
#include "app/core/ResumeFile.h"
#include "app/core/SettingsTable.h"
#include "app/core/Startup.h"
#include "app/SampleCodeFill.h"
#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextFile.h"
#include "common/TextUtil.h"
#include "dso/Instrument.h"
#include "results/Comparator.h"
#include "results/ResultFiles.h"

#include <algorithm>

namespace mervasto {

namespace {
constexpr const char* kSelectInputTitle = "Select Input data file.";
constexpr const char* kDebugProposal = "C1Trace_pulse_00010.csv";
}  // namespace

std::string NextSampleIndex(const std::string& index) {
    const double next = RoundHalfEven(Val(index) + 1);
    if (!(next <= 32767))
        throw RuntimeError(ErrorCode::BadOption,
                           "SampleIndex " + index + " cannot advance past 32767: set a lower Index.");
    return std::to_string(ToInt16(next));
}

RunState::RunState() : instrument_(std::make_unique<Instrument>()) {
    SetupResultGrid1(resultGrid_);
    SetupLogGrid(logGrid_, 1000);
    SetupDetailDataGrid(detailGrid_, kDetailStartCycles);
}

RunState::~RunState() = default;

void RunState::FormLoad(const std::string& dataFolderOverride) {
    dataFolder_ =
        PrepareDataFolder(dataFolderOverride.empty() ? std::nullopt : std::optional<std::string>(dataFolderOverride));
    settingsProblems_.clear();
    readSettings(ResumeFileName(dataFolder_));
    SmoothingCount = ApplyStartupSettings(settings_, dataFolder_);
    SetupResultGrid1(resultGrid_);
    SetupLogGrid(logGrid_, static_cast<int32_t>(Val(settings_.analysis.TotalRepeats)));
    SetupDetailDataGrid(detailGrid_, kDetailStartCycles);
    runDone_ = WavesPresent = TransferFailed = false;
    logFirst = true;
}

Outcome RunState::FormUnload() {
    Outcome saved = SaveResumeParam(ResumeFileName(dataFolder_), settings_);
    if (instrument_) instrument_->close();
    return saved;
}

void RunState::readSettings(const std::string& fileName) {
    for (const auto& problem : LoadResumeParam(fileName, settings_).problems)
        settingsProblems_.emplace_back(fileName + ", ").append(problem);
}

Outcome RunState::LoadSettingsFrom(const std::string& fileName) {
    if (!FileExists(fileName)) return {ErrorCode::FileNotFound, fileName + ": there is no such settings file."};
    readSettings(fileName);
    SmoothingCount = ApplyStartupSettings(settings_, dataFolder_);
    return Outcome::Ok();
}

Outcome RunState::checkFileNames(bool sample, bool detail, bool waveTable) const {
    Outcome ok = sample ? CheckFileNamePart(sampleName(), "The sample name") : Outcome::Ok();
    if (ok && detail) ok = CheckFileNamePart(settings_.DetailBaseName, "The detail file name");
    if (ok && waveTable) ok = CheckFileNamePart(settings_.WaveBaseName, "The wave data file name");
    return ok;
}

std::string RunState::outputFileName(const char* name) const {
    return JoinPath(JoinPath(dataFolder_, "OutputData"), name);
}

std::string RunState::resultFileName() const { return outputFileName(kResultFileName); }

std::string RunState::encoderFileName() const { return outputFileName(kEncoderFileName); }

std::string RunState::jitterFileName() const { return outputFileName(kJitterFileName); }

bool RunState::channelStateOn(int ch) const { return setup_.traceOn(ch) == kChannelStateOn; }

std::array<std::string, kChannels> RunState::typeTexts() const {
    std::array<std::string, kChannels> t;
    for (int ch = 0; ch < kChannels; ++ch)
        t[static_cast<size_t>(ch)] = std::string(settings_.channels[static_cast<size_t>(ch)].signalText());
    return t;
}

ChannelDisplays RunState::channelDisplays() const {
    ChannelDisplays d;
    for (int ch = 0; ch < kChannels; ++ch) {
        const auto& c = settings_.channels[static_cast<size_t>(ch)];
        auto& o = d[static_cast<size_t>(ch)];
        o.typeIndex = c.ChInputSignal;
        o.typeText = std::string(c.signalText());
        o.SigName = c.SigName;
        o.DispOffCheck = c.DispOffCheck;
        o.channelState = setup_.traceOn(ch);
        o.VRate = Val(c.VRate);
        o.backColour = static_cast<uint32_t>(c.BackColor);
        o.foreColour = static_cast<uint32_t>(c.ForeColor);
        o.note = results_.note[static_cast<size_t>(ch)];
    }
    return d;
}

AnalysisParams RunState::analysisParams(AnalysisEntry entry) const {
    // The boxes take only numbers in range; a value that reached the settings
    // some other way is refused by name, not turned into a fault or a 0.
    static constexpr std::array<std::string_view, 8> kRead = {"MaxCycles",           "Histerisis",   "PLevel",
                                                              "LimitPoints",         "SmoothingNo",  "VRate",
                                                              "EncoderCountsPerRev", "MinStateWidth"};
    if (Outcome taken = CheckSettings(settings_, kRead); !taken) throw RuntimeError(ErrorCode::BadOption, taken.text());
    const auto& a = settings_.analysis;
    AnalysisParams p;
    p.Histerisis = static_cast<float>(Val(a.Histerisis));
    p.PLevel = static_cast<float>(Val(a.PLevel));
    p.LimitPoints = static_cast<float>(Val(a.LimitPoints));
    p.MaxCycles = ToInt32(Val(a.MaxCycles));
    p.SmoothingNo = SmoothingCountOf(a.SmoothingNo);
    p.OmitRangeEffect = a.OmitRangeEffect;
    p.MemoryInput = MemoryInput;
    for (int ch = 0; ch < kChannels; ++ch) {
        const auto& c = settings_.channels[static_cast<size_t>(ch)];
        auto& o = p.channel[static_cast<size_t>(ch)];
        o.DispOff = c.DispOffCheck;
        o.SignalType = c.ChInputSignal;
        o.VRate = Val(c.VRate);
        o.PPCheck = c.PPCheck;
        o.DutyCheck = c.DutyCheck;
        o.channelStateOn = channelStateOn(ch);
    }
    p.rejectFlag = settings_.RejectRangeSet;
    p.rejectStart = settings_.RejectStart;
    p.rejectEnd = settings_.RejectEnd;
    p.produceMessages = entry != AnalysisEntry::CommAnaProcess;
    p.requireStateOn = entry != AnalysisEntry::AnalysisCommon;
    p.levelMethod = a.LevelMethod == kLevelHalves ? LevelMethod::Halves
                    : a.LevelMethod == kLevelAuto ? LevelMethod::Auto
                                                  : LevelMethod::Peaks;
    p.edgeRule = a.EdgeRule == kEdgeRuleSchmitt ? EdgeRule::Schmitt
                 : a.EdgeRule == kEdgeRuleAuto  ? EdgeRule::Auto
                                                : EdgeRule::Legacy;
    p.encoder = EncoderParamsOf(a);
    p.edgeTiming = a.EdgeTiming == kEdgeInterpolated ? EdgeTiming::Interpolated : EdgeTiming::Samples;
    return p;
}

AnalysisInput RunState::analysisInput() const {
    AnalysisInput in;
    for (int ch = 0; ch < kChannels; ++ch) {
        in.volts[static_cast<size_t>(ch)] = record_.wave[static_cast<size_t>(ch)];
        in.raw[static_cast<size_t>(ch)] = record_.raw[static_cast<size_t>(ch)];
        in.VoltsPerDiv[static_cast<size_t>(ch)] = setup_.voltsPerDiv(ch);
        in.Offset[static_cast<size_t>(ch)] = setup_.offset(ch);
    }
    in.WaveLength = record_.WaveLength;
    in.SampleSec = record_.SampleSec;
    return in;
}

void RunState::refreshResultGrid() {
    totalWaveDatas_ = Disp_Result(resultGrid_, record_.WaveLength, channelDisplays(), results_.table);
    resultsChanged();
}

void RunState::runAnalysis(UiPort* ui, AnalysisEntry entry) {
    lastOutcome = RunAnalysis(analysisInput(), analysisParams(entry), results_);
    // Ch3 and Ch4 of a file whose model gives no channel count: say why they are empty.
    if (InputSource == kInputTypeFile && !lastFileLoad_.channelCountNote.empty())
        for (size_t ch = 2; ch < kChannels; ++ch)
            if (results_.note[ch].empty()) {
                results_.note[ch] = lastFileLoad_.channelCountNote;
                results_.leftOut[ch] = true;
            }
    if (lastOutcome.rejectRangeDropped) settings_.RejectRangeSet = false;
    if (ui)
        for (const auto& m : lastOutcome.messages) ui->messageBox(m.text, MsgButtons::Ok, m.title);
    JudgeAll(results_.table);
    if (ui && entry != AnalysisEntry::CommAnaProcess) ui->setStatus(1, kCompletedAnalysis);
    refreshResultGrid();
}

void RunState::AnalysisCommon(UiPort& ui) { runAnalysis(&ui, AnalysisEntry::AnalysisCommon); }

void RunState::CommAnaProcess(UiPort& ui) {
    (void)ui;
    runAnalysis(nullptr, AnalysisEntry::CommAnaProcess);
}

Outcome RunState::LimitPoints_KeyPress(UiPort& ui) {
    return Guarded([&] {
        runAnalysis(&ui, AnalysisEntry::LimitPointsKeyPress);
        (void)SaveResults(ui);  // a refused line waits for the next
    });
}

Outcome RunState::OmitRangeEffect_Click(UiPort& ui) { return LimitPoints_KeyPress(ui); }

void RunState::LimitEdited(UiPort& ui) {
    if (!WavesPresent) {
        refreshResultGrid();
        return;
    }
    CommAnaProcess(ui);
    (void)SaveResults(ui);
}

std::vector<CycleGridRow> RunState::BuildLimitGrid(Grid& grid) {
    SetupDetailCycleGrid(grid);
    // Every measured kind of a channel gets its row.
    return BuildDetailCycleGrid(grid, channelDisplays(), results_.table, kMeasures);
}

Outcome RunState::EditLimit(UiPort& ui, Grid& grid, const std::vector<CycleGridRow>& rows, int32_t row, int32_t col,
                            const std::string& text) {
    return Guarded([&]() -> Outcome {
        if (Outcome edited = EditDetailCycleLimit(grid, rows, channelDisplays(), results_.table, row, col, text);
            !edited)
            return edited;
        LimitEdited(ui);
        return Outcome::Ok();
    });
}

Outcome RunState::SaveResults(UiPort& ui) {
    lastSave_ = Outcome::Ok();
    if (!saveResultLine_) return lastSave_;
    storePass(ui);
    // The queues of the other files speak only when they fail, and the
    // encoder's goes first, so the status shows ResultData.csv as always.
    const auto types = typeTexts();
    const std::string sample = sampleName();
    const auto keep = [this](Outcome saved) {
        if (!saved) lastSave_ = std::move(saved);
    };
    if (settings_.analysis.Encoder) {
        const std::string notice = EncoderFirstColumnsNotice(encoderFileName());
        if (std::find(notices_.begin(), notices_.end(), notice) == notices_.end() &&
            EncoderFileHasFirstColumns(encoderFileName())) {
            notices_.push_back(notice);
            ui.setStatus(2, notice);
        }
        keep(encoderLines_.append(ui, encoderFileName(), types, EncoderDataLine(sample, results_.encoder)));
    }
    keep(resultLines_.append(ui, resultFileName(), types, ResultDataLine(sample, results_.table)));
    keep(jitterLines_.append(ui, jitterFileName(), types, JitterDataLine(sample, results_.jitter)));
    passSaved();
    return lastSave_;
}

Outcome RunState::SaveUnsavedResults(UiPort& ui) {
    const auto types = typeTexts();
    const bool encoderSaved = encoderLines_.flush(ui, encoderFileName(), types).ok();
    const bool jitterSaved = jitterLines_.flush(ui, jitterFileName(), types).ok();
    const bool saved = resultLines_.flush(ui, resultFileName(), types).ok();
    if (saved && jitterSaved && encoderSaved) return Outcome::Ok();
    return {ErrorCode::FileIo, unsavedResultsText()};
}

std::string RunState::unsavedResultsText() const {
    std::string text;
    const auto add = [&](const ResultLineQueue& queue, const std::string& fileName) {
        if (!queue.waiting().empty()) text += (text.empty() ? "" : "\r\n") + queue.leftOverText(fileName);
    };
    add(resultLines_, resultFileName());
    add(jitterLines_, jitterFileName());
    add(encoderLines_, encoderFileName());
    return text;
}

Outcome RunState::WaveTrans(UiPort& ui, std::string_view InpType, const std::string& filename) {
    if (InpType != kInputTypeFile) return TransferFromDso(ui);

    lastFileLoad_ = fileLoader_ ? fileLoader_(filename, setup_, record_)
                                : LoadAnyWaveCsv(filename, setup_, record_, importOptions_);
    const WaveCsvLoadResult& loaded = lastFileLoad_;
    if (!loaded.ok()) {
        ui.setStatus(2, loaded.outcome.text());
        // The reader's own kind and words, which name the file and the line.
        if (loaded.outcome.text().empty())
            return Outcome(ErrorCode::FileIo, "The wave file could not be read.").reported();
        return Outcome(loaded.outcome).reported();
    }
    if (setup_.RecordLength > kMaxSamples)
        throw RuntimeError(ErrorCode::Subscript, "The record is longer than 5000011 samples.");
    record_.WaveLength = setup_.RecordLength;
    record_.SampleSec = setup_.SampleInterval;
    FillSampleCodes(setup_, record_);
    inputFile_ = filename;
    ui.setStatus(1, kCompletedAllTranslations);
    return Outcome::Ok();
}

Outcome RunState::InputFromFile_Click(UiPort& ui) {
    lastFileLoad_ = {};  // what a canceled or refused input leaves says nothing of the last file
    bool analysing = false;
    Outcome input = Guarded([&] { return inputFromFile(ui, analysing); });
    // A fault of the analysis goes to the run-time error box; anything
    // before it cancels the input.
    if (input || analysing) return input;
    ui.setStatus(1, kInputFromFileCanceled);
    if (input.code() != ErrorCode::Canceled) ui.setStatus(2, input.text());
    return std::move(input).reported();
}

Outcome RunState::inputFromFile(UiPort& ui, bool& analysing) {
    settings_.analysis.SmoothingNo = CheckSmoothingNo(settings_.analysis.SmoothingNo);
    SmoothingCount = SmoothingCountOf(settings_.analysis.SmoothingNo);
    InputSource = kInputTypeFile;
    passStarted_ = StoreTimeNow();
    std::string proposal = DebugCheck ? std::string(kDebugProposal) : sampleName() + ".csv";
    auto chosen = ui.chooseOpenFile(kSelectInputTitle, proposal, JoinPath(dataFolder_, "Data"), "*.csv");
    if (!chosen) return {ErrorCode::Canceled, kCanceled};
    if (runDone_) settings_.analysis.SampleIndex = NextSampleIndex(settings_.analysis.SampleIndex);
    if (Outcome loaded = WaveTrans(ui, kInputTypeFile, *chosen); !loaded) return loaded;
    WavesPresent = true;
    runDone_ = true;
    analysing = true;
    runAnalysis(&ui, AnalysisEntry::AnalysisCommon);
    DispDetailData(detailGrid_, channelDisplays(), results_.cycles, record_.SampleSec);
    (void)SaveResults(ui);  // a refused line waits for the next
    // A file that loaded with something to say (cut short, say): panel 2.
    std::string warnings;
    for (const auto& w : lastFileLoad_.warnings) warnings += (warnings.empty() ? "" : " ") + w;
    if (!warnings.empty()) ui.setStatus(2, warnings);
    settingsChanged();
    recordChanged();
    gridsChanged();
    return Outcome::Ok();
}

namespace {
// The Enter check's clamp: true when the typed value is at or above the limit,
// which then becomes the setting.
bool lowerToLimit(std::string_view typed, std::string& setting, double limit) {
    if (!(RoundHalfEven(Val(typed)) >= limit)) return false;
    setting = ShortestText(limit);
    return true;
}
}  // namespace

bool RunState::MaxCycles_KeyPress(std::string_view typed) {
    const bool lowered = lowerToLimit(typed, settings_.analysis.MaxCycles, 500000);
    // A refused text leaves the grid as the setting has it.
    ResizeDetailDataGrid(
        detailGrid_, static_cast<int32_t>(std::clamp(RoundHalfEven(Val(settings_.analysis.MaxCycles)), 0.0, 500000.0)));
    settingsChanged();
    gridsChanged();
    return lowered;
}

bool RunState::TotalRepeats_KeyPress(std::string_view typed) {
    const bool lowered = lowerToLimit(typed, settings_.analysis.TotalRepeats, 16000);
    ResizeLogGrid(logGrid_,
                  static_cast<int32_t>(std::clamp(RoundHalfEven(Val(settings_.analysis.TotalRepeats)), 0.0, 16000.0)));
    settingsChanged();
    gridsChanged();
    return lowered;
}

bool RunState::Histerisis_KeyPress(std::string_view typed) {
    const bool lowered = lowerToLimit(typed, settings_.analysis.Histerisis, 50);
    if (lowered) settingsChanged();
    return lowered;
}

void RunState::SampleNo_KeyPress() {
    settings_.analysis.SampleIndex = "1";
    runDone_ = false;
}

void RunState::ColorInit_Click() {
    const auto defaults = Settings::defaultChannels();
    for (size_t ch = 0; ch < settings_.channels.size(); ++ch) settings_.channels[ch].BackColor = defaults[ch].BackColor;
    refreshResultGrid();
}

Outcome RunState::ResultCopy_Click(UiPort& ui, int index, int32_t row1, int32_t col1, int32_t row2, int32_t col2) {
    const Grid& grid = index == 0 ? logGrid_ : detailGrid_;
    return Guarded([&] {
        ui.setClipboardText(GridClipboardText(grid, row1, col1, row2, col2));
        ui.messageBox(kResultCopiedText, MsgButtons::Ok, kResultCopiedTitle);
    });
}

Outcome RunState::SelDataSaveFile_Click(UiPort& ui) {
    auto chosen = ui.chooseSaveFile(kDetailSaveTitle, settings_.DetailFileName, settings_.OutputFolder, "*.csv");
    if (!chosen) {
        ui.setStatus(1, kCanceled);
        return Outcome(ErrorCode::Canceled, kCanceled).reported();
    }
    const std::string& path = *chosen;
    size_t cut = path.find_last_of("/\\");
    std::string folder = cut == std::string::npos ? std::string() : path.substr(0, cut);
    std::string name = cut == std::string::npos ? path : path.substr(cut + 1);
    std::string base = name.size() > 4 ? name.substr(0, name.size() - 4) : std::string();
    settings_.OutputFolder = folder;
    settings_.DetailFileName = name;
    settings_.DetailBaseName = base;
    settings_.WaveBaseName = base + "_Wave";
    settings_.analysis.DDSaveCheck = true;
    return Outcome::Ok();
}

Outcome RunState::LoadComparator(UiPort& ui, const std::string& fileName) {
    return Guarded([&]() -> Outcome {
        settings_.ComparatorFile = fileName;
        if (!FileExists(fileName)) {
            ui.messageBox(kNoFile, MsgButtons::Ok, fileName);
            return Outcome(ErrorCode::FileNotFound, kNoFile).reported();
        }
        Outcome load = LoadComparatorFile(fileName, results_.table);
        if (!load) ui.messageBox(load.text(), MsgButtons::Ok, kConfirmationTitle);
        JudgeAll(results_.table);
        refreshResultGrid();
        return load ? load : std::move(load).reported();
    });
}

Outcome RunState::SelectComparator_Click(UiPort& ui) {
    // The dialog opens where the last comparator file was, with its name.
    std::string folder = JoinPath(dataFolder_, "Comparator");
    std::string name = settings_.ComparatorFile;
    if (const size_t cut = name.find_last_of("/\\"); cut != std::string::npos) {
        folder = name.substr(0, cut);
        name = name.substr(cut + 1);
    }
    auto chosen = ui.chooseOpenFile(kSelectComparatorTitle, name, folder, "*.txt;*.csv");
    if (!chosen) return {ErrorCode::Canceled, kCanceled};
    return LoadComparator(ui, *chosen);
}

}  // namespace mervasto
