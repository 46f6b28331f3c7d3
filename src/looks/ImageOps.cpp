#include "looks/ImageOps.h"

#include <opencv2/core.hpp>

#if defined(__SSE__)
#include <immintrin.h>
#endif

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

#include "base/Parallel.h"

namespace qv::ImageOps {

namespace {

constexpr float kLumaR = 0.2126f, kLumaG = 0.7152f, kLumaB = 0.0722f;

// The hot loops are built twice on x86-64, once more for AVX2 and FMA, and
// the loader picks the build the processor runs. Results are deterministic
// on one machine and differ between the builds only in the last bits. Not
// under a sanitizer: the loader runs the picking code before its runtime.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && !defined(__SANITIZE_THREAD__) && \
    !defined(__SANITIZE_ADDRESS__)
#define QV_CLONES __attribute__((target_clones("arch=x86-64-v3", "default")))
#else
#define QV_CLONES
#endif

// GCC's vector extension: one pixel (v4) or two (v8) per register on every
// target, without leaning on the auto-vectoriser.
// Vectors never cross a call boundary here once inlined, so GCC's note that
// passing one changes the calling convention without AVX does not apply.
#pragma GCC diagnostic ignored "-Wpsabi"
typedef float v4 __attribute__((vector_size(16)));
typedef float v8 __attribute__((vector_size(32)));

inline v4 load4(const float* p) {
    v4 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline void store4(float* p, v4 v) { std::memcpy(p, &v, sizeof v); }
inline v8 load8(const float* p) {
    v8 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline void store8(float* p, v8 v) { std::memcpy(p, &v, sizeof v); }

inline v4 sqrt4(v4 v) {
#if defined(__SSE__)
    return reinterpret_cast<v4>(_mm_sqrt_ps(reinterpret_cast<__m128>(v)));
#else
    return v4{std::sqrt(v[0]), std::sqrt(v[1]), std::sqrt(v[2]), std::sqrt(v[3])};
#endif
}

// 0..1, and NaN to 0, so an index made from it is always valid.
inline float unit(float v) { return v > 0 ? (v < 1 ? v : 1) : 0; }

// Splits [0, count) over the cores; fn(begin, end) for each part. OpenCV's
// pool hands work over in code the thread sanitizer cannot see, so a
// sanitized build uses plain threads, whose start and join it does see.
template <class Fn>
void parallel(int count, Fn&& fn) {
    if (count <= 0) return;
    if (count == 1) {
        fn(0, 1);
        return;
    }
#if defined(__SANITIZE_THREAD__)
    parallelFor(count, defaultThreads(), [&](int i) { fn(i, i + 1); });
#else
    cv::parallel_for_(cv::Range(0, count), [&](const cv::Range& r) { fn(r.start, r.end); });
#endif
}

// Rows per band: a band of a picture's rows stays within a quarter of a
// megabyte, so it is still in cache when the next step reaches it.
int bandRows(int width) { return std::clamp(262144 / std::max(1, width * 16), 1, 64); }

// o[j] = k[0] c[j] + sum over i of k[i] (c[j - i stride] + c[j + i stride]),
// for j < n. `c` must be readable `reach` strides to either side.
QV_CLONES void symmetricFilter(float* __restrict o, const float* __restrict c, ptrdiff_t stride,
                               const float* __restrict k, int reach, size_t n) {
    size_t j = 0;
    for (; j + 16 <= n; j += 16) {
        v8 a = k[0] * load8(c + j), b = k[0] * load8(c + j + 8);
        for (int i = 1; i <= reach; ++i) {
            const float* l = c + j - i * stride;
            const float* r = c + j + i * stride;
            a += k[i] * (load8(l) + load8(r));
            b += k[i] * (load8(l + 8) + load8(r + 8));
        }
        store8(o + j, a);
        store8(o + j + 8, b);
    }
    for (; j < n; ++j) {
        float a = k[0] * c[j];
        for (int i = 1; i <= reach; ++i) a += k[i] * (c[j - i * stride] + c[j + i * stride]);
        o[j] = a;
    }
}

struct Tap {
    const float* src;
    float weight;
};

// o[j] = sum over taps of weight × src[j], for j < n.
QV_CLONES void tapSum(float* __restrict o, const Tap* taps, size_t count, size_t n) {
    size_t j = 0;
    for (; j + 32 <= n; j += 32) {
        v8 a0 = {}, a1 = {}, a2 = {}, a3 = {};
        for (size_t t = 0; t < count; ++t) {
            const float* s = taps[t].src + j;
            const float w = taps[t].weight;
            a0 += w * load8(s);
            a1 += w * load8(s + 8);
            a2 += w * load8(s + 16);
            a3 += w * load8(s + 24);
        }
        store8(o + j, a0);
        store8(o + j + 8, a1);
        store8(o + j + 16, a2);
        store8(o + j + 24, a3);
    }
    for (; j < n; ++j) {
        float a = 0;
        for (size_t t = 0; t < count; ++t) a += taps[t].weight * taps[t].src[j];
        o[j] = a;
    }
}

// o[j] = a[j] × wa + b[j] × wb; o may be a.
QV_CLONES void mixRow(float* o, const float* a, float wa, const float* b, float wb, size_t n) {
    size_t j = 0;
    for (; j + 8 <= n; j += 8) store8(o + j, load8(a + j) * wa + load8(b + j) * wb);
    for (; j < n; ++j) o[j] = a[j] * wa + b[j] * wb;
}

// The normalised half kernel of a Gaussian reaching 3 sigma: k[0] is the
// centre, k[i] the weight at distance i on either side.
std::vector<float> gaussianKernel(double sigma) {
    int reach = std::max(1, static_cast<int>(std::ceil(3 * sigma)));
    std::vector<double> k(static_cast<size_t>(reach) + 1);
    double sum = 0;
    for (int i = 0; i <= reach; ++i) {
        k[size_t(i)] = std::exp(-0.5 * i * i / (sigma * sigma));
        sum += i == 0 ? k[0] : 2 * k[size_t(i)];
    }
    std::vector<float> out(k.size());
    for (size_t i = 0; i < k.size(); ++i) out[i] = static_cast<float>(k[i] / sum);
    return out;
}

// A row with `reach` pixels of `channels` floats repeated from each end.
void padRow(float* padded, const float* row, size_t rowLen, int reach, int channels) {
    for (int i = 0; i < reach; ++i) {
        std::memcpy(padded + static_cast<size_t>(i) * channels, row, sizeof(float) * channels);
        std::memcpy(padded + rowLen + static_cast<size_t>(reach + i) * channels, row + rowLen - channels,
                    sizeof(float) * channels);
    }
    std::memcpy(padded + static_cast<size_t>(reach) * channels, row, sizeof(float) * rowLen);
}

// Separable Gaussian with replicated edges, `channels` floats per pixel,
// src and dst distinct. Each band filters its rows and their halo along x
// into a buffer of its own, then down the columns into dst.
void blurExact(const float* src, float* dst, int width, int height, int channels, double sigma) {
    const std::vector<float> k = gaussianKernel(sigma);
    const int reach = static_cast<int>(k.size()) - 1;
    const size_t rowLen = static_cast<size_t>(width) * channels;
    const int band = std::max(32, 4 * reach);
    const int bands = (height + band - 1) / band;
    parallel(bands, [&](int b0, int b1) {
        std::vector<float> padded((static_cast<size_t>(width) + 2 * reach) * channels);
        std::vector<float> across;
        for (int b = b0; b < b1; ++b) {
            const int y0 = b * band, y1 = std::min(height, y0 + band);
            const int r0 = y0 - reach, r1 = y1 + reach;
            across.resize(static_cast<size_t>(r1 - r0) * rowLen);
            for (int r = r0; r < r1; ++r) {
                padRow(padded.data(), src + static_cast<size_t>(std::clamp(r, 0, height - 1)) * rowLen, rowLen, reach,
                       channels);
                symmetricFilter(across.data() + static_cast<size_t>(r - r0) * rowLen,
                                padded.data() + static_cast<size_t>(reach) * channels, channels, k.data(), reach,
                                rowLen);
            }
            for (int y = y0; y < y1; ++y)
                symmetricFilter(dst + static_cast<size_t>(y) * rowLen,
                                across.data() + static_cast<size_t>(y - r0) * rowLen, static_cast<ptrdiff_t>(rowLen),
                                k.data(), reach, rowLen);
        }
    });
}

// Averages d × d blocks of the picture with its edges extended. Pixel (i, j)
// of the result covers picture columns [(i - margin) d, (i - margin + 1) d)
// and the same rows, so the result is the reduced picture (ceil(width / d) ×
// ceil(height / d)) with `margin` pixels of extension on every side. Blurs
// that read it need no other edge handling, and the edges weigh what they
// would at full size.
Image reduceExtended(const Image& image, int d, int margin) {
    const int w = image.width(), h = image.height();
    const int cw = (w + d - 1) / d, ch = (h + d - 1) / d;
    Image small = Image::uninitialized(cw + 2 * margin, ch + 2 * margin);
    const size_t rowLen = static_cast<size_t>(w) * 4;
    const float norm = 1.0f / static_cast<float>(d * d);
    parallel(small.height(), [&](int j0, int j1) {
        std::vector<float> sum(rowLen);
        for (int j = j0; j < j1; ++j) {
            const int first = (j - margin) * d;
            std::memcpy(sum.data(), image.row(std::clamp(first, 0, h - 1)), sizeof(float) * rowLen);
            for (int t = 1; t < d; ++t)
                mixRow(sum.data(), sum.data(), 1, image.row(std::clamp(first + t, 0, h - 1)), 1, rowLen);
            float* out = small.row(j);
            for (int i = 0; i < small.width(); ++i) {
                const int x0 = (i - margin) * d;
                v4 acc = load4(sum.data() + static_cast<size_t>(std::clamp(x0, 0, w - 1)) * 4);
                for (int t = 1; t < d; ++t) acc += load4(sum.data() + static_cast<size_t>(std::clamp(x0 + t, 0, w - 1)) * 4);
                store4(out + static_cast<size_t>(i) * 4, acc * norm);
            }
        }
    });
    return small;
}

// A row translated by dx, edges extended: the value at x is the row's at
// x - dx, interpolated linearly between two neighbours.
struct Shift {
    int offset;  // whole pixels: x reads x + offset and x + offset + 1
    float t;     // weight of the second

    explicit Shift(double dx) {
        const double f = std::floor(-dx);
        offset = static_cast<int>(f);
        t = static_cast<float>(-dx - f);
    }
    int left(int x, int width) const { return std::clamp(x + offset, 0, width - 1); }
    int right(int x, int width) const { return std::clamp(x + offset + 1, 0, width - 1); }
};

inline v4 softLight4(v4 cb, float cs) {
    const v4 s = {cs, cs, cs, cs};
    const v4 low = cb - (1 - 2 * s) * cb * (1 - cb);
    const v4 poly = ((16 * cb - 12) * cb + 4) * cb;
    const v4 root = sqrt4(cb > 0 ? cb : v4{});
    const v4 d = cb <= 0.25f ? poly : root;
    const v4 high = cb + (2 * s - 1) * (d - cb);
    return s <= 0.5f ? low : high;
}

// Soft light of an opaque grey over a row of premultiplied pixels.
QV_CLONES void softLightRow(float* p, const float* grey, float contrast, float bias, int width) {
    for (int x = 0; x < width; ++x, p += 4) {
        const float cs = contrast * grey[x] + bias;
        const float a = p[3];
        if (a >= 1) {
            v4 v = softLight4(load4(p), cs);
            v[3] = a;
            store4(p, v);
        } else {
            // Over a partly transparent backdrop the grey shows through.
            const float inv = a > 0 ? 1 / a : 0;
            v4 v = softLight4(load4(p) * inv, cs) * a + cs * (1 - a);
            v[3] = 1;
            store4(p, v);
        }
    }
}

QV_CLONES void cubeRow(float* p, int width, const float* data, int size) {
    const float scale = static_cast<float>(size - 1);
    const ptrdiff_t sg = static_cast<ptrdiff_t>(size) * 4, sb = sg * size;
    for (int x = 0; x < width; ++x, p += 4) {
        const float a = p[3];
        if (!(a > 0)) continue;
        const float inv = a == 1 ? 1 : 1 / a;
        float fr = unit(p[0] * inv) * scale, fg = unit(p[1] * inv) * scale, fb = unit(p[2] * inv) * scale;
        const int ir = std::min(static_cast<int>(fr), size - 2);
        const int ig = std::min(static_cast<int>(fg), size - 2);
        const int ib = std::min(static_cast<int>(fb), size - 2);
        fr -= static_cast<float>(ir);
        fg -= static_cast<float>(ig);
        fb -= static_cast<float>(ib);
        const float* c = data + ib * sb + ig * sg + ir * 4;
        // Red first, then green, then blue.
        v4 c00 = load4(c), c10 = load4(c + sg), c01 = load4(c + sb), c11 = load4(c + sb + sg);
        c00 += (load4(c + 4) - c00) * fr;
        c10 += (load4(c + sg + 4) - c10) * fr;
        c01 += (load4(c + sb + 4) - c01) * fr;
        c11 += (load4(c + sb + sg + 4) - c11) * fr;
        c00 += (c10 - c00) * fg;
        c01 += (c11 - c01) * fg;
        c00 += (c01 - c00) * fb;
        c00 *= a;
        c00[3] = a;
        store4(p, c00);
    }
}

// Multiplies the colour of a row by 1 - strength × smoothstep(inner, outer, d),
// d the distance of each pixel centre from (cx, row's dy), four pixels at a time.
QV_CLONES void vignetteRow(float* p, int width, float dy, float cx, float inner, float outer, float strength) {
    const float far = std::max(cx, width - cx);
    if (far * far + dy * dy <= inner * inner) return;  // the whole row lies inside the untouched disc
    const float span = std::max(outer - inner, 1e-6f);
    auto factor = [&](v4 dx) {
        v4 t = (sqrt4(dx * dx + dy * dy) - inner) / span;
        t = t < 0.0f ? v4{} : t;
        t = t > 1.0f ? v4{1, 1, 1, 1} : t;
        const v4 f = 1 - strength * t * t * (3 - 2 * t);
        return f < 0.0f ? v4{} : f;
    };
    int x = 0;
    for (; x + 4 <= width; x += 4, p += 16) {
        const v4 f = factor(v4{0.5f, 1.5f, 2.5f, 3.5f} + (static_cast<float>(x) - cx));
        for (int i = 0; i < 4; ++i) store4(p + i * 4, load4(p + i * 4) * v4{f[i], f[i], f[i], 1});
    }
    for (; x < width; ++x, p += 4) {
        const float f = factor(v4{x + 0.5f - cx, 0, 0, 0})[0];
        store4(p, load4(p) * v4{f, f, f, 1});
    }
}

inline uint64_t mix64(uint64_t z) {
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

// The random field: one uniform value per lattice point.
inline float lattice(int64_t i, int64_t j) {
    uint64_t key = (static_cast<uint64_t>(static_cast<uint32_t>(i)) << 32) | static_cast<uint32_t>(j);
    return static_cast<float>(mix64(key + 0x632BE59BD9B4E019ull) >> 40) * (1.0f / 16777216.0f);
}

}  // namespace

void runRows(Image& image, const std::vector<RowStep>& steps) {
    if (steps.empty() || image.empty()) return;
    const int band = bandRows(image.width());
    const int bands = (image.height() + band - 1) / band;
    parallel(bands, [&](int b0, int b1) {
        for (int b = b0; b < b1; ++b) {
            int y0 = b * band, y1 = std::min(image.height(), y0 + band);
            for (const RowStep& step : steps) step(image, y0, y1);
        }
    });
}

// Colour -------------------------------------------------------------------

RowStep colorCube(const std::vector<float>& cube, int size) {
    const size_t n = static_cast<size_t>(size);
    if (size < 2 || cube.size() < n * n * n * 4) return [](Image&, int, int) {};
    const float* data = cube.data();
    return [data, size](Image& image, int y0, int y1) {
        for (int y = y0; y < y1; ++y) cubeRow(image.row(y), image.width(), data, size);
    };
}

RowStep colorControls(double saturation, double brightness, double contrast) {
    const float s = static_cast<float>(saturation), br = static_cast<float>(brightness),
                con = static_cast<float>(contrast);
    return [s, br, con](Image& image, int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            float* p = image.row(y);
            for (int x = 0; x < image.width(); ++x, p += 4) {
                const float a = p[3];
                if (!(a > 0)) continue;
                const v4 c = load4(p) * (a == 1 ? 1 : 1 / a);
                const float l = kLumaR * c[0] + kLumaG * c[1] + kLumaB * c[2];
                v4 v = ((l + (c - l) * s + br) - 0.5f) * con + 0.5f;
                v *= a;
                v[3] = a;
                store4(p, v);
            }
        }
    };
}

RowStep vignette(int width, int height, double radius, double intensity, double falloff) {
    const float cx = width * 0.5f, cy = height * 0.5f;
    const float inner = static_cast<float>(radius * (1 - falloff)), outer = static_cast<float>(radius * (1 + falloff));
    const float strength = static_cast<float>(intensity);
    return [=](Image& image, int y0, int y1) {
        for (int y = y0; y < y1; ++y)
            vignetteRow(image.row(y), image.width(), static_cast<float>(image.yUp(y)) - cy, cx, inner, outer, strength);
    };
}

std::vector<Rgba> horizontalStripes(int height, Rgba colour0, Rgba colour1, double stripeWidth, double sharpness) {
    std::vector<Rgba> rows(static_cast<size_t>(std::max(height, 0)));
    const double soft = std::max(1 - sharpness, 1e-3);
    for (int r = 0; r < height; ++r) {
        const double y = height - r - 0.5;
        const double s = std::sin(std::numbers::pi * (y - 150) / std::max(stripeWidth, 1e-6));
        const float m = static_cast<float>(std::clamp(0.5 - 0.5 * s / soft, 0.0, 1.0));
        rows[size_t(r)] = {colour0.r + (colour1.r - colour0.r) * m, colour0.g + (colour1.g - colour0.g) * m,
                           colour0.b + (colour1.b - colour0.b) * m, colour0.a + (colour1.a - colour0.a) * m};
    }
    return rows;
}

RowStep multiplyRows(const std::vector<Rgba>& rowColours) {
    return [&rowColours](Image& image, int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const Rgba c = rowColours[size_t(y)];
            const v4 src = {c.r * c.a, c.g * c.a, c.b * c.a, c.a};
            float* p = image.row(y);
            for (int x = 0; x < image.width(); ++x, p += 4) {
                // Premultiplied multiply: s (1 - ab) + b (1 - as) + s b; alpha is s + b - s b.
                const v4 b = load4(p);
                const float a = b[3];
                v4 v = src * (1 - a) + b * (1 - c.a) + src * b;
                v[3] = c.a + a - c.a * a;
                store4(p, v);
            }
        }
    };
}

// Blurs -------------------------------------------------------------------

Blurred::Blurred(Image small, int width, int height, int factor, int margin)
    : small_(std::move(small)), width_(width), height_(height), factor_(std::max(factor, 1)), margin_(margin) {
    if (factor_ == 1 && margin_ == 0) return;
    // Pixel centres line up: full-size centre x + 0.5 sits at (x + 0.5) / factor
    // in the reduced picture, `margin` further in.
    const int sw = small_.width();
    left_.resize(size_t(width_));
    right_.resize(size_t(width_));
    weight_.resize(size_t(width_));
    for (int x = 0; x < width_; ++x) {
        const double u = (x + 0.5) / factor_ - 0.5 + margin_;
        const double f = std::floor(u);
        left_[size_t(x)] = std::clamp(static_cast<int>(f), 0, sw - 1) * 4;
        right_[size_t(x)] = std::clamp(static_cast<int>(f) + 1, 0, sw - 1) * 4;
        weight_[size_t(x)] = static_cast<float>(u - f);
    }
}

size_t Blurred::scratchSize() const { return static_cast<size_t>(width_ + small_.width()) * 4; }

const float* Blurred::row(int y, float* scratch) const {
    if (left_.empty()) return small_.row(y);
    const int sw = small_.width(), sh = small_.height();
    const double v = (y + 0.5) / factor_ - 0.5 + margin_;
    const double fv = std::floor(v);
    const float ty = static_cast<float>(v - fv);
    const float* a = small_.row(std::clamp(static_cast<int>(fv), 0, sh - 1));
    const float* b = small_.row(std::clamp(static_cast<int>(fv) + 1, 0, sh - 1));
    // Down first, into the tail of the scratch space, then across.
    float* between = scratch + static_cast<size_t>(width_) * 4;
    mixRow(between, a, 1 - ty, b, ty, static_cast<size_t>(sw) * 4);
    for (int x = 0; x < width_; ++x) {
        const v4 l = load4(between + left_[size_t(x)]);
        store4(scratch + static_cast<size_t>(x) * 4, l + (load4(between + right_[size_t(x)]) - l) * weight_[size_t(x)]);
    }
    return scratch;
}

Image Blurred::expand() const {
    if (left_.empty()) return small_;
    Image out = Image::uninitialized(width_, height_);
    runRows(out, {[this](Image& image, int y0, int y1) {
        std::vector<float> scratch(scratchSize());
        for (int y = y0; y < y1; ++y)
            std::memcpy(image.row(y), row(y, scratch.data()), sizeof(float) * 4 * static_cast<size_t>(width_));
    }});
    return out;
}

Blurred gaussianBlur(const Image& image, double sigma) {
    if (image.empty() || !(sigma > 0)) return Blurred(image, image.width(), image.height());
    if (sigma <= 3) {
        Image out = Image::uninitialized(image.width(), image.height());
        blurExact(image.data(), out.data(), image.width(), image.height(), 4, sigma);
        return Blurred(std::move(out), image.width(), image.height());
    }
    int d = 2;
    while (d * 2 <= sigma / 1.5) d *= 2;
    // The reduction (a box of d) and the bilinear read-back (a tent of d)
    // already blur by (d² - 1) / 12 and (d² - 1) / 6: take them out.
    const double rest = std::sqrt(std::max(sigma * sigma - (d * d - 1) / 4.0, 0.25)) / d;
    const int margin = static_cast<int>(std::ceil(3 * rest)) + 1;
    const Image small = reduceExtended(image, d, margin);
    Image blurred = Image::uninitialized(small.width(), small.height());
    blurExact(small.data(), blurred.data(), small.width(), small.height(), 4, rest);
    return Blurred(std::move(blurred), image.width(), image.height(), d, margin);
}

void gaussianBlur(Plane& plane, double sigma) {
    if (plane.width <= 0 || plane.height <= 0 || !(sigma > 0)) return;
    std::vector<float> out(plane.values.size());
    blurExact(plane.values.data(), out.data(), plane.width, plane.height, 1, sigma);
    plane.values.swap(out);
}

Blurred bokehBlur(const Image& image, double radius, double ringAmount, double ringSize, double softness) {
    if (image.empty() || !(radius > 0)) return Blurred(image, image.width(), image.height());
    // The disc is computed on a copy reduced so that its radius there is
    // about 2 to 6.5 pixels: enough to draw the disc and its ring, at a cost
    // that stays bounded whatever the radius.
    const int d = std::max(1, static_cast<int>(std::lround(radius / std::clamp(radius / 3, 2.0, 6.5))));
    const double r = radius / d;
    const double soft = std::max(softness / d, 0.25);
    const double ringStart = r * (1 - ringSize);

    // The kernel, each tap integrated over 4 × 4 points; only non-zero taps
    // are kept.
    const int reach = static_cast<int>(std::ceil(r + soft * 0.5));
    struct Weight {
        int dx, dy;
        double w;
    };
    std::vector<Weight> kernel;
    double total = 0;
    for (int dy = -reach; dy <= reach; ++dy)
        for (int dx = -reach; dx <= reach; ++dx) {
            double w = 0;
            for (int sy = 0; sy < 4; ++sy)
                for (int sx = 0; sx < 4; ++sx) {
                    const double px = dx + (sx + 0.5) / 4 - 0.5, py = dy + (sy + 0.5) / 4 - 0.5;
                    const double dist = std::sqrt(px * px + py * py);
                    const double disc = std::clamp((r - dist) / soft + 0.5, 0.0, 1.0);
                    const double ring = std::clamp((dist - ringStart) / soft + 0.5, 0.0, 1.0);
                    w += disc * (1 + ringAmount * ring) / 16;
                }
            if (w > 0) kernel.push_back({dx, dy, w});
            total += w;
        }

    const Image padded = reduceExtended(image, d, reach);
    Image out = Image::uninitialized(padded.width() - 2 * reach, padded.height() - 2 * reach);
    const size_t rowLen = static_cast<size_t>(out.width()) * 4;
    const int band = 4;
    parallel((out.height() + band - 1) / band, [&](int b0, int b1) {
        std::vector<Tap> taps(kernel.size());
        for (int y = b0 * band; y < std::min(out.height(), b1 * band); ++y) {
            for (size_t t = 0; t < kernel.size(); ++t)
                taps[t] = {padded.row(y + reach + kernel[t].dy) + static_cast<size_t>(reach + kernel[t].dx) * 4,
                           static_cast<float>(kernel[t].w / total)};
            tapSum(out.row(y), taps.data(), taps.size(), rowLen);
        }
    });
    return Blurred(std::move(out), image.width(), image.height(), d, 0);
}

RowStep mixWithBlur(const Blurred& blurred, float selfWeight, float blurWeight) {
    return [&blurred, selfWeight, blurWeight](Image& image, int y0, int y1) {
        const size_t rowLen = static_cast<size_t>(image.width()) * 4;
        std::vector<float> scratch(blurred.scratchSize());
        for (int y = y0; y < y1; ++y) {
            const float* q = blurred.row(y, scratch.data());
            if (selfWeight == 0 && blurWeight == 1)
                std::memcpy(image.row(y), q, sizeof(float) * rowLen);
            else
                mixRow(image.row(y), image.row(y), selfWeight, q, blurWeight, rowLen);
        }
    };
}

RowStep motionBlur(double radius) {
    const int reach = std::max(0, static_cast<int>(std::ceil(radius + 0.5)) - 1);
    std::vector<float> k(static_cast<size_t>(reach) + 1);
    double total = 0;
    for (int i = 0; i <= reach; ++i) {
        k[size_t(i)] = static_cast<float>(std::clamp(radius + 0.5 - i, 0.0, 1.0));
        total += i == 0 ? k[0] : 2.0 * k[size_t(i)];
    }
    for (float& w : k) w = static_cast<float>(w / total);
    return [k, reach](Image& image, int y0, int y1) {
        const size_t rowLen = static_cast<size_t>(image.width()) * 4;
        std::vector<float> padded(rowLen + static_cast<size_t>(reach) * 8);
        for (int y = y0; y < y1; ++y) {
            padRow(padded.data(), image.row(y), rowLen, reach, 4);
            symmetricFilter(image.row(y), padded.data() + reach * 4, 4, k.data(), reach, rowLen);
        }
    };
}

RowStep storeLuma(Plane& luma) {
    return [&luma](Image& image, int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* p = image.row(y);
            float* l = luma.row(y);
            for (int x = 0; x < image.width(); ++x, p += 4) l[x] = kLumaR * p[0] + kLumaG * p[1] + kLumaB * p[2];
        }
    };
}

void lumaDetail(Plane& luma, double radius) {
    Plane blurred(luma.width, luma.height);
    blurExact(luma.values.data(), blurred.values.data(), luma.width, luma.height, 1, radius);
    mixRow(luma.values.data(), luma.values.data(), 1, blurred.values.data(), -1, luma.values.size());
}

RowStep addLumaDetail(const Plane& detail, double sharpness) {
    const float s = static_cast<float>(sharpness);
    return [&detail, s](Image& image, int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            float* p = image.row(y);
            const float* d = detail.row(y);
            for (int x = 0; x < image.width(); ++x, p += 4) {
                const float add = s * d[x];
                store4(p, load4(p) + v4{add, add, add, 0});
            }
        }
    };
}

