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

// The command line's rows of the hostile table try links, hard links,
// folders and missing folders; here, the spellings and the outputs' folder.
TEST_F(OutputTargetTest, TheSetHoweverSpelledIsRefusedBesideItIsFine) {
    const std::string inside = " est dans le dossier du set « Set du 12 » : Quorvel n'écrit jamais parmi les rushes. "
                               "Choisis un autre dossier.";
    fs::create_directories(dir / "exports");
    EXPECT_EQ(refusal(dir / "exports" / ".." / "Set du 12" / "Son 1" / "x.xml"),
              "« " + (dir / "exports" / ".." / "Set du 12" / "Son 1" / "x.xml").string() + " »" + inside);
    EXPECT_EQ(refusal(dir / "exports" / "montage.xml"), "");
    EXPECT_EQ(refusal(dir / "Set du 12 - MONTAGE.xml"), "");

    // The project's own files, outside the set, by their own name.
    fs::create_directories(dir / "projets");
    test::writeText(dir / "projets" / "projet-a.json", "{}");
    owned.files.push_back(dir / "projets" / "projet-a.json");
    EXPECT_EQ(refusal(dir / "projets" / "projet-a.json"),
              "« " + (dir / "projets" / "projet-a.json").string() +
                  " » est un fichier que le projet lit : il n'est pas remplacé.");

    // A folder of outputs is made with its parents, but never in the set.
    EXPECT_TRUE(OutputTarget::prepareFolder(dir / "clips" / "du 12", owned));
    EXPECT_TRUE(fs::is_directory(dir / "clips" / "du 12"));
    EXPECT_FALSE(OutputTarget::prepareFolder(set / "Clips" / "verticaux", owned));
    EXPECT_FALSE(fs::exists(set / "Clips"));
}

}  // namespace
}  // namespace qv
