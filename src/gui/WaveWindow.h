#pragma once

#include <QWidget>

#include "display/WavePainter.h"

class QComboBox;
class QScrollBar;

namespace mervasto {

class RunState;

// "DSO Wave(All)" shows every channel that is switched on; "DSO Wave(Each)"
// one chosen channel. Both zoom by ZoomRate and scroll with SearchScroll.
class WaveWindow : public QWidget {
    Q_OBJECT
public:
    enum class Mode { All, Each };
    WaveWindow(RunState& state, Mode mode, QWidget* parent = nullptr);

    // The record or the results changed.
    void refresh();
    QImage picture(const QSize& size);

protected:
    void resizeEvent(QResizeEvent* e) override;

private:
    class Canvas;
    WaveView view() const;
    void updateScroll();

    RunState& state_;
    Mode mode_;
    Canvas* canvas_;
    QScrollBar* scroll_;
    QComboBox* channel_ = nullptr;
    WavePainter painter_;
};

}  // namespace mervasto
