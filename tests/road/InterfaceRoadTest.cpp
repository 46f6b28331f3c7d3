// The user's whole road through the real window, scripted: open a generated
// set from the menu (it synchronises), grade camera 2, crop it for 9:16, cut
// live while the set plays, export the XML with its LUTs and then the
// finished video through the real render. The XML must pass the project's
// xmeml checks and the video must show the grade and the crop where the
// grade and crop maths put them.
#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QTest>
#include <chrono>
#include <thread>

#include "app/AppModel.h"
#include "app/ClockPlayer.h"
#include "app/RenderVideoExporter.h"
#include "app/VirtualMainThread.h"
#include "edit/AutoEditor.h"
#include "effects/Reframe.h"
#include "looks/CubeLUT.h"
#include "looks/GradeMath.h"
#include "platform/MediaReader.h"
#include "platform/VideoFrame.h"
#include "support/Fixtures.h"
#include "support/TempHome.h"
#include "support/WindowRig.h"
#include "support/XmemlCheck.h"
#include "ui/ColorPanel.h"
#include "ui/ContentView.h"
#include "ui/MainWindow.h"
#include "ui/PanelRail.h"
#include "ui/Panels.h"
#include "ui/Workspace.h"

using namespace qv;
using namespace qv::ui;
namespace fs = std::filesystem;

namespace {

// The folder panel answers with the set; nothing else asks.
struct SetDialogs : qv::test::NoDialogs {
    fs::path set;
    std::optional<fs::path> chooseFolder(const std::string&) override { return set; }
};

struct ShownFiles : FileViewer {
    std::vector<fs::path> shown;
    void showItems(const std::vector<fs::path>& items) override {
        shown.insert(shown.end(), items.begin(), items.end());
    }
    void open(const fs::path&) override {}
};

template <class T>
T* findByText(QWidget& root, const QString& text) {
    for (T* w : root.findChildren<T*>())
        if (w->text() == text) return w;
    return nullptr;
}

QAction* findAction(QWidget& root, const QString& text) {
    for (QAction* a : root.findChildren<QAction*>())
        if (a->text() == text) return a;
    return nullptr;
}

// How far, on average over a grid of the output picture, `out` is from the
// source picture placed by `place` and graded by `grade`, in levels of 255.
double distance(const media::RgbaFrame& out, const media::RgbaFrame& source, const Reframe::Placement& place,
                const ColorGrade& grade) {
    double sum = 0;
    long n = 0;
    for (int oy = 8; oy < out.height; oy += 16)
        for (int ox = 8; ox < out.width; ox += 16) {
            const double sx = (ox + 0.5 - out.width * (0.5 + place.x)) / place.scale + source.width / 2.0;
            const double sy = (oy + 0.5 - out.height * (0.5 + place.y)) / place.scale + source.height / 2.0;
            // Bilinear, as a rescale reads between pixels.
            const double fx = std::clamp(sx - 0.5, 0.0, source.width - 1.0),
                         fy = std::clamp(sy - 0.5, 0.0, source.height - 1.0);
            const int x0 = static_cast<int>(fx), y0 = static_cast<int>(fy);
            const int x1 = std::min(x0 + 1, source.width - 1), y1 = std::min(y0 + 1, source.height - 1);
            const double ax = fx - x0, ay = fy - y0;
            double c[3];
            for (int k = 0; k < 3; ++k) {
                auto at = [&](int x, int y) {
                    return source.pixels[(static_cast<size_t>(y) * source.width + x) * 4 + k];
                };
                c[k] = ((at(x0, y0) * (1 - ax) + at(x1, y0) * ax) * (1 - ay) +
                        (at(x0, y1) * (1 - ax) + at(x1, y1) * ax) * ay) /
                       255;
            }
            const uint8_t* o = &out.pixels[(static_cast<size_t>(oy) * out.width + ox) * 4];
            const Rgb want = GradeMath::apply(c[0], c[1], c[2], grade);
            sum += std::abs(o[0] - want.r * 255) + std::abs(o[1] - want.g * 255) + std::abs(o[2] - want.b * 255);
            n += 3;
        }
    return n ? sum / n : 1e9;
}

}  // namespace

