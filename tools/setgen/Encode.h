// Encode: turns rendered sound and a drawn picture into real media files.
// Sound goes to a float WAV first, then the `ffmpeg` executable (spawned
// without a shell, one thread, fixed options) makes the final file, so the
// same input always gives the same bytes.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "Recording.h"
#include "SetPlan.h"
#include "base/Result.h"

namespace qv::setgen {

class Ffmpeg {
public:
    // The first executable of the usual places; "ffmpeg introuvable" without one.
    static Result<Ffmpeg> locate();

    // Runs it with `args`; a non-zero exit names `target` in the error.
    Status run(const std::vector<std::string>& args, const std::string& target) const;

private:
    explicit Ffmpeg(std::filesystem::path exe) : exe_(std::move(exe)) {}
    std::filesystem::path exe_;
};

// 32-bit float WAV, `interleaved` holding frames of `channels` samples.
Status writeFloatWav(const std::filesystem::path& file, const std::vector<float>& interleaved, int channels,
                     int rate);

// What makes a generated picture as heavy as a real camera's: slow moving
// detail under grain that is new every frame (so it costs bits in every
// frame), encoded as H.264 High with B-frames, a fixed GOP and a camera's
// bit rate. Drawn from `seed`, so a seed gives the same bytes. A 10-bit
// recording with grain keeps its HEVC, at this bit rate and GOP.
struct Grain {
    int strength = 0;       // noise amplitude on 8-bit levels; 0 leaves the picture light
    int bitrateKbps = 0;    // mean bit rate of the picture
    double gopSeconds = 2;  // distance between key frames
    int bFrames = 3;
    bool bitsInP = false;  // B-frames coarse and unreferenced: P-frames carry most of the bits
    uint64_t seed = 1;

    bool on() const { return strength > 0; }
};

struct Picture {
    int width = 320, height = 180;
    int fpsNum = 25, fpsDen = 1;
    long frames = 0;
    std::string label;    // drawn large in the middle, e.g. "CAM 2"
    std::string caption;  // drawn small at the top, e.g. "clip 1"
    uint32_t colour = 0x1f4e79;
    double clock = 0;     // set time of the first frame, drawn at the bottom
    int camera = 0, clip = 0;  // carried by the frame code (FrameCode.h)
    Recording recording = Recording::sdr;
    int rotation = 0;  // degrees of display rotation in the file's metadata; width × height is then the
                       // upright picture, stored turned
    Grain grain;               // off: the light synthetic picture
    std::string timecode;      // "hh:mm:ss:ff" of the first frame, as a timecode track; empty: none
    // Frames 33 to 50 ms apart (FrameTimes.h) instead of a constant rate.
    bool variableRate = false;
    // Interlaced, top field first: drawn at twice the rate with a bar
    // sweeping across, each frame woven from two of those.
    bool interlaced = false;
    // Anamorphic: drawn at width × height, stored this wide (MPEG-2 with
    // the pixel aspect that widens it back); 0 stores square pixels.
    int storedWidth = 0;
    // Not empty: a textured scene seen through the lens, with these pans
    // and faults (SetPlan.h); the frame code stays on top of good pictures.
    std::vector<PictureEvent> events;
};

struct SoundFormat {
    int sampleRate = 48000;
    int channels = 2;
    int pcmBits = 16;  // for WAV and FLAC: 16 or 24
    bool pcmInVideo = false;  // a MOV's sound as 16-bit PCM instead of AAC
    std::string codec;  // "opus" or "vorbis" where a container takes either; empty: its usual one
};

// A video file (H.264 yuv420p, or 10-bit HEVC for the recordings that say
// so, in MP4 or MOV as the extension says; H.264 with AC-3 in an MPEG
// transport stream for .mts and .ts, MPEG-2 with MPEG audio for HDV's .m2t)
// with one sound stream per WAV of `tracks`; none gives a file without sound.
Status encodeVideo(const Ffmpeg& ffmpeg, const std::filesystem::path& out, const std::string& target,
                   const Picture& picture, const std::vector<std::filesystem::path>& tracks,
                   const SoundFormat& sound, const std::string& creationTime);

// A camera's thumbnail: one small JPEG picture of its colour.
Status writeThumbnail(const Ffmpeg& ffmpeg, const std::filesystem::path& out, const std::string& target,
                      uint32_t colour);

// A sound file whose codec follows the extension: wav (PCM), flac, mp3,
// m4a (AAC), mkv and webm (Opus, as phones and web recorders write it, or
// Vorbis), opus (Opus in Ogg), ogg (Vorbis, or Opus).
Status encodeAudio(const Ffmpeg& ffmpeg, const std::filesystem::path& out, const std::string& target,
                   const std::filesystem::path& wav, const SoundFormat& sound, const std::string& creationTime);

}  // namespace qv::setgen
