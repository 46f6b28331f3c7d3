// The cameras' pictures in the timeline files: the set's rate is the one
// covering the most camera time, drop-frame only where the rate has it and
// the user asks; a camera's picture offset moves its picture and not its
// sound; a constant-rate copy stands in for a picture and nothing else; and
// fields and pixel shapes are written as probed.
#include <gtest/gtest.h>

#include <pugixml.hpp>

#include "export/MltExport.h"
#include "export/OtioExport.h"
#include "export/SetRate.h"
#include "support/MontageSet.h"
#include "support/TimelineCheck.h"
#include "support/XmemlCheck.h"

namespace qv {
namespace {

using namespace PremiereExport;

// A camera file with two channels of sound.
MediaItem camera(const std::string& path, double duration, double fps) { return test::mediaFile(path, duration, 2, fps); }

struct Set {
    std::vector<MediaSource> sources;
    SyncResult result;

    int add(const std::string& name, SourceKind kind) {
        sources.push_back({Uuid::make(), name, kind, {}, {}});
        return static_cast<int>(sources.size()) - 1;
    }
    PlacedItem& place(int source, MediaItem item, double start) {
        PlacedItem p;
        p.sourceIndex = source;
        p.item = std::move(item);
        p.start = start;
        result.placed.push_back(std::move(p));
        return result.placed.back();
    }
};

pugi::xml_document parsed(const std::string& text) {
    pugi::xml_document doc;
    EXPECT_TRUE(doc.load_string(text.c_str()));
    EXPECT_TRUE(test::xmemlProblems(text).empty()) << test::joined(test::xmemlProblems(text));
    return doc;
}

std::string at(const pugi::xml_document& doc, const char* xpath) { return doc.select_node(xpath).node().text().get(); }

// Seven 25 fps cameras and a 29.97 phone that starts first and films the
// longest single clip; a sound-only .mov of a recorder does not count.
Set usualSet() {
    Set s;
    const int phone = s.add("Cam 1", SourceKind::camera);
    s.place(phone, camera("/set/Cam 1/phone.mp4", 60, 29.97), 0);
    for (int c = 2; c <= 8; ++c)
        s.place(s.add("Cam " + std::to_string(c), SourceKind::camera),
                camera("/set/Cam " + std::to_string(c) + "/clip.mov", 40, 25), c);
    MediaItem sound = camera("/set/Son 1/rec.mov", 600, 30);
    sound.hasVideo = false;
    s.place(s.add("Son 1", SourceKind::audio), sound, 0);
    return s;
}

TEST(SetRate, TheRateCoveringTheMostCameraTimeNotTheFirstClips) {
    Set s = usualSet();
    const auto shares = rateShares(s.sources, s.result);
    ASSERT_EQ(shares.size(), 2u);
    EXPECT_EQ(shares[0].rate, (SequenceRate{25, false}));
    EXPECT_DOUBLE_EQ(shares[0].seconds, 280);
    EXPECT_EQ(setRate(s.sources, s.result), (SequenceRate{25, false}));
    // (The documents written at that rate, a montage opening on the phone
    // among them, are the generated "rates" set's in CameraPictureTest.)

    // Without any picture: 25.
    EXPECT_EQ(setRate({}, {}), (SequenceRate{25, false}));
}

TEST(SetRate, DropFrameOnlyAt2997And5994AndOnlyWhenChosen) {
    Set s = usualSet();
    for (const SequenceRate& r : rateTable) {
        for (bool asked : {false, true}) {
            const SequenceRate chosen = chosenRate(s.sources, s.result, SequenceRate{r.timebase, r.ntsc, asked});
            const bool drop = asked && r.ntsc && (r.timebase == 30 || r.timebase == 60);
            EXPECT_EQ(chosen.dropFrame, drop) << rateText(r);
            PictureChoices choices;
            choices.rate = chosen;
            auto doc = parsed(makeXML("Set", s.sources, s.result, {}, {}, choices));
            EXPECT_EQ(at(doc, "/xmeml/sequence/timecode/displayformat"), drop ? "DF" : "NDF") << rateText(r);
            EXPECT_EQ(at(doc, "/xmeml/sequence/rate/timebase"), std::to_string(r.timebase));
        }
        EXPECT_EQ(rateFromText(rateText(r)), r);
    }
    EXPECT_EQ(rateText({24, true}), "23.976");
    EXPECT_EQ(rateLabel({30, true}), "29,97 i/s");
    EXPECT_EQ(rateFromText(" 29,97"), (SequenceRate{30, true}));
    EXPECT_EQ(rateFromText("30000/1001"), (SequenceRate{30, true}));
    EXPECT_FALSE(rateFromText("26"));
    EXPECT_FALSE(rateFromText("vingt-cinq"));
    EXPECT_FALSE(rateFromText("25/0"));
}

TEST(PictureOffset, MovesTheCamerasPictureNotItsSound) {
    Set s;
    const int cam = s.add("Cam 1", SourceKind::camera);
    s.place(cam, camera("/set/Cam 1/late.mp4", 30, 25), 4).pictureOffset = 0.08;   // two frames later
    s.place(cam, camera("/set/Cam 1/early.mp4", 20, 25), 40).pictureOffset = 0.08;
    const int other = s.add("Cam 2", SourceKind::camera);
    s.place(other, camera("/set/Cam 2/first.mp4", 70, 25), 0).pictureOffset = -0.04;

    auto synchro = parsed(makeXML("Set", s.sources, s.result, {}, {}));
    EXPECT_EQ(at(synchro, "//video/track/clipitem[name='late.mp4']/start"), "102");
    EXPECT_EQ(at(synchro, "(//audio/track/clipitem[name='late.mp4'])[1]/start"), "100");
    // A picture moved before the sequence's start loses its first frame.
    EXPECT_EQ(at(synchro, "//video/track/clipitem[name='first.mp4']/start"), "0");
    EXPECT_EQ(at(synchro, "//video/track/clipitem[name='first.mp4']/in"), "1");

    // In a montage the plan [10, 20] on Cam 1 reads its picture two frames
    // back and its sound where it lies; both stay linked.
    const auto plans = test::plans({{0, 1}, {10, 0}, {20, 1}}, 60);
    AudioSettings follow;
    follow.mode = AudioSettings::Mode::camera;
    auto montage = parsed(makeMontageXML("Montage", s.sources, s.result, plans, {0, 1}, {0, 60}, {}, {}, follow, {}));
    pugi::xml_node picture = montage.select_node("//video/track/clipitem[name='late.mp4']").node();
    EXPECT_STREQ(picture.child("start").text().get(), "250");
    EXPECT_STREQ(picture.child("in").text().get(), "148");
    const std::string sound = at(montage, "//audio/track/clipitem[name='late.mp4']/in");
    EXPECT_EQ(sound, "150");
    EXPECT_EQ(picture.select_nodes("link").size(), 3u);  // the picture and a stereo pair
}

TEST(ConstantRateCopy, StandsInForThePictureOnly) {
    Set s;
    const int phone = s.add("Cam 1", SourceKind::camera);
    MediaItem vfr = camera("/set/Cam 1/phone.mp4", 30, 24.6);
    vfr.picture.frameSpread = 0.4;
    s.place(phone, vfr, 0);
    PictureChoices choices;
    choices.copies[vfr.url] = "/cache/phone copie.mp4";

    auto doc = parsed(makeXML("Set", s.sources, s.result, {}, {}, choices));
    pugi::xml_node picture = doc.select_node("//video/track/clipitem").node();
    const std::string copyId = picture.child("file").attribute("id").value();
    pugi::xml_node copy = doc.select_node(("//file[@id='" + copyId + "' and pathurl]").c_str()).node();
    EXPECT_STREQ(copy.child("pathurl").text().get(), "file://localhost/cache/phone%20copie.mp4");
    EXPECT_STREQ(copy.child("rate").child("timebase").text().get(), "25");
    EXPECT_FALSE(copy.child("media").child("audio"));
    // The sound still comes from the original, linked to the copy's picture.
    EXPECT_EQ(at(doc, "//audio/track/clipitem/file/pathurl"), "file://localhost/set/Cam%201/phone.mp4");
    EXPECT_EQ(picture.select_nodes("link").size(), 3u);

    const Timeline t = synchroTimeline(s.sources, s.result, {}, choices);
    std::vector<std::string> problems;
    const auto otio = test::readOtio(OtioExport::write("Set", s.sources, t, {}, {}), problems);
    EXPECT_TRUE(problems.empty()) << test::joined(problems);
    ASSERT_FALSE(otio.tracks.empty());
    EXPECT_EQ(test::urlPath(otio.tracks.front().items.front().url), "/cache/phone copie.mp4");
    const std::string mlt = MltExport::write("Set", s.sources, t, {}, {}, {});
    EXPECT_NE(mlt.find("/cache/phone copie.mp4"), std::string::npos);
    EXPECT_NE(mlt.find("/set/Cam 1/phone.mp4"), std::string::npos);
}

TEST(FilesOfCameras, FieldsAndPixelsAreWrittenAsProbed) {
    Set s;
    const int cam = s.add("Cam 1", SourceKind::camera);
    MediaItem mts = camera("/set/Cam 1/00001.MTS", 10, 25);
    mts.picture.fields = media::FieldOrder::topFirst;
    MediaItem hdv = camera("/set/Cam 1/clip 1.m2t", 10, 25);
    hdv.picture.pixelAspect = 4.0 / 3;  // 1440 stored, 1920 shown
    MediaItem pal = camera("/set/Cam 1/dv.dv", 10, 25);
    pal.picture.fields = media::FieldOrder::bottomFirst;
    pal.picture.pixelAspect = 64.0 / 45;
    pal.width = 1024;
    pal.height = 576;
    s.place(cam, mts, 0);
    s.place(cam, hdv, 20);
    s.place(cam, pal, 40);

    auto doc = parsed(makeXML("Set", s.sources, s.result, {}, {}));
    auto chars = [&](const char* name) {
        return doc.select_node((std::string("//file[name='") + name + "']/media/video/samplecharacteristics").c_str()).node();
    };
    EXPECT_STREQ(chars("00001.MTS").child("fielddominance").text().get(), "upper");
    EXPECT_STREQ(chars("00001.MTS").child("pixelaspectratio").text().get(), "square");
    EXPECT_STREQ(chars("clip 1.m2t").child("width").text().get(), "1440");
    EXPECT_STREQ(chars("clip 1.m2t").child("pixelaspectratio").text().get(), "HD-(1440x1080)");
    EXPECT_STREQ(chars("clip 1.m2t").child("fielddominance").text().get(), "none");
    EXPECT_STREQ(chars("dv.dv").child("width").text().get(), "720");
    EXPECT_STREQ(chars("dv.dv").child("pixelaspectratio").text().get(), "PAL-601");
    EXPECT_STREQ(chars("dv.dv").child("anamorphic").text().get(), "TRUE");
    EXPECT_STREQ(chars("dv.dv").child("fielddominance").text().get(), "lower");
    // The sequence is made of whole frames of square pixels.
    EXPECT_EQ(at(doc, "/xmeml/sequence/media/video/format/samplecharacteristics/fielddominance"), "none");
    EXPECT_EQ(at(doc, "/xmeml/sequence/media/video/format/samplecharacteristics/width"), "1920");

    const Timeline t = synchroTimeline(s.sources, s.result, {});
    const std::string mlt = MltExport::write("Set", s.sources, t, {}, {}, {});
    EXPECT_TRUE(test::mltProblems(mlt).empty()) << test::joined(test::mltProblems(mlt));
    EXPECT_NE(mlt.find(R"(<property name="force_tff">1</property>)"), std::string::npos);
    EXPECT_NE(mlt.find(R"(<property name="force_aspect_ratio">1.333333</property>)"), std::string::npos);
    const std::string otio = OtioExport::write("Set", s.sources, t, {}, {});
    EXPECT_NE(otio.find(R"("field_order": "upper")"), std::string::npos);
    EXPECT_NE(otio.find(R"("pixel_aspect_ratio": 1.3333)"), std::string::npos);
}

}  // namespace
}  // namespace qv
