// The sound of an export, measured in the file: constant levels in, so the
// output's samples are the volume curves themselves (ProRes carries PCM, so
// nothing of the codec blurs them).
#include <gtest/gtest.h>

#include <cmath>

#include "render/RenderFixtures.h"
#include "support/Fixtures.h"

namespace qv {
namespace {

namespace fs = std::filesystem;

class ExportSound : public ::testing::Test {
protected:
    void SetUp() override {
        if (!test::haveFFmpeg()) GTEST_SKIP() << "ffmpeg missing";
        fs::create_directories(dir_ / "set" / "Cam 1");
        fs::create_directories(dir_ / "set" / "Cam 2");
        fs::create_directories(dir_ / "set" / "Son 1");
        camera("Cam 1/a.mov", "0.2", 4);
        camera("Cam 2/b.mov", "0.3", 4);
        camera("Cam 2/c.mov", "0.3", 2);
        ASSERT_TRUE(test::ffmpeg({"-f", "lavfi", "-i", "aevalsrc=0.1|0.1:s=48000:d=4", "-c:a", "pcm_s16le",
                                  (dir_ / "set" / "Son 1" / "s.wav").string()}));
    }
    void camera(const std::string& name, const std::string& level, int seconds) {
        ASSERT_TRUE(test::ffmpeg({"-f", "lavfi", "-i", "color=gray:s=64x36:r=25:d=" + std::to_string(seconds), "-f",
                                  "lavfi", "-i", "aevalsrc=" + level + "|" + level + ":s=48000:d=" + std::to_string(seconds),
                                  "-c:v", "libx264", "-preset", "ultrafast", "-c:a", "pcm_s16le", "-shortest",
                                  (dir_ / "set" / name).string()}));
    }
    // The left channel of the export, 48 kHz, from 0 to its end.
    std::vector<float> render(VideoRender::Job job) {
        auto out = test::renderNow(std::move(job), VideoCodec::prores, dir_ / "out.mov");
        EXPECT_TRUE(out.ok()) << (out.ok() ? "" : out.error().message);
        if (!out) return {};
        auto reader = media::AudioReader::open(*out, 48000, 2);
        EXPECT_TRUE(reader.ok());
        std::vector<float> both(4 * 48000 * 2), left(4 * 48000);
        reader->read(0, 4 * 48000, both.data());
        for (size_t i = 0; i < left.size(); ++i) left[i] = both[2 * i];
        return left;
    }
    static float at(const std::vector<float>& s, double t) { return s.at(static_cast<size_t>(std::lround(t * 48000))); }
    static float biggestStep(const std::vector<float>& s) {
        float step = 0;
        for (size_t i = 1; i < s.size(); ++i) step = std::max(step, std::abs(s[i] - s[i - 1]));
        return step;
    }
    VideoRender::Job job(std::map<std::string, double> starts) {
        auto j = test::jobAt(dir_ / "set", starts);
        j.range = {0, 4};
        return j;
    }
    test::TempDir dir_;
};

TEST_F(ExportSound, CameraModeRampsAtTheCutOverContinuousTableSound) {
    auto j = job({{"Cam 1/a.mov", 0}, {"Cam 2/b.mov", 0}, {"Son 1/s.wav", 0}});
    j.segments = test::plans({{0, 0}, {2, 1}}, 4);
    j.audio.mode = AudioSettings::Mode::camera;
    auto s = render(j);
    ASSERT_FALSE(s.empty());
    EXPECT_NEAR(at(s, 1.0), 0.3f, 2e-3);   // table 0.1 + camera 1 at 0.2, no fade at the very start
    EXPECT_NEAR(at(s, 1.98), 0.2f, 3e-3);  // half way down the last 0.04 s
    EXPECT_NEAR(at(s, 2.0), 0.1f, 3e-3);   // the cut: the camera sound at 0
    EXPECT_NEAR(at(s, 2.02), 0.25f, 3e-3); // half way up
    EXPECT_NEAR(at(s, 3.99), 0.4f, 2e-3);  // no fade at the very end
    EXPECT_LT(biggestStep(s), 0.002f);     // no click anywhere

    // Muting the table takes it out of the mix entirely; +6 dB plays at 1.
    j.muted.insert(j.sources[2].id);
    j.levels[j.sources[0].id] = 6;
    s = render(j);
    EXPECT_NEAR(at(s, 1.0), 0.2f, 2e-3);
    EXPECT_NEAR(at(s, 3.0), 0.3f, 2e-3);
}

TEST_F(ExportSound, WithoutCutFadesTheCameraSoundStepsAtTheCut) {
    auto j = job({{"Cam 1/a.mov", 0}, {"Cam 2/b.mov", 0}});
    j.segments = test::plans({{0, 0}, {2, 1}}, 4);
    j.audio.mode = AudioSettings::Mode::camera;
    j.audio.cutFade = false;
    auto s = render(j);
    ASSERT_FALSE(s.empty());
    EXPECT_NEAR(at(s, 1.999), 0.2f, 2e-3);
    EXPECT_NEAR(at(s, 2.001), 0.3f, 2e-3);
}

TEST_F(ExportSound, AllModeFadesARushInsideTheRangeButNotAtItsEnds) {
    // Camera 2's 2 s file lies inside; camera 1 covers all.
    auto j = job({{"Cam 1/a.mov", 0}, {"Cam 2/c.mov", 1}});
    j.segments = test::plans({{0, 0}}, 4);
    j.audio.mode = AudioSettings::Mode::all;
    j.audio.rushFade = 1;
    auto s = render(j);
    ASSERT_FALSE(s.empty());
    EXPECT_NEAR(at(s, 0.001), 0.2f, 2e-3);        // no fade at the very start
    EXPECT_NEAR(at(s, 1.5), 0.2f + 0.15f, 3e-3);  // camera 2 half way up (1 s ramp)
    EXPECT_NEAR(at(s, 2.0), 0.5f, 3e-3);
    EXPECT_NEAR(at(s, 2.5), 0.2f + 0.15f, 3e-3);  // and half way down
    EXPECT_NEAR(at(s, 3.99), 0.2f, 2e-3);         // no fade at the very end
}

}  // namespace
}  // namespace qv
