// The command-line run end to end: modes, usage, the fixed-format report,
// the XML it writes, and the self check over generated sets.
#include <gtest/gtest.h>

#include <pugixml.hpp>

#include <cstdio>
#include <optional>
#include <regex>
#include <sstream>

#include "entry/Cli.h"
#include "entry/SelfTest.h"
#include "support/Fixtures.h"
#include "support/TimelineCheck.h"
#include "support/XmemlCheck.h"

namespace fs = std::filesystem;

namespace qv {
namespace {

struct Outcome {
    int status = 0;
    std::string out;
};

Outcome cli(const std::vector<std::string>& args) {
    std::ostringstream out;
    int status = CLI::run(args, out);
    return {status, out.str()};
}

// Runs the real executable through the shell, for what only main decides.
test::ShellAnswer program(const std::string& args) { return test::runShell(std::string(QUORVEL_EXE) + " " + args); }

// A written timeline passes the shared xmeml checks and defines each of
// its `mediaFiles` files once.
void expectSoundTimeline(const fs::path& xmlFile, size_t mediaFiles) {
    const std::string text = test::readText(xmlFile);
    const auto problems = test::xmemlProblems(text);
    EXPECT_TRUE(problems.empty()) << test::joined(problems);
    pugi::xml_document doc;
    doc.load_string(text.c_str());
    EXPECT_EQ(doc.select_nodes("//file[pathurl]").size(), mediaFiles);
}

TEST(Cli, ModesAndUsage) {
    for (const char* args : {"--cli", "--cli seul"}) {
        auto r = program(args);
        EXPECT_EQ(r.status, 1) << args;
        EXPECT_EQ(r.out, "Usage : Quorvel --cli <dossier du set> <sortie.xml>\n") << args;
    }
    // The self check wins, and takes "--cli" as its fixtures folder.
    auto self = program("--selftest --cli x y");
    EXPECT_NE(self.out.find("Aucun set de référence dans --cli"), std::string::npos) << self.out;
    EXPECT_EQ(self.status, 0) << self.out;
    // Its own checks ran, and all passed.
    EXPECT_TRUE(std::regex_match(test::lastLine(self.out), std::regex("[1-9][0-9]* passed, 0 failed"))) << self.out;
}

TEST(Cli, AnEmptyFolderWritesAnEmptyTimeline) {
    test::TempDir dir;
    fs::create_directories(dir / "set");
    Outcome r = cli({(dir / "set").string(), (dir / "out.xml").string()});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind("Synchro en ", 0), 0u) << r.out;  // no source line before it
    EXPECT_EQ(test::lastLine(r.out), "XML : " + (dir / "out.xml").string());
    expectSoundTimeline(dir / "out.xml", 0);
}

TEST(Cli, GeneratedSetRunsTheWholeRoad) {
    fs::path set = test::generatedSet("hard", 3);
    if (set.empty()) GTEST_SKIP() << "generator unavailable";
    test::TempDir dir;
    std::ostringstream out, err;
    ASSERT_EQ(CLI::run({set.string(), (dir / "sync.xml").string(), "--drops"}, out, err), 0) << out.str();
    const std::string text = out.str();
    EXPECT_NE(text.find("\nDrops : "), std::string::npos);
    // The report's lines keep their fixed shape for the scripts that read
    // them; drifts and reasons go to standard error.
    const std::regex placed("  .{8,} .{22,} début [ 0-9.-]{9} s  fiabilité (réf|[0-9]+\\.[0-9])( AMBIGU)?  \\(calé sur .+\\)");
    const std::regex aside("  NON CALÉ : [^/]+ / [^()]+");
    size_t placedLines = 0, asideLines = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.find(" début ") != std::string::npos) {
            ++placedLines;
            EXPECT_TRUE(std::regex_match(line, placed)) << line;
        }
        if (line.rfind("  NON CALÉ : ", 0) == 0) {
            ++asideLines;
            EXPECT_TRUE(std::regex_match(line, aside)) << line;
        }
    }
    EXPECT_GT(placedLines, 1u);
    EXPECT_GT(asideLines, 0u);
    EXPECT_EQ(text.find("dérive"), std::string::npos);
    EXPECT_NE(err.str().find(" non calé : "), std::string::npos) << err.str();
    expectSoundTimeline(dir / "sync.xml", placedLines);
}

