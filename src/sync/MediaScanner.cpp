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

const std::vector<std::string> videoExtensions = {"mp4", "mov", "m4v", "mxf", "mts", "m2ts", "avi", "mkv", "webm",
                                                  "m2t", "mpg", "mpeg", "3gp", "ts",  "mod",  "tod", "dv"};
const std::vector<std::string> audioExtensions = {"wav", "bwf", "mp3", "m4a", "aif", "aiff", "flac", "aac", "caf", "ogg", "oga", "opus"};

std::string Refusal::message() const {
    return (folder ? "Dossier illisible : " : "Fichier illisible : ") + name + " (" + reason + ")";
}

std::string SetAside::message() const { return "Fichier écarté : " + name + " (" + reason + ")"; }

namespace {

// What action cameras write beside each chapter: a light copy with the same
// timing, and a thumbnail that nothing here needs.
const std::string previewExtension = "lrv";
const std::string thumbnailExtension = "thm";

// A preview copy's length may differ from its chapter's by a few frames.
constexpr double previewSlack = 0.5;

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
    std::vector<SetAside>* setAside = nullptr;
    std::set<std::pair<dev_t, ino_t>> seen;  // files already taken, by identity
    std::vector<fs::path> previews;          // .LRV files met since the last source was made

    std::string relative(const fs::path& p) const {
        fs::path rel = root.empty() ? p.filename() : p.lexically_relative(root);
        if (rel.empty() || rel.native().rfind("..", 0) == 0) rel = p.filename();
        return rel.string();
    }

    void refuse(const fs::path& p, std::string reason, bool folder) const {
        if (refused) refused->push_back({p, relative(p), std::move(reason), folder});
    }

    void leaveAside(const fs::path& p, std::string reason) const {
        if (setAside) setAside->push_back({p, relative(p), std::move(reason)});
    }

    // A file that is no media: a preview copy kept for its chapter, a
    // thumbnail left quietly, anything else left aside and named.
    void notMedia(const fs::path& p) {
        const std::string ext = extensionOf(p);
        if (ext == thumbnailExtension) return;
        std::error_code ec;
        if (!fs::is_regular_file(p, ec)) return;  // a folder of a flat walk, a dangling link
        if (ext == previewExtension) previews.push_back(p);
        else leaveAside(p, "format non pris en charge");
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
            if (!hasMediaExtension(p)) {
                notMedia(p);
                continue;
            }
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

// Stems a chapter and its preview copy share: the same name, or the same
// but for an L in second place, which some action cameras give the copy.
bool sameChapter(const fs::path& preview, const fs::path& chapter) {
    if (preview.parent_path() != chapter.parent_path()) return false;
    const std::string a = toLower(preview.stem().string()), b = toLower(chapter.stem().string());
    if (a == b) return true;
    return a.size() == b.size() && a.size() > 2 && a[1] == 'l' && a[0] == b[0] && a.compare(2, a.npos, b, 2) == 0;
}

// Gives each preview copy met to its chapter among `items`, or leaves it
// aside with why.
void matchPreviews(std::vector<MediaItem>& items, Walk& walk) {
    sortNatural(walk.previews);
    for (const fs::path& preview : walk.previews) {
        auto chapter = std::find_if(items.begin(), items.end(), [&](const MediaItem& i) {
            return i.hasVideo && i.previewCopy.empty() && sameChapter(preview, i.url);
        });
        if (chapter == items.end()) {
            walk.leaveAside(preview, "copie légère sans chapitre du même nom");
            continue;
        }
        auto info = media::probe(preview);
        if (!info || !info->hasVideo) {
            walk.leaveAside(preview, "copie légère illisible");
        } else if (std::abs(info->duration - chapter->duration) > previewSlack) {
            walk.leaveAside(preview, "copie légère d'une autre durée que son chapitre");
        } else {
            chapter->previewCopy = preview;
        }
    }
    walk.previews.clear();
}

std::optional<MediaSource> makeSource(const std::string& name, const std::vector<fs::path>& files, Walk& walk) {
    if (files.empty()) {
        std::vector<MediaItem> none;
        matchPreviews(none, walk);
        return std::nullopt;
    }
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
    matchPreviews(src.items, walk);
    bool anyVideo = std::any_of(src.items.begin(), src.items.end(), [](const MediaItem& i) { return i.hasVideo; });
    if (!src.items.empty())
        src.kind = anyVideo ? SourceKind::camera : SourceKind::audio;
    else
        src.kind = kindWithoutItems(name, src.unreadable);
    return src;
}

}  // namespace

std::vector<fs::path> mediaFiles(const fs::path& folder, bool recursive, std::vector<Refusal>* refused) {
    Walk walk{folder, refused, nullptr, {}, {}};
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
    item.picture = info->picture;
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
    Walk walk{{}, refused, nullptr, {}, {}};
    return makeSource(name, files, walk);
}

std::vector<MediaSource> scan(const fs::path& folder, std::vector<Refusal>* refused, std::vector<SetAside>* setAside) {
    std::vector<MediaSource> sources;
    Walk walk{folder, refused, setAside, {}, {}};
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
