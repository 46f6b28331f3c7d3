#include "platform/Paths.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

#include "base/Format.h"
#include "base/SystemError.h"

namespace qv::paths {

namespace {

std::optional<std::filesystem::path> absoluteVariable(const char* name) {
    const char* v = std::getenv(name);
    if (!v || !*v) return std::nullopt;
    std::filesystem::path p(v);
    if (!p.is_absolute()) return std::nullopt;
    return p;
}

using json::Json;

constexpr const char* kTooBig = "fichier trop gros";

// A damaged settings file goes aside, so the next write cannot lose what a
// person could still read in it, and the caller hears of it.
Json keptAside(const std::filesystem::path& file, const std::string& reason, std::string* damage) {
    auto aside = keepAside(file);
    if (damage)
        *damage = "Réglages illisibles (" + reason + ") : " +
                  (aside ? "le fichier est gardé à part sous « " + aside->filename().string() + " » ; "
                         : std::string()) +
                  "les réglages par défaut sont pris.";
    return Json::object();
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
    if (auto text = readFile(configHome() / "user-dirs.dirs", limits::settingsBytes)) {
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

Result<std::string> readFile(const std::filesystem::path& file, uint64_t maxBytes) {
    // Non-blocking open, so that a FIFO that happens to bear the name cannot
    // hang the caller; it is then refused as not a regular file.
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return Error{systemMessage(errno)};
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return Error{S_ISDIR(st.st_mode) ? systemMessage(EISDIR) : "pas un fichier ordinaire"};
    }
    auto tooBig = [&](uint64_t size) {
        return Error{std::string(kTooBig) + " (" + Format::bytes(size) + ", " + Format::bytes(maxBytes) + " au plus)"};
    };
    if (static_cast<uint64_t>(st.st_size) > maxBytes) {
        ::close(fd);
        return tooBig(static_cast<uint64_t>(st.st_size));
    }
    std::string out;
    out.reserve(static_cast<size_t>(st.st_size));
    char buffer[65536];
    for (;;) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            const int code = errno;
            ::close(fd);
            return Error{systemMessage(code)};
        }
        if (n == 0) break;
        out.append(buffer, static_cast<size_t>(n));
        // A file that grows while it is read is held to the same bound.
        if (out.size() > maxBytes) {
            ::close(fd);
            return tooBig(out.size());
        }
    }
    ::close(fd);
    return out;
}

bool isTooBig(const Error& refusal) { return refusal.message.rfind(kTooBig, 0) == 0; }

Status writeAtomically(const std::filesystem::path& file, std::string_view bytes) {
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
        if (fd < 0 && errno != EEXIST) return Error{systemMessage(errno)};
    }
    if (fd < 0) return Error{systemMessage(EEXIST)};

    // The first failing step names the reason; the temporary goes whatever happens.
    int code = 0;
    if (!writeAll(fd, bytes.data(), bytes.size())) code = errno ? errno : EIO;
    if (!code && ::fsync(fd) != 0) code = errno;
    if (::close(fd) != 0 && !code) code = errno;
    if (!code && ::rename(temp.c_str(), file.c_str()) != 0) code = errno;
    if (code) {
        ::unlink(temp.c_str());
        return Error{systemMessage(code)};
    }
    // The rename itself made durable. Some file systems cannot flush a
    // folder (EINVAL): the rename is then as safe as they make it.
    int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        if (::fsync(dir) != 0 && errno != EINVAL) code = errno;
        ::close(dir);
        if (code) return Error{systemMessage(code)};
    }
    return Ok{};
}

Result<std::filesystem::path> keepAside(const std::filesystem::path& file, std::string_view label) {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &local);
    const std::string base = file.filename().string() + "." + std::string(label) + "-" + stamp;
    for (int n = 1; n < 100; ++n) {
        std::filesystem::path aside = file.parent_path() / (n == 1 ? base : base + "-" + std::to_string(n));
        // Never over another kept file: link, then drop the old name.
        if (::link(file.c_str(), aside.c_str()) == 0) {
            ::unlink(file.c_str());
            return aside;
        }
        if (errno == EEXIST) continue;
        // Without hard links (some file systems), a rename that may not replace.
        if (errno == EPERM || errno == EXDEV || errno == EOPNOTSUPP) {
            std::error_code ec;
            if (std::filesystem::exists(aside, ec)) continue;
            if (::rename(file.c_str(), aside.c_str()) == 0) return aside;
        }
        return Error{systemMessage(errno)};
    }
    return Error{systemMessage(EEXIST)};
}

std::unique_ptr<FileLock> FileLock::tryTake(const std::filesystem::path& file) {
    // The lock file may be removed by its holder when done: a lock taken on
    // a name that no longer leads to the same file is taken again.
    for (int attempt = 0; attempt < 8; ++attempt) {
        int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
        if (fd < 0) return nullptr;
        if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
            ::close(fd);
            return nullptr;
        }
        struct stat held {}, named {};
        if (::fstat(fd, &held) == 0 && ::stat(file.c_str(), &named) == 0 && held.st_dev == named.st_dev &&
            held.st_ino == named.st_ino)
            return std::unique_ptr<FileLock>(new FileLock(fd, file));
        ::close(fd);
    }
    return nullptr;
}

bool FileLock::isHeldElsewhere(const std::filesystem::path& file) {
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return false;
    const bool held = ::flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(fd);
    return held;
}

FileLock::~FileLock() {
    // Removed while still held, so nobody can be holding the name we drop.
    ::unlink(file_.c_str());
    ::close(fd_);
}

Json readSettings(const std::filesystem::path& file, std::string* damage) {
    auto text = readFile(file, limits::settingsBytes);
    if (!text) {
        // Missing or unreadable for now is no damage; too big is, and goes aside.
        if (!isTooBig(text.error())) return Json::object();
        return keptAside(file, text.error().message, damage);
    }
    auto j = json::read(*text);
    if (j && j->is_object()) return std::move(*j);
    return keptAside(file, j ? "pas un objet JSON" : j.error().message, damage);
}

Status writeSetting(const std::filesystem::path& file, const std::string& key, const std::optional<Json>& value) {
    std::error_code ec;
    std::filesystem::create_directories(file.parent_path(), ec);
    Json all = readSettings(file);
    if (value)
        all[key] = *value;
    else
        all.erase(key);
    return writeAtomically(file, all.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
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