// Noise ------------------------------------------------------------------

Noise::Noise(double time, double scaleX, double scaleY, int width, int height, int margin)
    : invY_(1 / scaleY), width_(std::max(width, 0)), height_(std::max(height, 0)), margin_(std::max(margin, 0)) {
    // A new field 30 times a second, the same one for the same time.
    const uint64_t n = static_cast<uint64_t>(static_cast<int64_t>(time * 30));
    uint64_t h = n * 0x9E3779B97F4A7C15ull;
    h ^= h >> 29;
    const double offsetX = static_cast<double>(h & 0xFFF);
    offsetY_ = static_cast<double>((h >> 12) & 0xFFF);

    // Columns sample the same lattice columns on every row: work them out once.
    const double invX = 1 / scaleX;
    const int columns = width_ + 2 * margin_;
    index_.resize(size_t(columns));
    weight_.resize(size_t(columns));
    firstColumn_ = static_cast<int64_t>(std::floor((-margin_ + 0.5) * invX + offsetX - 0.5));
    for (int c = 0; c < columns; ++c) {
        const double u = (c - margin_ + 0.5) * invX + offsetX - 0.5;
        const double f = std::floor(u);
        index_[size_t(c)] = static_cast<int>(static_cast<int64_t>(f) - firstColumn_);
        weight_[size_t(c)] = static_cast<float>(u - f);
    }
    span_ = columns > 0 ? static_cast<size_t>(index_.back()) + 2 : 0;
}

