#include "export/OutputTarget.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <set>

#include "base/SystemError.h"

namespace fs = std::filesystem;

namespace qv::OutputTarget {

namespace {

struct Identity {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const Identity&) const = default;
};

// Links followed, as a write through the path would follow them.
std::optional<Identity> identityOf(const fs::path& p) {
    struct stat st {};
    if (::stat(p.c_str(), &st) != 0) return std::nullopt;
    return Identity{st.st_dev, st.st_ino};
}

std::string quoted(const fs::path& p) { return "« " + p.string() + " »"; }

// Whether a protected folder holds `folder` (an existing folder), walking up
// its real path, so that links and ".." cannot lead around the rule.
bool insideProtected(const fs::path& folder, const Protected& owned) {
    std::vector<Identity> guarded;
    for (const fs::path& f : owned.folders)
        if (auto id = identityOf(f)) guarded.push_back(*id);
    if (guarded.empty()) return false;
    std::error_code ec;
    fs::path p = fs::canonical(folder, ec);
    if (ec) p = fs::absolute(folder, ec).lexically_normal();
    for (;;) {
        if (auto id = identityOf(p); id && std::find(guarded.begin(), guarded.end(), *id) != guarded.end())
            return true;
        if (p == p.parent_path() || p.empty()) return false;
        p = p.parent_path();
    }
}

// The message names the set's folder, whichever of its folders holds the target.
Status refusedInside(const fs::path& target, const Protected& owned) {
    const fs::path& set = owned.folders.front();
    fs::path name = set.has_filename() ? set.filename() : set.parent_path().filename();
    return Error{quoted(target) + " est dans le dossier du set « " + name.string() +
                 " » : Quorvel n'écrit jamais parmi les rushes. Choisis un autre dossier."};
}

Status writableFolder(const fs::path& folder) {
    struct stat st {};
    if (::stat(folder.c_str(), &st) != 0) return Error{systemMessage(errno) + " : " + quoted(folder)};
    if (!S_ISDIR(st.st_mode)) return Error{systemMessage(ENOTDIR) + " : " + quoted(folder)};
    if (::access(folder.c_str(), W_OK | X_OK) != 0) return Error{systemMessage(errno) + " : " + quoted(folder)};
    return Ok{};
}

}  // namespace

Protected ofSet(const fs::path& setFolder, const std::vector<MediaSource>& sources) {
    Protected owned;
    owned.folders.push_back(setFolder);
    // A source's files may lie through a link on another disk: their own
    // folders are guarded as well as the set's.
    for (const MediaSource& s : sources) {
        for (const MediaItem& item : s.items) owned.files.push_back(item.url);
        for (const fs::path& file : s.unreadable) owned.files.push_back(file);
    }
    std::set<fs::path> folders;
    for (const fs::path& file : owned.files) folders.insert(file.parent_path());
    owned.folders.push_back(setFolder);  // first: the messages name it
    owned.folders.insert(owned.folders.end(), folders.begin(), folders.end());
    return owned;
}

namespace {

// Each real folder once, so that a link back up cannot loop; a walk of a
// pathological tree stops at a depth and a count no set reaches.
void walk(const fs::path& folder, int depth, std::set<std::pair<dev_t, ino_t>>& seen, Protected& owned) {
    constexpr int maxDepth = 16;
    constexpr size_t maxEntries = 200000;
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        if (owned.files.size() + owned.folders.size() > maxEntries) return;
        struct stat st {};
        if (::stat(it->path().c_str(), &st) != 0) continue;
        if (S_ISDIR(st.st_mode)) {
            if (depth < maxDepth && seen.insert({st.st_dev, st.st_ino}).second) {
                owned.folders.push_back(it->path());
                walk(it->path(), depth + 1, seen, owned);
            }
        } else if (S_ISREG(st.st_mode)) {
            owned.files.push_back(it->path());
        }
    }
}

}  // namespace

Protected ofFolder(const fs::path& setFolder) {
    Protected owned;
    owned.folders.push_back(setFolder);
    std::set<std::pair<dev_t, ino_t>> seen;
    struct stat st {};
    if (::stat(setFolder.c_str(), &st) == 0) seen.insert({st.st_dev, st.st_ino});
    walk(setFolder, 0, seen, owned);
    return owned;
}

Status check(const fs::path& target, const Protected& owned) {
    std::error_code ec;
    const fs::path full = fs::absolute(target, ec).lexically_normal();
    if (ec || !full.has_filename()) return Error{quoted(target) + " n'est pas un nom de fichier"};

    struct stat st {};
    const bool exists = ::stat(full.c_str(), &st) == 0;
    if (exists && S_ISDIR(st.st_mode)) return Error{quoted(target) + " est un dossier"};
    const fs::path folder = full.parent_path();
    if (Status usable = writableFolder(folder); !usable) return usable;
    if (insideProtected(folder, owned)) return refusedInside(target, owned);
    if (exists) {
        const Identity id{st.st_dev, st.st_ino};
        for (const fs::path& f : owned.files) {
            if (identityOf(f) != id) continue;
            const bool sameName = fs::absolute(f, ec).lexically_normal() == full;
            return Error{quoted(target) + " est " + (sameName ? "" : quoted(f) + ", ") +
                         "un fichier que le projet lit : il n'est pas remplacé."};
        }
    }
    return Ok{};
}

Status prepareFolder(const fs::path& folder, const Protected& owned) {
    std::error_code ec;
    const fs::path full = fs::absolute(folder, ec).lexically_normal();
    // The nearest folder that exists judges where the new ones would go.
    fs::path existing = full;
    while (!existing.empty() && !fs::exists(existing, ec) && existing != existing.parent_path())
        existing = existing.parent_path();
    if (insideProtected(existing, owned)) return refusedInside(folder, owned);
    if (!fs::is_directory(full, ec)) {
        if (fs::exists(full, ec)) return Error{quoted(folder) + " n'est pas un dossier"};
        fs::create_directories(full, ec);
        if (ec) return Error{"impossible de créer le dossier " + quoted(folder) + " : " + systemMessage(ec)};
    }
    if (Status usable = writableFolder(full); !usable) return usable;
    if (insideProtected(full, owned)) return refusedInside(folder, owned);
    return Ok{};
}

}  // namespace qv::OutputTarget
