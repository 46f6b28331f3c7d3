// Probing and decoding media files with libav*. These are the only entry
// points the rest of the program has into FFmpeg for reading files.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "base/Result.h"

namespace qv::media {

struct ProbeInfo {
    double duration = 0;         // container duration, or the longest stream's
    bool hasVideo = false;       // a real video stream (cover art does not count)
    double frameRate = 0;        // nominal rate of the first video stream
    int width = 0, height = 0;   // display size after rotation
    int audioChannels = 0;       // highest over audio streams
    double sampleRate = 0;       // highest over audio streams
    std::optional<std::chrono::system_clock::time_point> creationTime;
};

// Opens the file and reads its streams. Fails for anything libavformat
// cannot open; the duration may still be 0 or NaN for the caller to judge.
Result<ProbeInfo> probe(const std::filesystem::path& file);

// Decodes every audio stream of the file, mixes all streams and channels to
// one channel and resamples to `sampleRate`. Sample 0 lies at the file's
// media time zero (platform/MediaTime.h). Damaged packets are skipped; a file that ends early gives what was
// decoded. Fails when the file has no audio stream or cannot be opened.
Result<std::vector<float>> decodeMonoAudio(const std::filesystem::path& file, int sampleRate);

}  // namespace qv::media
