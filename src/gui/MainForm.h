#pragma once

#include <QMainWindow>

#include <array>
#include <memory>

#include "app/RunState.h"
#include "common/Channels.h"

class QAction;
class QCheckBox;
class QGridLayout;
class QHBoxLayout;
class QLayout;
class QComboBox;
class QGroupBox;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QTabWidget;
class QTableView;

namespace mervasto {

class DetailCyclesForm;
class SettingsBinding;
class GridModel;
class GuiUi;
class PlotWindow;
class WaveWindow;

// The main window: every setting as a control named as the user's manual
// names it, the buttons that start a run, the grids and the status bar. It is
// a view of the run state; each button calls the state's handler.
class MainForm : public QMainWindow {
    Q_OBJECT
public:
    explicit MainForm(const std::string& dataFolderOverride = {}, QWidget* parent = nullptr);
    ~MainForm() override;

    RunState& state() { return state_; }
    GuiUi& ui() { return *ui_; }
    WaveWindow* waveAll() { return waveAll_; }
    WaveWindow* waveEach() { return waveEach_; }
    DetailCyclesForm* detailCycles() { return detail_; }
    PlotWindow* plots() { return plots_; }

    // Every control from the settings (after they were loaded or set from
    // outside); a control's own changes reach the settings by themselves.
    void showSettings();
    // Grids, wave windows and buttons after the state changed.
    void refreshViews();

    // Pictures of this window and an open wave window (the SaveWave button).
    void saveWindowPictures();

    // What closing the window came to: the first failure of the result
    // lines it tried once more and the settings file it wrote (each also
    // shown in its box).
    const Outcome& sessionEnd() const { return sessionEnd_; }

protected:
    void closeEvent(QCloseEvent* e) override;

private:
    // The command buttons and menu entries, from the layout that makes them
    // to the connections that give them their handlers.
    struct Commands {
        QPushButton* stop;
        QPushButton* save;
        QPushButton* readRange;
        QPushButton* pictures;
        QPushButton* detailPath;
        QPushButton* copyLog;
        QPushButton* copyNumbers;
        QPushButton* detailForm;
        QPushButton* colorInit;
        QPushButton* histogram;
        QPushButton* tcpip;
        QPushButton* setIp;
        QAction* inputFile;
        QAction* showAll;
        QAction* showEach;
        QAction* showHistogram;
    };
    // The layout, a group of controls at a time (MainFormLayout.cpp).
    void buildWindow(Commands& commands);
    QGroupBox* buildSettings(QWidget* parent, Commands& commands);
    void buildAddressFrame(QWidget* parent, Commands& commands);
    QLineEdit* addBox(QWidget* parent, const char* name, const char* caption, QGridLayout* grid, int row, int col,
                      const char* after = nullptr);
    void buildChannelFrames(QWidget* parent, QHBoxLayout* into);
    QLayout* buildButtons(QWidget* parent, Commands& commands);
    QTabWidget* buildGrids(QWidget* parent);
    void buildMenus(Commands& commands);
    // What the controls do, and what the window follows of the run state.
    void connectCommands(const Commands& commands);
    void connectViews(const Commands& commands);
    void connectEnterChecks();
    void followState();
    // The run state's start-up, the controls from it, the window placement.
    void startUp(const std::string& dataFolderOverride);

    void applyChannelColours();
    // Runs a command handler and shows what it left to the window (a
    // run-time fault), then refreshes.
    void run(const std::function<Outcome()>& handler);
    // False, with the box and the reason in the status bar, while a box
    // holds a text its setting refuses: a run would use another value.
    bool boxesTaken();
    // Commands that start their own exchange on the link or replace the
    // record are off while an instrument run is in progress.
    void applyRunning();
    // The parts of refreshViews, each for one kind of change.
    void showWaves();
    void showResults();
    void showGrids();
    // Status panel 4: the instrument while it is linked.
    void showLink();
    // What the instrument's family lacks is greyed, its reason the tip.
    void applyCapabilities(bool idle);
    void storeWindowPositions();

    RunState state_;
    std::unique_ptr<GuiUi> ui_;

    QLineEdit* MaxCycles_;
    QLineEdit* TotalRepeats_;
    QLineEdit* Histerisis_;
    QLineEdit* PLevel_;
    QLineEdit* SmoothingNo_;
    QLineEdit* LimitPoints_;
    QLineEdit* SampleNo_;
    QLineEdit* SampleIndex_;
    QLineEdit* ZoomRate_;
    QLineEdit* TimeoutSeconds_;
    QLineEdit* IPAdressText_;
    QLineEdit* TotalWaveDatas_;
    QPlainTextEdit* Comment_;
    QComboBox* LevelMethod_;
    QComboBox* EdgeTiming_;
    QComboBox* Instrument_;
    QPushButton* ReadRejectRange_;
    QGroupBox* addressFrame_;
    QCheckBox* RepeatCheck_;
    QCheckBox* DaqCheck_;
    QCheckBox* OmitRangeEffect_;
    QCheckBox* SaveWavesCheck_;
    QCheckBox* SaveScreenCheck_;
    QCheckBox* DDSaveCheck_;
    QCheckBox* WDSaveCheck_;
    std::array<QGroupBox*, kChannels> frame_{};
    std::array<QComboBox*, kChannels> ChInputSignal_{};
    std::array<QLineEdit*, kChannels> VRate_{};
    std::array<QLineEdit*, kChannels> SigName_{};
    std::array<QCheckBox*, kChannels> DispOffCheck_{};
    std::array<QCheckBox*, kChannels> PPCheck_{};
    std::array<QCheckBox*, kChannels> DutyCheck_{};
    QPushButton* WFStartCommand_;
    QPushButton* InputFromFile_;
    QTabWidget* SSTab1_;
    GridModel* resultModel_;
    GridModel* logModel_;
    GridModel* detailModel_;
    // The "Jitter" tab's grid, filled from the results whenever they change.
    Grid jitterGrid_;
    GridModel* jitterModel_;
    QTableView* ResultGrid1_;
    QTableView* JitterGrid_;
    QTableView* LogGrid_;
    QTableView* DetailDataGrid_;

    WaveWindow* waveAll_;
    WaveWindow* waveEach_;
    DetailCyclesForm* detail_;
    PlotWindow* plots_;
    SettingsBinding* binding_;
    std::vector<QWidget*> lockedDuringRun_;
    std::vector<QAction*> actionsLockedDuringRun_;
    std::vector<Subscription> subscriptions_;
    // The window was asked to close during a run: it closes when the run ends.
    bool closeAfterRun_ = false;
    Outcome sessionEnd_;
};

}  // namespace mervasto
