#include "platform/HdrConverter.h"

extern "C" {
#include <libavutil/mastering_display_metadata.h>
#include <libavutil/pixdesc.h>
}

#include <zimg.h>

#include <algorithm>
#include <cstring>

#include "platform/Notices.h"

namespace qv::ff {

namespace {

struct GraphFreer {
    void operator()(zimg_filter_graph* g) const { zimg_filter_graph_free(g); }
};
using GraphPtr = std::unique_ptr<zimg_filter_graph, GraphFreer>;

struct AvFreer {
    void operator()(void* p) const { av_free(p); }
};
using Buffer = std::unique_ptr<void, AvFreer>;

// zimg reads and writes whole rows with vector instructions: planes and
// strides must be aligned to 64 bytes in its widest mode.
constexpr int alignment = 64;

constexpr double referenceWhite = 100;  // cd/m², the "npl=100" of the road
constexpr double desaturation = 2;      // in units of reference white

Error zimgError(const char* what) {
    char message[256] = {};
    zimg_get_last_error(message, sizeof message);
    return Error{std::string(what) + " : " + message};
}

// 2 is "unspecified" in all three tables, 0 reserved.
int orDefault(int value, int fallback) { return value == 2 || value == 0 ? fallback : value; }

zimg_chroma_location_e chromaLocation(AVChromaLocation location) {
    switch (location) {
        case AVCHROMA_LOC_CENTER: return ZIMG_CHROMA_CENTER;
        case AVCHROMA_LOC_TOPLEFT: return ZIMG_CHROMA_TOP_LEFT;
        case AVCHROMA_LOC_TOP: return ZIMG_CHROMA_TOP;
        case AVCHROMA_LOC_BOTTOMLEFT: return ZIMG_CHROMA_BOTTOM_LEFT;
        case AVCHROMA_LOC_BOTTOM: return ZIMG_CHROMA_BOTTOM;
        default: return ZIMG_CHROMA_LEFT;
    }
}

// Luma weights of a matrix, for the pull towards grey; none for a matrix
// without them, which leaves colours as they are.
const double* lumaWeights(int matrix) {
    static const double bt709[3] = {0.2126, 0.7152, 0.0722};
    static const double bt601[3] = {0.299, 0.587, 0.114};
    static const double bt2020[3] = {0.2627, 0.6780, 0.0593};
    switch (matrix) {
        case AVCOL_SPC_BT709: return bt709;
        case AVCOL_SPC_BT470BG:
        case AVCOL_SPC_SMPTE170M: return bt601;
        case AVCOL_SPC_BT2020_NCL:
        case AVCOL_SPC_BT2020_CL: return bt2020;
        default: return nullptr;
    }
}

zimg_graph_builder_params graphParams() {
    zimg_graph_builder_params p;
    zimg_graph_builder_params_default(&p, ZIMG_API_VERSION);
    p.resample_filter = ZIMG_RESIZE_BILINEAR;
    p.resample_filter_uv = ZIMG_RESIZE_BILINEAR;
    p.dither_type = ZIMG_DITHER_NONE;
    p.nominal_peak_luminance = referenceWhite;
    p.allow_approximate_gamma = 1;
    return p;
}

// A decoded picture as zimg sees it; false for formats it cannot read
// (packed, paletted, bitstream, big-endian on this machine, hardware).
bool zimgFormat(const AVFrame* f, const media::ColourTags& tags, zimg_image_format& z) {
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(f->format));
    if (!d || d->nb_components < 3) return false;
    if (d->flags & (AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_BE))
        return false;
    if (!(d->flags & AV_PIX_FMT_FLAG_PLANAR)) return false;
    const bool isFloat = d->flags & AV_PIX_FMT_FLAG_FLOAT;
    for (int i = 0; i < 3; ++i) {
        const AVComponentDescriptor& c = d->comp[i];
        if (c.shift != 0 || c.depth != d->comp[0].depth || c.depth > (isFloat ? 32 : 16)) return false;
        if (c.step != (isFloat ? 4 : c.depth > 8 ? 2 : 1)) return false;
    }
    zimg_image_format_default(&z, ZIMG_API_VERSION);
    z.width = static_cast<unsigned>(f->width);
    z.height = static_cast<unsigned>(f->height);
    z.pixel_type = isFloat ? ZIMG_PIXEL_FLOAT : d->comp[0].depth > 8 ? ZIMG_PIXEL_WORD : ZIMG_PIXEL_BYTE;
    z.depth = d->comp[0].depth;
    z.subsample_w = d->log2_chroma_w;
    z.subsample_h = d->log2_chroma_h;
    const bool rgb = d->flags & AV_PIX_FMT_FLAG_RGB;
    z.color_family = rgb ? ZIMG_COLOR_RGB : ZIMG_COLOR_YUV;
    z.matrix_coefficients = rgb ? ZIMG_MATRIX_RGB : static_cast<zimg_matrix_coefficients_e>(tags.matrix);
    z.transfer_characteristics = static_cast<zimg_transfer_characteristics_e>(tags.transfer);
    z.color_primaries = static_cast<zimg_color_primaries_e>(tags.primaries);
    z.pixel_range = rgb || tags.fullRange ? ZIMG_RANGE_FULL : ZIMG_RANGE_LIMITED;
    z.chroma_location = chromaLocation(f->chroma_location);
    return true;
}

zimg_image_format linearRgb(int width, int height) {
    zimg_image_format z;
    zimg_image_format_default(&z, ZIMG_API_VERSION);
    z.width = static_cast<unsigned>(width);
    z.height = static_cast<unsigned>(height);
    z.pixel_type = ZIMG_PIXEL_FLOAT;
    z.depth = 32;
    z.color_family = ZIMG_COLOR_RGB;
    z.matrix_coefficients = ZIMG_MATRIX_RGB;
    z.transfer_characteristics = ZIMG_TRANSFER_LINEAR;
    z.color_primaries = ZIMG_PRIMARIES_709;
    z.pixel_range = ZIMG_RANGE_FULL;
    return z;
}

// The planes of `f` in zimg's order (R, G, B or Y, U, V), read-only or not.
template <typename Buffer, typename Frame>
Buffer planes(Frame* f) {
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(f->format));
    Buffer b{};
    b.version = ZIMG_API_VERSION;
    for (int i = 0; i < 3; ++i) {
        b.plane[i].data = f->data[d->comp[i].plane];
        b.plane[i].stride = f->linesize[d->comp[i].plane];
        b.plane[i].mask = ZIMG_BUFFER_MAX;
    }
    return b;
}
zimg_image_buffer_const planesOf(const AVFrame* f) { return planes<zimg_image_buffer_const>(f); }
zimg_image_buffer writablePlanesOf(AVFrame* f) { return planes<zimg_image_buffer>(f); }

