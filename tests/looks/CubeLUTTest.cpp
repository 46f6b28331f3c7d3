#include "looks/CubeLUT.h"

#include <gtest/gtest.h>

#include "looks/GradeMath.h"

namespace qv {
namespace {

// A cube text of `size` points whose every value is `value`.
std::string flatCube(int size, const char* value, const std::string& header = "") {
    std::string text = header + "LUT_3D_SIZE " + std::to_string(size) + "\n";
    for (int i = 0; i < size * size * size; ++i) text += std::string(value) + " " + value + " " + value + "\n";
    return text;
}

TEST(CubeLUT, TextRoundTripsAndIgnoresTheLocale) {
    CubeLUT lut = CubeLUT::identity(2);
    lut.values[4] = 0.125f;
    lut.values[23] = 0.75f;
    std::string text = lut.text("Essai");
    EXPECT_EQ(text.substr(0, text.find("0.000000")),
              "TITLE \"Essai\"\n# Fait avec Quorvel (Quorvel Media)\nLUT_3D_SIZE 2\n");
    EXPECT_NE(text.find("\n1.000000 0.125000 0.000000\n"), std::string::npos);  // dots under fr_FR
    EXPECT_EQ(text.back(), '\n');
    auto back = CubeLUT::parse(text);
    ASSERT_TRUE(back);
    EXPECT_EQ(*back, lut);

    // A baked cube settles after one trip: reading its own text writes it back unchanged.
    ColorGrade g;
    g.contrast = 40;
    g.temperature = -30;
    std::string baked = GradeMath::cubeLUT(g, 9).text("x");
    EXPECT_EQ(CubeLUT::parse(baked)->text("x"), baked);
}

TEST(CubeLUT, AcceptsTheCommonDialect) {
    std::string text =
        "TITLE \"x\"\r\n  # comment\r\n\tlut_3d_size\t2\vLUT_1D_SIZE 5\fDOMAIN_MIN 0 0 0\xC2\x85"
        "domain_max 2 2 2\xE2\x80\xA8" "0 0 0\n2 0 0\n0 2 0\n2 2 0\n0 0 2\n2 0 2\n0 2 2\n+2 2 2e0";
    auto lut = CubeLUT::parse(text);
    ASSERT_TRUE(lut);
    EXPECT_EQ(*lut, CubeLUT::identity(2));  // halved by the domain

    auto same = CubeLUT::parse(flatCube(2, "0.5", "DOMAIN_MIN 0.5 0.5 0.5\nDOMAIN_MAX 0.5 0.5 0.5\n"));
    ASSERT_TRUE(same);  // an empty domain divides by a tiny number instead of failing
    EXPECT_EQ(same->values[0], 0.0f);
}

TEST(CubeLUT, RefusesBadSizesAndCounts) {
    EXPECT_FALSE(CubeLUT::parse("LUT_3D_SIZE 4\n0 0 0\n"));
    EXPECT_FALSE(CubeLUT::parse(flatCube(1, "0")));
    EXPECT_TRUE(CubeLUT::parse(flatCube(128, "0")));
    EXPECT_FALSE(CubeLUT::parse(flatCube(129, "0")));
    EXPECT_FALSE(CubeLUT::parse(flatCube(2, "0", "DOMAIN_MAX 1 1 x\n")));
    std::string badValue = flatCube(2, "0");
    badValue.replace(badValue.rfind("0 0 0"), 5, "0 nan 0");
    EXPECT_FALSE(CubeLUT::parse(badValue));
    EXPECT_FALSE(CubeLUT::parse(""));
}

TEST(CubeLUT, SamplesTrilinearly) {
    CubeLUT id = CubeLUT::identity(17);
    for (Rgb c : {Rgb{0.3, 0.71, 0.999}, Rgb{0, 1, 0.5}, Rgb{1, 1, 1}}) {
        Rgb s = id.sample(c.r, c.g, c.b);
        EXPECT_NEAR(s.r, c.r, 1e-6);
        EXPECT_NEAR(s.g, c.g, 1e-6);
        EXPECT_NEAR(s.b, c.b, 1e-6);
    }
    Rgb clamped = id.sample(-0.5, 1.5, std::nan(""));
    EXPECT_EQ(clamped, (Rgb{0, 1, 0}));

    // Only blue varies in this table: a swapped axis would show here.
    CubeLUT blueOnly = CubeLUT::identity(2);
    for (size_t i = 0; i < blueOnly.values.size(); ++i) blueOnly.values[i] = i >= 12 ? 1.0f : 0.0f;
    EXPECT_NEAR(blueOnly.sample(0.9, 0.9, 0.25).g, 0.25, 1e-12);
}

}  // namespace
}  // namespace qv
