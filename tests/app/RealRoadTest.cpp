// The real multicam player inside the application model, reading the files
// where the synchronisation placed them, on a small generated set. (The real
// render behind the export panel is the interface road's.)
#include "Harness.h"
#include "app/MulticamAppPlayer.h"
#include "edit/AutoEditor.h"

namespace qv::test {
namespace {

class RealRoadTest : public AppFixture {
protected:
    void SetUp() override {
        AppFixture::SetUp();
        model.reset();
        model = std::make_unique<AppModel>(AppModel::Services{main, dialogs, viewer, *settings,
                                                              MulticamAppPlayer::factory(), exporter, {}});
    }
};

TEST_F(RealRoadTest, PlayerFollowsTheSyncAndShowsTheFrameOfASeek) {
    openSynced(generatedSet("tiny", 21));
    auto* player = dynamic_cast<MulticamAppPlayer*>(model->player());
    ASSERT_TRUE(player);

    // Each angle is where the sync placed its camera's files.
    const auto ranges = AutoEditor::cameraRanges(*model->result(), model->cameraSources());
    ASSERT_EQ(player->angles().size(), ranges.size());
    ASSERT_GE(ranges.size(), 2u);
    for (size_t c = 0; c < ranges.size(); ++c) {
        EXPECT_EQ(player->angles()[c].ranges, ranges[c]) << "camera " << c;
        EXPECT_EQ(player->angles()[c].hasPicture, !ranges[c].empty());
    }

    // A seek shows, once the decoders have woken the main thread, the frame
    // of that time on a camera that films then.
    ASSERT_FALSE(ranges[0].empty());
    const double t = (ranges[0].front().start + ranges[0].front().end) / 2;
    // The new pictures reach the screens' repaint hook and change nothing of the project.
    int frames = 0, changes = 0;
    model->setOnFrames([&] { ++frames; });
    // (The picture analysis, still running in the background, reports on its own.)
    model->setOnChange([&](AppModel::Field f) { changes += f != AppModel::Field::pictures; });
    player->seek(t);
    player->engine().settle();
    ASSERT_TRUE(main.waitUntil([&] { return player->shownFrame(0) != nullptr; }, 30));
    EXPECT_GT(frames, 0);
    EXPECT_EQ(changes, 0);
    model->setOnChange({});
    auto frame = player->shownFrame(0);
    EXPECT_LE(frame->start, t);
    EXPECT_GT(frame->end, t);
    auto size = player->pictureSize(0);
    ASSERT_TRUE(size);
    EXPECT_GT(size->width, 0);
}

}  // namespace
}  // namespace qv::test
