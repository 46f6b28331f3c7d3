#include "ui/TimelineEditor.h"

#include <QContextMenuEvent>
#include <QHelpEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QNativeGestureEvent>
#include <QPainter>
#include <QPainterPath>
#include <QSlider>
#include <QToolTip>
#include <QWheelEvent>
#include <cmath>
#include <functional>

#include "base/Format.h"
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
constexpr double levelMin = -30, levelMax = 6;
constexpr int sliderSteps = 1000;

QString tc(double t) { return QString::fromStdString(Format::timecode(t)); }

// One muted colour per camera, so plans read at a glance.
QColor cameraColor(int camera) {
    static const QColor colors[] = {
        QColor(0x3d, 0x55, 0x70), QColor(0x6e, 0x4f, 0x35), QColor(0x3b, 0x63, 0x55), QColor(0x62, 0x3f, 0x5c),
        QColor(0x5a, 0x62, 0x3a), QColor(0x35, 0x5d, 0x6b), QColor(0x6b, 0x3c, 0x3c), QColor(0x4c, 0x4a, 0x6e),
    };
    return colors[((camera % 8) + 8) % 8];
}

QColor mixColor(const QColor& under, const QColor& over, double alpha) {
    return QColor::fromRgbF(float(under.redF() * (1 - alpha) + over.redF() * alpha),
                            float(under.greenF() * (1 - alpha) + over.greenF() * alpha),
                            float(under.blueF() * (1 - alpha) + over.blueF() * alpha));
}

const QColor audioBar(0x3a, 0x5c, 0x4a);
const QColor audioWave(0x9c, 0xd9, 0xb0);

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

std::vector<const PlacedItem*> placedOf(const std::optional<SyncResult>& result, int source) {
    std::vector<const PlacedItem*> out;
    if (!result) return out;
    for (const PlacedItem& p : result->placed)
        if (p.sourceIndex == source) out.push_back(&p);
    return out;
}

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

// --- Painting

void TimelineEditor::paintEvent(QPaintEvent* event) {
    const qreal dpr = devicePixelRatioF();
    if (dirty_ || cache_.size() != size() * dpr) {
        cache_ = QPixmap(size() * dpr);
        cache_.setDevicePixelRatio(dpr);
        QPainter cp(&cache_);
        render(cp);
        dirty_ = false;
        ++laneRenders_;
    }
    QPainter p(this);
    p.drawPixmap(event->rect(), cache_,
                 QRectF(event->rect().topLeft() * dpr, event->rect().size() * dpr));
    if (handDrag_ && handDrag_->start) paintHandDrag(p);
}

