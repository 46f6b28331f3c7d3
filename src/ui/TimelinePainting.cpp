// Drawing the timeline: the cached picture of the ruler, the MONTAGE lane,
// the camera and sound lanes with their headers, and the bottom bar with
// the overview of the set. The play head is a child widget drawn apart.
#include <QPaintEvent>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>
#include <optional>

#include "base/Format.h"
#include "ui/Theme.h"
#include "ui/TimelineEditor.h"

namespace qv::ui {

namespace {

using namespace Timeline;

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
const QColor pictureUnusable(0xe5, 0x48, 0x4d);
const QColor pictureWeak(0xe8, 0xa3, 0x3d);

std::vector<const PlacedItem*> placedOf(const std::optional<SyncResult>& result, int source) {
    std::vector<const PlacedItem*> out;
    if (!result) return out;
    for (const PlacedItem& p : result->placed)
        if (p.sourceIndex == source) out.push_back(&p);
    return out;
}

}  // namespace

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
    const std::vector<Segment>& plans = e.segments();
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
    // Only the plans in view, found by halving. Plans thinner than two
    // points are too many to draw one by one (an edit may hold a million):
    // a column of points shows the camera of the first plan that starts in
    // it, and the plans after it in that column are passed over at once.
    const double pps = pointsPerSecond(), origin = laneLeft(), from = e.viewStart();
    const auto x = [&](double t) { return origin + (t - from) * pps; };
    auto it = std::partition_point(plans.begin(), plans.end(), [&](const Segment& s) { return x(s.start) <= lane.left(); });
    if (it != plans.begin()) --it;
    while (it != plans.end()) {
        const Segment& s = *it;
        double x0 = x(s.start), x1 = x(s.end);
        if (x0 > lane.right()) break;
        if (x1 < lane.left() || x1 - x0 < 2) {
            const double column = std::floor(x0);
            if (x1 >= lane.left()) p.fillRect(QRectF(column, lane.top() + 4, 1, montageHeight - 8), cameraColor(s.camera));
            it = std::partition_point(it + 1, plans.end(), [&](const Segment& n) { return x(n.start) < column + 1; });
            continue;
        }
        ++it;
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
            // One bar per column, from the centre up and down, on whole
            // pixels: as one antialiased path, a lane of a thousand columns
            // took 70 ms to fill and stalled the keys while playing.
            const auto& wave = item->waveform;
            if (wave.empty()) continue;
            const double left = std::max(bar.left(), lane.left()), right = std::min(bar.right(), lane.right());
            const double mid = bar.center().y(), half = bar.height() / 2 - 1;
            const QColor colour = Theme::withAlpha(mix.muted ? Theme::gray4() : audioWave, 0.92);
            for (double x = std::floor(left); x < right; x += 1) {
                double t0 = (x - x0) / pps, t1 = (x + 1 - x0) / pps;
                size_t a = size_t(std::max(0.0, t0 * 20)), b = size_t(std::max(0.0, std::ceil(t1 * 20)));
                b = std::min(std::max(b, a + 1), wave.size());
                float peak = 0;
                for (size_t i = a; i < b; ++i) peak = std::max(peak, wave[i]);
                const int h = std::max(1, int(std::lround(double(peak) * half)));
                p.fillRect(QRect(int(x), int(std::lround(mid)) - h, 1, 2 * h), colour);
            }
        }
    }
    // The picture analysis: a thin strip along the lane's foot, red where the
    // picture is unusable, amber and fainter where it is only weak.
    const auto& pictures = model_.app().pictures();
    // Whole pixels, neighbours of one grade joined: a fractional rectangle
    // takes the rasterizer's slow road, and a set of weak half-seconds gives
    // hundreds of them on every repaint while playing.
    if (!t.audio && t.number >= 1 && size_t(t.number) <= pictures.size()) {
        const int top = int(std::lround(t.top + t.height - 4));
        const int left = int(std::floor(lane.left())), right = int(std::ceil(lane.right()));
        std::optional<QRect> run;
        bool runUnusable = false;
        auto flush = [&] {
            if (run) p.fillRect(*run, runUnusable ? pictureUnusable : Theme::withAlpha(pictureWeak, 0.8));
            run.reset();
        };
        for (const analysis::PictureStretch& s : pictures[size_t(t.number - 1)]) {
            const int a = std::max(left, int(std::floor(xOf(s.start))));
            const int b = std::min(right, std::max(int(std::ceil(xOf(s.end))), a + 1));
            if (a >= right || b <= left) continue;
            const bool unusable = s.grade == analysis::PictureGrade::unusable;
            if (run && unusable == runUnusable && a <= run->right() + 1) {
                run->setRight(std::max(run->right(), b - 1));
                continue;
            }
            flush();
            run = QRect(a, top, b - a, 3);
            runUnusable = unusable;
        }
        flush();
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
    const bool offset = !t.audio && model_.app().pictureOffset(t.number - 1) != 0;
    p.drawText(QRectF(40, t.top, 74, t.height), Qt::AlignVCenter | Qt::AlignLeft,
               fm.elidedText(name, Qt::ElideRight, mix.muted || offset ? 40 : 74));
    // The camera's picture moved against its sound, in the name's tail; it
    // takes the place of the word "muet", which the speaker still tells.
    if (const QString offset = t.audio ? QString() : model_.offsetText(t.number - 1, true); !offset.isEmpty()) {
        p.setFont(Theme::numbers(9));
        const QRectF badge(82, t.top + (t.height - 14) / 2.0, 34, 14);
        p.setPen(Qt::NoPen);
        p.setBrush(Theme::withAlpha(Theme::accent(), 0.18));
        p.drawRoundedRect(badge, 3, 3);
        p.setPen(Theme::accent());
        p.drawText(badge, Qt::AlignCenter, offset);
    } else if (mix.muted) {
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
    // The camera at each column of points, found by halving, in runs of one
    // camera: a million plans cost the overview no more than a few.
    const auto& plans = e.segments();
    const int columns = std::max(0, int(o.width()));
    int runStart = 0, runCamera = -1;
    for (int c = 0; c <= columns; ++c) {
        int camera = -1;
        if (c < columns) {
            const double t = (c + 0.5) / o.width() * d;
            auto at = std::partition_point(plans.begin(), plans.end(), [t](const Segment& s) { return s.start <= t; });
            if (at != plans.begin() && t < std::prev(at)->end) camera = std::prev(at)->camera;
        }
        if (camera == runCamera) continue;
        if (runCamera >= 0)
            p.fillRect(QRectF(o.left() + runStart, o.top() + 8, c - runStart, 8),
                       Theme::withAlpha(cameraColor(runCamera), 0.9));
        runStart = c;
        runCamera = camera;
    }
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

}  // namespace qv::ui
