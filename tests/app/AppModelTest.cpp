#include <fstream>

#include "Harness.h"
#include "persistence/PictureCache.h"
#include "platform/Paths.h"

namespace qv::test {
namespace {

namespace fs = std::filesystem;
using Field = AppModel::Field;

class AppModelTest : public AppFixture {};

// --- Timers on virtual time

TEST_F(AppModelTest, BurstOfChangesIsOneSaveAfterTheLastAndUnchangedSavesWriteNothing) {
    openSynced(generatedSet("tiny", 21));
    ASSERT_TRUE(stored());
    savedAtChanges = 0;

    model->setCuts({cut(2, 1)});
    main.advance(1.0);
    model->setCuts({cut(2, 1), cut(4, 0)});
    main.advance(1.0);
    model->setCuts({cut(2, 1), cut(4, 0), cut(6, 1)});
    main.advance(1.4);
    EXPECT_EQ(savedAtChanges, 0);
    EXPECT_EQ(stored()->cuts.size(), 0u);
    main.advance(0.2);
    EXPECT_EQ(savedAtChanges, 1);
    EXPECT_EQ(stored()->cuts.size(), 3u);

    // Nothing moved: no write, and the file's date stays.
    const Date first = stored()->savedAt;
    const auto stamp = fs::last_write_time(ProjectStore::directory() / (*model->currentProjectId() + ".json"));
    main.advance(10);
    model->save();
    model->showToast("rien");
    main.advance(5);
    EXPECT_EQ(savedAtChanges, 1);
    EXPECT_EQ(stored()->savedAt, first);
    EXPECT_EQ(fs::last_write_time(ProjectStore::directory() / (*model->currentProjectId() + ".json")), stamp);
}

TEST_F(AppModelTest, LookRebuildsCoalesceWithinSixtyMilliseconds) {
    openSynced(generatedSet("tiny", 21));
    auto* player = dynamic_cast<ClockPlayer*>(model->player());
    ASSERT_TRUE(player);
    const int before = player->videoConfigurations();
    ColorGrade g = ColorGrade::neutral;
    for (int k = 1; k <= 5; ++k) {
        g.exposure = k * 0.1;
        model->setGrade(g, 0);
        model->toggleZoomCamera(1);
        main.advance(0.01);
    }
    // The last change came at 0.04 s; its rebuild falls due at 0.10 s.
    main.advance(0.045);
    EXPECT_EQ(player->videoConfigurations(), before);
    main.advance(0.01);
    EXPECT_EQ(player->videoConfigurations(), before + 1);
    main.advance(1);
    EXPECT_EQ(player->videoConfigurations(), before + 1);
}

// --- The road on generated sets

TEST_F(AppModelTest, EmptyFolderOpensWithNothingToShow) {
    fs::create_directories(home.root() / "vide");
    model->open(home.root() / "vide", true);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(model->sources().empty());
    EXPECT_EQ(model->status(), "Aucun rush trouvé dans ce dossier.");
    EXPECT_FALSE(model->player());
    ASSERT_TRUE(model->currentProjectId());
    // Nothing is written over the project while its set never synchronised.
    const fs::path file = ProjectStore::directory() / (*model->currentProjectId() + ".json");
    const std::string before = TempHome::readText(file);
    ASSERT_FALSE(before.empty());
    main.advance(5);
    EXPECT_EQ(TempHome::readText(file), before);
}

TEST_F(AppModelTest, ReopenedSetComesFromItsCacheWithItsCuts) {
    auto set = generatedSet("tiny", 22);
    openSynced(set);
    model->setCuts({cut(3, 1), cut(7, 0)});
    model->setAudioMode(AudioSettings::Mode::all);
    main.advance(2);
    const auto id = model->currentProjectId();
    model->closeProject();
    EXPECT_FALSE(model->currentProjectId());
    EXPECT_EQ(model->status(), AppModel::idleStatus);
    ASSERT_EQ(model->projects().size(), 1u);

    jobsStarted = 0;
    model->open(set, false);
    ASSERT_TRUE(settle());
    EXPECT_EQ(jobsStarted, 1);  // the scan only: no synchronisation
    EXPECT_EQ(model->currentProjectId(), id);
    ASSERT_EQ(model->cuts().size(), 2u);
    EXPECT_EQ(model->cuts()[0].camera, 1);
    EXPECT_EQ(model->audio().mode, AudioSettings::Mode::all);
    ASSERT_TRUE(model->toast());
    EXPECT_EQ(model->toast()->rfind("« tiny-22 » rouvert (", 0), 0u) << *model->toast();
    EXPECT_NE(model->toast()->find(") : 2 coupes, réglages et cadrages"), std::string::npos);
    // The loaded state is not a change.
    savedAtChanges = 0;
    main.advance(3);
    EXPECT_EQ(savedAtChanges, 0);
}

TEST_F(AppModelTest, TouchedRushSynchronisesAgainThenAppliesTheCuts) {
    auto set = copySet("tiny", 23, "touché");
    openSynced(set);
    model->setCuts({cut(3, 1), cut(9, 0)});
    main.advance(2);
    const std::string file = ProjectStore::directory() / (*model->currentProjectId() + ".json");
    model->closeProject();
    auto rush = set / "Cam 1" / "clip 1.mp4";
    fs::last_write_time(rush, fs::last_write_time(rush) + std::chrono::seconds(5));

    std::vector<std::string> statuses;
    bool savedWhilePending = false;
    model->setOnChange([&](Field f) {
        if (f == Field::status) statuses.push_back(model->status());
    });
    model->open(set, false);
    ASSERT_TRUE(main.waitUntil([&] { return model->pendingProject().has_value(); }));
    const std::string before = *paths::readFile(file, limits::projectBytes);
    model->save();
    savedWhilePending = *paths::readFile(file, limits::projectBytes) != before;
    ASSERT_TRUE(settle());
    EXPECT_FALSE(savedWhilePending);
    EXPECT_NE(std::find(statuses.begin(), statuses.end(),
                        "Les rushes ont changé depuis la dernière fois : nouvelle synchro…"),
              statuses.end());
    EXPECT_FALSE(model->pendingProject());
    ASSERT_EQ(model->cuts().size(), 2u);
    auto saved = stored();
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->cuts.size(), 2u);
}

TEST_F(AppModelTest, ARecordingThatGrowsWhileItSynchronisesIsAnalysedAgainNextTime) {
    auto set = copySet("tiny", 26, "en cours");
    const fs::path rush = set / "Son 1" / "prise 1.wav";
    bool grown = false;
    model->setOnChange([&](Field f) {
        // The first report of the running synchronisation: the recorder
        // writes on meanwhile (bytes past the data chunk, which readers skip).
        if (f != Field::progress || grown || !model->isWorking() || model->progress() <= 0) return;
        std::ofstream(rush, std::ios::binary | std::ios::app) << std::string(4096, '\0');
        grown = true;
    });
    openSynced(set);
    ASSERT_TRUE(grown);
    model->closeProject();

    std::vector<std::string> statuses;
    model->setOnChange([&](Field f) {
        if (f == Field::status) statuses.push_back(model->status());
    });
    model->open(set, false);
    ASSERT_TRUE(settle());
    EXPECT_NE(std::find(statuses.begin(), statuses.end(),
                        "Les rushes ont changé depuis la dernière fois : nouvelle synchro…"),
              statuses.end());

    // Once analysed whole, the set opens from its cache.
    model->closeProject();
    statuses.clear();
    model->open(set, false);
    ASSERT_TRUE(settle());
    EXPECT_EQ(std::find(statuses.begin(), statuses.end(),
                        "Les rushes ont changé depuis la dernière fois : nouvelle synchro…"),
              statuses.end());
    EXPECT_TRUE(model->result());
}

TEST_F(AppModelTest, SetWithoutRecorderStartsInCameraMode) {
    auto set = copySet("tiny", 24, "sans son");
    fs::remove_all(set / "Son 1");
    openSynced(set);
    EXPECT_EQ(model->soundCount(), 0);
    EXPECT_EQ(model->audio().mode, AudioSettings::Mode::camera);
    EXPECT_TRUE(model->muted().empty());
}

TEST_F(AppModelTest, VanishedFolderAsksWhereItWent) {
    auto set = copySet("tiny", 25, "parti");
    openSynced(set);
    model->setCuts({cut(4, 1)});
    main.advance(2);
    const auto id = *model->currentProjectId();
    model->closeProject();
    const fs::path file = ProjectStore::directory() / (id + ".json");
    const std::string bytes = *paths::readFile(file, limits::projectBytes);
    const fs::path moved = home.root() / "ailleurs";
    fs::rename(set, moved);
    ProjectFile project = ProjectStore::list().at(0);

    dialogs.alerts = {1};  // "Annuler"
    model->openProject(project, false);
    EXPECT_EQ(dialogs.titles.back(), "Dossier du set introuvable");
    EXPECT_FALSE(model->currentProjectId());
    EXPECT_EQ(*paths::readFile(file, limits::projectBytes), bytes);
    EXPECT_EQ(model->projects().size(), 1u);

    dialogs.alerts = {0};
    dialogs.folders = {moved};
    model->openProject(project, false);
    // Written at once, before the set is even read.
    EXPECT_EQ(ProjectStore::list().at(0).folder, paths::standardized(moved).string());
    ASSERT_TRUE(settle());
    EXPECT_EQ(model->cuts().size(), 1u);
}

TEST_F(AppModelTest, ProjectsAreRenamedDuplicatedAndDeletedWithoutBeingWrittenBack) {
    openSynced(generatedSet("tiny", 21));
    const auto id = *model->currentProjectId();
    model->renameProject(id, "  Soirée  ");
    EXPECT_EQ(model->projectName(), "Soirée");
    model->renameProject(id, "   ");
    EXPECT_EQ(model->projectName(), "Soirée");
    model->duplicateProject(id);
    ASSERT_EQ(model->projects().size(), 2u);
    EXPECT_EQ(model->currentProjectId(), id);
    bool copy = false;
    for (auto& p : model->projects()) copy = copy || p.name == "Soirée (copie)";
    EXPECT_TRUE(copy);
    model->duplicateProject("projet-inconnu");
    EXPECT_EQ(model->projects().size(), 2u);

    // Deleting the open project closes it; the pending save does not bring it back.
    model->setCuts({cut(5, 1)});
    model->deleteProject(id);
    EXPECT_FALSE(model->currentProjectId());
    main.advance(5);
    EXPECT_FALSE(fs::exists(ProjectStore::directory() / (id + ".json")));
    EXPECT_EQ(model->projects().size(), 1u);
}

// --- The automatic editor through the model

std::vector<std::pair<double, int>> shape(const std::vector<Cut>& cuts) {
    std::vector<std::pair<double, int>> out;
    for (auto& c : cuts) out.emplace_back(c.time, c.camera);
    return out;
}

TEST_F(AppModelTest, AutomaticEditOnAMiddleRangeKeepsTheRestAndRepeats) {
    openSynced(generatedSet("covered", 31));
    model->setCuts({cut(10, 1), cut(50, 2), cut(100, 0)});
    model->edit().setRange(40, 70);
    model->runAuto(false);
    const auto first = model->cuts();
    ASSERT_GT(first.size(), 3u);
    EXPECT_EQ(first.front().time, 10);
    EXPECT_EQ(first.back().time, 100);
    for (auto& c : first) EXPECT_FALSE(c.time == 50 && c.camera == 2);
    // The camera that was on at the range's end comes back there.
    auto end = std::find_if(first.begin(), first.end(), [](const Cut& c) { return std::abs(c.time - 70) < 0.01; });
    ASSERT_NE(end, first.end());
    EXPECT_EQ(end->camera, 2);
    EXPECT_EQ(model->edit().activeCamera(71), 2);
    ASSERT_TRUE(model->toast());
    EXPECT_EQ(model->toast()->rfind("Mode auto : ", 0), 0u);

    model->runAuto(false);
    EXPECT_EQ(shape(model->cuts()), shape(first));
    const uint64_t seed = model->autoSettings().seed;
    model->runAuto(true);
    EXPECT_NE(model->autoSettings().seed, seed);
    EXPECT_NE(model->autoSettings().seed, 0u);

    AutoSettings none = model->autoSettings();
    none.cameras.clear();
    model->setAutoSettings(none);
    const auto cuts = model->cuts();
    model->runAuto(false);
    EXPECT_EQ(model->toast(), "Choisis au moins une caméra pour le mode auto");
    EXPECT_EQ(shape(model->cuts()), shape(cuts));
}

TEST_F(AppModelTest, SoundModesMuteByKindAndFollowTheCut) {
    openSynced(generatedSet("tiny", 21));
    auto* player = dynamic_cast<ClockPlayer*>(model->player());
    ASSERT_TRUE(player);
    EXPECT_EQ(model->audio().mode, AudioSettings::Mode::table);
    EXPECT_EQ(model->muted().size(), 2u);  // both cameras
    model->setAudioMode(AudioSettings::Mode::camera);
    EXPECT_EQ(model->muted().size(), 1u);  // the recorder
    model->setCuts({cut(5, 1)});
    player->seek(6);
    EXPECT_EQ(player->follow(), 1);
    player->seek(1);
    EXPECT_EQ(player->follow(), 0);
    model->setAudioMode(AudioSettings::Mode::all);
    EXPECT_TRUE(model->muted().empty());
    EXPECT_FALSE(player->follow());
}

TEST_F(AppModelTest, DemoArgumentsChooseThePanelAndFormat) {
    makeModel({"--demo-etalo", "--demo-son", "--demo-vertical"});
    EXPECT_EQ(model->rightPanel(), RightPanel::sound);
    EXPECT_EQ(model->format(), OutputFormat::portrait);
}

// The pictures are looked at in the background once the set is synchronised,
// kept beside the sync cache, taken from there when the set is reopened, and
// looked at again for a file that changed.
TEST_F(AppModelTest, PictureAnalysisFollowsTheSyncAndIsKeptUntilAFileChanges) {
    auto set = copySet("tiny", 24, "images");
    openSynced(set);
    auto analysed = [&] { return main.waitUntil([&] { return !model->picturesProgress(); }); };
    ASSERT_TRUE(analysed());
    EXPECT_TRUE(model->picturesLine().empty());
    const fs::path cache = PictureCache::file(set);
    const auto kept = PictureCache::load(set).fresh();
    EXPECT_EQ(kept.size(), static_cast<size_t>(model->cameraCount()));
    const auto pictures = model->pictures();
    EXPECT_EQ(pictures.size(), static_cast<size_t>(model->cameraCount()));
    const auto written = fs::last_write_time(cache);

    model->closeProject();
    EXPECT_TRUE(model->pictures().empty());
    model->open(set, false);
    ASSERT_TRUE(settle());
    ASSERT_TRUE(analysed());
    EXPECT_EQ(model->pictures(), pictures);
    EXPECT_EQ(fs::last_write_time(cache), written);  // nothing measured again

    model->closeProject();
    auto rush = set / "Cam 1" / "clip 1.mp4";
    fs::last_write_time(rush, fs::last_write_time(rush) + std::chrono::seconds(5));
    model->open(set, false);
    ASSERT_TRUE(settle());
    ASSERT_TRUE(analysed());
    EXPECT_NE(fs::last_write_time(cache), written);
    EXPECT_EQ(PictureCache::load(set).fresh().size(), kept.size());
}

}  // namespace
}  // namespace qv::test
