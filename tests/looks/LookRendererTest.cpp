#include "looks/LookRenderer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "looks/GradeMath.h"
#include "looks/ImageCompare.h"

namespace qv {
namespace {

using Snapshot = LookRenderer::Snapshot;

// Smooth gradients in every channel plus hard-edged blocks.
Image chart(int w, int h) {
    Image img = Image::uninitialized(w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            float* p = img.row(y) + x * 4;
            const bool block = (x / 8 + y / 8) % 3 == 0;
            p[0] = block ? 0.9f : float(x) / w;
            p[1] = block ? 0.15f : float(y) / h;
            p[2] = 0.5f + 0.4f * std::sin(x * 0.3f + y * 0.1f);
            p[3] = 1;
        }
    return img;
}

ResolvedEffect effect(bool lens, bool shutter, bool vhs) {
    ResolvedEffect e;
    e.lens = lens;
    e.shutter = shutter;
    e.vhs = vhs;
    return e;
}

Snapshot enabled() {
    Snapshot s;
    s.enabled = true;
    return s;
}

TEST(LookRenderer, PassesFramesThroughWhenThereIsNothingToDo) {
    const Image frame = chart(64, 36);
    LookRenderer r;
    EXPECT_EQ(r.process(frame, 0, 1), frame);  // empty snapshot: disabled

    Snapshot s = enabled();
    s.grades = {{0, ColorGrade::neutral}, {1, ColorGrade::neutral}};
    r.update(s);
    EXPECT_EQ(r.process(frame, 0, 1), frame) << "rendu : sans réglage, l'image reste identique";

    // Strong looks, but disabled, or on a frame one pixel high or wide.
    s.grades[0] = {.exposure = 1, .vignette = -3, .grain = 80};
    s.plans = {{0, 10, 0, effect(true, true, true)}};
    r.update(s);
    EXPECT_EQ(r.process(chart(64, 1), 0, 1), chart(64, 1));
    EXPECT_EQ(r.process(chart(1, 36), 0, 1), chart(1, 36));
    s.enabled = false;
    r.update(s);
    EXPECT_EQ(r.process(frame, 0, 1), frame);
}

TEST(LookRenderer, GrainAndVignetteChangeThePictureTheSameWayAtTheSameTime) {
    const Image frame = chart(160, 90);
    Snapshot s = enabled();
    s.grades[0] = {.vignette = -2, .grain = 60};
    LookRenderer preview, exportRenderer;
    preview.update(s);
    exportRenderer.update(s);

    const Image a = preview.process(frame, 0, 2.0);
    EXPECT_GT(maxDifference(a, frame), 0.05f) << "rendu : étalonnage + grain + vignette changent l'image";
    // The vignette darkens the corners far more than the grain can lift them.
    EXPECT_LT(a.pixel(0, 0).g + a.pixel(159, 89).g, 0.8f * (frame.pixel(0, 0).g + frame.pixel(159, 89).g));

    EXPECT_EQ(exportRenderer.process(frame, 0, 2.0), a);
    EXPECT_EQ(preview.process(frame, 0, 2.0 + 0.01), a);  // same thirtieth of a second
    EXPECT_GT(maxDifference(preview.process(frame, 0, 2.0 + 1.0 / 30), a), 0.01f);
}

TEST(LookRenderer, CubeStepMatchesTheGradeMaths) {
    // A moderate grade that keeps colours inside 0..1, where a 33-point
    // cube interpolates the maths closely.
    const ColorGrade grade{.temperature = 20, .tint = -8, .contrast = 20, .shadows = 10, .saturation = 110,
                           .vibrance = 15, .wheelMidtones = {200, 0.3, 0}};
    Image colours = Image::uninitialized(27, 27);
    for (int i = 0; i < 27 * 27; ++i) {
        float* p = colours.data() + i * 4;
        p[0] = (i % 9) / 8.0f * 0.76f + 0.12f;
        p[1] = (i / 9 % 9) / 8.0f * 0.76f + 0.12f;
        p[2] = (i / 81) / 8.0f * 0.7f + 0.12f + 0.01f * (i % 7);
        p[3] = 1;
    }
    Snapshot s = enabled();
    s.grades[3] = grade;
    LookRenderer r;
    r.update(s);
    const Image out = r.process(colours, 3, 0);
    int checked = 0;
    for (int i = 0; i < 27 * 27; ++i) {
        const float* in = colours.data() + i * 4;
        const Rgb want = GradeMath::apply(in[0], in[1], in[2], grade);
        // Within a cell of the clamp to 0..1 linear interpolation cannot
        // follow the kink; those few colours say nothing of the cube step.
        if (std::min({want.r, want.g, want.b}) < 0.03 || std::max({want.r, want.g, want.b}) > 0.97) continue;
        ++checked;
        const Rgba got = out.pixel(i % 27, i / 27);
        ASSERT_NEAR(got.r, want.r, 1 / 255.0) << i;
        ASSERT_NEAR(got.g, want.g, 1 / 255.0) << i;
        ASSERT_NEAR(got.b, want.b, 1 / 255.0) << i;
    }
    EXPECT_GT(checked, 27 * 27 * 8 / 10);
}

TEST(LookRenderer, OnlyTheLastStartedPlanCountsAndItLingersFor50Ms) {
    const Image frame = chart(64, 36);
    Snapshot s = enabled();
    s.effects.vhsStamp = false;
    s.plans = {{0, 2, 0, effect(false, false, true)}, {2, 4, 1, effect(false, false, false)},
               {4, 5, 0, effect(false, false, true)}};
    LookRenderer r;
    r.update(s);
    EXPECT_NE(r.process(frame, 0, 1), frame);
    EXPECT_EQ(r.process(frame, 1, 1), frame);             // the plan is camera 0's
    EXPECT_NE(r.process(frame, 0, 1.999), frame);          // the next plan has not started yet
    EXPECT_EQ(r.process(frame, 0, 1.9996), frame);         // within half a millisecond it has
    EXPECT_EQ(r.process(frame, 0, 2.5), frame);            // camera 1's plan ends camera 0's effect
    EXPECT_NE(r.process(frame, 0, 3.9996), frame);
    EXPECT_NE(r.process(frame, 0, 5.04), frame);           // a plan still shows just after its end
    EXPECT_EQ(r.process(frame, 0, 5.06), frame);
    s.plans.resize(1);
    r.update(s);
    EXPECT_NE(r.process(frame, 0, 2.04), frame);
}

TEST(LookRenderer, LensFocusArrivesDuringTheFirstSecondsOfThePlan) {
    const Image frame = chart(96, 54);
    Snapshot s = enabled();
    s.effects.lensAmount = 1;
    s.effects.lensAnimation = EffectSettings::LensAnimation::focusIn;
    s.plans = {{10, 14, 0, effect(true, false, false)}};  // ramp of 1.5 s
    LookRenderer r;
    r.update(s);
    const float atStart = maxDifference(r.process(frame, 0, 10), frame);
    const float halfway = maxDifference(r.process(frame, 0, 10.75), frame);
    EXPECT_GT(atStart, halfway);
    EXPECT_GT(halfway, 0.02f);
    EXPECT_EQ(r.process(frame, 0, 11.6), frame);

    s.effects.lensAnimation = EffectSettings::LensAnimation::focusOut;
    r.update(s);
    EXPECT_EQ(r.process(frame, 0, 12.4), frame);
    EXPECT_GT(maxDifference(r.process(frame, 0, 14), frame), atStart * 0.99f);
}

// Rows (from the top) where two pictures differ, and the rightmost
// differing column above and below the middle.
struct Difference {
    std::vector<int> rows;
    int rightAbove = -1, rightBelow = -1;
};

Difference difference(const Image& a, const Image& b) {
    Difference d;
    for (int y = 0; y < a.height(); ++y) {
        bool differs = false;
        for (int x = 0; x < a.width(); ++x)
            if (a.pixel(x, y) != b.pixel(x, y)) {
                differs = true;
                int& right = y < a.height() / 2 ? d.rightAbove : d.rightBelow;
                right = std::max(right, x);
            }
        if (differs) d.rows.push_back(y);
    }
    return d;
}

TEST(LookRenderer, VhsTrackingAndStampSitWhereTheyBelong) {
    const Image frame = chart(640, 360);  // k = 1/3
    Snapshot s = enabled();
    s.effects.vhsIntensity = 1;
    s.effects.vhsChroma = s.effects.vhsNoise = s.effects.vhsScanlines = 0;
    s.effects.vhsTracking = 0;
    s.effects.vhsStamp = false;
    s.plans = {{0, 100, 0, effect(false, false, true)}};
    LookRenderer plain, tracked, stamped;
    plain.update(s);
    s.effects.vhsTracking = 1;
    tracked.update(s);
    s.effects.vhsTracking = 0;
    s.effects.vhsStamp = true;
    stamped.update(s);

    // A quarter of the way through its cycle the band's bottom edge is at
    // 360 - 0.25 × 385.2 = 263.7 from the bottom: rows 72 to 96 from the top.
    const double t = 0.25 / 0.11;
    const Image base = plain.process(frame, 0, t);
    const Difference tracking = difference(tracked.process(frame, 0, t), base);
    EXPECT_FALSE(tracking.rows.empty());
    for (int y : tracking.rows)
        EXPECT_TRUE((y >= 71 && y <= 97) || y >= 347) << "row " << y;  // band, or the strip at the bottom

    // "PLAY ▶" 20 pixels below the top, the longer date 23 above the bottom,
    // both from 20 pixels in.
    const Difference stamp = difference(stamped.process(frame, 0, t), base);
    ASSERT_FALSE(stamp.rows.empty());
    EXPECT_GE(stamp.rows.front(), 10);
    EXPECT_LE(stamp.rows.back(), 350);
    EXPECT_TRUE(std::none_of(stamp.rows.begin(), stamp.rows.end(), [](int y) { return y > 60 && y < 300; }));
    EXPECT_GT(stamp.rightAbove, 60);
    EXPECT_LT(stamp.rightAbove + 30, stamp.rightBelow);
    EXPECT_LT(stamp.rightBelow, 200);
    EXPECT_EQ(LookRenderer::stampDate().size(), 12u);
    EXPECT_EQ(LookRenderer::stampDate()[3], '.');
}

class ShutterTrail : public ::testing::Test {
protected:
    const Image a = Image::filled(16, 8, {0.2f, 0.4f, 0.6f, 1});
    const Image b = Image::filled(16, 8, {0.8f, 0.2f, 0.1f, 1});
    LookRenderer renderer;