void Noise::row(int row, float* out, Rows& rows) const {
    const double v = (height_ - row - 0.5) * invY_ + offsetY_ - 0.5;
    const double fv = std::floor(v);
    const int64_t j = static_cast<int64_t>(fv);
    const float ty = static_cast<float>(v - fv);
    auto fill = [&](std::vector<float>& values, int64_t latticeRow) {
        values.resize(span_);
        for (size_t i = 0; i < span_; ++i) values[i] = lattice(firstColumn_ + static_cast<int64_t>(i), latticeRow);
    };
    if (rows.lattice != j) {
        if (rows.lattice == j + 1 && rows.lower.size() == span_) {
            // Going down the picture, y falls: the old lower row is the new upper one.
            rows.upper.swap(rows.lower);
            fill(rows.lower, j);
        } else {
            fill(rows.lower, j);
            fill(rows.upper, j + 1);
        }
        rows.lattice = j;
    }
    const float* lo = rows.lower.data();
    const float* up = rows.upper.data();
    for (size_t c = 0; c < index_.size(); ++c) {
        const int i = index_[c];
        const float t = weight_[c];
        const float a = lo[i] + (lo[i + 1] - lo[i]) * t;
        const float b = up[i] + (up[i + 1] - up[i]) * t;
        out[c] = a + (b - a) * ty;
    }
}