bool aligned(const AVFrame* f) {
    for (int p = 0; p < 4 && f->data[p]; ++p)
        if (reinterpret_cast<uintptr_t>(f->data[p]) % alignment || f->linesize[p] % alignment || f->linesize[p] < 0)
            return false;
    return true;
}

FramePtr newFrame(AVPixelFormat format, int width, int height) {
    FramePtr f(av_frame_alloc());
    if (!f) return nullptr;
    f->format = format;
    f->width = width;
    f->height = height;
    if (av_frame_get_buffer(f.get(), alignment) < 0) return nullptr;
    return f;
}

// The Hable curve's shoulder, scaled so that `peak` lands on white, applied
// to the brightest component of each pixel in place; the two others follow
// it by the same factor, so hue is kept.
void toneMap(float* r, float* g, float* b, size_t n, double peak, const double* weights) {
    const float white = hable(static_cast<float>(peak));
    for (size_t i = 0; i < n; ++i) {
        float ro = r[i], go = g[i], bo = b[i];
        if (weights) {
            const float luma = static_cast<float>(weights[0] * r[i] + weights[1] * g[i] + weights[2] * b[i]);
            const float over = static_cast<float>(std::max(luma - desaturation, 1e-6) / std::max<double>(luma, 1e-6));
            ro = r[i] * (1 - over) + luma * over;
            go = g[i] * (1 - over) + luma * over;
            bo = b[i] * (1 - over) + luma * over;
        }
        const float sig = std::max(std::max(ro, go), std::max(bo, 1e-6f));
        const float k = hable(sig) / white / sig;
        r[i] = ro * k;
        g[i] = go * k;
        b[i] = bo * k;
    }
}

}  // namespace