TEST(Cli, MontageAndAutoOnAShortSet) {
    fs::path set = test::generatedSet("tiny", 3);
    if (set.empty()) GTEST_SKIP() << "generator unavailable";
    test::TempDir dir;
    const std::string out = (dir / "m.xml").string();

    // Under 30 s there are no drops, so nothing is "after a drop". The
    // pictures are looked at first, and the automatic edit is written as
    // the montage; without the analysis, the same edit is written unlooked.
    Outcome autoRun = cli({set.string(), out, "--auto"});
    EXPECT_NE(autoRun.out.find(" · moy. après drop : 0.0 s\n"), std::string::npos) << autoRun.out;
    EXPECT_NE(autoRun.out.find("\nAnalyse des images : "), std::string::npos) << autoRun.out;
    EXPECT_NE(autoRun.out.find("\nMontage : "), std::string::npos) << autoRun.out;
    EXPECT_NE(test::readText(out).find(set.filename().string() + " - MONTAGE"), std::string::npos);
    Outcome blind = cli({set.string(), out, "--auto", "--sans-analyse"});
    EXPECT_EQ(blind.out.find("Analyse des images"), std::string::npos) << blind.out;
    EXPECT_NE(blind.out.find("\nMontage : "), std::string::npos) << blind.out;

    // A piece without a colon is skipped; a reversed range means the whole set.
    Outcome m = cli({set.string(), out, "--montage", "2:1,zut,6:2", "--range", "30-20", "--effets", "--son-camera",
                     "--format", "9:16", "--cadrage", "0.5"});
    ASSERT_EQ(m.status, 0) << m.out;
    EXPECT_NE(m.out.find("Montage : 2 coupes, plage 0-"), std::string::npos) << m.out;
    const auto problems = test::xmemlProblems(test::readText(out));
    EXPECT_TRUE(problems.empty()) << test::joined(problems);
    pugi::xml_document doc;
    ASSERT_TRUE(doc.load_file(out.c_str(), pugi::parse_default | pugi::parse_doctype));
    EXPECT_EQ(std::string(doc.select_node("//sequence/name").node().text().get()), set.filename().string() + " - MONTAGE");
    EXPECT_EQ(doc.select_node("//sequence//samplecharacteristics/width").node().text().as_int(), 1080);
    EXPECT_FALSE(doc.select_nodes("//link/linkclipref").empty());

    // Every camera's own sound and no linked cut sound, unless "camera" also stands.
    cli({set.string(), out, "--montage", "9:1,12:2,14:1", "--son-tout"});
    doc.load_file(out.c_str());
    size_t allModeLinks = doc.select_nodes("//clipitem[link]").size();
    cli({set.string(), out, "--montage", "9:1,12:2,14:1", "--son-tout", "--son-camera"});
    doc.load_file(out.c_str());
    EXPECT_GT(doc.select_nodes("//clipitem[link]").size(), allModeLinks);
    EXPECT_FALSE(doc.select_nodes("//transitionitem[alignment='center']").empty());
}

// --mlt and --otio beside the xmeml, or instead of it with the folder
// alone; a file that is not a timeline is never replaced.
TEST(Cli, TimelinesForTheOtherEditorsBesideOrInsteadOfTheXml) {
    fs::path set = test::generatedSet("tiny", 3);
    if (set.empty()) GTEST_SKIP() << "generator unavailable";
    test::TempDir dir;
    const std::string xml = (dir / "m.xml").string(), mlt = (dir / "m é.mlt").string(), otio = (dir / "m.otio").string();

    Outcome beside = cli({set.string(), xml, "--montage", "2:1,6:2", "--format", "9:16", "--mlt", mlt, "--otio", otio});
    ASSERT_EQ(beside.status, 0) << beside.out;
    EXPECT_TRUE(fs::exists(xml));
    EXPECT_NE(beside.out.find("MLT : " + mlt + "\n"), std::string::npos) << beside.out;
    EXPECT_NE(beside.out.find("OTIO : " + otio + "\n"), std::string::npos) << beside.out;
    const std::string text = test::readText(mlt);
    EXPECT_TRUE(test::mltProblems(text).empty()) << test::joined(test::mltProblems(text));
    EXPECT_NE(text.find("title=\"" + set.filename().string() + " - MONTAGE\""), std::string::npos);
    EXPECT_NE(text.find("width=\"1080\""), std::string::npos);

    fs::remove(xml);
    Outcome instead = cli({set.string(), "--otio", otio});
    ASSERT_EQ(instead.status, 0) << instead.out;
    EXPECT_FALSE(fs::exists(xml));
    std::vector<std::string> otioProblems;
    const auto read = test::readOtio(test::readText(otio), otioProblems);
    EXPECT_TRUE(otioProblems.empty()) << test::joined(otioProblems);
    EXPECT_EQ(read.name, set.filename().string() + " - SYNCHRO");

    test::writeText(dir / "notes.txt", "à garder");
    Outcome refused = cli({set.string(), "--otio", (dir / "notes.txt").string()});
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(fs::exists(dir / "notes.txt"));
    EXPECT_EQ(cli({set.string()}).status, 1);  // neither xmeml nor timeline: the usage
}

