#include "platform/Process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/SystemError.h"

extern char** environ;

namespace qv::process {

Result<Output> run(const std::filesystem::path& program, const std::vector<std::string>& args) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return Error{systemMessage(errno)};

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);

    std::string exe = program.string();
    std::vector<char*> argv;
    argv.push_back(exe.data());
    std::vector<std::string> copies(args);
    for (auto& a : copies) argv.push_back(a.data());
    argv.push_back(nullptr);

    pid_t pid = 0;
    int rc = posix_spawn(&pid, exe.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    if (rc != 0) {
        close(fds[0]);
        return Error{systemMessage(rc)};
    }

    Output result;
    char buf[1 << 16];
    while (true) {
        ssize_t n = read(fds[0], buf, sizeof buf);
        if (n > 0) {
            result.out.append(buf, static_cast<size_t>(n));
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else {
            break;
        }
    }
    close(fds[0]);

    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::filesystem::path findExecutable(const std::vector<std::filesystem::path>& candidates) {
    for (const auto& c : candidates) {
        std::error_code ec;
        if (std::filesystem::is_regular_file(c, ec) && access(c.c_str(), X_OK) == 0) return c;
    }
    return {};
}

}  // namespace qv::process
