#include "gui/PlotWindow.h"

#include <QBuffer>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <algorithm>
#include <functional>
#include <utility>

#include "app/RunState.h"
#include "common/TextFile.h"
#include "display/WavePainter.h"
#include "display/WindowPicture.h"
#include "gui/GuardedApplication.h"

namespace mervasto {

namespace {

const QSize kSavedPictureSize(900, 420);

Outcome savePng(const QImage& image, const std::string& fileName) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    if (!image.save(&buffer, "PNG")) return {ErrorCode::FileIo, "The picture could not be encoded: " + fileName};
    return WriteFileReplacing(fileName, std::string_view(bytes.constData(), static_cast<size_t>(bytes.size())));
}

}  // namespace

class PlotWindow::Canvas : public QWidget {
public:
    Canvas(QWidget* parent, const char* name, std::function<void(QPainter&, const QRect&)> paint,
           std::function<void(double)> click = {})
        : QWidget(parent), paint_(std::move(paint)), click_(std::move(click)) {
        setObjectName(name);
        setMinimumSize(420, 180);
        setAttribute(Qt::WA_OpaquePaintEvent);
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        paint_(p, rect());
    }
    void mousePressEvent(QMouseEvent* e) override {
        if (click_ && e->button() == Qt::LeftButton) click_(e->position().x());
    }

private:
    std::function<void(QPainter&, const QRect&)> paint_;
    std::function<void(double)> click_;
};

PlotWindow::PlotWindow(RunState& state, QWidget* parent) : QWidget(parent, Qt::Window), state_(state) {
    setObjectName("PlotForm");
    setWindowTitle("Histogram / Trend");
    auto* layout = new QVBoxLayout(this);
    auto* bar = new QHBoxLayout;
    channel_ = new QComboBox(this);
    channel_->setObjectName("PlotChannel");
    for (int ch = 1; ch <= kChannels; ++ch) channel_->addItem(QStringLiteral("Ch%1").arg(ch));
    bar->addWidget(channel_);
    bar->addWidget(new QLabel("Bins", this));
    bins_ = new QSpinBox(this);
    bins_->setObjectName("HistogramBins");
    bins_->setRange(0, kMaxHistogramBins);
    bins_->setSpecialValueText("auto");
    bins_->setToolTip("Number of bars; \"auto\" chooses it from the data");
    bar->addWidget(bins_);
    binNote_ = new QLabel(this);
    binNote_->setObjectName("BinNote");
    bar->addWidget(binNote_);
    bar->addSpacing(16);
    bar->addWidget(new QLabel("Trend against", this));
    trendAxis_ = new QComboBox(this);
    trendAxis_->setObjectName("TrendAxis");
    trendAxis_->addItems({"cycle number", "time"});
    bar->addWidget(trendAxis_);
    bar->addWidget(new QLabel("of", this));
    trendOf_ = new QComboBox(this);
    trendOf_->setObjectName("TrendOf");
    trendOf_->addItems({"values", "time interval error", "encoder position"});
    trendOf_->setToolTip(
        "The time interval error is each rising edge against the straight line fitted to the "
        "edges; the encoder position is the x4 count after each step");
    bar->addWidget(trendOf_);
    bar->addStretch(1);
    auto* save = new QPushButton("Save PNG + CSV", this);
    save->setObjectName("SavePlots");
    save->setToolTip("The plots as PNG and their data as CSV, into the output folder");
    bar->addWidget(save);
    layout->addLayout(bar);
    histogramCanvas_ = new Canvas(
        this, "HistogramCanvas",
        [this](QPainter& p, const QRect& r) {
            PaintHistogram(p, r, plots_.histogram, style("histogram"), selection_.bin());
        },
        [this](double x) { clickBar(HistogramBarAt(histogramCanvas_->rect(), plots_.histogram, true, x)); });
    histogramCanvas_->setToolTip("Click a bar to see its cycles in the wave windows, one per click");
    trendCanvas_ = new Canvas(this, "TrendCanvas", [this](QPainter& p, const QRect& r) { paintTrend(p, r); });
    seriesCanvas_ = new Canvas(this, "SeriesCanvas", [this](QPainter& p, const QRect& r) {
        PaintSeriesTrend(p, r, series_.channel(channel()), style("per pass"));
    });
    seriesCanvas_->setToolTip("Each pass of a repeat series: Min to Max as a bar, the Mean as a white line");
    layout->addWidget(histogramCanvas_, 1);
    layout->addWidget(trendCanvas_, 1);
    layout->addWidget(seriesCanvas_, 1);
    saveNote_ = new QLabel(this);
    saveNote_->setObjectName("SaveNote");
    saveNote_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(saveNote_);

    connect(channel_, &QComboBox::currentIndexChanged, this, [this] { refresh(); });
    connect(bins_, &QSpinBox::valueChanged, this, [this] { refresh(); });
    connect(trendAxis_, &QComboBox::currentIndexChanged, this, [this] { trendCanvas_->update(); });
    connect(trendOf_, &QComboBox::currentIndexChanged, this, [this] { trendCanvas_->update(); });
    connect(save, &QPushButton::clicked, this, [this] {
        std::vector<std::string> names;
        Outcome saved = savePlots(names);
        if (!saved) return GuardedApplication::report(saved);
        QStringList shown;
        for (const auto& n : names) shown << QString::fromStdString(n);
        saveNote_->setText("Saved " + shown.join(", "));
    });
    subscriptions_.push_back(state_.runStarted.subscribe([this] {
        series_.clear();
        if (isVisible()) seriesCanvas_->update();
    }));
    // Four appends per pass; the picture is drawn later by the event loop,
    // and only when the window is shown, so a long series is not slowed.
    subscriptions_.push_back(state_.passFinished.subscribe([this] {
        series_.add(state_.repeatCounter(), state_.results().table, state_.channelDisplays());
        if (isVisible()) seriesCanvas_->update();
    }));
    resize(900, 820);
}

