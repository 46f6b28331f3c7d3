// The side panels over one application model on a generated set, on virtual
// time, with Qt Test on the offscreen platform.
#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QTest>
#include <map>
#include <optional>

#include "app/AppModel.h"
#include "app/ClockPlayer.h"
#include "app/VirtualMainThread.h"
#include "base/Text.h"
#include "persistence/ProjectStore.h"
#include "support/WindowRig.h"
#include "ui/ColorPanel.h"
#include "ui/DropClipsBox.h"
#include "ui/MainWindow.h"
#include "ui/Panels.h"
#include "ui/Theme.h"
#include "ui/WheelControl.h"

using namespace qv;
using namespace qv::ui;
namespace fs = std::filesystem;

namespace {

using test::NoDialogs;
using test::NoViewer;

// A video export that runs until the test ends it.
struct HeldExporter : VideoExporter {
    std::function<void(VideoOutcome)> done;
    double shown = 0;
    bool cancelled = false;
    void start(VideoJob, VideoCodec, const fs::path&, bool, std::function<void(VideoOutcome)> d) override {
        done = std::move(d);
    }
    void cancel() override { cancelled = true; }
    bool isRunning() const override { return bool(done); }
    double progress() const override { return shown; }
    // Ends the running export as `kind`; the callback may start the next one.
    void finish(VideoOutcome::Kind kind) {
        std::exchange(done, nullptr)({kind, {}});
    }
};

// What a double click puts back, written from the panels' tables and, where
// a table gives none, from the documented default of the bound setting. The
// n-th slider of a title in a panel, for titles that come twice.
std::optional<double> neutralOf(const QString& panel, const QString& title, int nth) {
    static const std::map<QString, std::map<QString, std::vector<double>>> table = {
        {"son",
         {{"Fondu quand une caméra se coupe", {0}}, {"Volume général", {0}}, {"Image par rapport au son", {0}},
          {"En millisecondes", {0}}, {"Distance des enceintes", {0}}}},
        {"effets",
         {{"Part zoom avant / dézoom", {0.5}}, {"Force du zoom", {115}}, {"Part du chemin", {0.5}},
          {"Intensité", {0.5, 0.6}}, {"Rapidité", {0.5}}, {"Ampleur des mouvements", {0.5}},
          {"Force du flou", {0.4}}, {"Traînée", {0.6}}, {"Saccades", {2}}, {"Couleurs qui bavent", {0.5}},
          {"Neige", {0.4}}, {"Lignes", {0.4}}, {"Bande de tracking", {0.5}}}},
        {"auto", {{"Plan le plus court", {2}}, {"Plan le plus long", {6}}}},
        {"drops", {{"Sensibilité", {0.5}}, {"Garder avant le drop", {15}}, {"Garder après le drop", {30}}}},
        {"recadrage", {{"Zoom dans l'image", {100}}, {"Gauche ↔ droite", {0}}, {"Haut ↔ bas", {0}}}},
        {"étalonnage",
         {{"Température", {0}}, {"Teinte", {0}}, {"Exposition", {0}}, {"Contraste", {0}}, {"Tons clairs", {0}},
          {"Tons foncés", {0}}, {"Blancs", {0}}, {"Noirs", {0}}, {"Saturation", {100, 100}},
          {"Intensité du look", {100}}, {"Film délavé", {0}}, {"Netteté", {0}}, {"Vibrance", {0}},
          {"Quantité", {0}}, {"Milieu", {50}}, {"Contour progressif", {50}}, {"Texture", {0}}, {"Grain", {0}},
          {"Taille du grain", {25}}, {"Rugosité", {50}}, {"Luminosité", {0, 0, 0}}}},
    };
    auto p = table.find(panel);
    if (p == table.end()) return std::nullopt;
    auto t = p->second.find(title);
    if (t != p->second.end()) {
        if (size_t(nth) < t->second.size()) return t->second[size_t(nth)];
        return std::nullopt;
    }
    // The automatic edit's share of each camera on screen: 100 % each.
    if (panel == "auto" && title.startsWith(QStringLiteral("Cam"))) return 100;
    return std::nullopt;
}

}  // namespace

class PanelsTest : public QObject {
    Q_OBJECT

