// What the program keeps on disk survives bad files and bad disks: writes
// that say why they fail and leave the old file, the lock beside a project,
// ids that cannot name another file, and every number of a file held inside
// the range of its control. (Damaged, oversized and nested files are rows of
// the hostile table.)
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include "persistence/AppSettings.h"
#include "persistence/ProjectStore.h"
#include "platform/Paths.h"
#include "support/TempHome.h"

namespace qv {
namespace {

namespace fs = std::filesystem;
using Json = json::Json;

std::vector<std::string> namesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(folder)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

TEST(SafeStorage, AFailedWriteSaysWhyInFrenchAndLeavesTheOldFile) {
    TempHome home;
    const fs::path file = home.root() / "projet.json";
    ASSERT_TRUE(paths::writeAtomically(file, "ancien"));

    fs::create_directory(home.root() / "dossier");
    Status onFolder = paths::writeAtomically(home.root() / "dossier", "x");
    ASSERT_FALSE(onFolder);
    EXPECT_EQ(onFolder.error().message, "c'est un dossier");
    Status missing = paths::writeAtomically(home.root() / "manque" / "a.json", "x");
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().message, "fichier ou dossier introuvable");

    // A disk that is full for real, when this machine lets us make one.
    const fs::path disk = home.root() / "disque";
    fs::create_directory(disk);
    if (mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=64k") == 0) {
        ASSERT_TRUE(paths::writeAtomically(disk / "projet.json", "ancien"));
        Status full = paths::writeAtomically(disk / "projet.json", std::string(1 << 20, 'x'));
        ASSERT_FALSE(full);
        EXPECT_EQ(full.error().message, "plus de place sur le disque");
        EXPECT_EQ(TempHome::readText(disk / "projet.json"), "ancien");
        EXPECT_EQ(namesIn(disk), std::vector<std::string>{"projet.json"});  // no temporary left
        umount2(disk.c_str(), MNT_DETACH);
    } else {
        std::cout << "[  NOTE    ] pas de tmpfs possible ici : le disque plein n'est pas essayé\n";
    }
    EXPECT_EQ(TempHome::readText(file), "ancien");
}

TEST(SafeStorage, TheLockBesideAProjectHasOneHolderAndGoesWithIt) {
    TempHome home;
    const fs::path lock = home.root() / "projet.lock";
    auto first = paths::FileLock::tryTake(lock);
    ASSERT_TRUE(first);
    EXPECT_FALSE(paths::FileLock::tryTake(lock));  // another open, even in this process
    EXPECT_TRUE(paths::FileLock::isHeldElsewhere(lock));
    first.reset();
    EXPECT_FALSE(fs::exists(lock));
    EXPECT_FALSE(paths::FileLock::isHeldElsewhere(lock));
    EXPECT_TRUE(paths::FileLock::tryTake(lock));
}

TEST(SafeStorage, IdsThatAreNotPlainFileNamesNameNoFile) {
    for (const std::string& bad : std::vector<std::string>{"", "../x", "a/b", ".cache", "a\nb", std::string("a\0b", 3),
                                                         std::string(201, 'a')})
        EXPECT_FALSE(ProjectStore::fileOf(bad)) << bad;
    EXPECT_TRUE(ProjectStore::fileOf("projet-0f8e2c1a-6a3b-4a4f-9e0b-1c2d3e4f5a6b"));

    TempHome home;
    ProjectFile escaping;
    escaping.id = "../../evil";
    escaping.folder = "/tmp/set";
    Status refused = ProjectStore::save(escaping);
    ASSERT_FALSE(refused);
    EXPECT_FALSE(fs::exists(ProjectStore::directory() / "../../evil.json"));

    // Read from a file, such an id gives way to the file's own name.
    TempHome::writeText(ProjectStore::directory() / "projet-a.json",
                        R"({"id": "../../evil", "folder": "/tmp/set", "savedAt": 0})");
    auto listed = ProjectStore::list();
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_EQ(listed[0].id, "projet-a");
    ASSERT_TRUE(ProjectStore::save(listed[0]));
    EXPECT_EQ(namesIn(ProjectStore::directory()), std::vector<std::string>{"projet-a.json"});
}

TEST(SafeStorage, EveryNumberOfAProjectIsHeldInsideItsControl) {
    const Json crafted = Json::parse(R"({
        "cuts": [{"time": 1e300, "camera": 0}, {"time": -5, "camera": 1}],
        "levels": {"Son 1": 1e12}, "autoWeights": {"Cam 1": -1e9}, "framing": {"Cam 1": 1e15},
        "inPoint": -1e308, "outPoint": 1e308, "viewStart": 1e15, "zoom": 1e9, "previewDivision": 1000000,
        "dropSensitivity": 40, "dropPre": -1, "dropPost": 1e6,
        "handPlacements": {"Son 1/a.wav": 1e15, "Son 1/b.wav": -1e300},
        "audio": {"rushFade": 1e12, "masterDb": -1e12},
        "effects": {"zoomMax": 1e12, "shutterStep": 1e9, "shakeIntensity": -3},
        "auto": {"minPlan": 1e-300, "maxPlan": 1e300},
        "crops": {"Cam 1": {"zoom": 1e12, "x": -1e12, "y": 1e300}},
        "grades": {"Cam 1": {"grainSize": 1e12, "sharpen": -1e12, "exposure": 1e300, "lut": "../../etc/passwd",
                             "wheelMidtones": {"hue": 1e300, "amount": 1e9, "luma": -1e9}}}
    })");
    const ProjectFile p = ProjectFile::fromJson(crafted);
    ASSERT_EQ(p.cuts.size(), 2u);
    EXPECT_EQ(p.cuts[0].time, limits::setSeconds);
    EXPECT_EQ(p.cuts[1].time, 0);
    EXPECT_EQ(p.levels.at("Son 1"), 6);
    EXPECT_EQ(p.autoWeights.at("Cam 1"), 0);
    EXPECT_EQ(p.framing.at("Cam 1"), 1);
    EXPECT_EQ(p.inPoint, 0);
    EXPECT_EQ(p.outPoint, limits::setSeconds);
    EXPECT_EQ(p.viewStart, limits::setSeconds);
    EXPECT_EQ(p.zoom, 60);
    EXPECT_EQ(p.previewDivision, 4);
    EXPECT_EQ(p.dropSensitivity, 1);
    EXPECT_EQ(p.dropPre, 2);
    EXPECT_EQ(p.dropPost, 120);
    EXPECT_EQ(p.handPlacements.at("Son 1/a.wav"), limits::setSeconds);
    EXPECT_EQ(p.handPlacements.at("Son 1/b.wav"), 0);
    EXPECT_EQ(p.audio.rushFade, 3);
    EXPECT_EQ(p.audio.masterDb, -20);
    EXPECT_EQ(p.effects.zoomMax, 140);
    EXPECT_EQ(p.effects.shutterStep, 4);
    EXPECT_EQ(p.effects.shakeIntensity, 0);
    EXPECT_EQ(p.autoSettings.minPlan, 0.5);
    EXPECT_EQ(p.autoSettings.maxPlan, 30);
    const CameraFrame& crop = p.crops.at("Cam 1");
    EXPECT_EQ(crop, (CameraFrame{4, -1, 1}));
    const ColorGrade& g = p.grades.at("Cam 1");
    EXPECT_EQ(g.grainSize, 100);
    EXPECT_EQ(g.sharpen, -100);
    EXPECT_EQ(g.exposure, 4);
    EXPECT_FALSE(g.lut);
    EXPECT_EQ(g.wheelMidtones, (ColorWheel{720, 1, -100}));

    // A path from the settings file is where exports go: only an absolute one.
    TempHome home;
    TempHome::writeText(home.root() / "settings.json", R"({"exportFolderPath": "relatif/dossier"})");
    EXPECT_FALSE(AppSettings(home.root() / "settings.json").exportFolderPath());
}

}  // namespace
}  // namespace qv
