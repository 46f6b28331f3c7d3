// The player on real files, on virtual time: every angle shows the frame of
// the same set time after seeks and pauses and within one frame of the clock
// while playing (read back from the generator's frame code), and the mixed
// sound captured from the silent output has every source at its level.
#include <cmath>
#include <map>

#include "PlaybackRig.h"
#include "base/Text.h"
#include "looks/LookRenderer.h"
#include "playback/SoundMix.h"
#include "playback/TimelineTracks.h"

namespace qv {
namespace {

namespace fs = std::filesystem;
using test::Clocked;
using test::codeOf;
using test::seekSettled;

// The generated "render" set: cameras at 25, 23.976 and 29.97 fps (the first
// with two files) over one recorder, placed where the generator put them.
struct RenderSet {
    std::vector<MediaSource> sources;
    SyncResult result;
    std::map<std::pair<int, int>, const PlacedItem*> files;  // (code camera, clip) -> placed file

    bool load(const std::string& preset = "render") {
        if (!test::placeAtTruth(test::generatedSet(preset, 1), sources, result)) return false;
        for (const auto& p : result.placed) {
            const auto& source = sources[p.sourceIndex];
            if (source.kind != SourceKind::camera) continue;
            int camera = std::stoi(source.name.substr(4));
            int clip = std::stoi(p.item.fileName().substr(5));
            files[{camera, clip}] = &p;
        }
        return !files.empty();
    }

    // Whether `frame` is the picture its camera shows at set time `t`.
    ::testing::AssertionResult shows(const PreviewFrame& frame, double t) const {
        auto code = codeOf(frame);
        if (!code) return ::testing::AssertionFailure() << "no frame code at " << t;
        auto file = files.find({code->camera, code->clip});
        if (file == files.end()) return ::testing::AssertionFailure() << "unknown clip " << code->clip;
        const PlacedItem& p = *file->second;
        double from = p.start + code->frame / p.item.frameRate, to = p.start + (code->frame + 1) / p.item.frameRate;
        if (from - 1e-3 <= t && t < to + 1e-3) return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "camera " << code->camera << " frame " << code->frame << " covers "
                                             << from << ".." << to << ", not " << t;
    }
};

class PlayerMediaTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!set.load()) GTEST_SKIP() << "generator missing";
        player = std::make_unique<MulticamPlayer>(set.sources, set.result, clock.options(timelineTracks()));
    }
    void refresh() {
        player->settle();
        player->update();
    }
    // Every angle with a picture at the current time shows that time's frame.
    void expectAligned() {
        double t = player->currentTime();
        for (const auto& angle : player->cameraAngles()) {
            auto frame = player->shownFrame(angle.id);
            if (!angle.hasImage(t)) continue;
            ASSERT_TRUE(frame) << angle.name << " at " << t;
            EXPECT_TRUE(set.shows(*frame, t)) << angle.name;
        }
    }

    RenderSet set;
    Clocked clock;
    std::unique_ptr<MulticamPlayer> player;
};

TEST_F(PlayerMediaTest, SeeksAndPausesShowTheSameInstantOnEveryAngle) {
    ASSERT_EQ(player->cameraAngles().size(), 3u);
    EXPECT_EQ(player->clockKind(), MulticamPlayer::ClockKind::sound);
    EXPECT_EQ(player->clockSource(), set.sources[0].id);
    // Across the first camera's two files, backwards, into its gap, to the ends.
    for (double t : {0.0, 9.49, 10.02, 3.3333, 9.7, 1.04, 17.99, 19.4, 0.71}) {
        int wakeups = clock.wakeups;
        player->seek(t);
        player->settle();
        // Each decoder woke the owner once its frame was there; the owner pulls.
        EXPECT_EQ(clock.wakeups - wakeups, 3);
        player->update();
        expectAligned();
        EXPECT_EQ(player->shownFrame(0) != nullptr, player->cameraAngles()[0].hasImage(t)) << t;
    }
    player->play();
    clock.run(*player, 1.3);
    player->pause();
    EXPECT_FALSE(player->isPlaying());
    EXPECT_NEAR(player->currentTime(), 0.71 + 1.3 - 1.0 / 30, 0.1);
    refresh();
    expectAligned();
}

