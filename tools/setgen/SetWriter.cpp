// Writing a planned set: music, microphones, encoding, then the truth file.
#include "SetWriter.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>
#include <chrono>
#include <cmath>
#include <ctime>
#include <fstream>
#include <optional>

#include "Encode.h"
#include "WaveFiles.h"
#include "FrameTimes.h"
#include "base/SystemError.h"
#include "base/Json.h"
#include "base/Text.h"

namespace fs = std::filesystem;

namespace qv::setgen {

namespace {

const char* const markerName = ".quorvel-setgen";  // hidden: the scanner never sees it

const uint32_t palette[] = {0x1f4e79, 0x7a1f2b, 0x2e6b30, 0x6b4a1f, 0x4b2a6b, 0x1f6b6b, 0x6b1f5c, 0x444444};

std::string isoDate(int64_t seconds) {
    std::time_t t = static_cast<std::time_t>(seconds);
    std::tm tm{};
    gmtime_r(&t, &tm);
    return cformat("%04d-%02d-%02dT%02d:%02d:%02d.000000Z", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,
                   tm.tm_hour, tm.tm_min, tm.tm_sec);
}

// Temporary WAVs live beside the set under hidden names and go when done,
// whatever happens to the encoding.
class TempFiles {
public:
    ~TempFiles() {
        for (const auto& p : paths_) {
            std::error_code ec;
            fs::remove(p, ec);
        }
    }
    void add(fs::path p) { paths_.push_back(std::move(p)); }
    const std::vector<fs::path>& paths() const { return paths_; }

private:
    std::vector<fs::path> paths_;
};

Status prepareFolder(const fs::path& folder) {
    std::error_code ec;
    if (fs::exists(folder, ec)) {
        if (!fs::is_directory(folder, ec)) return Error{"La sortie n'est pas un dossier : " + folder.string()};
        if (!fs::is_empty(folder, ec)) {
            if (!fs::exists(folder / "truth.json", ec) && !fs::exists(folder / markerName, ec))
                return Error{"Le dossier de sortie n'est pas vide : " + folder.string()};
            for (const auto& entry : fs::directory_iterator(folder, ec)) fs::remove_all(entry.path(), ec);
            if (ec) return Error{"Impossible de vider " + folder.string() + " : " + systemMessage(ec)};
        }
    } else if (!fs::create_directories(folder, ec)) {
        return Error{"Impossible de créer " + folder.string() + " : " + systemMessage(ec)};
    }
    std::ofstream(folder / markerName) << "quorvel-setgen\n";
    return Ok{};
}

Status writeBytes(const fs::path& file, const std::string& bytes) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) return Error{"Impossible d'écrire " + file.string()};
    return Ok{};
}

// What a device whose clock runs `ppm` fast records from `start` on: its
// sample i is heard at music time start + i / rate / (1 + ppm 1e-6), read
// between the music's samples by linear interpolation.
std::vector<float> slowed(const Music& music, double start, size_t count, double ppm) {
    std::vector<float> out(count, 0.0f);
    const double step = 1.0 / (1.0 + ppm * 1e-6);
    const double first = start * music.rate;
    for (size_t i = 0; i < count; ++i) {
        double x = first + static_cast<double>(i) * step;
        auto k = static_cast<size_t>(x);
        if (k + 1 >= music.samples.size()) break;
        float f = static_cast<float>(x - static_cast<double>(k));
        out[i] = music.samples[k] + (music.samples[k + 1] - music.samples[k]) * f;
    }
    return out;
}

// What microphone `mic` of file `f` records of its music on `channels`
// channels: from the file's start, slowed by its clock's drift, with its
// gaps of digital silence.
std::vector<float> heard(const FilePlan& f, const Microphone& mic, const Music& music, int channels) {
    const int rate = music.rate;
    auto first = static_cast<size_t>(std::llround(f.start * rate));
    auto count = static_cast<size_t>(std::llround(f.duration * rate));
    first = std::min(first, music.samples.size());
    count = std::min(count, music.samples.size() - first);
    std::vector<float> samples;
    if (f.drift != 0) {
        std::vector<float> slow = slowed(music, f.start, count, f.drift);
        samples = mic.record(slow.data(), slow.size(), rate, channels);
    } else {
        samples = mic.record(music.samples.data() + first, count, rate, channels);
    }
    const size_t c = static_cast<size_t>(channels);
    for (const auto& [from, to] : f.gaps) {
        auto a = std::min(samples.size(), static_cast<size_t>(std::llround(from * rate)) * c);
        auto b = std::min(samples.size(), static_cast<size_t>(std::llround(to * rate)) * c);
        std::fill(samples.begin() + static_cast<long>(a), samples.begin() + static_cast<long>(b), 0.0f);
    }
    return samples;
}