int PlotWindow::channel() const { return std::max(channel_->currentIndex(), 0); }

std::string PlotWindow::trendXUnit() const { return trendAxis_->currentIndex() == 1 ? "s" : ""; }

PlotWindow::TrendData PlotWindow::trend() const {
    switch (trendOf_->currentIndex()) {
    case 1: return {&plots_.tie, "s", "time interval error"};
    case 2: return {&plots_.encoder, "", "encoder position"};
    default: return {&plots_.cycles, plots_.unit, "trend"};
    }
}

void PlotWindow::paintTrend(QPainter& p, const QRect& r) const {
    const TrendData t = trend();
    PlotStyle st = style(t.what);
    st.unit = t.unit;
    PaintTrend(p, r, trendXUnit().empty() ? plots_.numbers : t.series->times, t.series->values, trendXUnit(), st);
}

PlotStyle PlotWindow::style(const char* what) const {
    const int ch = channel();
    const auto& s = state_.settings().channels[static_cast<size_t>(ch)];
    PlotStyle st;
    st.title = ChannelPlotTitle(ch, s, what);
    st.unit = plots_.unit;
    st.colour = static_cast<uint32_t>(s.BackColor);
    return st;
}

void PlotWindow::refresh() {
    plots_ = RunChannelPlots(state_, channel(), bins_->value());
    selection_.clear();
    const auto bars = static_cast<int>(plots_.histogram.counts.size());
    binNote_->setText(plots_.cycles.values.empty() ? QStringLiteral("no cycles")
                      : plots_.histogram.chosen    ? QStringLiteral("%1 bins, chosen from the data").arg(bars)
                                                   : QStringLiteral("%1 bins").arg(bars));
    histogramCanvas_->update();
    trendCanvas_->update();
    seriesCanvas_->update();
}

void PlotWindow::clickBar(int32_t bin) {
    const int ch = channel();
    const int32_t cycle = bin < 0 ? -1
                                  : selection_.click(plots_.histogram, plots_.cycles.values,
                                                     state_.results().cycles.channel[static_cast<size_t>(ch)], bin);
    if (cycle < 0) {
        binNote_->setText(bin < 0 ? binNote_->text() : QStringLiteral("no cycle in that bar to show"));
        histogramCanvas_->update();
        return;
    }
    binNote_->setText(QStringLiteral("bar %1: cycle %2 (%3 of %4)")
                          .arg(bin + 1)
                          .arg(cycle + 1)
                          .arg(selection_.position() + 1)
                          .arg(selection_.size()));
    histogramCanvas_->update();
    emit cycleChosen(ch, cycle);
}

QImage PlotWindow::histogramPicture(const QSize& size) const {
    QImage image(size, QImage::Format_RGB32);
    QPainter p(&image);
    PaintHistogram(p, image.rect(), plots_.histogram, style("histogram"));
    return image;
}

QImage PlotWindow::trendPicture(const QSize& size) const {
    QImage image(size, QImage::Format_RGB32);
    QPainter p(&image);
    paintTrend(p, image.rect());
    return image;
}

QImage PlotWindow::seriesPicture(const QSize& size) const {
    QImage image(size, QImage::Format_RGB32);
    QPainter p(&image);
    PaintSeriesTrend(p, image.rect(), series_.channel(channel()), style("per pass"));
    return image;
}

Outcome PlotWindow::savePlots(std::vector<std::string>& names) {
    const std::string channelPart = "_Ch" + std::to_string(channel() + 1);
    auto name = [&](const char* suffix) {
        return CaptureFileName(state_.dataFolder(), state_.sampleName(), state_.captureCounter(), channelPart + suffix);
    };
    names = {name("_Histogram.png"), name("_Histogram.csv"), name("_Trend.png"), name("_Trend.csv")};
    Outcome o = savePng(histogramPicture(kSavedPictureSize), names[0]);
    if (o) o = WriteFileReplacing(names[1], HistogramCsv(plots_.histogram, plots_.unit));
    if (o) o = savePng(trendPicture(kSavedPictureSize), names[2]);
    const TrendData t = trend();
    if (o) o = WriteFileReplacing(names[3], TrendCsv(t.series->values, t.series->times, t.unit));
    if (o && series_.passes() > 0) {
        names.push_back(name("_Series.png"));
        names.push_back(name("_Series.csv"));
        o = savePng(seriesPicture(kSavedPictureSize), names[4]);
        if (o) o = WriteFileReplacing(names[5], SeriesTrendCsv(series_.channel(channel()), plots_.unit));
    }
    if (!o) return o;
    // Like the window pictures: the next save never overwrites this one.
    state_.captureTaken();
    return Outcome::Ok();
}

}  // namespace mervasto
