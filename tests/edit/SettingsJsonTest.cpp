#include <gtest/gtest.h>

#include "edit/AudioSettings.h"
#include "edit/AutoEditor.h"

namespace qv {
namespace {

TEST(SettingsJson, EachKeyIsReadOnItsOwn) {
    auto a = AudioSettings::fromJson(*json::parse(R"({"mode":"Suit la caméra","rushFade":"long","cutFade":false})"));
    ASSERT_TRUE(a.ok());
    EXPECT_EQ(*a, (AudioSettings{AudioSettings::Mode::camera, 1.0, false, 0}));
    EXPECT_EQ(AudioSettings::fromJson(*json::parse(R"({"mode":"Stéréo"})"))->mode, AudioSettings::Mode::table);
    EXPECT_FALSE(AudioSettings::fromJson(*json::parse("[1]")).ok());
    AudioSettings all{AudioSettings::Mode::all, 0.25, false, -2};
    EXPECT_EQ(json::Json(all).get<AudioSettings>(), all);

    AutoSettings s;
    s.cameras = {Uuid::make()};
    s.weights = {{Uuid::make(), 20}};
    s.seed = 0x7FFFFFFFFFFFFFFFull;
    EXPECT_EQ(json::Json(s).get<AutoSettings>(), s);
    auto read = json::parse(R"({"maxPlan":9,"seed":-4,"cameras":["nope"]})")->get<AutoSettings>();
    EXPECT_EQ(read.maxPlan, 9);
    EXPECT_EQ(read.seed, 1u);
    EXPECT_TRUE(read.cameras.empty());
}

}  // namespace
}  // namespace qv
