// The generator's preset builder: a preset lays out its cameras and recorders
// on the set's time line with draws from one SplitMix64 (`Builder::rng`), so a
// seed fixes the whole plan. Each family of presets lives in a file of its own
// and hands its named makers to the table in Presets.cpp.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Dsp.h"
#include "SetPlan.h"

namespace qv::setgen {

inline constexpr int64_t baseDate = 1718488800;  // 2024-06-15 22:00:00 UTC, doors open

// How one camera records, the same for all its clips.
struct CameraStyle {
    int fpsNum = 25, fpsDen = 1;
    int sampleRate = 48000;
    int channels = 2;
    std::string extension = ".mp4";
    bool dated = false;
    bool datesAtEnd = false;  // stamped when the file closes, as many action cameras and phones do
    int64_t clock = 0;        // seconds its clock is ahead of the others
};

// `count` clips between `from` and `to`, each `minLen` to `maxLen` long
// (shrunk when they cannot fit) and at least `minGap` apart, never overlapping.
std::vector<std::pair<double, double>> layout(SplitMix64& rng, double from, double to, int count, double minLen,
                                              double maxLen, double minGap);

class Builder {
public:
    Builder(std::string preset, uint64_t seed) : rng_(seed ^ presetHash(preset)) {
        plan_.preset = std::move(preset);
        plan_.seed = seed;
    }

    SplitMix64& rng() { return rng_; }
    SetPlan take() { return std::move(plan_); }

    int addMusic(double duration, int drops, int rate = 48000, bool phrases = false, double room = 1.0) {
        plan_.musics.push_back(MusicRecipe{duration, drops, rate, rng_.next(), phrases, room});
        return static_cast<int>(plan_.musics.size()) - 1;
    }

    double setDuration() const { return plan_.musics.front().duration; }

    void pictureSize(int width, int height) {
        width_ = width;
        height_ = height;
    }

    CameraStyle& style(int camera) {
        auto it = styles_.find(camera);
        if (it != styles_.end()) return it->second;
        CameraStyle s;
        if (chance(rng_, 0.5)) {
            s.fpsNum = 30000;
            s.fpsDen = 1001;
        }
        s.sampleRate = chance(rng_, 0.6) ? 48000 : 44100;
        s.channels = chance(rng_, 0.7) ? 2 : 1;
        s.extension = chance(rng_, 0.7) ? ".mp4" : ".mov";
        s.dated = chance(rng_, 0.5);
        return styles_[camera] = s;
    }

    // Fixes a camera's rate (and MP4 files) before its first clip.
    void rate(int camera, int fpsNum, int fpsDen) {
        CameraStyle& s = style(camera);
        s.fpsNum = fpsNum;
        s.fpsDen = fpsDen;
        s.extension = ".mp4";
    }

    // A camera clip; `name` without extension takes the camera's own.
    FilePlan& camera(int number, int clip, double start, double duration, std::string name = {}, int music = 0) {
        const CameraStyle& s = style(number);
        FilePlan f;
        f.source = "Cam " + std::to_string(number);
        f.path = f.source + "/" + (name.empty() ? "clip " + std::to_string(clip) + s.extension : name);
        f.kind = FileKind::camera;
        f.music = music;
        f.cameraNumber = number;
        f.clipNumber = clip;
        f.width = width_;
        f.height = height_;
        f.fpsNum = s.fpsNum;
        f.fpsDen = s.fpsDen;
        f.sampleRate = s.sampleRate;
        f.channels = s.channels;
        f.start = snap(start, music);
        // Whole frames, ending inside the music.
        double room = std::min(duration, plan_.musics[static_cast<size_t>(music)].duration - f.start);
        auto frames = static_cast<long>(std::floor(room * f.fpsNum / f.fpsDen));
        f.duration = static_cast<double>(frames) * f.fpsDen / f.fpsNum;
        f.mics.push_back(Microphone::camera(rng_));
        if (s.dated) f.recordedAt = baseDate + s.clock + std::llround(s.datesAtEnd ? f.start + f.duration : f.start);
        plan_.files.push_back(std::move(f));
        return plan_.files.back();
    }

    // A sound file of recorder `number`.
    FilePlan& recorder(int number, const std::string& name, double start, double duration, int music = 0) {
        FilePlan f;
        f.source = "Son " + std::to_string(number);
        f.path = f.source + "/" + name;
        f.kind = FileKind::audio;
        f.music = music;
        f.sampleRate = chance(rng_, 0.7) ? 48000 : 44100;
        f.channels = chance(rng_, 0.6) ? 2 : 1;
        f.pcmBits = chance(rng_, 0.5) ? 24 : 16;
        const MusicRecipe& m = plan_.musics[static_cast<size_t>(music)];
        f.start = snap(start, music);
        f.duration = std::floor(std::min(duration, m.duration - f.start) * m.rate) / m.rate;
        f.mics.push_back(Microphone::recorder(rng_));
        // Of the sound containers only MPEG-4 carries a creation date.
        if (name.ends_with(".m4a") && chance(rng_, 0.5)) f.recordedAt = baseDate + std::llround(f.start);
        plan_.files.push_back(std::move(f));
        return plan_.files.back();
    }

    // A recorder running from near the start to near the end of the set.
    FilePlan& mainRecorder(int number, const std::string& name) {
        double d = setDuration();
        double start = uniform(rng_, 0, 0.04 * d);
        double end = uniform(rng_, 0.96 * d, d);
        return recorder(number, name, start, end - start);
    }

    void cameras(int count, int minClips, int maxClips, double minLen, double maxLen, double minGap) {
        for (int c = 1; c <= count; ++c) {
            int clips = uniformInt(rng_, minClips, maxClips);
            auto spans = layout(rng_, 0, setDuration(), clips, minLen, maxLen, minGap);
            for (size_t k = 0; k < spans.size(); ++k)
                camera(c, static_cast<int>(k) + 1, spans[k].first, spans[k].second);
        }
    }

    void raw(const std::string& path, const std::string& source, std::string bytes, std::string note) {
        FilePlan f;
        f.path = path;
        f.source = source;
        f.kind = FileKind::audio;
        f.raw = std::move(bytes);
        f.sound = false;
        f.expect = "ignored";
        f.note = std::move(note);
        plan_.files.push_back(std::move(f));
    }

private:
    static uint64_t presetHash(const std::string& name) {
        uint64_t h = 1469598103934665603ull;  // FNV-1a
        for (unsigned char c : name) h = (h ^ c) * 1099511628211ull;
        return h;
    }

    double snap(double t, int music) const {
        double rate = plan_.musics[static_cast<size_t>(music)].rate;
        return std::max(0.0, std::round(t * rate) / rate);
    }

    SetPlan plan_;
    SplitMix64 rng_;
    std::map<int, CameraStyle> styles_;
    int width_ = 320, height_ = 180;
};

using Maker = SetPlan (*)(Builder&);
using NamedPresets = std::vector<std::pair<std::string, Maker>>;

// Grain and bit rate of a camera that writes `mbps` Mbit/s in full HD,
// scaled to the picture's area so small test pictures stay as dense.
void realFootage(FilePlan& f, double mbps);

// The families kept in files of their own.
const NamedPresets& footagePresets();
const NamedPresets& devicePresets();
const NamedPresets& picturePresets();
const NamedPresets& visionPresets();

}  // namespace qv::setgen
