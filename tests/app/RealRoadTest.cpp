// The whole road with the real parts: the multicam player reading the placed
// files and the render writing the finished video, on a small generated set.
#include <chrono>
#include <thread>

#include "Harness.h"
#include "app/MulticamAppPlayer.h"
#include "app/RenderVideoExporter.h"
#include "base/Text.h"
#include "edit/AutoEditor.h"
#include "platform/Process.h"

namespace qv::test {
namespace {

namespace fs = std::filesystem;

class RealRoadTest : public AppFixture {
protected:
    void SetUp() override {
        AppFixture::SetUp();
        render = std::make_shared<RenderVideoExporter>(main);
        model.reset();
        model = std::make_unique<AppModel>(AppModel::Services{main, dialogs, viewer, *settings,
                                                              MulticamAppPlayer::factory(), render, {}});
    }
    std::shared_ptr<RenderVideoExporter> render;
};

TEST_F(RealRoadTest, PlayerFollowsTheSyncAndTheExportWritesAVideo) {
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

    model->setCuts({cut(1, 1), cut(2.5, 0), cut(4, 1)});
    model->edit().setRange(0.5, 5);
    model->exportVideo();
    ASSERT_TRUE(render->isRunning());
    // The session reports through the main thread's timers: let them run.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(3);
    while (render->isRunning() && std::chrono::steady_clock::now() < deadline) {
        main.advance(0.25);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ASSERT_FALSE(render->isRunning());
    ASSERT_FALSE(model->errorMessage()) << *model->errorMessage();
    EXPECT_EQ(model->status().rfind("Vidéo exportée : ", 0), 0u) << model->status();
    ASSERT_EQ(viewer.shown.size(), 1u);
    const fs::path video = viewer.shown.back().front();
    EXPECT_EQ(video.extension(), ".mp4");
    EXPECT_EQ(ffprobe(video, "stream=codec_name"), "h264");
    EXPECT_NEAR(parseDouble(ffprobe(video, "format=duration")).value_or(0), 4.5, 0.1);
}

}  // namespace
}  // namespace qv::test
