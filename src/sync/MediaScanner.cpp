#include "sync/MediaScanner.h"

#include <algorithm>
#include <cmath>

#include "base/Text.h"
#include "platform/MediaProbe.h"

namespace fs = std::filesystem;

namespace qv::MediaScanner {

const std::vector<std::string> videoExtensions = {"mp4", "mov", "m4v", "mxf", "mts", "m2ts", "avi", "mkv"};
const std::vector<std::string> audioExtensions = {"wav", "bwf", "mp3", "m4a", "aif", "aiff", "flac", "aac", "caf"};

namespace {

bool isHidden(const fs::path& p) {
    std::string name = p.filename().string();
    return !name.empty() && name[0] == '.';
}

bool hasMediaExtension(const fs::path& p) {
    std::string ext = p.extension().string();
    if (ext.size() < 2) return false;
    ext = toLower(ext.substr(1));
    return std::find(videoExtensions.begin(), videoExtensions.end(), ext) != videoExtensions.end() ||
           std::find(audioExtensions.begin(), audioExtensions.end(), ext) != audioExtensions.end();
}

void sortNatural(std::vector<fs::path>& paths) {
    std::stable_sort(paths.begin(), paths.end(), [](const fs::path& a, const fs::path& b) {
        return naturalCompare(a.filename().string(), b.filename().string()) < 0;
    });
}

// A regular file, following links; FIFOs, devices and folders named like
// media are left out, since opening them could block or make no sense.
bool isRegularFile(const fs::path& p) {
    std::error_code ec;
    return fs::is_regular_file(p, ec);
}

}  // namespace

std::vector<fs::path> mediaFiles(const fs::path& folder, bool recursive) {
    std::vector<fs::path> found;
    std::error_code ec;
    if (recursive) {
        // Links to folders are not followed, so a link loop cannot trap the walk.
        fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, ec);
        for (; !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
            const fs::path& p = it->path();
            if (isHidden(p)) {
                std::error_code dirEc;
                if (it->is_directory(dirEc)) it.disable_recursion_pending();
                continue;
            }
            if (hasMediaExtension(p) && isRegularFile(p)) found.push_back(p);
        }
    } else {
        fs::directory_iterator it(folder, fs::directory_options::skip_permission_denied, ec);
        for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
            const fs::path& p = it->path();
            if (!isHidden(p) && hasMediaExtension(p) && isRegularFile(p)) found.push_back(p);
        }
    }
    sortNatural(found);
    return found;
}

std::optional<MediaItem> probe(const fs::path& file) {
    auto info = media::probe(file);
    if (!info) return std::nullopt;
    if (!std::isfinite(info->duration) || !(info->duration > 0)) return std::nullopt;
    if (!info->hasVideo && info->audioChannels < 1) return std::nullopt;
    MediaItem item;
    item.id = Uuid::make();
    item.url = file;
    item.duration = info->duration;
    item.hasVideo = info->hasVideo;
    item.frameRate = info->hasVideo ? info->frameRate : 0;
    item.width = info->width;
    item.height = info->height;
    item.audioChannels = info->audioChannels;
    item.sampleRate = info->sampleRate;
    item.recordedAt = info->creationTime;
    return item;
}

std::optional<MediaSource> source(const std::string& name, const std::vector<fs::path>& files) {
    if (files.empty()) return std::nullopt;
    MediaSource src;
    src.id = Uuid::make();
    src.name = name;
    for (const auto& f : files) {
        if (auto item = probe(f)) src.items.push_back(std::move(*item));
        else src.unreadable.push_back(f);
    }
    bool anyVideo = std::any_of(src.items.begin(), src.items.end(), [](const MediaItem& i) { return i.hasVideo; });
    src.kind = anyVideo ? SourceKind::camera : SourceKind::audio;
    return src;
}

std::vector<MediaSource> scan(const fs::path& folder) {
    std::vector<MediaSource> sources;
    std::vector<fs::path> subfolders;
    std::error_code ec;
    fs::directory_iterator it(folder, fs::directory_options::skip_permission_denied, ec);
    if (ec) return sources;
    for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
        std::error_code dirEc;
        if (!isHidden(it->path()) && it->is_directory(dirEc)) subfolders.push_back(it->path());
    }
    sortNatural(subfolders);
    for (const auto& sub : subfolders)
        if (auto s = source(sub.filename().string(), mediaFiles(sub, true))) sources.push_back(std::move(*s));

    fs::path own = folder;
    if (!own.has_filename()) own = own.parent_path();  // "set/" names itself "set"
    if (auto s = source(own.filename().string(), mediaFiles(folder, false))) sources.push_back(std::move(*s));
    return sources;
}

}  // namespace qv::MediaScanner
