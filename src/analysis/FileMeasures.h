// FileMeasures: what the pictures of one camera file look like, half-second
// by half-second, as `measureFile` finds them. These are raw measures; the
// grades come from comparing them with the camera's own typical values
// (analysis/PictureGrades.h). Plain values, safe to copy to any thread.
#pragma once

#include <filesystem>
#include <functional>
#include <vector>

#include "base/Result.h"

namespace qv::analysis {

inline constexpr double slotSeconds = 0.5;

// One half-second of a file: [k × 0.5, (k + 1) × 0.5) of its own time line.
// Values a stretch could not measure are -1.
struct SlotMeasures {
    float level = -1;    // mean luma 0 to 255 (median over the slot's pictures); -1: no picture here
    float crushed = 0;   // share of black pixels, 0 to 1
    float clipped = 0;   // share of white pixels, 0 to 1
    float detail = 0;    // variance of the Laplacian (PictureMeasures.h)
    float contrast = 0;  // luma standard deviation
    float colour = 0;    // chroma standard deviation
    float change = -1;   // least luma difference between two pictures, the later one here
    float jitter = -1;   // motion that is not a smooth pan, in picture widths per step

    bool measured() const { return level >= 0; }
    bool operator==(const SlotMeasures&) const = default;
};

struct FileMeasures {
    std::vector<SlotMeasures> halves;
    bool operator==(const FileMeasures&) const = default;
};

// A stretch of a camera file's pictures kept in another file, such as a
// preview chunk: its first picture stands at `start` on the camera file's
// own time line and it holds the pictures up to the next piece.
struct PicturePiece {
    std::filesystem::path file;
    double start = 0;
};

// Measures a camera file in one forward pass at low cost
// (platform/PictureSampler.h). `progress` gets the file time reached and
// answers false to stop: the result is then an error "annulé". Fails with
// the sampler's French message on a file without readable pictures.
Result<FileMeasures> measureFile(const std::filesystem::path& file,
                                 const std::function<bool(double fileTime)>& progress = {});
// The same read from pieces that together show the file's pictures, in
// time order; fails when any piece cannot be read.
Result<FileMeasures> measureFile(const std::vector<PicturePiece>& pieces,
                                 const std::function<bool(double fileTime)>& progress = {});

}  // namespace qv::analysis