    TempHome home;
    VirtualMainThread main;
    NoDialogs dialogs;
    NoViewer viewer;
    std::unique_ptr<AppSettings> settings;
    std::shared_ptr<HeldExporter> exporter = std::make_shared<HeldExporter>();
    std::unique_ptr<AppModel> model;
    fs::path exports;

    ClockPlayer* player() const { return dynamic_cast<ClockPlayer*>(model->player()); }

    std::optional<ProjectFile> stored() const {
        for (auto& p : ProjectStore::list())
            if (p.id == model->currentProjectId()) return p;
        return std::nullopt;
    }

    // Each panel's sliders need some state to be enabled: a LUT for the
    // look's intensity, grain for its shape, a zoom for the crop position.
    void prepare(const QString& panel) {
        model->setEditedCamera(0);
        if (panel == "étalonnage") {
            ColorGrade g = ColorGrade::neutral;
            g.lut = "essai.cube";
            g.grain = 40;
            model->setGrade(g, 0);
        }
        if (panel == "recadrage") model->setFraming({2, 0, 0}, 0);
        if (panel == "effets") {
            EffectSettings e = model->effects();
            e.zoomEnabled = e.shakeEnabled = e.lensEnabled = e.shutterEnabled = e.vhsEnabled = e.zoomPartial = true;
            model->setEffects(e);
        }
    }

private slots:
    void initTestCase() {
        settings = std::make_unique<AppSettings>(home.root() / "config" / "settings.json");
        exports = home.root() / "exports";
        fs::create_directories(exports);
        settings->setExportFolderPath(exports.string());
        model = std::make_unique<AppModel>(
            AppModel::Services{main, dialogs, viewer, *settings, ClockPlayer::factory(), exporter, {}});
        const fs::path set = qv::test::generatedSet("test", 5);
        QVERIFY2(!set.empty(), "le générateur de sets manque");
        model->open(set, true);
        QVERIFY(main.waitUntil([this] { return !model->isWorking() && model->result(); }));
        main.drain();
        QVERIFY(model->player());
        QVERIFY(model->cameraCount() >= 2);
        main.advance(3);
    }

    // Every test starts from neutral grades and crops on camera 1.
    void init() {
        model->setGrades({});
        for (int c = 0; c < model->cameraCount(); ++c) model->resetCrop(c);
        model->setEditedCamera(0);
        model->setFormat(OutputFormat::landscape);
    }

    void doubleClickRestoresNeutral_data() {
        QTest::addColumn<int>("panel");
        QTest::addColumn<QString>("name");
        const std::pair<RightPanel, const char*> panels[] = {
            {RightPanel::sound, "son"},         {RightPanel::effects, "effets"}, {RightPanel::automatic, "auto"},
            {RightPanel::drops, "drops"},       {RightPanel::crop, "recadrage"}, {RightPanel::color, "étalonnage"}};
        for (auto [panel, name] : panels) QTest::newRow(name) << int(panel) << QString::fromUtf8(name);
    }

    void doubleClickRestoresNeutral() {
        QFETCH(int, panel);
        QFETCH(QString, name);
        prepare(name);
        std::unique_ptr<PanelPage> page(makePanel(RightPanel(panel), *model));
        QVERIFY(page);
        const auto sliders = page->sliders();
        QVERIFY(!sliders.empty());
        int checked = 0;
        std::map<QString, int> seen;
        for (ValueSlider* s : sliders) {
            prepare(name);
            page->refresh();
            QVERIFY2(s->isEnabled(), qPrintable(s->title()));
            const auto wanted = neutralOf(name, s->title(), seen[s->title()]++);
            QVERIFY2(wanted, qPrintable(QStringLiteral("no neutral written for %1 / %2").arg(name, s->title())));
            const double away = std::abs(s->maximum() - *wanted) > 1e-9 ? s->maximum() : s->minimum();
            s->setValue(away);
            QCOMPARE(s->value(), away);
            // Half of them through the slider itself, half through the row.
            QTest::mouseDClick(checked % 2 ? static_cast<QWidget*>(s->slider()) : s, Qt::LeftButton);
            QVERIFY2(std::abs(s->value() - *wanted) < 1e-9, qPrintable(name + " / " + s->title()));
            QVERIFY2(s->toolTip().endsWith(QStringLiteral("Double-clic : remettre à ") + s->valueText()),
                     qPrintable(s->toolTip()));
            ++checked;
        }
        QCOMPARE(checked, int(sliders.size()));
        if (name == "son") QCOMPARE(sliders[0]->valueText(), QStringLiteral("aucun"));
        model->setGrade(ColorGrade::neutral, 0);
        model->resetCrop(0);
    }

