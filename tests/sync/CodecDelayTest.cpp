// One recording wrapped in every container a set brings (PCM in WAV and MOV,
// AAC in MP4, MOV and M4A, Opus in Matroska, WebM and Ogg, Vorbis in Ogg and
// WebM, MP3): through either audio road,
// each must give its sound at the same sample as the WAV, whatever delay or
// priming its codec adds and whatever the container says of its start.
#include <gtest/gtest.h>

#include "base/Text.h"
#include "platform/MediaTime.h"
#include "support/Fixtures.h"
#include "sync/AudioLoader.h"
#include "sync/Correlator.h"

namespace fs = std::filesystem;

namespace qv {
namespace {

// Lag of `x` against `reference` at the strongest peak; 1e9 for none.
int lagAgainst(const std::vector<float>& x, const std::vector<float>& reference) {
    auto correlator = Correlator::make(static_cast<int>(x.size() + reference.size()));
    auto a = correlator->spectrum(x), b = correlator->spectrum(reference);
    auto matches = correlator->correlate(*a, *b, 4000, 9.0f, 1, 500);
    return matches.empty() ? 1'000'000'000 : matches.front().lag;
}

TEST(CodecDelay, EveryContainerOfOneRecordingStartsAtTheSameSample) {
    if (!test::haveFFmpeg()) GTEST_SKIP() << "ffmpeg absent";
    test::TempDir dir;
    const fs::path wav = dir / "rec.wav";
    // Pink noise under a wandering tone: nothing repeats, every band speaks.
    ASSERT_TRUE(test::ffmpeg({"-f", "lavfi", "-i", "anoisesrc=c=pink:r=48000:a=0.3:seed=7:d=12", "-f", "lavfi",
                              "-i", "sine=f=220:r=48000:d=12", "-filter_complex", "amix=inputs=2", "-ac", "2",
                              "-c:a", "pcm_s16le", wav.string()}));
    const std::string picture = "color=c=blue:s=64x36:r=25:d=12";
    struct Wrap {
        std::string name;
        std::vector<std::string> args;
    };
    const std::vector<Wrap> wraps = {
        {"aac.mp4", {"-f", "lavfi", "-i", picture, "-i", wav.string(), "-c:v", "libx264", "-preset", "ultrafast",
                     "-c:a", "aac", "-shortest"}},
        {"pcm.mov", {"-f", "lavfi", "-i", picture, "-i", wav.string(), "-c:v", "libx264", "-preset", "ultrafast",
                     "-c:a", "pcm_s16le", "-shortest"}},
        {"opus.mkv", {"-i", wav.string(), "-c:a", "libopus"}},
        {"aac.mov", {"-f", "lavfi", "-i", picture, "-i", wav.string(), "-c:v", "libx264", "-preset", "ultrafast",
                     "-c:a", "aac", "-shortest"}},
        // FFmpeg's own Matroska writer moves the picture by the Opus pre-skip.
        {"opus-picture.mkv", {"-f", "lavfi", "-i", picture, "-i", wav.string(), "-c:v", "libx264", "-preset",
                              "ultrafast", "-c:a", "libopus", "-shortest"}},
        {"opus.webm", {"-i", wav.string(), "-c:a", "libopus"}},
        {"opus.ogg", {"-i", wav.string(), "-c:a", "libopus"}},
        {"vorbis.ogg", {"-i", wav.string(), "-c:a", "libvorbis"}},
        {"vorbis.webm", {"-i", wav.string(), "-c:a", "libvorbis"}},
        {"lame.mp3", {"-i", wav.string(), "-c:a", "libmp3lame"}},
        {"aac.m4a", {"-i", wav.string(), "-c:a", "aac"}},
    };
    auto reference = AudioLoader::loadWithLibav(wav);
    ASSERT_TRUE(reference);
    auto tool = AudioLoader::loadWithFFmpeg(wav);
    ASSERT_TRUE(tool);
    EXPECT_EQ(lagAgainst(*tool, *reference), 0) << "the two roads disagree on a WAV";
    for (const Wrap& w : wraps) {
        std::vector<std::string> args = w.args;
        args.push_back((dir / w.name).string());
        ASSERT_TRUE(test::ffmpeg(args)) << w.name;
        auto libav = AudioLoader::loadWithLibav(dir / w.name);
        auto executable = AudioLoader::loadWithFFmpeg(dir / w.name);
        ASSERT_TRUE(libav && executable) << w.name;
        EXPECT_EQ(lagAgainst(*libav, *reference), 0) << w.name << " through libav";
        EXPECT_EQ(lagAgainst(*executable, *reference), 0) << w.name << " through ffmpeg";
    }
}

TEST(CodecDelay, SoundBeforeThePictureIsCutAndSoundAfterItWaits) {
    if (!test::haveFFmpeg()) GTEST_SKIP() << "ffmpeg absent";
    test::TempDir dir;
    const fs::path wav = dir / "rec.wav";
    ASSERT_TRUE(test::ffmpeg({"-f", "lavfi", "-i", "anoisesrc=c=pink:r=48000:a=0.3:seed=9:d=10", "-c:a",
                              "pcm_s16le", wav.string()}));
    auto reference = AudioLoader::loadWithLibav(wav);
    ASSERT_TRUE(reference);
    // The sound stream starts 0.25 s after the picture, then 0.25 s before it.
    for (double offset : {0.25, -0.25}) {
        const fs::path clip = dir / (offset > 0 ? "late.mov" : "early.mov");
        ASSERT_TRUE(test::ffmpeg({"-f", "lavfi", "-i", "color=c=red:s=64x36:r=25:d=10", "-itsoffset",
                                  shortest(offset), "-i", wav.string(), "-c:v", "libx264", "-preset",
                                  "ultrafast", "-c:a", "pcm_s16le", clip.string()}));
        // MOV cuts early sound with an edit list: its first sound is then at 0.
        auto lead = media::soundLead(clip);
        ASSERT_TRUE(lead);
        EXPECT_NEAR(*lead, std::max(offset, 0.0), 0.001) << clip.filename();
        int expected = static_cast<int>(std::lround(offset * AudioLoader::analysisRate));
        for (auto load : {AudioLoader::loadWithLibav, AudioLoader::loadWithFFmpeg}) {
            auto x = load(clip, nullptr);
            ASSERT_TRUE(x);
            EXPECT_EQ(lagAgainst(*x, *reference), expected) << clip.filename();
        }
    }
}

}  // namespace
}  // namespace qv