media::ColourTags colourTagsOf(const AVFrame* f, const AVCodecParameters* stream) {
    auto pick = [](int frame, int fromStream) { return frame != 2 && frame != 0 ? frame : fromStream; };
    media::ColourTags t;
    t.primaries = pick(f->color_primaries, stream ? stream->color_primaries : 2);
    t.transfer = pick(f->color_trc, stream ? stream->color_trc : 2);
    t.matrix = pick(f->colorspace, stream ? stream->color_space : 2);
    const AVColorRange range = f->color_range != AVCOL_RANGE_UNSPECIFIED ? f->color_range
                               : stream                                 ? stream->color_range
                                                                        : AVCOL_RANGE_UNSPECIFIED;
    t.fullRange = range == AVCOL_RANGE_JPEG;
    if (const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(f->format)))
        t.bitDepth = d->comp[0].depth;
    return t;
}

float hable(float x) {
    const float a = 0.15f, b = 0.50f, c = 0.10f, d = 0.20f, e = 0.02f, f = 0.30f;
    return (x * (x * a + b * c) + d * e) / (x * (x * a + b) + d * f) - e / f;
}

double signalPeak(const AVFrame* f, int transfer) {
    if (const AVFrameSideData* sd = av_frame_get_side_data(f, AV_FRAME_DATA_CONTENT_LIGHT_LEVEL)) {
        const auto* light = reinterpret_cast<const AVContentLightMetadata*>(sd->data);
        if (light->MaxCLL > 0) return light->MaxCLL / referenceWhite;
    }
    if (const AVFrameSideData* sd = av_frame_get_side_data(f, AV_FRAME_DATA_MASTERING_DISPLAY_METADATA)) {
        const auto* display = reinterpret_cast<const AVMasteringDisplayMetadata*>(sd->data);
        if (display->has_luminance && av_q2d(display->max_luminance) > 0)
            return av_q2d(display->max_luminance) / referenceWhite;
    }
    // Without metadata, the most the transfer can carry: PQ codes absolute
    // light up to 10 000 cd/m²; HLG is relative, graded for a display of
    // about 1 000.
    return transfer == AVCOL_TRC_SMPTE2084 ? 100 : 10;
}

void noticeHdrFallback(const std::filesystem::path& file, const std::string& reason) {
    std::string why = reason;
    while (!why.empty() && (why.back() == '.' || why.back() == ' ')) why.pop_back();
    media::noticeOnce("hdr-fallback:" + file.string(),
                      "Couleurs HDR non converties, lues comme BT.709 : " + file.string() + " (" + why + ")");
}

struct HdrConverter::State {
    // The linear graph: the picture to linear BT.709 light at the output size.
    zimg_image_format linearFrom{}, linearTo{};
    GraphPtr toLinear;
    // The display graph: linear light to 8 bits in the output format.
    zimg_image_format displayFrom{}, displayTo{};
    GraphPtr toDisplay;
    Buffer scratch;
    size_t scratchSize = 0;
    FramePtr light;  // linear RGB, 32-bit float planes

    static bool same(const zimg_image_format& a, const zimg_image_format& b) {
        return a.width == b.width && a.height == b.height && a.pixel_type == b.pixel_type &&
               a.subsample_w == b.subsample_w && a.subsample_h == b.subsample_h && a.color_family == b.color_family &&
               a.matrix_coefficients == b.matrix_coefficients &&
               a.transfer_characteristics == b.transfer_characteristics && a.color_primaries == b.color_primaries &&
               a.depth == b.depth && a.pixel_range == b.pixel_range && a.chroma_location == b.chroma_location;
    }

