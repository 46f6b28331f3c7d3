// How a camera wrote its pictures beyond their colours: the order of its
// fields, the shape of its pixels and how regular its frame times are.
// Plain values, any thread.
#pragma once

namespace qv::media {

enum class FieldOrder {
    progressive,  // whole frames (also when the stream does not say)
    topFirst,     // interlaced, the upper field shown first
    bottomFirst,  // interlaced, the lower field shown first
};

// Frame durations whose 10th and 90th percentiles lie further apart than
// this share of their median make a variable-rate file. Timestamps rounded
// to whole milliseconds (33/34 ms at 29.97) stay well below it; phones,
// whose spacing follows light and heat (33 to 50 ms), are far above.
inline constexpr double variableRateSpread = 0.1;

struct PictureTags {
    FieldOrder fields = FieldOrder::progressive;
    double pixelAspect = 1;  // width of a stored pixel over its height
    // (90th − 10th percentile) / median of the frame durations of a sample
    // of the stream; 0 for a constant rate or when it could not be measured.
    double frameSpread = 0;

    bool interlaced() const { return fields != FieldOrder::progressive; }
    bool anamorphic() const { return pixelAspect < 0.99 || pixelAspect > 1.01; }
    bool variableRate() const { return frameSpread > variableRateSpread; }
    bool operator==(const PictureTags&) const = default;
};

}  // namespace qv::media