// The set's rate is said and applied; the phone's variable-rate clip is
// named, and with --cfr its copy is made once and pointed at.
TEST(Cli, RateAndConstantRateCopies) {
    fs::path set = test::generatedSet("rates", 1);
    if (set.empty()) GTEST_SKIP() << "generator unavailable";
    test::TempDir dir;
    const char* before = std::getenv("XDG_CACHE_HOME");
    const std::optional<std::string> saved = before ? std::optional<std::string>(before) : std::nullopt;
    ::setenv("XDG_CACHE_HOME", (dir / "cache").c_str(), 1);
    const std::string xml = (dir / "s.xml").string(), otio = (dir / "s.otio").string();
    std::ostringstream out, err;
    const int status = CLI::run({set.string(), xml, "--rate", "29.97df", "--cfr", "--otio", otio}, out, err);
    if (saved) ::setenv("XDG_CACHE_HOME", saved->c_str(), 1);
    else ::unsetenv("XDG_CACHE_HOME");
    ASSERT_EQ(status, 0) << out.str() << err.str();
    EXPECT_NE(out.str().find("Cadence : 29,97 i/s (choisie), drop-frame\n"), std::string::npos) << out.str();
    EXPECT_NE(out.str().find("Copies à cadence fixe : 1 sur 1 dans " + (dir / "cache" / "quorvel" / "cadence-fixe").string()),
              std::string::npos) << out.str();
    EXPECT_NE(err.str().find("Fichier à cadence variable : Cam 1/clip 2.mp4\n"), std::string::npos) << err.str();

    const std::string text = test::readText(xml);
    EXPECT_TRUE(test::xmemlProblems(text).empty()) << test::joined(test::xmemlProblems(text));
    EXPECT_NE(text.find("<displayformat>DF</displayformat>"), std::string::npos);
    EXPECT_NE(text.find("/cache/quorvel/cadence-fixe/"), std::string::npos);
    std::vector<std::string> problems;
    EXPECT_NEAR(test::readOtio(test::readText(otio), problems).rate, 30000.0 / 1001, 1e-9);
}

TEST(Cli, AutoLeavesNoPlanWithoutPictureWhereCamerasFilmThroughout) {
    fs::path set = test::generatedSet("covered", 3);
    if (set.empty()) GTEST_SKIP() << "generator unavailable";
    test::TempDir dir;
    Outcome r = cli({set.string(), (dir / "a.xml").string(), "--auto"});
    EXPECT_NE(r.out.find(" · même caméra 2 fois de suite : 0 · plan sans image : 0 · "), std::string::npos) << r.out;
}

// The self check's own verdict on generated sets: placement within a
// millisecond (two when filtered), hard cases set aside, drops, XML.
class SelfCheck : public ::testing::TestWithParam<const char*> {};

TEST_P(SelfCheck, GeneratedSetPassesEveryCheck) {
    fs::path set = test::generatedSet(GetParam(), 3);
    if (set.empty()) GTEST_SKIP() << "generator unavailable";
    for (const auto& c : SelfTest::checkSet(set)) EXPECT_TRUE(c.passed) << c.name << " : " << c.detail;
}

INSTANTIATE_TEST_SUITE_P(Presets, SelfCheck, ::testing::Values("tiny", "test", "hard", "drops"));

}  // namespace
}  // namespace qv
