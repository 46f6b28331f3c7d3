#include "diagnostics/Log.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <thread>

#include "support/TempHome.h"
#include "diagnostics/CrashHandler.h"

namespace fs = std::filesystem;

namespace {

const std::regex kLine(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d  .*\n)");

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

TEST(Log, ACrashIsAnnouncedByTheNextLaunchOnly) {
    TempHome home;
    const fs::path folder = qv::Log::crashFolder();
    TempHome::writeText(folder / "Quorvel-ancien.crash", "vieux");
    TempHome::writeText(folder / "Autre-programme.crash", "pas nous");

    // First launch ever: any report of ours counts, once.
    EXPECT_EQ(qv::Log::crashReportSinceLastLaunch(), folder / "Quorvel-ancien.crash");
    EXPECT_FALSE(qv::Log::crashReportSinceLastLaunch());

    // File times come from a coarse kernel clock that may lag the launch
    // date we just stored by a tick.
    std::this_thread::sleep_for(std::chrono::milliseconds(30));

    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        qv::CrashHandler handler;
        raise(SIGSEGV);
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
    EXPECT_NE(text.find("Pile d'appels :\n"), std::string::npos);
    EXPECT_GT(std::count(text.begin(), text.end(), '\n'), 6);  // some frames follow
    EXPECT_FALSE(qv::Log::crashReportSinceLastLaunch());
}
