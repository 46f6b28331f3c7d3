// Proxies: made in chunks from the play head outward, reused while the
// original keeps its state and replaced when it changes, each chunk showing
// the original's frame at every time; where none is made, or none can be,
// the original plays and the log says why in one line.
#include <gtest/gtest.h>

#include <condition_variable>
#include <fstream>

#include "PlaybackRig.h"
#include "platform/ProxyWriter.h"
#include "playback/Proxies.h"
#include "playback/ProxyEncoder.h"
#include "playback/ProxyPictures.h"
#include "playback/TimelineTracks.h"

namespace qv {
namespace {

namespace fs = std::filesystem;
using Kind = media::ChunkOutcome::Kind;

// Proxies half the width of the generated sets' 320 × 180 pictures.
const media::ProxyOptions small{160, 12, 26, 1};

struct LogLines {
    std::mutex lock;
    std::vector<std::string> lines;
    std::function<void(const std::string&)> sink() {
        return [this](const std::string& line) {
            std::lock_guard guard(lock);
            lines.push_back(line);
        };
    }
};

void waitFinished(const ProxyMaker& maker) {
    while (!maker.progress().finished) std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

fs::path testClip(const test::TempDir& dir, const std::string& name, int seconds) {
    fs::path clip = dir / name;
    if (!test::ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=320x180:r=25:d=" + std::to_string(seconds), "-c:v",
                       "libx264", "-preset", "ultrafast", "-g", "50", clip.string()}))
        return {};
    return clip;
}

TEST(ProxyTest, ChunksShowTheOriginalsFrameAtEveryTimeAndTakeOverOnceMade) {
    std::vector<MediaSource> sources;
    SyncResult result;
    if (!test::placeAtTruth(test::generatedSet("render", 1), sources, result)) GTEST_SKIP() << "generator missing";
    test::TempDir dir;
    auto files = ProxyMaker::candidates(sources, result, 160);
    ASSERT_EQ(files.size(), 4u);
    ProxyCache cache(dir / "proxies");
    // The frame a camera shows at set time t, by its burnt-in code, checked
    // against where its file stands; whether it came from a proxy.
    auto check = [&](const TimelinePiece& piece, double t, const ProxyPictures::Shown& shown) {
        ASSERT_TRUE(shown.picture) << t;
        auto code = test::codeOf(shown.picture->frame);
        ASSERT_TRUE(code) << t;
        double from = piece.at + code->frame / piece.item.frameRate;
        EXPECT_TRUE(from - 1e-3 <= t && t < from + 1 / piece.item.frameRate + 1e-3) << piece.item.fileName() << " " << t;
        EXPECT_TRUE(shown.start <= t + 1e-9 && t < shown.end) << t;
    };
    // Nothing made: the originals. Then one chunk of one file appears and
    // the reader takes it from the next picture on, originals around it.
    SourceTimeline line = SourceTimeline::of(result, 2, 0, true);  // Cam 2, 23.976 fps, 17 s at 1 s
    ASSERT_EQ(line.pieces.size(), 1u);
    const TimelinePiece& piece = line.pieces.front();
    ProxyPictures pictures(line, &cache);
    auto before = pictures.pictureAt(piece.at + 5);
    ASSERT_TRUE(before);
    EXPECT_FALSE(before->fromProxy);
    check(piece, piece.at + 5, *before);
    {
        auto writer = media::ProxyWriter::open(piece.item.url, small);
        ASSERT_TRUE(writer);
        std::atomic<bool> cancel{false};
        fs::create_directories(cache.folder());
        ASSERT_TRUE(writer->write(cache.chunkPath(*cache.stem(piece.item.url), 1), 4, 8, cancel).made());
    }
    for (double ft : {3.99, 4.0, 4.02, 5.5, 7.99, 8.0, 12.0}) {
        auto shown = pictures.pictureAt(piece.at + ft);
        ASSERT_TRUE(shown);
        EXPECT_EQ(shown->fromProxy, ft >= 4.0 && ft < 8.0) << ft;
        EXPECT_EQ(shown->picture->frame.width, shown->fromProxy ? 160 : 320);
        check(piece, piece.at + ft, *shown);
    }
    // A glance over a made chunk is the chunk's own exact picture, not the original's key frame.
    auto glance = pictures.keyFrameBefore(piece.at + 6.5);
    ASSERT_TRUE(glance && *glance);
    EXPECT_EQ((*glance)->second->frame.width, 160);
    EXPECT_NEAR((*glance)->first, piece.at + 6.5, 1 / 23.976);

    // The whole set made by the maker, then played through the player:
    // every angle's frame is the original's, at chunk edges too.
    int opens = 0;
    auto counting = [&](const fs::path& original) {
        ++opens;
        return proxyEncoder(small)(original);
    };
    {
        ProxyMaker maker(cache, counting, {});
        maker.start(files);
        waitFinished(maker);
        EXPECT_TRUE(maker.progress().failed.empty());
        EXPECT_TRUE(maker.readyAround(5));
    }
    EXPECT_GT(opens, 0);
    opens = 0;
    ProxyMaker again(cache, counting, {});  // a later run: all there, nothing made
    again.start(files);
    EXPECT_TRUE(again.progress().finished);
    EXPECT_EQ(opens, 0);

    MulticamPlayer::Options options;
    options.opener = timelineTracks(&cache);
    MulticamPlayer player(sources, result, std::move(options));
    for (double t : {1.2, 4.5, 8.7, 10.0, 12.7, 17.5}) {
        test::seekSettled(player, t);
        for (size_t a = 0; a < player.cameraAngles().size(); ++a) {
            const Angle& angle = player.cameraAngles()[a];
            if (!angle.hasImage(t)) continue;
            auto frame = player.shownFrame(angle.id);
            ASSERT_TRUE(frame) << angle.name << " " << t;
            EXPECT_EQ(frame->width, 160);
            SourceTimeline l = SourceTimeline::of(result, static_cast<int>(a), 0, true);
            const TimelinePiece* p = l.pictureAt(t);
            ASSERT_TRUE(p);
            auto code = test::codeOf(*frame);
            ASSERT_TRUE(code) << angle.name << " " << t;
            EXPECT_EQ("clip " + std::to_string(code->clip) + ".mp4", p->item.fileName());
            double from = p->at + code->frame / p->item.frameRate;
            EXPECT_TRUE(from - 1e-3 <= t && t < from + 1 / p->item.frameRate + 1e-3) << angle.name << " " << t;
        }
    }
}

// A chunk writer that writes a token file and records what it was asked;
// it holds each chunk while the gate is shut, and gives up when told.
struct Recorder {
    std::mutex lock;
    std::vector<double> begun;                          // from, as asked
    std::vector<std::pair<std::string, double>> calls;  // file name, from, as made
    bool gate = true;
    const std::atomic<bool>* held = nullptr;  // the stop flag of the chunk at the gate

