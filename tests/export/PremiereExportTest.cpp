#include <gtest/gtest.h>

#include <cmath>
#include <pugixml.hpp>
#include <set>

#include "export/PremiereExport.h"
#include "support/MontageSet.h"
#include "support/XmemlCheck.h"

namespace qv {
namespace {

using namespace PremiereExport;
using test::mediaFile;

MediaSource source(const std::string& name, SourceKind kind) { return {Uuid::make(), name, kind, {}, {}}; }

struct Parsed {
    pugi::xml_document doc;
    std::string text;
    std::string at(const char* xpath) const { return doc.select_node(xpath).node().text().get(); }
    size_t count(const char* xpath) const { return doc.select_nodes(xpath).size(); }
};

std::unique_ptr<Parsed> parse(std::string text) {
    auto p = std::make_unique<Parsed>();
    EXPECT_TRUE(p->doc.load_string(text.c_str(), pugi::parse_default | pugi::parse_doctype));
    p->text = std::move(text);
    return p;
}

TEST(PremiereExportRates, FramesRoundHalfAwayFromZeroAtRealRates) {
    EXPECT_EQ(frames(100, SequenceRate{30, true}.fps()), 2997);  // the real rate, not 30
    for (SequenceRate r : {SequenceRate{24, true}, SequenceRate{30, true}, SequenceRate{60, true}}) {
        int exactHalves = 0;
        for (int k = 0; k < 400; ++k) {
            double s = (k + 0.5) / r.fps();
            if (s * r.fps() != k + 0.5) continue;
            ++exactHalves;
            EXPECT_EQ(frames(s, r.fps()), k + 1);
            EXPECT_EQ(frames(-s, r.fps()), -(k + 1));
        }
        EXPECT_GT(exactHalves, 10);
    }

    EXPECT_EQ(SequenceRate::closest(0), (SequenceRate{25, false}));
    EXPECT_EQ(SequenceRate::closest(NAN), (SequenceRate{25, false}));
    EXPECT_EQ(SequenceRate::closest(23.98), (SequenceRate{24, true}));
    EXPECT_EQ(SequenceRate::closest(29.97), (SequenceRate{30, true}));
    EXPECT_EQ(SequenceRate::closest(59.94), (SequenceRate{60, true}));
    EXPECT_EQ(SequenceRate::closest(48), (SequenceRate{50, false}));
    EXPECT_EQ(SequenceRate::closest(24.5), (SequenceRate{24, false}));  // a tie keeps the earlier entry
}

TEST(PremiereExportRates, LanesDecideOverlapOnWholeFrames) {
    MediaItem m = mediaFile("/a.mov", 10, 2);
    auto at = [&](double start) { return ExportClip{m, 0, start, 0, 10, Uuid::make(), {}}; };
    SequenceRate r{25, false};
    EXPECT_TRUE(lanes({}, r).empty());
    EXPECT_EQ(lanes({at(9.99), at(0)}, r).size(), 1u);  // ends and begins on frame 250
    auto two = lanes({at(9.9), at(0), at(20)}, r);
    ASSERT_EQ(two.size(), 2u);
    EXPECT_EQ(two[0].size(), 2u);
    EXPECT_EQ(two[0][0].start, 0);
    EXPECT_EQ(two[1][0].start, 9.9);
}

// A full set: 8 cameras (one with overlapping files, one with a file without
// sound, one at another rate) and two recorders, mono and stereo.
struct SetFixture : ::testing::Test {
    std::vector<MediaSource> sources;
    SyncResult result;
    MediaItem silent, recorder, foreignRate;

