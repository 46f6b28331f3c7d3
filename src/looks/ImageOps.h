// The image filters of the frame chain, on Image (premultiplied RGBA floats).
//
// Most filters are row steps: a RowStep changes rows [begin, end) of a
// picture in place and reads nothing outside them, so `runRows` can pass
// bands of rows through several steps while the band is still in cache, with
// the bands spread over the cores. A step reads its own row only, or a
// precomputed picture (a blur, a noise plane) that must outlive the run.
// Results never depend on how the rows were split.
//
// Geometry follows the chain: y is measured upward from the bottom edge, x
// rightward from the left edge, pixel centres at half units. Sizes are in
// pixels of the picture being filtered. Every function is reentrant; none
// keeps state between calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "looks/Image.h"
#include "platform/TextRaster.h"

namespace qv::ImageOps {

using RowStep = std::function<void(Image& image, int begin, int end)>;

// Runs the steps in order on every row; a band of rows goes through all the
// steps before the next band starts.
void runRows(Image& image, const std::vector<RowStep>& steps);

// One float per pixel (grey noise, luminance). Row 0 is the top.
struct Plane {
    int width = 0;
    int height = 0;
    std::vector<float> values;

    Plane() = default;
    Plane(int w, int h) : width(w), height(h), values(static_cast<size_t>(w) * h) {}
    float* row(int y) { return values.data() + static_cast<size_t>(y) * width; }
    const float* row(int y) const { return values.data() + static_cast<size_t>(y) * width; }
};

// Colour ---------------------------------------------------------------

// A 3D colour table applied with trilinear interpolation: `cube` holds
// size³ entries of red, green, blue, alpha, blue the slowest axis and red
// the fastest, the grid spanning 0..1. Colours are looked up unpremultiplied
// and clamped to the grid; alpha is kept.
RowStep colorCube(const std::vector<float>& cube, int size);

// Saturation (mix with the Rec. 709 luminance, 1 unchanged), then
// brightness (added), then contrast (scaled around 0.5, 1 unchanged).
RowStep colorControls(double saturation, double brightness, double contrast);

// Darkens (intensity > 0) or lightens (< 0) the periphery of the picture:
// the colour is multiplied by 1 - intensity × s, where s rises smoothly
// from 0 at distance radius × (1 - falloff) from the centre of the picture
// to 1 at radius × (1 + falloff), so `radius` is where half the effect is.
RowStep vignette(int width, int height, double radius, double intensity, double falloff);

// Stripes of `colour0` and `colour1` (opaque greys or colours), each
// `stripeWidth` wide, lying horizontally (the generator's vertical stripes
// turned a quarter): one colour per row. `sharpness` 0 gives a sine between
// the colours, 1 hard edges. The pattern's phase is fixed at y = 150.
std::vector<Rgba> horizontalStripes(int height, Rgba colour0, Rgba colour1, double stripeWidth, double sharpness);

// Multiply compositing of an opaque picture that is one colour per row.
RowStep multiplyRows(const std::vector<Rgba>& rowColours);

// Blurs -----------------------------------------------------------------

// A filtered copy of a picture that may be held at a reduced size and is
// read back at full size with bilinear interpolation. Strong blurs are
// computed small: what they remove is exactly the detail a small copy
// lacks, and that keeps them cheap.
class Blurred {
public:
    Blurred() = default;
    // `small` is the width × height picture reduced by `factor`, with
    // `margin` pixels of extended edge on every side.
    Blurred(Image small, int width, int height, int factor = 1, int margin = 0);

