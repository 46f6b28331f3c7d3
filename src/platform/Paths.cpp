#include "platform/Paths.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace qv::paths {

namespace {

std::optional<std::filesystem::path> absoluteVariable(const char* name) {
    const char* v = std::getenv(name);
    if (!v || !*v) return std::nullopt;
    std::filesystem::path p(v);
    if (!p.is_absolute()) return std::nullopt;
    return p;
}

}  // namespace

std::filesystem::path home() {
    if (const char* h = std::getenv("HOME"); h && *h) return h;
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buf(size > 0 ? static_cast<size_t>(size) : 16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buf.data(), buf.size(), &found) == 0 && found && found->pw_dir)
        return found->pw_dir;
    return "/";
}

std::filesystem::path dataHome() {
    return absoluteVariable("XDG_DATA_HOME").value_or(home() / ".local" / "share");
}

std::filesystem::path configHome() {
    return absoluteVariable("XDG_CONFIG_HOME").value_or(home() / ".config");
}

std::filesystem::path stateHome() {
    return absoluteVariable("XDG_STATE_HOME").value_or(home() / ".local" / "state");
}

std::optional<std::filesystem::path> projectsOverride() {
    const char* v = std::getenv("QUORVEL_PROJECTS_DIR");
    if (!v || !*v) return std::nullopt;
    return std::filesystem::path(v);
}

std::filesystem::path appData() {
    return projectsOverride().value_or(dataHome() / "Quorvel");
}

}  // namespace qv::paths