class InterfaceRoadTest : public QObject {
    Q_OBJECT

private slots:
    void gradeCropCutAndExportBothWays() {
        TempHome home;
        VirtualMainThread main;
        SetDialogs dialogs;
        ShownFiles viewer;
        AppSettings settings{home.root() / "config" / "settings.json"};
        const fs::path exports = home.root() / "exports";
        fs::create_directories(exports);
        settings.setExportFolderPath(exports.string());
        auto render = std::make_shared<RenderVideoExporter>(main);
        AppModel model{AppModel::Services{main, dialogs, viewer, settings, ClockPlayer::factory(), render, {}}};
        ModelObject object{model};
        MainWindow window{model, object};
        window.resize(1600, 1000);
        window.show();
        auto settle = [&] {
            main.drain();
            QCoreApplication::processEvents();
        };

        // Open the set from the menu: a new project synchronises at once.
        dialogs.set = qv::test::generatedSet("test", 5);
        QVERIFY2(!dialogs.set.empty(), "le générateur de sets manque");
        QAction* open = findAction(window, QStringLiteral("Ouvrir le dossier d'un set…"));
        QVERIFY(open);
        open->trigger();
        QVERIFY(main.waitUntil([&] { return !model.isWorking() && model.player(); }, 120));
        settle();
        QCOMPARE(window.content()->screen(), ContentView::Screen::workspace);
        Workspace& workspace = *window.content()->workspace();
        // Panels open from the rail at the workspace's edge.
        auto openPanel = [&](RightPanel panel) {
            QTest::mouseClick(workspace.panelRail()->button(panel), Qt::LeftButton);
            settle();
            return model.rightPanel() == panel;
        };
        QVERIFY(model.cameraCount() >= 2);

        // No automatic zoom, so the picture is the crop alone.
        QVERIFY(openPanel(RightPanel::effects));
        auto* effects = window.findChild<EffectsPanel*>();
        QVERIFY(effects);
        effects->findChildren<PanelToggle*>().front()->click();
        QVERIFY(!model.effects().zoomEnabled);

        // Grade camera 2: warmer and brighter.
        QVERIFY(openPanel(RightPanel::color));
        auto* color = window.findChild<ColorPanel*>();
        QVERIFY(color);
        color->findChild<CameraTabs*>()->tab(1)->click();
        settle();
        QCOMPARE(model.editedCamera(), 1);
        color->findSlider("base", QStringLiteral("Température"))->setValue(60);
        color->findSlider("base", QStringLiteral("Exposition"))->setValue(0.5);
        const ColorGrade grade = model.grade(1);
        QCOMPARE(grade.temperature, 60.0);
        QCOMPARE(grade.exposure, 0.5);

        // 9:16 from the transport bar's menu, camera 2 framed on its right.
        QAction* vertical = findAction(window, QStringLiteral("Vertical 9:16 (Reels, TikTok, Shorts)"));
        QVERIFY(vertical);
        vertical->trigger();
        QCOMPARE(model.format(), OutputFormat::portrait);
        QVERIFY(openPanel(RightPanel::crop));
        auto* crop = window.findChild<CropPanel*>();
        QVERIFY(crop);
        QAbstractButton* right = findByText<QAbstractButton>(*crop, QStringLiteral("DROITE"));
        QVERIFY(right);
        right->click();
        const CameraFrame framing = model.framing().at(*model.cameraId(1));
        QVERIFY(framing.x > 0.1);

        // Live cuts on the keyboard while the set plays, where both cameras film.
        const auto ranges = AutoEditor::cameraRanges(*model.result(), model.cameraSources());
        std::optional<double> from;
        for (const auto& a : ranges[0])
            for (const auto& b : ranges[1]) {
                const double start = std::max(a.start, b.start) + 1, end = std::min(a.end, b.end) - 1;
                if (!from && end - start >= 9) from = start;
            }
        QVERIFY2(from, "les caméras 1 et 2 ne filment jamais ensemble 9 s");
        model.player()->seek(*from);
        workspace.setFocus();
        QTest::keyClick(&workspace, Qt::Key_Space);
        QVERIFY(model.player()->isPlaying());
        main.advance(2);
        QTest::keyClick(&workspace, Qt::Key_2, Qt::NoModifier);
        main.advance(3);
        QTest::keyClick(&workspace, Qt::Key_1, Qt::NoModifier);
        main.advance(3);
        QTest::keyClick(&workspace, Qt::Key_2, Qt::NoModifier);
        QTest::keyClick(&workspace, Qt::Key_Space);
        QVERIFY(!model.player()->isPlaying());
        const auto cuts = model.cuts();
        QVERIFY(cuts.size() >= 3);
        const double back = std::find_if(cuts.begin(), cuts.end(), [&](const Cut& c) { return c.camera == 0; })->time;

        // The range: one second either side of the cut back to camera 1.
        model.player()->seek(back - 1);
        QTest::keyClick(&workspace, Qt::Key_I);
        model.player()->seek(back + 1);
        QTest::keyClick(&workspace, Qt::Key_O);
        const TimeRange range = model.edit().exportRange();
        QCOMPARE(range.start, back - 1);
        QCOMPARE(range.end, back + 1);

        // The XML for Premiere with a LUT for the graded camera.
        settings.setExportLUTs(true);
        QVERIFY(openPanel(RightPanel::exportPanel));
        auto* exportPanel = window.findChild<ExportPanel*>();
        QVERIFY(exportPanel);
        findByText<ChoiceRow>(*exportPanel, QStringLiteral("Premiere Pro"))->click();
        QCOMPARE(exportPanel->mainButton()->text(), QStringLiteral("EXPORTER LE XML PREMIERE"));
        exportPanel->mainButton()->click();
        std::vector<fs::path> xmls, cubes;
        for (auto& e : fs::recursive_directory_iterator(exports)) {
            if (e.path().extension() == ".xml") xmls.push_back(e.path());
            if (e.path().extension() == ".cube") cubes.push_back(e.path());
        }
        QCOMPARE(xmls.size(), size_t(1));
        QCOMPARE(cubes.size(), size_t(1));  // camera 2 only: the others are neutral
        QVERIFY(CubeLUT::parse(TempHome::readText(cubes[0])).has_value());
        const auto problems = qv::test::xmemlProblems(TempHome::readText(xmls[0]));
        QVERIFY2(problems.empty(), qv::test::joined(problems).c_str());

        // The finished video, rendered for real; its progress stands in the button's place.
        findByText<ChoiceRow>(*exportPanel, QStringLiteral("Vidéo finie"))->click();
        QCOMPARE(exportPanel->mainButton()->text(), QStringLiteral("EXPORTER LA VIDÉO"));
        exportPanel->mainButton()->click();
        QVERIFY(render->isRunning());
        bool progressShown = false;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(5);
        while (render->isRunning() && std::chrono::steady_clock::now() < deadline) {
            main.advance(0.25);
            QCoreApplication::processEvents();
            exportPanel->refresh();
            progressShown |= exportPanel->mainButton()->isHidden() && !exportPanel->progress()->isHidden();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        QVERIFY(!render->isRunning());
        QVERIFY(progressShown);
        QVERIFY2(!model.errorMessage(), model.errorMessage().value_or("").c_str());
        const fs::path video = viewer.shown.back();
        QCOMPARE(QString::fromStdString(video.extension().string()), QStringLiteral(".mp4"));
        QVERIFY(fs::exists(video));

        // Each plan's picture against its camera's file at that set time.
        auto reader = media::VideoReader::open(video);
        QVERIFY(reader.ok());
        auto sourceFrame = [&](int camera, double setTime) -> std::optional<media::RgbaFrame> {
            const int index = model.cameraSources()[camera];
            for (const PlacedItem& p : model.result()->placed)
                if (p.sourceIndex == index && p.item.hasVideo && p.start <= setTime && setTime < p.end()) {
                    auto f = media::decodeVideoFrame(p.item.url, p.fileTime(setTime));
                    if (f.ok()) return std::move(*f);
                }
            return std::nullopt;
        };
        struct Look {
            const char* what;
            int camera;
            double at;  // output time
        };
        for (const Look look :
             {Look{"caméra 2, étalonnée et cadrée à droite", 1, 0.5}, Look{"caméra 1, neutre et centrée", 0, 1.5}}) {
            auto picture = reader->frameAt(look.at + 0.02);
            QVERIFY(picture.ok());
            const media::RgbaFrame& out = (*picture)->frame;
            QCOMPARE(out.width, 1080);
            QCOMPARE(out.height, 1920);
            auto source = sourceFrame(look.camera, range.start + look.at);
            QVERIFY2(source, look.what);
            const PixelSize size{double(source->width), double(source->height)};
            const CameraFrame its = look.camera == 1 ? framing : CameraFrame{};
            const CameraFrame other = look.camera == 1 ? CameraFrame{} : framing;
            const ColorGrade itsGrade = look.camera == 1 ? grade : ColorGrade::neutral;
            const ColorGrade otherGrade = look.camera == 1 ? ColorGrade::neutral : grade;
            const double right = distance(out, *source, Reframe::place(size, {1080, 1920}, its), itsGrade);
            const double wrongCrop = distance(out, *source, Reframe::place(size, {1080, 1920}, other), itsGrade);
            const double wrongGrade = distance(out, *source, Reframe::place(size, {1080, 1920}, its), otherGrade);
            qInfo("%s : écart %.1f, autre cadrage %.1f, autre étalonnage %.1f", look.what, right, wrongCrop,
                  wrongGrade);
            QVERIFY2(right < 6, look.what);
            QVERIFY2(wrongCrop > right + 10, look.what);
            QVERIFY2(wrongGrade > right + 6, look.what);
        }
    }
};

QTEST_MAIN(InterfaceRoadTest)
#include "InterfaceRoadTest.moc"
