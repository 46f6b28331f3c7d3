#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <thread>
#include <vector>

#include "effects/MotionFX.h"

namespace qv {
namespace {

const EffectCameras allCameras{true, true, true, true, true};

EffectSettings everythingOn() {
    EffectSettings s;
    s.shakeEnabled = s.lensEnabled = s.shutterEnabled = s.vhsEnabled = true;
    return s;
}

TEST(MotionFXResolve, DrawFollowsTheReferenceGenerator) {
    // Seed 0 at start 0 leaves the state at 0, whose first SplitMix64 output
    // is the published 0xE220A8397B1DCDAF.
    EffectSettings s;
    s.seed = 0;
    ResolvedEffect r = MotionFX::resolve(PlanEffect::automatic, {}, 0, {}, s);
    double unit = static_cast<double>(0xE220A8397B1DCDAFull >> 11) * 0x1.0p-53;
    EXPECT_DOUBLE_EQ(r.phases[0], 2 * unit * std::numbers::pi);

    // Negative starts draw as 0; moves below a millisecond keep the draw.
    s.seed = 7;
    auto at = [&](double start) { return MotionFX::resolve(PlanEffect::automatic, {}, start, allCameras, s); };
    EXPECT_EQ(at(-3), at(0));
    EXPECT_EQ(at(12.3456), at(12.3459));
    EXPECT_NE(at(12.345).phases, at(12.346).phases);
}

TEST(MotionFXResolve, AutomaticFollowsSettingsAndCameraSets) {
    EffectSettings s = everythingOn();
    ResolvedEffect outside = MotionFX::resolve(PlanEffect::automatic, {}, 4, {}, s);
    EXPECT_EQ(outside.zoom, 0);
    EXPECT_FALSE(outside.shake || outside.lens || outside.shutter || outside.vhs);

    for (double share : {0.0, 1.0}) {
        s.zoomInShare = share;
        for (int i = 0; i < 50; ++i) {
            ResolvedEffect r = MotionFX::resolve(PlanEffect::automatic, {}, i * 1.7, allCameras, s);
            EXPECT_EQ(r.zoom, share == 1.0 ? 1 : -1);
            EXPECT_TRUE(r.shake && r.lens && r.shutter && r.vhs);
        }
    }
}

TEST(MotionFXResolve, ExplicitChoicesAndNone) {
    EffectSettings off;
    off.zoomEnabled = false;
    EXPECT_EQ(MotionFX::resolve(PlanEffect::zoomIn, {}, 1, {}, off).zoom, 1);
    EXPECT_EQ(MotionFX::resolve(PlanEffect::zoomOut, {}, 1, {}, off).zoom, -1);
    ResolvedEffect shake = MotionFX::resolve(PlanEffect::shake, {}, 1, {}, off);
    EXPECT_TRUE(shake.shake);
    EXPECT_EQ(shake.zoom, 0);

    // "None" cuts the global image effects but keeps an explicit override.
    PlanLooks looks;
    looks.lens = true;
    ResolvedEffect none = MotionFX::resolve(PlanEffect::none, looks, 1, allCameras, everythingOn());
    EXPECT_TRUE(none.lens);
    EXPECT_FALSE(none.shake || none.vhs || none.shutter);
    EXPECT_EQ(none.zoom, 0);
    EXPECT_EQ(none.phases, (std::array<double, 5>{}));

    looks.vhs = false;
    EXPECT_FALSE(MotionFX::resolve(PlanEffect::automatic, looks, 1, allCameras, everythingOn()).vhs);
}

TEST(MotionFXResolve, SameResultOnEveryThread) {
    EffectSettings s = everythingOn();
    s.seed = 991;
    auto drawAll = [&] {
        std::vector<ResolvedEffect> out;
        for (int i = 0; i < 2000; ++i)
            out.push_back(MotionFX::resolve(PlanEffect::automatic, {}, i * 0.37, allCameras, s));
        return out;
    };
    std::vector<ResolvedEffect> expected = drawAll();
    std::vector<std::vector<ResolvedEffect>> got(4);
    std::vector<std::thread> threads;
    for (auto& g : got) threads.emplace_back([&g, &drawAll] { g = drawAll(); });
    for (auto& t : threads) t.join();
    for (const auto& g : got) EXPECT_EQ(g, expected);
}

TEST(MotionFXSample, ZoomCurveEnds) {
    EffectSettings s;  // zoomMax 115, slow
    ResolvedEffect in, out;
    in.zoom = 1;
    out.zoom = -1;
    EXPECT_DOUBLE_EQ(MotionFX::sample(in, 0, 4, s).scale, 1);
    EXPECT_DOUBLE_EQ(MotionFX::sample(in, 2, 4, s).scale, 1.075);
    EXPECT_DOUBLE_EQ(MotionFX::sample(in, 9, 4, s).scale, 1.15);
    EXPECT_DOUBLE_EQ(MotionFX::sample(out, 0, 4, s).scale, 1.15);
    EXPECT_DOUBLE_EQ(MotionFX::sample(out, 4, 4, s).scale, 1);

    // A plan of length 0 ramps over 0.01 s instead of dividing by 0.
    EXPECT_DOUBLE_EQ(MotionFX::sample(in, 0.005, 0, s).scale, 1.075);

    s.zoomStyle = EffectSettings::ZoomStyle::punch;
    EXPECT_DOUBLE_EQ(MotionFX::sample(in, 0.6, 10, s).scale, 1.15);
    EXPECT_DOUBLE_EQ(MotionFX::sample(in, 5, 10, s).scale, 1.15);
    EXPECT_DOUBLE_EQ(MotionFX::sample(in, 0.25, 0.5, s).scale, 1.075);  // short punch ramps like slow

    s.zoomPartial = true;  // a partial zoom-out does not come back to 100 %
    EXPECT_DOUBLE_EQ(MotionFX::sample(out, 5, 10, s).scale, 1.075);

    s.zoomMax = 100;
    EXPECT_DOUBLE_EQ(MotionFX::sample(in, 5, 10, s).scale, 1);
    EXPECT_TRUE(in.hasMotion());
}

TEST(MotionFXSample, ShakeMovesEvenAtSpeedZero) {
    EffectSettings s;
    ResolvedEffect shake = MotionFX::resolve(PlanEffect::shake, {}, 3, {}, s);
    MotionSample a = MotionFX::sample(shake, 0, 8, s);
    EXPECT_DOUBLE_EQ(a.scale, 1 + 0.5 * 0.08 + 0.5 * 0.025);
    EXPECT_NEAR(a.x, 0.5 * 0.03 * (std::sin(shake.phases[0]) + 0.5 * std::sin(shake.phases[1])), 1e-12);
    EXPECT_NEAR(a.rotation, 0.6 * std::sin(shake.phases[4]) + 0.15 * std::sin(shake.phases[1]), 1e-12);

    s.shakeSpeed = 0;
    EffectSettings slowest = s;
    slowest.shakeSpeed = 0.05;
    MotionSample b = MotionFX::sample(shake, 2, 8, s);
    EXPECT_NE(b.x, a.x);
    EXPECT_DOUBLE_EQ(b.rotation, MotionFX::sample(shake, 2, 8, slowest).rotation);
}

}  // namespace
}  // namespace qv
