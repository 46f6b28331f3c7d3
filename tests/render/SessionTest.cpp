// The export session: cancel, retry, replacing a file, what ffprobe reads
// in each format, and damaged input or an unwritable target.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>

#include "diagnostics/Log.h"
#include "render/RenderFixtures.h"
#include "support/Fixtures.h"
#include "support/TempHome.h"

namespace qv {
namespace {

namespace fs = std::filesystem;

class ExportSession : public ::testing::Test {
protected:
    void SetUp() override {
        set_ = test::generatedSet("render", 1);
        if (set_.empty()) GTEST_SKIP() << "generator missing";
    }
    // The set, copied when a test damages it.
    VideoRender::Job job(TimeRange range, bool copy = false) {
        fs::path from = set_;
        if (copy) {
            fs::copy(set_, dir_ / "set", fs::copy_options::recursive);
            from = dir_ / "set";
        }
        auto j = test::jobAt(from, test::truthStarts(set_));
        j.segments = test::plans({{0, 0}, {5, 1}, {10, 2}}, j.result.duration());
        j.range = range;
        return j;
    }
    Result<fs::path> run(VideoRender::Job j, VideoCodec codec, const fs::path& to, bool retry = false,
                         int* calls = nullptr, const std::function<void()>& whileRunning = {}) {
        return test::exportNow(exporter_, scheduler_, std::move(j), codec, to, retry, calls, whileRunning);
    }
    static bool leftovers(const fs::path& target) {
        return fs::exists(target) || fs::exists(VideoExportSession::partialFile(target));
    }
    fs::path set_;
    test::TempDir dir_;
    test::ManualScheduler scheduler_;
    VideoExportSession exporter_{scheduler_};
};

TEST_F(ExportSession, ACancelEndsWithTheCancellationAndLeavesNoFile) {
    const fs::path target = dir_ / "annule.mp4";
    int calls = 0;
    auto out = run(job({0, 19}), VideoCodec::h264, target, true, &calls, [&] {
        if (exporter_.progress() > 0) exporter_.cancel();
    });
    ASSERT_FALSE(out.ok());
    EXPECT_TRUE(VideoExportSession::isCancellation(out.error()));
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(leftovers(target));
    EXPECT_FALSE(exporter_.isRunning());
}

TEST_F(ExportSession, AnExistingFileIsReplacedAndEveryFormatReadsBackRight) {
    struct Case {
        VideoCodec codec;
        const char* file;
        const char* name;
    };
    for (Case c : {Case{VideoCodec::h264, "v.mp4", "h264"}, Case{VideoCodec::hevc, "v2.mp4", "hevc"},
                   Case{VideoCodec::prores, "v.mov", "prores"}}) {
        const fs::path target = dir_ / c.file;
        test::writeText(target, "ancien contenu");
        auto out = run(job({3.3, 5.3}), c.codec, target);
        ASSERT_TRUE(out.ok()) << c.name << ": " << out.error().message;
        EXPECT_EQ(*out, target);
        EXPECT_EQ(test::probeField(target, "v", "codec_name"), c.name);
        EXPECT_EQ(test::probeField(target, "v", "width"), "320");
        EXPECT_EQ(test::probeField(target, "v", "height"), "180");
        EXPECT_EQ(test::probeField(target, "v", "r_frame_rate"), "25/1");
        EXPECT_NEAR(std::stod(test::probeField(target, "v", "duration")), 2.0, 0.04) << c.name;
        EXPECT_EQ(test::probeField(target, "a", "channels"), "2");
        EXPECT_EQ(test::probeField(target, "a", "codec_name"), c.codec == VideoCodec::prores ? "pcm_s16le" : "aac");
        EXPECT_FALSE(fs::exists(VideoExportSession::partialFile(target)));
        EXPECT_DOUBLE_EQ(exporter_.progress(), 1.0);
    }
}

TEST_F(ExportSession, AFirstFailureRetriesOnceAndTheSecondReachesTheCaller) {
    TempHome home;
    VideoRender::Job j = job({0, 4}, true);
    fs::remove(dir_ / "set" / "Cam 1" / "clip 1.mp4");  // gone between the sync and the export
    const fs::path target = dir_ / "essai.mp4";
    int calls = 0;
    auto out = run(j, VideoCodec::h264, target, true, &calls);
    ASSERT_FALSE(out.ok());
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(out.error().message, "Impossible de lire clip 1.mp4.");
    EXPECT_FALSE(leftovers(target));
    Log::flush();
    const std::string log = TempHome::readText(Log::file());
    EXPECT_NE(log.find("ERREUR export vidéo : Impossible de lire clip 1.mp4. — nouvel essai\n"), std::string::npos);
    EXPECT_NE(log.find("ERREUR export vidéo : Impossible de lire clip 1.mp4.\n"), std::string::npos);
    EXPECT_NE(log.find("Export vidéo : H.264 (MP4), 320x180, "), std::string::npos);
}

TEST_F(ExportSession, DamagedInputOrAnUnwritableFolderGivesAFrenchMessageAndNoFile) {
    // A camera file cut short after the sync loses its index with its end:
    // it cannot be read any more, and that is said, with no file left behind.
    VideoRender::Job j = job({0, 6}, true);
    const fs::path cut = dir_ / "set" / "Cam 1" / "clip 1.mp4";
    fs::resize_file(cut, fs::file_size(cut) / 2);
    const fs::path target = dir_ / "tronque.mp4";
    auto out = run(j, VideoCodec::h264, target);
    ASSERT_FALSE(out.ok());
    EXPECT_EQ(out.error().message, "Impossible de lire clip 1.mp4.");
    EXPECT_FALSE(leftovers(target));

    // A folder nobody may write in (as root, a file system that takes no files).
    fs::path folder = dir_ / "lecture seule";
    fs::create_directories(folder);
    fs::permissions(folder, fs::perms::owner_read | fs::perms::owner_exec);
    if (geteuid() == 0) folder = "/proc/self";
    const fs::path locked = folder / "video.mp4";
    out = run(job({0, 2}), VideoCodec::h264, locked);
    ASSERT_FALSE(out.ok());
    EXPECT_EQ(out.error().message.rfind("écriture", 0), 0u) << out.error().message;
    EXPECT_FALSE(leftovers(locked));
}

}  // namespace
}  // namespace qv