TEST_F(PlayerMediaTest, WhilePlayingEveryShownFrameHoldsTheClock) {
    player->seek(8.8);
    player->play();
    int checked = 0;
    auto check = [&] {
        double t = player->currentTime();
        for (const auto& angle : player->cameraAngles()) {
            auto frame = player->shownFrame(angle.id);
            if (!frame) continue;
            ++checked;
            EXPECT_TRUE(frame->start <= t + 1e-9 && t < frame->end) << angle.name << " " << t;
            EXPECT_TRUE(set.shows(*frame, t)) << angle.name;
        }
    };
    clock.run(*player, 2.0, check);
    EXPECT_NEAR(player->currentTime(), 10.8, 0.1);
    // A seek while playing starts every angle again from one instant.
    player->seek(4.0);
    clock.run(*player, 1.0 / 30, check);
    EXPECT_NEAR(player->currentTime(), 4.0, 1e-9);
    clock.run(*player, 0.5, check);
    EXPECT_GT(player->currentTime(), 4.4);
    EXPECT_GT(checked, 150);
    EXPECT_EQ(player->counters().dropped, 0);
    EXPECT_GT(player->counters().shown, 100);
}

double meanGreen(const PreviewFrame& frame) {
    double sum = 0;
    for (size_t i = 1; i < frame.rgba.size(); i += 4) sum += frame.rgba[i];
    return sum / (frame.rgba.size() / 4);
}

TEST_F(PlayerMediaTest, PreviewsShrinkAndTakeTheirLookAndAnUnchangedStateInstallsNothing) {
    seekSettled(*player, 5.0);
    auto full = player->shownFrame(1);
    ASSERT_TRUE(full);
    const double plainGreen = meanGreen(*full);

    player->configureVideo(2, nullptr);
    refresh();
    auto half = player->shownFrame(1);
    ASSERT_TRUE(half);
    EXPECT_EQ(half->width, (full->width + 1) / 2);
    EXPECT_EQ(half->height, (full->height + 1) / 2);
    expectAligned();
    EXPECT_EQ(player->installed().at(1), (MulticamPlayer::VideoState{2, false}));
    player->configureVideo(2, nullptr);  // the same again: the frames stay
    refresh();
    EXPECT_EQ(player->shownFrame(1), half);

    // A grade on the second camera only: it alone goes through the renderer.
    auto renderer = std::make_shared<LookRenderer>();
    LookRenderer::Snapshot snapshot;
    snapshot.enabled = true;
    snapshot.grades[1].exposure = 1;
    renderer->update(snapshot);
    player->configureVideo(2, renderer);
    EXPECT_EQ(player->installed().at(1), (MulticamPlayer::VideoState{2, true}));
    EXPECT_EQ(player->installed().at(0), (MulticamPlayer::VideoState{2, false}));
    refresh();
    expectAligned();
    EXPECT_GT(meanGreen(*player->shownFrame(1)), plainGreen + 10);
    EXPECT_EQ(player->shownFrame(1)->width, half->width);

    // Back to full size without looks.
    player->configureVideo(1, nullptr);
    refresh();
    EXPECT_EQ(player->shownFrame(1)->width, full->width);
    EXPECT_NEAR(meanGreen(*player->shownFrame(1)), plainGreen, 1.0);
}

// Camera-weight files (grain, B-frames, a key frame every 2 s) with the
// first camera on program: the others decode at reduced cost, yet every
// seek lands on the exact frame, the program angle shows every picture,
// and a tile's pictures are never ahead of the clock nor far behind it.
class TilePlaybackTest : public PlayerMediaTest {
protected:
    void SetUp() override {
        if (!set.load("realsmall")) GTEST_SKIP() << "generator missing";
        player = std::make_unique<MulticamPlayer>(set.sources, set.result, clock.options(timelineTracks()));
        player->setProgramAngle(0);
    }
    // Set time of the first frame of the picture's own frame code.
    double codeTime(const PreviewFrame& frame) const {
        auto code = codeOf(frame);
        if (!code) return -1;
        const PlacedItem& p = *set.files.at({code->camera, code->clip});
        return p.start + code->frame / p.item.frameRate;
    }
};

TEST_F(TilePlaybackTest, SeeksLandOnTheExactFrameOfEveryAngle) {
    ASSERT_EQ(player->cameraAngles().size(), 3u);
    // Between key frames, on one, across the second camera's two clips, back.
    for (double t : {3.3, 4.0 + 0.5 + 0.02, 6.02, 9.93, 1.04, 5.7, 2.5}) {
        seekSettled(*player, t);
        expectAligned();
    }
    // Pausing while playing shows the clock's instant everywhere too.
    player->play();
    clock.run(*player, 0.7);
    player->pause();
    refresh();
    expectAligned();
}

