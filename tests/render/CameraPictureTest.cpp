// Pictures as cameras write them, through the whole chain, on generated
// sets: with seven 25 fps cameras and a 29.97 phone first every output is at
// 25; a phone's constant-rate copy shows the player's frame at ten points of
// ten minutes; an interlaced camcorder renders without combs; HDV's wide
// pixels render at 16:9.
#include <gtest/gtest.h>

#include "app/ConformCopies.h"
#include "export/MltExport.h"
#include "export/OtioExport.h"
#include "render/RenderFixtures.h"
#include "support/TimelineCheck.h"
#include "support/XmemlCheck.h"

namespace qv {
namespace {

namespace fs = std::filesystem;

// Share of the pixels whose line differs from both lines around it in the
// same direction by more than a few levels: the teeth that woven fields of
// a moving picture leave, which whole frames do not have.
double combing(const media::RgbaFrame& f) {
    auto g = [&](int x, int y) { return static_cast<int>(f.pixels[(static_cast<size_t>(y) * f.width + x) * 4 + 1]); };
    long teeth = 0, all = 0;
    for (int y = 1; y + 1 < f.height; ++y)
        for (int x = 0; x < f.width; ++x, ++all)
            if ((g(x, y) - g(x, y - 1)) * (g(x, y) - g(x, y + 1)) > 30 * 30) ++teeth;
    return all ? static_cast<double>(teeth) / static_cast<double>(all) : 0;
}

using test::codeOf;
using test::frameAt;

fs::path render(VideoRender::Job job, const fs::path& to) {
    auto out = test::renderNow(std::move(job), VideoCodec::h264, to);
    EXPECT_TRUE(out.ok()) << (out.ok() ? "" : out.error().message);
    return out ? *out : fs::path();
}

// What melt makes of frame `frame` of an MLT file: a one-frame video.
fs::path meltFrame(const fs::path& mlt, long frame, const fs::path& dir) {
    const fs::path video = dir / "melt.mp4";
    auto run = process::run("/usr/bin/melt", {"-silent", "-quiet", mlt.string(), "in=" + std::to_string(frame),
                                              "out=" + std::to_string(frame), "-consumer", "avformat:" + video.string(),
                                              "vcodec=libx264", "real_time=0"});
    EXPECT_TRUE(run.ok() && run->exitCode == 0) << "melt refused " << mlt;
    return fs::exists(video) ? video : fs::path();
}

TEST(CameraPictures, WithSevenCamerasAt25AndAPhoneFirstEveryOutputIsAt25) {
    fs::path set = test::generatedSet("rates", 1);
    if (set.empty()) GTEST_SKIP() << "generator missing";
    VideoRender::Job job = test::jobAt(set, test::truthStarts(set));
    ASSERT_EQ(job.cameraSources.size(), 8u);
    auto first = std::find_if(job.result.placed.begin(), job.result.placed.end(),
                              [](const PlacedItem& p) { return p.item.hasVideo; });
    ASSERT_EQ(first->sourceIndex, job.cameraSources[0]);  // the phone opens the set
    EXPECT_NEAR(first->item.frameRate, 29.97, 0.01);
    job.segments = test::plans({{0, 0}, {3, 1}, {6, 4}, {12, 0}, {16, 2}}, job.result.duration());
    job.planEffects.resize(job.segments.size());
    test::TempDir dir;

    // The phone's variable-rate clip gets its copy; every file then points at it.
    const auto copies = ConformCopies::makeNow(ConformCopies::cache(dir / "copies"), job.sources, job.result, {}, {});
    ASSERT_EQ(copies.size(), 1u);
    EXPECT_EQ(copies.begin()->first.filename(), "clip 2.mp4");
    PremiereExport::PictureChoices choices;
    choices.copies = copies;

    const std::string xml = PremiereExport::makeMontageXML("Montage", job.sources, job.result, job.segments,
                                                           job.cameraSources, job.range, {}, {}, {}, {}, {},
                                                           OutputFormat::landscape, {}, false, choices);
    EXPECT_TRUE(test::xmemlProblems(xml).empty()) << test::joined(test::xmemlProblems(xml));
    // The sequence's rate comes first in the document.
    EXPECT_EQ(xml.substr(xml.find("<timebase>"), 23), "<timebase>25</timebase>");
    EXPECT_EQ(xml.substr(xml.find("<ntsc>"), 18), "<ntsc>FALSE</ntsc>");
    EXPECT_NE(xml.find(PremiereExport::pathURL(copies.begin()->second)), std::string::npos);

    const auto timeline = PremiereExport::montageTimeline(job.sources, job.result, job.segments, job.cameraSources,
                                                          job.range, {}, {}, {}, {}, false, choices);
    std::vector<std::string> problems;
    const auto otio = test::readOtio(OtioExport::write("Montage", job.sources, timeline, {}, {}), problems);
    EXPECT_TRUE(problems.empty()) << test::joined(problems);
    EXPECT_DOUBLE_EQ(otio.rate, 25);
    bool copyUsed = false;
    for (const auto& track : otio.tracks)
        for (const auto& item : track.items)
            copyUsed = copyUsed || (!item.gap && test::urlPath(item.url) == copies.begin()->second);
    EXPECT_TRUE(copyUsed);

    const fs::path mlt = dir / "montage.mlt";
    test::writeText(mlt, MltExport::write("Montage", job.sources, timeline, {}, {}, {}));
    EXPECT_TRUE(test::mltProblems(test::readText(mlt)).empty());
    if (fs::exists("/usr/bin/melt")) {
        // At 13 s the phone's variable-rate clip is on screen: melt reads its copy.
        const fs::path frame = meltFrame(mlt, 13 * 25, dir.path());
        ASSERT_FALSE(frame.empty());
        EXPECT_EQ(test::probeField(frame, "v", "r_frame_rate"), "25/1");
        auto code = codeOf(frameAt(frame, 0));
        ASSERT_TRUE(code);
        EXPECT_EQ(code->camera, 1);
        EXPECT_EQ(code->clip, 2);
    }

    job.range = {0, 1};
    const fs::path video = render(job, dir / "video.mp4");
    EXPECT_EQ(test::probeField(video, "v", "r_frame_rate"), "25/1");
}

TEST(CameraPictures, AConstantRateCopyShowsThePlayersFrameAtTenPointsOfTenMinutes) {
    fs::path set = test::generatedSet("vfr", 1);
    if (set.empty()) GTEST_SKIP() << "generator missing";
    auto sources = MediaScanner::scan(set);
    ASSERT_EQ(sources.size(), 1u);
    ASSERT_EQ(sources[0].items.size(), 1u);
    const MediaItem phone = sources[0].items[0];
    ASSERT_TRUE(phone.picture.variableRate()) << phone.picture.frameSpread;
    ASSERT_GT(phone.duration, 590);
    SyncResult result;
    result.placed.push_back(PlacedItem{0, phone, 0, {}, {}, false, {}, {}, {}});

    test::TempDir dir;
    std::vector<double> told;
    const auto copies = ConformCopies::makeNow(ConformCopies::cache(dir / "copies"), sources, result,
                                               [&](double share) { told.push_back(share); }, {});
    ASSERT_EQ(copies.size(), 1u);
    EXPECT_GT(told.size(), 2u);
    const auto copy = MediaScanner::probe(copies.begin()->second);
    ASSERT_TRUE(copy);
    EXPECT_FALSE(copy->picture.variableRate());
    EXPECT_DOUBLE_EQ(copy->frameRate, PremiereExport::SequenceRate::closest(phone.frameRate).fps());
    EXPECT_NEAR(copy->duration, phone.duration, 1 / copy->frameRate);

    // The player reads the original by its time stamps; the copy, read at
    // the same times (a quarter into one of its frames), must show the same
    // frame or its neighbour.
    SourceReader player(SourceTimeline::of(result, 0, phone.duration, true));
    auto copyReader = media::VideoReader::open(copies.begin()->second);
    ASSERT_TRUE(copyReader);
    for (int k = 0; k < 10; ++k) {
        const double n = std::floor((k + 0.37) * phone.duration / 10 * copy->frameRate);
        const double t = (n + 0.25) / copy->frameRate;
        auto shown = player.pictureAt(t);
        auto copied = copyReader->frameAt(t);
        ASSERT_TRUE(shown && *shown && copied);
        const auto a = codeOf((*shown)->frame), b = codeOf((*copied)->frame);
        ASSERT_TRUE(a && b) << "at " << t;
        EXPECT_LE(std::abs(a->frame - b->frame), 1) << "at " << t;
    }
}

class FieldsSet : public ::testing::Test {
protected:
    void SetUp() override {
        set_ = test::generatedSet("fields", 1);
        if (set_.empty()) GTEST_SKIP() << "generator missing";
    }
    // A job over one camera file alone, from set time `from` for a second.
    VideoRender::Job oneFile(const std::string& path, double from) {
        VideoRender::Job job = test::jobAt(set_, {{path, test::truthStarts(set_).at(path)}});
        job.segments = test::plans({{0, static_cast<int>(cameraOf(job))}}, job.result.duration());
        job.planEffects.resize(job.segments.size());
        job.range = {from, from + 1};
        return job;
    }
    static size_t cameraOf(const VideoRender::Job& job) {
        const int source = job.result.placed.front().sourceIndex;
        return static_cast<size_t>(std::find(job.cameraSources.begin(), job.cameraSources.end(), source) -
                                   job.cameraSources.begin());
    }
    fs::path set_;
    test::TempDir dir_;
};

TEST_F(FieldsSet, AnInterlacedClipRendersWithoutCombs) {
    const std::string path = "Cam 1/00001.MTS";
    VideoRender::Job job = oneFile(path, 3);
    const double start = job.result.placed.front().start;
    const fs::path video = render(job, dir_ / "fields.mp4");
    ASSERT_FALSE(video.empty());
    const media::RgbaFrame rendered = frameAt(video, 0.5);
    auto raw = media::decodeVideoFrame(set_ / path, 3.5 - start);
    ASSERT_TRUE(raw);
    ASSERT_EQ(rendered.width, raw->width);
    const double before = combing(*raw), after = combing(rendered);
    EXPECT_GT(before, 0.002) << "the raw fields show no combs to remove";
    EXPECT_LT(after, before / 5) << before << " → " << after;
    EXPECT_TRUE(codeOf(rendered));
}

TEST_F(FieldsSet, AnAnamorphicClipRendersAt16By9) {
    VideoRender::Job job = oneFile("Cam 2/clip 1.m2t", 4);
    const MediaItem& hdv = job.result.placed.front().item;
    EXPECT_EQ(hdv.width, 1920);
    EXPECT_EQ(hdv.storedWidth(), 1440);
    const fs::path video = render(job, dir_ / "hdv.mp4");
    ASSERT_FALSE(video.empty());
    EXPECT_EQ(test::probeField(video, "v", "width"), "1920");
    EXPECT_EQ(test::probeField(video, "v", "height"), "1080");
    // The frame code spans the whole width: the picture is widened, not
    // scaled up to fill and cropped.
    const media::RgbaFrame f = frameAt(video, 0.5);
    auto code = codeOf(f);
    ASSERT_TRUE(code);
    EXPECT_EQ(code->camera, 2);
}

}  // namespace
}  // namespace qv
