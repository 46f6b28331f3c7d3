#include "looks/LookLibrary.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>

#include "looks/GradeMath.h"
#include "support/Fixtures.h"

namespace qv {
namespace {

namespace fs = std::filesystem;

// Each test gets its own library folder through QUORVEL_PROJECTS_DIR.
class LookLibraryTest : public ::testing::Test {
protected:
    void SetUp() override { setenv("QUORVEL_PROJECTS_DIR", home.path().c_str(), 1); }
    void TearDown() override { unsetenv("QUORVEL_PROJECTS_DIR"); }

    test::TempDir home;
    test::TempDir elsewhere;
};

CubeLUT inverse() {
    CubeLUT lut = CubeLUT::identity(2);
    for (float& v : lut.values) v = 1 - v;
    return lut;
}

TEST_F(LookLibraryTest, ImportedCubeBecomesAPresetThatApplies) {
    test::writeText(elsewhere / "Inverse test.cube", inverse().text("Inverse"));
    auto preset = LookLibrary::importPreset(elsewhere / "Inverse test.cube");
    ASSERT_TRUE(preset.ok()) << preset.error().message;
    EXPECT_EQ(preset->name, "Inverse test");
    EXPECT_EQ(LookLibrary::luts(), std::vector<std::string>{"Inverse test.cube"});
    EXPECT_EQ(LookLibrary::presets(), std::vector<LookLibrary::Preset>{*preset});

    auto lut = LookLibrary::lut(*preset->grade.lut);
    ASSERT_TRUE(lut);
    Rgb out = GradeMath::apply(0.2, 0.6, 0.9, preset->grade, lut.get());
    EXPECT_NEAR(out.r, 0.8, 1e-6);
    EXPECT_NEAR(out.b, 0.1, 1e-6);
    preset->grade.lutIntensity = 50;
    EXPECT_NEAR(GradeMath::apply(0.2, 0.6, 0.9, preset->grade, lut.get()).b, 0.5, 1e-6);
    // The bake loads the named LUT itself.
    EXPECT_NEAR(GradeMath::cubeLUT(preset->grade, 2).values[0], 0.5f, 1e-6);

    // A new file under the same name replaces the cached table.
    test::writeText(elsewhere / "Inverse test.cube", CubeLUT::identity(3).text("Identité"));
    ASSERT_TRUE(LookLibrary::importLUT(elsewhere / "Inverse test.cube").ok());
    EXPECT_EQ(LookLibrary::lut("Inverse test.cube")->size, 3);
}

TEST_F(LookLibraryTest, BrokenFilesAreRefusedAndLeaveTheFolderAlone) {
    test::writeText(elsewhere / "Cassée.cube", "LUT_3D_SIZE 4\n0 0 0\n");
    auto lut = LookLibrary::importLUT(elsewhere / "Cassée.cube");
    ASSERT_FALSE(lut.ok());
    EXPECT_EQ(lut.error().message,
              "Le fichier « Cassée.cube » n'est pas une LUT .cube valide (taille ou nombre de valeurs incorrects).");
    EXPECT_FALSE(fs::exists(home / LookLibrary::kLutFolder));
    EXPECT_FALSE(LookLibrary::lut("Cassée.cube"));

    test::writeText(elsewhere / "look.txt", "{}");
    EXPECT_FALSE(LookLibrary::importPreset(elsewhere / "look.txt").ok());
    test::writeText(elsewhere / "abîmé.quorvellook", "{\"name\": ");
    EXPECT_FALSE(LookLibrary::importPreset(elsewhere / "abîmé.quorvellook").ok());
    EXPECT_TRUE(LookLibrary::presets().empty());
    EXPECT_FALSE(LookLibrary::lut("../Cassée.cube"));
}


// A library file that fails is not read again at every bake, only once it changes.
TEST_F(LookLibraryTest, ARefusedLutIsRememberedUntilItsFileChanges) {
    const fs::path file = home / LookLibrary::kLutFolder / "Abîmée.cube";
    const std::string good = CubeLUT::identity(2).text("Bonne");
    std::string bad = good;
    bad.replace(bad.find("LUT_3D_SIZE 2"), 13, "LUT_3D_SIZE 9");  // same length, wrong count
    fs::create_directories(file.parent_path());
    test::writeText(file, bad);
    EXPECT_FALSE(LookLibrary::lut("Abîmée.cube"));

    // Good bytes under the same stamp (same file, size and time): the
    // remembered failure answers, so the file was not read again.
    const auto written = fs::last_write_time(file);
    {
        std::ofstream in(file, std::ios::binary | std::ios::in | std::ios::out);
        in << good;
    }
    fs::last_write_time(file, written);
    EXPECT_FALSE(LookLibrary::lut("Abîmée.cube"));
    GradeMath::cubeLUT(ColorGrade{.lut = "Abîmée.cube"}, 2);
    EXPECT_FALSE(LookLibrary::lut("Abîmée.cube"));

    // Once the file changes it is read again.
    fs::last_write_time(file, written + std::chrono::seconds(1));
    auto lut = LookLibrary::lut("Abîmée.cube");
    ASSERT_TRUE(lut);
    EXPECT_EQ(lut->size, 2);
    // And a good file edited in place is not served stale.
    test::writeText(file, CubeLUT::identity(3).text("Plus fine"));
    EXPECT_EQ(LookLibrary::lut("Abîmée.cube")->size, 3);
}
TEST_F(LookLibraryTest, PresetsSaveListImportAndDelete) {
    LookLibrary::Preset night{"Nuit/Club 2", {}};
    night.grade.temperature = -40;
    night.grade.grain = 30;
    LookLibrary::Preset day{"Club 10", {}};
    ASSERT_TRUE(LookLibrary::save(night).ok());
    ASSERT_TRUE(LookLibrary::save(day).ok());
    EXPECT_TRUE(fs::exists(home.path() / LookLibrary::kPresetFolder / "Nuit-Club 2.quorvellook"));
    EXPECT_EQ(LookLibrary::presets(), (std::vector<LookLibrary::Preset>{day, night}));

    night.grade.exposure = 1;  // saving again replaces
    ASSERT_TRUE(LookLibrary::save(night).ok());
    EXPECT_EQ(LookLibrary::presets().back(), night);

    // A look from elsewhere that names a LUT this library lacks keeps the rest.
    LookLibrary::Preset foreign{"Étranger", {}};
    foreign.grade.lut = "Absente.cube";
    foreign.grade.contrast = 20;
    test::writeText(elsewhere / "x.quorvellook", LookLibrary::presetText(foreign));
    auto imported = LookLibrary::importPreset(elsewhere / "x.quorvellook");
    ASSERT_TRUE(imported.ok());
    EXPECT_EQ(imported->name, "Étranger");
    EXPECT_FALSE(imported->grade.lut);
    EXPECT_EQ(imported->grade.contrast, 20);

    ASSERT_TRUE(LookLibrary::remove(night).ok());
    ASSERT_TRUE(LookLibrary::remove(night).ok());
    EXPECT_EQ(LookLibrary::presets().size(), 2u);
    EXPECT_EQ(LookLibrary::presets().front(), day);
}

}  // namespace
}  // namespace qv
