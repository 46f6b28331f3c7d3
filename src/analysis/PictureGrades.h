// PictureGrades: whether each half-second of a camera's pictures is worth
// showing. Each file's measures (FileMeasures.h) are set against the
// camera's own typical detail and spread of tones, so a camera that films a
// dark room softly is not judged by a sharp, bright one. The grades laid on
// the set's time line are the stretches the automatic editor avoids and the
// timeline shows. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "analysis/FileMeasures.h"
#include "sync/SyncResult.h"

namespace qv::analysis {

enum class PictureGrade : uint8_t { good, weak, unusable };

// Why a half-second is not good. The first five make it unusable, the
// others weak.
enum class PictureFault : uint8_t { none, black, blur, shake, blocked, frozen, dark, soft, shaky, burnt };

// The French words for a fault: "Image noire", "Flou", "Tremblé",
// "Objectif masqué", "Image figée", then the weak ones.
std::string faultLabel(PictureFault fault);

struct SlotGrade {
    PictureGrade grade = PictureGrade::good;
    PictureFault fault = PictureFault::none;
    bool operator==(const SlotGrade&) const = default;
};

// What a camera's pictures usually look like: the medians over its
// measured half-seconds that are not black.
struct CameraTypical {
    float detail = 0;
    float spread = 0;  // luma and chroma deviation together
};
CameraTypical typicalOf(const std::vector<const FileMeasures*>& files);

// The grade of each slot of a file of a camera that is usually `typical`.
std::vector<SlotGrade> gradeFile(const FileMeasures& file, const CameraTypical& typical);

// A stretch of the set's time line where a camera's picture is weak or unusable.
struct PictureStretch {
    double start = 0, end = 0;  // seconds on the set's time line
    PictureGrade grade = PictureGrade::weak;
    PictureFault fault = PictureFault::none;
    bool operator==(const PictureStretch&) const = default;
};

// For each camera (a position in `cameraSources`), its weak and unusable
// stretches in time order, neighbouring halves of the same grade and fault
// merged. `measuresOf` gives a placed file's measures, or null when it has
// none (not analysed yet, or no picture): such a file counts as good.
using CameraPictures = std::vector<std::vector<PictureStretch>>;
CameraPictures cameraPictures(const SyncResult& result, const std::vector<int>& cameraSources,
                              const std::function<const FileMeasures*(const MediaItem&)>& measuresOf);

// The stretches of `grade` only.
std::vector<PictureStretch> ofGrade(const std::vector<PictureStretch>& stretches, PictureGrade grade);

}  // namespace qv::analysis
