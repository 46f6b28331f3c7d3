// PictureMeasures: what one small picture, and two pictures close in time,
// say about a camera's shot: its exposure, its fine detail, its spread of
// tones and colours, how much it changed and how the whole frame moved.
// Pure functions on 8-bit RGBA pictures; any thread.
#pragma once

#include <memory>

#include "platform/VideoFrame.h"

namespace qv::analysis {

struct PictureLook {
    float level = 0;     // mean luma, 0 to 255
    float crushed = 0;   // share of pixels at black (luma below 20)
    float clipped = 0;   // share of pixels at white (luma above 245)
    float detail = 0;    // variance of the Laplacian of luma, on the picture halved once
    float contrast = 0;  // standard deviation of luma
    float colour = 0;    // standard deviation of chroma (both axes together)
};

struct PictureStep {
    float change = 0;  // mean absolute luma difference, 0 to 255
    float dx = 0, dy = 0;  // global shift of the second picture, in picture widths
    float confidence = 0;  // peak of the phase correlation, 0 (none) to 1
};

// A picture prepared once, so that each is measured and compared at most twice.
class MeasuredPicture {
public:
    explicit MeasuredPicture(const media::RgbaFrame& frame);
    ~MeasuredPicture();
    MeasuredPicture(MeasuredPicture&&) noexcept;
    MeasuredPicture& operator=(MeasuredPicture&&) noexcept;

    const PictureLook& look() const { return look_; }
    // From this picture to `later` (same size).
    PictureStep stepTo(const MeasuredPicture& later) const;

private:
    struct Planes;
    std::unique_ptr<Planes> planes_;
    PictureLook look_;
};

}  // namespace qv::analysis
