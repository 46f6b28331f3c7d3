// Proxies: made once per state of the original, reused, replaced when the
// original changes, and played frame-exactly in its place; where none can be
// made the original plays.
#include <gtest/gtest.h>

#include <condition_variable>
#include <fstream>

#include "entry/SetTruth.h"
#include "platform/ProxyWriter.h"
#include "playback/MulticamPlayer.h"
#include "playback/Proxies.h"
#include "playback/TimelineTracks.h"
#include "setgen/FrameCode.h"
#include "support/Fixtures.h"
#include "sync/MediaScanner.h"

namespace qv {
namespace {

namespace fs = std::filesystem;

// Proxies half the width of the generated set's 320 × 180 pictures.
ProxyMaker::Encode smallProxies(int* calls = nullptr) {
    return [calls](const fs::path& in, const fs::path& out, const std::atomic<bool>& cancel) {
        if (calls) ++*calls;
        return media::writeProxy(in, out, media::ProxyOptions{160, 12, 23, 1}, cancel);
    };
}

void waitFinished(const ProxyMaker& maker) {
    while (!maker.progress().finished) std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

TEST(ProxyTest, PlayedInPlaceOfTheOriginalFrameForFrame) {
    fs::path set = test::generatedSet("render", 1);
    auto truth = SetTruth::read(set);
    if (set.empty() || !truth) GTEST_SKIP() << "generator missing";
    test::TempDir dir;
    auto sources = MediaScanner::scan(set);
    SyncResult result;
    std::vector<fs::path> cameras;
    for (size_t s = 0; s < sources.size(); ++s) {
        for (const auto& item : sources[s].items) {
            result.placed.push_back({});
            result.placed.back().sourceIndex = static_cast<int>(s);
            result.placed.back().item = item;
            result.placed.back().start = truth->files.at(fs::relative(item.url, set).string()).start;
            if (sources[s].kind == SourceKind::camera) cameras.push_back(item.url);
        }
    }
    ProxyCache cache(dir / "proxies");
    int calls = 0;
    ProxyMaker maker(cache, smallProxies(&calls));
    maker.start(cameras);
    waitFinished(maker);
    EXPECT_TRUE(maker.progress().failed.empty());
    EXPECT_EQ(calls, static_cast<int>(cameras.size()));
    maker.start(cameras);  // all there: nothing made again
    waitFinished(maker);
    EXPECT_EQ(calls, static_cast<int>(cameras.size()));

    MulticamPlayer::Options options;
    options.opener = timelineTracks(&cache);
    MulticamPlayer player(sources, result, std::move(options));
    for (double t : {1.2, 9.6, 10.0, 4.321, 17.5}) {
        player.seek(t);
        player.settle();
        player.update();
        for (const auto& angle : player.cameraAngles()) {
            if (!angle.hasImage(t)) continue;
            auto frame = player.shownFrame(angle.id);
            ASSERT_TRUE(frame);
            EXPECT_EQ(frame->width, 160);
            auto code = setgen::framecode::read(frame->rgba.data(), frame->width, frame->height, frame->width * 4);
            ASSERT_TRUE(code) << angle.name << " " << t;
            const PlacedItem* file = nullptr;
            for (const auto& p : result.placed)
                if (p.item.fileName() == "clip " + std::to_string(code->clip) + ".mp4" &&
                    sources[p.sourceIndex].name == "Cam " + std::to_string(code->camera))
                    file = &p;
            ASSERT_TRUE(file);
            double from = file->start + code->frame / file->item.frameRate;
            EXPECT_TRUE(from - 1e-3 <= t && t < from + 1 / file->item.frameRate + 1e-3) << angle.name << " " << t;
        }
    }
}

TEST(ProxyTest, KeyedByTheOriginalsStateStaleOnesGoAndFailuresFallBack) {
    if (!test::haveFFmpeg()) GTEST_SKIP() << "ffmpeg missing";
    test::TempDir dir;
    fs::path clip = dir / "clip.mp4";
    ASSERT_TRUE(test::ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=320x180:r=25:d=1", "-c:v", "libx264", "-preset",
                              "ultrafast", clip.string()}));
    ProxyCache cache(dir / "cache");
    // The list shows its progress while it works.
    std::mutex lock;
    std::condition_variable cv;
    bool open = false;
    ProxyMaker maker(cache, [&](const fs::path& in, const fs::path& out, const std::atomic<bool>& cancel) {
        std::unique_lock l(lock);
        cv.wait(l, [&] { return open; });
        return smallProxies()(in, out, cancel);
    });
    maker.start({clip});
    EXPECT_EQ(maker.status(), "Préparation de l'aperçu : 0/1");
    {
        std::lock_guard guard(lock);
        open = true;
    }
    cv.notify_all();
    waitFinished(maker);
    EXPECT_EQ(maker.status(), "");
    auto first = cache.find(clip);
    ASSERT_TRUE(first);

    // The original changes: its old proxy is stale, found no more, and goes.
    { std::ofstream(clip, std::ios::app) << "x"; }
    EXPECT_FALSE(cache.find(clip));
    maker.start({clip});
    waitFinished(maker);
    ASSERT_TRUE(cache.find(clip));
    EXPECT_NE(*cache.find(clip), *first);
    EXPECT_FALSE(fs::exists(*first));

    // A cache folder that cannot be written (a file stands where it should
    // be made; permissions bind nobody when tests run as root): the proxy
    // fails, the list ends, and the original stays what plays.
    test::writeText(dir / "not a folder", "");
    ProxyCache blocked(dir / "not a folder" / "proxies");
    ProxyMaker failing(blocked, smallProxies());
    failing.start({clip, dir / "missing.mp4"});
    waitFinished(failing);
    EXPECT_EQ(failing.progress().failed.size(), 2u);
    EXPECT_FALSE(blocked.find(clip));
    // Nothing readable: a French message, no file left.
    std::atomic<bool> cancel{false};
    auto bad = media::writeProxy(dir / "not a folder", dir / "out.mp4", {}, cancel);
    ASSERT_FALSE(bad.ok());
    EXPECT_EQ(bad.error().message, "Impossible de lire not a folder");
    EXPECT_FALSE(fs::exists(dir / "out.mp4"));
}

}  // namespace
}  // namespace qv
