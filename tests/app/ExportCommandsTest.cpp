#include "Harness.h"
#include "looks/CubeLUT.h"
#include "platform/Paths.h"
#include "support/TimelineCheck.h"
#include "support/XmemlCheck.h"

namespace qv::test {
namespace {

namespace fs = std::filesystem;

class ExportCommandsTest : public AppFixture {
protected:
    void SetUp() override {
        AppFixture::SetUp();
        openSynced(generatedSet("tiny", 21));
        model->setCuts({cut(3, 1), cut(8, 0)});
    }
};

TEST_F(ExportCommandsTest, SecondExportLandsBesideTheFirstAndNamesCarryRangeAndFormat) {
    model->exportMontage();
    model->exportMontage();
    EXPECT_TRUE(fs::exists(exports / "tiny-21 - MONTAGE.xml"));
    EXPECT_TRUE(fs::exists(exports / "tiny-21 - MONTAGE 2.xml"));
    EXPECT_EQ(model->status().rfind("Premiere Pro : 3 plans, ", 0), 0u) << model->status();
    EXPECT_NE(model->status().find(" · tiny-21 - MONTAGE 2.xml dans exports"), std::string::npos);
    EXPECT_EQ(viewer.shown.size(), 2u);

    EXPECT_EQ(model->exportBaseName(), "tiny-21 - MONTAGE");
    model->edit().setRange(5, 12.4);
    model->setFormat(OutputFormat::portrait);
    EXPECT_EQ(model->exportBaseName(), "tiny-21 - MONTAGE 0m05-0m12 9x16");

    settings->setExportTarget(ExportTarget::davinci);
    model->exportMontage();
    EXPECT_TRUE(fs::exists(exports / "tiny-21 - MONTAGE 0m05-0m12 9x16 (DaVinci).xml"));
    model->exportXML();
    EXPECT_TRUE(fs::exists(exports / "tiny-21 - SYNC.xml"));
    EXPECT_EQ(model->status(), "XML exporté : tiny-21 - SYNC.xml dans exports");
}

TEST_F(ExportCommandsTest, OnlyGradedCamerasGetACube) {
    model->exportMontage();
    size_t cubes = 0;
    for (auto& e : fs::directory_iterator(exports)) cubes += e.path().extension() == ".cube";
    EXPECT_EQ(cubes, 0u);

    ColorGrade warm = ColorGrade::neutral;
    warm.temperature = 30;
    warm.contrast = 20;
    model->setGrade(warm, 1);
    model->setGrade(ColorGrade::neutral, 0);
    model->exportMontage();
    const fs::path cube = exports / "tiny-21 - MONTAGE 2 - Cam 2.cube";
    ASSERT_TRUE(fs::exists(cube));
    EXPECT_FALSE(fs::exists(exports / "tiny-21 - MONTAGE 2 - Cam 1.cube"));
    EXPECT_NE(model->status().find(" + 1 LUT · "), std::string::npos) << model->status();
    EXPECT_EQ(viewer.shown.back().size(), 2u);
    // What another reader makes of the cube is GradeMathTest's.
    auto parsed = CubeLUT::parse(*paths::readFile(cube, limits::projectBytes));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->size, 33);

