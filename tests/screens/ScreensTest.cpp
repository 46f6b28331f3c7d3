// Behaviour of the screens on the offscreen platform, over a real
// application model on virtual time with a generated set synchronised once.
#include <QApplication>
#include <QFileDialog>
#include <QLineEdit>
#include <QMimeData>
#include <QSlider>
#include <QTimer>
#include <QVBoxLayout>
#include <QtTest>
#include <cmath>
#include <tuple>

#include "app/AppModel.h"
#include "app/ClockPlayer.h"
#include "app/VirtualMainThread.h"
#include "support/MontageSet.h"
#include "support/WindowRig.h"
#include "ui/Capture.h"
#include "ui/Application.h"
#include "ui/ContentView.h"
#include "ui/KeyMap.h"
#include "ui/MainWindow.h"
#include "ui/Monitors.h"
#include "ui/PanelRail.h"
#include "ui/Panels.h"
#include "ui/ScreenModel.h"
#include "ui/Theme.h"
#include "ui/TimelineEditor.h"
#include "ui/Workspace.h"

using namespace qv;
using namespace qv::ui;

namespace {

using test::cutAt;

// The real window over a model; the screens' handles on it.
struct Rig : test::WindowRig {
    using WindowRig::WindowRig;
    AppPlayer& player() { return *model.player(); }
    EditModel& edit() { return model.edit(); }
    bool key(int k, const QString& text = {}, Qt::KeyboardModifiers mods = Qt::NoModifier) {
        return workspace().handle({k, text, mods});
    }
    // The window at its usual size, on screen.
    bool shown() {
        window.resize(1300, 800);
        window.show();
        return QTest::qWaitForWindowExposed(&window);
    }
};

using test::drag;
using test::send;

}  // namespace

