#include "looks/GradeMath.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "base/SplitMix64.h"
#include "platform/Process.h"
#include "support/Fixtures.h"

namespace qv {
namespace {

void expectNear(const Rgb& got, const Rgb& want, double tolerance) {
    EXPECT_NEAR(got.r, want.r, tolerance);
    EXPECT_NEAR(got.g, want.g, tolerance);
    EXPECT_NEAR(got.b, want.b, tolerance);
}

// Every colour step switched on, hard enough that an axis or channel swapped
// anywhere shows.
const ColorGrade kStrong{.temperature = 40, .tint = -15, .exposure = 0.2, .contrast = 40, .highlights = -20,
                         .shadows = 20, .saturation = 130, .fadedFilm = 15, .vibrance = 20,
                         .highlightTint = {50, 0.6, 0}, .wheelShadows = {220, 0.5, 0}, .wheelMidtones = {30, 0.4, 5}};

Rgb apply(const ColorGrade& g, double r, double gr, double b) { return GradeMath::apply(r, gr, b, g); }

TEST(GradeMath, NeutralGradeReturnsItsInput) {
    for (Rgb c : {Rgb{0.5, 0.25, 0.75}, Rgb{1, 1, 1}, Rgb{0.2, 0.8, 0.05}, Rgb{0, 0, 0}})
        expectNear(apply(ColorGrade::neutral, c.r, c.g, c.b), c, 0.000001);
}

TEST(GradeMath, SingleControlsMoveColoursTheRightWay) {
    EXPECT_NEAR(apply({.exposure = 1}, 0.4, 0.4, 0.4).g, 0.552, 0.002);
    Rgb warm = apply({.temperature = 60}, 0.5, 0.5, 0.5);
    EXPECT_GT(warm.r, warm.b + 0.05);
    Rgb grey = apply({.saturation = 0}, 0.9, 0.3, 0.1);
    EXPECT_NEAR(grey.r, grey.g, 0.000001);
    EXPECT_NEAR(grey.g, grey.b, 0.000001);

    Rgb minus = apply({.wheelMidtones = {-30, 0.7, 20}}, 0.4, 0.5, 0.6);
    expectNear(minus, apply({.wheelMidtones = {330, 0.7, 20}}, 0.4, 0.5, 0.6), 1e-12);
    EXPECT_GT(minus.r, minus.g);  // 330° is a magenta-red
}

// The size the exports bake, red fastest and blue outer, every point where
// the maths puts it; its speed is bench/cube_bake_bench's.
TEST(GradeMath, CubeHoldsEveryPointOfTheGradeBlueOuter) {
    ASSERT_EQ(GradeMath::kCubeSize, 33);
    const std::vector<float> data = GradeMath::cubeData(kStrong, 33);
    const CubeLUT lut = GradeMath::cubeLUT(kStrong, 33);
    ASSERT_EQ(data.size(), size_t(33 * 33 * 33 * 4));
    ASSERT_EQ(lut.values.size(), size_t(33 * 33 * 33 * 3));
    for (int i = 0; i < 33 * 33 * 33; ++i) {
        const Rgb want = GradeMath::apply(i % 33 / 32.0, i / 33 % 33 / 32.0, i / (33 * 33) / 32.0, kStrong);
        ASSERT_EQ(data[size_t(i) * 4], float(want.r)) << i;
        ASSERT_EQ(data[size_t(i) * 4 + 1], float(want.g)) << i;
        ASSERT_EQ(data[size_t(i) * 4 + 2], float(want.b)) << i;
        ASSERT_EQ(data[size_t(i) * 4 + 3], 1.0f) << i;
        ASSERT_EQ(lut.values[size_t(i) * 3 + 1], float(want.g)) << i;
    }
}

TEST(GradeJson, ReadsTolerantlyAndRoundTrips) {
    auto g = ColorGrade::fromJson(json::Json::parse(R"({"exposure": "fort", "contrast": 12,
        "wheelMidtones": {"hue": 90, "amount": "x"}, "shadowTint": 3, "lut": 7})"));
    ASSERT_TRUE(g);
    EXPECT_EQ(g->exposure, 0);
    EXPECT_EQ(g->contrast, 12);
    EXPECT_EQ(g->grainSize, 25);
    EXPECT_EQ(g->grainRoughness, 50);
    EXPECT_EQ(g->wheelMidtones, (ColorWheel{90, 0, 0}));
    EXPECT_EQ(g->shadowTint, ColorWheel{});
    EXPECT_FALSE(g->lut);
    EXPECT_FALSE(ColorGrade::fromJson(json::Json::array()));

    ColorGrade s = kStrong;
    s.lut = "Nuit.cube";
    nlohmann::ordered_json j = s.toJson();
    EXPECT_EQ(j.begin().key(), "temperature");
    EXPECT_EQ(std::next(j.begin(), 9).key(), "lut");
    EXPECT_EQ(ColorGrade::fromJson(json::Json::parse(j.dump())), s);
    EXPECT_FALSE(ColorGrade::neutral.toJson().contains("lut"));
    EXPECT_EQ(std::hash<ColorGrade>{}(s), std::hash<ColorGrade>{}(*ColorGrade::fromJson(json::Json(j))));
}

// A cube we write must mean the same to another reader: ffmpeg's lut3d
// filter applies it to a picture and must land on our own per-pixel maths.
// The fade keeps this strong grade off the 0 and 1 clamps, whose kinks a
// 33-point cube follows only to 2-4 levels. Against our own sampling of the
// same cube the reader must agree to 16-bit precision.
TEST(GradeMath, FfmpegAppliesOurCubeLikeOurMaths) {
    const char* ffmpeg = "/usr/bin/ffmpeg";
    if (!std::filesystem::exists(ffmpeg)) GTEST_SKIP() << "ffmpeg absent : comparaison impossible";
    const ColorGrade g{.temperature = 50, .tint = -10, .contrast = 45, .saturation = 120, .fadedFilm = 40,
                       .highlightTint = {50, 0.6, 0}, .wheelShadows = {220, 0.5, 0}, .wheelMidtones = {30, 0.5, 0}};
    const CubeLUT cube = GradeMath::cubeLUT(g, GradeMath::kCubeSize);
    test::TempDir dir;
    test::writeText(dir / "look.cube", cube.text("Test"));
    // 16-bit samples in and out, so that neither a conversion nor rounding
    // to 8 bits hides behind the tolerance. Input pixels are 8-bit values.
    const int w = 64, h = 32;
    std::vector<int> pixels;
    std::string raw;
    SplitMix64 rng(7);
    for (int i = 0; i < w * h * 3; ++i) {
        pixels.push_back(i < w * 3 ? (i / 3) * 4 : int(rng.next() % 256));  // first row: grey ramp
        raw += {char(pixels.back() * 257 & 0xFF), char(pixels.back() * 257 >> 8)};
    }
    test::writeText(dir / "in.rgb", raw);
    auto out = process::run(ffmpeg, {"-v", "error", "-nostdin", "-f", "rawvideo", "-pix_fmt", "rgb48le", "-s",
                                     std::to_string(w) + "x" + std::to_string(h), "-i", (dir / "in.rgb").string(),
                                     "-vf", "lut3d=file=" + (dir / "look.cube").string() + ":interp=trilinear",
                                     "-f", "rawvideo", "-pix_fmt", "rgb48le", "pipe:1"});
    ASSERT_TRUE(out.ok());
    ASSERT_EQ(out->exitCode, 0);
    ASSERT_EQ(out->out.size(), raw.size());
    double worstMaths = 0, worstCube = 0;
    for (size_t i = 0; i < pixels.size(); i += 3) {
        auto in = [&](size_t k) { return pixels[i + k] / 255.0; };
        Rgb maths = GradeMath::apply(in(0), in(1), in(2), g);
        Rgb sampled = cube.sample(in(0), in(1), in(2));
        double m[3] = {maths.r, maths.g, maths.b}, c[3] = {sampled.r, sampled.g, sampled.b};
        for (size_t k = 0; k < 3; ++k) {
            const auto* word = reinterpret_cast<const unsigned char*>(out->out.data()) + (i + k) * 2;
            double got = (word[0] | word[1] << 8) / 65535.0;
            worstMaths = std::max(worstMaths, std::abs(got - m[k]));
            worstCube = std::max(worstCube, std::abs(got - c[k]));
        }
    }
    EXPECT_LE(worstMaths * 255, 2.0);
    EXPECT_LE(worstCube * 255, 0.02);
    std::printf("[ ffmpeg  ] worst %.2f/255 from the maths, %.2f/255 from our sampling\n", worstMaths * 255,
                worstCube * 255);
}

}  // namespace
}  // namespace qv