    void SetUp() override {
        for (int c = 1; c <= 8; ++c) sources.push_back(source("Cam " + std::to_string(c), SourceKind::camera));
        sources.push_back(source("Son 1", SourceKind::audio));
        sources.push_back(source("Son 2", SourceKind::audio));
        auto place = [&](int s, MediaItem m, double start) {
            PlacedItem p;
            p.sourceIndex = s;
            p.item = std::move(m);
            p.start = start;
            result.placed.push_back(std::move(p));
        };
        place(0, mediaFile("/set/Cam 1/A.mov", 60, 2, 29.97), 0);
        place(0, mediaFile("/set/Cam 1/B.mov", 30, 2, 29.97), 50);
        place(1, silent = mediaFile("/set/Cam 2/muet.mov", 40, 0, 29.97), 5);
        place(2, foreignRate = mediaFile("/set/Cam 3/C.mp4", 40, 2, 25), 5);
        for (int c = 3; c < 8; ++c) place(c, mediaFile("/set/Cam/" + std::to_string(c) + ".mov", 30, 1), c);
        place(8, recorder = mediaFile("/set/Son 1/rec.wav", 90, 2), 0);
        place(9, mediaFile("/set/Son 2/rec.wav", 90, 1), 1);
    }
};

TEST_F(SetFixture, SynchroDocumentHoldsTogether) {
    auto x = parse(makeXML("Set", sources, result, {}, {}));
    EXPECT_EQ(x->count("//sequence/media/video/track"), 9u);  // Cam 1 takes two lanes
    EXPECT_EQ(x->at("//sequence/media/video/track[1]/clipitem/name"), "A.mov");
    EXPECT_EQ(x->at("//sequence/media/video/track[2]/clipitem/name"), "B.mov");
    // 25 fps covers the most camera time, though the first clip is at 29.97.
    EXPECT_EQ(x->at("/xmeml/sequence/rate/timebase"), "25");
    EXPECT_EQ(x->at("/xmeml/sequence/duration"), std::to_string(frames(91, 25)));

    // Lengths agree, files are defined once and every link resolves.
    const auto problems = test::xmemlProblems(x->text);
    EXPECT_TRUE(problems.empty()) << test::joined(problems);
    EXPECT_EQ(x->count("//clipitem/file/pathurl"), result.placed.size());  // one definition per file
    ASSERT_GT(x->count("//link/linkclipref"), 0u);

    // Recorders lead the sound; a stereo file fills a pair, both halves linked.
    EXPECT_EQ(x->at("//sequence/media/audio/track[1]/clipitem/name"), "rec.wav");
    EXPECT_NE(x->text.find(R"(<track currentExplodedTrackIndex="0" premiereTrackType="Stereo" totalExplodedTrackCount="2">)"),
              std::string::npos);
}

// A file a quarter frame into the set, whose length ends three quarters
// into a frame: its clip stops on the file's last whole frame, and so does
// the sequence, not one frame later where the rounded end of the set lies.
TEST(PremiereExportSequence, EndsWithItsLastClip) {
    std::vector<MediaSource> sources{source("Cam 1", SourceKind::camera)};
    SyncResult result;
    PlacedItem p;
    p.item = mediaFile("/set/Cam 1/a.mov", 10.03, 2);
    p.start = 0.01;
    result.placed.push_back(p);
    auto x = parse(makeXML("Set", sources, result, {}, {}));
    EXPECT_EQ(x->at("//sequence/media/video/track/clipitem/end"), "250");
    EXPECT_EQ(x->at("/xmeml/sequence/duration"), "250");
    EXPECT_EQ(x->at("/xmeml/sequence/duration"), x->at("//sequence/media/audio/track/clipitem/end"));
}

TEST_F(SetFixture, FilesKeepTheirOwnShape) {
    auto x = parse(makeXML("Set", sources, result, {}, {}));
    // A camera file without sound: no audio block, no audio clip, no link.
    pugi::xml_node silentClip = x->doc.select_node("//clipitem[name='muet.mov']").node();
    EXPECT_FALSE(silentClip.child("file").child("media").child("audio"));
    EXPECT_FALSE(silentClip.child("link"));
    EXPECT_EQ(x->count("//audio/track/clipitem[name='muet.mov']"), 0u);
    // A recorder's file: no picture, and the sequence's rate.
    pugi::xml_node rec = x->doc.select_node("//file[pathurl='file://localhost/set/Son%201/rec.wav']").node();
    EXPECT_FALSE(rec.child("media").child("video"));
    EXPECT_STREQ(rec.child("rate").child("ntsc").text().get(), "FALSE");
    EXPECT_EQ(rec.child("duration").text().as_llong(), frames(90, 25));
    // A camera at another rate keeps its own in its definition.
    pugi::xml_node foreign = x->doc.select_node("//file[name='A.mov']").node();
    EXPECT_STREQ(foreign.child("rate").child("timebase").text().get(), "30");
    EXPECT_STREQ(foreign.child("rate").child("ntsc").text().get(), "TRUE");
    EXPECT_EQ(foreign.child("duration").text().as_llong(), frames(60, 30000.0 / 1001));

    EXPECT_EQ(pathURL("/media/Set du soir/Caméra #1.mov"), "file://localhost/media/Set%20du%20soir/Cam%C3%A9ra%20%231.mov");
}

TEST_F(SetFixture, LevelsAndMutes) {
    std::map<Uuid, double> levels{{sources[0].id, 0}, {sources[8].id, 20}, {sources[9].id, -6}};
    auto x = parse(makeXML("Set", sources, result, levels, {sources[9].id}));
    EXPECT_EQ(x->count("//clipitem[name='A.mov']/filter"), 0u);
    EXPECT_EQ(x->at("//clipitem[file/@id=//file[pathurl='file://localhost/set/Son%201/rec.wav']/@id]/filter//value"),
              "3.98109");
    for (auto c : x->doc.select_nodes("//audio/track/clipitem[file/@id=//file[pathurl='file://localhost/set/Son%202/rec.wav']/@id]")) {
        EXPECT_STREQ(c.node().child("enabled").text().get(), "FALSE");
        EXPECT_STREQ(c.node().select_node("filter//value").node().text().get(), "0.50119");  // a dot under French
    }
}

TEST(PremiereExportRender, EmptySetGivesAValidSequence) {
    auto x = parse(makeXML("Vide", {}, {}, {}, {}));
    EXPECT_EQ(x->text.rfind(R"(<?xml version="1.0" encoding="UTF-8"?>)", 0), 0u);
    EXPECT_NE(x->text.find("<!DOCTYPE xmeml>"), std::string::npos);
    EXPECT_EQ(x->at("//samplecharacteristics/width"), "1920");
    EXPECT_EQ(x->at("//samplecharacteristics/height"), "1080");
    EXPECT_EQ(x->at("/xmeml/sequence/rate/timebase"), "25");
    EXPECT_EQ(x->at("/xmeml/sequence/duration"), "0");
    EXPECT_EQ(x->count("//track"), 0u);
}

TEST(PremiereExportRender, FadesAndMotionFilters) {
    std::vector<MediaSource> sources{source("Cam 1", SourceKind::camera)};
    MediaItem hd = mediaFile("/hd.mov", 20, 2), small = mediaFile("/small.mov", 20, 0, 25, 1280, 720);
    auto clip = [&](const MediaItem& m, double start, std::optional<ClipMotion> motion = {}) {
        return ExportClip{m, 0, start, 1, 4, Uuid::make(), motion};
    };
    EffectSettings fx;
    ResolvedEffect zoom, shake;
    zoom.zoom = 1;
    shake.shake = true;
    Track v;
    v.clips = {clip(hd, 0), clip(hd, 4), clip(small, 8), clip(hd, 12, ClipMotion{zoom, 12, 4}),
               clip(hd, 16, ClipMotion{shake, 16, 4})};
    Track a;
    a.kind = Kind::audio;
    a.clips = {clip(hd, 2)};
    a.fades = {{2, 2, "center"}, {2, 3, "start-black"}};
    auto write = [&](OutputFormat f, std::map<Uuid, CameraFrame> framing) {
        return parse(render("M", sources, {25, false}, {v}, {a}, 20, {}, {}, fx, f, framing));
    };

    auto x = write(OutputFormat::landscape, {});
    auto items = x->doc.select_nodes("//audio/track/*");
    EXPECT_STREQ(items[0].node().child("alignment").text().get(), "start-black");  // before the clip...
    EXPECT_STREQ(items[1].node().name(), "clipitem");
    EXPECT_STREQ(items[2].node().child("end").text().get(), "51");  // ...a zero fade still lasts a frame

    auto filters = [&](const Parsed& p, int i) {
        return p.doc.select_node(("//video/track/clipitem[" + std::to_string(i) + "]").c_str()).node().child("filter");
    };
    EXPECT_FALSE(filters(*x, 1));                                              // plain, same size
    EXPECT_STREQ(filters(*x, 3).select_node(".//value").node().text().get(), "150.000");  // 720p scaled up
    pugi::xml_node zoomFilter = filters(*x, 4);
    auto keys = zoomFilter.select_nodes(".//keyframe");
    ASSERT_GE(keys.size(), 2u);
    EXPECT_STREQ(keys[0].node().child("when").text().get(), "25");  // file frames: in = 1 s
    EXPECT_STREQ(keys[keys.size() - 1].node().child("when").text().get(), "125");
    EXPECT_STREQ(keys[keys.size() - 1].node().child("value").text().get(), "115.000");
    EXPECT_FALSE(zoomFilter.select_node(".//parameter[parameterid='center']"));
    EXPECT_TRUE(filters(*x, 5).select_node(".//parameter[parameterid='rotation']/keyframe"));
    EXPECT_TRUE(filters(*x, 5).select_node(".//parameter[parameterid='center']/keyframe/value/horiz"));

    x = write(OutputFormat::landscape, {{sources[0].id, CameraFrame{1.5, 0, -1}}});
    EXPECT_STREQ(filters(*x, 1).select_node(".//parameter[parameterid='scale']/value").node().text().get(), "150.000");
    EXPECT_STREQ(filters(*x, 1).select_node(".//vert").node().text().get(), "0.25000");

    x = write(OutputFormat::portrait, {});
    EXPECT_EQ(x->count("//video/track/clipitem/filter"), 5u);
    EXPECT_EQ(x->at("//format/samplecharacteristics/height"), "1920");
}

}  // namespace
}  // namespace qv