Plane noisePlane(const Noise& noise) {
    Plane plane(noise.columns(), noise.rows());
    const int band = 16;
    parallel((plane.height + band - 1) / band, [&](int b0, int b1) {
        Noise::Rows rows;
        for (int r = b0 * band; r < std::min(plane.height, b1 * band); ++r)
            noise.row(r - noise.margin(), plane.row(r), rows);
    });
    return plane;
}

RowStep softLightNoise(const Plane& plane, int margin, double contrast) {
    const float c = static_cast<float>(contrast), bias = 0.5f - c / 2;
    return [&plane, margin, c, bias](Image& image, int y0, int y1) {
        for (int y = y0; y < y1; ++y)
            softLightRow(image.row(y), plane.row(y + margin) + margin, c, bias, image.width());
    };
}

RowStep softLightNoise(const Noise& noise, double contrast) {
    const float c = static_cast<float>(contrast), bias = 0.5f - c / 2;
    return [&noise, c, bias](Image& image, int y0, int y1) {
        std::vector<float> grey(static_cast<size_t>(noise.columns()));
        Noise::Rows rows;
        for (int y = y0; y < y1; ++y) {
            noise.row(y, grey.data(), rows);
            softLightRow(image.row(y), grey.data() + noise.margin(), c, bias, image.width());
        }
    };
}

