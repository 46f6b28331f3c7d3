// `--cli … --video` and `--clips-drops <folder>`: the finished video of the
// run's edit at the loudness asked; one vertical clip per drop with its name,
// size and length; a set without drops; failures as one French line and exit
// status 1, with no broken file left when the disk fills up.
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>

#include "platform/Process.h"
#include "support/Fixtures.h"

namespace fs = std::filesystem;

namespace qv {
namespace {

// `prefix` runs in the same shell first (a ulimit).
test::ShellAnswer quorvel(const std::string& args, const std::string& prefix = "") {
    return test::runShell(prefix + "'" + std::string(QUORVEL_EXE) + "' --cli " + args);
}

// The drops the run finds, in seconds (whole, as "m:ss" shows them).
std::vector<int> dropSeconds(const std::string& out) {
    std::vector<int> seconds;
    const size_t line = out.find("Drops : ");
    if (line == std::string::npos) return seconds;
    const std::string text = out.substr(line, out.find('\n', line) - line);
    std::regex time("(\\d+):(\\d\\d) \\(force");
    for (auto it = std::sregex_iterator(text.begin(), text.end(), time); it != std::sregex_iterator(); ++it)
        seconds.push_back(std::stoi((*it)[1]) * 60 + std::stoi((*it)[2]));
    return seconds;
}

class CliVideo : public ::testing::Test {
protected:
    void SetUp() override {
        set_ = test::generatedSet("drops", 1);
        if (set_.empty()) GTEST_SKIP() << "generator missing";
    }
    std::string args(const std::string& more) { return on(set_, more); }
    // The short "render" set, without drops.
    std::string onRender(const std::string& more) { return on(test::generatedSet("render", 1), more); }
    std::string on(const fs::path& set, const std::string& more) {
        return "'" + set.string() + "' '" + (dir_ / "sync.xml").string() + "' " + more;
    }
    fs::path set_;
    test::TempDir dir_;
};

TEST_F(CliVideo, OneVerticalClipPerDropWithItsNameSizeAndLength) {
    const fs::path clips = dir_ / "clips";
    fs::create_directory(clips);
    auto r = quorvel(args("--drops --clips-drops '" + clips.string() + "' --marges-drop 1-1.5"));
    ASSERT_EQ(r.status, 0) << r.out;
    const std::vector<int> drops = dropSeconds(r.out);
    ASSERT_GE(drops.size(), 2u) << r.out;
    EXPECT_EQ(r.lastLine, "Clips des drops : " + std::to_string(drops.size()) + " fichiers dans " + clips.string());
    const std::string name = set_.filename().string();
    for (size_t k = 0; k < drops.size(); ++k) {
        const fs::path clip = clips / (name + " - drop " + std::to_string(k + 1) + " (" + std::to_string(drops[k] / 60) +
                                       ":" + (drops[k] % 60 < 10 ? "0" : "") + std::to_string(drops[k] % 60) + ").mp4");
        ASSERT_TRUE(fs::exists(clip)) << clip;
        EXPECT_EQ(test::ffprobe(clip, "stream=width,height"), "1080\n1920");
        // 2.5 s within one frame.
        const std::string rate = test::ffprobe(clip, "stream=r_frame_rate");
        const double fps = std::stod(rate.substr(0, rate.find('/'))) / std::stod(rate.substr(rate.find('/') + 1));
        const double frames = std::stod(test::ffprobe(clip, "stream=nb_frames"));
        EXPECT_NEAR(frames / fps, 2.5, 1.0 / fps + 1e-6) << clip;
    }
    size_t count = 0;
    for (const auto& e : fs::directory_iterator(clips)) count += e.path().extension() == ".mp4";
    EXPECT_EQ(count, drops.size());
}

TEST_F(CliVideo, TheRunsEditBecomesAVideoOfItsRange) {
    const fs::path video = dir_ / "montage.mov";
    auto r = quorvel(onRender("--video '" + video.string() + "' --montage '0:1,3:2' --range 2-4 --effets --son-camera"));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.lastLine, "Vidéo : " + video.string());
    ASSERT_TRUE(fs::exists(video));
    EXPECT_GT(fs::file_size(video), 10000u);
    EXPECT_TRUE(fs::exists(dir_ / "sync.xml"));
}

TEST_F(CliVideo, AFinishedVideoReachesTheBroadcastLoudness) {
    const fs::path video = dir_ / "montage.mp4";
    auto r = quorvel(onRender("--video '" + video.string() + "' --loudness -23"));
    ASSERT_EQ(r.status, 0) << r.out;
    auto loudness = test::measureLoudness(video);
    ASSERT_TRUE(loudness);
    EXPECT_NEAR(loudness->integrated, -23.0, 0.5);
    EXPECT_LE(loudness->truePeak, -1.0);
}

TEST_F(CliVideo, ASetWithoutDropsMakesNoClip) {
    auto r = quorvel(onRender("--clips-drops '" + dir_.path().string() + "'"));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.lastLine, "Aucun drop : aucun clip");
}

TEST_F(CliVideo, AVideoOnAFullDiskIsOneFrenchLineAndLeavesNoFile) {
    const fs::path video = dir_ / "montage.mp4";
    // The file-size limit stops the writing as a full disk would.
    auto r = quorvel(onRender("--video '" + video.string() + "' --auto --range 0-12"), "ulimit -f 200; ");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.lastLine, "L'export vidéo a échoué : le fichier dépasse la taille permise.");
    EXPECT_FALSE(fs::exists(video));
    for (const auto& e : fs::directory_iterator(dir_.path())) EXPECT_NE(e.path().extension(), ".partiel");
}

TEST_F(CliVideo, AFolderThatFillsUpKeepsTheFinishedClipsAndRemovesTheBrokenOne) {
    // In this set nothing films at the first drop: its clip is black and
    // small (about 90 kB), the next one shows a camera (about 220 kB);
    // the limit, in 512-byte blocks, lies between.
    const fs::path clips = dir_ / "clips";
    fs::create_directory(clips);
    auto r = quorvel(args("--drops --clips-drops '" + clips.string() + "' --marges-drop 1-1.5"), "ulimit -f 300; ");
    const std::vector<int> drops = dropSeconds(r.out);
    ASSERT_GE(drops.size(), 2u) << r.out;
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("Clip du drop 2 échoué : le fichier dépasse la taille permise."), std::string::npos) << r.out;
    EXPECT_EQ(r.lastLine, "Les clips des drops ont échoué : 1 sur " + std::to_string(drops.size()) + " faits.");
    std::vector<std::string> left;
    for (const auto& e : fs::directory_iterator(clips)) left.push_back(e.path().filename().string());
    ASSERT_EQ(left.size(), 1u);  // no partial file, no broken clip
    EXPECT_EQ(left[0].rfind(set_.filename().string() + " - drop 1 (", 0), 0u) << left[0];
    EXPECT_NE(test::ffprobe(clips / left[0], "stream=width,height"), "");  // whole and readable
}

}  // namespace
}  // namespace qv
