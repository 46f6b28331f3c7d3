// The one rule on where an export may go: never in the set, never over a
// file the project reads, whatever spelling, link or hard link leads there.
#include <gtest/gtest.h>

#include "export/OutputTarget.h"
#include "support/Fixtures.h"

namespace qv {
namespace {

namespace fs = std::filesystem;

class OutputTargetTest : public ::testing::Test {
protected:
    void SetUp() override {
        set = dir / "Set du 12";
        fs::create_directories(set / "Cam 1");
        fs::create_directories(set / "Son 1");
        test::writeText(set / "Cam 1" / "clip 1.mp4", "image");
        test::writeText(set / "Son 1" / "prise 1.wav", "son");
        fs::create_directories(dir / "exports");
        owned = OutputTarget::ofFolder(set);
    }

    std::string refusal(const fs::path& target) const {
        Status s = OutputTarget::check(target, owned);
        return s ? std::string() : s.error().message;
    }

    test::TempDir dir;
    fs::path set;
    OutputTarget::Protected owned;
};

TEST_F(OutputTargetTest, NothingIsWrittenInTheSetHoweverThePathLeadsThere) {
    const std::string inside = " est dans le dossier du set « Set du 12 » : Quorvel n'écrit jamais parmi les rushes. "
                               "Choisis un autre dossier.";
    EXPECT_EQ(refusal(set / "montage.xml"), "« " + (set / "montage.xml").string() + " »" + inside);
    EXPECT_NE(refusal(set / "Cam 1" / "nouveau.mp4").find(inside), std::string::npos);
    EXPECT_NE(refusal(dir / "exports" / ".." / "Set du 12" / "Son 1" / "x.xml").find(inside), std::string::npos);
    fs::create_directory_symlink(set / "Cam 1", dir / "raccourci");
    EXPECT_NE(refusal(dir / "raccourci" / "x.mp4").find(inside), std::string::npos);
    // Beside the set is fine.
    EXPECT_EQ(refusal(dir / "exports" / "montage.xml"), "");
    EXPECT_EQ(refusal(dir / "Set du 12 - MONTAGE.xml"), "");
}

TEST_F(OutputTargetTest, AFileTheProjectReadsIsNeverReplacedWhateverItsName) {
    fs::create_hard_link(set / "Son 1" / "prise 1.wav", dir / "exports" / "copie.mlt");
    fs::create_symlink(set / "Cam 1" / "clip 1.mp4", dir / "exports" / "rendu.mp4");
    EXPECT_EQ(refusal(dir / "exports" / "copie.mlt"),
              "« " + (dir / "exports" / "copie.mlt").string() + " » est « " + (set / "Son 1" / "prise 1.wav").string() +
                  " », un fichier que le projet lit : il n'est pas remplacé.");
    EXPECT_NE(refusal(dir / "exports" / "rendu.mp4").find("un fichier que le projet lit"), std::string::npos);
    // The project's own files, outside the set, by their own name.
    fs::create_directories(dir / "projets");
    test::writeText(dir / "projets" / "projet-a.json", "{}");
    owned.files.push_back(dir / "projets" / "projet-a.json");
    EXPECT_EQ(refusal(dir / "projets" / "projet-a.json"),
              "« " + (dir / "projets" / "projet-a.json").string() +
                  " » est un fichier que le projet lit : il n'est pas remplacé.");
}

TEST_F(OutputTargetTest, FoldersMissingFoldersAndFoldersOfOutputs) {
    EXPECT_EQ(refusal(dir / "exports"), "« " + (dir / "exports").string() + " » est un dossier");
    EXPECT_EQ(refusal(dir / "manque" / "a.mp4"),
              "fichier ou dossier introuvable : « " + (dir / "manque").string() + " »");

    // A folder of outputs is made with its parents, but never in the set.
    EXPECT_TRUE(OutputTarget::prepareFolder(dir / "clips" / "du 12", owned));
    EXPECT_TRUE(fs::is_directory(dir / "clips" / "du 12"));
    EXPECT_FALSE(OutputTarget::prepareFolder(set / "Clips" / "verticaux", owned));
    EXPECT_FALSE(fs::exists(set / "Clips"));
}

}  // namespace
}  // namespace qv