// A polyphonic recorder file: each microphone on its own channel (or on
// all of them), the others silent, at the file's level, with its stamps.
template <class MusicFor>
Status writeByteWave(const FilePlan& f, const fs::path& target, MusicFor&& musicFor) {
    const Music& music = musicFor(static_cast<size_t>(f.music));
    const size_t channels = static_cast<size_t>(f.channels);
    const size_t frames = static_cast<size_t>(std::llround(f.duration * music.rate));
    std::vector<float> out(frames * channels, 0.0f);
    const float level = static_cast<float>(std::pow(10.0, f.levelDb / 20));
    for (size_t m = 0; m < f.mics.size() && !f.silent; ++m) {
        const bool one = m < f.micChannels.size();
        std::vector<float> s = heard(f, f.mics[m], music, one ? 1 : f.channels);
        const size_t got = s.size() / (one ? 1 : channels);
        for (size_t i = 0; i < std::min(got, frames); ++i) {
            if (one)
                out[i * channels + static_cast<size_t>(f.micChannels[m])] += level * s[i];
            else
                for (size_t c = 0; c < channels; ++c) out[i * channels + c] += level * s[i * channels + c];
        }
    }
    WaveFile w;
    w.channels = f.channels;
    w.rate = music.rate;
    w.bits = f.pcmBits;
    const std::string ext = toLower(target.extension().string());
    w.container = ext == ".w64" ? WaveContainer::w64 : f.rf64 || ext == ".rf64" ? WaveContainer::rf64 : WaveContainer::riff;
    w.noLayout = f.noLayout;
    w.rawBext = f.rawBext;
    if (f.timeReference) {
        WaveStamp stamp;
        stamp.date = f.bextDate;
        stamp.time = f.bextTime;
        stamp.timeReference = *f.timeReference;
        stamp.description = f.take.empty() ? f.path : f.take;
        stamp.originator = f.source;
        w.bext = stamp;
    }
    if (!f.takeName.empty()) w.ixml = WaveXml{"devices", f.takeName, f.takeName, f.trackNames};
    return writeWave(target, out, w);
}

json::Json truthOf(const SetPlan& plan, const std::vector<std::optional<Music>>& musics) {
    json::Json j;
    j["seed"] = plan.seed;
    j["preset"] = plan.preset;
    j["duration"] = plan.musics.front().duration;
    const std::optional<Music>& main = musics.front();
    // A set made only of silence never renders its music and has no tempo.
    j["bpm"] = main ? main->bpm : 0.0;
    j["drops"] = main ? json::Json(main->drops) : json::Json::array();
    json::Json breaks = json::Json::array();
    if (main)
        for (const auto& [s, e] : main->breaks) breaks.push_back({s, e});
    j["breaks"] = breaks;
    json::Json files = json::Json::array();
    for (const FilePlan& f : plan.files) {
        json::Json o;
        o["path"] = f.path;
        o["source"] = f.source;
        o["kind"] = f.kind == FileKind::camera ? "camera" : "audio";
        o["start"] = f.start;
        o["duration"] = f.duration;
        if (f.drift != 0) o["drift"] = f.drift;
        o["sound"] = f.sound;
        bool filtered = false;
        for (const Microphone& m : f.mics) filtered = filtered || m.filtered();
        o["filtered"] = filtered && !f.silent;
        o["expect"] = f.expect;
        o["streams"] = f.mics.size();
        if (f.recordedAt) o["recordedAt"] = isoDate(*f.recordedAt);
        if (!f.note.empty()) o["case"] = f.note;
        if (f.recording != Recording::sdr) o["recording"] = recordingName(f.recording);
        if (f.rotation != 0) o["rotation"] = f.rotation;
        if (!f.take.empty()) o["take"] = f.take;
        if (!f.lane.empty()) o["lane"] = f.lane;
        if (!f.follows.empty()) o["follows"] = f.follows;
        if (f.timeReference) o["timeReference"] = *f.timeReference;
        if (!f.timecode.empty()) o["timecode"] = f.timecode;
        if (!f.events.empty()) {
            // What the camera saw, on the file's own time line.
            static const char* const names[] = {"pan", "black", "blur", "shake", "hand", "frozen"};
            json::Json events = json::Json::array();
            for (const PictureEvent& e : f.events)
                events.push_back({{"what", names[static_cast<int>(e.what)]}, {"from", e.from}, {"to", e.to}});
            o["events"] = std::move(events);
        }
        files.push_back(std::move(o));
    }
    j["files"] = std::move(files);
    return j;
}

}  // namespace

