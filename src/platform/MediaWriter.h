// Writing a finished video: libavcodec encoders and the libavformat muxer.
// H.264 (libx264) or HEVC (libx265) with AAC sound in MP4, ProRes 422
// (prores_ks) with 16-bit PCM in MOV. Pictures come in as 8-bit RGBA and
// leave BT.709-tagged (limited range, yuv420p or 10-bit 4:2:2 for ProRes);
// sound comes in as interleaved floats.
//
// One writer is used by one thread. The file is written where it is asked
// and is left as it stands on failure: removing it is the caller's choice.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "base/Result.h"

namespace qv::media {

enum class VideoEncoding { h264, hevc, prores };

struct WriterSettings {
    VideoEncoding encoding = VideoEncoding::h264;
    int width = 1920, height = 1080;  // even sizes; odd ones are rounded up
    int rateNum = 25, rateDen = 1;    // frames per second as a fraction
    int sampleRate = 48000;
    int channels = 2;                 // 0: no sound stream
    std::string label;                // codec as the user knows it, for the message of a missing encoder
};

class MediaWriter {
public:
    ~MediaWriter();
    MediaWriter(MediaWriter&&) noexcept;
    MediaWriter& operator=(MediaWriter&&) noexcept;

    // Whether this machine has the encoders of `encoding`.
    static bool available(VideoEncoding encoding);

    // Opens the encoders first, then creates the file: a missing encoder
    // fails before anything is written, with "Cet ordinateur ne sait pas
    // exporter en {label}". Other messages are French sentence ends
    // ("le disque est plein.") for the caller to put behind its own words.
    static Result<MediaWriter> create(const std::filesystem::path& file, const WriterSettings& settings);

    // The next picture, `width` × `height` RGBA rows `stride` bytes apart.
    Status writePicture(const uint8_t* rgba, int stride);
    // The next `frames` sound frames (frames × channels floats).
    Status writeSound(const float* interleaved, int64_t frames);
    // Drains the encoders and closes the file.
    Status finish();

private:
    struct State;
    explicit MediaWriter(std::unique_ptr<State> s);
    std::unique_ptr<State> s_;
};

}  // namespace qv::media