void TimelineEditor::render(QPainter& p) {
    const EditModel& e = model_.edit();
    p.fillRect(rect(), Theme::paper());
    p.setRenderHint(QPainter::Antialiasing);
    const std::vector<Segment> plans = e.segments();
    const int active = shownCamera_;

    // Lanes, clipped to their column.
    p.save();
    p.setClipRect(QRectF(laneLeft(), 0, laneWidth(), height() - bottomHeight));
    paintRuler(p);
    paintMontage(p, plans);
    p.save();
    p.setClipRect(QRectF(laneLeft(), trackBandTop(), laneWidth(), trackBandHeight()));
    for (const Track& t : tracks_) paintTrack(p, t, active);
    p.restore();
    // Drops run down the lanes as faint lines, the export range dims what is outside it.
    for (const Drop& d : e.drops())
        p.fillRect(QRectF(xOf(d.time), rulerHeight, 1, height() - bottomHeight - rulerHeight),
                   Theme::withAlpha(Theme::accent(), 0.16));
    TimeRange r = e.exportRange();
    if (e.inPoint() || e.outPoint()) {
        QColor shade(0, 0, 0, 110);
        double top = rulerHeight, h = height() - bottomHeight - rulerHeight;
        p.fillRect(QRectF(laneLeft(), top, xOf(r.start) - laneLeft(), h), shade);
        p.fillRect(QRectF(xOf(r.end), top, laneLeft() + laneWidth() - xOf(r.end), h), shade);
        p.fillRect(QRectF(xOf(r.start), top, 1, h), Theme::withAlpha(Theme::accent(), 0.7));
        p.fillRect(QRectF(xOf(r.end) - 1, top, 1, h), Theme::withAlpha(Theme::accent(), 0.7));
    }
    p.restore();

    // Headers.
    p.fillRect(QRectF(0, 0, headerWidth, height()), Theme::paperSoft());
    p.fillRect(QRectF(headerWidth, 0, 1, height()), Theme::line());
    p.setFont(Theme::numbers(10));
    p.setPen(Theme::gray3());
    p.drawText(QRectF(12, 0, headerWidth - 24, rulerHeight), Qt::AlignVCenter | Qt::AlignLeft,
               QStringLiteral("ZOOM ×%1").arg(e.zoom(), 0, 'f', 1));
    p.fillRect(QRectF(0, rulerHeight - 1, width(), 1), Theme::line());

    // MONTAGE header.
    const QRectF mh(0, rulerHeight, headerWidth, montageHeight);
    p.fillRect(mh, Theme::paperSoft());
    Theme::drawSymbol(p, QRectF(8, mh.top(), 26, montageHeight), "film.stack", 16, Theme::accent());
    p.setFont(Theme::numbers(13));
    p.setPen(Theme::ink());
    p.drawText(QRectF(40, mh.top(), 100, montageHeight), Qt::AlignVCenter | Qt::AlignLeft, QStringLiteral("MONTAGE"));
    const int n = int(e.cuts().size());
    p.setFont(Theme::text(10));
    p.setPen(Theme::gray3());
    p.drawText(QRectF(120, mh.top(), headerWidth - 130, montageHeight), Qt::AlignVCenter | Qt::AlignRight,
               QStringLiteral("%1 %2").arg(n).arg(n == 1 ? QStringLiteral("coupe") : QStringLiteral("coupes")));
    p.fillRect(QRectF(0, mh.bottom() - 1, width(), 1), Theme::line());

    p.save();
    p.setClipRect(QRectF(0, trackBandTop(), headerWidth, trackBandHeight()));
    for (const Track& t : tracks_) paintHeader(p, t, active);
    p.restore();
    // Where the shown lanes stand among all of them, when some are hidden.
    if (const int most = maxLaneScroll(); most > 0) {
        const double band = trackBandHeight(), all = band + most;
        const double h = std::max(16.0, band * band / all), y = trackBandTop() + (band - h) * laneScroll_ / most;
        p.fillRect(QRectF(width() - 5, y, 3, h), Theme::withAlpha(Theme::ink(), 0.35));
    }
    paintBottom(p);
}

void TimelineEditor::paintRuler(QPainter& p) {
    const EditModel& e = model_.edit();
    const double pps = pointsPerSecond();
    p.fillRect(QRectF(laneLeft(), 0, laneWidth(), rulerHeight), Theme::paperSoft());
    const double step = rulerStep(pps);
    const double from = e.viewStart(), to = timeAt(laneLeft() + laneWidth());
    // Minor ticks between the labelled ones, when there is room for them.
    const double minor = step / 5;
    if (minor * pps >= 8)
        for (double t = std::floor(from / minor) * minor; t <= to; t += minor)
            p.fillRect(QRectF(xOf(t), rulerHeight - 6, 1, 3), Theme::gray4());
    p.setFont(Theme::numbers(9));
    for (double t = std::floor(from / step) * step; t <= to + step; t += step) {
        double x = xOf(t);
        p.fillRect(QRectF(x, rulerHeight - 11, 1, 8), Theme::gray3());
        p.setPen(Theme::gray2());
        p.drawText(QRectF(x + 4, 12, 80, 12), Qt::AlignLeft | Qt::AlignVCenter, tc(t));
    }
    // The export range; a range that covers the whole set draws no marks.
    if (!e.rangeIsWholeSet()) {
        TimeRange r = e.exportRange();
        double a = xOf(r.start), b = xOf(r.end);
        p.fillRect(QRectF(a, rulerHeight - 5, b - a, 5), Theme::withAlpha(Theme::accent(), 0.4));
        p.setPen(Qt::NoPen);
        p.setBrush(Theme::accent());
        QPainterPath in;
        in.addRoundedRect(QRectF(a, 11, 7, 19), 1.5, 1.5);
        QPainterPath out;
        out.addRoundedRect(QRectF(b - 7, 11, 7, 19), 1.5, 1.5);
        p.drawPath(in);
        p.drawPath(out);
        p.setPen(Theme::paper());
        p.setFont(Theme::numbers(8));
        p.drawText(QRectF(a, 11, 7, 19), Qt::AlignCenter, QStringLiteral("I"));
        p.drawText(QRectF(b - 7, 11, 7, 19), Qt::AlignCenter, QStringLiteral("O"));
    }
    // Drops.
    for (const Drop& d : e.drops()) {
        double x = xOf(d.time);
        Theme::drawSymbol(p, QRectF(x - 7, 0, 14, 13), "bolt.fill", 11, Theme::accent());
    }
}