    void fadeReachesThePlayerAtOnce() {
        SoundPanel sound(*model);
        ValueSlider* fade = sound.sliders()[0];
        fade->setValue(0.25);
        QCOMPARE(model->audio().rushFade, 0.25);
        QCOMPARE(player()->fade(), 0.25);
        fade->setValue(0);
    }

    void channelChoiceReachesThePlayedResultAndTheProject() {
        SoundPanel sound(*model);
        // Son 2 records in stereo: its mix, its left or its right; Son 1 is
        // mono and has nothing to choose.
        QVERIFY(!sound.channelMenu(QStringLiteral("Son 1")));
        QPushButton* menu = sound.channelMenu(QStringLiteral("Son 2"));
        QVERIFY(menu);
        QCOMPARE(menu->text(), QStringLiteral("Canal : mélange"));
        QCOMPARE(menu->menu()->actions().size(), 3);
        menu->menu()->actions()[2]->trigger();
        QCOMPARE(menu->text(), QStringLiteral("Canal : 2"));
        const Uuid son2 = *sourceId("Son 2", model->sources());
        QCOMPARE(model->channel(son2), 2);
        int heard = 0;
        for (const PlacedItem& p : model->result()->placed)
            if (model->sources()[static_cast<size_t>(p.sourceIndex)].id == son2) {
                QCOMPARE(p.sound.channels, uint64_t{0b10});
                ++heard;
            }
        QVERIFY(heard > 0);
        QVERIFY(model->player());
        main.advance(2);
        auto project = stored();
        QVERIFY(project);
        QCOMPARE(project->channels.at("Son 2"), 2);
        menu->menu()->actions()[0]->trigger();
        QCOMPARE(model->channel(son2), 0);
    }

    void partialShareShowsOnlyWithPartialZoom() {
        EffectSettings e = model->effects();
        e.zoomPartial = false;
        model->setEffects(e);
        EffectsPanel panel(*model);
        QVERIFY(panel.partialAmount()->isHidden());
        auto toggles = panel.widget()->findChildren<PanelToggle*>();
        auto it = std::find_if(toggles.begin(), toggles.end(),
                               [](PanelToggle* t) { return t->text().startsWith(QStringLiteral("Zoom partiel")); });
        QVERIFY(it != toggles.end());
        (*it)->click();
        QVERIFY(model->effects().zoomPartial);
        panel.refresh();
        QVERIFY(!panel.partialAmount()->isHidden());
        (*it)->click();
        panel.refresh();
        QVERIFY(panel.partialAmount()->isHidden());
    }

    void dropsListOrEmptyNote() {
        // Drops of our own: in the middle of the set, and near each of its ends.
        const std::vector<Drop> detected = model->drops();
        const double d = model->duration();
        QVERIFY(d > 20);
        model->setDropMargins(2, 5);  // focused ranges that stay inside this short set
        model->edit().setDrops({{0, 1, 0.9}, {1, d / 2, 0.8}, {2, d - 3, 0.7}});
        DropsPanel panel(*model);
        QCOMPARE(panel.rowCount(), 3);
        QVERIFY(panel.emptyNote()->isHidden());
        const auto focusLine = [&] {
            int lines = 0;
            for (QLabel* l : panel.widget()->findChildren<QLabel*>())
                lines += l->text() == QStringLiteral("Exporter seulement ce drop : 2 s avant, 5 s");
            return lines;
        };
        QCOMPARE(focusLine(), 0);
        for (int i = 0; i < 3; ++i) {
            model->edit().focusDrop(model->drops()[size_t(i)]);
            panel.refresh();
            QCOMPARE(panel.focusedDrop(), std::optional<int>(i));
            QCOMPARE(focusLine(), 1);
        }
        model->edit().setMarks(std::nullopt, std::nullopt);
        panel.refresh();
        QVERIFY(!panel.focusedDrop());
        QCOMPARE(focusLine(), 0);
        model->edit().setDrops(detected);
        model->setDropMargins(15, 30);

        // A model without a set has no drop: the note, not an empty list.
        AppSettings other(home.root() / "other.json");
        AppModel empty(AppModel::Services{main, dialogs, viewer, other, ClockPlayer::factory(), nullptr, {}});
        DropsPanel none(empty);
        QCOMPARE(none.rowCount(), 0);
        QVERIFY(!none.emptyNote()->isHidden());
        QCOMPARE(none.emptyNote()->text(), QStringLiteral("Aucun drop repéré. Monte la sensibilité si le set en a."));
    }

