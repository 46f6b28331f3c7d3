#include "sync/MediaScanner.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <set>

#include "base/SystemError.h"
#include "base/Text.h"
#include "platform/MediaProbe.h"

namespace fs = std::filesystem;

namespace qv::MediaScanner {

const std::vector<std::string> videoExtensions = {"mp4", "mov", "m4v", "mxf", "mts", "m2ts", "avi", "mkv", "webm"};
const std::vector<std::string> audioExtensions = {"wav", "bwf", "mp3", "m4a", "aif", "aiff", "flac", "aac", "caf", "ogg", "oga", "opus"};

std::string Refusal::message() const {
    return (folder ? "Dossier illisible : " : "Fichier illisible : ") + name + " (" + reason + ")";
}

namespace {

bool isHidden(const fs::path& p) {
    std::string name = p.filename().string();
    return !name.empty() && name[0] == '.';
}

std::string extensionOf(const fs::path& p) {
    std::string ext = p.extension().string();
    return ext.size() < 2 ? std::string() : toLower(ext.substr(1));
}

bool isIn(const std::vector<std::string>& list, const std::string& ext) {
    return std::find(list.begin(), list.end(), ext) != list.end();
}

bool hasMediaExtension(const fs::path& p) {
    std::string ext = extensionOf(p);
    return isIn(videoExtensions, ext) || isIn(audioExtensions, ext);
}

void sortNatural(std::vector<fs::path>& paths) {
    std::stable_sort(paths.begin(), paths.end(), [](const fs::path& a, const fs::path& b) {
        return naturalCompare(a.filename().string(), b.filename().string()) < 0;
    });
}

std::string reasonFor(int code) { return code == EACCES || code == EPERM ? "accès refusé" : systemMessage(code); }

// The set folder of the scan under way, so that refusals name their place
// in it; a relative name is what the user sees in the folder.
struct Walk {
    fs::path root;
    std::vector<Refusal>* refused = nullptr;
    std::set<std::pair<dev_t, ino_t>> seen;  // files already taken, by identity

    void refuse(const fs::path& p, std::string reason, bool folder) const {
        if (!refused) return;
        fs::path rel = root.empty() ? p.filename() : p.lexically_relative(root);
        if (rel.empty() || rel.native().rfind("..", 0) == 0) rel = p.filename();
        refused->push_back({p, rel.string(), std::move(reason), folder});
    }

    // Walks one folder; sub-folders are entered only when `recursive`, and
    // links to folders are not followed below the top, so a loop cannot trap it.
    void collect(const fs::path& folder, bool recursive, std::vector<fs::path>& found) {
        std::error_code ec;
        fs::directory_iterator it(folder, ec);
        if (ec) {
            refuse(folder, reasonFor(ec.value()), true);
            return;
        }
        for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
            const fs::path& p = it->path();
            if (isHidden(p)) continue;
            std::error_code typeEc;
            auto linkStatus = it->symlink_status(typeEc);
            bool isLink = !typeEc && fs::is_symlink(linkStatus);
            if (recursive && !isLink && fs::is_directory(linkStatus)) {
                collect(p, true, found);
                continue;
            }
            if (!hasMediaExtension(p)) continue;
            struct stat st {};
            if (stat(p.c_str(), &st) != 0) {
                refuse(p, isLink && errno == ENOENT ? "lien cassé" : reasonFor(errno), false);
                continue;
            }
            if (S_ISDIR(st.st_mode)) {
                if (recursive && !isLink) collect(p, true, found);
                continue;
            }
            if (!S_ISREG(st.st_mode)) {
                refuse(p, "pas un fichier ordinaire", false);
                continue;
            }
            if (!seen.insert({st.st_dev, st.st_ino}).second) continue;  // reached twice
            found.push_back(p);
        }
        if (ec) refuse(folder, reasonFor(ec.value()), true);
    }
};

// With no readable file, the folder's name and the files' extensions tell
// what the source was meant to be.
SourceKind kindWithoutItems(const std::string& name, const std::vector<fs::path>& files) {
    std::string lower = toLower(name);
    if (lower.rfind("cam", 0) == 0) return SourceKind::camera;
    if (lower.rfind("son", 0) == 0) return SourceKind::audio;
    bool anyVideo = std::any_of(files.begin(), files.end(),
                                [](const fs::path& f) { return isIn(videoExtensions, extensionOf(f)); });
    return anyVideo ? SourceKind::camera : SourceKind::audio;
}

std::optional<MediaSource> makeSource(const std::string& name, const std::vector<fs::path>& files, const Walk& walk) {
    if (files.empty()) return std::nullopt;
    MediaSource src;
    src.id = Uuid::make();
    src.name = name;
    for (const auto& f : files) {
        std::string why;
        if (auto item = probe(f, &why)) {
            src.items.push_back(std::move(*item));
        } else {
            src.unreadable.push_back(f);
            walk.refuse(f, why, false);
        }
    }
    bool anyVideo = std::any_of(src.items.begin(), src.items.end(), [](const MediaItem& i) { return i.hasVideo; });
    if (!src.items.empty())
        src.kind = anyVideo ? SourceKind::camera : SourceKind::audio;
    else
        src.kind = kindWithoutItems(name, src.unreadable);
    return src;
}

}  // namespace