// Geometry ------------------------------------------------------------------

RowStep shiftChannels(double redDx, double blueDx) {
    return [red = Shift(redDx), blue = Shift(blueDx)](Image& image, int y0, int y1) {
        const int width = image.width();
        std::vector<float> copy(static_cast<size_t>(width) * 4);
        for (int y = y0; y < y1; ++y) {
            float* p = image.row(y);
            std::memcpy(copy.data(), p, sizeof(float) * copy.size());
            const float* c = copy.data();
            for (int x = 0; x < width; ++x) {
                const float r0 = c[red.left(x, width) * 4], r1 = c[red.right(x, width) * 4];
                const float b0 = c[blue.left(x, width) * 4 + 2], b1 = c[blue.right(x, width) * 4 + 2];
                p[x * 4] = r0 + (r1 - r0) * red.t;
                p[x * 4 + 2] = b0 + (b1 - b0) * blue.t;
            }
        }
    };
}

RowStep shiftRows(int rowBegin, int rowEnd, double dx, double brightness) {
    const float br = static_cast<float>(brightness);
    return [rowBegin, rowEnd, shift = Shift(dx), br](Image& image, int y0, int y1) {
        const int width = image.width();
        std::vector<float> copy(static_cast<size_t>(width) * 4);
        for (int y = std::max(y0, rowBegin); y < std::min(y1, rowEnd); ++y) {
            float* p = image.row(y);
            std::memcpy(copy.data(), p, sizeof(float) * copy.size());
            for (int x = 0; x < width; ++x) {
                const v4 l = load4(copy.data() + shift.left(x, width) * 4);
                v4 s = l + (load4(copy.data() + shift.right(x, width) * 4) - l) * shift.t;
                // Brightness adds to the colour before premultiplication.
                s += v4{br, br, br, 0} * s[3];
                store4(p + x * 4, s + load4(p + x * 4) * (1 - s[3]));
            }
        }
    };
}