    void settle(double trail, int step) {
        Snapshot s = enabled();
        s.effects.shutterTrail = trail;
        s.effects.shutterStep = step;
        s.plans = {{0, 100, 0, effect(false, true, false)}};
        renderer.update(s);
    }
    // The red of the frame given at `time`, with a tolerance fit for half floats.
    float red(const Image& frame, double time) { return renderer.process(frame, 0, time).pixel(3, 5).r; }
};

TEST_F(ShutterTrail, SecondFrameKeepsATraceOfTheFirst) {
    settle(0.6, 1);
    EXPECT_EQ(renderer.process(a, 0, 1), a);  // the first frame of a trail is untouched
    EXPECT_NEAR(red(b, 1 + 1 / 30.0), 0.6 * 0.2 + 0.4 * 0.8, 1e-3)
        << "rendu : flou de mouvement garde une traînée de l'image d'avant";
    EXPECT_NEAR(red(b, 1 + 2 / 30.0), 0.36 * 0.2 + 0.64 * 0.8, 1e-3);
}

TEST_F(ShutterTrail, JumpsInTimeAndPlansWithoutTheEffectRestartIt) {
    settle(0.6, 1);
    renderer.process(a, 0, 5);
    EXPECT_EQ(renderer.process(b, 0, 4.9985), b);  // 1.5 ms back
    renderer.process(a, 0, 6);
    EXPECT_NEAR(red(b, 5.9995), 0.44, 1e-3);  // 0.5 ms back still continues
    renderer.process(a, 0, 7);
    EXPECT_EQ(renderer.process(b, 0, 7.26), b);  // more than 0.25 s forward
    renderer.process(a, 0, 8);
    EXPECT_NEAR(red(b, 8.25), 0.44, 1e-3);

    renderer.process(a, 0, 9);
    Snapshot s = enabled();
    s.plans = {{0, 100, 0, effect(false, false, true)}};
    renderer.update(s);
    renderer.process(a, 0, 9 + 1 / 30.0);  // a plan without the trail drops it
    settle(0.6, 1);
    EXPECT_EQ(renderer.process(b, 0, 9 + 2 / 30.0), b);
}

TEST_F(ShutterTrail, StrengthIsCappedAndStepsHoldThePicture) {
    settle(0.99, 0);  // acts as 0.95, every frame
    renderer.process(a, 0, 1);
    EXPECT_NEAR(red(b, 1.04), 0.95 * 0.2 + 0.05 * 0.8, 1e-3);

    settle(0, 1);  // no trail at all: the new frame replaces the held one
    renderer.process(a, 0, 3);
    EXPECT_NEAR(red(b, 3.04), 0.8, 1e-3);

    settle(0.5, 2);
    renderer.process(a, 0, 5);
    EXPECT_NEAR(red(b, 5.04), 0.2, 1e-3);  // between steps the held picture shows
    EXPECT_NEAR(red(b, 5.08), 0.5, 1e-3);
}

TEST(LookRenderer, ThreadsOnDifferentCamerasGiveTheSamePictures) {
    Snapshot s = enabled();
    s.grades = {{0, {.temperature = 20, .grain = 40}}, {1, {.contrast = 30, .sharpen = 50}},
                {2, {.vignette = -1, .texture = -40}}, {3, ColorGrade::neutral}};
    s.effects.shutterStep = 1;
    // Each camera has its own second of the set, so each plan is the last
    // started while its camera renders.
    for (int c = 0; c < 4; ++c) s.plans.push_back({double(c), c + 1.0, c, effect(c % 2 == 1, c != 1, c >= 2)});
    const Image frame = chart(192, 108);
    auto run = [&](LookRenderer& r, int camera) {
        std::vector<Image> out;
        for (int f = 0; f < 6; ++f) out.push_back(r.process(frame, camera, camera + f / 30.0));
        return out;
    };

    LookRenderer one;
    one.update(s);
    std::vector<std::vector<Image>> alone(4), together(4);
    for (int c = 0; c < 4; ++c) alone[size_t(c)] = run(one, c);

    LookRenderer shared;
    shared.update(s);
    {
        std::vector<std::jthread> threads;
        for (int c = 0; c < 4; ++c) threads.emplace_back([&, c] { together[size_t(c)] = run(shared, c); });
    }
    for (int c = 0; c < 4; ++c) {
        EXPECT_EQ(together[size_t(c)], alone[size_t(c)]) << "camera " << c;
        EXPECT_NE(alone[size_t(c)].back(), frame) << "camera " << c;
    }
}

}  // namespace
}  // namespace qv
