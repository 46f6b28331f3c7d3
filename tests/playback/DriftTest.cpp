// A drifting camera plays as it exports: the player, the video render and
// the montage XML read its picture in step at the middle of each plan, and
// its own sound moves with its picture. The generated "render" set is placed
// at its truth and one camera is given a fast clock: 2 % over 17 s is 0.34 s,
// the drift of an hour at about 100 ppm, so a reading that ignored the drift
// would be eight frames out at one end.
#include <cmath>

#include "PlaybackRig.h"
#include "playback/TimelineTracks.h"
#include "render/VideoRender.h"

namespace qv {
namespace {

namespace fs = std::filesystem;

constexpr double fastClock = 20000;  // ppm

long frameOf(const auto& picture) {
    auto code = test::codeOf(picture);
    return code ? code->frame : -1;
}

class DriftTest : public ::testing::Test {
protected:
    void SetUp() override {
        const bool placed = test::placeAtTruth(test::generatedSet("render", 1), sources, result, [&](PlacedItem& p) {
            if (sources[static_cast<size_t>(p.sourceIndex)].name != "Cam 2") return;
            p.drift = fastClock;
            drifting = static_cast<int>(result.placed.size());
        });
        if (!placed) GTEST_SKIP() << "generator missing";
        ASSERT_GE(drifting, 0);
        for (size_t s = 0; s < sources.size(); ++s)
            if (sources[s].kind == SourceKind::camera) cameraSources.push_back(static_cast<int>(s));
    }

    const PlacedItem& file() const { return result.placed[static_cast<size_t>(drifting)]; }

    // The file frame the montage XML puts at set time t inside plan [a, b].
    long xmlFrame(double a, double b, double t) const {
        return static_cast<long>(std::floor((file().sourceIn(a, b) + (t - a)) * file().item.frameRate + 1e-6));
    }

    // A tenth of a second of the drifting file's own sound from `fileTime`.
    std::vector<float> fileSound(double fileTime) const {
        std::vector<float> out(4800);
        auto raw = media::AudioReader::open(file().item.url, 48000, 1);
        if (raw.ok()) raw->read(std::llround(fileTime * 48000), 4800, out.data());
        return out;
    }
    static double maxDiff(const std::vector<float>& a, const std::vector<float>& b) {
        double err = 0;
        for (size_t i = 0; i < a.size(); ++i) err = std::max(err, std::fabs(double(a[i] - b[i])));
        return err;
    }

    std::vector<MediaSource> sources;
    SyncResult result;
    std::vector<int> cameraSources;
    int drifting = -1;
};

TEST_F(DriftTest, PlayerRenderAndXmlShowTheSameFrameAtBothEndsOfAPlan) {
    // Three plans on Cam 2 (camera 1): to 5 s, to 14 s, then to the end.
    const double total = result.duration();
    std::vector<Cut> cuts(3);
    cuts[0].camera = cuts[1].camera = cuts[2].camera = 1;
    cuts[1].time = 5;
    cuts[2].time = 14;
    const std::vector<Segment> segments = Segment::build(cuts, total);
    const TimeRange range{0, total};

    VideoRender::Job job;
    job.sources = sources;
    job.result = result;
    job.segments = segments;
    job.cameraSources = cameraSources;
    job.range = range;
    job.planEffects.resize(segments.size());
    const VideoRender::Built built = VideoRender::build(job);
    SourceReader render(built.lines.at(static_cast<size_t>(built.cameraLine(1))));

    test::Clocked clock;
    MulticamPlayer player(sources, result, clock.options(timelineTracks()));
    std::vector<TimeRange> plans;
    for (const Segment& s : segments) plans.push_back({s.start, s.end});
    player.keepInStep(plans, range);

    const double fps = file().item.frameRate;
    // The file's first and last moments, and both sides of each cut.
    for (double t : {file().start + 0.02, 4.97, 5.02, 13.97, 14.02, file().end() - 0.05}) {
        test::seekSettled(player, t);
        auto shown = player.shownFrame(1);
        ASSERT_TRUE(shown) << t;
        const long played = frameOf(*shown);

        auto picture = render.pictureAt(t);
        ASSERT_TRUE(picture.ok() && *picture) << t;
        const long rendered = frameOf((*picture)->frame);

        const Segment& plan = segments[t < 5 ? 0 : t < 14 ? 1 : 2];
        const double a = std::max(plan.start, file().start), b = std::min(plan.end, file().end());
        const long xml = xmlFrame(a, b, t);
        EXPECT_EQ(played, rendered) << "at " << t;
        EXPECT_LE(std::abs(played - xml), 1) << "at " << t;
        // Without the drift rule the file would be read at its placement.
        const long placement = static_cast<long>(std::floor((t - file().start) * fps));
        if (plan.id == 1) {
            EXPECT_GE(std::abs(xml - placement), 3) << "the drift does not show at " << t;
        }
    }

    // The video's sound that follows the cut hears the file time its picture shows.
    SourceReader renderSound(built.lines.at(static_cast<size_t>(built.cameraLine(1))));
    std::vector<float> heard(4800);
    ASSERT_TRUE(renderSound.sound(std::llround(13.0 * 48000), 4800, 48000, 1, heard.data()).ok());
    EXPECT_LT(maxDiff(heard, fileSound(file().sourceIn(5, 14) + 8)), 1e-4);
}

TEST_F(DriftTest, ACamerasOwnSoundMovesWithItsPicture) {
    const double total = result.duration();
    const std::vector<TimeRange> plans = {{0, total}};
    std::vector<PlacedItem> files = {file()};
    auto sound = timelineTracks().sound(files, total, 48000, 1);
    ASSERT_TRUE(sound);
    sound->keepInStep(plans);

    const double a = file().start, b = file().end();
    for (double t : {a + 0.5, b - 0.6}) {
        std::vector<float> heard(4800);
        sound->read(std::llround(t * 48000), heard.data(), heard.size());
        // The file time the picture shows at t.
        const std::vector<float> truth = fileSound(file().sourceIn(a, b) + (t - a));
        ASSERT_GT(maxDiff(truth, std::vector<float>(truth.size())), 0.01) << "silence at " << t;
        EXPECT_LT(maxDiff(heard, truth), 1e-4) << "at " << t;
    }
}

}  // namespace
}  // namespace qv
