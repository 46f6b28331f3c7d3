#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

#include "playback/SourceTimeline.h"
#include "support/Fixtures.h"

namespace qv {
namespace {

namespace fs = std::filesystem;

PlacedItem placed(double start, double duration, bool video = true, int channels = 2, const fs::path& url = {}) {
    PlacedItem p;
    p.start = start;
    p.item.url = url;
    p.item.duration = duration;
    p.item.hasVideo = video;
    p.item.audioChannels = channels;
    return p;
}

TEST(SourceTimeline, OverlapsArePushedBackOrSkippedAndTheLineRunsToTotal) {
    // 0.03 s of overlap plays pushed back; 0.05 s is not played at all.
    auto line = SourceTimeline::composition({placed(10, 5), placed(0, 5), placed(4.97, 3), placed(7.95, 1)}, 20, true);
    ASSERT_EQ(line.pieces.size(), 3u);
    EXPECT_DOUBLE_EQ(line.pieces[1].at, 5.0);
    EXPECT_DOUBLE_EQ(line.pieces[2].at, 10.0);
    EXPECT_DOUBLE_EQ(line.total, 20.0);
    ASSERT_EQ(line.soundRanges.size(), 3u);
    EXPECT_DOUBLE_EQ(line.soundRanges[1].end, 8.0);
    EXPECT_EQ(line.pictureAt(8.5), nullptr);
    EXPECT_EQ(line.pictureAt(5.0), &line.pieces[1]);

    // Without picture the sound stays; a file without sound adds no range.
    auto sound = SourceTimeline::composition({placed(0, 5), placed(6, 2, true, 0)}, 4, false);
    EXPECT_FALSE(sound.hasPicture());
    EXPECT_EQ(sound.soundRanges.size(), 1u);
    EXPECT_DOUBLE_EQ(sound.total, 8.0);
}

// Each frame of these files is one flat grey that names its index.
int indexOf(const media::RgbaFrame& f) {
    long sum = 0;
    for (size_t i = 0; i < f.pixels.size(); i += 4) sum += f.pixels[i + 1];
    return static_cast<int>(std::lround(static_cast<double>(sum) / (f.pixels.size() / 4) / (4 * 255.0 / 219)));
}

class SourceReaderFiles : public ::testing::Test {
protected:
    void SetUp() override {
        if (!test::haveFFmpeg()) GTEST_SKIP() << "ffmpeg missing";
    }
    // `count` frames, frame n grey 4n, with the given time stamps (ms), of
    // square pixels (a rescale alone would keep the display aspect).
    fs::path clip(const std::string& name, int count, const std::string& ptsMs, const std::string& size,
                  const std::vector<std::string>& extra = {}) {
        fs::path out = dir_ / name;
        std::vector<std::string> args = {"-f", "lavfi", "-i",
                                         "color=black:s=64x64:r=25:d=" + std::to_string(count / 25 + 2),
                                         "-f", "lavfi", "-i", "sine=f=440:r=48000:d=" + std::to_string(count / 25 + 1),
                                         "-vf", "geq=lum='16+4*N':cb=128:cr=128,scale=" + size + ",setsar=1,settb=1/1000,setpts='" + ptsMs + "'",
                                         "-frames:v", std::to_string(count), "-fps_mode", "passthrough", "-enc_time_base", "1:1000",
                                         "-c:v", "libx264", "-preset", "ultrafast", "-g", "12", "-bf", "2",
                                         "-pix_fmt", "yuv444p", "-c:a", "aac"};
        args.insert(args.end(), extra.begin(), extra.end());
        args.push_back(out.string());
        EXPECT_TRUE(test::ffmpeg(args));
        return out;
    }
    // A WAV of 3 s whose sample at time t is t / 4: any position can be checked.
    fs::path ramp() {
        fs::path wav = dir_ / "ramp.wav";
        if (!test::ffmpeg({"-f", "lavfi", "-i", "aevalsrc='t/4':s=48000:d=3", "-c:a", "pcm_f32le", wav.string()})) return {};
        return wav;
    }
    test::TempDir dir_;
};

TEST_F(SourceReaderFiles, EveryTimeShowsTheFrameWhoseIntervalHoldsItAfterAnyJump) {
    // 25 fps for 30 frames, then frames 60 ms apart: a variable rate. Odd size.
    fs::path file = clip("vfr.mp4", 50, "if(lt(N,30),N*40,1200+(N-30)*60)", "161x91");
    auto reader = media::VideoReader::open(file);
    ASSERT_TRUE(reader.ok()) << reader.error().message;
    auto startOf = [](int n) { return n < 30 ? n * 0.040 : 1.2 + (n - 30) * 0.060; };
    // Forward, backward, far jumps, and the edges of intervals.
    std::vector<int> order = {0, 1, 2, 29, 30, 31, 49, 3, 40, 12, 11, 45, 0, 35};
    for (int n : order) {
        for (double into : {0.0005, 0.5}) {
            double next = n + 1 < 50 ? startOf(n + 1) : startOf(n) + 0.06;
            double t = startOf(n) + into * (next - startOf(n));
            auto pic = reader->frameAt(t);
            ASSERT_TRUE(pic.ok());
            EXPECT_EQ(indexOf((*pic)->frame), n) << "t=" << t;
            EXPECT_EQ((*pic)->frame.width, 161);
            EXPECT_NEAR((*pic)->start, startOf(n), 1e-3);
        }
    }
    EXPECT_EQ(indexOf(reader->frameAt(-3).value()->frame), 0);
    EXPECT_EQ(indexOf(reader->frameAt(99).value()->frame), 49);
}

TEST_F(SourceReaderFiles, SoundComesAtItsPlaceAtAnyRateAndReadsTheSameAfterASeek) {
    const fs::path wav = ramp();
    ASSERT_FALSE(wav.empty());
    PlacedItem p = placed(2.0, 3.0, false, 1, wav);
    SourceReader reader(SourceTimeline::composition({p}, 10, false));
    std::vector<float> out(2 * 4800);
    // 1.9 s to 2.0 s: silence, then the ramp from the file's start.
    ASSERT_TRUE(reader.sound(std::llround(1.95 * 48000), 4800, 48000, 2, out.data()).ok());
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_NEAR(out[2 * 2400], 0.0f, 1e-4);
    EXPECT_NEAR(out[2 * 4799 + 1], (2399 / 48000.0) / 4, 1e-4);
    // A jump back reads the same values again; a jump ahead too.
    for (double t : {4.0, 2.5, 4.5, 2.5}) {
        ASSERT_TRUE(reader.sound(std::llround(t * 48000), 100, 48000, 2, out.data()).ok());
        EXPECT_NEAR(out[0], (t - 2) / 4, 1e-4) << t;
    }
    // Another rate: the ramp at the same times.
    ASSERT_TRUE(reader.sound(std::llround(3.0 * 8000), 8, 8000, 1, out.data()).ok());
    EXPECT_NEAR(out[0], 0.25, 2e-3);
    // Past the file: silence.
    ASSERT_TRUE(reader.sound(std::llround(5.5 * 48000), 10, 48000, 2, out.data()).ok());
    EXPECT_EQ(out[5], 0.0f);
}

TEST_F(SourceReaderFiles, RotationMetadataTurnsThePictureAsFfmpegDoes) {
    // A white corner on black, stored turned a quarter (MOV rotation tag).
    fs::path flat = dir_ / "flat.mp4", turned = dir_ / "turned.mov", raw = dir_ / "turned.rgba";
    ASSERT_TRUE(test::ffmpeg({"-f", "lavfi", "-i", "color=black:s=64x32:r=25:d=1", "-vf",
                              "drawbox=x=0:y=0:w=16:h=8:color=white:t=fill", "-c:v", "libx264", "-crf", "0",
                              "-pix_fmt", "yuv444p", flat.string()}));
    ASSERT_TRUE(test::ffmpeg({"-i", flat.string(), "-c", "copy", "-metadata:s:v:0", "rotate=90", turned.string()}));
    ASSERT_TRUE(test::ffmpeg({"-i", turned.string(), "-frames:v", "1", "-f", "rawvideo", "-pix_fmt", "rgba", raw.string()}));
    auto reader = media::VideoReader::open(turned);
    ASSERT_TRUE(reader.ok());
    EXPECT_EQ(reader->width(), 32);
    EXPECT_EQ(reader->height(), 64);
    auto pic = reader->frameAt(0.1);
    ASSERT_TRUE(pic.ok());
    const auto& f = (*pic)->frame;
    ASSERT_EQ(f.width, 32);
    ASSERT_EQ(f.height, 64);
    std::ifstream in(raw, std::ios::binary);
    std::string want((std::istreambuf_iterator<char>(in)), {});
    ASSERT_EQ(want.size(), f.pixels.size());
    int wrong = 0;
    for (size_t i = 0; i < want.size(); i += 4) wrong += std::abs(static_cast<uint8_t>(want[i]) - f.pixels[i]) > 64;
    EXPECT_EQ(wrong, 0);
}

TEST_F(SourceReaderFiles, SoundIsReadFromTheFilesTimeZeroWhereverItsStreamStarts) {
    const fs::path wav = ramp();
    ASSERT_FALSE(wav.empty());
    // The sound stream starts 0.25 s after the picture, then 0.25 s before it
    // (cut by an edit list), then in AAC with its priming.
    struct Case {
        const char* name;
        const char* offset;
        const char* codec;
        double lead;
    };
    for (Case c : {Case{"late.mov", "0.25", "pcm_s16le", 0.25}, Case{"early.mov", "-0.25", "pcm_s16le", -0.25},
                   Case{"aac.mp4", "0", "aac", 0.0}}) {
        fs::path clip = dir_ / c.name;
        ASSERT_TRUE(test::ffmpeg({"-f", "lavfi", "-i", "color=c=red:s=64x36:r=25:d=3", "-itsoffset", c.offset, "-i",
                                  wav.string(), "-c:v", "libx264", "-preset", "ultrafast", "-c:a", c.codec, "-b:a",
                                  "320k", clip.string()}));
        auto reader = media::AudioReader::open(clip, 48000, 1);
        ASSERT_TRUE(reader.ok());
        std::vector<float> out(1);
        reader->read(48000, 1, out.data());  // 1 s into the file
        EXPECT_NEAR(out[0], (1.0 - c.lead) / 4, 0.003) << c.name;
    }
}

TEST_F(SourceReaderFiles, APictureOffsetShowsTheFilesPictureLaterAndLeavesItsSoundInPlace) {
    fs::path file = clip("offset.mp4", 30, "N*40", "32x32");
    PlacedItem p = placed(2, 1.2, true, 2, file);
    p.pictureOffset = 0.08;  // two frames later
    SourceReader reader(SourceTimeline::composition({p}, 5, true));
    const SourceTimeline& line = reader.line();
    EXPECT_DOUBLE_EQ(line.soundRanges.front().start, 2.0);
    EXPECT_EQ(line.pictureAt(2.05), nullptr);
    ASSERT_EQ(line.pictureAt(3.25), &line.pieces.front());
    EXPECT_EQ(indexOf(reader.pictureAt(2.1).value()->frame), 0);
    EXPECT_EQ(indexOf(reader.pictureAt(2.5).value()->frame), 10);
    // A key frame comes back on the line where the moved picture shows it.
    auto key = reader.keyFrameBefore(2.5);
    ASSERT_TRUE(key.ok() && key->has_value());
    EXPECT_NEAR((*key)->first, 2.08, 1e-6);

    p.pictureOffset = -0.12;  // three frames earlier
    SourceReader early(SourceTimeline::composition({p}, 5, true));
    EXPECT_EQ(indexOf(early.pictureAt(2.5).value()->frame), 15);
}

TEST_F(SourceReaderFiles, AFileThatVanishedIsAFrenchErrorNotACrash) {
    fs::path file = clip("gone.mp4", 10, "N*40", "32x32");
    auto line = SourceTimeline::composition({placed(1, 0.4, true, 2, file)}, 3, true);
    fs::remove(file);
    SourceReader reader(line);
    auto pic = reader.pictureAt(1.1);
    ASSERT_FALSE(pic.ok());
    EXPECT_NE(pic.error().message.find("Impossible de lire gone.mp4"), std::string::npos);
    EXPECT_TRUE(reader.pictureAt(0.5).ok());  // no file there: nothing, no error
    std::vector<float> out(200);
    EXPECT_FALSE(reader.sound(48000, 100, 48000, 2, out.data()).ok());
}

}  // namespace
}  // namespace qv
