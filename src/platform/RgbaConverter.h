// Decoded pictures to 8-bit RGBA. Private to the platform layer.
#pragma once

#include "base/Result.h"
#include "platform/FfmpegPtr.h"
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
// from HD up and BT.601 below.
class RgbaConverter {
public:
    // At `width` × `height` when both are above 0, else at the picture's size.
    Result<media::RgbaFrame> convert(const AVFrame* f, int width = 0, int height = 0);

private:
    SwsPtr sws_;
    int w_ = 0, h_ = 0, format_ = -1, outW_ = 0, outH_ = 0;
};

}  // namespace qv::ff
