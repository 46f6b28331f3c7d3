// AudioLoader: reduces a file's sound to the analysis signal, every stream
// and channel mixed to one, 32-bit floats at 2000 samples per second.
// Two roads: libav at 8 kHz followed by `decimate`, and the `ffmpeg`
// executable straight at 2 kHz for what libav refuses. The caller chooses.
#pragma once

#include <filesystem>
#include <vector>

#include "base/Result.h"
#include "platform/MediaProbe.h"

namespace qv::AudioLoader {

constexpr int analysisRate = 2000;
constexpr int decodeRate = 8000;
constexpr int factor = 4;

// "Impossible de lire l'audio de {file}."
Error unreadable(const std::filesystem::path& path);

// Both roads give sample 0 at the file's media time zero (its first picture,
// else its first sound; platform/MediaTime.h). The first also tells, in
// `levels` when given, how loud each channel of each stream was; the
// executable cannot, and leaves them empty.
Result<std::vector<float>> loadWithLibav(const std::filesystem::path& path, media::SoundLevels* levels = nullptr);
Result<std::vector<float>> loadWithFFmpeg(const std::filesystem::path& path, media::SoundLevels* levels = nullptr);

// Windowed-sinc low-pass (33 taps) and 4-to-1 reduction in one step. Fewer
// than 34 samples give nothing. Output n is centred on input 4n + 16.
std::vector<float> decimate(const std::vector<float>& x);
// The same with the filter's delay taken out: x is read as if `lead` zeros
// came before it, so with lead 16 output n is centred on input 4n and both
// roads put a sound at the same sample.
std::vector<float> decimate(const std::vector<float>& x, int lead);
constexpr int decimateDelay = 16;

// Where the executable is looked for, in order.
extern const std::vector<std::filesystem::path> ffmpegCandidates;

}  // namespace qv::AudioLoader
