#include <thread>

#include "Harness.h"
#include "diagnostics/Log.h"
#include "looks/CubeLUT.h"
#include "platform/Paths.h"

namespace qv::test {
namespace {

namespace fs = std::filesystem;

class PanelsTest : public AppFixture {};

TEST_F(PanelsTest, PanelOperationsHoldTheirLimitsAndSayWhatTheyDid) {
    openSynced(generatedSet("tiny", 21));
    model->setFraming(CameraFrame{9, -3, 0.5}, 0);
    ASSERT_EQ(model->framing().size(), 1u);
    EXPECT_EQ(model->framing().begin()->second, (CameraFrame{4, -1, 0.5}));
    model->setFormat(OutputFormat::portrait);
    EXPECT_TRUE(model->cropCanMove(0, false));   // a 16:9 picture in a 9:16 frame slides sideways
    EXPECT_FALSE(model->cropCanMove(1, false) && model->cropCanMove(1, true));
    EXPECT_EQ(model->outputSizeLabel(), "1080 × 1920");
    model->resetCrop(0);
    EXPECT_TRUE(model->framing().empty());
    EXPECT_EQ(model->toast(), "Cam 1 : recadrage remis à zéro");

    ColorGrade g = ColorGrade::neutral;
    g.exposure = 0.5;
    model->setGrade(g, 1);
    model->copyGradeToAll(1);
    EXPECT_EQ(model->grades().size(), 2u);
    EXPECT_EQ(model->toast(), "Étalonnage de Cam 2 copié sur toutes les caméras");
    model->setGrade(ColorGrade::neutral, 0);
    EXPECT_EQ(model->grades().size(), 1u);  // neutral is stored as removal
    auto snapshot = model->lookSnapshot(true);
    EXPECT_EQ(snapshot.grades.size(), 1u);
    EXPECT_EQ(snapshot.grades.count(1), 1u);

    const uint64_t seed = model->effects().seed;
    model->reshuffleEffects();
    EXPECT_NE(model->effects().seed, seed);
    EXPECT_NE(model->effects().seed, 0u);
    const size_t zooms = model->effects().zoomCameras.size();
    model->toggleZoomCamera(0);
    EXPECT_EQ(model->effects().zoomCameras.size(), zooms - 1);
    model->toggleEffectCamera(LookKind::vhs, 1);
    EXPECT_EQ(model->effects().vhsCameras, std::set<Uuid>{*model->cameraId(1)});

    // All of it reaches the file of the project and comes back.
    main.advance(2);
    auto saved = stored();
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->grades.size(), 1u);
    EXPECT_EQ(saved->vhsCameras, std::vector<std::string>{"Cam 2"});
    EXPECT_EQ(saved->format, OutputFormat::portrait);
}

TEST_F(PanelsTest, LutsComeInAndGradesGoOutAsCubes) {
    openSynced(generatedSet("tiny", 21));
    const fs::path source = home.root() / "Chaud.cube";
    ASSERT_TRUE(paths::writeAtomically(source, CubeLUT::identity(2).text("Chaud")));
    dialogs.files = {source};
    model->importLUT(1);
    EXPECT_EQ(model->grade(1).lut, "Chaud.cube");

    const fs::path broken = home.root() / "Cassé.cube";
    ASSERT_TRUE(paths::writeAtomically(broken, "LUT_3D_SIZE 2\n0 0 0\n"));
    dialogs.files = {broken};
    model->importLUT(0);
    EXPECT_FALSE(model->grade(0).lut);
    EXPECT_TRUE(model->toast());

    ColorGrade g = ColorGrade::neutral;
    g.tint = 20;
    model->setGrade(g, 0);
    dialogs.saves = {exports / "Cam 1.cube"};
    model->exportCube(0);
    auto written = paths::readFile(exports / "Cam 1.cube", limits::projectBytes);
    ASSERT_TRUE(written);
    EXPECT_TRUE(CubeLUT::parse(*written));
    EXPECT_EQ(model->toast(), "LUT exportée : Cam 1.cube");
    dialogs.saves = {std::nullopt};
    model->exportCube(0);
    EXPECT_EQ(viewer.shown.size(), 1u);
}

TEST_F(PanelsTest, ResetProjectKeepsItsIdentityAndForgetsTheEdit) {
    openSynced(generatedSet("tiny", 21));
    const auto id = model->currentProjectId();
    model->setCuts({cut(4, 1)});
    model->setDropSensitivity(0.8);
    model->setAudioMode(AudioSettings::Mode::all);
    main.advance(2);

    dialogs.alerts = {1};
    model->resetProject();
    EXPECT_EQ(model->cuts().size(), 1u);

    dialogs.alerts = {0};
    jobsStarted = 0;
    model->resetProject();
    ASSERT_TRUE(settle());
    EXPECT_EQ(dialogs.titles.back(), "Repartir de zéro sur « tiny-21 » ?");
    EXPECT_EQ(jobsStarted, 1);  // the cache stands: no new synchronisation
    EXPECT_EQ(model->currentProjectId(), id);
    EXPECT_TRUE(model->cuts().empty());
    EXPECT_EQ(model->audio().mode, AudioSettings::Mode::table);
    EXPECT_EQ(model->dropSensitivity(), 0.8);
    main.advance(2);
    EXPECT_TRUE(stored()->cuts.empty());
}

TEST_F(PanelsTest, EveryChangeOfAJobArrivesOnTheMainThread) {
    const auto mainId = std::this_thread::get_id();
    int elsewhere = 0, progress = 0;
    model->setOnChange([&](AppModel::Field f) {
        if (std::this_thread::get_id() != mainId) ++elsewhere;
        if (f == AppModel::Field::progress) ++progress;
    });
    model->open(generatedSet("tiny", 26), true);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(model->result());
    EXPECT_GT(progress, 2);
    EXPECT_EQ(elsewhere, 0);
}

TEST_F(PanelsTest, CrashOfTheLastRunIsToldOnceWithItsReport) {
    fs::create_directories(Log::crashFolder());
    const fs::path report = Log::crashFolder() / "Quorvel-2026-11-23-101010-42.crash";
    ASSERT_TRUE(paths::writeAtomically(report, "SIGSEGV\n"));
    dialogs.alerts = {1};  // "Voir le rapport"
    model->checkPreviousCrash();
    ASSERT_EQ(dialogs.titles.size(), 1u);
    EXPECT_EQ(dialogs.titles[0], "Quorvel s'est fermé brutalement la dernière fois");
    ASSERT_EQ(viewer.shown.size(), 1u);
    EXPECT_EQ(viewer.shown[0], std::vector<fs::path>{report});
    model->checkPreviousCrash();
    EXPECT_EQ(dialogs.titles.size(), 1u);
}

}  // namespace
}  // namespace qv::test
