#include <gtest/gtest.h>

#include <pugixml.hpp>
#include <set>

#include "base/Text.h"
#include "export/PremiereExport.h"
#include "support/MontageSet.h"
#include "support/XmemlCheck.h"

namespace qv {
namespace {

using namespace PremiereExport;
using Mode = AudioSettings::Mode;

pugi::xml_document parse(const std::string& text) {
    pugi::xml_document doc;
    EXPECT_EQ(doc.load_string(text.c_str(), pugi::parse_full).status, pugi::status_ok);
    return doc;
}

std::string textAt(pugi::xml_node n, const char* xpath) { return n.select_node(xpath).node().text().get(); }

struct Montage : ::testing::Test, test::MontageSet {
    Montage() : MontageSet("Cam B", "/set/Cam A/A1.mov", "/set/Cam B/B.mov", "/set/Table/mix.wav") {}
    std::vector<Segment> plans = usualPlans();
    AudioSettings audio;
    ResolvedEffect effect;  // what every plan gets
    std::map<Uuid, CameraFrame> framing;
    OutputFormat format = OutputFormat::landscape;

    pugi::xml_document write(TimeRange range, std::set<Uuid> muted = {}, std::map<Uuid, double> levels = {}) {
        return parse(makeMontageXML("Set - MONTAGE", sources, result, plans, {0, 1}, range, levels, muted, audio, {},
                                    [&](const Segment&) { return effect; }, format, framing));
    }
};

TEST_F(Montage, FadesStayInsideTheExportAndOffTheTable) {
    for (Mode mode : AudioSettings::allModes)
        for (TimeRange range : {TimeRange{0, 60}, TimeRange{10, 50}}) {
            audio.mode = mode;
            auto doc = write(range);
            const long long last = doc.select_node("/xmeml/sequence/duration").node().text().as_llong();
            for (auto t : doc.select_nodes("//transitionitem")) {
                EXPECT_GT(t.node().child("start").text().as_llong(), 0);
                EXPECT_LT(t.node().child("end").text().as_llong(), last);
            }
            EXPECT_EQ(doc.select_nodes("//track[clipitem/name='mix.wav']/transitionitem").size(), 0u);
        }

    // Sound that follows the camera crosses over at each cut, except at 45 s,
    // where the outgoing file has no frame left.
    audio.mode = Mode::camera;
    std::multiset<long long> centres;
    auto crossed = write({0, 60});  // the document must outlive the loop over its nodes
    for (auto t : crossed.select_nodes("//transitionitem[alignment='center']"))
        centres.insert(t.node().child("start").text().as_llong());
    EXPECT_EQ(centres, (std::multiset<long long>{374, 374, 624, 624, 1374, 1374}));  // both halves of the pair
    audio.cutFade = false;
    EXPECT_EQ(write({0, 60}).select_nodes("//transitionitem").size(), 0u);

    // Every camera's own sound: lanes of its files, fades where a rush begins
    // or ends inside the export, never a cross-fade.
    audio.mode = Mode::all;
    auto doc = write({0, 60});
    EXPECT_EQ(doc.select_nodes("//audio/track").size(), 5u);  // table pair, A pair, B mono
    EXPECT_EQ(doc.select_nodes("//transitionitem[alignment='center']").size(), 0u);
    EXPECT_EQ(doc.select_nodes("//track[clipitem/name='A1.mov']/transitionitem").size(), 4u);  // A1 out, A2 in, x2
    EXPECT_EQ(textAt(doc, "//track[clipitem/name='B.mov']/transitionitem[alignment='end-black']/end"), "1450");
}

TEST_F(Montage, PictureAndFollowingSoundAreLinkedAndLevelsAddTheMaster) {
    audio.mode = Mode::table;
    audio.masterDb = 6;
    auto doc = write({0, 60}, {sources[0].id, sources[1].id}, {{sources[2].id, -6}});
    std::set<std::string> ids;
    for (auto c : doc.select_nodes("//clipitem")) {
        pugi::xml_node n = c.node();
        ids.insert(n.attribute("id").value());
        EXPECT_EQ(n.child("out").text().as_llong() - n.child("in").text().as_llong(),
                  n.child("end").text().as_llong() - n.child("start").text().as_llong());
    }
    for (auto l : doc.select_nodes("//linkclipref")) EXPECT_TRUE(ids.count(l.node().text().get()));
    for (auto v : doc.select_nodes("//video/track/clipitem")) EXPECT_EQ(v.node().select_nodes("link").size(), 3u);

    // The table plays at 0 dB (no filter); camera sound is present but off.
    for (auto c : doc.select_nodes("//audio/track/clipitem")) {
        bool table = std::string(c.node().child_value("name")) == "mix.wav";
        EXPECT_STREQ(c.node().child_value("enabled"), table ? "TRUE" : "FALSE");
        EXPECT_EQ(textAt(c.node(), "filter//value"), table ? "" : "1.99526");
    }

    audio.mode = Mode::all;  // the cameras' own sound has its own groups
    EXPECT_EQ(write({0, 60}).select_nodes("//video/track/clipitem/link").size(), 0u);
}

TEST_F(Montage, ARangeInsideAPlanKeepsThePlansWholeCurve) {
    effect.zoom = 1;
    auto doc = write({30, 40});  // inside the plan 25-45
    ASSERT_EQ(doc.select_nodes("//video/track/clipitem").size(), 1u);
    pugi::xml_node clip = doc.select_node("//video/track/clipitem").node();
    EXPECT_EQ(textAt(clip, "in"), "750");
    EXPECT_EQ(textAt(clip, "out"), "1000");
    auto keys = clip.select_nodes(".//parameter[parameterid='scale']/keyframe");
    ASSERT_GE(keys.size(), 2u);
    for (auto k : keys) {
        EXPECT_GE(k.node().child("when").text().as_llong(), 750);
        EXPECT_LE(k.node().child("when").text().as_llong(), 1000);
    }
    auto percent = [&](double u) { return cformat("%.3f", MotionFX::sample(effect, u, 20, {}).scale * 100); };
    EXPECT_EQ(textAt(keys.first().node(), "value"), percent(5));  // 5 s into the 20 s plan
    EXPECT_EQ(textAt(keys[keys.size() - 1].node(), "value"), percent(15));

    // A sliver of the next plan at the range's end makes no clip.
    EXPECT_EQ(write({30, 45.0005}).select_nodes("//video/track/clipitem").size(), 1u);
}

TEST_F(Montage, PortraitGivesEveryPlanItsOwnScaleAndCentre) {
    format = OutputFormat::portrait;
    framing = {{sources[0].id, {1, -1, 0}}, {sources[1].id, {1, 0.5, 0}}};
    auto doc = write({0, 60});
    EXPECT_EQ(textAt(doc, "//format/samplecharacteristics/width"), "1080");
    auto clips = doc.select_nodes("//video/track/clipitem");
    ASSERT_EQ(clips.size(), 5u);
    for (auto c : clips) {
        EXPECT_EQ(textAt(c.node(), ".//parameter[parameterid='scale']/value"), "177.778");
        bool camA = std::string(c.node().child_value("name")).starts_with("A");
        EXPECT_EQ(textAt(c.node(), ".//parameter[parameterid='center']/value/horiz"),
                  camA ? "1.08025" : "-0.54012");
    }
}

TEST(MontageTracks, OneVideoTrackPerCameraKeepsEmptyOnes) {
    std::vector<MediaSource> sources;
    SyncResult result;
    std::vector<Cut> cuts;
    const std::vector<int> used{0, 1, 3, 4, 6, 7};  // cameras 2 and 5 never shown
    for (int c = 0; c < 8; ++c) {
        sources.push_back({Uuid::make(), "Cam " + std::to_string(c), SourceKind::camera, {}, {}});
        MediaItem file = test::mediaFile("/set/c" + std::to_string(c) + ".mov", 60, c == 3 ? 0 : 2);
        result.placed.push_back({c, file, 0, {}, {}, false, {}, {}, {}});
    }
    for (size_t i = 0; i < used.size(); ++i) cuts.push_back({Uuid::make(), 10.0 * i, used[i], {}, {}});
    AudioSettings audio;
    audio.mode = Mode::camera;
    const std::string text = makeMontageXML("M", sources, result, Segment::build(cuts, 60), {0, 1, 2, 3, 4, 5, 6, 7},
                                            {0, 60}, {}, {}, audio, {}, {}, OutputFormat::landscape, {}, true);
    EXPECT_TRUE(test::xmemlProblems(text).empty()) << test::joined(test::xmemlProblems(text));
    auto doc = parse(text);
    auto tracks = doc.select_nodes("//sequence/media/video/track");
    ASSERT_EQ(tracks.size(), 8u);
    size_t total = 0;
    for (size_t t = 0; t < tracks.size(); ++t) {
        auto clips = tracks[t].node().select_nodes("clipitem");
        for (auto c : clips) EXPECT_EQ(std::string(c.node().child_value("name")), "c" + std::to_string(t) + ".mov");
        EXPECT_EQ(clips.size(), t == 2 || t == 5 ? 0u : 1u);
        total += clips.size();
    }
    EXPECT_EQ(total, 6u);
    EXPECT_EQ(doc.select_nodes("//audio/track[1]/clipitem").size(), 5u);  // the silent camera adds no sound
}

// A camera whose clock runs 1000 ppm fast: each plan takes its in-point
// from where the camera is at the plan's middle, 40 ms further into the
// file by 45 s than its start alone says.
TEST_F(Montage, DriftingCameraIsInStepAtEachPlansMiddle) {
    for (auto& p : result.placed)
        if (p.item.fileName() == "B.mov") p.drift = 1000.0;
    auto doc = write({0, 60});
    std::vector<long long> ins;
    for (auto c : doc.select_nodes("//video//clipitem"))
        if (std::string(c.node().child("name").text().get()) == "B.mov") ins.push_back(c.node().child("in").text().as_llong());
    // Plans 15-25 and 45-55: file times (20 - 5) x 1.001 - 5 s and (50 - 5) x 1.001 - 5 s, in frames.
    EXPECT_EQ(ins, (std::vector<long long>{std::llround((15 * 1.001 - 5) * 25), std::llround((45 * 1.001 - 5) * 25)}));
    EXPECT_EQ(ins.back(), 1001);  // 1000 without the drift

    const PlacedItem& b = result.placed[2];
    EXPECT_NEAR(b.lineTime(b.fileTime(30.0)), 30.0, 1e-9);
}

}  // namespace
}  // namespace qv