void TimelineEditor::paintMontage(QPainter& p, const std::vector<Segment>& plans) {
    const EditModel& e = model_.edit();
    const QRectF lane(laneLeft(), rulerHeight, laneWidth(), montageHeight);
    p.fillRect(lane, Theme::paper());
    const auto selected = e.selectedSegment();
    for (const Segment& s : plans) {
        double x0 = xOf(s.start), x1 = xOf(s.end);
        if (x1 < lane.left() || x0 > lane.right()) continue;
        QRectF block(x0 + 0.5, lane.top() + 4, std::max(1.0, x1 - x0 - 1), montageHeight - 8);
        QColor c = cameraColor(s.camera);
        p.setPen(Qt::NoPen);
        p.setBrush(c);
        p.drawRoundedRect(block, 3, 3);
        p.fillRect(QRectF(block.left() + 2, block.top(), block.width() - 4, 1), c.lighter(135));
        const double w = x1 - x0;
        if (w >= 40) {
            p.setFont(Theme::numbers(13));
            p.setPen(Theme::ink());
            // A block that starts before the view keeps its number in sight.
            const double left = std::max(block.left(), lane.left());
            p.drawText(QRectF(left + 7, block.top(), block.right() - left - 7, block.height()),
                       Qt::AlignVCenter | Qt::AlignLeft, QString::number(s.camera + 1));
        }
        if (w >= 80) {
            const ResolvedEffect fx = e.resolvedEffect(s);
            std::vector<const char*> icons;
            if (fx.zoom > 0) icons.push_back("plus.magnifyingglass");
            if (fx.zoom < 0) icons.push_back("minus.magnifyingglass");
            if (fx.shake) icons.push_back("waveform.path");
            if (fx.lens) icons.push_back("camera.aperture");
            if (fx.shutter) icons.push_back("wind");
            if (fx.vhs) icons.push_back("tv");
            double x = block.right() - 6 - 13.0 * double(icons.size());
            for (const char* icon : icons) {
                Theme::drawSymbol(p, QRectF(x, block.top(), 13, block.height()), icon, 11,
                                  Theme::withAlpha(Theme::ink(), 0.85));
                x += 13;
            }
        }
        if (selected && *selected == s.id) {
            p.setPen(QPen(Theme::accent(), 2));
            p.setBrush(Qt::NoBrush);
            p.drawRoundedRect(block.adjusted(1, 1, -1, -1), 3, 3);
        }
    }
}

