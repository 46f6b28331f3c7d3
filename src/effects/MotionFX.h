// MotionFX: the draw of one plan's effect and the motion curve it follows.
// The draw is seeded by the settings' seed and the plan's start only, so the
// preview, the XML and the video show the same effect on every run.
// Both operations are pure and may run on any thread; `sample` runs per frame
// and allocates nothing. Times are seconds, scale 1 is unchanged, x and y are
// fractions of the output frame, rotation is in degrees.
#pragma once

#include <array>

#include "effects/EffectSettings.h"

namespace qv {

// Whether a plan's camera is in each of the five camera sets.
struct EffectCameras {
    bool zoom = false;
    bool shake = false;
    bool lens = false;
    bool shutter = false;
    bool vhs = false;

    // The camera `id`'s membership of each of the settings' camera sets.
    static EffectCameras of(const Uuid& id, const EffectSettings& settings) {
        return {settings.zoomCameras.count(id) > 0, settings.shakeCameras.count(id) > 0,
                settings.lensCameras.count(id) > 0, settings.shutterCameras.count(id) > 0,
                settings.vhsCameras.count(id) > 0};
    }
};

// One plan's effect after the draw. Never stored: worked out when needed.
struct ResolvedEffect {
    int zoom = 0;  // +1 zoom in, -1 zoom out, 0 none
    bool shake = false;
    std::array<double, 5> phases{};  // radians, for the shake's sine waves
    bool lens = false;
    bool shutter = false;
    bool vhs = false;

    bool hasMotion() const { return zoom != 0 || shake; }
    bool operator==(const ResolvedEffect&) const = default;
};

struct MotionSample {
    double scale = 1;
    double x = 0;
    double y = 0;
    double rotation = 0;
};

namespace MotionFX {

// `start` is the plan's start on the set's time line; below 0 it draws as 0,
// and plans less than a millisecond apart share a draw.
ResolvedEffect resolve(PlanEffect effect, const PlanLooks& looks, double start,
                       const EffectCameras& cameras, const EffectSettings& settings);

// `u`: seconds since the plan's start; `duration`: the plan's length.
MotionSample sample(const ResolvedEffect& effect, double u, double duration,
                    const EffectSettings& settings);

}  // namespace MotionFX

}  // namespace qv
