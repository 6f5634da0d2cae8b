#pragma once

#include <QWidget>

#include <array>
#include <string>

#include "display/WaveNavigation.h"
#include "display/WavePainter.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QScrollBar;

namespace mervasto {

class RunState;

// "DSO Wave(All)" shows every channel that is switched on; "DSO Wave(Each)"
// one chosen channel. Both zoom by ZoomRate and scroll with SearchScroll;
// the mouse zooms each window on its own (wheel), pans (drag), fits the
// record (double-click) and moves two time cursors.
class WaveWindow : public QWidget {
    Q_OBJECT
public:
    enum class Mode { All, Each };
    WaveWindow(RunState& state, Mode mode, QWidget* parent = nullptr);

    // The record or the results changed.
    void refresh();
    QImage picture(const QSize& size);

    // What the window shows: its zoom and first sample, and the cursors in
    // samples.
    TimeWindow timeWindow() const;
    std::array<double, 2> cursors() const { return cursor_; }
    void setCursors(double c1, double c2);
    // Centres the window on cycle `index` of channel `ch` (0-based), about a
    // quarter of the screen wide, with the cursors on its first and last
    // edge (for the pulse types: the pulse's own edges).
    void showCycle(int ch, int index);

protected:
    void resizeEvent(QResizeEvent* e) override;
    void showEvent(QShowEvent* e) override;

private:
    class Canvas;
    friend class Canvas;
    WaveView view() const;
    void showTimeWindow(TimeWindow w);
    void updateScroll();
    void updateReadout();
    // Cursors a third and two thirds into the view: always when inView,
    // otherwise only when they are off the record.
    void placeCursors(bool inView);

    void wheelAt(double x, int steps);
    void pressAt(double x);
    void dragTo(double x);
    // A right click puts the nearer cursor on the sample under the pointer.
    void cursorTo(double x);
    void fitWhole();
    QString tipAt(double x) const;

    RunState& state_;
    Mode mode_;
    Canvas* canvas_;
    QScrollBar* scroll_;
    QComboBox* channel_ = nullptr;
    QCheckBox* stacked_;
    QLabel* readout_;
    WavePainter painter_;
    double mouseZoom_ = 0;
    std::string zoomRateSeen_;  // the Zoom box's text when the mouse last zoomed
    std::array<double, 2> cursor_ = {-1, -1};
    bool readoutStale_ = false;
    const std::array<ExtremeCycles, kChannels>& extremes() const;
    mutable std::array<ExtremeCycles, kChannels> extremes_;
    mutable bool extremesStale_ = true;
    int dragging_ = -1;  // 0, 1: a cursor; 2: the picture
    double dragX_ = 0;
    TimeWindow dragFrom_;
};

}  // namespace mervasto
