#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "analysis/Analysis.h"
#include "app/ResultLineQueue.h"
#include "app/core/Settings.h"
#include "common/Event.h"
#include "common/Outcome.h"
#include "common/UiPort.h"
#include "dso/InstrumentDriver.h"
#include "results/Comparator.h"
#include "results/EncoderFiles.h"
#include "results/Grid.h"
#include "results/JitterData.h"
#include "results/ResultFiles.h"
#include "results/ResultGrids.h"
#include "store/ResultStore.h"
#include "store/RunTally.h"
#include "wavefile/DsoSetup.h"
#include "wavefile/GenericCsv.h"
#include "wavefile/WaveCsv.h"
#include "wavefile/WaveRecord.h"

namespace mervasto {

class Instrument;

// The sample index after index: a 16-bit number, so past 32767 the next
// record cannot be named (a setting fault naming the index).
std::string NextSampleIndex(const std::string& index);

// Status texts of the run, as the user sees them.
inline constexpr const char* kInputFromFileCanceled = "Input from File canceled.";
inline constexpr const char* kCompletedAllTranslations = "Completed all translations.";
inline constexpr const char* kInputTypeFile = "FILE";
inline constexpr const char* kInputTypeDso = "DSO";
inline constexpr const char* kConfirmationTitle = "Confirmation";

// Which handler started an analysis: decides the channels analysed and
// whether the signal-check messages are shown.
enum class AnalysisEntry {
    AnalysisCommon,       // after a transfer: channels not switched off; messages
    CommAnaProcess,       // limit editor: switched on and state "ON"; no messages
    LimitPointsKeyPress,  // margin / reject-range change: switched on and state "ON"; messages
};

// The one owner of everything a run touches: the settings, the record and the
// instrument's setup, the analysis results, the grids, the link and the run
// flags. The main window and the command line each hold one; the windows are
// views of it. Every handler is the boundary of its own work: it shows what
// has a legacy form (status texts, the link's "Confirmation" boxes, the run's
// boxes) through the UI port and marks that outcome reported(); any other
// failure, a run-time fault among them, comes back for the front end to show.
class RunState {
public:
    RunState();
    ~RunState();
    RunState(const RunState&) = delete;
    RunState& operator=(const RunState&) = delete;

    // Start-up without a window: the data folder tree, the resume file, the
    // start-up rules, the grids. An empty override uses the default folder.
    void FormLoad(const std::string& dataFolderOverride = {});
    // Writes the resume file and closes the link.
    Outcome FormUnload();
    // Settings from another resume file (the command line's --settings); a
    // file that is not there is FileNotFound and changes nothing.
    Outcome LoadSettingsFrom(const std::string& fileName);

    // --- handlers -----------------------------------------------------------
    // Ok when a file was loaded and analysed (what became of its result lines
    // is lastSave()). A file that was not loaded shows "Input from File
    // canceled." with the reason in panel 2 and comes back reported.
    Outcome InputFromFile_Click(UiPort& ui);
    // Loads a file (InpType "FILE") or transfers from the instrument. A
    // failure has been shown in its legacy form (status text or box) and
    // comes back marked reported().
    Outcome WaveTrans(UiPort& ui, std::string_view InpType, const std::string& filename);
    // The three analysis entries. Each shows its messages (or not), the
    // status text and refreshes the result grids; LimitPoints_KeyPress also
    // appends the result line. The first two are steps of other handlers and
    // leave their faults to them.
    void AnalysisCommon(UiPort& ui);
    void CommAnaProcess(UiPort& ui);
    Outcome LimitPoints_KeyPress(UiPort& ui);
    Outcome OmitRangeEffect_Click(UiPort& ui);
    // A limit typed in the comparator grid: the present record is analysed
    // again through CommAnaProcess and its result line appended.
    void LimitEdited(UiPort& ui);
    // The comparator's grid of counts and limits, judged again, and what
    // each of its rows shows.
    std::vector<CycleGridRow> BuildLimitGrid(Grid& grid);
    // A limit typed into that grid: stored, judged, then LimitEdited.
    // Canceled when the cell takes no limit; BadOption with the reason when
    // the text is no limit (it stays in its cell, marked).
    Outcome EditLimit(UiPort& ui, Grid& grid, const std::vector<CycleGridRow>& rows, int32_t row, int32_t col,
                      const std::string& text);