void TimelineEditor::paintTrack(QPainter& p, const Track& t, int) {
    const EditModel& e = model_.edit();
    const QRectF lane(laneLeft(), t.top, laneWidth(), t.height);
    p.fillRect(lane, (t.number % 2) ? Theme::paper() : QColor(0x0f, 0x0f, 0x0e));
    p.fillRect(QRectF(lane.left(), lane.bottom() - 1, lane.width(), 1), Theme::line());
    const double pps = pointsPerSecond();
    const TrackMix mix = model_.mix(t.source);
    for (const PlacedItem* item : placedOf(e.result(), t.source)) {
        double x0 = xOf(item->start);
        double w = std::max(item->item.duration * pps, 2.0);
        if (x0 > lane.right() || x0 + w < lane.left()) continue;
        QRectF bar(x0, t.top + 3, w, t.height - 6);
        if (!t.audio) {
            p.setPen(Qt::NoPen);
            p.setBrush(mixColor(Theme::barFill(), Theme::ink(), 0.18));
            p.drawRoundedRect(bar, 2.5, 2.5);
            if (item->ambiguous || item->byHand)
                p.fillRect(QRectF(bar.left(), bar.top(), 3, bar.height()),
                           item->byHand ? Theme::accent() : Theme::warning());
            if (w >= 20) {
                p.save();
                p.setClipRect(bar.adjusted(5, 0, -5, 0).intersected(lane));
                p.setFont(Theme::text(9, Theme::Weight::medium));
                p.setPen(Theme::gray1());
                QString name = QString::fromStdString(item->item.fileName());
                double textX = std::max(bar.left() + 5, lane.left() + 5);
                QRectF textRect(textX, bar.top(), bar.right() - textX - 5, bar.height());
                p.drawText(textRect, Qt::AlignVCenter | Qt::AlignLeft, name);
                if (item->ambiguous || item->byHand) {
                    QFontMetrics fm(p.font());
                    p.setPen(item->byHand ? Theme::accent() : Theme::warning());
                    p.setFont(Theme::text(9, Theme::Weight::semibold));
                    p.drawText(textRect.adjusted(fm.horizontalAdvance(name) + 10, 0, 0, 0),
                               Qt::AlignVCenter | Qt::AlignLeft,
                               item->byHand ? QStringLiteral("Placé à la main") : QStringLiteral("Calage à vérifier"));
                }
                p.restore();
            }
        } else {
            p.setPen(Qt::NoPen);
            p.setBrush(Theme::withAlpha(audioBar, 0.45));
            p.drawRoundedRect(bar, 2.5, 2.5);
            // One bar per column, from the centre up and down, in one fill.
            const auto& wave = item->waveform;
            if (wave.empty()) continue;
            const double left = std::max(bar.left(), lane.left()), right = std::min(bar.right(), lane.right());
            const double mid = bar.center().y(), half = bar.height() / 2 - 1;
            QPainterPath path;
            for (double x = std::floor(left); x < right; x += 1) {
                double t0 = (x - x0) / pps, t1 = (x + 1 - x0) / pps;
                size_t a = size_t(std::max(0.0, t0 * 20)), b = size_t(std::max(0.0, std::ceil(t1 * 20)));
                b = std::min(std::max(b, a + 1), wave.size());
                float peak = 0;
                for (size_t i = a; i < b; ++i) peak = std::max(peak, wave[i]);
                double h = std::max(0.5, double(peak) * half);
                path.addRect(QRectF(x, mid - h, 1, 2 * h));
            }
            p.fillPath(path, Theme::withAlpha(mix.muted ? Theme::gray4() : audioWave, 0.92));
        }
    }
    paintWaiting(p, t);
}

void TimelineEditor::paintHeader(QPainter& p, const Track& t, int active) {
    const QRectF h(0, t.top, headerWidth, t.height);
    const bool onScreen = !t.audio && t.number - 1 == active;
    p.fillRect(h, onScreen ? mixColor(Theme::paperSoft(), Theme::accent(), 0.10) : Theme::paperSoft());
    if (onScreen) p.fillRect(QRectF(0, t.top, 3, t.height), Theme::accent());
    p.fillRect(QRectF(0, h.bottom() - 1, headerWidth, 1), Theme::line());
    const QRectF numberBox(6, t.top, 30, t.height);
    if (t.audio) {
        Theme::drawSymbol(p, numberBox, "waveform", 17, Theme::gray2());
    } else {
        p.setFont(Theme::numbers(18));
        p.setPen(onScreen ? Theme::accent() : Theme::gray1());
        p.drawText(numberBox, Qt::AlignCenter, QString::number(t.number));
    }
    const TrackMix mix = model_.mix(t.source);
    const QString name = QString::fromStdString(model_.sources()[size_t(t.source)].name);
    p.setFont(Theme::text(12, Theme::Weight::medium));
    p.setPen(mix.muted ? Theme::gray4() : Theme::gray1());
    QFontMetrics fm(p.font());
    p.drawText(QRectF(40, t.top, 74, t.height), Qt::AlignVCenter | Qt::AlignLeft,
               fm.elidedText(name, Qt::ElideRight, mix.muted ? 44 : 74));
    if (mix.muted) {
        p.setFont(Theme::text(9, Theme::Weight::semibold, 0.8));
        p.setPen(Theme::warning());
        p.drawText(QRectF(84, t.top, 32, t.height), Qt::AlignVCenter | Qt::AlignLeft, QStringLiteral("muet"));
    }
    // Level: a thin groove, the filled part from the left, a knob, the value.
    const QRectF lr = levelRect(t);
    const double f = (mix.levelDb - levelMin) / (levelMax - levelMin);
    const double zeroX = lr.left() + (0 - levelMin) / (levelMax - levelMin) * lr.width();
    p.fillRect(QRectF(lr.left(), lr.center().y() - 1, lr.width(), 2), Theme::lineStrong());
    p.fillRect(QRectF(lr.left(), lr.center().y() - 1, f * lr.width(), 2), Theme::gray3());
    p.fillRect(QRectF(zeroX, lr.center().y() - 3, 1, 6), Theme::gray4());
    p.setPen(Qt::NoPen);
    p.setBrush(Theme::gray1());
    p.drawEllipse(QPointF(lr.left() + f * lr.width(), lr.center().y()), 4, 4);
    p.setFont(Theme::numbers(9));
    p.setPen(Theme::gray2());
    p.drawText(QRectF(lr.right() + 2, t.top, 24, t.height), Qt::AlignVCenter | Qt::AlignRight,
               QString::asprintf("%+.0f", mix.levelDb));
    Theme::drawSymbol(p, muteRect(t), mix.muted ? "speaker.slash.fill" : "speaker.wave.2.fill", 14,
                      mix.muted ? Theme::warning() : Theme::gray2());
}

