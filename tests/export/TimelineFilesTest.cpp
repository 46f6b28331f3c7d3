// The MLT and OpenTimelineIO files of the synchro and of a montage, read
// back as their importers read them: the cuts come back, gaps stand only
// where the edit has no picture, the sound keeps its mutes, levels and
// fades, the drops are markers, and names that are hard for a file format
// (blanks, accents, quotes, bytes that are not UTF-8) survive.
#include <gtest/gtest.h>

#include <pugixml.hpp>

#include "base/Json.h"
#include "base/Text.h"
#include "export/MltExport.h"
#include "export/OtioExport.h"
#include "support/MontageSet.h"
#include "support/TimelineCheck.h"

namespace qv {
namespace {

using namespace PremiereExport;
using Mode = AudioSettings::Mode;

const std::string fileA1 = "/set/Cam A/l'été \"live\" & co.mov";
const std::string fileB = "/set/Cam B/b\xff\xfe caméra.mov";  // not UTF-8

// The montage set with a camera and files whose names are hard to write.
struct TimelineFiles : ::testing::Test, test::MontageSet {
    TimelineFiles() : MontageSet("Cam \xff B", fileA1, fileB, "/set/Table/mix 1.wav") {}
    AudioSettings audio;
    std::vector<TimelineMarker> drops{{12.5, "Drop 1"}, {37, "Drop 2 « fort »"}};  // on the timeline

