// The real program in a child process, editing by itself (--test-edits) on
// the offscreen platform, killed with SIGKILL at random moments, some of
// them right when its autosave falls due. After each kill the project file
// must read, and hold every edit that was followed by a quiet spell longer
// than the autosave delay plus the time a save takes: the file is never
// older than the last edit by more than that. The next run reopens it and goes on.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <random>
#include <sstream>

#include <gtest/gtest.h>

#include "persistence/ProjectStore.h"
#include "support/Fixtures.h"
#include "support/TempHome.h"

extern char** environ;

namespace qv::test {
namespace {

namespace fs = std::filesystem;

double unixSeconds() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// What a write may add to the autosave delay: the save itself (its fsync can
// take most of a second while other jobs fill the disk), the timer's lateness
// on a busy machine and the pipe that tells us. The run prints the longest
// lateness it saw.
constexpr double autosave = 1.5;
constexpr double writeAllowance = 1.5;

struct Child {
    pid_t pid = -1;
    int out = -1;
    std::string pending;

    bool start(const fs::path& set) {
        int pipeFds[2];
        if (::pipe2(pipeFds, O_CLOEXEC) != 0) return false;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, pipeFds[1], 1);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        std::vector<std::string> args{QUORVEL_EXE, "--open", set.string(), "--test-edits"};
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        int rc = posix_spawn(&pid, QUORVEL_EXE, &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(pipeFds[1]);
        out = pipeFds[0];
        return rc == 0;
    }

    // One line, or nothing within `timeout` seconds.
    std::optional<std::string> line(double timeout) {
        auto deadline = unixSeconds() + timeout;
        for (;;) {
            auto nl = pending.find('\n');
            if (nl != std::string::npos) {
                std::string l = pending.substr(0, nl);
                pending.erase(0, nl + 1);
                return l;
            }
            double left = deadline - unixSeconds();
            if (left <= 0) return std::nullopt;
            pollfd p{out, POLLIN, 0};
            if (::poll(&p, 1, static_cast<int>(left * 1000) + 1) <= 0) continue;
            char buf[512];
            ssize_t n = ::read(out, buf, sizeof buf);
            if (n <= 0) return std::nullopt;
            pending.append(buf, static_cast<size_t>(n));
        }
    }

    void kill() {
        ::kill(pid, SIGKILL);
        int status = 0;
        ::waitpid(pid, &status, 0);
        ::close(out);
    }
};

struct Event {
    std::string kind;
    size_t cuts = 0;
    double time = 0;
};

std::optional<Event> parse(const std::string& line) {
    std::istringstream in(line);
    in.imbue(std::locale::classic());
    Event e;
    if (!(in >> e.kind >> e.cuts >> e.time)) return std::nullopt;
    return e;
}

TEST(NothingLost, KilledAnywhereTheProjectReadsAndKeepsItsEdits) {
    auto set = generatedSet("tiny", 41);
    ASSERT_FALSE(set.empty());
    TempHome home;
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    std::mt19937 rng(20261123);
    double longestSave = 0;
    int savesSeen = 0, killsNearSave = 0;

    const int runs = 22;
    for (int run = 0; run < runs; ++run) {
        Child child;
        ASSERT_TRUE(child.start(set));
        std::optional<Event> ready;
        while (auto l = child.line(90)) {
            ready = parse(*l);
            if (ready && ready->kind == "PRET") break;
        }
        ASSERT_TRUE(ready && ready->kind == "PRET") << "run " << run;

        // Even runs die where a save falls due, odd ones anywhere.
        const bool atSave = run % 2 == 0;
        double killAt = ready->time + std::uniform_real_distribution<double>(0.3, 8.0)(rng);
        std::vector<Event> edits;
        double lastEdit = ready->time;
        for (;;) {
            double left = killAt - unixSeconds();
            if (left <= 0) break;
            auto l = child.line(left);
            if (!l) continue;
            auto e = parse(*l);
            if (!e) continue;
            if (e->kind == "EDIT") {
                edits.push_back(*e);
                lastEdit = e->time;
                if (atSave && edits.size() >= 2)
                    killAt = lastEdit + autosave + std::uniform_real_distribution<double>(-0.02, 0.03)(rng);
            } else if (e->kind == "SAUVE") {
                longestSave = std::max(longestSave, e->time - lastEdit - autosave);
                ++savesSeen;
            }
        }
        const double killed = unixSeconds();
        child.kill();
        if (atSave) ++killsNearSave;

        auto projects = ProjectStore::documents();
        ASSERT_EQ(projects.size(), 1u) << "run " << run;
        ProjectFile project = ProjectFile::fromJson(projects[0]);
        // An edit followed by a quiet spell longer than the autosave delay
        // (the next edit or the kill coming later) must be in the file.
        for (size_t i = 0; i < edits.size(); ++i) {
            const double next = i + 1 < edits.size() ? edits[i + 1].time : killed;
            if (next - edits[i].time > autosave + writeAllowance) {
                EXPECT_GE(project.cuts.size(), edits[i].cuts) << "run " << run << ": an edit followed by "
                                                              << next - edits[i].time << " s of quiet was lost";
            }
        }
        if (!edits.empty()) {
            EXPECT_LE(project.cuts.size(), edits.back().cuts);
        }
    }
    std::printf("%d runs, %d killed at a save, %d saves seen, longest save after its delay %.3f s\n", runs,
                killsNearSave, savesSeen, longestSave);
}

}  // namespace
}  // namespace qv::test
