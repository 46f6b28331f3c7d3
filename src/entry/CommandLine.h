// Every option of the program, read in one place (CommandLine.cpp, with
// CLI11): the modes, the options of the run without a screen and those of
// the window. An option is one field here and one line in that file's
// `declare`, where its French help line stands too.
//
// Options may stand anywhere on the line, before the set folder too; `--`
// ends them, so that a folder named like an option can be given. What is
// not understood is left out and said in `warnings`; a value that no run
// could use is an `error`, told before any work.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace qv {

struct CommandLine {
    // Chosen in this order: help, version, the self check, the run without
    // a screen, the window.
    enum class Mode { application, cli, selftest, help, version };
    Mode mode = Mode::application;

    // --selftest [folder]: the folder of generated sets it checks.
    std::string fixtures = "Tests/Fixtures";

    // --cli <set folder> [<out.xml>]: the words that are not options, in order.
    std::vector<std::string> paths;
    bool drops = false;
    bool autoEdit = false;
    bool effects = false;
    bool soundAll = false;
    bool soundCamera = false;
    std::optional<std::string> montage;  // "t:cam,t:cam,..."
    std::optional<std::string> range;    // "a-b"
    std::optional<std::string> format;   // raw value of an output format
    std::optional<std::string> framing;  // --cadrage: a number
    std::optional<std::string> mlt;
    std::optional<std::string> otio;
    std::optional<std::string> video;
    std::string codec;                   // "h264", "hevc", "prores"; empty: from the file's extension
    std::optional<std::string> clipsFolder;
    std::optional<std::pair<double, double>> dropMargins;  // seconds before and after a drop
    std::optional<double> loudness;      // LUFS

    // The cameras' pictures: the set's rate (--rate, checked: "25",
    // "29.97df"...) and --cfr, constant-rate copies of variable-rate files.
    std::optional<std::string> rate;
    bool constantRate = false;

    // --sans-analyse: the automatic edits leave the pictures unlooked at.
    bool noAnalysis = false;

    // The window.
    std::optional<std::string> open;

    std::vector<std::string> warnings;  // one French line each, for standard error
    std::optional<std::string> error;   // one French line; nothing is run

    // `arguments` are the process's, without the program's name.
    static CommandLine read(const std::vector<std::string>& arguments);

    // The French help: every option on one line, for standard output.
    static std::string help();
    // "quorvel {version}".
    static std::string version();
};

}  // namespace qv
