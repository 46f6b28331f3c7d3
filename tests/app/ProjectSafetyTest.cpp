// What the window shows when the project cannot be kept as the user expects:
// a save that fails (a full disk, a folder where the file should be), a
// second window on the same project, a damaged project, an export aimed at
// the set. All on virtual time.
#include <sys/mount.h>

#include <fstream>

#include "Harness.h"
#include "platform/Paths.h"

namespace qv::test {
namespace {

namespace fs = std::filesystem;

class ProjectSafety : public AppFixture {
protected:
    fs::path projectFile() const { return *ProjectStore::fileOf(*model->currentProjectId()); }
    size_t storedCuts() const { return stored() ? stored()->cuts.size() : 0; }
};

// Fills the file system holding `folder`; the filler's path.
fs::path fill(const fs::path& folder) {
    const fs::path filler = folder / "remplissage";
    std::ofstream out(filler, std::ios::binary);
    const std::string block(4096, 'x');
    while (out.write(block.data(), static_cast<std::streamsize>(block.size()))) out.flush();
    return filler;
}

TEST_F(ProjectSafety, AFullDiskIsSaidKeepsTheEditAndSavesOnceThereIsRoom) {
    const fs::path projects = ProjectStore::directory();
    fs::create_directories(projects);
    if (mount("tmpfs", projects.c_str(), "tmpfs", 0, "size=256k") != 0)
        GTEST_SKIP() << "pas de tmpfs possible ici (il faut être root) : le disque plein n'est pas essayé";
    struct Unmount {
        fs::path at;
        ~Unmount() { umount2(at.c_str(), MNT_DETACH); }
    } unmount{projects};
    openSynced(generatedSet("tiny", 21));
    const fs::path filler = fill(projects);

    model->setCuts({cut(2, 1)});
    main.advance(2);
    const std::string problem = "Sauvegarde impossible : plus de place sur le disque";
    EXPECT_EQ(model->saveProblem(), problem);
    EXPECT_EQ(model->toast(), problem);
    EXPECT_EQ(storedCuts(), 0u);
    // The snapshot did not move: the next try still has something to write.
    main.advance(AppModel::saveRetryDelay);
    EXPECT_EQ(storedCuts(), 0u);
    EXPECT_EQ(model->saveProblem(), problem);
    // Closing asks, and staying keeps everything.
    dialogs.alerts = {2};
    model->closeProject();
    EXPECT_EQ(dialogs.titles.back(), "Sauvegarde impossible");
    ASSERT_TRUE(model->currentProjectId());
    EXPECT_EQ(model->cuts().size(), 1u);

    fs::remove(filler);
    main.advance(AppModel::saveRetryDelay);
    EXPECT_EQ(storedCuts(), 1u);
    EXPECT_FALSE(model->saveProblem());
    EXPECT_EQ(model->toast(), "Projet enregistré");
    model->closeProject();
}

TEST_F(ProjectSafety, AFolderInPlaceOfTheFileFailsEveryTryUntilItGoes) {
    openSynced(generatedSet("tiny", 21));
    fs::remove(projectFile());
    fs::create_directory(projectFile());  // rename onto it is refused
    model->setCuts({cut(2, 1)});
    main.advance(2);
    EXPECT_EQ(model->saveProblem(), "Sauvegarde impossible : c'est un dossier");
    // Leaving without the last changes is the user's choice, and logged.
    dialogs.alerts = {1};
    model->closeProject();
    EXPECT_FALSE(model->currentProjectId());
    EXPECT_FALSE(model->saveProblem());
}

TEST_F(ProjectSafety, ASecondWindowOpensTheProjectReadOnlyAndNeverWritesIt) {
    const fs::path set = generatedSet("tiny", 21);
    openSynced(set);
    model->setCuts({cut(2, 1)});
    main.advance(2);
    const std::string before = TempHome::readText(projectFile());

    ScriptedDialogs otherDialogs;
    AppModel other(AppModel::Services{main, otherDialogs, viewer, *settings, ClockPlayer::factory(), exporter, {}});
    other.open(set, true);
    ASSERT_TRUE(main.waitUntil([&] { return !other.isWorking(); }));
    main.drain();
    EXPECT_TRUE(other.readOnly());
    ASSERT_TRUE(other.errorMessage());
    EXPECT_NE(other.errorMessage()->find("est déjà ouvert dans une autre fenêtre de Quorvel : il s'ouvre ici en "
                                         "lecture seule"),
              std::string::npos);
    EXPECT_EQ(other.saveProblem()->rfind("Lecture seule : ", 0), 0u);
    other.setCuts({cut(1, 0), cut(3, 1), cut(5, 0)});
    main.advance(3);
    other.closeProject();
    EXPECT_EQ(TempHome::readText(projectFile()), before);

    // Renaming or deleting it from the second window is refused too.
    AppModel third(AppModel::Services{main, otherDialogs, viewer, *settings, ClockPlayer::factory(), exporter, {}});
    third.deleteProject(*model->currentProjectId());
    EXPECT_TRUE(fs::exists(projectFile()));
    EXPECT_EQ(third.toast(), "Ce projet est ouvert dans une autre fenêtre de Quorvel : ferme-le là-bas d'abord.");
    // The first window still saves.
    model->setCuts({cut(2, 1), cut(4, 0)});
    main.advance(2);
    EXPECT_EQ(storedCuts(), 2u);
}

TEST_F(ProjectSafety, AnotherProgramsVersionIsKeptAsideBeforeOursIsWritten) {
    openSynced(generatedSet("tiny", 21));
    TempHome::writeText(projectFile(), "{\"version\": 1, \"name\": \"écrit ailleurs\"}");
    model->setCuts({cut(2, 1)});
    main.advance(2);
    EXPECT_EQ(storedCuts(), 1u);
    std::vector<fs::path> kept;
    for (const auto& e : fs::directory_iterator(ProjectStore::directory()))
        if (e.path().filename().string().find(".json.autre-version-") != std::string::npos) kept.push_back(e.path());
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(TempHome::readText(kept[0]), "{\"version\": 1, \"name\": \"écrit ailleurs\"}");
    EXPECT_NE(model->toast()->find("changé par un autre programme"), std::string::npos);
}

TEST_F(ProjectSafety, TheSetsDamagedProjectIsKeptAsideAndNamed) {
    const fs::path set = generatedSet("tiny", 21);
    openSynced(set);
    model->setCuts({cut(2, 1)});
    main.advance(2);
    const fs::path file = projectFile();
    model->closeProject();
    // Cut short after its set folder, which the message can then still name.
    const std::string whole = TempHome::readText(file);
    const std::string cut = whole.substr(0, whole.find("\"format\""));
    TempHome::writeText(file, cut);

    model->open(set, true);
    ASSERT_TRUE(model->errorMessage());
    EXPECT_NE(model->errorMessage()->find("Le projet « " + file.filename().string() + " » est endommagé"),
              std::string::npos);
    EXPECT_NE(model->errorMessage()->find("sur le set « " + paths::standardized(set).string() + " »"),
              std::string::npos) << *model->errorMessage();
    EXPECT_FALSE(fs::exists(file));
    bool kept = false;
    for (const auto& e : fs::directory_iterator(ProjectStore::directory()))
        kept = kept || TempHome::readText(e.path()) == cut;
    EXPECT_TRUE(kept);
}

TEST_F(ProjectSafety, ExportsAimedAtTheSetAreRefusedAndNamed) {
    const fs::path set = copySet("tiny", 21, "set");
    if (set.empty()) GTEST_SKIP() << "generator missing";
    openSynced(set);
    settings->setAskWhereToSave(true);
    const fs::path inside = set / "Cam 1" / "montage.xml";
    dialogs.saves = {inside};
    model->exportMontageXML(ExportTarget::premiere);
    ASSERT_TRUE(model->errorMessage());
    EXPECT_EQ(*model->errorMessage(), "Impossible d'enregistrer le XML : « " + inside.string() +
                                          " » est dans le dossier du set « set » : Quorvel n'écrit jamais parmi les "
                                          "rushes. Choisis un autre dossier.");
    EXPECT_FALSE(fs::exists(inside));

    // A video onto a hard link of a rush, made outside the set.
    model->clearError();
    const fs::path rush = model->sources()[0].items[0].url;
    const fs::path link = exports / "lien.mp4";
    fs::create_hard_link(rush, link);
    dialogs.saves = {link};
    model->exportVideo();
    ASSERT_TRUE(model->errorMessage());
    EXPECT_NE(model->errorMessage()->find("un fichier que le projet lit : il n'est pas remplacé"), std::string::npos);
    EXPECT_FALSE(exporter->done);

    // A grade's cube onto a link to that rush.
    model->clearError();
    fs::create_symlink(rush, exports / "look.cube");
    dialogs.saves = {exports / "look.cube"};
    model->exportCube(0);
    ASSERT_TRUE(model->errorMessage());
    EXPECT_EQ(model->errorMessage()->rfind("Impossible d'enregistrer le .cube : « " + (exports / "look.cube").string() +
                                               " » est « " + rush.string() + " », un fichier que le projet lit",
                                           0),
              0u)
        << *model->errorMessage();
    EXPECT_EQ(fs::file_size(rush), fs::file_size(generatedSet("tiny", 21) / "Cam 1" / "clip 1.mp4"));
}

}  // namespace
}  // namespace qv::test