void compositeOver(Image& dst, const Image& src, int left, int top) {
    const int x0 = std::max(0, left), x1 = std::min(dst.width(), left + src.width());
    const int y0 = std::max(0, top), y1 = std::min(dst.height(), top + src.height());
    for (int y = y0; y < y1; ++y) {
        float* d = dst.row(y) + static_cast<size_t>(x0) * 4;
        const float* s = src.row(y - top) + static_cast<size_t>(x0 - left) * 4;
        for (int x = x0; x < x1; ++x, d += 4, s += 4) {
            const v4 sv = load4(s);
            store4(d, sv + load4(d) * (1 - sv[3]));
        }
    }
}

// Text ----------------------------------------------------------------------

Image textImage(const TextCoverage& coverage, double glowSigma) {
    if (coverage.empty()) return {};
    const int margin = glowSigma > 0 ? static_cast<int>(std::ceil(3 * glowSigma)) : 0;
    Image sharp(coverage.width + 2 * margin, coverage.height + 2 * margin);
    for (int y = 0; y < coverage.height; ++y) {
        float* p = sharp.row(y + margin) + static_cast<size_t>(margin) * 4;
        const uint8_t* c = coverage.pixels.data() + static_cast<size_t>(y) * coverage.width;
        for (int x = 0; x < coverage.width; ++x, p += 4) p[0] = p[1] = p[2] = p[3] = c[x] / 255.0f;
    }
    if (margin == 0) return sharp;
    Image glow = gaussianBlur(sharp, glowSigma).expand();
    compositeOver(glow, sharp, 0, 0);
    return glow;
}