void TimelineEditor::paintBottom(QPainter& p) {
    const EditModel& e = model_.edit();
    const double top = height() - bottomHeight;
    p.fillRect(QRectF(0, top, width(), bottomHeight), Theme::paperSoft());
    p.fillRect(QRectF(0, top, width(), 1), Theme::line());
    const QRectF o = overviewRect();
    p.setPen(Qt::NoPen);
    p.setBrush(Theme::paper());
    p.drawRoundedRect(o, 3, 3);
    const double d = std::max(1.0, e.duration());
    auto ox = [&](double t) { return o.left() + t / d * o.width(); };
    for (const Segment& s : e.segments())
        p.fillRect(QRectF(ox(s.start), o.top() + 8, std::max(1.0, ox(s.end) - ox(s.start)), 8),
                   Theme::withAlpha(cameraColor(s.camera), 0.9));
    if (e.inPoint() || e.outPoint()) {
        TimeRange r = e.exportRange();
        p.fillRect(QRectF(ox(r.start), o.bottom() - 3, ox(r.end) - ox(r.start), 3), Theme::accent());
    }
    for (const Drop& drop : e.drops()) p.fillRect(QRectF(ox(drop.time), o.top() + 2, 1, 4), Theme::accent());
    if (e.zoom() > 1.01) {
        QRectF thumb = thumbRect();
        p.setBrush(Theme::withAlpha(Theme::ink(), 0.10));
        p.setPen(QPen(Theme::gray2(), 1));
        p.drawRoundedRect(thumb.adjusted(0.5, 0.5, -0.5, -0.5), 3, 3);
    }
}

// --- Hit testing and help

TimelineEditor::Hit TimelineEditor::hitTest(QPointF pos) const {
    const EditModel& e = model_.edit();
    const double x = pos.x(), y = pos.y();
    if (y >= height() - bottomHeight) {
        if (overviewRect().contains(pos)) {
            if (e.zoom() > 1.01 && thumbRect().contains(pos)) return {Hit::thumb};
            return {Hit::overview};
        }
        return {};
    }
    if (x < headerWidth) {
        if (y < trackBandTop()) return {};
        for (size_t i = 0; i < tracks_.size(); ++i) {
            const Track& t = tracks_[i];
            if (y < t.top || y >= t.top + t.height) continue;
            if (muteRect(t).contains(pos)) return {Hit::mute, int(i)};
            if (levelRect(t).adjusted(-6, -6, 6, 6).contains(pos)) return {Hit::level, int(i)};
        }
        return {};
    }
    if (x < laneLeft()) return {};
    if (y < rulerHeight) {
        if (!e.rangeIsWholeSet()) {
            TimeRange r = e.exportRange();
            if (y >= 9 && x >= xOf(r.start) - 2 && x <= xOf(r.start) + 9) return {Hit::rangeIn};
            if (y >= 9 && x >= xOf(r.end) - 9 && x <= xOf(r.end) + 2) return {Hit::rangeOut};
        }
        // With drops not clickable, a drop's mark is ruler like the rest.
        if (y < 14 && model_.app().settings().dropsClickable())
            for (size_t i = 0; i < e.drops().size(); ++i)
                if (std::abs(x - xOf(e.drops()[i].time)) <= 7) return {Hit::drop, int(i)};
        return {Hit::seek};
    }
    if (y < rulerHeight + montageHeight) {
        const auto& cuts = e.cuts();
        for (size_t i = 0; i < cuts.size(); ++i)
            if (cuts[i].time > 0.001 && std::abs(x - xOf(cuts[i].time)) <= 5) return {Hit::cut, int(i)};
        const double t = timeAt(x);
        for (const Segment& s : e.segments())
            if (t >= s.start && t < s.end) return {Hit::plan, s.id};
    }
    return {};
}

