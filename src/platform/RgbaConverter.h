// Decoded pictures to 8-bit RGBA. Private to the platform layer.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "base/Result.h"
#include "platform/FfmpegPtr.h"
#include "platform/HdrConverter.h"
#include "platform/VideoFrame.h"

extern "C" {
#include <libswscale/swscale.h>
}

namespace qv::ff {

struct SwsFreer {
    void operator()(SwsContext* s) const { sws_freeContext(s); }
};
using SwsPtr = std::unique_ptr<SwsContext, SwsFreer>;

// Keeps its scaler while the pictures' size and format stay the same. YUV
// pictures carry their matrix; untagged ones follow the usual rule of BT.709
// from HD up and BT.601 below, except that pictures of more than 8 bits are
// always BT.709 (no SD-era camera wrote them). HLG and PQ pictures are
// tone-mapped to BT.709 SDR and wide-gamut ones mapped into BT.709
// (HdrConverter); one that cannot be takes the plain road. A transfer the
// program does not know is read as BT.709.
class RgbaConverter {
public:
    // At `width` × `height` when both are above 0, else at the picture's size.
    Result<media::RgbaFrame> convert(const AVFrame* f, int width = 0, int height = 0);

    // Why the last HLG, PQ or wide-gamut picture took the plain road, once:
    // the reader that owns the converter tells the journal.
    std::optional<std::string> takeHdrFailure() { return std::exchange(hdrFailure_, std::nullopt); }

private:
    SwsPtr sws_;
    HdrConverter hdr_;
    std::optional<std::string> hdrFailure_;
    int w_ = 0, h_ = 0, format_ = -1, outW_ = 0, outH_ = 0;
};

}  // namespace qv::ff