    ProxyMaker::OpenWriter open() {
        return [this](const fs::path& original) -> Result<ProxyMaker::ChunkWriter> {
            return ProxyMaker::ChunkWriter([this, name = original.filename().string()](
                                               const fs::path& out, double from, double, const std::atomic<bool>& cancel) {
                std::unique_lock l(lock);
                begun.push_back(from);
                held = &cancel;
                while (!gate && !cancel) {
                    l.unlock();
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    l.lock();
                }
                if (cancel) return media::ChunkOutcome{Kind::cancelled, "interrompue"};
                calls.emplace_back(name, from);
                test::writeText(out, "x");
                return media::ChunkOutcome{};
            });
        };
    }
    void release() {
        std::lock_guard guard(lock);
        gate = true;
    }
    size_t begunCount() {
        std::lock_guard guard(lock);
        return begun.size();
    }
    // Whether the maker has told the chunk at the gate to stop: it decides
    // as the play head moves, so this is known at once, without waiting.
    bool heldAbandoned() {
        std::lock_guard guard(lock);
        return held && *held;
    }
};

TEST(ProxyTest, ChunksAreMadeFromThePlayHeadOutward) {
    test::TempDir dir;
    for (const char* name : {"a.mp4", "b.mp4"}) test::writeText(dir / name, name);
    Recorder recorder;
    recorder.gate = false;
    ProxyMaker maker(ProxyCache(dir / "proxies"), recorder.open(), ProxyMaker::Options{1, 1, {}, {}});
    // a: 0 to 20 s (chunks at 0, 4, 8, 12, 16); b: 10 to 22 s (10, 14, 18).
    maker.setPlayhead(13, false);
    maker.start({{dir / "a.mp4", 0, 20}, {dir / "b.mp4", 10, 12}});
    EXPECT_FALSE(maker.readyAround(13));
    recorder.release();
    waitFinished(maker);
    using Call = std::pair<std::string, double>;
    // Under the head for each file; then outward, the way ahead counting
    // half the way behind, the worker going on with its open file while
    // that is at most two steps further out (b at 8 before a at 8).
    const std::vector<Call> expected{{"a.mp4", 12}, {"b.mp4", 0}, {"b.mp4", 4}, {"b.mp4", 8},
                                     {"a.mp4", 8},  {"a.mp4", 16}, {"a.mp4", 4}, {"a.mp4", 0}};
    EXPECT_EQ(recorder.calls, expected);
    EXPECT_TRUE(maker.readyAround(13));
    EXPECT_EQ(maker.progress().done, 8);

    // A seek abandons the chunk being made at the old head: the one under
    // the new head comes first, the abandoned one later. Play moving on
    // abandons nothing.
    Recorder second;
    second.gate = false;
    test::writeText(dir / "c.mp4", "c");
    ProxyMaker moved(ProxyCache(dir / "proxies"), second.open(), ProxyMaker::Options{1, 1, {}, {}});
    moved.start({{dir / "c.mp4", 0, 40}});
    while (second.begunCount() == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    moved.setPlayhead(2, true);
    moved.setPlayhead(5, true);
    EXPECT_FALSE(second.heldAbandoned());
    EXPECT_EQ(second.begunCount(), 1u);
    moved.setPlayhead(30, false);
    while (second.begunCount() == 1) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    second.release();
    waitFinished(moved);
    ASSERT_GE(second.begun.size(), 3u);
    EXPECT_EQ(second.begun[0], 0);
    EXPECT_EQ(second.begun[1], 28);
    ASSERT_EQ(second.calls.size(), 10u);
    EXPECT_EQ(second.calls[0].second, 28);
    EXPECT_EQ(moved.progress().done, 10);
}

TEST(ProxyTest, ReusedWhileTheOriginalKeepsItsStateStaleOnesGo) {
    if (!test::haveFFmpeg()) GTEST_SKIP() << "ffmpeg missing";
    test::TempDir dir;
    fs::path clip = testClip(dir, "clip.mp4", 6);
    ASSERT_FALSE(clip.empty());
    ProxyCache cache(dir / "cache");
    ProxyMaker maker(cache, proxyEncoder(small), {});
    maker.start({{clip, 0, 6}});
    EXPECT_EQ(maker.status().rfind("Préparation de l'aperçu : ", 0), 0u);
    waitFinished(maker);
    EXPECT_EQ(maker.status(), "");
    auto first = cache.findChunk(clip, 1);
    ASSERT_TRUE(first);
    EXPECT_TRUE(cache.findChunk(clip, 0));

    // The original changes: its chunks are stale, found no more, and go.
    { std::ofstream(clip, std::ios::app) << "x"; }
    EXPECT_FALSE(cache.findChunk(clip, 1));
    maker.start({{clip, 0, 6}});
    waitFinished(maker);
    ASSERT_TRUE(cache.findChunk(clip, 1));
    EXPECT_NE(*cache.findChunk(clip, 1), *first);
    EXPECT_FALSE(fs::exists(*first));
    EXPECT_EQ(std::distance(fs::directory_iterator(cache.folder()), fs::directory_iterator()), 2);
}

TEST(ProxyTest, WhereNoChunkCanBeMadeTheOriginalPlaysAndTheLogSaysWhy) {
    if (!test::haveFFmpeg()) GTEST_SKIP() << "ffmpeg missing";
    test::TempDir dir;
    fs::path clip = testClip(dir, "clip.mp4", 9);
    fs::path other = testClip(dir, "other.mp4", 9);
    ASSERT_FALSE(clip.empty() || other.empty());

    // A folder that cannot be made (a file stands in its way; permissions
    // bind nobody when tests run as root).
    test::writeText(dir / "not a folder", "");
    LogLines blockedLog;
    ProxyMaker blocked(ProxyCache(dir / "not a folder" / "proxies"), proxyEncoder(small),
                       ProxyMaker::Options{2, 1, {}, blockedLog.sink()});
    blocked.start({{clip, 0, 9}, {other, 0, 9}, {dir / "missing.mp4", 0, 9}});
    EXPECT_TRUE(blocked.progress().finished);
    EXPECT_TRUE(blocked.progress().folderFailed);
    ASSERT_EQ(blockedLog.lines.size(), 2u);
    EXPECT_EQ(blockedLog.lines[0], "Aperçu : missing.mp4 est introuvable ; sa copie n'est pas faite.");
    EXPECT_EQ(blockedLog.lines[1].rfind("Aperçu : impossible de créer le dossier ", 0), 0u);

    // A full disk: the first chunk's writes fail. The making stops, one
    // line, nothing half-made stays, and the reader plays the original.
    ProxyCache full(dir / "full");
    fs::create_directories(full.folder());
    fs::path part = full.chunkPath(*full.stem(clip), 0);
    part += ".part";
    fs::create_symlink("/dev/full", part);
    LogLines fullLog;
    {
        ProxyMaker maker(full, proxyEncoder(small), ProxyMaker::Options{1, 1, {}, fullLog.sink()});
        maker.start({{clip, 0, 9}, {other, 0, 9}});
        waitFinished(maker);
        EXPECT_TRUE(maker.progress().folderFailed);
    }
    ASSERT_EQ(fullLog.lines.size(), 1u);
    EXPECT_EQ(fullLog.lines[0].rfind("Aperçu : impossible d'écrire dans " + full.folder().string(), 0), 0u);
    EXPECT_EQ(std::distance(fs::directory_iterator(full.folder()), fs::directory_iterator()), 0);
    PlacedItem placed;
    placed.item.url = clip;
    placed.item.hasVideo = true;
    placed.item.duration = 9;
    ProxyPictures pictures(SourceTimeline::composition({placed}, 9, true), &full);
    auto shown = pictures.pictureAt(5);
    ASSERT_TRUE(shown && shown->picture);
    EXPECT_FALSE(shown->fromProxy);

    // The original vanishes while its chunk is made: the chunk is thrown
    // away, the file given up with one line; the other file is made.
    ProxyCache cache(dir / "cache");
    LogLines vanishLog;
    auto vanishing = [&](const fs::path& original) -> Result<ProxyMaker::ChunkWriter> {
        auto opened = proxyEncoder(small)(original);
        if (!opened || original != clip) return opened;
        auto inner = std::move(opened).value();
        return ProxyMaker::ChunkWriter(
            [inner, &clip](const fs::path& out, double from, double to, const std::atomic<bool>& cancel) {
                fs::remove(clip);
                return inner(out, from, to, cancel);
            });
    };
    ProxyMaker maker(cache, vanishing, ProxyMaker::Options{1, 1, {}, vanishLog.sink()});
    maker.start({{clip, 0, 9}, {other, 0, 9}});
    waitFinished(maker);
    ASSERT_EQ(maker.progress().failed.size(), 1u);
    EXPECT_EQ(maker.progress().failed[0], clip);
    ASSERT_EQ(vanishLog.lines.size(), 1u);
    EXPECT_EQ(vanishLog.lines[0], "Aperçu : copie de clip.mp4 abandonnée (clip.mp4 a changé ou disparu pendant sa "
                                  "copie) ; l'original est lu.");
    EXPECT_TRUE(cache.findChunk(other, 2));
    EXPECT_EQ(std::distance(fs::directory_iterator(cache.folder()), fs::directory_iterator()), 3);
    // Its picture is now a hole, not a crash.
    ProxyPictures gone(SourceTimeline::composition({placed}, 9, true), &cache);
    EXPECT_FALSE(gone.pictureAt(5));

    // Nothing readable: a French message, no file left.
    std::atomic<bool> cancel{false};
    auto bad = media::writeProxy(dir / "not a folder", dir / "out.mp4", {}, cancel);
    ASSERT_FALSE(bad.ok());
    EXPECT_EQ(bad.error().message, "Impossible de lire not a folder");
    EXPECT_FALSE(fs::exists(dir / "out.mp4"));
}

TEST(ProxyTest, AnActionCamerasLightCopyStandsInForItsChapterAtOnce) {
    std::vector<MediaSource> sources;
    SyncResult result;
    if (!test::placeAtTruth(test::generatedSet("fields", 1), sources, result)) GTEST_SKIP() << "generator missing";
    // The chapters are wider than a proxy but bring their own copy: none is made for them.
    for (const ProxyFile& f : ProxyMaker::candidates(sources, result))
        EXPECT_NE(f.path.parent_path().filename(), "Cam 3") << f.path;
    SourceTimeline line = SourceTimeline::of(result, 2, 0, true);
    ASSERT_EQ(line.pieces.size(), 2u);
    ProxyPictures pictures(line, nullptr);
    for (const TimelinePiece& piece : line.pieces)
        for (double ft : {0.5, 4.02, 8.0}) {
            auto shown = pictures.pictureAt(piece.at + ft);
            ASSERT_TRUE(shown && shown->picture);
            EXPECT_TRUE(shown->fromProxy);
            EXPECT_EQ(shown->picture->frame.width, 640);
            auto code = test::codeOf(shown->picture->frame);
            ASSERT_TRUE(code);
            EXPECT_EQ(code->frame, std::lround(std::floor(ft * 50 + 1e-6)));
        }
}

}  // namespace
}  // namespace qv