QString TimelineEditor::toolTipAt(QPointF pos) const {
    if (auto file = handFileAt(pos))
        return QStringLiteral("%1\nGlisse pour le placer à la main · clic droit : positions possibles").arg(file->name);
    const EditModel& e = model_.edit();
    const Hit hit = hitTest(pos);
    switch (hit.kind) {
        case Hit::seek: return QStringLiteral("Clique ou glisse pour te déplacer dans le set");
        case Hit::rangeIn: return QStringLiteral("Début de l'export : glisse ce repère (ou touche I)");
        case Hit::rangeOut: return QStringLiteral("Fin de l'export : glisse ce repère (ou touche O)");
        case Hit::cut: return QStringLiteral("Glisse pour déplacer la coupe");
        case Hit::drop: {
            const Drop& d = e.drops()[size_t(hit.index)];
            return QStringLiteral("%1 (force %2 %) · clic : y aller · double-clic : monter ce drop")
                .arg(tc(d.time))
                .arg(int(std::lround(d.strength * 100)));
        }
        case Hit::plan: {
            const auto plans = e.segments();
            const Segment& s = plans[size_t(hit.index)];
            return QStringLiteral("%1 · %2 → %3\nClic : sélectionner · 1 à 8 : changer de caméra · double-clic : y aller")
                .arg(model_.cameraName(s.camera), tc(s.start), tc(s.end));
        }
        case Hit::mute:
            return model_.mix(tracks_[size_t(hit.index)].source).muted ? QStringLiteral("Remettre le son")
                                                                        : QStringLiteral("Couper le son");
        case Hit::level: return QStringLiteral("Volume en dB · double-clic : remettre à 0");
        default: return {};
    }
}

bool TimelineEditor::event(QEvent* ev) {
    if (ev->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(ev);
        QString text = toolTipAt(help->pos());
        if (text.isEmpty())
            QToolTip::hideText();
        else
            QToolTip::showText(help->globalPos(), text, this);
        return true;
    }
    if (ev->type() == QEvent::NativeGesture) {
        auto* g = static_cast<QNativeGestureEvent*>(ev);
        if (g->gestureType() == Qt::ZoomNativeGesture) {
            EditModel& e = model_.edit();
            double f = std::clamp((g->position().x() - laneLeft()) / std::max(1.0, laneWidth()), 0.0, 1.0);
            double t = e.viewStart() + f * e.duration() / e.zoom();
            e.setZoom((1 + g->value()) * e.zoom(), t, f);
            return true;
        }
    }
    return QWidget::event(ev);
}

// --- Mouse

void TimelineEditor::setLevelFromX(const Track& t, double x) {
    const QRectF lr = levelRect(t);
    double f = std::clamp((x - lr.left()) / lr.width(), 0.0, 1.0);
    model_.applyAudio(t.source, roundLevel(levelMin + f * (levelMax - levelMin)));
}