    // An instrument run. Whatever ended it early, its connection included,
    // has been shown (a link box, the run's "DSO" box, a status text for a
    // Stop) and comes back reported, as runFailure() keeps it.
    Outcome WFStartCommand_Click(UiPort& ui);
    void Stop_Click();
    // The address box names another instrument: the link to the old one is
    // closed at once, or during a run after the pass in progress (the next
    // pass connects to the new one), so that nothing more comes from it.
    void IPAdressText_Change();
    Outcome ReadRejectRange_Click(UiPort& ui);
    Outcome WaveSave_Click(UiPort& ui);
    Outcome SelDataSaveFile_Click(UiPort& ui);
    // The comparator: loads the file, judges again. "No File." and
    // "Illegal Character." are shown in their boxes and come back reported.
    Outcome SelectComparator_Click(UiPort& ui);
    Outcome LoadComparator(UiPort& ui, const std::string& fileName);

    // Enter checks of the settings boxes, given the text the box holds
    // (which its setting may have refused): a value at or above the box's
    // limit becomes the limit. True when the box is to show the setting again.
    bool MaxCycles_KeyPress(std::string_view typed);
    bool TotalRepeats_KeyPress(std::string_view typed);
    bool Histerisis_KeyPress(std::string_view typed);
    void SampleNo_KeyPress();
    void ColorInit_Click();

    // Text of a grid range for the clipboard; index 0 is the log grid, any
    // other the detail grid. Puts it on the clipboard and confirms.
    Outcome ResultCopy_Click(UiPort& ui, int index, int32_t row1, int32_t col1, int32_t row2, int32_t col2);

    // Appends the run's line to ResultData.csv, and its jitter line to
    // JitterData.csv, and shows the outcome. A refusal is the last one shown
    // in panel 1 (reported); its lines wait for the next write.
    Outcome SaveResults(UiPort& ui);
    // What the last SaveResults came to (ok with the result line switched off).
    const Outcome& lastSave() const { return lastSave_; }

    // --- the results store --------------------------------------------------
    // Every pass that writes a result line is also stored, first, so that
    // neither write stops the other; off for the command line's --no-store.
    void setStoreResults(bool on) { storeResults_ = on; }
    bool storeResults() const { return storeResults_; }
    // The ResultsDb setting, or the data folder's OutputData/results.sqlite.
    StoreTarget storeTarget() const;
    // What storing the last pass came to (ok when it was not stored). A
    // failure has been shown in status panel 2.
    const Outcome& lastStore() const { return lastStore_; }
    int64_t passesStored() const { return passesStored_; }
    int64_t storeFailures() const { return storeFailures_; }
    // The run so far, as the "Yield" tab shows it.
    const RunTally& runTally() const { return tally_; }
    // The result grid as plain numbers in SI base units, on the clipboard.
    Outcome ResultCopyNumbers_Click(UiPort& ui);

    // --- derived views ------------------------------------------------------
    ChannelDisplays channelDisplays() const;
    std::array<std::string, kChannels> typeTexts() const;
    AnalysisParams analysisParams(AnalysisEntry entry) const;
    AnalysisInput analysisInput() const;
    std::string sampleName() const { return settings_.analysis.SampleNo + settings_.analysis.SampleIndex; }
    std::string resultFileName() const;
    std::string encoderFileName() const;  // EncoderData.csv beside ResultData.csv
    std::string jitterFileName() const;   // JitterData.csv beside ResultData.csv
    // The names that become file names (the sample name for saved waves and
    // pictures; the detail and wave table base names) stay in their folder.
    Outcome checkFileNames(bool sample, bool detail = false, bool waveTable = false) const;
    // The channel state text compared with "ON" (the trace state of the setup).
    bool channelStateOn(int ch) const;
    // Refreshes ResultGrid1 (and TotalWaveDatas) from the results.
    void refreshResultGrid();

    // --- events: what changed, for the views and the command line ----------
    Event<> recordChanged;    // a new record (file or instrument) is in place
    Event<> resultsChanged;   // analysis results and the result grid
    Event<> gridsChanged;     // the log or detail grid: rows written or resized
    Event<> settingsChanged;  // the program wrote settings back (index, clamps)
    Event<> runStarted;       // an instrument run began (Running is true)
    Event<> passFinished;     // an instrument pass is analysed, logged and saved
    Event<> passSaved;        // a pass went to the results files and the store
    // An instrument run ended (Running is false again): ok when it ran through
    // or was stopped, else why it ended early, its connection included (also
    // kept in RunFailure).
    Event<const Outcome&> runEnded;

