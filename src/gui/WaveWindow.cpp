#include "gui/WaveWindow.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QPainter>
#include <QScrollBar>
#include <QVBoxLayout>

#include "app/RunState.h"
#include "common/Numeric.h"

namespace mervasto {

class WaveWindow::Canvas : public QWidget {
public:
    explicit Canvas(WaveWindow* owner) : QWidget(owner), owner_(owner) {
        setMinimumSize(480, 320);
        setAttribute(Qt::WA_OpaquePaintEvent);
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.fillRect(rect(), Qt::black);
        owner_->painter_.paint(p, rect(), owner_->view());
    }

private:
    WaveWindow* owner_;
};

WaveWindow::WaveWindow(RunState& state, Mode mode, QWidget* parent)
    : QWidget(parent, Qt::Window), state_(state), mode_(mode) {
    setObjectName(mode == Mode::All ? "WaveFormAll" : "WaveForm");
    setWindowTitle(mode == Mode::All ? "DSO Wave(All)" : "DSO Wave(Each)");
    auto* layout = new QVBoxLayout(this);
    if (mode == Mode::Each) {
        channel_ = new QComboBox(this);
        channel_->setObjectName("WaveChannel");
        for (int ch = 1; ch <= 4; ++ch) channel_->addItem(QStringLiteral("Ch%1").arg(ch));
        connect(channel_, &QComboBox::currentIndexChanged, this, [this] { canvas_->update(); });
        layout->addWidget(channel_);
    }
    canvas_ = new Canvas(this);
    layout->addWidget(canvas_, 1);
    scroll_ = new QScrollBar(Qt::Horizontal, this);
    scroll_->setObjectName("SearchScroll");
    connect(scroll_, &QScrollBar::valueChanged, this, [this] { canvas_->update(); });
    layout->addWidget(scroll_);
    resize(800, 520);
}

WaveView WaveWindow::view() const {
    WaveView v;
    SetViewData(v, state_.record, state_.results.table, state_.results.cycles);
    for (int ch = 0; ch < kWaveChannels; ++ch) {
        auto& c = v.channel[static_cast<size_t>(ch)];
        const auto& s = state_.settings.channels[static_cast<size_t>(ch)];
        c.VoltsPerDiv = state_.setup.VoltsPerDiv[static_cast<size_t>(ch + 1)];
        c.Offset = state_.setup.Offset[static_cast<size_t>(ch + 1)];
        c.colour = static_cast<uint32_t>(s.BackColor);
        c.visible = !s.DispOffCheck;
        c.name = s.SigName;
    }
    v.Histerisis = static_cast<float>(Val(state_.settings.analysis.Histerisis));
    v.rejectFlag = state_.settings.RejectRangeSet && state_.settings.analysis.OmitRangeEffect;
    v.rejectStart = state_.settings.RejectStart;
    v.rejectEnd = state_.settings.RejectEnd;
    v.onlyChannel = channel_ ? channel_->currentIndex() : -1;
    double zoom = Val(state_.settings.analysis.ZoomRate);
    v.zoom = zoom < 1 ? 1 : (zoom >= kMaxZoom ? kMaxZoom - 1 : zoom);
    v.firstSample = scroll_->value();
    return v;
}

void WaveWindow::updateScroll() {
    double zoom = Val(state_.settings.analysis.ZoomRate);
    if (zoom < 1) zoom = 1;
    const int32_t n = state_.record.WaveLength;
    const int32_t visible = static_cast<int32_t>(n / zoom);
    scroll_->setRange(0, std::max(0, n - visible));
    scroll_->setPageStep(std::max(1, visible));
    scroll_->setSingleStep(std::max(1, visible / 10));
}

void WaveWindow::refresh() {
    painter_.recordChanged();
    updateScroll();
    canvas_->update();
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