TEST_F(TilePlaybackTest, TheProgramShowsEveryPictureAndTilesFollowTheClock) {
    player->seek(2.1);
    player->play();
    std::vector<int64_t> before = player->counters().shownByAngle;
    auto check = [&](int program) {
        const double t = player->currentTime();
        for (const auto& angle : player->cameraAngles()) {
            auto frame = player->shownFrame(angle.id);
            if (!frame || !angle.hasImage(t)) continue;
            if (angle.id == program) {
                EXPECT_TRUE(set.shows(*frame, t)) << angle.name;
            } else {
                const double at = codeTime(*frame);
                EXPECT_LE(at, t + 1e-3) << angle.name;
                EXPECT_LT(t - at, 0.25) << angle.name << " at " << t;
            }
        }
    };
    clock.run(*player, 2.0, [&] { check(0); });
    auto counters = player->counters();
    // 2 s at 25 fps on program; the tiles skip what nothing refers to but
    // still show many pictures a second.
    EXPECT_NEAR(counters.shownByAngle[0] - before[0], 50, 2);
    EXPECT_GE(counters.shownByAngle[2] - before[2], 10);
    EXPECT_LT(counters.shownByAngle[2] - before[2], 45);

    // Cut to the third camera: it plays every picture from the next few frames on.
    player->setProgramAngle(2);
    clock.run(*player, 0.2);
    before = player->counters().shownByAngle;
    clock.run(*player, 2.0, [&] { check(2); });
    EXPECT_NEAR(player->counters().shownByAngle[2] - before[2], 50, 2);
}

TEST_F(TilePlaybackTest, ReadersGiveTheKeyFrameBeforeJumpToTheOneAfterAndStopWhenTold) {
    const PlacedItem& clip = *set.files.at({1, 1});
    auto reader = media::VideoReader::open(clip.item.url);
    ASSERT_TRUE(reader.ok());
    reader->setCost(media::DecodeCost::anchors);
    auto frameOf = [](const media::VideoPicture& p) {
        auto code = codeOf(p.frame);
        return code ? code->frame : -1L;
    };
    auto key = reader->keyFrameBefore(3.3);
    ASSERT_TRUE(key.ok());
    EXPECT_EQ(frameOf(**key), 50);  // a key frame every 2 s at 25 fps
    // Decoding on from it with B-frames skipped: the last anchor at or before.
    auto on = reader->frameAt(3.3);
    ASSERT_TRUE(on.ok());
    EXPECT_LE(frameOf(**on), 82);
    EXPECT_GE(frameOf(**on), 78);
    // A cost holds for the packets sent after it: set before the jump.
    reader->setCost(media::DecodeCost::full);
    auto after = reader->keyFrameAfter(4.1);
    ASSERT_TRUE(after.has_value());
    EXPECT_NEAR(*after, 6.0, 1e-6);
    for (long n : {150L, 151L, 152L, 160L}) {
        auto p = reader->frameAt((n + 0.5) / 25);
        ASSERT_TRUE(p.ok());
        EXPECT_EQ(frameOf(**p), n);
    }
    EXPECT_FALSE(reader->keyFrameAfter(10.5).has_value());  // the clip's last key frame is at 10 s
    auto last = reader->frameAt(11.0);
    ASSERT_TRUE(last.ok());
    EXPECT_EQ(frameOf(**last), 275);

    // A decode told to stop gives the picture it reached; asked again, the
    // reader goes on to the exact one.
    int asked = 0;
    reader->setInterrupt([&] { return ++asked > 3; });
    auto cut = reader->frameAt(9.5);
    ASSERT_TRUE(cut.ok());
    EXPECT_LT(frameOf(**cut), 220);
    reader->setInterrupt(nullptr);
    auto whole = reader->frameAt(9.5);
    ASSERT_TRUE(whole.ok());
    EXPECT_EQ(frameOf(**whole), 237);

    // Down to one decoder thread at the next key frame (at 4 s): reading on
    // across it loses no picture, and a jump makes the change at once.
    auto reopened = media::VideoReader::open(clip.item.url, 2);
    ASSERT_TRUE(reopened.ok());
    (void)reopened->frameAt(3.0);
    reopened->setThreads(1, true);
    for (long n = 76; n <= 110; ++n) {
        auto p = reopened->frameAt((n + 0.5) / 25);
        ASSERT_TRUE(p.ok());
        ASSERT_EQ(frameOf(**p), n);
    }
    EXPECT_EQ(reopened->threads(), 1);
    reopened->setThreads(2, true);
    (void)reopened->keyFrameBefore(2.5);
    EXPECT_EQ(reopened->threads(), 2);
}