    static Status build(GraphPtr& graph, zimg_image_format& keptFrom, zimg_image_format& keptTo,
                        const zimg_image_format& from, const zimg_image_format& to) {
        if (graph && same(keptFrom, from) && same(keptTo, to)) return Ok{};
        const zimg_graph_builder_params params = graphParams();
        graph.reset(zimg_filter_graph_build(&from, &to, &params));
        if (!graph) return zimgError("Conversion des couleurs impossible");
        keptFrom = from;
        keptTo = to;
        return Ok{};
    }

    Status ensureScratch(const zimg_filter_graph* graph) {
        size_t size = 0;
        if (zimg_filter_graph_get_tmp_size(graph, &size)) return zimgError("Conversion des couleurs impossible");
        if (size > scratchSize) {
            scratch.reset(av_malloc(size));
            if (!scratch) return Error{"Mémoire insuffisante."};
            scratchSize = size;
        }
        return Ok{};
    }

    // Decodes `in` to linear BT.709 light in `light`, tone-mapped when HDR.
    Status linearise(const AVFrame* in, int width, int height) {
        media::ColourTags tags = colourTagsOf(in);
        const media::ColourRoad road = media::colourRoad(tags);
        if (road != media::ColourRoad::hdr && road != media::ColourRoad::wideGamut)
            return Error{"Image sans HDR ni gamme étendue."};
        // HDR footage that forgets the rest of its tags is BT.2020; wide
        // gamut without a transfer has the BT.709 curve.
        tags.primaries = orDefault(tags.primaries, AVCOL_PRI_BT2020);
        tags.matrix = orDefault(tags.matrix, tags.primaries == AVCOL_PRI_BT2020 ? AVCOL_SPC_BT2020_NCL : AVCOL_SPC_BT709);
        tags.transfer = orDefault(tags.transfer, AVCOL_TRC_BT709);
        zimg_image_format from;
        if (!zimgFormat(in, tags, from)) return Error{"Format d'image non pris en charge pour la conversion des couleurs."};
        if (Status s = build(toLinear, linearFrom, linearTo, from, linearRgb(width, height)); !s) return s;
        if (Status s = ensureScratch(toLinear.get()); !s) return s;
        if (!light || light->width != width || light->height != height) {
            light = newFrame(AV_PIX_FMT_GBRPF32, width, height);
            if (!light) return Error{"Mémoire insuffisante."};
        }
        const double peak = signalPeak(in, tags.transfer);  // side data stays with the original
        FramePtr copy;
        if (!aligned(in)) {
            copy = newFrame(static_cast<AVPixelFormat>(in->format), in->width, in->height);
            if (!copy || av_frame_copy(copy.get(), in) < 0) return Error{"Mémoire insuffisante."};
            in = copy.get();
        }
        const zimg_image_buffer_const src = planesOf(in);
        const zimg_image_buffer dst = writablePlanesOf(light.get());
        if (zimg_filter_graph_process(toLinear.get(), &src, &dst, scratch.get(), nullptr, nullptr, nullptr, nullptr))
            return zimgError("Conversion des couleurs impossible");
        if (road != media::ColourRoad::hdr) return Ok{};
        const double* weights = lumaWeights(tags.matrix);
        for (int y = 0; y < height; ++y) {
            auto row = [&](int plane) { return reinterpret_cast<float*>(light->data[plane] + y * light->linesize[plane]); };
            // GBRPF32 holds G, B, R in planes 0, 1, 2.
            toneMap(row(2), row(0), row(1), static_cast<size_t>(width), peak, weights);
        }
        return Ok{};
    }

