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
#include "results/Grid.h"
#include "results/ResultFiles.h"
#include "results/ResultGrids.h"
#include "wavefile/DsoSetup.h"
#include "wavefile/GenericCsv.h"
#include "wavefile/WaveCsv.h"
#include "wavefile/WaveRecord.h"

namespace mervasto {

class DsoLink;

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
// views of it. Every handler reports to the user through the UI port and
// catches run-time faults at its boundary.
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
    // Settings from another resume file (the command line's --settings).
    bool LoadSettingsFrom(const std::string& fileName);

    // --- handlers -----------------------------------------------------------
    // True when a file was loaded and analysed.
    bool InputFromFile_Click(UiPort& ui);
    // Loads a file (InpType "FILE") or transfers from the instrument. A
    // failure has been shown in its legacy form (status text or box) and
    // comes back marked reported().
    Outcome WaveTrans(UiPort& ui, std::string_view InpType, const std::string& filename);
    // The three analysis entries. Each shows its messages (or not), the
    // status text and refreshes the result grids; LimitPoints_KeyPress also
    // appends the result line.
    void AnalysisCommon(UiPort& ui);
    void CommAnaProcess(UiPort& ui);
    void LimitPoints_KeyPress(UiPort& ui);
    void OmitRangeEffect_Click(UiPort& ui);
    // A limit typed in the comparator grid: the present record is analysed
    // again through CommAnaProcess and its result line appended.
    void LimitEdited(UiPort& ui);

    void WFStartCommand_Click(UiPort& ui);
    void Stop_Click();
    void ReadRejectRange_Click(UiPort& ui);
    void WaveSave_Click(UiPort& ui);
    void SelDataSaveFile_Click(UiPort& ui);
    // The comparator: loads the file, judges again. Shows "No File." or
    // "Illegal Character." through the UI port.
    void SelectComparator_Click(UiPort& ui);
    bool LoadComparator(UiPort& ui, const std::string& fileName);

    // Enter checks of the settings boxes.
    void MaxCycles_KeyPress();
    void TotalRepeats_KeyPress();
    void Histerisis_KeyPress();
    void SampleNo_KeyPress();
    void ColorInit_Click();

    // Text of a grid range for the clipboard; index 0 is the log grid, any
    // other the detail grid. Puts it on the clipboard and confirms.
    void ResultCopy_Click(UiPort& ui, int index, int32_t row1, int32_t col1, int32_t row2, int32_t col2);

    // Appends the run's line to ResultData.csv and shows the outcome.
    bool SaveResults(UiPort& ui);

    // --- derived views ------------------------------------------------------
    ChannelDisplays channelDisplays() const;
    std::array<std::string, kAnaChannels> typeTexts() const;
    AnalysisParams analysisParams(AnalysisEntry entry) const;
    AnalysisInput analysisInput() const;
    std::string sampleName() const { return settings.analysis.SampleNo + settings.analysis.SampleIndex; }
    std::string resultFileName() const;
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
    // An instrument run ended (Running is false again): ok when it ran through
    // or was stopped, else why it ended early (also kept in RunFailure).
    Event<const Outcome&> runEnded;

    // --- state --------------------------------------------------------------
    Settings settings;
    // Optional settings lines of the resume file that held bad values (each
    // of those settings took its default).
    std::vector<std::string> settingsProblems;
    std::string DataFolder;
    int32_t SmoothingCount = 1;
    WaveRecord record;
    DsoSetup setup;
    WaveFieldTable fieldTable;
    // For files of other layouts: the interval when they have no time column.
    WaveImportOptions importOptions;
    // Reads a "FILE" input when set (the command line loads the next file
    // while one is analysed); otherwise LoadAnyWaveCsv with importOptions.
    std::function<WaveCsvLoadResult(const std::string&, DsoSetup&, WaveRecord&, WaveFieldTable&)> fileLoader;
    // What the last file input's read said: the refusal reason, warnings.
    WaveCsvLoadResult lastFileLoad;
    AnalysisResults results;
    AnalysisOutcome lastOutcome;

    Grid ResultGrid1;
    Grid LogGrid;
    Grid DetailDataGrid;
    std::string TotalWaveDatas;

    std::unique_ptr<DsoLink> link;

    bool RunDone = false;
    bool WavesPresent = false;
    // The pass in progress failed (transfer, or a file it writes): the series
    // ends after it.
    bool TransferFailed = false;
    bool Running = false;  // a run is in progress (the start button is disabled)
    // Why the last instrument run ended before its end (the message shown):
    // a Link fault of the instrument, or FileIo for a file the pass could not
    // write. Ok when it ran through or was stopped.
    Outcome RunFailure;
    int32_t RepeatCounter = 0;
    int32_t RepeatLimit = 0;
    std::string InputSource;
    int16_t CaptureCounter = 0;
    bool DebugCheck = false;
    bool MemoryInput = false;

    // Reject range read from the instrument's zoom cursors.
    float ZoomTimePerDiv = 0;
    float ZoomDelay = 0;
    int32_t ZoomStart = 0;
    int32_t ZoomEnd = 0;

    // Where the log grid writes its next pass (first pass writes the header).
    bool logFirst = true;
    // Instrument passes analysed since start-up.
    int64_t passesDone = 0;
    // The result lines, written and waiting (see ResultLineQueue).
    ResultLineQueue resultLines;
    // Tries once more to write the waiting lines; true when none is left.
    bool SaveUnsavedResults(UiPort& ui);
    // Off for a command-line run with --no-save.
    bool saveResultLine = true;

private:
    void runAnalysis(UiPort* ui, AnalysisEntry entry);
    void afterAnalysis();
    // The instrument side of WaveTrans: setup readout and channel transfers.
    Outcome TransferFromDso(UiPort& ui);
    // One pass of a run: acquisition, transfer, analysis, grids and files.
    void runPass(UiPort& ui);
    // A file of the pass could not be written: the run-time error box names
    // it and why, and the series ends after this pass.
    void passWriteFailed(UiPort& ui, const Outcome& failed);
};

// Runs a handler body, showing a run-time fault as a message box and going on.
void RunHandler(UiPort& ui, const std::function<void()>& body);

}  // namespace mervasto