// Three sources of constant sound: every captured sample tells the gains.
class PlayerSoundTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!test::haveFFmpeg()) GTEST_SKIP() << "ffmpeg missing";
        auto camera = [&](const std::string& name, double level, double start) {
            fs::path file = dir / (name + ".mov");
            ASSERT_TRUE(test::ffmpeg({"-f", "lavfi", "-i", "color=gray:s=64x36:r=25:d=3", "-f", "lavfi", "-i",
                                      "aevalsrc=" + shortest(level) + ":s=48000:d=3",
                                      "-c:v", "libx264", "-preset", "ultrafast", "-c:a", "pcm_f32le", file.string()}));
            add(name, SourceKind::camera, file, start);
        };
        camera("Cam A", 0.2, 0);
        camera("Cam B", 0.3, 0);
        fs::path wav = dir / "prise.wav";
        ASSERT_TRUE(test::ffmpeg({"-f", "lavfi", "-i", "aevalsrc=0.1:s=48000:d=3", "-c:a", "pcm_f32le", wav.string()}));
        add("Enregistreur", SourceKind::audio, wav, 0.5);
        player = std::make_unique<MulticamPlayer>(sources, result, clock.options(timelineTracks()));
    }
    void add(const std::string& name, SourceKind kind, const fs::path& file, double start) {
        ASSERT_TRUE(test::place(sources, result, name, kind, file, start));
    }
    // Plays [from, from + seconds) and returns the left channel heard.
    std::vector<float> hear(double from, double seconds) {
        clock.output->setCapture(true);
        player->seek(from);
        player->play();
        clock.run(*player, seconds + 0.1);
        player->pause();
        auto all = clock.output->takeCaptured();
        clock.output->setCapture(false);
        std::vector<float> left;
        for (size_t i = 0; i < all.size(); i += 2) left.push_back(all[i]);
        return left;
    }

    test::TempDir dir;
    std::vector<MediaSource> sources;
    SyncResult result;
    Clocked clock;
    std::unique_ptr<MulticamPlayer> player;
};

TEST_F(PlayerSoundTest, EachSourceAtItsLevelMutedOnesAbsentAndCamerasFollowTheCut) {
    EXPECT_EQ(player->clockKind(), MulticamPlayer::ClockKind::sound);
    const Uuid a = sources[0].id, b = sources[1].id;
    // A at -6 dB, B at +6 dB (played at 1), the recorder at 0 dB.
    player->applyVolumes({{a, -6.0}, {b, 6.0}}, {}, 0, std::nullopt);
    EXPECT_DOUBLE_EQ(player->volumes().at(b), 1.0);
    auto heard = hear(1.0, 1.0);
    ASSERT_GE(heard.size(), 48000u);
    double half = std::pow(10.0, -6.0 / 20);
    for (size_t i = 0; i < 48000; i += 997) EXPECT_NEAR(heard[i], 0.2 * half + 0.3 + 0.1, 1e-4) << i;

    // B muted: absent. Following camera A: B silent, the recorder still heard.
    player->applyVolumes({{a, -6.0}}, {b}, 0, std::nullopt);
    heard = hear(1.0, 0.5);
    EXPECT_NEAR(heard[1000], 0.2 * half + 0.1, 1e-4);
    player->applyVolumes({}, {}, 0, 0);
    heard = hear(1.0, 0.5);
    EXPECT_NEAR(heard[1000], 0.2 + 0.1, 1e-4);
    player->applyVolumes({}, {}, -6.0, 1);
    heard = hear(1.0, 0.5);
    EXPECT_NEAR(heard[1000], (0.3 + 0.1) * half, 1e-4);
}

