// The program angle first, on virtual time, with readers whose decoding
// costs virtual processor time: tiles too slow to keep up stay within their
// budget and jump from key frame to key frame while the program shows every
// picture; after a request the program's picture comes before any tile's;
// a switch of the program angle moves each angle's work to the thread of
// its new priority at once.
#include <gtest/gtest.h>

#include <cmath>
#include <mutex>

#include "PlaybackRig.h"
#include "platform/ThreadPriority.h"

namespace qv {
namespace {

constexpr double kFrame = 0.04;  // 25 pictures a second
constexpr long kGop = 50;        // a key frame every 2 s

thread_local double virtualCpu = 0;  // processor seconds the calling thread has "decoded"

struct Call {
    int camera;
    char what;  // 'k' key frame glance, 'r' read, 'j' jump to a key frame
    long frame;
    int nice;
};

struct Journal {
    std::mutex lock;
    std::vector<Call> calls;
    void add(Call c) {
        std::lock_guard guard(lock);
        calls.push_back(c);
    }
    std::vector<Call> take() {
        std::lock_guard guard(lock);
        return std::exchange(calls, {});
    }
};

long frameAt(double t) { return static_cast<long>(std::floor(t / kFrame + 1e-6)); }

// One camera's pictures as a decoder would give them, at `cost` processor
// seconds a picture decoded: reading on from the last one decodes the ones
// between, a jump back or far ahead decodes from the key frame before.
class CostlyVideo : public VideoTrackReader {
public:
    CostlyVideo(int camera, double cost, long frames, Journal& journal)
        : camera_(camera), cost_(cost), frames_(frames), journal_(journal) {}

    void seek(double time) override { next_ = frameAt(time); }
    void setOutputSize(int, int) override {}

    std::optional<PreviewFrame> read(double notBefore) override {
        const long target = std::max(next_, frameAt(notBefore));
        if (target >= frames_) return std::nullopt;
        const bool onward = target > decoded_ && target - decoded_ <= 75;
        decode(onward ? target - decoded_ : target - target / kGop * kGop + 1);
        decoded_ = target;
        next_ = target + 1;
        journal_.add({camera_, 'r', target, platform::niceness()});
        return picture(target, target + 1);
    }

    std::optional<PreviewFrame> keyFrameBefore(double time) override {
        const long key = std::min(frameAt(time), frames_ - 1) / kGop * kGop;
        decode(1);
        decoded_ = -1000;  // only the key frame: reading on starts from it again
        next_ = frameAt(time);
        journal_.add({camera_, 'k', key, platform::niceness()});
        auto frame = picture(key, key + 1);
        frame.end = time + 0.5;
        frame.standIn = true;
        return frame;
    }

    bool skipToKeyFrame(double time) override {
        const long key = (frameAt(time) + kGop - 1) / kGop * kGop;
        if (key >= frames_) return false;
        next_ = key;
        decoded_ = key - 1;
        journal_.add({camera_, 'j', key, platform::niceness()});
        return true;
    }

private:
    void decode(long pictures) { virtualCpu += cost_ * static_cast<double>(pictures); }
    static PreviewFrame picture(long from, long to) {
        PreviewFrame f;
        f.start = from * kFrame;
        f.end = to * kFrame;
        f.width = f.height = 2;
        f.rgba.assign(16, 0);
        return f;
    }

    int camera_;
    double cost_;
    long frames_;
    Journal& journal_;
    long next_ = 0, decoded_ = -1000;
};

class ProgramFirstTest : public ::testing::Test {
protected:
    ProgramFirstTest() {
        for (int c = 0; c < 3; ++c) {
            sources.push_back({Uuid::make(), "Cam " + std::to_string(c + 1), SourceKind::camera, {}, {}});
            PlacedItem p;
            p.sourceIndex = c;
            p.item.duration = 20;
            p.item.width = 1920;
            p.item.height = 1080;
            p.item.hasVideo = true;
            result.placed.push_back(p);
        }
        TrackOpener opener;
        // The program camera decodes a picture in 4 ms, the other two in 60:
        // as tiles, more than their budget on two cores lets them keep up with.
        opener.video = [this](const std::vector<PlacedItem>& files, double) -> std::unique_ptr<VideoTrackReader> {
            const int camera = files.front().sourceIndex;
            return std::make_unique<CostlyVideo>(camera, camera == 0 ? 0.004 : 0.06, 500, journal);
        };
        auto options = clock.options(opener);
        options.cores = 2;
        options.threadCpu = [] { return virtualCpu; };
        player = std::make_unique<MulticamPlayer>(sources, result, std::move(options));
    }
    ~ProgramFirstTest() override { player.reset(); }

