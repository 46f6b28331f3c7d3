#include "sync/AudioLoader.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "platform/MediaProbe.h"
#include "platform/MediaTime.h"
#include "platform/Process.h"

namespace qv::AudioLoader {

const std::vector<std::filesystem::path> ffmpegCandidates = {
    "/opt/homebrew/bin/ffmpeg", "/usr/local/bin/ffmpeg", "/usr/bin/ffmpeg"};

Error unreadable(const std::filesystem::path& path) {
    return Error{"Impossible de lire l'audio de " + path.filename().string() + "."};
}

namespace {
constexpr int tapCount = 33;

std::array<float, tapCount> makeTaps() {
    std::array<double, tapCount> taps{};
    const double fc = 0.45 / factor;
    double sum = 0;
    for (int i = 0; i < tapCount; ++i) {
        int m = i - 16;
        double ideal = m == 0 ? 2 * fc : std::sin(2 * M_PI * fc * m) / (M_PI * m);
        double window = 0.54 - 0.46 * std::cos(2 * M_PI * i / 32.0);
        taps[i] = ideal * window;
        sum += taps[i];
    }
    std::array<float, tapCount> out{};
    for (int i = 0; i < tapCount; ++i) out[i] = static_cast<float>(taps[i] / sum);
    return out;
}
}  // namespace

std::vector<float> decimate(const std::vector<float>& x) { return decimate(x, 0); }

std::vector<float> decimate(const std::vector<float>& x, int lead) {
    static const std::array<float, tapCount> taps = makeTaps();
    const size_t total = x.size() + static_cast<size_t>(std::max(lead, 0));
    if (x.empty() || total < tapCount + 1) return {};
    size_t count = (total - tapCount) / factor + 1;
    std::vector<float> out(count);
    for (size_t n = 0; n < count; ++n) {
        // Input index of tap 0; the first few outputs reach into the zeros.
        long first = static_cast<long>(factor * n) - lead;
        float acc = 0;
        if (first >= 0) {
            const float* p = x.data() + first;
            for (int k = 0; k < tapCount; ++k) acc += p[k] * taps[k];
        } else {
            for (long k = -first; k < tapCount; ++k) acc += x[static_cast<size_t>(first + k)] * taps[k];
        }
        out[n] = acc;
    }
    return out;
}

Result<std::vector<float>> loadWithLibav(const std::filesystem::path& path, media::SoundLevels* levels) {
    auto sound = media::decodeMonoAudio(path, decodeRate);
    if (!sound) return unreadable(path);
    if (levels) *levels = std::move(sound->levels);
    return decimate(sound->samples, decimateDelay);
}

Result<std::vector<float>> loadWithFFmpeg(const std::filesystem::path& path, media::SoundLevels* levels) {
    if (levels) *levels = {};
    std::filesystem::path tool = process::findExecutable(ffmpegCandidates);
    if (tool.empty()) return unreadable(path);
    // Held to plain local media, as the first road is: a playlist must not
    // make the tool read other files.
    auto run = process::run(tool, {"-v", "error", "-protocol_whitelist", "file", "-format_whitelist",
                                   media::mediaFormats(), "-i", path.string(), "-vn", "-ac", "1", "-ar", "2000",
                                   "-f", "f32le", "-"});
    if (!run) return run.error();
    if (run->exitCode != 0) return unreadable(path);
    // The tool starts with the first sound it decodes; from time zero that
    // lies `lead` seconds on. Without an answer from libav, as it comes.
    size_t count = run->out.size() / 4;
    auto lead = media::soundLead(path);
    long shift = lead ? std::lround(*lead * analysisRate) : 0;
    size_t skip = shift < 0 ? std::min(count, static_cast<size_t>(-shift)) : 0;
    size_t pad = shift > 0 ? static_cast<size_t>(shift) : 0;
    std::vector<float> signal(pad + count - skip, 0.0f);
    // Little-endian floats, as this machine stores them.
    std::memcpy(signal.data() + pad, run->out.data() + skip * 4, (count - skip) * 4);
    return signal;
}

}  // namespace qv::AudioLoader
