// The cameras' pictures as the model keeps them: a picture offset held
// within ten frames, laid on the placement the player and exports read and
// stored in the project; the set's rate and drop-frame chosen, written in
// the exports and read back with the project.
#include "Harness.h"
#include "support/XmemlCheck.h"

namespace qv::test {
namespace {

namespace fs = std::filesystem;

class PictureCommandsTest : public AppFixture {};

TEST_F(PictureCommandsTest, OffsetsAndTheRateReachThePlacementTheExportsAndTheProject) {
    const fs::path set = copySet("tiny", 21, "set");
    ASSERT_FALSE(set.empty());
    openSynced(set);
    const double frame = 1 / model->cameraFrameRate(1);

    model->setPictureOffset(1, 1.0);  // far beyond ten frames
    EXPECT_NEAR(model->pictureOffset(1), 10 * frame, 1e-12);
    for (const PlacedItem& p : model->result()->placed)
        EXPECT_EQ(p.pictureOffset, p.sourceIndex == model->cameraSources()[1] ? model->pictureOffset(1) : 0.0);
    model->setPictureOffset(0, -AppModel::offsetForDistance(17.15));
    EXPECT_NEAR(model->pictureOffset(0), -0.05, 1e-9);

    model->setFrameRateChoice(PremiereExport::SequenceRate{30, true});
    model->setDropFrame(true);
    model->setCuts({cut(3, 1), cut(8, 0)});
    model->exportMontage();
    const std::string xml = readText(exports / "set - MONTAGE.xml");
    EXPECT_TRUE(xmemlProblems(xml).empty()) << joined(xmemlProblems(xml));
    EXPECT_NE(xml.find("<displayformat>DF</displayformat>"), std::string::npos);
    EXPECT_EQ(xml.substr(xml.find("<timebase>"), 23), "<timebase>30</timebase>");

    main.advance(3);
    ASSERT_TRUE(stored());
    EXPECT_EQ(stored()->frameRate, "29.97");
    EXPECT_TRUE(stored()->dropFrame);
    EXPECT_NEAR(stored()->pictureOffsets.at("Cam 1"), -0.05, 1e-12);

    // Reopened, the set has them back.
    makeModel();
    openSynced(set);
    EXPECT_NEAR(model->pictureOffset(1), 10 * frame, 1e-12);
    EXPECT_EQ(model->frameRate(), (PremiereExport::SequenceRate{30, true, true}));
}

}  // namespace
}  // namespace qv::test
