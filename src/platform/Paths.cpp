#include "platform/Paths.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
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

std::filesystem::path cacheHome() { return absoluteVariable("XDG_CACHE_HOME").value_or(home() / ".cache"); }

std::optional<std::filesystem::path> projectsOverride() {
    const char* v = std::getenv("QUORVEL_PROJECTS_DIR");
    if (!v || !*v) return std::nullopt;
    return std::filesystem::path(v);
}

std::filesystem::path appData() {
    return projectsOverride().value_or(dataHome() / "Quorvel");
}

namespace {

// The value of one `KEY="..."` line of user-dirs.dirs, shell escapes undone;
// nothing when the line assigns another key.
std::optional<std::string> assignedValue(std::string_view line, std::string_view key) {
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
    if (line.substr(0, key.size()) != key) return std::nullopt;
    line.remove_prefix(key.size());
    if (line.size() < 3 || line[0] != '=' || line[1] != '"') return std::nullopt;
    line.remove_prefix(2);
    std::string value;
    for (size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        if (c == '"') return value;
        if (c == '\\' && i + 1 < line.size()) c = line[++i];
        value += c;
    }
    return std::nullopt;  // no closing quote
}

}  // namespace

std::filesystem::path downloads() {
    std::optional<std::string> value;
    if (auto text = readFile(configHome() / "user-dirs.dirs")) {
        size_t begin = 0;
        while (begin < text->size()) {
            size_t end = text->find('\n', begin);
            if (end == std::string::npos) end = text->size();
            // Later lines win, as when the shell sources the file.
            if (auto v = assignedValue(std::string_view(*text).substr(begin, end - begin), "XDG_DOWNLOAD_DIR"))
                value = v;
            begin = end + 1;
        }
    }
    if (value) {
        std::string_view v = *value;
        if (v == "$HOME") return home();
        if (v.substr(0, 6) == "$HOME/") return home() / std::string(v.substr(6));
        if (!v.empty() && v.front() == '/') return std::filesystem::path(std::string(v));
    }
    return home() / "Downloads";
}

std::filesystem::path settingsFile() { return configHome() / "quorvel" / "settings.json"; }

std::filesystem::path standardized(const std::filesystem::path& p) {
    if (p.empty()) return p;
    std::error_code ec;
    std::filesystem::path full = std::filesystem::absolute(p, ec);
    if (ec) full = p;
    std::string text = full.lexically_normal().string();
    while (text.size() > 1 && text.back() == '/') text.pop_back();
    return text;
}

std::optional<std::string> readFile(const std::filesystem::path& file) {
    // Non-blocking open, so that a FIFO that happens to bear the name cannot
    // hang the caller; it is then refused as not a regular file.
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return std::nullopt;
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return std::nullopt;
    }
    std::string out;
    out.reserve(static_cast<size_t>(st.st_size));
    char buffer[65536];
    for (;;) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            ::close(fd);
            return std::nullopt;
        }
        if (n == 0) break;
        out.append(buffer, static_cast<size_t>(n));
    }
    ::close(fd);
    return out;
}

bool writeAtomically(const std::filesystem::path& file, std::string_view bytes) {
    static std::atomic<unsigned> counter{0};
    std::filesystem::path folder = file.parent_path().empty() ? "." : file.parent_path();
    std::filesystem::path temp;
    int fd = -1;
    for (int attempt = 0; attempt < 16 && fd < 0; ++attempt) {
        auto tick = std::chrono::steady_clock::now().time_since_epoch().count();
        temp = folder / ("." + file.filename().string() + "." + std::to_string(getpid()) + "-" +
                         std::to_string(counter++) + "-" + std::to_string(tick % 1000000) + ".tmp");
        // 0666 lets the user's umask decide, as for any file the program makes.
        fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0 && errno != EEXIST) return false;
    }
    if (fd < 0) return false;

    bool ok = writeAll(fd, bytes.data(), bytes.size());
    ok = ok && ::fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    ok = ok && ::rename(temp.c_str(), file.c_str()) == 0;
    if (!ok) {
        ::unlink(temp.c_str());
        return false;
    }
    // Make the rename itself durable; a failure here loses nothing we can fix.
    int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return true;
}

json::Json readSettings(const std::filesystem::path& file) {
    if (auto text = readFile(file))
        if (auto j = json::parse(*text); j && j->is_object()) return std::move(*j);
    return json::Json::object();
}

void writeSetting(const std::filesystem::path& file, const std::string& key, const std::optional<json::Json>& value) {
    std::error_code ec;
    std::filesystem::create_directories(file.parent_path(), ec);
    json::Json all = readSettings(file);
    if (value)
        all[key] = *value;
    else
        all.erase(key);
    writeAtomically(file, all.dump(2, ' ', false, json::Json::error_handler_t::replace) + "\n");
}

std::optional<std::filesystem::path> plainNameLink(const std::filesystem::path& file) {
    namespace fs = std::filesystem;
    std::error_code ec;
    const fs::path target = fs::absolute(file, ec);
    if (ec) return std::nullopt;
    uint64_t hash = 0xcbf29ce484222325ull;
    for (unsigned char c : target.native()) hash = (hash ^ c) * 0x100000001b3ull;
    auto plain = [](const std::string& text) {
        std::string out;
        for (char c : text) {
            const bool kept = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                              c == '_' || c == ' ';
            out += kept ? c : '_';
        }
        return out;
    };
    std::string extension = target.extension().string();
    extension = extension.size() > 1 ? "." + plain(extension.substr(1)) : "";
    char hex[17];
    std::snprintf(hex, sizeof hex, "%016llx", static_cast<unsigned long long>(hash));
    const fs::path folder = cacheHome() / "quorvel" / "liens";
    const fs::path link = folder / (std::string(hex) + " " + plain(target.stem().string()).substr(0, 60) + extension);

    if (fs::read_symlink(link, ec) == target) return link;
    fs::create_directories(folder, ec);
    fs::remove(link, ec);  // a stale link of another life of the cache
    fs::create_symlink(target, link, ec);
    if (ec) return std::nullopt;
    return link;
}

std::map<std::string, std::filesystem::path> plainNameLinks(const std::vector<std::filesystem::path>& files) {
    std::map<std::string, std::filesystem::path> links;
    for (const auto& f : files)
        if (auto link = plainNameLink(f)) links[f.string()] = *link;
    return links;
}

bool writeAll(int fd, const char* p, size_t n) {
    while (n > 0) {
        ssize_t w = ::write(fd, p, n);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return false;
        p += w;
        n -= static_cast<size_t>(w);
    }
    return true;
}

}  // namespace qv::paths