    // --- what the views read -------------------------------------------------
    // The settings are the user's input: the window's controls and the
    // command line's --set write them field by field through the settings
    // table; everything else here is written by the run itself.
    Settings& settings() { return settings_; }
    const Settings& settings() const { return settings_; }
    // The lines of the settings files read (the data folder's, --settings)
    // that could not be taken: "FILE, line N (label): why. "value" is used
    // instead."
    const std::vector<std::string>& settingsProblems() const { return settingsProblems_; }
    const std::string& dataFolder() const { return dataFolder_; }
    const WaveRecord& record() const { return record_; }
    const DsoSetup& setup() const { return setup_; }
    const AnalysisResults& results() const { return results_; }
    // What the last analysis had to say: the signal checks it showed.
    const AnalysisOutcome& lastAnalysis() const { return lastOutcome; }
    // What the last file input's read said: the refusal reason, warnings.
    const WaveCsvLoadResult& lastFileLoad() const { return lastFileLoad_; }
    const Grid& resultGrid() const { return resultGrid_; }
    const Grid& logGrid() const { return logGrid_; }
    const Grid& detailGrid() const { return detailGrid_; }
    const std::string& totalWaveDatas() const { return totalWaveDatas_; }
    // The result lines, written and waiting (see ResultLineQueue).
    const ResultLineQueue& resultLines() const { return resultLines_; }
    const ResultLineQueue& encoderLines() const { return encoderLines_; }
    const ResultLineQueue& jitterLines() const { return jitterLines_; }
    // What the run told the user once in status panel 2 and a command line
    // repeats at its end (an EncoderData.csv that keeps its first columns).
    const std::vector<std::string>& notices() const { return notices_; }

    bool running() const { return running_; }  // a run is in progress
    bool runDone() const { return runDone_; }  // results of a record are in place
    // Why the last instrument run ended before its end (the message shown):
    // a Link failure of the instrument, FileIo for a file the pass could not
    // write, Canceled for a Stop that had to cut an exchange, or a fault of
    // the run itself. Ok when it ran through or a Stop ended it between passes.
    const Outcome& runFailure() const { return runFailure_; }
    // The pass of the series now in progress (1 = the first).
    int32_t repeatCounter() const { return repeatCounter_; }
    // Instrument passes analysed since start-up.
    int64_t passesDone() const { return passesDone_; }
    // The reject range read from the instrument's zoom cursors, in samples.
    int32_t zoomStart() const { return ZoomStart; }
    int32_t zoomEnd() const { return ZoomEnd; }

    // --- what the front ends set ------------------------------------------
    // For files of other layouts: the interval when they have no time column.
    void setImportOptions(const WaveImportOptions& options) { importOptions_ = options; }
    const WaveImportOptions& importOptions() const { return importOptions_; }
    // Reads a "FILE" input when set (the command line loads the next files
    // while one is analysed); otherwise LoadAnyWaveCsv with the import options.
    using FileLoader = std::function<WaveCsvLoadResult(const std::string&, DsoSetup&, WaveRecord&)>;
    void setFileLoader(FileLoader loader) { fileLoader_ = std::move(loader); }
    // Off for a command-line run with --no-save.
    void setSaveResultLine(bool on) { saveResultLine_ = on; }
    bool saveResultLine() const { return saveResultLine_; }
    // Tries once more to write the waiting lines; ok when none is left, else
    // a failure that says which lines belong in which file.
    Outcome SaveUnsavedResults(UiPort& ui);
    // What to tell the user about the lines still waiting, per file.
    std::string unsavedResultsText() const;

    // The number in the next window picture's name; taken() moves it on
    // once a picture has been written.
    int16_t captureCounter() const { return captureCounter_; }
    void captureTaken() { ++captureCounter_; }

    // --- the instrument link -----------------------------------------------
    bool linked() const;
    // The instrument while it is linked, "<model> at <host>:<port>"; empty
    // when it is not.
    std::string linkedInstrument() const;
    // The longest silence within a reply, and the longest whole exchange.
    void setReplyTimeoutMs(int ms);
    void setExchangeDeadlineMs(int ms);
    // Connects and identifies the instrument (the command line's direct
    // readout and fetch), reads its setup, hands its front panel back. Any
    // failure of theirs is the link's (ErrorCode::Link).
    Outcome ConnectInstrument(UiPort& ui, const std::string& ip);
    Outcome ReadInstrumentSetup(UiPort& ui, const std::string& ip);
    Outcome HandBackInstrument();
    // What the instrument family of the link (or of the Instrument setting
    // while there is none) can do, and its name.
    FeatureSupport instrumentSupports(InstrumentFeature feature) const;
    std::string instrumentFamily() const;
    // The port that answered when the address named none (0 otherwise).
    uint16_t probedPort() const;
    // Cuts the link at once (the window closing during a silent exchange).
    void abortLink();

private:
    // Loads a resume file over the settings, keeping what it could not take.
    void readSettings(const std::string& fileName);
    // A file of the data folder's OutputData, where the results files go.
    std::string outputFileName(const char* name) const;

