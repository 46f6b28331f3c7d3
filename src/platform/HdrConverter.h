// HLG and PQ pictures, and SDR ones over wide primaries (BT.2020, P3), to
// BT.709 SDR. Private to the platform layer.
//
// The road is the one ffmpeg users know as
//   zscale=t=linear:npl=100, format=gbrpf32le, zscale=p=bt709,
//   tonemap=hable, zscale=t=bt709:m=bt709:r=tv
// built on zimg with the parameters zscale gives it (bilinear, no dither,
// approximate gamma allowed), and the tone curve written here: zimg has none.
// The curve works on the brightest of the three linear components and scales
// all three by the same factor, after pulling colours brighter than twice
// the reference white towards grey, so highlights do not turn hue. Wide-gamut
// SDR takes the same road without the curve: its colours are mapped into
// BT.709's primaries and what lies outside is clipped.
//
// One converter per thread; it keeps its zimg graphs while the pictures'
// size, format and tags stay the same.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "base/Result.h"
#include "platform/ColourTags.h"
#include "platform/FfmpegPtr.h"
#include "platform/VideoFrame.h"

namespace qv::ff {

// The colour tags of a decoded picture, falling back to its stream's where
// the picture says nothing.
media::ColourTags colourTagsOf(const AVFrame* f, const AVCodecParameters* stream = nullptr);

// The Hable curve with its usual constants, and the signal peak a picture is
// mapped from (content light level, else mastering display, else the top of
// its transfer: 10 000 cd/m² for PQ, 1 000 for HLG), both in units of the
// 100 cd/m² reference white. `transfer` is the picture's H.273 code.
float hable(float x);
double signalPeak(const AVFrame* f, int transfer);

// Tells the journal, once per file, that its HLG, PQ or wide-gamut pictures
// could not be converted (`reason`) and are read as BT.709 instead.
void noticeHdrFallback(const std::filesystem::path& file, const std::string& reason);

class HdrConverter {
public:
    HdrConverter();
    ~HdrConverter();
    HdrConverter(HdrConverter&&) noexcept;
    HdrConverter& operator=(HdrConverter&&) noexcept;

    // `in`, an HLG, PQ or wide-gamut picture (ColourRoad hdr or wideGamut),
    // at `width` × `height` as 8-bit RGBA.
    Result<media::RgbaFrame> toRgba(const AVFrame* in, int width, int height);

    // `in` at its own size as 8-bit BT.709 limited-range YUV (4:2:0, or
    // 4:4:4 when a side is odd), tagged so, with its time stamps: what an
    // encoder takes.
    Result<FramePtr> toYuv(const AVFrame* in);

private:
    struct State;
    std::unique_ptr<State> s_;
};

}  // namespace qv::ff
