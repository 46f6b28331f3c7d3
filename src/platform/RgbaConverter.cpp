#include "platform/RgbaConverter.h"

namespace qv::ff {

namespace {

int swsColorspace(const AVFrame* f) {
    switch (f->colorspace) {
        case AVCOL_SPC_BT709: return SWS_CS_ITU709;
        case AVCOL_SPC_BT2020_NCL:
        case AVCOL_SPC_BT2020_CL: return SWS_CS_BT2020;
        case AVCOL_SPC_SMPTE170M:
        case AVCOL_SPC_BT470BG: return SWS_CS_ITU601;
        default: return f->height >= 720 ? SWS_CS_ITU709 : SWS_CS_ITU601;
    }
}

}  // namespace

Result<media::RgbaFrame> RgbaConverter::convert(const AVFrame* f) {
    if (f->width <= 0 || f->height <= 0) return Error{"Image vide."};
    if (!sws_ || f->width != w_ || f->height != h_ || f->format != format_) {
        sws_.reset(sws_getContext(f->width, f->height, static_cast<AVPixelFormat>(f->format), f->width, f->height,
                                  AV_PIX_FMT_RGBA, SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr,
                                  nullptr, nullptr));
        if (!sws_) return Error{"Format d'image non pris en charge."};
        w_ = f->width, h_ = f->height, format_ = f->format;
        int fullRange = f->color_range == AVCOL_RANGE_JPEG ? 1 : 0;
        sws_setColorspaceDetails(sws_.get(), sws_getCoefficients(swsColorspace(f)), fullRange,
                                 sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
    }
    media::RgbaFrame out;
    out.width = f->width;
    out.height = f->height;
    out.pixels.resize(static_cast<size_t>(out.width) * out.height * 4);
    uint8_t* dst[4] = {out.pixels.data(), nullptr, nullptr, nullptr};
    int dstStride[4] = {out.width * 4, 0, 0, 0};
    sws_scale(sws_.get(), f->data, f->linesize, 0, f->height, dst, dstStride);
    return out;
}

}  // namespace qv::ff
