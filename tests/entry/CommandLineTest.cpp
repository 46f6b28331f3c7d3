// The command line as a user meets it: help and version without a display,
// `--` before a set folder named like an option, and the manual pages and
// completion, which must name every option the help lists.
#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "entry/Cli.h"
#include "entry/CommandLine.h"
#include "support/Fixtures.h"

namespace fs = std::filesystem;

namespace qv {
namespace {

// The executable as from a terminal with no graphical session.
test::ShellAnswer withoutDisplay(const std::string& args) {
    return test::runShell("env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM '" + std::string(QUORVEL_EXE) +
                          "' " + args);
}

// The options the help lists, each at the head of its own line.
std::set<std::string> optionsOfHelp(const std::string& help) {
    std::set<std::string> options;
    const std::regex row("^  (-h, )?(--[a-z-]+)");
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);) {
        std::smatch m;
        if (std::regex_search(line, m, row)) options.insert(m[2]);
    }
    return options;
}

TEST(CommandLine, HelpAndVersionAnswerWithoutADisplay) {
    const auto help = withoutDisplay("--help");
    EXPECT_EQ(help.status, 0);
    const auto listed = optionsOfHelp(help.out);
    // The options of the three modes, the run's and the window's, each with its own line.
    for (const char* option : {"--cli", "--selftest", "--help", "--version", "--drops", "--auto", "--montage",
                               "--range", "--effets", "--son-tout", "--son-camera", "--format", "--cadrage", "--mlt",
                               "--otio", "--video", "--codec", "--clips-drops", "--marges-drop", "--loudness",
                               "--open", "--demo", "--demo-son", "--tuto"})
        EXPECT_TRUE(listed.count(option)) << option << "\n" << help.out;
    const std::regex described("  -\\S.*\\S {2,}\\S.*");  // the option, a gap, its line of help
    std::istringstream lines(help.out);
    for (std::string line; std::getline(lines, line);)
        EXPECT_TRUE(line.rfind("  -", 0) != 0 || std::regex_match(line, described)) << line;

    // The same from the run's side, whatever else stands on the line.
    for (const char* args : {"-h", "--cli --help", "--cli dossier sortie.xml --codec vp9 --help"}) {
        const auto r = withoutDisplay(args);
        EXPECT_EQ(r.status, 0) << args;
        EXPECT_EQ(r.out, help.out) << args;
    }

    const auto version = withoutDisplay("--version");
    EXPECT_EQ(version.status, 0);
    EXPECT_TRUE(std::regex_match(version.out, std::regex("quorvel [0-9]+\\.[0-9]+(\\.[0-9]+)?\n"))) << version.out;
}

// A folder named like an option is a path once `--` has ended the options.
TEST(CommandLine, DoubleDashEndsTheOptions) {
    test::TempDir dir;
    fs::create_directory(dir / "--drops");
    const auto r = test::runShell("cd '" + dir.path().string() + "' && '" + std::string(QUORVEL_EXE) +
                                  "' --cli --montage 0:1 -- --drops --auto.xml");
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("Montage : 1 coupes"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("Drops : "), std::string::npos) << r.out;  // not taken for the option
    EXPECT_EQ(r.out.find("Auto : "), std::string::npos) << r.out;
    EXPECT_EQ(r.lastLine, "XML : --auto.xml");
    EXPECT_TRUE(fs::exists(dir / "--auto.xml"));
}

// Repeated, unknown and unfinished options are left out and said, the
// run goes on; values no run could use stop it before any work.
TEST(CommandLine, WhatIsLeftOutIsSaid) {
    const CommandLine line =
        CommandLine::read({"--cli", "set", "--format", "9:16", "out.xml", "--format", "1:1", "--zoom", "--range"});
    EXPECT_EQ(line.mode, CommandLine::Mode::cli);
    EXPECT_EQ(line.paths, (std::vector<std::string>{"set", "out.xml"}));
    EXPECT_EQ(line.format, "9:16");
    EXPECT_FALSE(line.range);
    EXPECT_EQ(line.warnings, (std::vector<std::string>{"Option sans valeur ignorée : --range",
                                                       "Option inconnue ignorée : --zoom",
                                                       "Option répétée ignorée : --format 1:1",
                                                       "Option ignorée sans --montage : --format"}));

    test::TempDir dir;
    for (auto [args, said] : std::initializer_list<std::pair<std::vector<std::string>, std::string>>{
             {{"--video", "v.mp4", "--codec", "vp9"}, "Valeur invalide pour --codec : « vp9 » (attendu : h264, hevc ou prores)\n"},
             {{"--video", "v.mp4", "--loudness", "5"}, "Valeur invalide pour --loudness : « 5 » (attendu : -14 ou -23)\n"},
             {{"--drops=oui"}, "L'option --drops ne prend pas de valeur : « --drops=oui »\n"}}) {
        std::vector<std::string> all = {dir.path().string(), (dir / "o.xml").string()};
        all.insert(all.end(), args.begin(), args.end());
        std::ostringstream out, err;
        EXPECT_EQ(CLI::run(all, out, err), 1) << said;
        EXPECT_EQ(out.str(), "") << said;  // not even the listing of the sources
        EXPECT_EQ(err.str(), said);
    }
    EXPECT_FALSE(fs::exists(dir / "o.xml"));
}

// The manual pages and the completion keep up with the options.
TEST(CommandLine, ManualPagesAndCompletionNameEveryOption) {
    const auto options = optionsOfHelp(CommandLine::help());
    ASSERT_GT(options.size(), 20u);
    const fs::path data = fs::path(QUORVEL_SOURCE_DIR) / "data";
    for (const fs::path& file : {data / "man" / "quorvel.1", data / "man" / "fr" / "quorvel.1"}) {
        std::string page = test::readText(file);
        for (size_t at = page.find("\\-"); at != std::string::npos; at = page.find("\\-", at))
            page.replace(at, 2, "-");
        for (const auto& option : options)
            EXPECT_TRUE(std::regex_search(page, std::regex("(^|[^-a-z])" + option + "([^-a-z]|$)")))
                << option << " absent de " << file;
    }
    const fs::path script = data / "completion" / "quorvel";
    EXPECT_EQ(test::runShell("bash -n '" + script.string() + "'").status, 0);
    const std::string completion = test::readText(script);
    for (const auto& option : options)
        EXPECT_TRUE(std::regex_search(completion, std::regex("[ '\n]" + option + "[ '\n]"))) << option;
}

}  // namespace
}  // namespace qv
