// Placing files by hand in the timeline, on the offscreen platform, over a
// real application model on virtual time. The generated set is synchronised
// for real; then one camera's file is given as placed in doubt (AMBIGU) with
// the starts the sound proposed, and the other's as not placed, as a
// synchronisation hands them over.
#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QtTest>
#include <cmath>
#include <fstream>

#include "app/AppModel.h"
#include "app/ClockPlayer.h"
#include "app/VirtualMainThread.h"
#include "persistence/ProjectStore.h"
#include "support/WindowRig.h"
#include "ui/ContentView.h"
#include "ui/MainWindow.h"
#include "ui/ScreenModel.h"
#include "ui/TimelineEditor.h"
#include "ui/Workspace.h"

using namespace qv;
using namespace qv::ui;

namespace {

using test::drag;
using test::send;

struct Rig : test::WindowRig {
    double doubtful = 0;  // where the sound put the file in doubt

    // Opens the "tiny" set (two cameras, one file each, and a recorder);
    // then Cam 1's file stands AMBIGU with three proposed starts, the best
    // where the sound placed it, and Cam 2's file waits unplaced.
    bool open() {
        if (!openSet("tiny", 11)) return false;
        SyncResult r = *model.result();
        SyncResult given;
        for (PlacedItem p : r.placed) {
            const std::string source = model.sources()[size_t(p.sourceIndex)].name;
            if (source == "Cam 1") {
                doubtful = p.start;
                p.ambiguous = true;
                p.candidates = {{p.start, 14}, {p.start + 3.7, 11}, {p.start + 1.5, 9}};
            } else if (source == "Cam 2") {
                given.unsynced.push_back({p.sourceIndex, p.item, "pas de son commun trouvé", {{p.start, 12}}});
                continue;
            }
            given.placed.push_back(p);
        }
        model.install(given, model.sources());
        main.drain();
        QCoreApplication::processEvents();
        timeline()->resize(1200, 400);
        return true;
    }
    TimelineEditor* timeline() { return window.content()->workspace()->timeline(); }
    const PlacedItem* placed(const std::string& source) const {
        for (const PlacedItem& p : model.result()->placed)
            if (model.sources()[size_t(p.sourceIndex)].name == source) return &p;
        return nullptr;
    }
    std::optional<TimelineEditor::HandFile> handFile(const std::string& source) {
        for (auto& f : timeline()->handFiles())
            if (model.sources()[size_t(f.source)].name == source) return f;
        return std::nullopt;
    }
};

QAction* actionNamed(QMenu& menu, const QString& prefix) {
    for (QAction* a : menu.actions())
        if (a->text().trimmed().startsWith(prefix)) return a;
    return nullptr;
}

}  // namespace

class HandPlacementTest : public QObject {
    Q_OBJECT

private slots:
    void theCandidatesMenuPlacesAndTheWayBackUndoes() {
        Rig rig;
        QVERIFY2(rig.open(), "the generated set opens");
        auto file = rig.handFile("Cam 1");
        QVERIFY(file && file->start);
        auto menu = rig.timeline()->handMenu(*file);
        QStringList texts;
        for (QAction* a : menu->actions())
            if (!a->isSeparator()) texts << a->text().trimmed();
        // The title, the three starts by strength (the current one ticked), the way back.
        QCOMPARE(texts.size(), 5);
        QCOMPARE(texts[0], QStringLiteral("Positions possibles"));
        QVERIFY(texts[1].startsWith(QStringLiteral("✓ ")) && texts[1].endsWith(QStringLiteral("fiabilité 14")));
        QVERIFY(texts[2].endsWith(QStringLiteral("fiabilité 11")));
        QVERIFY(texts[3].endsWith(QStringLiteral("fiabilité 9")));
        QAction* back = actionNamed(*menu, QStringLiteral("Revenir au calage automatique"));
        QVERIFY(back && !back->isEnabled());

        const size_t history = rig.model.edit().history().size();
        menu->actions()[2]->trigger();
        rig.main.drain();
        const PlacedItem* moved = rig.placed("Cam 1");
        QVERIFY(moved && moved->byHand && !moved->ambiguous);
        QCOMPARE(moved->start, rig.doubtful + 3.7);
        QCOMPARE(rig.model.edit().history().size(), history + 1);
        // It reaches the player: the camera's pictures stand where it went.
        QVERIFY(rig.model.player());
        QCOMPARE(rig.model.player()->angles()[0].ranges.front().start, rig.doubtful + 3.7);

        menu = rig.timeline()->handMenu(*rig.handFile("Cam 1"));
        back = actionNamed(*menu, QStringLiteral("Revenir au calage automatique"));
        QVERIFY(back && back->isEnabled());
        back->trigger();
        QCOMPARE(rig.placed("Cam 1")->start, rig.doubtful);
        QVERIFY(rig.placed("Cam 1")->ambiguous && !rig.placed("Cam 1")->byHand);
        // Undo brings back the hand placement, and undo again the sound's own.
        rig.model.undo();
        QCOMPARE(rig.placed("Cam 1")->start, rig.doubtful + 3.7);
        rig.model.undo();
        QCOMPARE(rig.placed("Cam 1")->start, rig.doubtful);
        QVERIFY(rig.model.edit().hand().empty());
    }