    void dropClipsTicksButtonProgressAndCancel() {
        // A set with three drops, in a model of its own.
        AppSettings own(home.root() / "clips.json");
        auto held = std::make_shared<HeldExporter>();
        AppModel clips(AppModel::Services{main, dialogs, viewer, own, ClockPlayer::factory(), held, {}});
        const fs::path set = qv::test::generatedSet("drops", 1);
        QVERIFY(!set.empty());
        clips.open(set, true);
        QVERIFY(main.waitUntil([&] { return !clips.isWorking() && clips.result(); }));
        main.drain();
        QVERIFY(clips.drops().size() >= 2);

        DropsPanel panel(clips);
        panel.resize(SidePanel::width, 900);
        panel.show();
        QCOMPARE(panel.clipTicks().size(), clips.drops().size());
        DropClipsBox* box = panel.clipsBox();
        QVERIFY(box->exportButton()->isEnabled());
        QVERIFY(box->summary()->text().startsWith(QString::number(clips.drops().size()) +
                                                  QStringLiteral(" clips de 45 s (un par drop), au format 9:16")));
        // One tick: only that drop; a second tick: both of them.
        panel.clipTicks()[1]->click();
        QCOMPARE(clips.clipDrops(), std::set<int>{1});
        panel.refresh();
        QVERIFY(box->summary()->text().startsWith(QStringLiteral("1 clip de 45 s (les drops cochés)")));
        panel.clipTicks()[0]->click();
        panel.refresh();

        box->exportButton()->click();
        QVERIFY(clips.isExportingClips());
        QVERIFY(held->isRunning());
        held->shown = 0.5;
        panel.refresh();
        QVERIFY(box->exportButton()->isHidden());
        QVERIFY(!box->progressLine()->isHidden());
        QCOMPARE(box->progressLine()->text(), QStringLiteral("Clips des drops : 1 / 2 · 25 %"));
        // The first clip ends: the second starts on the same exporter.
        held->shown = 0;
        held->finish(VideoOutcome::Kind::success);
        QVERIFY(held->isRunning());
        held->shown = 0.36;
        panel.refresh();
        QCOMPARE(box->progressLine()->text(), QStringLiteral("Clips des drops : 2 / 2 · 68 %"));
        // The footer's line follows within a tick, and the export panel
        // shows the same whole job, not the clip's own share.
        main.advance(AppModel::clipsTick);
        QCOMPARE(QString::fromStdString(clips.status()), box->progressLine()->text());
        own.setExportTarget(ExportTarget::dropClips);
        ExportPanel exportPanel(clips);
        QVERIFY(exportPanel.mainButton()->isHidden());
        QCOMPARE(exportPanel.progress()->percentText(), QStringLiteral("68 %"));
        box->cancelButton()->click();
        QVERIFY(held->cancelled);
        held->finish(VideoOutcome::Kind::cancelled);
        QVERIFY(!clips.isExportingClips());
        QCOMPARE(QString::fromStdString(clips.status()), QStringLiteral("Clips des drops annulés : 1 sur 2 faits"));
        panel.refresh();
        QVERIFY(!box->exportButton()->isHidden());

        // Without drops there is nothing to export, from either panel.
        const std::vector<Drop> found = clips.drops();
        clips.edit().setDrops({});
        DropsPanel none(clips);
        QVERIFY(!none.clipsBox()->exportButton()->isEnabled());
        exportPanel.refresh();
        QVERIFY(!exportPanel.mainButton()->isHidden());
        QVERIFY(!exportPanel.mainButton()->isEnabled());
        clips.edit().setDrops(found);
        exportPanel.refresh();
        QVERIFY(exportPanel.mainButton()->isEnabled());
    }

