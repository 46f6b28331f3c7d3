#include "platform/RgbaConverter.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace qv::ff {

namespace {

int swsColorspace(const AVFrame* f) {
    switch (f->colorspace) {
        case AVCOL_SPC_BT709: return SWS_CS_ITU709;
        case AVCOL_SPC_BT2020_NCL:
        case AVCOL_SPC_BT2020_CL: return SWS_CS_BT2020;
        case AVCOL_SPC_SMPTE170M:
        case AVCOL_SPC_BT470BG: return SWS_CS_ITU601;
        default: {
            const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(f->format));
            const bool deep = d && d->comp[0].depth > 8;
            return f->height >= 720 || deep ? SWS_CS_ITU709 : SWS_CS_ITU601;
        }
    }
}

}  // namespace

Result<media::RgbaFrame> RgbaConverter::convert(const AVFrame* f, int width, int height) {
    if (f->width <= 0 || f->height <= 0) return Error{"Image vide."};
    if (width <= 0 || height <= 0) width = f->width, height = f->height;
    if (const auto road = media::colourRoad(colourTagsOf(f));
        road == media::ColourRoad::hdr || road == media::ColourRoad::wideGamut) {
        auto sdr = hdr_.toRgba(f, width, height);
        if (sdr) return sdr;
        hdrFailure_ = sdr.error().message;
    }
    if (!sws_ || f->width != w_ || f->height != h_ || f->format != format_ || width != outW_ || height != outH_) {
        // Pictures at their size keep every detail; smaller ones (previews)
        // average the pixels they cover, which is also the fast way down.
        int flags = width == f->width && height == f->height
                        ? SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT
                        : SWS_AREA;
        sws_.reset(sws_getContext(f->width, f->height, static_cast<AVPixelFormat>(f->format), width, height,
                                  AV_PIX_FMT_RGBA, flags, nullptr, nullptr, nullptr));
        if (!sws_) return Error{"Format d'image non pris en charge."};
        w_ = f->width, h_ = f->height, format_ = f->format, outW_ = width, outH_ = height;
        int fullRange = f->color_range == AVCOL_RANGE_JPEG ? 1 : 0;
        sws_setColorspaceDetails(sws_.get(), sws_getCoefficients(swsColorspace(f)), fullRange,
                                 sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
    }
    media::RgbaFrame out;
    out.width = width;
    out.height = height;
    out.pixels.resize(static_cast<size_t>(out.width) * out.height * 4);
    uint8_t* dst[4] = {out.pixels.data(), nullptr, nullptr, nullptr};
    int dstStride[4] = {out.width * 4, 0, 0, 0};
    sws_scale(sws_.get(), f->data, f->linesize, 0, f->height, dst, dstStride);
    return out;
}

}  // namespace qv::ff
