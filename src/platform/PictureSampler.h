// PictureSampler: one pass over a video file that hands over small pictures
// for measuring, at a fraction of the cost of playing it. It reads forward
// only (no seek), decodes no more than the file's structure forces, and
// converts only the pictures it hands over.
//
// What is decoded follows from the stream alone, so the same file always
// gives the same pictures:
//   - light streams (pixels × frame rate within `fullBudget`): every picture;
//   - heavier ones with B-frames: key and P pictures only, the B-frames
//     skipped (about one in four), when that fits the budget;
//   - intra-only codecs (ProRes, DNxHD, MJPEG...): only the packets wanted,
//     each decodes alone;
//   - anything heavier: key frames only.
// Of the pictures decoded, pairs are handed over every `pairStep` seconds: a
// picture and the next one decoded, so motion can be measured over a short
// step wherever the stream allows it.
//
// Any thread; the caller's callback runs on it. HDR footage comes converted
// to BT.709 like every picture of the program (platform/RgbaConverter.h).
#pragma once

#include <filesystem>
#include <functional>

#include "base/Result.h"
#include "platform/VideoFrame.h"

namespace qv::media {

struct SampledPicture {
    double time = 0;  // seconds on the file's own time line (its first picture at 0)
    RgbaFrame frame;  // `width` wide, the stored (not rotated) picture's proportions
};

struct SamplerOptions {
    int width = 256;            // of the pictures handed over
    double pairStep = 0.25;     // seconds between the starts of two pairs
    // Decoded pixels per second of footage allowed before cheaper roads are
    // taken: 1080p at 8 pictures a second.
    double fullBudget = 1920.0 * 1080.0 * 8.0;
};

// How the file was read, for the benchmark and the log.
enum class SamplerRoad { every, anchors, intraPicked, keysOnly };

// Reads `file` and hands each picture to `onPicture` in time order; a false
// answer stops the pass (cancelled). Fails with a French message naming the
// file when it cannot be opened or has no picture; damage part-way ends the
// pass early with what was read.
Result<SamplerRoad> samplePictures(const std::filesystem::path& file, const SamplerOptions& options,
                                   const std::function<bool(SampledPicture&&)>& onPicture);

}  // namespace qv::media