TEST_F(PlayerSoundTest, FadesRampEveryFileWhereItsSoundBeginsAndEnds) {
    // Only the recorder, a 3 s file at 0.5 s: fades of 2 s take 1.5 s each.
    player->applyVolumes({}, {sources[0].id, sources[1].id}, 0, std::nullopt);
    player->applyFades(2);
    // The line ends at 3.5 s, where the player pauses by itself.
    auto heard = hear(0.25, 3.5);
    ASSERT_GE(heard.size(), static_cast<size_t>(3.2 * 48000));
    for (double t : {0.3, 0.5, 0.875, 1.25, 1.9999, 2.0, 2.75, 3.4}) {
        size_t i = static_cast<size_t>(std::llround((t - 0.25) * 48000));
        double want = 0.1 * SoundMix::fadeAt({{0.5, 3.5}}, 1.5, t);
        EXPECT_NEAR(heard[i], want, 1e-4) << t;
    }
    EXPECT_NEAR(heard[static_cast<size_t>(0.625 * 48000)], 0.1 * 0.25, 1e-4);  // a quarter up the ramp at 0.875 s
    player->applyFades(0);
    heard = hear(0.25, 0.5);
    EXPECT_NEAR(heard[static_cast<size_t>(0.3 * 48000)], 0.1, 1e-4);
}

TEST_F(PlayerSoundTest, ASingleRecorderIsTheClock) {
    std::vector<MediaSource> recorder{sources[2]};
    SyncResult alone;
    alone.placed = {result.placed[2]};
    alone.placed[0].sourceIndex = 0;
    Clocked own;
    MulticamPlayer solo(recorder, alone, own.options(timelineTracks()));
    EXPECT_TRUE(solo.cameraAngles().empty());
    EXPECT_EQ(solo.clockKind(), MulticamPlayer::ClockKind::sound);
    EXPECT_EQ(solo.clockSource(), recorder[0].id);
    solo.seek(1);
    solo.play();
    own.run(solo, 1);
    // The time is the sound's own: what the output played, no more.
    EXPECT_NEAR(solo.currentTime(), 1 + static_cast<double>(own.output->playedFrames()) / 48000, 1e-9);
    EXPECT_GT(solo.currentTime(), 1.9);
}

// Damaged cameras: a file without picture, a file cut in half after
// probing, a second file that vanishes while the first plays. Each angle
// shows what it can, and the player plays to the end.
TEST(PlayerBadInputTest, DamagedCamerasLeaveHolesAndThePlayerGoesOn) {
    if (!test::haveFFmpeg()) GTEST_SKIP() << "ffmpeg missing";
    test::TempDir dir;
    std::vector<MediaSource> sources;
    SyncResult result;
    auto add = [&](const std::string& name, bool video, double start, bool newSource) {
        fs::path file = dir / name;
        std::vector<std::string> args = {"-f", "lavfi", "-i", "testsrc2=s=64x36:r=25:d=2", "-f", "lavfi", "-i",
                                         "sine=f=300:r=48000:d=2"};
        if (!video) args.push_back("-vn");
        for (const char* a : {"-c:v", "libx264", "-preset", "ultrafast", "-c:a", "aac"}) args.push_back(a);
        args.push_back(file.string());
        ASSERT_TRUE(test::ffmpeg(args));
        ASSERT_TRUE(test::place(sources, result, name, SourceKind::camera, file, start, newSource));
    };
    add("sain.mp4", true, 0, true);
    add("sans image.mp4", false, 0, true);
    add("tronque.mp4", true, 0, true);
    add("disparu 1.mp4", true, 0, true);
    add("disparu 2.mp4", true, 2, false);
    fs::resize_file(dir / "tronque.mp4", fs::file_size(dir / "tronque.mp4") / 2);

    Clocked clock;
    MulticamPlayer player(sources, result, clock.options(timelineTracks()));
    ASSERT_EQ(player.duration(), 4);
    EXPECT_TRUE(player.cameraAngles()[1].hasPlayer);
    player.play();
    int healthy = 0, second = 0;
    clock.run(player, 1.0, [&] { healthy += player.shownFrame(0) != nullptr; });
    fs::remove(dir / "disparu 2.mp4");
    clock.run(player, 3.5, [&] {
        healthy += player.shownFrame(0) != nullptr;
        second += player.currentTime() >= 2 && player.shownFrame(3) != nullptr;
        EXPECT_EQ(player.shownFrame(1), nullptr);
    });
    EXPECT_FALSE(player.isPlaying());
    EXPECT_GE(player.currentTime(), 4 - 0.02);
    EXPECT_GT(healthy, 50);
    EXPECT_EQ(second, 0);
}

}  // namespace
}  // namespace qv
