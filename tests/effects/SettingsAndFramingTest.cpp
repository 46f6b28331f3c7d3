#include <gtest/gtest.h>

#include "effects/EffectSettings.h"
#include "effects/Reframe.h"

namespace qv {
namespace {

using json::Json;

TEST(EffectSettingsJson, RoundTripAndTolerantReading) {
    EffectSettings s;
    s.zoomCameras = {Uuid::make(), Uuid::make()};
    s.vhsCameras = {Uuid::make()};
    s.zoomStyle = EffectSettings::ZoomStyle::punch;
    s.lensAnimation = EffectSettings::LensAnimation::focusOut;
    s.shutterStep = 3;
    s.vhsStamp = false;
    s.seed = 0xFEDCBA9876543210ull;  // above the signed range
    Json j = s;
    EXPECT_EQ(j["lensAnimation"], "Perte de netteté");
    EXPECT_EQ(j["zoomStyle"], "Rapide");
    EXPECT_EQ(json::parse(j.dump())->get<EffectSettings>(), s);

    // An older or damaged file: each key stands or falls on its own.
    Json old = {{"zoomMax", "beaucoup"}, {"zoomStyle", "Moyen"}, {"zoomCameras", {"pas-un-uuid"}},
                {"shakeSpeed", 0.9}, {"seed", -4}};
    EffectSettings read = old.get<EffectSettings>();
    EffectSettings expected;
    expected.shakeSpeed = 0.9;
    EXPECT_EQ(read, expected);
    EXPECT_TRUE(read.vhsStamp);
    EXPECT_EQ(Json("n'importe").get<EffectSettings>(), EffectSettings{});
}

TEST(EffectSettingsJson, PlanValues) {
    PlanLooks looks;
    looks.shutter = false;
    Json j = looks;
    EXPECT_EQ(j.dump(), R"({"shutter":false})");
    EXPECT_EQ(Json({{"shutter", false}, {"vhs", 3}}).get<PlanLooks>(), looks);

    EXPECT_EQ(Json(PlanEffect::automatic), "auto");
    EXPECT_EQ(Json("zoomOut").get<PlanEffect>(), PlanEffect::zoomOut);
    EXPECT_EQ(Json("spin").get<PlanEffect>(), PlanEffect::automatic);
    EXPECT_STREQ(label(PlanEffect::zoomOut), "zoom arrière");

    EXPECT_EQ(Json(OutputFormat::fourFive), "4:5");
    EXPECT_EQ(Json("9:16").get<OutputFormat>(), OutputFormat::portrait);
    EXPECT_EQ(Json("3:2").get<OutputFormat>(), OutputFormat::landscape);
    CameraFrame f{1.5, -0.25, 1};
    EXPECT_EQ(Json(f).get<CameraFrame>(), f);
    EXPECT_EQ(Json({{"x", 0.5}}).get<CameraFrame>(), (CameraFrame{1, 0.5, 0}));
}

TEST(Reframe, PlaceFillsAndMovesWithinRoom) {
    const PixelSize hd{1920, 1080};
    Reframe::Placement p = Reframe::place(hd, hd, {2, 0, -1});
    EXPECT_DOUBLE_EQ(p.scale, 2);
    EXPECT_DOUBLE_EQ(p.y, 0.5);  // keeping the top moves the picture down
    EXPECT_DOUBLE_EQ(p.windowHeight, 0.5);

    p = Reframe::place(hd, hd, {1, 1, -1});  // no room at zoom 1 in its own shape
    EXPECT_EQ(p.x, 0);
    EXPECT_EQ(p.y, 0);

    p = Reframe::place(hd, {1080, 1920}, {1, 0.5, 1});
    EXPECT_DOUBLE_EQ(p.scale, 1920.0 / 1080);
    EXPECT_NEAR(p.windowWidth, 0.3164, 1e-4);
    EXPECT_DOUBLE_EQ(p.windowHeight, 1);
    EXPECT_LT(p.x, 0);
    EXPECT_EQ(p.y, 0);

    // Out-of-range frames are held to their range.
    Reframe::Placement held = Reframe::place(hd, hd, {0.5, 3, 0});
    Reframe::Placement edge = Reframe::place(hd, hd, {1, 1, 0});
    EXPECT_EQ(held.scale, edge.scale);
    EXPECT_EQ(held.x, edge.x);
    EXPECT_DOUBLE_EQ(Reframe::place(hd, hd, {9, 0, 0}).scale, 4);

    for (PixelSize zero : {PixelSize{0, 1080}, PixelSize{1920, 0}}) {
        Reframe::Placement n = Reframe::place(zero, hd, {2, 1, 1});
        EXPECT_EQ(n.scale, 1);
        EXPECT_EQ(n.x, 0);
        EXPECT_EQ(n.windowWidth, 1);
        EXPECT_EQ(Reframe::place(hd, zero, {2, 1, 1}).scale, 1);
    }
}

}  // namespace
}  // namespace qv