    static std::vector<Segment> plans(const std::vector<std::pair<double, int>>& cuts) { return test::plans(cuts, 60); }
    Timeline montage(TimeRange range, std::vector<Segment> edit = {}, std::map<Uuid, double> levels = {}) {
        if (edit.empty()) edit = usualPlans();
        return montageTimeline(sources, result, edit, {0, 1}, range, levels, audio, {},
                               [](const Segment&) { return ResolvedEffect{}; }, false);
    }
    test::OtioTimeline otio(const Timeline& t, std::set<Uuid> muted = {}) {
        std::vector<std::string> problems;
        auto read = test::readOtio(OtioExport::write("Set l'été", sources, t, muted, drops), problems);
        EXPECT_TRUE(problems.empty()) << problems.front();
        return read;
    }
    pugi::xml_document mlt(const Timeline& t, std::set<Uuid> muted = {}, TimelineLook look = {}) {
        const std::string text = MltExport::write("Set l'été", sources, t, muted, look, drops);
        auto problems = test::mltProblems(text);
        EXPECT_TRUE(problems.empty()) << problems.front();
        pugi::xml_document doc;
        doc.load_string(text.c_str());
        return doc;
    }
    static std::string prop(pugi::xml_node n, const char* name) {
        return n.find_child_by_attribute("property", "name", name).text().get();
    }
};

TEST_F(TimelineFiles, AnOtioMontageGivesBackTheSameCutsWithGapsOnlyWhereNoCameraFilms) {
    for (TimeRange range : {TimeRange{10, 50}, TimeRange{0, 20}}) {
        // From 0 to 20 camera B comes first, and films only from 5 s.
        const Timeline t = range.start == 0 ? montage(range, plans({{0, 1}, {15, 0}})) : montage(range);
        const test::OtioTimeline read = otio(t);
        EXPECT_EQ(read.name, "Set l'été");
        EXPECT_EQ(read.rate, 25);
        ASSERT_EQ(read.tracks.size(), 3u);  // picture, the table's stereo, the sound that follows
        EXPECT_EQ(read.tracks[0].name, "Montage");
        EXPECT_EQ(read.tracks[1].name, "Table");
        EXPECT_EQ(read.tracks[2].name, "Son des caméras");

        // Every track gives back its clips frame for frame, gaps between them.
        std::vector<const Track*> tracks{&t.video[0]};
        for (const Track& a : t.audio)
            if (!isSecondOfPair(a)) tracks.push_back(&a);
        for (size_t k = 0; k < tracks.size(); ++k) {
            std::vector<test::OtioItem> clips;
            for (const auto& item : read.tracks[k].items)
                if (!item.gap) clips.push_back(item);
            ASSERT_EQ(clips.size(), tracks[k]->clips.size()) << "track " << k;
            for (size_t i = 0; i < clips.size(); ++i) {
                const ExportClip& c = tracks[k]->clips[i];
                const ClipFrames f = clipFrames(c, 25);
                EXPECT_EQ(clips[i].start, f.start);
                EXPECT_EQ(clips[i].duration, f.end - f.start);
                EXPECT_EQ(clips[i].in, f.in);
                EXPECT_EQ(test::urlPath(clips[i].url), c.item.url.string());  // every byte of the path
            }
        }
        const auto& picture = read.tracks[0];
        EXPECT_EQ(picture.length(), frames(range.end - range.start, 25));
        const int gaps = static_cast<int>(std::count_if(picture.items.begin(), picture.items.end(),
                                                        [](const test::OtioItem& i) { return i.gap; }));
        if (range.start == 0) {
            ASSERT_EQ(gaps, 1);
            EXPECT_TRUE(picture.items[0].gap);
            EXPECT_EQ(picture.items[0].duration, 125);  // camera B's first 5 s
        } else {
            EXPECT_EQ(gaps, 0);
        }
        // The markers inside the timeline.
        ASSERT_EQ(read.markers.size(), range.start == 0 ? 1u : 2u);
        EXPECT_EQ(read.markers[0].at, 313);
    }
}

TEST_F(TimelineFiles, MutedSoundIsADisabledClipAndAMutedTrack) {
    audio.mode = Mode::table;
    const std::set<Uuid> cameras{sources[0].id, sources[1].id};
    const Timeline t = montage({0, 60});
    const auto read = otio(t, cameras);
    for (const auto& item : read.tracks[1].items) EXPECT_TRUE(item.enabled);
    for (const auto& item : read.tracks[2].items) EXPECT_TRUE(item.gap || !item.enabled);

    auto doc = mlt(t, cameras);
    auto tracks = doc.select_nodes("/mlt/tractor/multitrack/track");
    ASSERT_EQ(tracks.size(), 4u);  // black, picture, table, following sound
    EXPECT_STREQ(tracks[1].node().attribute("hide").value(), "audio");
    EXPECT_STREQ(tracks[2].node().attribute("hide").value(), "video");
    EXPECT_STREQ(tracks[3].node().attribute("hide").value(), "both");
    // Every sound track is mixed into the output.
    EXPECT_EQ(doc.select_nodes("/mlt/tractor/transition[property[@name='mlt_service']='mix']").size(), 2u);
}

TEST_F(TimelineFiles, MltSoundKeepsLevelsAndFadesOnTheCameraSound) {
    audio.mode = Mode::camera;
    audio.cutFade = true;
    audio.rushFade = 1.0;
    const Timeline t = montage({0, 60}, {}, {{sources[2].id, 20}});
    auto doc = mlt(t);
    auto playlists = doc.select_nodes("/mlt/playlist[property[@name='shotcut:audio']]");
    ASSERT_EQ(playlists.size(), 2u);
    pugi::xml_node table = playlists[0].node(), following = playlists[1].node();
    EXPECT_EQ(prop(table, "kdenlive:track_name"), "Table");
    EXPECT_EQ(prop(table.child("entry").child("filter"), "level"), "12.000");  // +20 dB held at +12
    EXPECT_TRUE(table.select_node(".//filter[property[@name='kdenlive_id']='fadein']").node().empty());

    // At 15 s camera A's sound hands over to camera B's: one frame out, one in.
    std::vector<pugi::xml_node> entries;
    for (pugi::xml_node e : following.children("entry")) entries.push_back(e);
    ASSERT_EQ(entries.size(), 5u);
    auto fade = [&](pugi::xml_node e, const char* id) {
        return e.select_node((std::string(".//filter[property[@name='kdenlive_id']='") + id + "']").c_str()).node();
    };
    pugi::xml_node out = fade(entries[0], "fadeout"), in = fade(entries[1], "fadein");
    ASSERT_FALSE(out.empty());
    ASSERT_FALSE(in.empty());
    EXPECT_EQ(out.attribute("out").as_llong(), entries[0].attribute("out").as_llong());
    EXPECT_EQ(out.attribute("in").as_llong(), out.attribute("out").as_llong());
    EXPECT_EQ(in.attribute("in").as_llong(), entries[1].attribute("in").as_llong());
    EXPECT_TRUE(fade(entries[0], "fadein").empty());  // nothing rises at the very start
    // Camera A's first file ends on the cut at 45 s: no frame to cross with.
    EXPECT_TRUE(fade(entries[3], "fadein").empty());
}

TEST_F(TimelineFiles, MltTracksMarkersProfileAndHardNames) {
    TimelineLook look;
    look.format = OutputFormat::portrait;
    look.framing[sources[0].id] = CameraFrame{1.5, -1, 0};
    look.cubes[sources[1].id] = "/exports/Set - Cam \xff B.cube";
    auto doc = mlt(montage({10, 50}), {}, look);
    pugi::xml_node profile = doc.child("mlt").child("profile");
    EXPECT_STREQ(profile.attribute("width").value(), "1080");
    EXPECT_STREQ(profile.attribute("height").value(), "1920");
    EXPECT_STREQ(profile.attribute("display_aspect_num").value(), "9");
    EXPECT_STREQ(profile.attribute("display_aspect_den").value(), "16");
    EXPECT_STREQ(profile.attribute("frame_rate_num").value(), "25");

    // Names: kept when they are UTF-8, with U+FFFD for the bytes that are not.
    std::set<std::string> resources;
    for (auto p : doc.select_nodes("/mlt/producer[property[@name='mlt_service']='avformat']"))
        resources.insert(prop(p.node(), "resource"));
    EXPECT_TRUE(resources.count(fileA1));
    EXPECT_TRUE(resources.count("/set/Cam B/b\xEF\xBF\xBD\xEF\xBF\xBD caméra.mov"));
    EXPECT_EQ(doc.child("mlt").attribute("title").value(), std::string("Set l'été"));

    // Every picture is placed; the cropped camera's scale and the grade's LUT.
    for (auto e : doc.select_nodes("/mlt/playlist[property[@name='shotcut:video']]/entry")) {
        pugi::xml_node affine = e.node().select_node("filter[property[@name='mlt_service']='affine']").node();
        ASSERT_FALSE(affine.empty());
        const bool cameraA = e.node().attribute("producer").value() != std::string(
                                 doc.select_node("/mlt/producer[property[@name='resource']='/set/Cam B/b\xEF\xBF\xBD\xEF\xBF\xBD caméra.mov']")
                                     .node().attribute("id").value());
        const auto rect = split(prop(affine, "transition.rect"), ' ');
        ASSERT_EQ(rect.size(), 5u);
        EXPECT_NEAR(*parseDouble(rect[2]), 1920 * (1920.0 / 1080) * (cameraA ? 1.5 : 1), 0.01);
        if (cameraA) {
            EXPECT_NEAR(*parseDouble(rect[0]), 0, 0.01);  // the left edge kept
        }
        pugi::xml_node lut = e.node().select_node("filter[property[@name='mlt_service']='avfilter.lut3d']").node();
        EXPECT_EQ(lut.empty(), cameraA);
    }

    // Drops: Kdenlive guides and Shotcut markers, in frames of the range.
    auto guides = json::Json::parse(prop(doc.child("mlt").child("tractor"), "kdenlive:sequenceproperties.guides"));
    ASSERT_EQ(guides.size(), 2u);
    EXPECT_EQ(guides[0]["pos"], 313);
    EXPECT_EQ(guides[1]["comment"], "Drop 2 « fort »");
    EXPECT_EQ(doc.select_nodes("/mlt/tractor/properties[@name='shotcut:markers']/properties").size(), 2u);
    // Track titles for both editors; the program track holds both cameras.
    auto video = doc.select_node("/mlt/playlist[property[@name='shotcut:video']]").node();
    EXPECT_EQ(prop(video, "shotcut:name"), "Montage");
    EXPECT_EQ(prop(video, "kdenlive:track_name"), "Montage");
}

TEST_F(TimelineFiles, TheSynchroHasEverySourceOnItsOwnTracksInPlace) {
    const Timeline t = synchroTimeline(sources, result, {});
    auto doc = mlt(t);
    std::vector<std::string> titles;
    for (auto p : doc.select_nodes("/mlt/playlist[property[@name='shotcut:name']]"))
        titles.push_back(prop(p.node(), "shotcut:name"));
    const std::vector<std::string> want{"Cam A", "Cam \xEF\xBF\xBD B", "Table", "Cam A", "Cam \xEF\xBF\xBD B"};
    EXPECT_EQ(titles, want);
    // Camera B's picture starts after 5 s of blank; A's two files share a track.
    auto b = doc.select_nodes("/mlt/playlist[property[@name='shotcut:video']]")[1].node();
    EXPECT_EQ(b.child("blank").attribute("length").as_llong(), 125);
    auto a = doc.select_nodes("/mlt/playlist[property[@name='shotcut:video']]")[0].node();
    EXPECT_EQ(a.select_nodes("entry").size(), 2u);
    EXPECT_EQ(a.select_node("blank").node().attribute("length").as_llong(), 5 * 25);

    const auto read = otio(t);
    ASSERT_EQ(read.tracks.size(), 5u);
    EXPECT_EQ(read.tracks[1].items[0].duration, 125);
    EXPECT_EQ(read.tracks[1].items[1].duration, 53 * 25);
    EXPECT_EQ(read.markers.size(), 2u);
}

TEST_F(TimelineFiles, NtscRatesAreExactFractions) {
    for (PlacedItem& p : result.placed) p.item.frameRate = 29.97;
    const Timeline t = montage({0, 60});
    auto doc = mlt(t);
    EXPECT_STREQ(doc.child("mlt").child("profile").attribute("frame_rate_num").value(), "30000");
    EXPECT_STREQ(doc.child("mlt").child("profile").attribute("frame_rate_den").value(), "1001");
    EXPECT_NEAR(otio(t).rate, 30000.0 / 1001, 1e-9);
}

}  // namespace
}  // namespace qv
