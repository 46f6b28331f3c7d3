// The pointer on the timeline: what lies under it, its tool tips, clicks
// and drags (seek, cuts, export marks, levels, overview), the menus of a
// plan and a drop, the wheel and the trackpad pinch.
#include <QContextMenuEvent>
#include <QHelpEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QNativeGestureEvent>
#include <QToolTip>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>
#include <functional>

#include "base/Format.h"
#include "ui/TimelineEditor.h"

namespace qv::ui {

namespace {

using namespace Timeline;

QString tc(double t) { return QString::fromStdString(Format::timecode(t)); }

}  // namespace

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
            if (!t.audio) return {Hit::header, int(i)};
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
        // Cuts and plans are in time order: found by halving, so hovering
        // costs the same over ten cuts or a million.
        const auto& cuts = e.cuts();
        auto near = std::partition_point(cuts.begin(), cuts.end(), [&](const Cut& c) { return xOf(c.time) < x - 5; });
        for (; near != cuts.end() && xOf(near->time) <= x + 5; ++near)
            if (near->time > 0.001 && std::abs(x - xOf(near->time)) <= 5) return {Hit::cut, int(near - cuts.begin())};
        const double t = timeAt(x);
        const auto& plans = e.segments();
        auto at = std::partition_point(plans.begin(), plans.end(), [t](const Segment& s) { return s.start <= t; });
        if (at != plans.begin() && t < std::prev(at)->end) return {Hit::plan, std::prev(at)->id};
    }
    return {};
}

// Over a camera lane, where the picture analysis found a weak or unusable
// stretch: what is wrong there, and what the automatic editor does about it.
QString TimelineEditor::pictureTipAt(QPointF pos) const {
    if (pos.x() < laneLeft() || pos.y() < trackBandTop()) return {};
    const auto& pictures = model_.app().pictures();
    for (const Track& t : tracks_) {
        if (t.audio || pos.y() < t.top || pos.y() >= t.top + t.height) continue;
        if (t.number < 1 || size_t(t.number) > pictures.size()) return {};
        const double at = timeAt(pos.x());
        for (const analysis::PictureStretch& s : pictures[size_t(t.number - 1)]) {
            if (at < s.start || at >= s.end) continue;
            const bool unusable = s.grade == analysis::PictureGrade::unusable;
            return QStringLiteral("%1 · %2 → %3\n%4")
                .arg(QString::fromStdString(analysis::faultLabel(s.fault)), tc(s.start), tc(s.end),
                     unusable ? QStringLiteral("Image inutilisable : le montage auto n'y met pas de plan")
                              : QStringLiteral("Image moyenne : le montage auto y va moins souvent"));
        }
        return {};
    }
    return {};
}

QString TimelineEditor::toolTipAt(QPointF pos) const {
    if (auto file = handFileAt(pos))
        return QStringLiteral("%1\nGlisse pour le placer à la main · clic droit : positions possibles").arg(file->name);
    if (QString picture = pictureTipAt(pos); !picture.isEmpty()) return picture;
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
            const auto& plans = e.segments();
            const Segment& s = plans[size_t(hit.index)];
            return QStringLiteral("%1 · %2 → %3\nClic : sélectionner · 1 à 8 : changer de caméra · double-clic : y aller")
                .arg(model_.cameraName(s.camera), tc(s.start), tc(s.end));
        }
        case Hit::mute:
            return model_.mix(tracks_[size_t(hit.index)].source).muted ? QStringLiteral("Remettre le son")
                                                                        : QStringLiteral("Couper le son");
        case Hit::level: return QStringLiteral("Volume en dB · double-clic : remettre à 0");
        case Hit::header: {
            const int camera = tracks_[size_t(hit.index)].number - 1;
            const QString offset = model_.offsetText(camera, false);
            return (offset.isEmpty() ? QString() : QStringLiteral("Décalage image : %1\n").arg(offset)) +
                   QStringLiteral("Clic droit : décaler l'image par rapport au son");
        }
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
    } else if (hit.kind == Hit::header) {
        offsetMenu(tracks_[size_t(hit.index)].number - 1, ev->globalPos());
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

void TimelineEditor::offsetMenu(int camera, QPoint globalPos) {
    AppModel& app = model_.app();
    const double frame = 1 / app.cameraFrameRate(camera);
    const double now = app.pictureOffset(camera);
    QMenu menu(this);
    const QString offset = model_.offsetText(camera, false);
    menu.addAction(QStringLiteral("Décalage image de %1 : %2")
                       .arg(model_.cameraName(camera), offset.isEmpty() ? QStringLiteral("aucun") : offset))
        ->setEnabled(false);
    menu.addAction(QStringLiteral("Image plus tard d'une image"), this,
                   [&app, camera, now, frame] { app.setPictureOffset(camera, now + frame); });
    menu.addAction(QStringLiteral("Image plus tôt d'une image"), this,
                   [&app, camera, now, frame] { app.setPictureOffset(camera, now - frame); });
    QMenu* frames = menu.addMenu(QStringLiteral("Décalage image"));
    for (int n = -AppModel::maxOffsetFrames; n <= AppModel::maxOffsetFrames; ++n) {
        const bool here = std::abs(now - n * frame) < 1e-4;
        QString text = n == 0 ? QStringLiteral("aucun")
                              : (n > 0 ? QStringLiteral("+") : QStringLiteral("−")) + QString::number(std::abs(n)) +
                                    (std::abs(n) > 1 ? QStringLiteral(" images") : QStringLiteral(" image"));
        text.prepend(here ? QStringLiteral("✓ ") : QStringLiteral("    "));
        frames->addAction(text, this, [&app, camera, n, frame] { app.setPictureOffset(camera, n * frame); });
    }
    menu.addAction(QStringLiteral("Distance des enceintes, millisecondes…"), this,
                   [this, camera] { model_.openOffset(camera); });
    menu.addSeparator();
    menu.addAction(QStringLiteral("Remettre l'image avec le son"), this, [&app, camera] { app.setPictureOffset(camera, 0); })
        ->setEnabled(now != 0);
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