class ScreensTest : public QObject {
    Q_OBJECT
private slots:
    void droppedFolderOpensDroppedFileIsRefused() {
        Rig rig;
        const auto file = rig.home.root() / "clip.mp4";
        TempHome::writeText(file, "pas une vidéo");
        auto drop = [&](const std::filesystem::path& p) {
            QMimeData mime;
            mime.setUrls({QUrl::fromLocalFile(QString::fromStdString(p.string()))});
            QDragEnterEvent enter(QPoint(20, 20), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
            QCoreApplication::sendEvent(&rig.content(), &enter);
            QDropEvent event(QPointF(20, 20), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
            QCoreApplication::sendEvent(&rig.content(), &event);
            return event.isAccepted();
        };
        QVERIFY(!drop(file));
        QVERIFY(!rig.model.currentProjectId());

        const auto folder = rig.home.root() / "Soirée";
        std::filesystem::create_directories(folder);
        const bool accepted = drop(folder);
        QVERIFY(rig.model.currentProjectId().has_value());
        QVERIFY(accepted);
        QCOMPARE(rig.model.projectName(), std::string("Soirée"));
        rig.main.waitUntil([&] { return !rig.model.isWorking(); });
    }

    // A file that is not media is named in the footer with its reason, not
    // only in the log.
    void unreadableFilesAreNamedWithTheirReason() {
        Rig rig;
        const auto folder = rig.home.root() / "Set abîmé";
        std::filesystem::create_directories(folder / "Cam 2");
        TempHome::writeText(folder / "Cam 2" / "faux.mov", "pas une vidéo");
        rig.model.open(folder, true);
        QVERIFY(rig.main.waitUntil([&] { return !rig.model.isWorking(); }));
        QCoreApplication::processEvents();
        QAbstractButton* flag = nullptr;
        for (auto* b : rig.content().findChildren<QAbstractButton*>())
            if (b->text() == QStringLiteral("1 ILLISIBLE")) flag = b;
        QVERIFY(flag && flag->isVisibleTo(&rig.window));
        flag->click();
        QStringList texts;
        for (auto* l : rig.content().findChildren<QLabel*>())
            if (l->isVisibleTo(&rig.window)) texts << l->text();
        QVERIFY2(texts.contains(QStringLiteral("Illisibles")), qPrintable(texts.join('|')));
        QVERIFY(texts.contains(QStringLiteral("Cam 2/faux.mov")));
        QVERIFY(texts.contains(QStringLiteral("pas un fichier vidéo ou audio")));
    }

    void theRailAndTheMenuToggleEveryPanelAndLeaveTheKeys() {
        Rig rig;
        QCoreApplication::processEvents();
        QVERIFY(!rig.window.panelAction(RightPanel::sound)->isEnabled());  // no set yet
        QVERIFY2(rig.openSet(), "the generated set opens");
        rig.window.resize(1300, 800);
        rig.window.show();
        QVERIFY(QTest::qWaitForWindowActive(&rig.window));
        PanelRail* rail = rig.workspace().panelRail();
        SidePanel* side = rig.workspace().findChild<SidePanel*>();
        QVERIFY(rail && side);
        QVERIFY(rig.window.panelAction(RightPanel::sound)->isEnabled());

        // Exactly the open panel is marked, on the rail and in the menu, and shown.
        const auto shows = [&](RightPanel open) {
            QCoreApplication::processEvents();
            if (rig.model.rightPanel() != open || side->isVisible() != (open != RightPanel::none)) return false;
            for (const PanelCommand& c : panelCommands())
                if (rail->button(c.panel)->isChecked() != (c.panel == open) ||
                    rig.window.panelAction(c.panel)->isChecked() != (c.panel == open))
                    return false;
            return true;
        };
        // Keys typed on the window, as the platform routes them. A camera key puts
        // the other of two filming cameras on the plan under the play head; space
        // plays and pauses (a focused button would take it as a click).
        EditModel& e = rig.edit();
        e.setCuts({cutAt(0, 0)});
        const TimeRange a = rig.player().angles()[0].ranges.front(), b = rig.player().angles()[1].ranges.front();
        QVERIFY(std::max(a.start, b.start) + 1 < std::min(a.end, b.end));
        rig.player().seek(std::max(a.start, b.start) + 0.5);
        int camera = 0;
        const auto keysReachTheWorkspace = [&] {
            camera = 1 - camera;
            QTest::keyClick(rig.window.windowHandle(), camera == 1 ? Qt::Key_2 : Qt::Key_1);
            const bool switched = e.segments()[size_t(*e.segmentIndex(rig.player().currentTime()))].camera == camera;
            QTest::keyClick(rig.window.windowHandle(), Qt::Key_Space);
            const bool played = rig.player().isPlaying();
            QTest::keyClick(rig.window.windowHandle(), Qt::Key_Space);
            return switched && played && !rig.player().isPlaying();
        };

        for (const PanelCommand& c : panelCommands()) {
            QTest::mouseClick(rail->button(c.panel), Qt::LeftButton);
            QVERIFY2(shows(c.panel), c.caption);
            QVERIFY2(keysReachTheWorkspace(), c.caption);
            QTest::mouseClick(rail->button(c.panel), Qt::LeftButton);
            QVERIFY2(shows(RightPanel::none), c.caption);
        }
        for (const PanelCommand& c : panelCommands()) {
            rig.window.panelAction(c.panel)->trigger();
            QVERIFY2(shows(c.panel), c.title);
            rig.window.panelAction(c.panel)->trigger();
            QVERIFY2(shows(RightPanel::none), c.title);
        }
        // The menu's function keys pass the workspace, which has no use for them.
        QTest::keyClick(rig.window.windowHandle(), Qt::Key_F3);
        QVERIFY(shows(RightPanel::drops));
        QTest::keyClick(rig.window.windowHandle(), Qt::Key_F3);
        QVERIFY(shows(RightPanel::none));
        QVERIFY(keysReachTheWorkspace());

        // A panel opened elsewhere (a tile's context menu) is marked; one click
        // on another panel's button switches to that one.
        rig.content().screenModel().openGrade(1);
        QVERIFY(shows(RightPanel::color));
        // The preset name field of the colour panel takes the keys while it
        // holds the focus, the plan keeps its camera; after a click on the
        // rail they are the workspace's again.
        auto* field = side->findChild<QLineEdit*>();
        QVERIFY(field);
        field->setFocus();
        QTest::keyClick(rig.window.windowHandle(), camera == 1 ? Qt::Key_1 : Qt::Key_2);
        QCOMPARE(field->text(), QString::number(2 - camera));
        QCOMPARE(e.segments()[size_t(*e.segmentIndex(rig.player().currentTime()))].camera, camera);
        QTest::mouseClick(rail->button(RightPanel::crop), Qt::LeftButton);
        QVERIFY(shows(RightPanel::crop));
        QVERIFY(keysReachTheWorkspace());
        QVERIFY(keysReachTheWorkspace());
        // Ctrl+K arrives as a control character; the letter is what counts.
        const size_t cuts = e.cuts().size();
        QTest::keyClick(rig.window.windowHandle(), Qt::Key_K, Qt::ControlModifier);
        QCOMPARE(e.cuts().size(), cuts + 1);
        // A click on the panel's empty ground leaves the arrows to the workspace.
        auto* page = qobject_cast<PanelPage*>(side->page());
        QVERIFY(page);
        QTest::mouseClick(page->viewport(), Qt::LeftButton, {}, QPoint(8, page->viewport()->height() - 8));
        const double before = rig.player().currentTime();
        QTest::keyClick(rig.window.windowHandle(), Qt::Key_Right);
        QVERIFY(rig.player().currentTime() > before);
    }

    // A reopened project says so on screen, over the program monitor; the
    // project list shows its toasts too.
    void toastsShowOnEveryScreen() {
        Rig rig;
        QVERIFY(rig.shown());
        QCOMPARE(rig.content().screen(), ContentView::Screen::home);
        QVERIFY2(rig.openSet(), "the generated set opens");
        rig.edit().setCuts({cutAt(0, 0), cutAt(4, 1)});
        rig.main.advance(3);  // the autosave
        rig.model.closeProject();
        QCoreApplication::processEvents();
        QCOMPARE(rig.content().screen(), ContentView::Screen::home);
        QLabel* toast = rig.content().toast();
        QVERIFY(!toast->isVisible());

        // Ctrl+Z on the list: nothing to undo, and it is said.
        QAction* undo = nullptr;
        for (QAction* a : rig.window.findChildren<QAction*>())
            if (a->text() == QStringLiteral("Annuler la dernière modif du montage")) undo = a;
        QVERIFY(undo && undo->isEnabled());
        undo->trigger();
        QCOMPARE(rig.content().screen(), ContentView::Screen::home);
        QTRY_VERIFY(toast->isVisible());
        QVERIFY(!toast->text().isEmpty());
        QVERIFY(rig.content().rect().contains(toast->geometry()));
        rig.main.advance(3);
        QTRY_VERIFY(!toast->isVisible());

        QVERIFY(rig.openSet());
        QCOMPARE(rig.content().screen(), ContentView::Screen::workspace);
        QTRY_VERIFY2(toast->isVisible(), qPrintable(toast->text()));
        QVERIFY2(toast->text().startsWith(QStringLiteral("« ")) && toast->text().contains(QStringLiteral(" rouvert (")),
                 qPrintable(toast->text()));
        QVERIFY(toast->text().contains(QStringLiteral(": 2 coupes")));
        MonitorsView* monitors = rig.workspace().monitors();
        const QRect program = monitors->programRect().toAlignedRect().translated(monitors->mapTo(&rig.content(), QPoint()));
        QVERIFY(program.contains(toast->geometry()));
    }

    // Toasts raised while the first player is installed, after a first
    // synchronisation: the guided first steps and the automatic demo.
    void toastsOfTheFirstPlayerShow() {
        const std::pair<const char*, QString> cases[] = {{"--tuto", QStringLiteral("Tutoriel : ")},
                                                         {"--demo-auto", QStringLiteral("Mode auto : ")}};
        for (const auto& [flag, start] : cases) {
            Rig rig({"quorvel", flag});
            QVERIFY(rig.shown());
            QVERIFY2(rig.openSet("test", 3), flag);
            QLabel* toast = rig.content().toast();
            QTRY_VERIFY2(toast->isVisible() && toast->text().startsWith(start), qPrintable(toast->text()));
            if (QString(flag) == "--tuto") QCOMPARE(rig.model.rightPanel(), RightPanel::automatic);
        }
    }

    // The start screen shows the project that now stands, not the one before.
    void theStartScreenShowsTheProjectThatStands() {
        Rig rig;
        QVERIFY(rig.shown());
        const auto shows = [&](const QString& name) {
            for (QLabel* l : rig.content().findChildren<QLabel*>())
                if (l->isVisible() && l->text() == name) return true;
            return false;
        };
        for (const char* name : {"Premier set", "Second set"}) {
            const auto folder = rig.home.root() / name;
            std::filesystem::create_directories(folder / "Cam 1");
            rig.model.open(folder, false);
            QTRY_COMPARE(rig.content().screen(), ContentView::Screen::start);
            QTRY_VERIFY2(shows(QString::fromUtf8(name)), name);
            rig.main.waitUntil([&] { return !rig.model.isWorking(); });
            rig.model.closeProject();
            QCoreApplication::processEvents();
        }
    }

    // The list shows every project; a card's warning follows its disk,
    // without the list being read again.
    void homeListsEveryProjectAndFlagsAMissingDisk() {
        Rig rig;
        for (const char* name : {"Un", "Deux"}) {
            const auto folder = rig.home.root() / name;
            std::filesystem::create_directories(folder);
            rig.model.newProject(name, folder, false);
            rig.main.waitUntil([&] { return !rig.model.isWorking(); });
            rig.model.closeProject();
        }
        rig.model.refreshProjects();
        QCoreApplication::processEvents();
        HomeView* home = rig.content().home();
        home->refresh();
        QCOMPARE(home->cardCount(), 2);
        QCOMPARE(home->missingDisks(), 0);
        std::filesystem::rename(rig.home.root() / "Deux", rig.home.root() / "Ailleurs");
        QCOMPARE(home->missingDisks(), 1);
        std::filesystem::rename(rig.home.root() / "Ailleurs", rig.home.root() / "Deux");
        QCOMPARE(home->missingDisks(), 0);
    }

    // "Set entier" when the range covers the set, marks or not.
    void theWholeSetReadsAsTheWholeSet() {
        Rig rig;
        QVERIFY2(rig.openSet(), "the generated set opens");
        const auto rangeLine = [&] {
            for (QLabel* l : rig.content().findChildren<QLabel*>())
                if (l->text().startsWith(QStringLiteral("PLAGE EXPORTÉE"), Qt::CaseInsensitive)) return l->text();
            return QString();
        };
        QCOMPARE(rangeLine().toUpper(), QStringLiteral("PLAGE EXPORTÉE · SET ENTIER"));
        rig.player().seek(0);
        QVERIFY(rig.key(Qt::Key_I, QStringLiteral("i")));
        QVERIFY(rig.edit().inPoint().has_value());  // a mark on the set's first frame
        QCoreApplication::processEvents();
        QCOMPARE(rangeLine().toUpper(), QStringLiteral("PLAGE EXPORTÉE · SET ENTIER"));
        rig.player().seek(10);
        QVERIFY(rig.key(Qt::Key_I, QStringLiteral("i")));
        QCoreApplication::processEvents();
        QVERIFY(!rangeLine().toUpper().endsWith(QStringLiteral("SET ENTIER")));
    }

    void onlyAFolderOpensFromTheCommandLine() {
        TempHome home;
        const auto file = home.root() / "set.mp4";
        TempHome::writeText(file, "x");
        QVERIFY(folderToOpen({"quorvel", "--open", home.root().string()}) == std::optional(home.root()));
        QVERIFY(!folderToOpen({"quorvel", "--open", file.string()}));
        QVERIFY(!folderToOpen({"quorvel", "--open", (home.root() / "absent").string()}));
        QVERIFY(!folderToOpen({"quorvel", "--open"}));
    }

    // The logo image where it loads, the two words where it does not.
    void theLogoImageIsDrawnWhereItLoads() {
        TempHome home;
        QVERIFY(!QuorvelLogo(false).drawsImage());
        const auto dir = home.root() / "data" / "quorvel";
        std::filesystem::create_directories(dir);
        QImage image(80, 20, QImage::Format_RGB32);
        image.fill(QColor(10, 200, 30));
        QVERIFY(image.save(QString::fromStdString((dir / "logo-quorvel.png").string())));
        QuorvelLogo logo(false);
        QVERIFY(logo.drawsImage());
        logo.resize(logo.sizeHint());
        const QImage shot = logo.grab().toImage();
        const QColor middle = shot.pixelColor(shot.width() / 2, shot.height() / 2);
        QVERIFY2(middle.green() > 180 && middle.red() < 40, qPrintable(middle.name()));
    }
};

class KeysTest : public QObject {
    Q_OBJECT
private slots:
    void everyKeyOfTheMap() {
        Rig rig;
        QVERIFY2(rig.openSet(), "the generated set opens");
        EditModel& e = rig.edit();
        AppPlayer& p = rig.player();
        const double d = e.duration();
        QVERIFY(d > 15);
        e.setCuts({cutAt(0, 0), cutAt(5, 1), cutAt(10, 0)});
        e.setDrops({{0, 4, 1}, {1, 12, 0.8}});

        // Space plays and pauses, clearing the selection each time.
        e.select(1);
        QVERIFY(rig.key(Qt::Key_Space, " "));
        QVERIFY(p.isPlaying());
        QVERIFY(!e.selectedSegment());
        QVERIFY(rig.key(Qt::Key_Space, " "));
        QVERIFY(!p.isPlaying());

        // Moves of the play head, one after the other: the arrows by five seconds,
        // or one frame with shift; up and down between cuts; D to the next drop,
        // a capital D with shift back.
        struct Move {
            int key;
            const char* text;
            Qt::KeyboardModifiers mods;
            double to;
        };
        p.seek(7);
        for (const Move& m : {Move{Qt::Key_Right, "", Qt::NoModifier, 12}, Move{Qt::Key_Left, "", Qt::ShiftModifier, 11.96},
                              Move{Qt::Key_Left, "", Qt::NoModifier, 6.96}, Move{Qt::Key_Right, "", Qt::ShiftModifier, 7},
                              Move{Qt::Key_Down, "", Qt::NoModifier, 10}, Move{Qt::Key_Up, "", Qt::NoModifier, 5},
                              Move{Qt::Key_D, "d", Qt::NoModifier, 12}, Move{Qt::Key_D, "D", Qt::ShiftModifier, 4}}) {
            QVERIFY(rig.key(m.key, QString::fromUtf8(m.text), m.mods));
            QVERIFY2(std::abs(p.currentTime() - m.to) < 1e-9, qPrintable(QString::number(p.currentTime())));
        }

        // Effects act on the plan under the play head when stopped.
        p.seek(6);
        const auto planEffect = [&] { return e.segments()[size_t(*e.segmentIndex(p.currentTime()))].effect; };
        QVERIFY(rig.key(Qt::Key_E, "e"));
        QCOMPARE(planEffect(), PlanEffect::shake);
        QVERIFY(rig.key(Qt::Key_N, "n"));
        QCOMPARE(planEffect(), PlanEffect::none);
        QVERIFY(rig.key(Qt::Key_Z, "z"));
        QVERIFY(planEffect() == PlanEffect::zoomIn || planEffect() == PlanEffect::zoomOut);
        QVERIFY(rig.key(Qt::Key_A, "a"));
        QCOMPARE(planEffect(), PlanEffect::automatic);
        const auto looks = [&] { return e.segments()[size_t(*e.segmentIndex(p.currentTime()))].looks; };
        QVERIFY(rig.key(Qt::Key_B, "b"));
        QVERIFY(looks().lens.has_value());
        QVERIFY(rig.key(Qt::Key_M, "m"));
        QVERIFY(looks().shutter.has_value());
        QVERIFY(rig.key(Qt::Key_V, "v"));
        QVERIFY(looks().vhs.has_value());

        // I, O and X set and clear the export range.
        p.seek(3);
        QVERIFY(rig.key(Qt::Key_I, "i"));
        p.seek(14);
        QVERIFY(rig.key(Qt::Key_O, "o"));
        QCOMPARE(e.exportRange(), (TimeRange{3, 14}));
        QVERIFY(rig.key(Qt::Key_X, "x"));
        QCOMPARE(e.exportRange(), (TimeRange{0, d}));

        // C splits; K splits only with Ctrl.
        p.seek(7.5);
        const size_t before = e.cuts().size();
        QVERIFY(rig.key(Qt::Key_C, "c"));
        QCOMPARE(e.cuts().size(), before + 1);
        p.seek(8.5);
        QVERIFY(!rig.key(Qt::Key_K, "k"));
        QCOMPARE(e.cuts().size(), before + 1);
        QVERIFY(rig.key(Qt::Key_K, "k", Qt::ControlModifier));
        QCOMPARE(e.cuts().size(), before + 2);

        // Delete and forward delete remove the cut of the plan under the play head.
        QVERIFY(rig.key(Qt::Key_Backspace));
        QCOMPARE(e.cuts().size(), before + 1);
        p.seek(7.6);
        QVERIFY(rig.key(Qt::Key_Delete));
        QCOMPARE(e.cuts().size(), before);

        // Escape clears the selection.
        e.select(0);
        QVERIFY(rig.key(Qt::Key_Escape));
        QVERIFY(!e.selectedSegment());

        // Zoom keys, both spellings.
        for (auto [key, text, zoom] : {std::tuple{Qt::Key_Plus, "+", 1.5}, std::tuple{Qt::Key_Equal, "=", 2.25},
                                       std::tuple{Qt::Key_Minus, "-", 1.5}, std::tuple{Qt::Key_ParenRight, ")", 1.0}}) {
            QVERIFY(rig.key(key, QString::fromUtf8(text)));
            QCOMPARE(e.zoom(), zoom);
        }

        // A key that means nothing, or a press without characters, goes on.
        QVERIFY(!rig.key(Qt::Key_Q, "q"));
        QVERIFY(!rig.key(Qt::Key_F5));
    }

    // Ctrl, Alt or Meta with the arrows or D belong to the system and the
    // menus: the map leaves them alone. Shift keeps its meaning.
    void modifiedArrowsAndDAreNotThePlainKeys() {
        Rig rig;
        QVERIFY2(rig.openSet(), "the generated set opens");
        AppPlayer& p = rig.player();
        rig.edit().setDrops({{0, 4, 1}, {1, 12, 0.8}});
        for (Qt::KeyboardModifier mod : {Qt::ControlModifier, Qt::AltModifier, Qt::MetaModifier}) {
            p.seek(7);
            QVERIFY(!rig.key(Qt::Key_Right, {}, mod));
            QVERIFY(!rig.key(Qt::Key_Left, {}, mod | Qt::ShiftModifier));
            QVERIFY(!rig.key(Qt::Key_D, QStringLiteral("d"), mod));
            QVERIFY(!rig.key(Qt::Key_D, QStringLiteral("D"), mod | Qt::ShiftModifier));
            QCOMPARE(p.currentTime(), 7.0);
        }
        QVERIFY(rig.key(Qt::Key_D, QStringLiteral("D"), Qt::ShiftModifier));
        QCOMPARE(p.currentTime(), 4.0);
    }

    void cameraKeysOfBothKeyboards() {
        const QString digits = QStringLiteral("12345678"), azerty = QStringLiteral("&é\"'(§è!");
        for (int i = 0; i < 8; ++i) {
            QCOMPARE(KeyMap::camera(digits[i]), std::optional<int>(i));
            QCOMPARE(KeyMap::camera(azerty[i]), std::optional<int>(i));
        }
        QVERIFY(!KeyMap::camera(QChar(u'9')));
    }
};

class LayoutTest : public QObject {
    Q_OBJECT
private slots:
    void tilesForOneToEightCameras() {
        // A wide zone: the grid widens before it grows rows, never past 4 columns.
        const int wideColumns[] = {1, 2, 3, 4, 3, 3, 4, 4};
        for (int n = 1; n <= 8; ++n) {
            const TileLayout l = Monitors::tileLayout(n, 1200, 300);
            QCOMPARE(l.columns, wideColumns[n - 1]);
            QCOMPARE(l.rows, (n + l.columns - 1) / l.columns);
            QCOMPARE(l.tileHeight, l.tileWidth * 9 / 16);
        }
        // A tall zone stacks them; no camera counts as one.
        QCOMPARE(Monitors::tileLayout(8, 600, 800).columns, 2);
        QCOMPARE(Monitors::tileLayout(0, 400, 300).columns, 1);
        // A tie keeps the smaller count: here one column and two give tiles 250 wide.
        const TileLayout two = Monitors::tileLayout(2, 508, 289.25);
        QCOMPARE(two.tileWidth, 250.0);
        QCOMPARE(two.columns, 1);
    }

    void wideAbove230Points() {
        QCOMPARE(Monitors::tileLayout(1, 230, 1000).tileWidth, 230.0);
        QVERIFY(!Monitors::tileLayout(1, 230, 1000).wide);
        QVERIFY(Monitors::tileLayout(1, 231, 1000).wide);
    }

    void rulerSteps() {
        QCOMPARE(Timeline::rulerStep(70), 1.0);
        QCOMPARE(Timeline::rulerStep(69), 2.0);
        QCOMPARE(Timeline::rulerStep(0.01), 3600.0);
    }

    void zoomSliderOnItsLogScale() {
        QCOMPARE(Timeline::zoomAt(0), 1.0);
        QVERIFY(std::abs(Timeline::zoomAt(1) - 60) < 1e-9);
        QVERIFY(std::abs(Timeline::zoomAt(0.5) - std::sqrt(60.0)) < 1e-9);  // about 7.7
        QVERIFY(std::abs(Timeline::sliderPosition(std::sqrt(60.0)) - 0.5) < 1e-12);
        QCOMPARE(Timeline::roundLevel(-3.26), -3.5);
        QCOMPARE(Timeline::roundLevel(1.24), 1.0);

        Rig rig;
        QVERIFY2(rig.openSet(), "the generated set opens");
        auto* slider = rig.workspace().timeline()->findChild<QSlider*>();
        QVERIFY(slider);
        for (auto [value, zoom] : {std::pair{0, 1.0}, std::pair{500, std::sqrt(60.0)}, std::pair{1000, 60.0}}) {
            slider->setValue(value);
            QVERIFY(std::abs(rig.edit().zoom() - zoom) < 1e-6);
        }
    }
};

class TimelineTest : public QObject {
    Q_OBJECT

private slots:
    void aDraggedCutIsOneUndo() {
        Rig rig;
        QVERIFY2(rig.openSet(), "the generated set opens");
        EditModel& e = rig.edit();
        e.setCuts({cutAt(0, 0), cutAt(6, 1), cutAt(12, 0)});
        TimelineEditor* tl = rig.workspace().timeline();
        tl->resize(1200, 400);
        const size_t history = e.history().size();
        const double y = tl->montageRect().center().y();
        const double x = tl->xOf(6);
        drag(tl, {x, y}, {x + 40, y}, 5);
        QVERIFY(std::abs(e.cuts()[1].time - (6 + 40 / tl->pointsPerSecond())) < 1e-9);
        QCOMPARE(e.history().size(), history + 1);
        e.undo();
        QCOMPARE(e.cuts()[1].time, 6.0);
        // The first cut, at 0, has no handle: a drag there moves nothing.
        drag(tl, {tl->xOf(0) + 1, y}, {tl->xOf(0) + 30, y}, 1);
        QCOMPARE(e.cuts()[0].time, 0.0);
    }

    // With "Drops cliquables" off a drop's mark is plain ruler: a click
    // seeks where it falls, a double click focuses nothing, no menu opens.
    void dropsTakeClicksOnlyWhenTheSettingSaysSo() {
        Rig rig;
        QVERIFY2(rig.openSet(), "the generated set opens");
        EditModel& e = rig.edit();
        QVERIFY(rig.shown());
        const double drop = std::round(e.duration() / 2);
        e.setDrops({{0, drop, 1}});
        rig.model.setDropMargins(2, 5);  // a focused drop's range inside this short set
        TimelineEditor* tl = rig.workspace().timeline();
        QPointF at;
        const auto menuOpens = [&] {
            // A menu runs its own loop: the first turn of it closes the menu.
            // Without one, the same turn comes from the loop here.
            bool opened = false;
            QTimer::singleShot(0, [&] {
                if (QWidget* popup = QApplication::activePopupWidget()) {
                    opened = true;
                    popup->close();
                }
            });
            const QPoint on(int(tl->xOf(drop)) + 5, 6);  // the double click has zoomed onto the drop
            QContextMenuEvent menu(QContextMenuEvent::Mouse, on, tl->mapToGlobal(on));
            QCoreApplication::sendEvent(tl, &menu);
            QCoreApplication::processEvents();
            return opened;
        };
        for (bool clickable : {true, false}) {
            rig.settings.setDropsClickable(clickable);
            e.setMarks(std::nullopt, std::nullopt);
            e.setZoom(1, 0, 0);
            at = QPointF(tl->xOf(drop) + 5, 6);
            send(tl, QEvent::MouseButtonPress, at, Qt::LeftButton);
            send(tl, QEvent::MouseButtonRelease, at, Qt::NoButton);
            const double landed = clickable ? drop : tl->timeAt(at.x());
            QVERIFY2(std::abs(rig.player().currentTime() - landed) < 1e-6, clickable ? "clickable" : "not clickable");
            QTest::mouseDClick(tl, Qt::LeftButton, {}, at.toPoint());
            QCOMPARE(!e.rangeIsWholeSet(), clickable);
            QVERIFY2(menuOpens() == clickable, clickable ? "clickable" : "not clickable");
        }
    }

    void rangeMarkersSnapToLandmarks() {
        Rig rig;
        QVERIFY2(rig.openSet(), "the generated set opens");
        EditModel& e = rig.edit();
        e.setCuts({cutAt(0, 0), cutAt(8, 1)});
        rig.player().seek(0);
        e.setRange(3, 15);
        TimelineEditor* tl = rig.workspace().timeline();
        tl->resize(1200, 400);
        const double pps = tl->pointsPerSecond();
        QVERIFY(pps * 4 > 20);  // the cut lies well beyond the snap distance at first
        // Drag the in marker to 6 points short of the cut at 8 s: it lands on the cut.
        const double y = 22, from = tl->xOf(3) + 3, to = tl->xOf(8) - 6 + 3;
        drag(tl, {from, y}, {to, y}, 2);
        QCOMPARE(e.exportRange().start, 8.0);
        QCOMPARE(e.exportRange().end, 15.0);
        // Far from any landmark it stays where it is dropped.
        const double free = tl->xOf(11) - tl->xOf(15);
        drag(tl, {tl->xOf(15) - 3, y}, {tl->xOf(15) - 3 + free, y}, 1);
        QVERIFY(std::abs(e.exportRange().end - 11) < 1e-9);
    }

    // Eight cameras and two recorders in the smallest window: the lanes
    // scroll under the ruler and the MONTAGE lane, so the last one's header
    // can be reached and used.
    void lanesScrollWhenTheyDoNotFit() {
        Rig rig;
        QVERIFY2(rig.openSet("eight", 3), "the generated set opens");
        rig.window.resize(1180, 760);
        rig.window.show();
        QCoreApplication::processEvents();
        TimelineEditor& timeline = *rig.workspace().timeline();
        int last = -1;
        for (size_t s = 0; s < rig.model.sources().size(); ++s)
            if (rig.model.sources()[s].kind == SourceKind::audio) last = int(s);
        QVERIFY(last >= 0);
        const int bandBottom = timeline.height() - Timeline::bottomHeight;
        QVERIFY(timeline.muteRectOf(last).center().y() > bandBottom);  // hidden at first

        const QPointF at(timeline.laneLeft() + 50, timeline.height() - Timeline::bottomHeight - 10);
        QWheelEvent wheel(at, timeline.mapToGlobal(at), QPoint(), QPoint(0, -120 * 10), Qt::NoButton, Qt::NoModifier,
                          Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(&timeline, &wheel);
        QVERIFY(wheel.isAccepted());
        const QRectF mute = timeline.muteRectOf(last);
        QVERIFY(mute.bottom() <= bandBottom);
        QVERIFY(mute.top() >= timeline.montageRect().bottom());
        QVERIFY(!rig.content().screenModel().mix(last).muted);
        QTest::mouseClick(&timeline, Qt::LeftButton, {}, mute.center().toPoint());
        QVERIFY(rig.content().screenModel().mix(last).muted);
    }

    void playingRepaintsThePlayheadNotTheLanes() {
        Rig rig;
        QVERIFY2(rig.openSet(), "the generated set opens");
        QVERIFY(rig.shown());
        TimelineEditor* tl = rig.workspace().timeline();
        QCoreApplication::processEvents();
        const int renders = tl->laneRenders();
        for (int i = 0; i < 30; ++i) {
            rig.player().seek(1 + i / 30.0);
            rig.workspace().tick();
            QCoreApplication::processEvents();
        }
        QCOMPARE(tl->laneRenders(), renders);
        rig.edit().setCuts({cutAt(0, 0), cutAt(5, 1)});
        QCoreApplication::processEvents();
        tl->repaint();
        QCOMPARE(tl->laneRenders(), renders + 1);
    }
};

class MonitorsTest : public QObject {
    Q_OBJECT

private slots:
    void tileCaptionsStayWholeAndApart() {
        // Grid zones from the smallest window with a side panel open to a large screen.
        const QSizeF zones[] = {{335, 250}, {420, 290}, {660, 400}, {1000, 620}};
        const QString statuses[] = {QStringLiteral("DÉMARRE DANS 12:34"), QStringLiteral("COUPE DANS 0:09"),
                                    QStringLiteral("NON CALÉE")};
        for (int n = 1; n <= 8; ++n)
            for (const QSizeF& zone : zones) {
                const TileLayout l = Monitors::tileLayout(n, zone.width(), zone.height());
                const QRectF tile(100, 50, l.tileWidth, l.tileHeight);
                for (const QString& status : statuses)
                    for (bool active : {false, true}) {
                        const TileCaptions c = Monitors::tileCaptions(tile, l.wide, n - 1, active, status,
                                                                      QStringLiteral("Caméra balcon gauche"));
                        const QString where = QStringLiteral("%1 cameras in %2x%3, %4")
                                                  .arg(n).arg(zone.width()).arg(zone.height()).arg(status);
                        // The countdown is never cut, at most broken before its time.
                        QVERIFY2(QString(c.statusText).replace('\n', ' ') == status, qPrintable(where));
                        std::vector<QRectF> plates{c.number, c.status};
                        if (active) plates.push_back(c.programme);
                        if (!c.name.isEmpty()) plates.push_back(c.name);
                        // An empty tile keeps its no-picture symbol in sight; the active one may lose it.
                        QVERIFY2(active || !c.symbol.isEmpty(), qPrintable(where));
                        if (!c.symbol.isEmpty()) plates.push_back(c.symbol);
                        for (size_t i = 0; i < plates.size(); ++i) {
                            QVERIFY2(!plates[i].isEmpty() && tile.contains(plates[i]), qPrintable(where));
                            for (size_t j = i + 1; j < plates.size(); ++j)
                                QVERIFY2(!plates[i].intersects(plates[j]), qPrintable(where));
                        }
                        // A wide tile has room for a short name beside the longest countdown.
                        if (l.wide)
                            QCOMPARE(Monitors::tileCaptions(tile, true, 0, active, statuses[0], "Cam 1").nameText,
                                     QStringLiteral("Cam 1"));
                    }
            }
    }

    void cropWindowsFollowTheFormatAndTheDrag() {
        Rig rig;
        QVERIFY2(rig.openSet(), "the generated set opens");
        MonitorsView* monitors = rig.workspace().monitors();
        monitors->resize(1300, 500);
        ScreenModel& screen = rig.content().screenModel();
        // Landscape crops nothing: no window until the crop panel opens on the camera.
        QVERIFY(!screen.showsCropWindow(0));
        screen.openCrop(1);
        QVERIFY(!screen.showsCropWindow(0));
        QVERIFY(screen.showsCropWindow(1));
        // Vertical: every tile shows the part the output keeps, a narrow window.
        rig.model.setFormat(OutputFormat::portrait);
        QVERIFY(screen.showsCropWindow(0));
        const TimeRange filmed = rig.player().angles()[0].ranges.at(0);
        rig.player().seek((filmed.start + filmed.end) / 2);
        QVERIFY(monitors->drawsCropWindow(0));
        const QRectF tile = monitors->tileRect(0), window = monitors->cropWindow(0);
        QVERIFY(window.width() < tile.width() * 0.4);
        QVERIFY(std::abs(window.center().x() - tile.center().x()) < 1);
        // Dragging the window a fifth of the tile to the right moves the crop by 0.2.
        const QPointF from = window.center(), to = from + QPointF(tile.width() * 0.2, 0);
        drag(monitors, from, to, 2);
        QVERIFY(std::abs(screen.framing(0).x - 0.2) < 1e-9);
        QVERIFY(monitors->cropWindow(0).center().x() > window.center().x());
        // Where the camera films nothing the tile keeps its window, drawn on
        // the empty surface: black over what falls outside, the accent around.
        rig.player().seek(filmed.start > 1 ? filmed.start / 2 : filmed.end + 0.5);
        QVERIFY(!rig.edit().hasFeed(0, rig.player().currentTime()));
        QVERIFY(monitors->drawsCropWindow(0));
        rig.model.setFraming(CameraFrame{}, 0);
        const QImage shot = monitors->grab().toImage();
        const QRectF empty = monitors->cropWindow(0), bare = monitors->tileRect(0);
        const double k = shot.width() / double(monitors->width());
        const auto pixel = [&](QPointF p) { return shot.pixelColor((p * k).toPoint()); };
        const double y = bare.center().y() + bare.height() * 0.12;
        const QColor inside = pixel({empty.center().x() + empty.width() * 0.3, y}), outside = pixel({bare.left() + 2, y});
        QVERIFY2(outside.lightness() < inside.lightness(), qPrintable(inside.name() + " " + outside.name()));
        const QColor edge = pixel({empty.left() + 0.75, y});
        QVERIFY2(edge.red() > 100 && edge.blue() < 40, qPrintable(edge.name()));
        // And it takes the drag as a filmed tile does.
        drag(monitors, empty.center(), empty.center() + QPointF(bare.width() * 0.2, 0), 2);
        QVERIFY(std::abs(screen.framing(0).x - 0.2) < 1e-9);
        // Back to landscape, the camera whose crop moved still shows its window.
        rig.model.setFormat(OutputFormat::landscape);
        QVERIFY(screen.showsCropWindow(0));
    }

    void theStateLineFollowsPlaying() {
        Rig rig;
        QVERIFY2(rig.openSet(), "the generated set opens");
        TransportBar* bar = rig.workspace().transport();
        const QLabel* line = bar->stateLabel();
        QCOMPARE(line->text(), QStringLiteral("À L'ARRÊT · 1 à 8 = CHANGER LA CAMÉRA DU PLAN"));
        QVERIFY(rig.key(Qt::Key_Space, QStringLiteral(" ")));
        QCOMPARE(line->text(), QStringLiteral("EN LECTURE · 1 à 8 = COUPER"));
        QVERIFY(rig.key(Qt::Key_Space, QStringLiteral(" ")));
        QCOMPARE(line->text(), QStringLiteral("À L'ARRÊT · 1 à 8 = CHANGER LA CAMÉRA DU PLAN"));
        // Played from elsewhere, the screen's next tick shows it.
        rig.player().play();
        QTRY_COMPARE_WITH_TIMEOUT(line->text(), QStringLiteral("EN LECTURE · 1 à 8 = COUPER"), 200);
        QCOMPARE(bar->formatText(), QStringLiteral("FORMAT 16:9"));
        rig.model.setPreviewDivision(2);
        QCOMPARE(bar->qualityText(), QStringLiteral("QUALITÉ 1/2"));
    }
};

// The program photographing its own window while a job runs.
class CaptureTest : public QObject {
    Q_OBJECT

    struct Rig {
        TempHome home;
        QLabel window{QStringLiteral("37 %")};
        std::optional<double> progress;  // the job, as the capture sees it
        int asked = 0;                   // times the capture looked at it
        int settled = 0;
        std::optional<Status> outcome;
        std::filesystem::path png = home.root() / "shot.png";
        ui::UnderWayCapture capture{window, png, 0.3,
                                    {[this] {
                                         ++asked;
                                         return progress;
                                     },
                                     [this] { ++settled; }},
                                    [this](const Status& s) { outcome = s; }};
        Rig() {
            window.resize(160, 90);
            window.show();
        }
        // Until the capture has looked at the job as it stands now.
        void wait() {
            const int seen = asked;
            QTRY_VERIFY(asked >= seen + 2);
        }
    };

private slots:
    void takenOnlyWhileUnderWay() {
        Rig rig;
        rig.wait();
        rig.progress = 0.1;  // started, not far enough
        rig.wait();
        rig.progress = 1.0;  // complete but not yet ended
        rig.wait();
        QVERIFY(!rig.outcome);
        QVERIFY(!std::filesystem::exists(rig.png));
        rig.progress = 0.45;
        QTRY_VERIFY(rig.outcome.has_value());
        QVERIFY(rig.outcome->ok());
        QCOMPARE(rig.settled, 1);
        const QImage shot(QString::fromStdString(rig.png.string()));
        QCOMPARE(shot.size(), rig.window.size() * rig.window.devicePixelRatio());
        // Once only, whatever the job does next: it no longer looks.
        QVERIFY(!rig.capture.watching());
        QCOMPARE(rig.settled, 1);
    }

    void aJobEndingTooSoonIsAnError() {
        Rig rig;
        rig.progress = 0.2;
        rig.wait();
        rig.progress.reset();
        QTRY_VERIFY(rig.outcome.has_value());
        QVERIFY(!rig.outcome->ok());
        QVERIFY(rig.outcome->error().message.find("30 %") != std::string::npos);
        QVERIFY(!std::filesystem::exists(rig.png));
    }
};

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    int status = 0;
    ScreensTest screens;
    KeysTest keys;
    LayoutTest layout;
    TimelineTest timeline;
    MonitorsTest monitors;
    CaptureTest capture;
    for (QObject* suite : std::initializer_list<QObject*>{&screens, &keys, &layout, &timeline, &monitors, &capture})
        status |= QTest::qExec(suite, argc, argv);
    return status;
}

#include "ScreensTest.moc"
