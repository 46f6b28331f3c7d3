#include "effects/MotionFX.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "base/SplitMix64.h"

namespace qv::MotionFX {

namespace {

constexpr double twoPi = 2 * std::numbers::pi;

// Whole milliseconds of a start, so sub-millisecond moves keep the draw.
uint64_t milliseconds(double start) {
    double ms = start > 0 ? start * 1000 : 0;  // also turns NaN into 0
    if (ms >= 0x1.0p64) return UINT64_MAX;
    return static_cast<uint64_t>(ms);
}

}  // namespace

ResolvedEffect resolve(PlanEffect effect, const PlanLooks& looks, double start,
                       const EffectCameras& cameras, const EffectSettings& settings) {
    SplitMix64 rng((settings.seed * 0x2545F4914F6CDD1Dull) ^ milliseconds(start));
    ResolvedEffect r;
    for (double& p : r.phases) p = 2 * rng.unit() * std::numbers::pi;

    switch (effect) {
    case PlanEffect::automatic:
        // The sixth draw is taken only here, but it is the sixth whatever happens.
        if (settings.zoomEnabled && cameras.zoom) r.zoom = rng.unit() < settings.zoomInShare ? 1 : -1;
        r.shake = settings.shakeEnabled && cameras.shake;
        break;
    case PlanEffect::zoomIn: r.zoom = 1; break;
    case PlanEffect::zoomOut: r.zoom = -1; break;
    case PlanEffect::shake: r.shake = true; break;
    case PlanEffect::none: r.phases = {}; break;
    }

    // "Aucun effet" cuts the global image effects but keeps an explicit override.
    bool globals = effect != PlanEffect::none;
    r.lens = looks.lens.value_or(globals && settings.lensEnabled && cameras.lens);
    r.shutter = looks.shutter.value_or(globals && settings.shutterEnabled && cameras.shutter);
    r.vhs = looks.vhs.value_or(globals && settings.vhsEnabled && cameras.vhs);
    return r;
}

MotionSample sample(const ResolvedEffect& effect, double u, double duration,
                    const EffectSettings& settings) {
    MotionSample m;
    if (effect.zoom != 0) {
        double peak = settings.zoomMax / 100 - 1;
        double amount = settings.zoomPartial ? peak * settings.zoomPartialAmount : peak;
        // A punch reaches its end in 0.6 s; on a shorter plan it ramps like a slow zoom.
        double ramp = (settings.zoomStyle == EffectSettings::ZoomStyle::punch && duration >= 0.6) ? 0.6
                      : duration <= 0.01                                                          ? 0.01
                                                                                                  : duration;
        double t = std::clamp(u / ramp, 0.0, 1.0);
        double s = t * t * (3 - 2 * t);
        m.scale = effect.zoom > 0 ? 1 + amount * s : (peak + 1) - amount * s;
    }
    if (effect.shake) {
        double sp = std::max(settings.shakeSpeed, 0.05) * 0.5;
        double e = settings.shakeExtent;
        double i = settings.shakeIntensity;
        const auto& p = effect.phases;
        auto wave = [&](double hz, double phase) { return std::sin(twoPi * hz * sp * u + phase); };
        m.x = e * 0.03 * (wave(0.7, p[0]) + 0.5 * wave(1.9, p[1]));
        m.y = e * 0.025 * (wave(0.55, p[2]) + 0.5 * wave(2.3, p[3]));
        m.rotation = i * 1.2 * wave(0.45, p[4]) + i * 0.3 * wave(3.1, p[1]);
        // Grow a little so that no edge of the frame shows while it moves.
        m.scale *= 1 + e * 0.08 + i * 0.025;
    }
    return m;
}

}  // namespace qv::MotionFX