void TimelineEditor::mousePressEvent(QMouseEvent* ev) {
    if (ev->button() != Qt::LeftButton) return;
    if (pressHand(ev->position())) return;
    EditModel& e = model_.edit();
    PlayerControl* player = model_.player();
    const Hit hit = hitTest(ev->position());
    pressPos_ = ev->position();
    dragIndex_ = hit.index;
    switch (hit.kind) {
        case Hit::seek:
            drag_ = DragKind::seek;
            if (player) player->seek(std::max(0.0, timeAt(ev->position().x())));
            tick();
            break;
        case Hit::drop:
            if (player) player->seek(e.drops()[size_t(hit.index)].time);
            tick();
            break;
        case Hit::rangeIn: drag_ = DragKind::rangeIn; break;
        case Hit::rangeOut: drag_ = DragKind::rangeOut; break;
        case Hit::cut: drag_ = DragKind::cut; break;
        case Hit::plan: e.select(hit.index); break;
        case Hit::mute: model_.toggleMute(tracks_[size_t(hit.index)].source); break;
        case Hit::level:
            drag_ = DragKind::level;
            setLevelFromX(tracks_[size_t(hit.index)], ev->position().x());
            break;
        case Hit::thumb: drag_ = DragKind::thumb; break;
        case Hit::overview: {
            const QRectF o = overviewRect();
            double t = (ev->position().x() - o.left()) / o.width() * e.duration();
            e.setViewStart(t - e.duration() / e.zoom() / 2);
            e.clampView();
            drag_ = DragKind::thumb;
            break;
        }
        default: break;
    }
}

void TimelineEditor::mouseMoveEvent(QMouseEvent* ev) {
    EditModel& e = model_.edit();
    const double dx = ev->position().x() - pressPos_.x();
    const double pps = pointsPerSecond();
    switch (drag_) {
        case DragKind::none: {
            if (handFileAt(ev->position())) {
                setCursor(Qt::OpenHandCursor);
                return;
            }
            const Hit hit = hitTest(ev->position());
            setCursor(hit.kind == Hit::cut || hit.kind == Hit::rangeIn || hit.kind == Hit::rangeOut
                          ? Qt::SizeHorCursor
                      : hit.kind == Hit::none ? Qt::ArrowCursor
                                              : Qt::PointingHandCursor);
            return;
        }
        case DragKind::seek:
            if (model_.player()) model_.player()->seek(std::max(0.0, timeAt(ev->position().x())));
            tick();
            return;
        case DragKind::cut:
            if (!dragOrigin_) {
                e.record();
                dragOrigin_ = e.cuts()[size_t(dragIndex_)].time;
            }
            e.moveCut(dragIndex_, *dragOrigin_ + dx / pps);
            return;
        case DragKind::rangeIn:
        case DragKind::rangeOut: {
            if (!rangeOrigin_) rangeOrigin_ = e.exportRange();
            const bool in = drag_ == DragKind::rangeIn;
            const double edge = in ? rangeOrigin_->start : rangeOrigin_->end;
            const double t = e.snapTime(edge + dx / pps, pps);
            if (in)
                e.setRange(t, rangeOrigin_->end);
            else
                e.setRange(rangeOrigin_->start, t);
            return;
        }
        case DragKind::thumb: {
            if (!thumbOrigin_) thumbOrigin_ = e.viewStart();
            e.setViewStart(*thumbOrigin_ + dx * e.duration() / overviewRect().width());
            e.clampView();
            return;
        }
        case DragKind::level: setLevelFromX(tracks_[size_t(dragIndex_)], ev->position().x()); return;
        case DragKind::hand: moveHand(ev->position()); return;
    }
}

void TimelineEditor::mouseReleaseEvent(QMouseEvent*) {
    if (drag_ == DragKind::hand) releaseHand();
    drag_ = DragKind::none;
    dragOrigin_.reset();
    thumbOrigin_.reset();
    rangeOrigin_.reset();
    dragIndex_ = -1;
}

void TimelineEditor::mouseDoubleClickEvent(QMouseEvent* ev) {
    EditModel& e = model_.edit();
    const Hit hit = hitTest(ev->position());
    switch (hit.kind) {
        case Hit::drop: e.focusDrop(e.drops()[size_t(hit.index)]); break;
        case Hit::plan:
            if (model_.player()) model_.player()->seek(e.segments()[size_t(hit.index)].start);
            tick();
            break;
        case Hit::level: model_.applyAudio(tracks_[size_t(hit.index)].source, 0); break;
        default: mousePressEvent(ev); break;
    }
}