Status writeSet(const SetPlan& plan, const fs::path& folder, std::ostream& log) {
    const auto began = std::chrono::steady_clock::now();
    auto ffmpeg = Ffmpeg::locate();
    if (!ffmpeg) return ffmpeg.error();
    if (Status s = prepareFolder(folder); !s) return s;

    std::vector<std::optional<Music>> musics(plan.musics.size());
    auto musicFor = [&](size_t index) -> const Music& {
        if (!musics[index]) {
            const MusicRecipe& recipe = plan.musics[index];
            log << cformat("Rendu de la musique %zu : %.0f s à %d Hz\n", index + 1, recipe.duration, recipe.rate)
                << std::flush;
            const auto t0 = std::chrono::steady_clock::now();
            musics[index] = renderMusic(recipe);
            const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
            log << cformat("  %.2f BPM, %zu drop(s), %zu break(s), rendue en %.1f s\n", musics[index]->bpm,
                           musics[index]->drops.size(), musics[index]->breaks.size(), took)
                << std::flush;
        }
        return *musics[index];
    };

    // Render up front what the files will need (silence needs no music).
    for (const FilePlan& f : plan.files)
        if (!f.raw && !f.silent && !f.mics.empty()) musicFor(static_cast<size_t>(f.music));

    std::mutex logLock;
    auto writeFile = [&](size_t i) -> Status {
        const FilePlan& f = plan.files[i];
        {
            std::lock_guard guard(logLock);
            log << cformat("[%zu/%zu] %s\n", i + 1, plan.files.size(), f.path.c_str()) << std::flush;
        }
        const fs::path target = folder / fs::path(f.path);
        std::error_code ec;
        fs::create_directories(target.parent_path(), ec);
        if (ec) return Error{"Impossible de créer " + target.parent_path().string() + " : " + systemMessage(ec)};

        if (f.raw) {
            return writeBytes(target, *f.raw);
        }

        // A recorder's file written byte by byte, with its stamps.
        if (f.byteWave) return writeByteWave(f, target, musicFor);

        // The sound of each stream: the mix from start to start + duration,
        // as each microphone hears it.
        TempFiles temps;
        int rate = f.sampleRate;
        for (size_t m = 0; m < f.mics.size(); ++m) {
            const bool silent = f.silent || std::find(f.silentStreams.begin(), f.silentStreams.end(),
                                                      static_cast<int>(m)) != f.silentStreams.end();
            if (!silent) rate = musicFor(static_cast<size_t>(f.music)).rate;
            std::vector<float> samples =
                silent ? std::vector<float>(static_cast<size_t>(std::llround(f.duration * rate)) *
                                                static_cast<size_t>(f.channels),
                                            0.0f)
                       : heard(f, f.mics[m], musicFor(static_cast<size_t>(f.music)), f.channels);
            fs::path temp = folder / cformat(".setgen-%zu-%zu.wav", i, m);
            temps.add(temp);
            if (Status s = writeFloatWav(temp, samples, f.channels, rate); !s) return s;
        }

        SoundFormat sound{f.sampleRate, f.channels, f.pcmBits, f.audioCodec == "pcm",
                          f.audioCodec == "pcm" ? std::string() : f.audioCodec};
        std::string date = f.recordedAt ? isoDate(*f.recordedAt) : std::string();
        Status encoded = Ok{};
        if (f.kind == FileKind::camera) {
            Picture picture;
            picture.width = f.width;
            picture.height = f.height;
            picture.fpsNum = f.fpsNum;
            picture.fpsDen = f.fpsDen;
            picture.frames = f.variableRate ? frametimes::count(f.duration + 1e-9)
                                            : std::lround(f.duration * f.fpsNum / f.fpsDen);
            picture.variableRate = f.variableRate;
            picture.interlaced = f.interlaced;
            picture.storedWidth = f.storedWidth;
            picture.label = "CAM " + std::to_string(f.cameraNumber);
            picture.caption = "clip " + std::to_string(f.clipNumber);
            picture.colour = palette[static_cast<size_t>(f.cameraNumber - 1) % std::size(palette)];
            picture.clock = f.start;
            picture.camera = f.cameraNumber;
            picture.clip = f.clipNumber;
            picture.recording = f.recording;
            picture.rotation = f.rotation;
            picture.timecode = f.timecode;
            if (f.rotation % 180 != 0) std::swap(picture.width, picture.height);  // drawn upright
            if (f.grain > 0) {
                picture.grain.strength = f.grain;
                picture.grain.bitrateKbps = f.bitrateKbps;
                picture.grain.bFrames = f.bFrames;
                picture.grain.gopSeconds = f.gopSeconds;
                picture.grain.bitsInP = f.bitsInP;
                picture.grain.seed = plan.seed * 1000003u + i;
            }
            picture.events = f.events;
            encoded = encodeVideo(*ffmpeg, target, f.path, picture, temps.paths(), sound, date);
            // Beside the chapter, as an action camera leaves them: its light
            // copy (half the size, the same timing and sound) and its thumbnail.
            if (encoded && !f.previewCopy.empty()) {
                Picture light = picture;
                light.width = std::max(2, picture.width / 4 * 2);
                light.height = std::max(2, picture.height / 4 * 2);
                light.storedWidth = picture.storedWidth / 4 * 2;
                light.grain = {};
                encoded = encodeVideo(*ffmpeg, target.parent_path() / f.previewCopy, f.path, light, temps.paths(),
                                      sound, date);
            }
            if (encoded && !f.thumbnail.empty())
                encoded = writeThumbnail(*ffmpeg, target.parent_path() / f.thumbnail, f.path, picture.colour);
        } else {
            if (temps.paths().empty()) return Error{"Fichier son sans micro : " + f.path};
            encoded = encodeAudio(*ffmpeg, target, f.path, temps.paths().front(), sound, date);
        }
        if (!encoded) return encoded;

        if (f.truncate) {
            auto size = fs::file_size(target, ec);
            if (!ec) fs::resize_file(target, size / 2, ec);
            if (ec) return Error{"Impossible de tronquer " + f.path + " : " + systemMessage(ec)};
        }
        return Ok{};
    };

    // Files are independent: one encoder per core, each ffmpeg on one thread.
    // The first failure stops the others from taking new files.
    std::atomic<size_t> next{0};
    std::optional<Error> failed;
    std::mutex failLock;
    auto worker = [&] {
        for (size_t i; (i = next++) < plan.files.size();) {
            Status s = writeFile(i);
            if (s) continue;
            std::lock_guard guard(failLock);
            if (!failed) failed = s.error();
            next = plan.files.size();
        }
    };
    const size_t count = std::clamp<size_t>(std::thread::hardware_concurrency(), 1, 8);
    std::vector<std::thread> workers;
    for (size_t k = 1; k < std::min(count, plan.files.size()); ++k) workers.emplace_back(worker);
    worker();
    for (auto& w : workers) w.join();
    if (failed) return *failed;

    // The truth comes last: its presence says the set is complete.
    const std::string text =
        truthOf(plan, musics).dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    if (Status s = writeBytes(folder / "truth.json.tmp", text); !s) return s;
    std::error_code ec;
    fs::rename(folder / "truth.json.tmp", folder / "truth.json", ec);
    if (ec) return Error{"Impossible d'écrire truth.json : " + systemMessage(ec)};
    fs::remove(folder / markerName, ec);

    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    log << cformat("Set « %s » (graine %llu) écrit en %.1f s : %zu fichiers dans %s\n", plan.preset.c_str(),
                   static_cast<unsigned long long>(plan.seed), seconds, plan.files.size(), folder.c_str())
        << std::flush;
    return Ok{};
}

}  // namespace qv::setgen
