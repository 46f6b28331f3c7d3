#include "diagnostics/Log.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>

#include "platform/Paths.h"
#include "platform/Process.h"
#include "support/TempHome.h"
#include "diagnostics/CrashHandler.h"

namespace fs = std::filesystem;

namespace {

const std::regex kLine(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d  .*\n)");

// A real fault at a known place, that no optimisation can see coming. The
// undefined-behaviour checker would stop at the store before the signal
// fires, so it is told to let this one through.
__attribute__((noinline, no_sanitize("undefined"))) void crashInHere() {
    static volatile uintptr_t nowhere = 0;
    *reinterpret_cast<volatile int*>(nowhere) = 1;
}

}  // namespace

TEST(Log, LinesGoIntoAFolderThatDidNotExistAndKeepTheirOrder) {
    TempHome home;
    ASSERT_FALSE(fs::exists(qv::Log::file().parent_path()));
    qv::Log::write("Ouverture de « Soirée »");
    qv::Log::write("ERREUR export : disque plein");
    qv::Log::flush();
    std::string text = TempHome::readText(qv::Log::file());
    size_t split = text.find('\n') + 1;
    EXPECT_TRUE(std::regex_match(text.substr(0, split), kLine)) << text;
    EXPECT_TRUE(text.substr(0, split).ends_with("  Ouverture de « Soirée »\n"));
    EXPECT_TRUE(text.substr(split).ends_with("  ERREUR export : disque plein\n"));
}

TEST(Log, AFileOverTheLimitRestarts) {
    TempHome home;
    const fs::path file = qv::Log::file();
    TempHome::writeText(file, std::string(qv::Log::sizeLimit, 'x'));
    qv::Log::write("encore");
    qv::Log::flush();
    const auto grown = fs::file_size(file);
    EXPECT_GT(grown, qv::Log::sizeLimit);
    const auto lineLength = grown - qv::Log::sizeLimit;

    TempHome::writeText(file, std::string(qv::Log::sizeLimit + 1, 'x'));
    qv::Log::write("encore");
    qv::Log::flush();
    EXPECT_EQ(fs::file_size(file), lineLength);
    EXPECT_TRUE(std::regex_match(TempHome::readText(file), kLine));
}

TEST(Log, OnlyARegularFileIsWrittenAndNothingElseBlocks) {
    TempHome home;
    const fs::path file = qv::Log::file();
    fs::create_directories(file.parent_path());
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    // No reader: opening the FIFO for writing would wait for one forever.
    qv::Log::write("personne n'écoute");
    qv::Log::flush();
    // A reader: the line must not go down the pipe either.
    int reader = ::open(file.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    qv::Log::write("quelqu'un écoute");
    qv::Log::flush();
    char byte;
    EXPECT_LT(::read(reader, &byte, 1), 1);
    ::close(reader);
    EXPECT_TRUE(fs::is_fifo(file));

    // A link to a device is no log file either; a regular one is written again.
    fs::remove(file);
    fs::create_symlink("/dev/null", file);
    qv::Log::write("vers /dev/null");
    qv::Log::flush();
    EXPECT_TRUE(fs::is_symlink(file));
    fs::remove(file);
    qv::Log::write("de retour");
    qv::Log::flush();
    EXPECT_TRUE(std::regex_match(TempHome::readText(file), kLine));
}

TEST(Log, ACrashIsAnnouncedByTheNextLaunchOnly) {
    TempHome home;
    const fs::path folder = qv::Log::crashFolder();
    TempHome::writeText(folder / "Quorvel-ancien.crash", "vieux");
    TempHome::writeText(folder / "Autre-programme.crash", "pas nous");

    // First launch ever: any report of ours counts, once.
    EXPECT_EQ(qv::Log::crashReportSinceLastLaunch(), folder / "Quorvel-ancien.crash");
    EXPECT_FALSE(qv::Log::crashReportSinceLastLaunch());

    // File times come from a coarse kernel clock that may lag the launch
    // date just stored by a tick: the launch goes a second back instead of
    // the test waiting for the clock.
    const auto stored = qv::paths::readSettings(qv::paths::settingsFile())["dernierLancement"].get<double>();
    qv::paths::writeSetting(qv::paths::settingsFile(), "dernierLancement", qv::json::Json(stored - 1));

    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        qv::CrashHandler handler;
        crashInHere();
        _exit(0);  // reached only if the handler swallowed the signal
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));  // the default action still ends the process
    EXPECT_EQ(WTERMSIG(status), SIGSEGV);

    auto report = qv::Log::crashReportSinceLastLaunch();
    ASSERT_TRUE(report);
    EXPECT_TRUE(report->filename().string().starts_with("Quorvel-"));
    EXPECT_TRUE(report->string().ends_with("-" + std::to_string(child) + ".crash"));
    std::string text = TempHome::readText(*report);
    EXPECT_NE(text.find("signal 11 (SIGSEGV)"), std::string::npos) << text;
    EXPECT_NE(text.find("Adresse : 0x0\n"), std::string::npos) << text;
    EXPECT_NE(text.find("Pile d'appels"), std::string::npos);
    EXPECT_FALSE(qv::Log::crashReportSinceLastLaunch());

    // The frames in this program, as addr2line reads them, name the
    // function that crashed and the test that called it.
    const std::string self = fs::read_symlink("/proc/self/exe").string();
    std::vector<std::string> args = {"-f", "-C", "-e", self};
    const std::regex frame("#\\d+ 0x[0-9a-f]+ (.+)\\+0x([0-9a-f]+)\n");
    for (std::sregex_iterator it(text.begin(), text.end(), frame), end; it != end; ++it)
        if ((*it)[1] == self) args.push_back("0x" + (*it)[2].str());
    ASSERT_GT(args.size(), 4u) << text;
    auto names = qv::process::run("/usr/bin/addr2line", args);
    ASSERT_TRUE(names.ok());
    EXPECT_NE(names->out.find("crashInHere"), std::string::npos) << names->out;
    EXPECT_NE(names->out.find("ACrashIsAnnouncedByTheNextLaunchOnly"), std::string::npos) << names->out;
}
