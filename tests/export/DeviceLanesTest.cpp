// Devices as they write, in the timeline files: a lane per file of a take,
// named after its track, the mix heard and the others muted; the channels a
// track takes named in the xmeml's source tracks and in the MLT and OTIO
// track names; a camera's chapters end to end on one track.
#include <gtest/gtest.h>

#include <pugixml.hpp>

#include "base/Json.h"
#include "export/MltExport.h"
#include "export/OtioExport.h"
#include "export/PremiereExport.h"
#include "support/DevicesSet.h"
#include "support/XmemlCheck.h"

namespace qv {
namespace {

using PremiereExport::Kind;

TEST(DeviceLanes, EachTakeFileIsALaneOfItsOwnAndTheTracksNameTheirChannels) {
    const test::DevicesSet* d = test::DevicesSet::get();
    if (!d) GTEST_SKIP() << "generator or ffmpeg unavailable";
    const std::string xml = PremiereExport::makeXML("devices", d->sources, d->result, {}, {});
    EXPECT_EQ(test::joined(test::xmemlProblems(xml)), "");
    pugi::xml_document doc;
    ASSERT_TRUE(doc.load_string(xml.c_str()));

    // Audio clips of each take file: on tracks of their own, enabled for the mix only.
    std::map<std::string, std::set<int>> tracksOf;
    std::map<std::string, std::string> enabledOf;
    int index = 0;
    for (const auto& track : doc.select_nodes("//sequence/media/audio/track")) {
        ++index;
        for (const auto& clip : track.node().children("clipitem")) {
            const std::string name = clip.child_value("name");
            tracksOf[name].insert(index);
            enabledOf[name] = clip.child_value("enabled");
            const std::string channel = clip.child("sourcetrack").child_value("trackindex");
            if (name == "poly.wav") {
                EXPECT_EQ(channel, "4");
            }
            if (name == "C0001.MOV") {
                EXPECT_NE(channel, "1");
            }
        }
    }
    std::set<int> seen;
    for (const char* lane : {"LR", "Tr1", "Tr2", "LR-12"}) {
        const std::string name = std::string("ZOOM0001_") + lane + ".WAV";
        ASSERT_TRUE(tracksOf.count(name)) << name;
        for (int t : tracksOf[name]) EXPECT_TRUE(seen.insert(t).second) << name << " shares a track";
        EXPECT_EQ(enabledOf[name], std::string(lane) == "LR" ? "TRUE" : "FALSE") << name;
    }
    // The chapters follow one another on the camera's one track.
    for (const auto& track : doc.select_nodes("//sequence/media/video/track")) {
        int chapters = 0;
        for (const auto& clip : track.node().children("clipitem"))
            chapters += std::string(clip.child_value("name")).starts_with("GX0");
        EXPECT_TRUE(chapters == 0 || chapters == 3);
    }

    // MLT and OTIO name each lane after its track and the channel it takes.
    const auto timeline = PremiereExport::synchroTimeline(d->sources, d->result, {});
    std::set<std::string> names;
    int number = 0;
    for (const auto& t : timeline.audio)
        if (!PremiereExport::isSecondOfPair(t)) names.insert(PremiereExport::trackTitle(t, d->sources, ++number));
    for (const char* title : {"Son 2 LR", "Son 2 Tr1", "Son 2 Tr2", "Son 2 LR-12", "Son 5 (canal 4)", "Cam 2 (piste 2)"})
        EXPECT_TRUE(names.count(title)) << title;
    const std::string mlt = MltExport::write("devices", d->sources, timeline, {}, {}, {});
    EXPECT_NE(mlt.find("Son 2 Tr2"), std::string::npos);
    EXPECT_NE(mlt.find("channelcopy"), std::string::npos);  // channel 4 heard on both sides
    auto otio = json::parse(OtioExport::write("devices", d->sources, timeline, {}, {}));
    ASSERT_TRUE(otio);
    int muted = 0;
    for (const auto& track : (*otio)["tracks"]["children"])
        for (const auto& item : track["children"])
            muted += std::string(item.value("name", "")).starts_with("ZOOM0001_") && !item.value("enabled", true);
    EXPECT_EQ(muted, 3);
}

}  // namespace
}  // namespace qv