    void wheelCatchesCentreAndHoldsRim() {
        ColorWheel w{0, 0, 30};
        QCOMPARE(WheelControl::pointed(w, 0.039 * 42, 0, 42).amount, 0.0);
        QVERIFY(WheelControl::pointed(w, 0.041 * 42, 0, 42).amount > 0.04);
        ColorWheel rim = WheelControl::pointed(w, 0, 500, 42);
        QCOMPARE(rim.amount, 1.0);
        QCOMPARE(rim.hue, 90.0);
        QCOMPARE(rim.luma, 30.0);
        QCOMPARE(WheelControl::pointed(w, -42, 0, 42).hue, 180.0);

        // Through the mouse on the panel: the edited camera's grade follows.
        model->setEditedCamera(1);
        ColorPanel panel(*model);
        panel.setSectionOpen("roues", true);
        WheelControl* mid = nullptr;
        for (WheelControl* wc : panel.wheels())
            if (wc->caption() == QStringLiteral("Tons foncés")) mid = wc;
        QVERIFY(mid);
        const QPoint c = mid->centre().toPoint();
        QTest::mousePress(mid, Qt::LeftButton, {}, c + QPoint(200, 0));
        QCOMPARE(model->grade(1).wheelShadows.amount, 1.0);
        QCOMPARE(model->grade(1).wheelShadows.hue, 0.0);
        QTest::mouseRelease(mid, Qt::LeftButton, {}, c + QPoint(200, 0));
        QTest::mousePress(mid, Qt::LeftButton, {}, c + QPoint(1, -1));
        QCOMPARE(model->grade(1).wheelShadows.amount, 0.0);
        QTest::mouseRelease(mid, Qt::LeftButton, {}, c + QPoint(1, -1));
        QTest::mousePress(mid, Qt::LeftButton, {}, c + QPoint(0, -20));
        QVERIFY(std::abs(model->grade(1).wheelShadows.hue - 90) < 1e-9);
        QTest::mouseDClick(mid, Qt::LeftButton, {}, c + QPoint(0, -20));
        QCOMPARE(model->grade(1).wheelShadows.amount, 0.0);
        QCOMPARE(model->grade(1), ColorGrade::neutral);
        model->setEditedCamera(0);
    }

    void resetAndCopyDimmedOnNeutralGrade() {
        model->setEditedCamera(1);
        model->setGrade(ColorGrade::neutral, 1);
        ColorPanel panel(*model);
        QVERIFY(!panel.resetButton()->isEnabled());
        QVERIFY(!panel.copyButton()->isEnabled());
        panel.findSlider("base", QStringLiteral("Exposition"))->setValue(0.5);
        panel.refresh();
        QVERIFY(panel.resetButton()->isEnabled());
        QVERIFY(panel.copyButton()->isEnabled());
        panel.copyButton()->click();
        QCOMPARE(model->grade(0).exposure, 0.5);
        panel.resetButton()->click();
        panel.refresh();
        QCOMPARE(model->grade(1), ColorGrade::neutral);
        QVERIFY(!panel.resetButton()->isEnabled());
        model->setGrade(ColorGrade::neutral, 0);
        model->setEditedCamera(0);
    }

    void presetsSaveApplyAndDelete() {
        model->setEditedCamera(0);
        ColorGrade warm = ColorGrade::neutral;
        warm.temperature = 40;
        model->setGrade(warm, 0);
        ColorPanel panel(*model);
        auto* name = panel.widget()->findChild<QLineEdit*>();
        QVERIFY(name);
        QTest::keyClicks(name, QStringLiteral("Chaud"));
        auto find = [&](const QString& text) -> QAbstractButton* {
            for (auto* b : panel.widget()->findChildren<QAbstractButton*>())
                if (b->text() == text) return b;
            return nullptr;
        };
        find(QStringLiteral("ENREGISTRER"))->click();
        QCOMPARE(LookLibrary::presets().size(), size_t(1));
        model->setEditedCamera(1);
        panel.refresh();
        find(QStringLiteral("APPLIQUER"))->click();
        QCOMPARE(model->grade(1).temperature, 40.0);
        for (auto* b : panel.widget()->findChildren<QAbstractButton*>())
            if (b->toolTip() == QStringLiteral("Supprimer ce préréglage")) {
                b->click();
                break;
            }
        QVERIFY(LookLibrary::presets().empty());
        model->setGrade(ColorGrade::neutral, 0);
        model->setGrade(ColorGrade::neutral, 1);
        model->setEditedCamera(0);
    }

