#include "sync/AudioLoader.h"

#include <array>
#include <cmath>
#include <cstring>

#include "platform/MediaProbe.h"
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

std::vector<float> decimate(const std::vector<float>& x) {
    static const std::array<float, tapCount> taps = makeTaps();
    if (x.size() < tapCount + 1) return {};
    size_t count = (x.size() - tapCount) / factor + 1;
    std::vector<float> out(count);
    for (size_t n = 0; n < count; ++n) {
        const float* p = x.data() + factor * n;
        float acc = 0;
        for (int k = 0; k < tapCount; ++k) acc += p[k] * taps[k];
        out[n] = acc;
    }
    return out;
}

Result<std::vector<float>> loadWithLibav(const std::filesystem::path& path) {
    auto samples = media::decodeMonoAudio(path, decodeRate);
    if (!samples) return unreadable(path);
    return decimate(*samples);
}

Result<std::vector<float>> loadWithFFmpeg(const std::filesystem::path& path) {
    std::filesystem::path tool = process::findExecutable(ffmpegCandidates);
    if (tool.empty()) return unreadable(path);
    // Held to plain local media, as the first road is: a playlist must not
    // make the tool read other files.
    auto run = process::run(tool, {"-v", "error", "-protocol_whitelist", "file", "-format_whitelist",
                                   media::mediaFormats(), "-i", path.string(), "-vn", "-ac", "1", "-ar", "2000",
                                   "-f", "f32le", "-"});
    if (!run) return run.error();
    if (run->exitCode != 0) return unreadable(path);
    std::vector<float> signal(run->out.size() / 4);
    // Little-endian floats, as this machine stores them.
    std::memcpy(signal.data(), run->out.data(), signal.size() * 4);
    return signal;
}

}  // namespace qv::AudioLoader
