#include "looks/ImageOps.h"
#include "looks/ImageCompare.h"

#include <gtest/gtest.h>

#include <cmath>

namespace qv {
namespace {

using namespace ImageOps;

// Hard edges and gradients: what blurs get wrong shows at both.
Image pattern(int w, int h) {
    Image img = Image::uninitialized(w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            float* p = img.row(y) + x * 4;
            p[0] = (x / 10 + y / 10) % 2 ? 0.9f : 0.1f;
            p[1] = float(x) / w;
            p[2] = x > w / 2 && y < h / 3 ? 1.0f : 0.0f;
            p[3] = 1;
        }
    return img;
}

// A plain Gaussian reaching 4 sigma over edge-extended pixels, in doubles:
// across the rows, then down the columns.
Image referenceBlur(const Image& in, double sigma) {
    const int reach = int(std::ceil(4 * sigma)), w = in.width(), h = in.height();
    std::vector<double> k(size_t(2 * reach + 1));
    double total = 0;
    for (int i = -reach; i <= reach; ++i) total += k[size_t(i + reach)] = std::exp(-i * i / (2 * sigma * sigma));
    std::vector<double> across(in.size()), down(in.size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int i = -reach; i <= reach; ++i)
                for (int c = 0; c < 4; ++c)
                    across[size_t((y * w + x) * 4 + c)] +=
                        k[size_t(i + reach)] / total * in.row(y)[std::clamp(x + i, 0, w - 1) * 4 + c];
    Image out(w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 4; ++c) {
                double v = 0;
                for (int i = -reach; i <= reach; ++i)
                    v += k[size_t(i + reach)] / total * across[size_t((std::clamp(y + i, 0, h - 1) * w + x) * 4 + c)];
                out.row(y)[x * 4 + c] = float(v);
            }
    return out;
}

TEST(ImageOps, GaussianBlurMatchesTheDirectSumAtFullAndReducedSize) {
    const Image in = pattern(160, 120);
    EXPECT_LT(maxDifference(gaussianBlur(in, 1.5).expand(), referenceBlur(in, 1.5)), 0.01f);
    // Above sigma 3 the blur runs on a reduced copy; it must still look like the real thing.
    EXPECT_LT(maxDifference(gaussianBlur(in, 9).expand(), referenceBlur(in, 9)), 0.02f);

    Plane plane(40, 30);
    for (int i = 0; i < 40 * 30; ++i) plane.values[size_t(i)] = float(i % 40 > 20);
    gaussianBlur(plane, 1.0);
    Image asImage = Image::uninitialized(40, 30);
    for (int i = 0; i < 40 * 30; ++i) std::fill_n(asImage.data() + i * 4, 4, float(i % 40 > 20));
    const Image want = referenceBlur(asImage, 1.0);
    for (int i = 0; i < 40 * 30; ++i) ASSERT_NEAR(plane.values[size_t(i)], want.data()[i * 4], 0.01) << i;
}

TEST(ImageOps, BlursKeepAFlatPictureFlatUpToItsEdges) {
    const Rgba c{0.3f, 0.6f, 0.9f, 1};
    const Image flat = Image::filled(70, 50, c);
    std::vector<Image> outs = {gaussianBlur(flat, 0.8).expand(), gaussianBlur(flat, 7).expand(),
                               bokehBlur(flat, 1.5, 0.15, 0.12, 1.2).expand(),
                               bokehBlur(flat, 14, 0.15, 0.12, 1.2).expand()};
    Image smeared = flat;
    runRows(smeared, {motionBlur(2.3)});
    outs.push_back(smeared);
    for (const Image& out : outs) EXPECT_LT(maxDifference(out, flat), 1e-5f);
}

TEST(ImageOps, BokehSpreadsAPointIntoAFlatDisc) {
    Image dark = Image::filled(121, 121, {0, 0, 0, 1});
    for (int y = 59; y <= 61; ++y)
        for (int x = 59; x <= 61; ++x) std::fill_n(dark.row(y) + x * 4, 3, 1.0f);
    const double radius = 24;
    const Image out = bokehBlur(dark, radius, 0.15, 0.12, 1.2).expand();
    auto at = [&](double d) { return out.pixel(60 + int(d), 60).g; };
    const float inside = at(0.3 * radius);
    EXPECT_GT(inside, 0.002f);
    EXPECT_NEAR(at(0.6 * radius), inside, inside * 0.25f);  // flat, unlike a Gaussian
    EXPECT_NEAR(at(0), inside, inside * 0.25f);
    EXPECT_LT(at(1.3 * radius), inside * 0.02f);
}

TEST(ImageOps, ChannelShiftMovesRedRightAndBlueLeft) {
    Image line = Image::filled(64, 3, {0, 0, 0, 1});
    for (int y = 0; y < 3; ++y) std::fill_n(line.row(y) + 20 * 4, 3, 1.0f);
    runRows(line, {shiftChannels(2, -2)});
    EXPECT_FLOAT_EQ(line.pixel(22, 1).r, 1);
    EXPECT_FLOAT_EQ(line.pixel(20, 1).r, 0);
    EXPECT_FLOAT_EQ(line.pixel(18, 1).b, 1);
    EXPECT_FLOAT_EQ(line.pixel(20, 1).g, 1);
    runRows(line, {shiftChannels(0.5, 0)});  // half a pixel shares the red between two
    EXPECT_FLOAT_EQ(line.pixel(22, 1).r, 0.5f);
    EXPECT_FLOAT_EQ(line.pixel(23, 1).r, 0.5f);
}

TEST(ImageOps, NoiseRepeatsForTheSameThirtiethAndSoftLightOfGreyIsNeutral) {
    const Noise a(4.0, 1.5, 1.5, 50, 20, 2), same(4.02, 1.5, 1.5, 50, 20, 2), next(4.04, 1.5, 1.5, 50, 20, 2);
    const Plane pa = noisePlane(a);
    EXPECT_EQ(pa.values, noisePlane(same).values);
    EXPECT_NE(pa.values, noisePlane(next).values);
    const auto [lo, hi] = std::minmax_element(pa.values.begin(), pa.values.end());
    EXPECT_GE(*lo, 0.0f);
    EXPECT_LE(*hi, 1.0f);
    EXPECT_GT(*hi - *lo, 0.5f);

    const Image in = pattern(50, 20);
    Image out = in;
    runRows(out, {softLightNoise(pa, 2, 0.0)});
    EXPECT_EQ(out, in);
    runRows(out, {softLightNoise(pa, 2, 0.5)});
    EXPECT_GT(maxDifference(out, in), 0.05f);
}

TEST(ImageOps, TextComesOutWhiteOnAGlowWithTheGlowsMargin) {
    auto raster = TextRaster::open();
    ASSERT_TRUE(raster) << raster.error().message;
    const TextCoverage play = raster->render("PLAY \u25B6", 46);
    const TextCoverage a = raster->render("A", 46);
    ASSERT_FALSE(play.empty());
    EXPECT_EQ(play.height, a.height);
    EXPECT_NEAR(play.width, 6 * a.width, a.width * 0.5);  // one cell per character, the triangle included

    const Image text = textImage(play, 46 * 0.06);
    const int margin = int(std::ceil(3 * 46 * 0.06));
    EXPECT_EQ(text.width(), play.width + 2 * margin);
    int white = 0, glow = 0;
    for (int y = 0; y < text.height(); ++y)
        for (int x = 0; x < text.width(); ++x) {
            const Rgba p = text.pixel(x, y);
            EXPECT_LE(std::max({p.r, p.g, p.b}), p.a + 1e-6f);
            white += p.a > 0.999f && p.r > 0.999f;
            glow += p.a > 0.02f && p.a < 0.5f;
        }
    EXPECT_GT(white, 100);
    EXPECT_GT(glow, 100);
    EXPECT_EQ(text.pixel(0, 0).a, 0.0f);
}

}  // namespace
}  // namespace qv
