// Output shapes and the crop of each camera. Reframe::place is the one place
// where a source is fitted to an output frame, shared by the XML (scale and
// centre), the video render and the previews, so a crop is the same in all
// three. Pure values and functions, any thread.
#pragma once

#include <optional>
#include <string_view>

#include "base/Json.h"

namespace qv {

enum class OutputFormat { landscape, portrait, fourFive, square };

const char* rawValue(OutputFormat f);  // "16:9", "9:16", "4:5", "1:1"
std::optional<OutputFormat> outputFormatFromRaw(std::string_view raw);

struct PixelSize {
    double width = 0;
    double height = 0;
};

// The fixed output size of a social format; nothing for landscape, whose
// size is that of the sources.
std::optional<PixelSize> fixedSize(OutputFormat f);

// One camera's crop. zoom 1..4 (1: the smallest crop that fills the frame);
// x, y in -1..1, where -1 keeps the left or top edge and 1 the right or bottom.
// Out-of-range values are held to their range when placed.
struct CameraFrame {
    double zoom = 1;
    double x = 0;
    double y = 0;

    // What the crop panel offers: 100 to 400 %, each side as far as it goes.
    static constexpr Range zoomRange{1, 4};
    static constexpr Range offsetRange{-1, 1};

    // Within 0.001 of the identity on zoom - 1, x and y.
    bool isNeutral() const;
    bool operator==(const CameraFrame&) const = default;
};

void to_json(json::Json& j, OutputFormat f);
void from_json(const json::Json& j, OutputFormat& f);  // unknown: landscape
void to_json(json::Json& j, const CameraFrame& f);
void from_json(const json::Json& j, CameraFrame& f);

namespace Reframe {

struct Placement {
    double scale = 1;         // source pixels to output pixels
    double x = 0;             // centre offset, fraction of the output width, + right
    double y = 0;             // centre offset, fraction of the output height, + down
    double windowWidth = 1;   // visible part of the source's width, 0..1
    double windowHeight = 1;  // visible part of the source's height, 0..1
};

// Fills the output (never letterboxes). A size that is not above 0 gives the
// neutral placement.
Placement place(PixelSize source, PixelSize output, const CameraFrame& frame);

}  // namespace Reframe

}  // namespace qv