    settings->setExportLUTs(false);
    model->exportMontage();
    EXPECT_FALSE(fs::exists(exports / "tiny-21 - MONTAGE 3 - Cam 2.cube"));
}

// The timelines for the Linux editors: named as the XML exports, the MLT
// one grading each camera through the cube written beside it, the drops as
// markers, the synchro in the target's own form.
TEST_F(ExportCommandsTest, MltAndOtioTargetsWriteTheirFilesWithCubesAndDrops) {
    ColorGrade warm = ColorGrade::neutral;
    warm.temperature = 30;
    model->setGrade(warm, 1);
    settings->setExportTarget(ExportTarget::mlt);
    model->exportMontage();
    const fs::path mlt = exports / "tiny-21 - MONTAGE.mlt", cube = exports / "tiny-21 - MONTAGE - Cam 2.cube";
    ASSERT_TRUE(fs::exists(mlt));
    ASSERT_TRUE(fs::exists(cube));
    const std::string text = *paths::readFile(mlt, limits::projectBytes);
    EXPECT_TRUE(mltProblems(text).empty()) << joined(mltProblems(text));
    EXPECT_NE(text.find("<property name=\"av.file\">" + cube.string() + "</property>"), std::string::npos);
    EXPECT_EQ(model->status().rfind("Kdenlive / Shotcut (MLT) : 3 plans, ", 0), 0u) << model->status();
    EXPECT_NE(model->status().find(" + 1 LUT · tiny-21 - MONTAGE.mlt dans exports"), std::string::npos);

    settings->setExportTarget(ExportTarget::otio);
    model->exportMontage();
    std::vector<std::string> problems;
    const OtioTimeline read =
        readOtio(*paths::readFile(exports / "tiny-21 - MONTAGE.otio", limits::projectBytes), problems);
    EXPECT_TRUE(problems.empty()) << joined(problems);
    EXPECT_EQ(read.markers.size(), model->drops().size());
    ASSERT_FALSE(read.tracks.empty());
    EXPECT_EQ(read.tracks[0].kind, "Video");

    model->exportSynchro(ExportTarget::otio);
    EXPECT_TRUE(fs::exists(exports / "tiny-21 - SYNCHRO.otio"));
    EXPECT_EQ(model->status(), "Synchro exportée : tiny-21 - SYNCHRO.otio dans exports");
    model->exportSynchro(ExportTarget::mlt);
    EXPECT_TRUE(mltProblems(*paths::readFile(exports / "tiny-21 - SYNCHRO.mlt", limits::projectBytes)).empty());
}

// Without a chosen folder the export goes to the downloads folder, made
// when the account has none yet.
TEST_F(ExportCommandsTest, AMissingDownloadsFolderIsMade) {
    settings->setExportFolderPath("");
    const fs::path downloads = AppSettings::downloads();
    ASSERT_FALSE(fs::exists(downloads));
    model->exportMontage();
    EXPECT_FALSE(model->errorMessage()) << *model->errorMessage();
    EXPECT_TRUE(fs::exists(downloads / "tiny-21 - MONTAGE.xml"));
}

TEST_F(ExportCommandsTest, CancelledDialogWritesNothingAndAFailedWriteSaysWhy) {
    settings->setAskWhereToSave(true);
    const std::string status = model->status();
    dialogs.saves = {std::nullopt};
    model->exportMontage();
    EXPECT_TRUE(fs::is_empty(exports));
    EXPECT_EQ(model->status(), status);
    EXPECT_EQ(dialogs.saveMessages.back(), "Dans Premiere : Fichier › Importer, puis choisis ce XML.");

    dialogs.saves = {home.root() / "nulle part" / "x.xml"};
    model->exportMontage();
    ASSERT_TRUE(model->errorMessage());
    EXPECT_EQ(model->errorMessage()->rfind("Impossible d'enregistrer le XML : ", 0), 0u) << *model->errorMessage();
    EXPECT_GT(model->errorMessage()->size(), std::string("Impossible d'enregistrer le XML : ").size());
    EXPECT_EQ(model->status(), status);
}

TEST_F(ExportCommandsTest, VideoOutcomesReachStatusToastAndError) {
    settings->setExportTarget(ExportTarget::video);
    model->exportMontage();
    ASSERT_TRUE(exporter->done);
    EXPECT_EQ(model->status(), "Export vidéo en cours… (H.264 (MP4))");
    EXPECT_EQ(exporter->to, exports / "tiny-21 - MONTAGE.mp4");
    EXPECT_EQ(exporter->job.planEffects.size(), exporter->job.segments.size());
    EXPECT_EQ(exporter->job.segments.size(), 3u);
    exporter->done({VideoOutcome::Kind::success, {}});
    EXPECT_EQ(model->status(), "Vidéo exportée : tiny-21 - MONTAGE.mp4 dans exports");
    EXPECT_EQ(model->toast(), "Vidéo prête : tiny-21 - MONTAGE.mp4");

    settings->setVideoCodec(VideoCodec::prores);
    model->exportVideo();
    EXPECT_EQ(exporter->to.extension(), ".mov");
    exporter->done({VideoOutcome::Kind::cancelled, {}});
    EXPECT_EQ(model->status(), "Export vidéo annulé");
    EXPECT_FALSE(model->errorMessage());

    model->exportVideo();
    exporter->done({VideoOutcome::Kind::failure, "disque plein"});
    EXPECT_EQ(model->status(), "Export vidéo échoué");
    EXPECT_EQ(model->errorMessage(), "L'export vidéo a échoué : disque plein");
}

TEST_F(ExportCommandsTest, DropClipsKeepOrReplaceClipsOfTheSameNameAsTheSettingSays) {
    model->edit().setDrops({{0, 6, 0.9}});
    settings->setExportTarget(ExportTarget::dropClips);
    const fs::path older = exports / "tiny-21 - drop 1 (0:06).mp4";
    writeText(older, "le clip d'hier");
    // Each run is told at once that its one clip is done.
    auto exportClips = [&]() -> std::optional<fs::path> {
        exporter->done = nullptr;
        model->exportMontage();
        if (!exporter->done) return std::nullopt;
        auto done = std::move(exporter->done);
        exporter->done = nullptr;
        done({VideoOutcome::Kind::success, {}});
        return exporter->to;
    };

    // No dialog: as every export, beside the file already there.
    EXPECT_EQ(exportClips(), exports / "tiny-21 - drop 1 (0:06) 2.mp4");
    EXPECT_TRUE(dialogs.titles.empty());

    // With the dialog: the folder is asked, then what to do with the name.
    settings->setAskWhereToSave(true);
    dialogs.folders = {exports, exports, exports, std::nullopt};
    dialogs.alerts = {2, 1, 0};  // Annuler, Garder les deux, Remplacer
    EXPECT_EQ(exportClips(), std::nullopt);
    ASSERT_EQ(dialogs.titles.size(), 1u);
    EXPECT_EQ(dialogs.titles[0], "Un clip du même nom existe déjà");
    EXPECT_EQ(exportClips(), exports / "tiny-21 - drop 1 (0:06) 2.mp4");
    EXPECT_EQ(exportClips(), older);
    EXPECT_EQ(dialogs.titles.size(), 3u);
    // A cancelled folder panel asks nothing more and starts nothing.
    EXPECT_EQ(exportClips(), std::nullopt);
    EXPECT_EQ(dialogs.titles.size(), 3u);
    EXPECT_EQ(readText(older), "le clip d'hier");  // the exporter replaces it only once a clip is made
}

}  // namespace
}  // namespace qv::test