    int width() const { return width_; }
    int height() const { return height_; }
    // Floats of scratch space `row` needs.
    size_t scratchSize() const;
    // Row `y` at full size, which may be written into `scratch`.
    const float* row(int y, float* scratch) const;
    Image expand() const;

private:
    Image small_;
    int width_ = 0;
    int height_ = 0;
    int factor_ = 1;
    int margin_ = 0;
    // Per full-size column: the left neighbour in the small copy (as a float
    // offset) and the weight of the right one.
    std::vector<int> left_, right_;
    std::vector<float> weight_;
};

// Gaussian blur of standard deviation `sigma`, the picture's edges extended
// outward. Up to sigma 3 it is computed at full size with a kernel reaching
// 3 sigma; above, on a copy reduced by a power of two no larger than
// sigma / 1.5, the blur of the reduction and the read-back taken out of
// sigma.
Blurred gaussianBlur(const Image& image, double sigma);

// The same blur on a plane, at full size.
void gaussianBlur(Plane& plane, double sigma);

// A disc-shaped (bokeh) blur of `radius` with edges extended: the disc has
// a soft edge `softness` pixels wide and a ring of relative width
// `ringSize` at its rim weighted by 1 + `ringAmount`, so bright points
// spread into discs with a brighter rim. From a radius of 3 pixels on it is
// computed on a copy reduced by a whole factor, where the radius is about 2
// to 6.5 pixels.
Blurred bokehBlur(const Image& image, double radius, double ringAmount, double ringSize, double softness);

// image × selfWeight + blurred × blurWeight. An unsharp mask of intensity i
// is (1 + i, -i); a dissolve from the blur to the picture at time t is
// (t, 1 - t); (0, 1) replaces the picture by the blur.
RowStep mixWithBlur(const Blurred& blurred, float selfWeight, float blurWeight);

// Horizontal motion blur: a box `radius` pixels to each side, its ends
// weighted by their fraction, edges extended.
RowStep motionBlur(double radius);

// Luminance sharpening: luma (Rec. 709) of each pixel is written into
// `luma` by `storeLuma`; after the plane is turned into its detail by
// `lumaDetail` (luma minus its Gaussian blur of `radius`), `addLumaDetail`
// adds sharpness × detail to all three channels, so only luminance changes.
RowStep storeLuma(Plane& luma);
void lumaDetail(Plane& luma, double radius);
RowStep addLumaDetail(const Plane& detail, double sharpness);

// Noise --------------------------------------------------------------------

// noise(time): a field of independent uniform values 0..1 on an integer
// lattice, shifted by an offset drawn from the thirtieth of a second of
// `time`, then scaled up by (scaleX, scaleY) and sampled bilinearly at the
// pixel centres of a width × height picture, `margin` pixels beyond each
// edge included. Only the red channel is kept: the chain makes grey noise.
// The same time gives the same field, in every process.
class Noise {
public:
    Noise(double time, double scaleX, double scaleY, int width, int height, int margin = 0);

    int columns() const { return width_ + 2 * margin_; }
    int rows() const { return height_ + 2 * margin_; }
    int margin() const { return margin_; }

    // The two lattice rows used last; rows asked for in order share them.
    struct Rows {
        int64_t lattice = INT64_MIN;
        std::vector<float> lower, upper;
    };
    // columns() values of picture row `row` (-margin .. height + margin - 1),
    // from column -margin on.
    void row(int row, float* out, Rows& rows) const;

private:
    double invY_ = 1, offsetY_ = 0;
    int width_ = 0, height_ = 0, margin_ = 0;
    int64_t firstColumn_ = 0;  // lattice column of index 0 in Rows
    size_t span_ = 0;          // lattice columns a row needs
    std::vector<int> index_;   // per picture column, into Rows
    std::vector<float> weight_;
};

// The noise as a plane of columns() × rows() values.
Plane noisePlane(const Noise& noise);

// Soft light (the PDF blend) of grey noise over the picture, the grey
// being contrast × n + 0.5 - contrast / 2, so middle grey changes nothing.
// `plane` is read with its `margin`; the other form makes the noise per row
// and needs a noise without margin.
RowStep softLightNoise(const Plane& plane, int margin, double contrast);
RowStep softLightNoise(const Noise& noise, double contrast);

// Geometry ---------------------------------------------------------------

// Red translated by `redDx`, blue by `blueDx` on x, green kept, edges
// extended, the three added back; alpha is green's.
RowStep shiftChannels(double redDx, double blueDx);

// On rows [rowBegin, rowEnd): the picture with edges extended, translated
// by `dx` on x and brightened by `brightness`, composited over itself.
RowStep shiftRows(int rowBegin, int rowEnd, double dx, double brightness);

// Source-over compositing of `src` with its top left corner at (left, top)
// in rows and columns of `dst`; what falls outside `dst` is dropped.
void compositeOver(Image& dst, const Image& src, int left, int top);

// Text -----------------------------------------------------------------

// White text from its coverage, on a glow: the text blurred with `glowSigma`
// and the sharp text composited over it. The picture is larger than the
// coverage by the blur's reach (3 sigma, rounded up) on every side.
Image textImage(const TextCoverage& coverage, double glowSigma);

// Accumulator -------------------------------------------------------------

// A picture held between frames in half floats, the precision of an image
// accumulator. Not synchronised: its owner locks around it.
class ImageAccumulator {
public:
    ImageAccumulator(int width, int height);

    int width() const { return width_; }
    int height() const { return height_; }
    void setImage(const Image& image);
    Image image() const;
    // The held picture becomes held × (1 - t) + frame × t, a dissolve from
    // the held picture to `frame`, and `frame` receives it as the
    // accumulator now holds it. `frame` has the accumulator's size.
    void dissolveTo(Image& frame, double t);

private:
    int width_;
    int height_;
    std::vector<uint16_t> half_;
};

}  // namespace qv::ImageOps