void TimelineEditor::contextMenuEvent(QContextMenuEvent* ev) {
    if (auto file = handFileAt(ev->pos())) {
        if (auto menu = handMenu(*file)) menu->exec(ev->globalPos());
        return;
    }
    EditModel& e = model_.edit();
    const Hit hit = hitTest(ev->pos());
    if (hit.kind == Hit::plan) {
        planMenu(hit.index, ev->globalPos());
    } else if (hit.kind == Hit::drop) {
        const Drop d = e.drops()[size_t(hit.index)];
        QMenu menu(this);
        menu.addAction(QStringLiteral("Monter ce drop (%1)").arg(tc(d.time)), this, [this, d] {
            model_.edit().focusDrop(d);
        });
        menu.exec(ev->globalPos());
    }
}

void TimelineEditor::planMenu(int plan, QPoint globalPos) {
    EditModel& e = model_.edit();
    e.select(plan);
    const Segment s = e.segments()[size_t(plan)];
    const ResolvedEffect fx = e.resolvedEffect(s);
    QMenu menu(this);
    auto item = [&](const QString& text, bool on, std::function<void()> action) {
        menu.addAction((on ? QStringLiteral("✓ ") : QString()) + text, this, std::move(action));
    };
    item(QStringLiteral("Zoom avant (Z)"), fx.zoom > 0, [&e] { e.cycleZoom(); });
    item(QStringLiteral("Zoom arrière (Z)"), fx.zoom < 0, [&e] { e.cycleZoom(); });
    item(QStringLiteral("Épaule (E)"), fx.shake, [&e] { e.setEffect(PlanEffect::shake); });
    item(QStringLiteral("Flou d'objectif (B)"), fx.lens, [&e] { e.toggleLook(LookKind::lens); });
    item(QStringLiteral("Flou de mouvement (M)"), fx.shutter, [&e] { e.toggleLook(LookKind::shutter); });
    item(QStringLiteral("Effet VHS (V)"), fx.vhs, [&e] { e.toggleLook(LookKind::vhs); });
    item(QStringLiteral("Aucun effet (N)"), s.effect == PlanEffect::none, [&e] { e.setEffect(PlanEffect::none); });
    item(QStringLiteral("Effets automatiques (A)"), s.effect == PlanEffect::automatic,
         [&e] { e.setEffect(PlanEffect::automatic); });
    menu.addSeparator();
    const int camera = s.camera;
    const QString name = model_.cameraName(camera);
    menu.addAction(QStringLiteral("Recadrer %1…").arg(name), this, [this, camera] { model_.openCrop(camera); });
    menu.addAction(QStringLiteral("Étalonner %1…").arg(name), this, [this, camera] { model_.openGrade(camera); });
    menu.exec(globalPos);
}

void TimelineEditor::wheelEvent(QWheelEvent* ev) {
    EditModel& e = model_.edit();
    const double x = ev->position().x();
    const double f = std::clamp((x - laneLeft()) / std::max(1.0, laneWidth()), 0.0, 1.0);
    const double t = e.viewStart() + f * e.duration() / e.zoom();
    // Wheel deltas in points: an eighth of a degree each, 15 per notch.
    const QPointF delta = ev->pixelDelta().isNull() ? QPointF(ev->angleDelta()) / 8.0 : QPointF(ev->pixelDelta());
    const double pps = pointsPerSecond();
    if (ev->modifiers().testFlag(Qt::AltModifier)) {
        // Some platforms turn Alt + wheel into a horizontal scroll.
        double dy = delta.y() != 0 ? delta.y() : delta.x();
        e.setZoom(e.zoom() * std::pow(1.01, dy), t, f);
    } else if (std::abs(delta.x()) > std::abs(delta.y())) {
        e.setViewStart(e.viewStart() - delta.x() / pps);
        e.clampView();
    } else if (ev->modifiers().testFlag(Qt::ShiftModifier)) {
        e.setViewStart(e.viewStart() - delta.y() / pps);
        e.clampView();
    } else if (maxLaneScroll() > 0) {
        setLaneScroll(laneScroll_ - int(std::lround(delta.y())));
    } else {
        ev->ignore();
        return;
    }
    ev->accept();
}

}  // namespace qv::ui
