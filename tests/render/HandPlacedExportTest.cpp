// A file placed by hand reaches what leaves the program: the montage XML
// lays its clip that many frames later, and the finished video shows the
// camera's pictures from its new place (read back by their frame codes).
#include <pugixml.hpp>

#include "app/Harness.h"
#include "render/RenderFixtures.h"

namespace qv::test {
namespace {

namespace fs = std::filesystem;

class HandPlacedExport : public AppFixture {
protected:
    const PlacedItem* placed(const std::string& source) const {
        for (const PlacedItem& p : model->result()->placed)
            if (model->sources()[size_t(p.sourceIndex)].name == source && p.item.hasVideo) return &p;
        return nullptr;
    }

    // Where the clip of `fileName` on the picture tracks would show its
    // first frame: its timeline start less its in point, in frames.
    static std::optional<long> origin(const std::string& xml, const std::string& fileName) {
        pugi::xml_document doc;
        if (!doc.load_string(xml.c_str(), pugi::parse_default | pugi::parse_doctype)) return std::nullopt;
        const auto clips = doc.select_nodes(("//video/track/clipitem[name='" + fileName + "']").c_str());
        if (clips.size() != 1) return std::nullopt;
        const pugi::xml_node c = clips.first().node();
        return c.child("start").text().as_llong() - c.child("in").text().as_llong();
    }
};

TEST_F(HandPlacedExport, TheXmlAndTheVideoShowTheFileWhereTheHandPutIt) {
    if (!haveFFmpeg()) GTEST_SKIP() << "ffmpeg missing";
    openSynced(generatedSet("tiny", 21));
    // The whole set on the second camera, plain: no zoom or look hides its frame codes.
    Cut plain = cutAt(0, 1, PlanEffect::none);
    plain.looks = {false, false, false};
    model->setCuts({plain});
    const PlacedItem* before = placed("Cam 2");
    ASSERT_TRUE(before);
    const double fps = before->item.frameRate;
    const double sound = before->start;
    const std::string name = before->item.fileName();
    const auto automatic = origin(*model->montageXML("main"), name);
    ASSERT_TRUE(automatic);

    // One second later, by hand.
    model->edit().placeByHand("Cam 2/" + name, sound + 1);
    main.drain();
    const PlacedItem* after = placed("Cam 2");
    ASSERT_TRUE(after && after->byHand);
    ASSERT_EQ(after->start, sound + 1);
    const auto moved = origin(*model->montageXML("main"), name);
    ASSERT_TRUE(moved);
    EXPECT_EQ(*moved - *automatic, std::lround(fps));

    // Two seconds of the video inside the moved file.
    const double from = sound + 2;
    model->edit().setRange(from, from + 2);
    settings->setExportTarget(ExportTarget::video);
    settings->setVideoCodec(VideoCodec::prores);
    model->exportMontage();
    ASSERT_TRUE(exporter->done);
    TempDir out;
    auto video = renderNow(exporter->job, VideoCodec::prores, out / "main.mov");
    ASSERT_TRUE(video.ok()) << video.error().message;
    // Every frame is the file's frame for its set time counted from the hand's start...
    EXPECT_EQ(checkFrameCodes(*video, exporter->job, from, std::lround(2 * fps), fps), 0);
    // ...which is a second of frames behind where the sound had put it.
    auto code = codeOf(frameAt(*video, 1 + 0.5 / fps));
    ASSERT_TRUE(code);
    EXPECT_EQ(code->camera, 2);
    EXPECT_NEAR(code->frame, (from + 1 - sound) * fps - fps, 1);
}

}  // namespace
}  // namespace qv::test