std::vector<fs::path> mediaFiles(const fs::path& folder, bool recursive, std::vector<Refusal>* refused) {
    Walk walk{folder, refused, {}};
    std::vector<fs::path> found;
    walk.collect(folder, recursive, found);
    sortNatural(found);
    return found;
}

std::optional<MediaItem> probe(const fs::path& file, std::string* whyNot) {
    auto info = media::probe(file);
    if (!info) {
        if (whyNot) *whyNot = info.error().message;
        return std::nullopt;
    }
    MediaItem item;
    item.id = Uuid::make();
    item.url = file;
    item.duration = info->duration;
    item.hasVideo = info->hasVideo;
    item.frameRate = info->hasVideo ? info->frameRate : 0;
    item.width = info->width;
    item.height = info->height;
    item.colour = info->colour;
    item.audioChannels = info->audioChannels;
    item.sampleRate = info->sampleRate;
    item.recordedAt = info->creationTime;
    return item;
}

std::vector<std::string> colourNotes(const std::vector<MediaSource>& sources) {
    std::string unknown, untagged;
    for (const MediaSource& s : sources)
        for (const MediaItem& item : s.items) {
            if (!item.hasVideo) continue;
            const media::ColourTags& c = item.colour;
            const bool bare = (c.transfer == media::h273::unspecified || c.transfer == 0) &&
                              (c.primaries == media::h273::unspecified || c.primaries == 0) &&
                              (c.matrix == media::h273::unspecified || c.matrix == 0);
            std::string* list = media::colourRoad(c) == media::ColourRoad::unknownTransfer ? &unknown
                                : bare && c.bitDepth > 8                               ? &untagged
                                                                                         : nullptr;
            if (list)
                *list += (list->empty() ? "" : ", ") + s.name + "/" + item.fileName() + " (" + media::describe(c) + ")";
        }
    std::vector<std::string> lines;
    if (!unknown.empty()) lines.push_back("Couleurs non reconnues, lues comme BT.709 : " + unknown);
    if (!untagged.empty()) lines.push_back("Couleurs non étiquetées, lues comme BT.709 : " + untagged);
    return lines;
}

std::optional<MediaSource> source(const std::string& name, const std::vector<fs::path>& files,
                                  std::vector<Refusal>* refused) {
    return makeSource(name, files, Walk{{}, refused, {}});
}

std::vector<MediaSource> scan(const fs::path& folder, std::vector<Refusal>* refused) {
    std::vector<MediaSource> sources;
    Walk walk{folder, refused, {}};
    std::error_code ec;
    fs::directory_iterator it(folder, ec);
    if (ec) {
        walk.refuse(folder, reasonFor(ec.value()), true);
        return sources;
    }
    // A sub-folder that is the set itself, one of its parents or a folder
    // already taken (a link back into the set) is not walked again.
    std::set<fs::path> taken;
    fs::path own = folder;
    if (!own.has_filename()) own = own.parent_path();  // "set/" names itself "set"
    fs::path ownReal = fs::weakly_canonical(own, ec);
    std::vector<fs::path> subfolders;
    for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
        const fs::path& p = it->path();
        if (isHidden(p)) continue;
        std::error_code dirEc;
        bool isDir = it->is_directory(dirEc);
        if (dirEc) {
            // A link that leads nowhere or to itself, named like a folder.
            if (!hasMediaExtension(p)) walk.refuse(p, reasonFor(dirEc.value()), true);
            continue;
        }
        if (isDir) subfolders.push_back(p);
    }
    sortNatural(subfolders);
    for (const auto& sub : subfolders) {
        std::error_code realEc;
        fs::path real = fs::canonical(sub, realEc);
        if (!realEc) {
            auto [a, b] = std::mismatch(real.begin(), real.end(), ownReal.begin(), ownReal.end());
            bool containsSet = a == real.end();
            if (containsSet || !taken.insert(real).second) continue;
        }
        std::vector<fs::path> files;
        walk.collect(sub, true, files);
        sortNatural(files);
        if (auto s = makeSource(sub.filename().string(), files, walk)) sources.push_back(std::move(*s));
    }

    std::vector<fs::path> files;
    walk.collect(folder, false, files);
    sortNatural(files);
    if (auto s = makeSource(own.filename().string(), files, walk)) sources.push_back(std::move(*s));
    return sources;
}

}  // namespace qv::MediaScanner