    Journal journal;
    test::Clocked clock;
    std::vector<MediaSource> sources;
    SyncResult result;
    std::unique_ptr<MulticamPlayer> player;
};

TEST_F(ProgramFirstTest, SlowTilesJumpWithinTheirBudgetWhileTheProgramShowsEveryPicture) {
    player->setProgramAngle(0);
    test::seekSettled(*player, 3.3);
    journal.take();

    // A start: the program's picture, then each tile's key frame, then their own pictures.
    player->play();
    clock.run(*player, 0.1);
    auto calls = journal.take();
    auto first = [&](auto wanted) {
        return std::find_if(calls.begin(), calls.end(), wanted) - calls.begin();
    };
    const auto programRead = first([](const Call& c) { return c.camera == 0 && c.what == 'r'; });
    const auto tileRead = first([](const Call& c) { return c.camera != 0 && c.what == 'r'; });
    ASSERT_LT(programRead, static_cast<long>(calls.size()));
    for (long i = 0; i < static_cast<long>(calls.size()); ++i) {
        if (calls[i].what != 'k') continue;
        EXPECT_GT(i, programRead) << "a tile's key frame before the program's picture";
        EXPECT_LT(i, tileRead) << "a tile's own picture before every tile had its key frame";
    }

    const auto shownBefore = player->counters().shownByAngle;
    const auto budgetBefore = player->tileBudget();
    clock.run(*player, 6.0);
    const auto shown = player->counters().shownByAngle;
    const auto budget = player->tileBudget();
    calls = journal.take();

    // Every program picture of the 6 s, not one lost to the tiles.
    EXPECT_NEAR(shown[0] - shownBefore[0], 150, 2);
    // The tiles took no more than their bucket was given, one picture each
    // at most beyond it, and kept a few pictures a second all the same.
    const double spent = budget.spent - budgetBefore.spent, granted = budget.granted - budgetBefore.granted;
    EXPECT_GT(spent, 0);
    EXPECT_LE(spent, granted + 2 * 0.06 + 1e-9);
    EXPECT_LE(granted, 1.5 * 6.0 + 1e-9);
    for (int tile : {1, 2}) {
        EXPECT_GE(shown[tile] - shownBefore[tile], 6) << tile;
        EXPECT_LT(shown[tile] - shownBefore[tile], 100) << tile;
    }
    // Behind, a tile jumps to the next key frame and decodes on from there.
    int jumps = 0;
    std::map<int, long> jumpedTo;
    for (const Call& c : calls) {
        if (c.camera == 0) continue;
        if (c.what == 'j') {
            ++jumps;
            jumpedTo[c.camera] = c.frame;
        } else if (c.what == 'r' && jumpedTo.count(c.camera)) {
            EXPECT_EQ(c.frame, jumpedTo[c.camera]) << "camera " << c.camera << " decoded its way through";
            jumpedTo.erase(c.camera);
        }
    }
    EXPECT_GE(jumps, 2);
}

TEST_F(ProgramFirstTest, AKeyPressMovesEachAngleToTheThreadOfItsNewPriorityAtOnce) {
    const int base = platform::niceness();
    if (base >= 19) GTEST_SKIP() << "already at the lowest priority";
    player->settle();  // the first still, before any angle is on program
    journal.take();
    player->setProgramAngle(0);
    player->seek(3.3);
    player->play();
    clock.run(*player, 1.0);
    for (const Call& c : journal.take()) EXPECT_EQ(c.nice, c.camera == 0 ? base : 19) << c.camera << c.what;

    // Camera 2 goes on program: its next picture is decoded at the
    // interface's priority, every one from there on, and camera 1 gives way.
    player->settle();
    journal.take();
    const auto before = player->counters().shownByAngle;
    player->setProgramAngle(1);
    clock.run(*player, 2.0);
    for (const Call& c : journal.take()) EXPECT_EQ(c.nice, c.camera == 1 ? base : 19) << c.camera << c.what;
    EXPECT_NEAR(player->counters().shownByAngle[1] - before[1], 50, 4);
}

}  // namespace
}  // namespace qv
