// What a set folder holds: probed files (MediaItem) grouped in sources
// (MediaSource), one per sub-folder. Plain values, filled by MediaScanner.
#pragma once

#include <chrono>
#include <cmath>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/Uuid.h"
#include "platform/ColourTags.h"
#include "platform/PictureTags.h"

namespace qv {

using Date = std::chrono::system_clock::time_point;

enum class SourceKind { camera, audio };

struct MediaItem {
    Uuid id;                         // new for every probe
    std::filesystem::path url;       // the file
    double duration = 0;             // seconds, finite and above 0
    bool hasVideo = false;
    double frameRate = 0;            // nominal rate of the first video stream
    int width = 0, height = 0;       // display size after rotation
    media::ColourTags colour;        // of the first video stream
    int audioChannels = 0;           // highest over audio streams
    double sampleRate = 0;           // highest over audio streams, Hz
    std::optional<Date> recordedAt;  // container creation date

    // The picture as the camera wrote it: fields, pixel shape, frame times.
    // `width` × `height` is the display size, stored pixels widened by
    // `pixelAspect`. `previewCopy` is the low-resolution copy an action
    // camera writes beside a chapter (.LRV), same timing; empty without one.
    media::PictureTags picture;
    std::filesystem::path previewCopy;

    std::string fileName() const { return url.filename().string(); }
    // The size of the stored pictures, before their pixels are widened.
    int storedWidth() const {
        return picture.anamorphic() ? static_cast<int>(std::lround(width / picture.pixelAspect)) : width;
    }
};

struct MediaSource {
    Uuid id;
    std::string name;  // the folder's last path component
    SourceKind kind = SourceKind::audio;
    std::vector<MediaItem> items;                    // readable files, sorted
    std::vector<std::filesystem::path> unreadable;   // sorted

    double totalDuration() const {
        double sum = 0;
        for (const auto& item : items) sum += item.duration;
        return sum;
    }
};

}  // namespace qv
