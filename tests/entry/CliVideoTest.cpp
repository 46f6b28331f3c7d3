// `--cli … --video`: the finished video of the run's edit, its report line,
// and its failures as one French line and exit status 1, with no file left.
#include <gtest/gtest.h>

#include <cstdio>

#include "support/Fixtures.h"

namespace fs = std::filesystem;

namespace qv {
namespace {

// `prefix` runs in the same shell first (a ulimit).
test::ShellAnswer quorvel(const std::string& args, const std::string& prefix = "") {
    return test::runShell(prefix + "'" + std::string(QUORVEL_EXE) + "' --cli " + args);
}

class CliVideo : public ::testing::Test {
protected:
    void SetUp() override {
        set_ = test::generatedSet("render", 1);
        if (set_.empty()) GTEST_SKIP() << "generator missing";
    }
    std::string args(const std::string& video, const std::string& more) {
        return "'" + set_.string() + "' '" + (dir_ / "montage.xml").string() + "' --video '" + video + "' " + more;
    }
    fs::path set_;
    test::TempDir dir_;
};

TEST_F(CliVideo, TheRunsEditBecomesAVideoOfItsRange) {
    const fs::path video = dir_ / "montage.mov";
    auto r = quorvel(args(video.string(), "--montage '0:1,3:2' --range 2-4 --effets --son-camera"));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.lastLine, "Vidéo : " + video.string());
    ASSERT_TRUE(fs::exists(video));
    EXPECT_GT(fs::file_size(video), 10000u);
    EXPECT_TRUE(fs::exists(dir_ / "montage.xml"));
}

TEST_F(CliVideo, FailuresAreOneFrenchLineAndLeaveNoFile) {
    const fs::path video = dir_ / "montage.mp4";
    // A disk that fills up: the file-size limit stops the writing.
    auto r = quorvel(args(video.string(), "--auto --range 0-12"), "ulimit -f 200; ");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.lastLine, "L'export vidéo a échoué : le fichier dépasse la taille permise.");
    EXPECT_FALSE(fs::exists(video));
    for (const auto& e : fs::directory_iterator(dir_.path())) EXPECT_NE(e.path().extension(), ".partiel");
}

}  // namespace
}  // namespace qv
