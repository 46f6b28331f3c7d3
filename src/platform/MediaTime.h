// Media time zero: where a file's own time line begins. A file's time 0 is
// the first frame of its picture as a video editor shows it or, in a file
// without picture, its first sound once the codec's delay and priming are
// dropped (Opus pre-skip, AAC priming, MP3 encoder delay, edit lists). Every
// reader that puts a file's samples or frames on a time line measures from
// this point, so sound, picture and synchronisation agree to the sample.
#pragma once

#include <filesystem>

#include "base/Result.h"

namespace qv::media {

// Seconds from a file's time zero to the first sample its sound decoders
// give (what a plain decode of its best audio stream starts with): positive
// when the sound starts after the picture. Fails when the file cannot be
// opened or has no decodable sound.
Result<double> soundLead(const std::filesystem::path& file);

}  // namespace qv::media
