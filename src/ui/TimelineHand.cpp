// Placing files by hand on the timeline: the files the sound placed in
// doubt, placed by hand already, or could not place at all. The last wait in
// a strip "À placer" at the left of their lane. A file is dragged along its
// lane and snaps to the starts the sound proposed; its menu lists those
// starts and leads back to the automatic placement. Every placement is one
// undo step of the edit.
#include <QMenu>
#include <QPainter>
#include <algorithm>
#include <cmath>
#include <map>

#include "ui/Theme.h"
#include "ui/TimelineEditor.h"

namespace qv::ui {

namespace {

using namespace Timeline;

constexpr double snapPoints = 10;  // a candidate this close on screen takes the file
constexpr double dragSlack = 3;    // points the pointer moves before a press becomes a drag
constexpr double chipWidth = 120;

const QString waitingLabel = QStringLiteral("À placer");

// "2:05,3": the timecode with tenths, since proposed starts may lie a beat apart.
QString preciseTime(double t) {
    t = std::max(0.0, t);
    const long tenths = std::lround(t * 10);
    const long seconds = tenths / 10, minutes = seconds / 60;
    QString text = minutes >= 60 ? QStringLiteral("%1:%2:%3")
                                       .arg(minutes / 60)
                                       .arg(minutes % 60, 2, 10, QLatin1Char('0'))
                                       .arg(seconds % 60, 2, 10, QLatin1Char('0'))
                                 : QStringLiteral("%1:%2").arg(minutes).arg(seconds % 60, 2, 10, QLatin1Char('0'));
    return text + QStringLiteral(",%1").arg(tenths % 10);
}

QFont chipFont() { return Theme::text(9, Theme::Weight::medium); }

}  // namespace

const TimelineEditor::Track* TimelineEditor::trackOf(int source) const {
    for (const Track& t : tracks_)
        if (t.source == source) return &t;
    return nullptr;
}

std::vector<TimelineEditor::HandFile> TimelineEditor::handFiles() const {
    std::vector<HandFile> out;
    const AppModel& app = model_.app();
    const auto& result = app.result();
    if (!result) return out;
    const HandPlacements& hand = app.edit().hand();
    const double pps = pointsPerSecond();
    for (const PlacedItem& p : result->placed) {
        const Track* t = trackOf(p.sourceIndex);
        auto key = app.handKey(p.item);
        if (!t || !key || !(p.ambiguous || p.byHand || hand.count(*key))) continue;
        HandFile f{*key, p.sourceIndex, QString::fromStdString(p.item.fileName()), p.item.duration, p.start,
                   p.candidates, {}};
        f.rect = QRectF(xOf(p.start), t->top + 3, std::max(p.item.duration * pps, 2.0), t->height - 6);
        out.push_back(std::move(f));
    }
    // The waiting files, one chip each after the strip's label.
    const QFontMetricsF fm(chipFont());
    std::map<int, double> next;  // x of the next chip, by source
    for (const UnsyncedItem& u : result->unsynced) {
        const Track* t = trackOf(u.sourceIndex);
        auto key = app.handKey(u.item);
        if (!t || !key) continue;
        auto [at, fresh] = next.try_emplace(u.sourceIndex, laneLeft() + 4 + fm.horizontalAdvance(waitingLabel) + 14);
        HandFile f{*key, u.sourceIndex, QString::fromStdString(u.item.fileName()), u.item.duration, std::nullopt,
                   u.candidates, {}};
        const double w = std::min(chipWidth, fm.horizontalAdvance(f.name) + 14);
        f.rect = QRectF(at->second, t->top + 4, w, t->height - 8);
        at->second += w + 4;
        out.push_back(std::move(f));
    }
    return out;
}

std::optional<TimelineEditor::HandFile> TimelineEditor::handFileAt(QPointF pos) const {
    if (pos.x() < laneLeft() || pos.y() < trackBandTop() || pos.y() >= trackBandTop() + trackBandHeight())
        return std::nullopt;
    // Chips lie over the bars: look at them first.
    auto files = handFiles();
    std::stable_partition(files.begin(), files.end(), [](const HandFile& f) { return !f.start; });
    for (HandFile& f : files)
        if (f.rect.contains(pos)) return std::move(f);
    return std::nullopt;
}

void TimelineEditor::paintWaiting(QPainter& p, const Track& track) {
    std::vector<HandFile> waiting;
    for (HandFile& f : handFiles())
        if (!f.start && f.source == track.source) waiting.push_back(std::move(f));
    if (waiting.empty()) return;
    const QFontMetricsF fm(chipFont());
    const double left = laneLeft() + 2;
    const QRectF strip(left, track.top + 2, waiting.back().rect.right() + 4 - left, track.height - 4);
    p.save();
    p.setPen(Theme::withAlpha(Theme::warning(), 0.8));
    p.setBrush(Theme::paper());
    p.drawRoundedRect(strip, 3, 3);
    p.setFont(Theme::text(9, Theme::Weight::semibold));
    p.setPen(Theme::warning());
    p.drawText(QRectF(left + 6, strip.top(), fm.horizontalAdvance(waitingLabel) + 8, strip.height()),
               Qt::AlignVCenter | Qt::AlignLeft, waitingLabel);
    p.setFont(chipFont());
    for (const HandFile& f : waiting) {
        p.setPen(Qt::NoPen);
        p.setBrush(Theme::withAlpha(Theme::warning(), 0.22));
        p.drawRoundedRect(f.rect, 2.5, 2.5);
        p.setPen(Theme::ink());
        p.drawText(f.rect.adjusted(7, 0, -5, 0), Qt::AlignVCenter | Qt::AlignLeft,
                   fm.elidedText(f.name, Qt::ElideMiddle, f.rect.width() - 12));
    }
    p.restore();
}

void TimelineEditor::paintHandDrag(QPainter& p) {
    const HandDrag& d = *handDrag_;
    const Track* t = trackOf(d.file.source);
    if (!t) return;
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setClipRect(QRectF(laneLeft(), trackBandTop(), laneWidth(), trackBandHeight()));
    // The proposed starts, as ticks on the lane, the one taken filled.
    for (const SyncCandidate& c : d.file.candidates) {
        const double x = xOf(c.start);
        const bool taken = std::abs(c.start - *d.start) < 1e-9;
        p.fillRect(QRectF(x - (taken ? 1 : 0.5), t->top, taken ? 2 : 1, t->height),
                   Theme::withAlpha(Theme::accent(), taken ? 1.0 : 0.6));
    }
    const QRectF bar(xOf(*d.start), t->top + 3, std::max(d.file.duration * pointsPerSecond(), 2.0), t->height - 6);
    p.setPen(QPen(Theme::accent(), 1.5));
    p.setBrush(Theme::withAlpha(Theme::accent(), 0.25));
    p.drawRoundedRect(bar, 2.5, 2.5);
    p.setFont(chipFont());
    p.setPen(Theme::ink());
    p.drawText(bar.adjusted(6, 0, 0, 0), Qt::AlignVCenter | Qt::AlignLeft,
               QStringLiteral("%1  %2").arg(d.file.name, preciseTime(*d.start)));
    p.restore();
}

bool TimelineEditor::pressHand(QPointF pos) {
    auto file = handFileAt(pos);
    if (!file) return false;
    pressPos_ = pos;
    drag_ = DragKind::hand;
    // A waiting file is held by its start; a placed one where it was taken.
    const double grab = file->start ? timeAt(pos.x()) - *file->start : 0.0;
    handDrag_ = HandDrag{std::move(*file), grab, std::nullopt};
    return true;
}

void TimelineEditor::moveHand(QPointF pos) {
    if (!handDrag_) return;
    if (!handDrag_->start && std::abs(pos.x() - pressPos_.x()) < dragSlack) return;
    const double pps = pointsPerSecond();
    const double t = std::max(0.0, timeAt(pos.x()) - handDrag_->grab);
    handDrag_->start = HandPlacement::snap(t, handDrag_->file.candidates, snapPoints / pps);
    update();
}

void TimelineEditor::releaseHand() {
    if (!handDrag_) return;
    HandDrag d = std::move(*handDrag_);
    handDrag_.reset();
    update();
    if (d.start) model_.edit().placeByHand(d.file.key, *d.start);
}

std::unique_ptr<QMenu> TimelineEditor::handMenu(const HandFile& file) {
    auto menu = std::make_unique<QMenu>(this);
    QAction* title = menu->addAction(QStringLiteral("Positions possibles"));
    title->setEnabled(false);
    std::vector<SyncCandidate> candidates;
    for (const SyncCandidate& c : file.candidates)
        if (c.start >= 0) candidates.push_back(c);  // before the set's first file: nowhere to go
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const SyncCandidate& a, const SyncCandidate& b) { return a.strength > b.strength; });
    if (candidates.size() > maxCandidates) candidates.resize(maxCandidates);
    if (candidates.empty()) menu->addAction(QStringLiteral("Aucune position proposée par le son"))->setEnabled(false);
    const std::string key = file.key;
    for (const SyncCandidate& c : candidates) {
        const bool here = file.start && std::abs(*file.start - c.start) < 0.05;
        const QString text = QStringLiteral("%1%2 · fiabilité %3")
                                 .arg(here ? QStringLiteral("✓ ") : QStringLiteral("    "), preciseTime(c.start))
                                 .arg(std::lround(c.strength));
        const double start = c.start;
        menu->addAction(text, this, [this, key, start] { model_.edit().placeByHand(key, start); });
    }
    menu->addSeparator();
    QAction* back = menu->addAction(QStringLiteral("Revenir au calage automatique"), this,
                                    [this, key] { model_.edit().revertToAutomatic(key); });
    back->setEnabled(model_.edit().hand().count(key) > 0);
    return menu;
}

}  // namespace qv::ui
