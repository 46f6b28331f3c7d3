#include "persistence/AppSettings.h"

#include <gtest/gtest.h>

#include "support/TempHome.h"
#include "base/Json.h"
#include "platform/Paths.h"

namespace fs = std::filesystem;
using qv::AppSettings;

TEST(AppSettings, DefaultsThenEveryChangeIsWrittenAtOnce) {
    TempHome home;
    AppSettings fresh;
    EXPECT_TRUE(fresh.snapEnabled());
    EXPECT_FALSE(fresh.askWhereToSave());
    EXPECT_EQ(fresh.exportTarget(), qv::ExportTarget::premiere);
    EXPECT_EQ(fresh.videoCodec(), qv::VideoCodec::h264);
    EXPECT_FALSE(fresh.exportFolderPath());

    // A key written by someone else (the log's launch date) must survive.
    ASSERT_TRUE(qv::paths::writeSetting(qv::paths::settingsFile(), "dernierLancement", qv::json::Json(12.0)));
    fresh.setSnapEnabled(false);
    fresh.setVideoCodec(qv::VideoCodec::prores);
    fresh.setExportTarget(qv::ExportTarget::video);
    fresh.setExportFolderPath("/srv/exports");

    AppSettings again;
    EXPECT_FALSE(again.snapEnabled());
    EXPECT_EQ(again.videoCodec(), qv::VideoCodec::prores);
    EXPECT_EQ(again.exportTarget(), qv::ExportTarget::video);
    EXPECT_EQ(again.exportFolderPath(), "/srv/exports");
    auto stored = qv::paths::readSettings(qv::paths::settingsFile());
    EXPECT_EQ(stored["videoCodec"], "ProRes 422 (MOV)");
    EXPECT_EQ(stored["exportTarget"], "Vidéo finie");
    EXPECT_EQ(stored["dernierLancement"], 12.0);

    again.setExportFolderPath(std::nullopt);
    EXPECT_FALSE(qv::paths::readSettings(qv::paths::settingsFile()).contains("exportFolderPath"));
}

TEST(AppSettings, UnknownOrMistypedValuesReadAsDefaults) {
    TempHome home;
    TempHome::writeText(qv::paths::settingsFile(),
                        R"j({"videoCodec":"H.263 (3GP)","exportTarget":"Final Cut","snapEnabled":"oui",
                            "exportLUTs":false,"exportFolderPath":7})j");
    AppSettings s;
    EXPECT_EQ(s.videoCodec(), qv::VideoCodec::h264);
    EXPECT_EQ(s.exportTarget(), qv::ExportTarget::premiere);
    EXPECT_TRUE(s.snapEnabled());
    EXPECT_FALSE(s.exportLUTs());
    EXPECT_FALSE(s.exportFolderPath());
}

TEST(AppSettings, ExportFolderFallsBackToDownloads) {
    TempHome home;
    AppSettings s;
    EXPECT_EQ(s.exportFolder(), home.root() / "home/Downloads");

    TempHome::writeText(home.root() / "config/user-dirs.dirs",
                        "# written by xdg-user-dirs-update\nXDG_DOWNLOAD_DIR=\"$HOME/Téléchargements\"\n");
    EXPECT_EQ(s.exportFolder(), home.root() / "home/Téléchargements");

    fs::path chosen = home.root() / "Exports";
    fs::create_directories(chosen);
    s.setExportFolderPath(chosen.string());
    EXPECT_EQ(s.exportFolder(), chosen);
    fs::remove(chosen);  // a disk that went away
    EXPECT_EQ(s.exportFolder(), home.root() / "home/Téléchargements");
    EXPECT_EQ(AppSettings().exportFolderPath(), chosen.string());
}

TEST(AppSettings, UniqueNamesCountFromTwo) {
    TempHome home;
    AppSettings s;
    fs::path folder = home.root() / "Exports";
    fs::create_directories(folder);
    s.setExportFolderPath(folder.string());

    for (const char* expected : {"Set.xml", "Set 2.xml", "Set 3.xml"}) {
        fs::path next = s.uniqueURL("Set", "xml");
        EXPECT_EQ(next, folder / expected);
        EXPECT_FALSE(fs::exists(next));  // nothing is created
        TempHome::writeText(next, "x");
    }
}
