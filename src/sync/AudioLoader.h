// AudioLoader: reduces a file's sound to the analysis signal, every stream
// and channel mixed to one, 32-bit floats at 2000 samples per second.
// Two roads: libav at 8 kHz followed by `decimate`, and the `ffmpeg`
// executable straight at 2 kHz for what libav refuses. The caller chooses.
#pragma once

#include <filesystem>
#include <vector>

#include "base/Result.h"

namespace qv::AudioLoader {

constexpr int analysisRate = 2000;
constexpr int decodeRate = 8000;
constexpr int factor = 4;

// "Impossible de lire l'audio de {file}."
Error unreadable(const std::filesystem::path& path);

Result<std::vector<float>> loadWithLibav(const std::filesystem::path& path);
Result<std::vector<float>> loadWithFFmpeg(const std::filesystem::path& path);

// Windowed-sinc low-pass (33 taps) and 4-to-1 reduction in one step. Fewer
// than 34 samples give nothing. The 16-sample delay is not compensated: all
// signals of this road share it.
std::vector<float> decimate(const std::vector<float>& x);

// Where the executable is looked for, in order.
extern const std::vector<std::filesystem::path> ffmpegCandidates;

}  // namespace qv::AudioLoader