    Settings settings_;
    std::vector<std::string> settingsProblems_;
    std::string dataFolder_;
    int32_t SmoothingCount = 1;
    WaveRecord record_;
    DsoSetup setup_;
    WaveImportOptions importOptions_;
    FileLoader fileLoader_;
    WaveCsvLoadResult lastFileLoad_;
    Outcome lastSave_;
    AnalysisResults results_;
    AnalysisOutcome lastOutcome;

    Grid resultGrid_;
    Grid logGrid_;
    Grid detailGrid_;
    std::string totalWaveDatas_;

    std::unique_ptr<Instrument> instrument_;

    bool runDone_ = false;
    bool WavesPresent = false;
    // The pass in progress failed (transfer, or a file it writes): the series
    // ends after it.
    bool TransferFailed = false;
    bool running_ = false;  // the start button is disabled
    Outcome runFailure_;
    int32_t repeatCounter_ = 0;
    int32_t RepeatLimit = 0;
    std::string InputSource;
    int16_t captureCounter_ = 0;
    bool DebugCheck = false;
    bool MemoryInput = false;

    // Reject range read from the instrument's zoom cursors.
    float ZoomTimePerDiv = 0;
    float ZoomDelay = 0;
    int32_t ZoomStart = 0;
    int32_t ZoomEnd = 0;

    // Where the log grid writes its next pass (first pass writes the header).
    bool logFirst = true;
    int64_t passesDone_ = 0;
    ResultLineQueue resultLines_;
    // The lines of the files that go with ResultData.csv, kept the same way.
    ResultLineQueue jitterLines_{SaveJitterLines, kFailedToSaveJitterData,
                                 " jitter line(s) are kept until the jitter file can be written."};
    ResultLineQueue encoderLines_{[](std::string_view fileName, const ResultLineQueue::TypeTexts&,
                                     std::vector<std::string>& lines) { return SaveEncoderLines(fileName, lines); },
                                  kFailedToSaveEncoderData,
                                  " encoder line(s) are kept until the encoder file can be written."};
    bool saveResultLine_ = true;
    std::vector<std::string> notices_;

    std::unique_ptr<ResultStore> store_;
    RunTally tally_;
    bool storeResults_ = true;
    bool newRun_ = true;  // the next pass stored begins a run
    Outcome lastStore_;
    int64_t passesStored_ = 0;
    int64_t storeFailures_ = 0;
    std::string passStarted_;  // when the pass in progress began (UTC)
    std::string inputFile_;    // the wave file the record came from
    // The instrument run in progress: passes planned, analysed, Go and NG.
    int32_t seriesPlanned_ = 0;
    int32_t seriesDone_ = 0;
    int32_t seriesGo_ = 0;
    int32_t seriesNg_ = 0;
    RunInfo storeRunInfo() const;
    void storePass(UiPort& ui);
    // Status panel 3 and the series' progress bar.
    void showSeriesPass(UiPort& ui) const;
    void countSeriesPass(UiPort& ui);
    void showSeriesEnd(UiPort& ui) const;

    void runAnalysis(UiPort* ui, AnalysisEntry entry);
    // InputFromFile_Click up to its boundary; analysing tells a fault of the
    // analysis from one that cancels the input.
    Outcome inputFromFile(UiPort& ui, bool& analysing);
    // The instrument side of WaveTrans: setup readout and channel transfers.
    Outcome TransferFromDso(UiPort& ui);
    // The link is open to another address or family than the settings name.
    bool linkedElsewhere() const;
    // Connects and identifies with the Instrument setting's family.
    Outcome connectInstrument(UiPort& ui, const std::string& ip);
    // ReadRejectRange_Click within a pass: a Stop is left to the run.
    Outcome readRejectRange(UiPort& ui);
    // The passes of a run, and one pass: acquisition, transfer, analysis,
    // grids and files. A failure ends the run.
    Outcome runSeries(UiPort& ui);
    Outcome runPass(UiPort& ui);
    // What ended a run, in the run's "DSO" box unless it was shown in a form
    // of its own (or the program is closing); reported either way.
    Outcome shownInRunBox(UiPort& ui, Outcome failed) const;
    // A file of the pass could not be written: the run-time error box names
    // it and why, and the series ends after this pass.
    void passWriteFailed(UiPort& ui, const Outcome& failed);
};

}  // namespace mervasto
