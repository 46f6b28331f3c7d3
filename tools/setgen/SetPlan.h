// SetPlan: everything a generated set will hold, decided before anything is
// rendered: the music, and for each file its place on the time line, its
// picture, its microphones and what the program is expected to make of it.
// Presets build plans; SetWriter carries them out and writes the truth.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Microphone.h"
#include "Music.h"
#include "Recording.h"

namespace qv::setgen {

enum class FileKind { camera, audio };

// What happens in front of a camera over a stretch of its file: a slow pan
// (a good shot that moves), or one of the faults that make a shot unusable.
enum class LensEvent { pan, black, blur, shake, hand, frozen };

struct PictureEvent {
    LensEvent what = LensEvent::pan;
    double from = 0, to = 0;  // seconds on the file's own time line
};

struct FilePlan {
    std::string path;    // relative to the set folder, "Cam 1/clip 1.mp4"
    std::string source;  // the top folder, "Cam 1"; empty for the set folder itself
    FileKind kind = FileKind::camera;
    double start = 0;     // seconds on the music's time line
    double duration = 0;  // seconds
    int music = 0;        // index into SetPlan::musics

    // Picture of a camera file.
    int cameraNumber = 0;
    int clipNumber = 0;
    int width = 320, height = 180;
    int fpsNum = 25, fpsDen = 1;
    Recording recording = Recording::sdr;  // 10-bit HEVC, HDR or tagged oddly, when not sdr
    int rotation = 0;                      // degrees of display rotation in its metadata
    // A real camera's weight (Encode.h, Grain): noise strength and bit rate;
    // 0 keeps the light synthetic picture.
    int grain = 0;
    int bitrateKbps = 0;
    // How the encoder spends those bits (with grain only): B-frames between
    // anchors, seconds between key frames, and P-frames carrying most of the
    // bits (B-frames coarse and never referred to), as on grain-heavy footage.
    int bFrames = 3;
    double gopSeconds = 2;
    bool bitsInP = false;
    // How the camera lays its frames out beyond their size: spacing that
    // follows light and heat (a phone, FrameTimes.h), interlaced fields with
    // a bar sweeping across (a camcorder), or anamorphic pixels (HDV): then
    // `width` is the display width and `storedWidth` what the file stores.
    bool variableRate = false;
    bool interlaced = false;
    int storedWidth = 0;
    // What an action camera writes beside a chapter, by file name (empty:
    // nothing): a light copy of it with the same timing (.LRV) and a
    // thumbnail (.THM).
    std::string previewCopy;
    std::string thumbnail;
    // A file with events films a textured scene instead of a flat colour,
    // so that focus, shake and pans show; its events go to the truth.
    std::vector<PictureEvent> events;

    // Sound: one stream per microphone, none for a file without sound.
    int sampleRate = 48000;
    int channels = 2;
    int pcmBits = 16;
    std::vector<Microphone> mics;
    bool silent = false;                 // streams of digital silence
    double drift = 0;                    // ppm its clock runs fast: it records the music slowed down
    std::vector<std::pair<double, double>> gaps;  // file-time spans of digital silence
    std::string audioCodec;              // "pcm" for PCM in a MOV, "opus" or "vorbis" where a container takes either; empty: the container's usual codec
    std::optional<int64_t> recordedAt;   // creation date, seconds since 1970 (UTC)

    // Files that are not encoded media.
    bool truncate = false;         // cut to half its size once written
    std::optional<std::string> raw;  // written as these bytes, not encoded

    // What recorders and cameras write beside their sound (DevicePresets.cpp).
    // Microphone k goes to channel micChannels[k] of a sound file, the others
    // staying digital silence; empty: each microphone fills every channel.
    std::vector<int> micChannels;
    double levelDb = 0;                  // the whole file, e.g. -12 for a safety copy
    std::vector<int> silentStreams;      // sound streams of a camera file left digitally silent
    bool byteWave = false;               // a WAV, W64 or RF64 written byte by byte (WaveFiles.h)
    bool rf64 = false;                   // RF64 container whatever the extension
    bool noLayout = false;               // extensible format without a channel mask
    std::optional<uint64_t> timeReference;  // bext: first sample counted from midnight
    std::string bextDate, bextTime;      // "yyyy-mm-dd", "hh:mm:ss"
    std::optional<std::string> rawBext;  // a damaged bext chunk, as these bytes
    std::string takeName;                // iXML take and family; empty: no iXML
    std::vector<std::string> trackNames;  // iXML track names
    std::string timecode;                // "hh:mm:ss:ff" of the first frame, written as a timecode track
    // What the truth says of how files of one source belong together.
    std::string take;     // files written at one moment share it
    std::string lane;     // the track this file of a take holds
    std::string follows;  // the earlier piece of the same recording (its path)

    // What the program should make of it.
    bool sound = true;  // holds usable sound that can be placed
    std::string expect = "placed";  // "placed", "unsynced", "unreadable", "ignored"
    std::string note;               // which hard case it is, e.g. "silent-video"; empty for plain files
};

struct SetPlan {
    std::string preset;
    uint64_t seed = 1;
    std::vector<MusicRecipe> musics;  // the first one is the set's own time line
    std::vector<FilePlan> files;
};

}  // namespace qv::setgen