    void cropNoteAndPositions() {
        model->setEditedCamera(0);
        model->resetCrop(0);
        CropPanel panel(*model);
        QVERIFY(!panel.fullFrameNote()->isHidden());
        QVERIFY(!panel.sliders()[1]->isEnabled());  // at 100 % in 16:9 the picture cannot move sideways
        panel.sliders()[0]->setValue(200);
        panel.refresh();
        QVERIFY(panel.fullFrameNote()->isHidden());
        QVERIFY(panel.sliders()[1]->isEnabled());
        for (auto* b : panel.widget()->findChildren<QAbstractButton*>())
            if (b->text() == QStringLiteral("GAUCHE")) b->click();
        QCOMPARE(model->framing().at(*model->cameraId(0)).x, -0.5);
        model->resetCrop(0);
    }

    void exportButtonFollowsTarget() {
        ExportPanel panel(*model);
        panel.resize(SidePanel::width, 900);
        panel.show();
        // The main button leads with a symbol the theme can draw.
        auto* button = qobject_cast<QuorvelButton*>(panel.mainButton());
        QVERIFY(button && button->symbol());
        QVERIFY(!Theme::symbol(button->symbol()).isEmpty());
        for (ExportTarget target : {ExportTarget::premiere, ExportTarget::davinci, ExportTarget::mlt,
                                    ExportTarget::otio, ExportTarget::dropClips, ExportTarget::video}) {
            settings->setExportTarget(target);
            panel.refresh();
            // Symbol and text fit the side panel's width, nothing cut off.
            panel.widget()->layout()->activate();
            QVERIFY2(button->sizeHint().width() <= button->width(), qPrintable(panel.mainButton()->text()));
        }
        QCOMPARE(panel.mainButton()->text(), QStringLiteral("EXPORTER LA VIDÉO"));
        // A video export: the progress takes the button's place.
        QVERIFY(panel.progress()->isHidden());
        panel.mainButton()->click();
        QVERIFY(exporter->isRunning());
        exporter->shown = 0.42;
        panel.refresh();
        QVERIFY(panel.mainButton()->isHidden());
        QVERIFY(!panel.progress()->isHidden());
        QCOMPARE(panel.progress()->percentText(), QStringLiteral("42 %"));
        panel.progress()->cancelButton()->click();
        QVERIFY(exporter->cancelled);
        exporter->finish(VideoOutcome::Kind::cancelled);
        panel.refresh();
        QVERIFY(!panel.mainButton()->isHidden());
        settings->setExportTarget(ExportTarget::premiere);
    }

    void changesReachPreviewAndProjectFile() {
        model->setEditedCamera(1);
        ColorPanel panel(*model);
        const int before = player()->videoConfigurations();
        panel.findSlider("base", QStringLiteral("Contraste"))->setValue(30);
        panel.findSlider("base", QStringLiteral("Saturation"))->setValue(150);
        main.advance(0.07);
        QCOMPARE(player()->videoConfigurations(), before + 1);  // one rebuild for the burst
        QCOMPARE(model->lookSnapshot(true).grades.at(1).contrast, 30.0);
        main.advance(2);
        auto project = stored();
        QVERIFY(project);
        const auto grade = project->grades.at(model->sourceName(*model->cameraId(1)).value());
        QCOMPARE(grade.contrast, 30.0);
        QCOMPARE(grade.saturation, 150.0);
        model->setGrade(ColorGrade::neutral, 1);
        model->setEditedCamera(0);
    }

    void cleanupTestCase() { model.reset(); }
};

QTEST_MAIN(PanelsTest)
#include "PanelsTest.moc"