    void aDragSnapsToTheProposedStarts() {
        Rig rig;
        QVERIFY2(rig.open(), "the generated set opens");
        TimelineEditor* tl = rig.timeline();
        const double pps = tl->pointsPerSecond();
        auto file = rig.handFile("Cam 1");
        QVERIFY(file);
        // Taken in its middle, let go 6 points short of the start 1.5 s later: it lands on it.
        const QPointF from = file->rect.center();
        const QPointF to = from + QPointF(1.5 * pps - 6, 0);
        drag(tl, from, to, 4);
        QCOMPARE(rig.placed("Cam 1")->start, rig.doubtful + 1.5);
        // Far from every proposed start it stays where it is let go.
        file = rig.handFile("Cam 1");
        const QPointF again = file->rect.center();
        drag(tl, again, again + QPointF(-30, 0), 1);
        QVERIFY(std::abs(rig.placed("Cam 1")->start - (rig.doubtful + 1.5 - 30 / pps)) < 1e-6);
        // A click without a move places nothing.
        const size_t history = rig.model.edit().history().size();
        send(tl, QEvent::MouseButtonPress, again, Qt::LeftButton);
        send(tl, QEvent::MouseButtonRelease, again, Qt::NoButton);
        QCOMPARE(rig.model.edit().history().size(), history);

        // The unplaced file waits in its lane's strip; dragged out near its start, it snaps there.
        auto waiting = rig.handFile("Cam 2");
        QVERIFY(waiting && !waiting->start && rig.placed("Cam 2") == nullptr);
        const double truth = waiting->candidates.front().start;
        const QPointF chip = waiting->rect.center();
        const QPointF drop(tl->xOf(truth) + 5, chip.y());
        drag(tl, chip, drop, 2);
        QVERIFY(rig.placed("Cam 2") && rig.placed("Cam 2")->byHand);
        QCOMPARE(rig.placed("Cam 2")->start, truth);
        QVERIFY(rig.model.result()->unsynced.empty());
        rig.model.undo();
        QVERIFY(rig.placed("Cam 2") == nullptr);
        QCOMPARE(rig.model.result()->unsynced.size(), size_t(1));
    }

    void aHandPlacementIsSavedAndSurvivesReopening() {
        Rig rig;
        QVERIFY2(rig.open(), "the generated set opens");
        auto file = rig.handFile("Cam 1");
        QVERIFY(file);
        QCOMPARE(QString::fromStdString(file->key), QStringLiteral("Cam 1/") + file->name);
        rig.model.edit().placeByHand(file->key, rig.doubtful + 3.7);
        rig.model.save();
        QVERIFY(rig.model.folder());
        auto stored = ProjectStore::latest(*rig.model.folder());
        QVERIFY(stored);
        QCOMPARE(stored->handPlacements.size(), size_t(1));
        QCOMPARE(stored->handPlacements.at(file->key), rig.doubtful + 3.7);

        // Reopened from the stored synchronisation, the file stands where the hand put it.
        rig.model.closeProject();
        rig.main.drain();
        rig.model.openProject(*stored, true);
        QVERIFY(rig.settle());
        const PlacedItem* p = rig.placed("Cam 1");
        QVERIFY(p && p->byHand);
        QCOMPARE(p->start, rig.doubtful + 3.7);
        QCOMPARE(rig.model.edit().hand(), stored->handPlacements);
        // And in the montage XML: the clip starts from there.
        QVERIFY(rig.model.montageXML("main").has_value());
    }
};

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    HandPlacementTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "HandPlacementTest.moc"