    Status display(AVFrame* out) {
        zimg_image_format to;
        zimgFormat(out, media::ColourTags{}, to);
        const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(out->format));
        const bool rgb = d->flags & AV_PIX_FMT_FLAG_RGB;
        to.matrix_coefficients = rgb ? ZIMG_MATRIX_RGB : ZIMG_MATRIX_709;
        to.transfer_characteristics = ZIMG_TRANSFER_709;
        to.color_primaries = ZIMG_PRIMARIES_709;
        to.pixel_range = rgb ? ZIMG_RANGE_FULL : ZIMG_RANGE_LIMITED;
        to.chroma_location = ZIMG_CHROMA_LEFT;
        if (Status s = build(toDisplay, displayFrom, displayTo, linearRgb(light->width, light->height), to); !s) return s;
        if (Status s = ensureScratch(toDisplay.get()); !s) return s;
        const zimg_image_buffer_const src = planesOf(light.get());
        const zimg_image_buffer dst = writablePlanesOf(out);
        if (zimg_filter_graph_process(toDisplay.get(), &src, &dst, scratch.get(), nullptr, nullptr, nullptr, nullptr))
            return zimgError("Conversion des couleurs impossible");
        return Ok{};
    }
};

HdrConverter::HdrConverter() : s_(std::make_unique<State>()) {}
HdrConverter::~HdrConverter() = default;
HdrConverter::HdrConverter(HdrConverter&&) noexcept = default;
HdrConverter& HdrConverter::operator=(HdrConverter&&) noexcept = default;

Result<media::RgbaFrame> HdrConverter::toRgba(const AVFrame* in, int width, int height) {
    if (in->width <= 0 || in->height <= 0) return Error{"Image vide."};
    if (width <= 0 || height <= 0) width = in->width, height = in->height;
    if (Status s = s_->linearise(in, width, height); !s) return s.error();
    FramePtr rgb = newFrame(AV_PIX_FMT_GBRP, width, height);
    if (!rgb) return Error{"Mémoire insuffisante."};
    if (Status s = s_->display(rgb.get()); !s) return s.error();
    media::RgbaFrame out;
    out.width = width;
    out.height = height;
    out.pixels.resize(static_cast<size_t>(width) * height * 4);
    uint8_t* dst = out.pixels.data();
    for (int y = 0; y < height; ++y) {
        const uint8_t* g = rgb->data[0] + y * rgb->linesize[0];
        const uint8_t* b = rgb->data[1] + y * rgb->linesize[1];
        const uint8_t* r = rgb->data[2] + y * rgb->linesize[2];
        for (int x = 0; x < width; ++x, dst += 4) {
            dst[0] = r[x];
            dst[1] = g[x];
            dst[2] = b[x];
            dst[3] = 255;
        }
    }
    return out;
}

Result<FramePtr> HdrConverter::toYuv(const AVFrame* in) {
    if (in->width <= 0 || in->height <= 0) return Error{"Image vide."};
    if (Status s = s_->linearise(in, in->width, in->height); !s) return s.error();
    // 4:2:0 needs even sizes; an odd picture keeps all its chroma.
    const bool even = in->width % 2 == 0 && in->height % 2 == 0;
    FramePtr out = newFrame(even ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_YUV444P, in->width, in->height);
    if (!out) return Error{"Mémoire insuffisante."};
    if (Status s = s_->display(out.get()); !s) return s.error();
    av_frame_copy_props(out.get(), in);
    av_frame_remove_side_data(out.get(), AV_FRAME_DATA_CONTENT_LIGHT_LEVEL);
    av_frame_remove_side_data(out.get(), AV_FRAME_DATA_MASTERING_DISPLAY_METADATA);
    out->color_primaries = AVCOL_PRI_BT709;
    out->color_trc = AVCOL_TRC_BT709;
    out->colorspace = AVCOL_SPC_BT709;
    out->color_range = AVCOL_RANGE_MPEG;
    out->chroma_location = AVCHROMA_LOC_LEFT;
    return out;
}

}  // namespace qv::ff
