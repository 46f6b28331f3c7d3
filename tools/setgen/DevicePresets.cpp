// Presets of devices as they really write: a multitrack recorder's take in
// several files, recordings cut in pieces, recorders that stamp their
// files (bext, iXML), cameras that write timecode, polyphonic files without
// a channel layout, a camera whose first sound stream is silent, Wave64 and
// RF64 containers.
#include <cmath>

#include "PresetBuilder.h"
#include "base/Text.h"

namespace qv::setgen {

namespace {

constexpr int rate = 48000;
constexpr double doorsOpen = 22 * 3600.0;  // the set's time 0 on the wall clock

// "hh:mm:ss" of a time of day in seconds.
std::string clockText(double seconds) {
    const auto s = static_cast<long>(std::floor(seconds)) % 86400;
    return cformat("%02ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
}

// A recorder whose clock stands `clock` seconds off the wall: its file
// starting at set time `start` is stamped with the count of samples since
// midnight, and the date and time of that moment.
void stamp(FilePlan& f, double clock) {
    const double wall = doorsOpen + clock + f.start;
    const double day = std::floor(wall / 86400);
    const double ofDay = wall - day * 86400;
    f.timeReference = static_cast<uint64_t>(std::llround(ofDay * rate));
    f.bextDate = cformat("2024-06-%02d", 15 + static_cast<int>(day));
    f.bextTime = clockText(ofDay);
}

// A recorder file written byte by byte at the music's own rate.
FilePlan& recorderFile(Builder& b, int number, const std::string& name, double start, double duration, int channels) {
    FilePlan& f = b.recorder(number, name, start, duration);
    f.byteWave = true;
    f.sampleRate = rate;
    f.channels = channels;
    f.pcmBits = 24;
    return f;
}

// Timecode of a camera whose clock runs `ppm` fast and stands `clock`
// seconds off the wall, at set time `at`, in frames of `fps`.
std::string timecodeAt(double at, double clock, double ppm, int fps) {
    const double wall = doorsOpen + clock + at * (1 + ppm * 1e-6);
    const auto frames = static_cast<long>(std::llround(wall * fps));
    const long seconds = frames / fps;
    return cformat("%02ld:%02ld:%02ld:%02ld", seconds / 3600 % 24, seconds / 60 % 60, seconds % 60, frames % fps);
}

// Seven minutes of looped club music heard by:
// - Son 1, the table recorder, over the whole set (the reference);
// - Son 2, a multitrack recorder's take: a stereo mix, one file per input
//   (the second a far room microphone, faint under its own hiss) and a
//   safety copy 12 dB lower, all stamped alike, with iXML track names;
// - Son 3, one recording split in three pieces, stamped, the middle piece
//   drowned in hiss;
// - Son 4, two stamped files, the second with almost no sound at all:
//   only its stamp can place it;
// - Son 5, a polyphonic file of six channels without layout, the sound on
//   channel 4 alone;
// - Son 6 and Son 7, a Wave64 file, an RF64 file and RF64 content under a
//   ".wav" name;
// - Cam 1, three chapters of one recording from a camera whose clock runs
//   400 ppm fast, with continuous timecode;
// - Cam 2, a camera whose own microphone was off (its first sound stream
//   is silent) and whose external one feeds the second, with a timecode.
SetPlan devices(Builder& b) {
    const double length = 440;
    b.addMusic(length, 2, rate, true, 1.2);
    b.pictureSize(160, 90);
    SplitMix64& rng = b.rng();

    FilePlan& table = b.recorder(1, "table.wav", 0, length);
    table.sampleRate = rate;
    table.note = "reference";

    // The take: input 1 near the booth, input 2 far in the room.
    const Microphone booth = Microphone::recorder(rng);
    Microphone far = Microphone::recorder(rng);
    far.gain = 0.25;
    far.hiss = 0.05;
    struct Lane {
        const char* name;
        std::vector<int> inputs;  // 0: booth, 1: far
        double levelDb;
    };
    const Lane lanes[] = {{"LR", {0, 1}, 0}, {"Tr1", {0}, 0}, {"Tr2", {1}, 0}, {"LR-12", {0, 1}, -12}};
    for (const Lane& lane : lanes) {
        FilePlan& f = recorderFile(b, 2, cformat("ZOOM0001_%s.WAV", lane.name), 60, 120,
                                   static_cast<int>(lane.inputs.size()));
        f.mics.clear();
        f.micChannels.clear();
        f.trackNames.clear();
        for (size_t k = 0; k < lane.inputs.size(); ++k) {
            f.mics.push_back(lane.inputs[k] == 0 ? booth : far);
            f.micChannels.push_back(static_cast<int>(k));
            f.trackNames.push_back(lane.inputs.size() == 1 ? lane.name : k == 0 ? "Tr1" : "Tr2");
        }
        f.levelDb = lane.levelDb;
        stamp(f, 3 * 60 + 12.5);
        f.takeName = "ZOOM0001";
        f.take = "Son 2/ZOOM0001";
        f.lane = lane.name;
        f.note = "take";
    }

    // One recording in three pieces, no sample lost between them.
    double at = 30;
    std::string previous;
    for (int k = 1; k <= 3; ++k) {
        FilePlan& f = recorderFile(b, 3, cformat("LIVE%04d.WAV", k), at, 70, 2);
        stamp(f, -47 * 60.0);
        if (k == 2) {
            f.mics.front().gain = 0.02;
            f.mics.front().hiss = 0.08;
            f.note = "weak-piece";
        } else {
            f.note = "piece";
        }
        f.follows = previous;
        previous = f.path;
        at = f.start + f.duration;
    }

    // Two stamped files; the second heard nothing of the room.
    stamp(recorderFile(b, 4, "REC0001.WAV", 10, 60, 2), 5 * 3600 + 11);
    FilePlan& deaf = recorderFile(b, 4, "REC0002.WAV", 300, 40, 2);
    deaf.mics.front().gain = 0.0;
    deaf.mics.front().hiss = 0.01;
    stamp(deaf, 5 * 3600 + 11);
    deaf.note = "stamp-only";

    FilePlan& poly = recorderFile(b, 5, "poly.wav", 200, 60, 6);
    poly.micChannels = {3};
    poly.noLayout = true;
    poly.note = "channel-4-of-6";

    recorderFile(b, 6, "prise.w64", 100, 50, 2).note = "w64";
    recorderFile(b, 7, "prise.rf64", 150, 50, 2).note = "rf64";
    FilePlan& inside = recorderFile(b, 7, "suite.wav", 250, 40, 2);
    inside.rf64 = true;
    inside.note = "rf64-in-wav";

    // Chapters of a camera whose clock runs fast: each starts where the
    // previous one ended on the set's time line.
    b.rate(1, 25, 1);
    b.style(1).dated = false;
    const double ppm = 400, cameraClock = 137;
    at = 20;
    previous.clear();
    int chapter = 1;
    for (double seconds : {150.0, 150.0, 90.0}) {
        FilePlan& f = b.camera(1, chapter, at, seconds, cformat("GX%02d0050.MP4", chapter));
        f.drift = ppm;
        f.timecode = timecodeAt(f.start, cameraClock, ppm, 25);
        f.follows = previous;
        f.note = "chapter";
        previous = f.path;
        at = f.start + f.duration / (1 + ppm * 1e-6);
        ++chapter;
    }

    // The camera microphone off, an external one on the second stream.
    b.rate(2, 25, 1);
    b.style(2).dated = false;
    b.style(2).channels = 2;
    FilePlan& cam2 = b.camera(2, 1, 120, 60, "C0001.MOV");
    cam2.mics.push_back(Microphone::recorder(rng));
    cam2.silentStreams = {0};
    cam2.timecode = timecodeAt(cam2.start, -20, 0, 25);
    cam2.note = "silent-first-stream";
    return b.take();
}

}  // namespace

const NamedPresets& devicePresets() {
    static const NamedPresets list = {{"devices", devices}};
    return list;
}

}  // namespace qv::setgen
