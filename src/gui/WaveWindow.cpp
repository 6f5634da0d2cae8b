#include "gui/WaveWindow.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QHelpEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QPainter>
#include <QScrollBar>
#include <QToolTip>
#include <QVBoxLayout>
#include <QWheelEvent>

#include <cmath>

#include "app/RunState.h"
#include "common/Numeric.h"
#include "display/ChannelPlots.h"
#include "display/RunWaveView.h"
#include "results/CycleSeries.h"

namespace mervasto {

namespace {

// A cursor is taken by the mouse within this many pixels of it.
constexpr double kCursorGrip = 5;
// One wheel notch zooms by this factor.
constexpr double kWheelFactor = 1.25;

}  // namespace

class WaveWindow::Canvas : public QWidget {
public:
    explicit Canvas(WaveWindow* owner) : QWidget(owner), owner_(owner) {
        setObjectName("WaveCanvas");
        setMinimumSize(480, 320);
        setAttribute(Qt::WA_OpaquePaintEvent);
        setMouseTracking(true);
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.fillRect(rect(), Qt::black);
        owner_->painter_.paint(p, rect(), owner_->view());
    }
    void wheelEvent(QWheelEvent* e) override {
        const int steps = e->angleDelta().y() / 120;
        if (steps != 0) owner_->wheelAt(e->position().x(), steps);
        e->accept();
    }
    void mousePressEvent(QMouseEvent* e) override {
        if (e->button() == Qt::LeftButton) owner_->pressAt(e->position().x());
        if (e->button() == Qt::RightButton) owner_->cursorTo(e->position().x());
    }
    void mouseMoveEvent(QMouseEvent* e) override {
        if (e->buttons() & Qt::LeftButton) owner_->dragTo(e->position().x());
    }
    void mouseReleaseEvent(QMouseEvent*) override { owner_->dragging_ = -1; }
    void mouseDoubleClickEvent(QMouseEvent* e) override {
        if (e->button() == Qt::LeftButton) owner_->fitWhole();
    }
    bool event(QEvent* e) override {
        if (e->type() == QEvent::ToolTip) {
            auto* help = static_cast<QHelpEvent*>(e);
            const QString tip = owner_->tipAt(help->pos().x());
            if (tip.isEmpty())
                QToolTip::hideText();
            else
                QToolTip::showText(help->globalPos(), tip, this);
            return true;
        }
        return QWidget::event(e);
    }

private:
    WaveWindow* owner_;
};

WaveWindow::WaveWindow(RunState& state, Mode mode, QWidget* parent)
    : QWidget(parent, Qt::Window), state_(state), mode_(mode) {
    setObjectName(mode == Mode::All ? "WaveFormAll" : "WaveForm");
    setWindowTitle(mode == Mode::All ? "DSO Wave(All)" : "DSO Wave(Each)");
    auto* layout = new QVBoxLayout(this);
    auto* bar = new QHBoxLayout;
    if (mode == Mode::Each) {
        channel_ = new QComboBox(this);
        channel_->setObjectName("WaveChannel");
        for (int ch = 1; ch <= kChannels; ++ch) channel_->addItem(QStringLiteral("Ch%1").arg(ch));
        connect(channel_, &QComboBox::currentIndexChanged, this, [this] {
            updateReadout();
            canvas_->update();
        });
        bar->addWidget(channel_);
    }
    stacked_ = new QCheckBox("Stacked", this);
    stacked_->setObjectName("Stacked");
    stacked_->setToolTip("Each channel in a lane of its own, scaled to the lane");
    stacked_->setChecked(state_.settings().analysis.Stacked);
    connect(stacked_, &QCheckBox::toggled, this, [this](bool on) {
        state_.settings().analysis.Stacked = on;
        canvas_->update();
    });
    bar->addWidget(stacked_);
    auto* here = new QPushButton("Cursors to view", this);
    here->setObjectName("CursorsToView");
    here->setToolTip("Puts both time cursors into the part of the record on screen");
    connect(here, &QPushButton::clicked, this, [this] { placeCursors(true); });
    bar->addWidget(here);
    bar->addStretch(1);
    layout->addLayout(bar);
    canvas_ = new Canvas(this);
    layout->addWidget(canvas_, 1);
    scroll_ = new QScrollBar(Qt::Horizontal, this);
    scroll_->setObjectName("SearchScroll");
    connect(scroll_, &QScrollBar::valueChanged, this, [this] { canvas_->update(); });
    layout->addWidget(scroll_);
    readout_ = new QLabel(this);
    readout_->setObjectName("CursorReadout");
    readout_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(readout_);
    resize(800, 560);
}

TimeWindow WaveWindow::timeWindow() const {
    // A new rate typed into the Zoom box takes over from the mouse.
    double zoom = zoomRateSeen_ == state_.settings().analysis.ZoomRate ? mouseZoom_ : 0;
    if (zoom <= 0) {
        zoom = Val(state_.settings().analysis.ZoomRate);
        zoom = zoom < 1 ? 1 : (zoom >= kMaxZoom ? kMaxZoom - 1 : zoom);
    }
    return {zoom, scroll_->value()};
}

WaveView WaveWindow::view() const {
    WaveView v = RunWaveView(state_);
    for (int ch = 0; ch < kChannels; ++ch)
        v.channel[static_cast<size_t>(ch)].visible = !state_.settings().channels[static_cast<size_t>(ch)].DispOffCheck;
    v.rejectFlag = state_.settings().RejectRangeSet && state_.settings().analysis.OmitRangeEffect;
    v.rejectStart = state_.settings().RejectStart;
    v.rejectEnd = state_.settings().RejectEnd;
    v.onlyChannel = channel_ ? channel_->currentIndex() : -1;
    const TimeWindow w = timeWindow();
    v.zoom = w.zoom;
    v.firstSample = w.first;
    v.stacked = state_.settings().analysis.Stacked;
    v.cursor = cursor_;
    v.extremes = extremes();
    return v;
}

void WaveWindow::updateScroll() {
    const TimeWindow w = timeWindow();
    const int32_t n = state_.record().WaveLength;
    const int32_t visible = VisibleSamples(n, w.zoom);
    const QSignalBlocker block(scroll_);
    scroll_->setRange(0, std::max(0, n - visible));
    scroll_->setPageStep(std::max(1, visible));
    scroll_->setSingleStep(std::max(1, visible / 10));
}

void WaveWindow::showTimeWindow(TimeWindow w) {
    mouseZoom_ = w.zoom;
    zoomRateSeen_ = state_.settings().analysis.ZoomRate;
    updateScroll();
    scroll_->setValue(w.first);
    canvas_->update();
}

void WaveWindow::placeCursors(bool inView) {
    const int32_t n = state_.record().WaveLength;
    if (n <= 0) return;
    if (!inView && cursor_[0] >= 0 && cursor_[0] < n && cursor_[1] >= 0 && cursor_[1] < n) return;
    const TimeWindow w = timeWindow();
    const int32_t count = VisibleSamples(n, w.zoom);
    const int32_t first = std::clamp(w.first, 0, n - count);
    cursor_ = {std::floor(first + count / 3.0), std::floor(first + 2 * count / 3.0)};
    updateReadout();
    canvas_->update();
}

void WaveWindow::showCycle(int ch, int index) {
    if (ch < 0 || ch >= kChannels) return;
    const auto& cycles = state_.results().cycles.channel[static_cast<size_t>(ch)];
    const int32_t n = state_.record().WaveLength;
    if (index < 0 || index >= static_cast<int>(cycles.size()) || n <= 0) return;
    const CycleRecord& c = cycles[static_cast<size_t>(index)];
    if (c.LastEdge <= c.FirstEdge || c.FirstEdge < 0 || c.LastEdge >= n) return;
    if (mode_ == Mode::Each && channel_) channel_->setCurrentIndex(ch);
    const int32_t span = std::max<int32_t>(4 * (c.LastEdge - c.FirstEdge), 20);
    const double zoom =
        std::clamp(static_cast<double>(n) / span, 1.0, std::max(1.0, MaxMouseZoom(n, canvas_->width())));
    const int32_t visible = VisibleSamples(n, zoom);
    const int32_t first = std::clamp((c.FirstEdge + c.LastEdge) / 2 - visible / 2, 0, std::max(0, n - visible));
    showTimeWindow({zoom, first});
    setCursors(c.FirstEdge, c.LastEdge);
}

void WaveWindow::setCursors(double c1, double c2) {
    cursor_ = {c1, c2};
    updateReadout();
    canvas_->update();
}

const std::array<ExtremeCycles, kChannels>& WaveWindow::extremes() const {
    // Found when first drawn, not on every pass of a series behind a hidden window.
    if (!extremesStale_) return extremes_;
    for (int ch = 0; ch < kChannels; ++ch)
        extremes_[static_cast<size_t>(ch)] =
            FindExtremeCycles(RunCycleValues(state_, ch), state_.results().cycles.channel[static_cast<size_t>(ch)]);
    extremesStale_ = false;
    return extremes_;
}

void WaveWindow::updateReadout() {
    // A hidden window reads its cursors when it is shown again, not on
    // every pass of a series.
    readoutStale_ = !isVisible();
    if (!readoutStale_) readout_->setText(QString::fromStdString(CursorReadout(view())));
}

void WaveWindow::showEvent(QShowEvent* e) {
    QWidget::showEvent(e);
    if (readoutStale_) updateReadout();
}

void WaveWindow::refresh() {
    painter_.recordChanged();
    extremesStale_ = true;
    if (state_.settings().analysis.Stacked != stacked_->isChecked()) {
        const QSignalBlocker block(stacked_);
        stacked_->setChecked(state_.settings().analysis.Stacked);
    }
    updateScroll();
    placeCursors(false);
    // The cursors stay where they were on a new record: their readout is the new record's.
    updateReadout();
    canvas_->update();
}

void WaveWindow::wheelAt(double x, int steps) {
    const WaveView v = view();
    const WaveGeometry g = WaveGeometry::Of(canvas_->rect(), v);
    if (g.count == 0) return;
    const double fraction = std::clamp((x - g.plot.left()) / g.plot.width(), 0.0, 1.0);
    showTimeWindow(
        ZoomAround(v.WaveLength, g.plot.width(), {v.zoom, g.first}, fraction, std::pow(kWheelFactor, steps)));
}

void WaveWindow::pressAt(double x) {
    const WaveView v = view();
    const WaveGeometry g = WaveGeometry::Of(canvas_->rect(), v);
    dragging_ = 2;
    for (int i = 0; i < 2; ++i)
        if (cursor_[i] >= 0 && std::abs(g.xOf(cursor_[i] + 0.5) - x) <= kCursorGrip) dragging_ = i;
    dragX_ = x;
    dragFrom_ = {v.zoom, g.first};
}

void WaveWindow::dragTo(double x) {
    if (dragging_ < 0) return;
    const WaveView v = view();
    const WaveGeometry g = WaveGeometry::Of(canvas_->rect(), v);
    if (g.count == 0) return;
    if (dragging_ == 2) {
        const int32_t first = PannedFirst(v.WaveLength, g.plot.width(), dragFrom_, x - dragX_);
        scroll_->setValue(first);
        return;
    }
    // Cursors sit on whole samples: the edges are whole samples too.
    const double sample = std::clamp(std::floor(g.sampleAt(x)), 0.0, static_cast<double>(v.WaveLength - 1));
    cursor_[static_cast<size_t>(dragging_)] = sample;
    updateReadout();
    canvas_->update();
}

void WaveWindow::cursorTo(double x) {
    const WaveView v = view();
    const WaveGeometry g = WaveGeometry::Of(canvas_->rect(), v);
    if (g.count == 0) return;
    const double sample = std::clamp(std::floor(g.sampleAt(x)), 0.0, static_cast<double>(v.WaveLength - 1));
    const bool second = cursor_[0] >= 0 && std::abs(sample - cursor_[1]) < std::abs(sample - cursor_[0]);
    cursor_[second ? 1 : 0] = sample;
    if (cursor_[second ? 0 : 1] < 0) cursor_[second ? 0 : 1] = sample;
    updateReadout();
    canvas_->update();
}

void WaveWindow::fitWhole() { showTimeWindow({1, 0}); }

QString WaveWindow::tipAt(double x) const {
    const WaveView v = view();
    const WaveGeometry g = WaveGeometry::Of(canvas_->rect(), v);
    if (g.count == 0 || x < g.plot.left() || x >= g.plot.right()) return {};
    const double sample = std::floor(g.sampleAt(x));
    QStringList tips;
    for (int ch = 0; ch < kChannels; ++ch) {
        if (!ChannelDrawn(v, ch)) continue;
        const auto& cycles = state_.results().cycles.channel[static_cast<size_t>(ch)];
        const int i = CycleAt(cycles, sample);
        if (i >= 0)
            tips << QString::fromStdString(CycleTip(ch, i, cycles[static_cast<size_t>(i)], state_.record().SampleSec));
    }
    return tips.join("\n\n");
}

QImage WaveWindow::picture(const QSize& size) {
    QImage img(size, QImage::Format_RGB32);
    img.fill(Qt::black);
    QPainter p(&img);
    painter_.paint(p, img.rect(), view());
    return img;
}

void WaveWindow::resizeEvent(QResizeEvent* e) {
    QWidget::resizeEvent(e);
    canvas_->update();
}

}  // namespace mervasto
