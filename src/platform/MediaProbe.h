// Probing and decoding media files with libav*. These are the only entry
// points the rest of the program has into FFmpeg for reading files.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "base/Result.h"
#include "platform/ColourTags.h"
#include "platform/PictureTags.h"

namespace qv::media {

struct ProbeInfo {
    double duration = 0;         // container duration, or the longest stream's
    bool hasVideo = false;       // a real video stream (cover art does not count)
    double frameRate = 0;        // nominal rate of the first video stream
    int width = 0, height = 0;   // display size after rotation
    ColourTags colour;           // of the first video stream
    int audioChannels = 0;       // highest over audio streams
    double sampleRate = 0;       // highest over audio streams
    std::optional<std::chrono::system_clock::time_point> creationTime;
    // Fields, pixel shape and frame-time regularity of the first video
    // stream; the display size above already widens anamorphic pixels.
    PictureTags picture;
};

// Sound streams outside these bounds are not taken as sound: decoding them
// would cost memory out of all proportion to the file.
constexpr int minSampleRate = 4000;
constexpr int maxSampleRate = 768000;
constexpr int maxChannels = 64;

// Opens the file and reads its streams. Frame times are judged on a bounded
// sample without decoding: the container's index where it lists every
// frame (MP4, MOV), else the time stamps of the first few hundred packets. A duration that the header claims
// beyond what the packets span gives way to the packets. Fails, with the
// reason in French as the message ("fichier tronqué", "pas un fichier vidéo
// ou audio", "accès refusé"...), for anything that is not a plain local media
// file with a positive duration and a picture or usable sound.
Result<ProbeInfo> probe(const std::filesystem::path& file);

// The only formats a media file is read in, as a comma-separated list of
// demuxer names, for an external decoder to be held to the same.
std::string mediaFormats();

// Why a file cannot be opened as media, in French, for a file that
// `probe` (or any other opening) refused.
std::string whyUnreadable(const std::filesystem::path& file);

// Decodes every audio stream of the file, mixes all streams and channels to
// one channel and resamples to `sampleRate`. Sample 0 lies at the file's
// media time zero (platform/MediaTime.h). Damaged packets are skipped; a file that ends early gives what was
// decoded. Fails when the file has no audio stream or cannot be opened.
Result<std::vector<float>> decodeMonoAudio(const std::filesystem::path& file, int sampleRate);

}  // namespace qv::media
