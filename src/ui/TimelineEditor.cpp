// The timeline editor as a widget: its children (play head, zoom slider and
// buttons), where lanes and times sit on screen, the lane scroll, and the
// clock tick that follows the player. Drawing is in TimelinePainting.cpp,
// the pointer in TimelineMouse.cpp, placing files by hand in TimelineHand.cpp.
#include "ui/TimelineEditor.h"

#include <QPainter>
#include <QPainterPath>
#include <QSlider>
#include <cmath>

#include "ui/Theme.h"
#include "ui/Widgets.h"

namespace qv::ui {

namespace Timeline {

double rulerStep(double pps) {
    for (double step : {1.0, 2.0, 5.0, 10.0, 30.0, 60.0, 120.0, 300.0, 600.0, 900.0, 1800.0})
        if (step * pps >= 70) return step;
    return 3600;
}

static const double ln60 = std::log(60.0);

double sliderPosition(double zoom) { return std::log(std::max(zoom, 1.0)) / ln60; }
double zoomAt(double position) { return std::pow(60.0, std::clamp(position, 0.0, 1.0)); }
double roundLevel(double db) { return std::round(db * 2) / 2; }

}  // namespace Timeline

namespace {

using namespace Timeline;
constexpr int sliderSteps = 1000;

// A playhead: one accent line across the lanes with a head in the ruler.
class Playhead : public QWidget {
public:
    explicit Playhead(QWidget* parent) : QWidget(parent) {
        setAttribute(Qt::WA_TransparentForMouseEvents);
        setAttribute(Qt::WA_NoSystemBackground);
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        double cx = width() / 2.0;
        p.fillRect(QRectF(cx - 0.5, 0, 1, height()), Theme::accent());
        QPainterPath head;
        head.moveTo(cx - 5, 0);
        head.lineTo(cx + 5, 0);
        head.lineTo(cx + 5, 7);
        head.lineTo(cx, 12);
        head.lineTo(cx - 5, 7);
        head.closeSubpath();
        p.fillPath(head, Theme::accent());
    }
};

}  // namespace

TimelineEditor::TimelineEditor(ScreenModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    setMouseTracking(true);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setFocusPolicy(Qt::NoFocus);
    playhead_ = new Playhead(this);

    zoomOut_ = new SymbolButton("minus.magnifyingglass", 14, this);
    zoomIn_ = new SymbolButton("plus.magnifyingglass", 14, this);
    slider_ = new QSlider(Qt::Horizontal, this);
    slider_->setRange(0, sliderSteps);
    slider_->setFocusPolicy(Qt::NoFocus);
    const QString zoomHelp = QStringLiteral("Zoom de la timeline : curseur, pincer le trackpad, ou Alt + molette");
    slider_->setToolTip(zoomHelp);
    zoomOut_->setToolTip(zoomHelp);
    zoomIn_->setToolTip(zoomHelp);
    connect(zoomOut_, &QAbstractButton::clicked, this, [this] { model_.edit().zoomOut(); });
    connect(zoomIn_, &QAbstractButton::clicked, this, [this] { model_.edit().zoomIn(); });
    connect(slider_, &QSlider::valueChanged, this, [this](int v) {
        if (settingSlider_) return;
        EditModel& e = model_.edit();
        double centre = e.viewStart() + e.duration() / e.zoom() * 0.5;
        e.setZoom(zoomAt(double(v) / sliderSteps), centre, 0.5);
    });
    connect(&model_, &ScreenModel::changed, this, &TimelineEditor::invalidate);
    layoutTracks();
    syncSlider();
}

TimelineEditor::~TimelineEditor() = default;

QSize TimelineEditor::sizeHint() const {
    int h = rulerHeight + montageHeight + bottomHeight;
    for (const Track& t : tracks_) h += t.height;
    return {900, h + 10};
}

QSize TimelineEditor::minimumSizeHint() const { return {headerWidth + 220, rulerHeight + montageHeight + bottomHeight}; }

int TimelineEditor::trackBandTop() const { return rulerHeight + montageHeight; }
int TimelineEditor::trackBandHeight() const { return std::max(0, height() - bottomHeight - trackBandTop()); }

int TimelineEditor::maxLaneScroll() const {
    int lanes = 0;
    for (const Track& t : tracks_) lanes += t.height;
    return std::max(0, lanes - trackBandHeight());
}

void TimelineEditor::setLaneScroll(int pixels) {
    const int clamped = std::clamp(pixels, 0, maxLaneScroll());
    if (clamped == laneScroll_) return;
    laneScroll_ = clamped;
    layoutTracks();
    dirty_ = true;
    update();
}

void TimelineEditor::layoutTracks() {
    tracks_.clear();
    int y = trackBandTop() - laneScroll_;
    const auto& cams = model_.cameraSources();
    for (size_t i = 0; i < cams.size(); ++i) {
        tracks_.push_back({cams[i], false, int(i) + 1, y, cameraHeight});
        y += cameraHeight;
    }
    int n = 0;
    for (size_t s = 0; s < model_.sources().size(); ++s)
        if (model_.sources()[s].kind == SourceKind::audio) {
            tracks_.push_back({int(s), true, ++n, y, audioHeight});
            y += audioHeight;
        }
}

double TimelineEditor::laneWidth() const { return std::max(200, width() - headerWidth - 1); }

double TimelineEditor::pointsPerSecond() const {
    const EditModel& e = model_.edit();
    return laneWidth() * e.zoom() / std::max(1.0, e.duration());
}

double TimelineEditor::xOf(double t) const {
    return laneLeft() + (t - model_.edit().viewStart()) * pointsPerSecond();
}

double TimelineEditor::timeAt(double x) const {
    return model_.edit().viewStart() + (x - laneLeft()) / pointsPerSecond();
}

QRect TimelineEditor::rulerRect() const { return {laneLeft(), 0, int(laneWidth()), rulerHeight}; }
QRect TimelineEditor::montageRect() const { return {laneLeft(), rulerHeight, int(laneWidth()), montageHeight}; }

QRectF TimelineEditor::overviewRect() const {
    return {double(laneLeft()), double(height() - bottomHeight + 3), laneWidth() - 8, 24};
}

QRectF TimelineEditor::thumbRect() const {
    const EditModel& e = model_.edit();
    QRectF o = overviewRect();
    double d = std::max(1.0, e.duration());
    return {o.left() + e.viewStart() / d * o.width(), o.top(), o.width() / e.zoom(), o.height()};
}

QRectF TimelineEditor::muteRect(const Track& t) const {
    return {headerWidth - 28.0, t.top + (t.height - 22) / 2.0, 22, 22};
}

QRectF TimelineEditor::muteRectOf(int source) const {
    for (const Track& t : tracks_)
        if (t.source == source) return muteRect(t);
    return {};
}

QRectF TimelineEditor::levelRect(const Track& t) const {
    return {118, t.top + (t.height - 14) / 2.0, 50, 14};
}

void TimelineEditor::invalidate() {
    dirty_ = true;
    syncSlider();
    tick();
    update();
}

void TimelineEditor::syncSlider() {
    settingSlider_ = true;
    slider_->setValue(int(std::lround(sliderPosition(model_.edit().zoom()) * sliderSteps)));
    settingSlider_ = false;
}

void TimelineEditor::resizeEvent(QResizeEvent*) {
    setLaneScroll(laneScroll_);  // a taller view may show every lane again
    int y = height() - bottomHeight;
    zoomOut_->setGeometry(8, y + 3, 24, 24);
    slider_->setGeometry(36, y + 3, headerWidth - 72, 24);
    zoomIn_->setGeometry(headerWidth - 32, y + 3, 24, 24);
    dirty_ = true;
    tick();
}

void TimelineEditor::tick() {
    const PlayerControl* player = model_.player();
    if (!player) return;
    EditModel& e = model_.edit();
    const double t = player->currentTime();
    if (player->isPlaying()) e.followPlayhead(t);  // a page turn redraws through the view change
    const int active = e.activeCamera(t);
    if (active != shownCamera_) {
        shownCamera_ = active;
        dirty_ = true;
        update(0, 0, headerWidth, height());
    }
    const double x = xOf(t);
    const bool visible = x >= laneLeft() - 1 && x <= laneLeft() + laneWidth();
    QRect g(int(std::floor(x)) - 5, 0, 11, height() - bottomHeight);
    playhead_->setVisible(visible);
    if (visible && playhead_->geometry() != g) playhead_->setGeometry(g);
}

}  // namespace qv::ui