// Accumulator -----------------------------------------------------------------

namespace {

constexpr int kHalfChunk = 1 << 12;

template <class Fn>
void forChunks(size_t n, Fn&& fn) {
    const int chunks = static_cast<int>((n + kHalfChunk - 1) / kHalfChunk);
    parallel(chunks, [&](int c0, int c1) {
        for (int c = c0; c < c1; ++c) {
            const size_t a = static_cast<size_t>(c) * kHalfChunk;
            fn(a, std::min(n, a + kHalfChunk));
        }
    });
}

cv::Mat halfSpan(const uint16_t* p, size_t n) { return cv::Mat(1, static_cast<int>(n), CV_16F, const_cast<uint16_t*>(p)); }
cv::Mat floatSpan(const float* p, size_t n) { return cv::Mat(1, static_cast<int>(n), CV_32F, const_cast<float*>(p)); }

}  // namespace

ImageAccumulator::ImageAccumulator(int width, int height)
    : width_(width), height_(height), half_(static_cast<size_t>(width) * height * 4) {}

void ImageAccumulator::setImage(const Image& image) {
    forChunks(half_.size(), [&](size_t a, size_t b) {
        cv::Mat out = halfSpan(half_.data() + a, b - a);
        floatSpan(image.data() + a, b - a).convertTo(out, CV_16F);
    });
}

Image ImageAccumulator::image() const {
    Image out = Image::uninitialized(width_, height_);
    forChunks(half_.size(), [&](size_t a, size_t b) {
        cv::Mat o = floatSpan(out.data() + a, b - a);
        halfSpan(half_.data() + a, b - a).convertTo(o, CV_32F);
    });
    return out;
}

void ImageAccumulator::dissolveTo(Image& frame, double t) {
    const float keep = static_cast<float>(1 - t), take = static_cast<float>(t);
    forChunks(half_.size(), [&](size_t a, size_t b) {
        float held[kHalfChunk];
        cv::Mat heldMat = floatSpan(held, b - a);
        cv::Mat half = halfSpan(half_.data() + a, b - a);
        cv::Mat f = floatSpan(frame.data() + a, b - a);
        half.convertTo(heldMat, CV_32F);
        mixRow(held, held, keep, frame.data() + a, take, b - a);
        heldMat.convertTo(half, CV_16F);
        // What the frame receives is the rounded, held picture.
        half.convertTo(f, CV_32F);
    });
}

}  // namespace qv::ImageOps
