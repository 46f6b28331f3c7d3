// What the user asks of a plan's picture: the per-plan choice (PlanEffect),
// per-plan overrides of the three image effects (PlanLooks), and the global
// settings that say which effects run on which cameras (EffectSettings).
// Plain values, safe to copy to any thread. Their JSON forms are those of the
// project file: enumerations by raw value, every key read on its own, and a
// missing or unreadable key keeps its default, so an older file still opens.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string_view>

#include "base/Json.h"
#include "base/Uuid.h"

namespace qv {

// `automatic` stands for the stored value "auto", a keyword in C++.
enum class PlanEffect { automatic, none, zoomIn, zoomOut, shake };

const char* rawValue(PlanEffect e);  // "auto", "none", "zoomIn", ...
const char* label(PlanEffect e);     // "effet automatique", "aucun effet", ...
std::optional<PlanEffect> planEffectFromRaw(std::string_view raw);

// Overrides of the global image effects on one plan; absent lets the global
// settings decide.
struct PlanLooks {
    std::optional<bool> lens;
    std::optional<bool> shutter;
    std::optional<bool> vhs;

    bool operator==(const PlanLooks&) const = default;
};

struct EffectSettings {
    enum class ZoomStyle { slow, punch };                      // "Lent", "Rapide"
    enum class LensStyle { bokeh, soft };                      // "Bokeh", "Doux"
    enum class LensAnimation { still, focusIn, focusOut };     // "Fixe", ...

    // Camera sets hold source ids and are inclusive: a camera outside the set
    // does not get the effect. Fractions run from 0 to 1. Values read from
    // files are held inside the range of their slider (rangeOf).
    bool zoomEnabled = true;
    std::set<Uuid> zoomCameras;
    double zoomInShare = 0.5;
    double zoomMax = 115.0;  // percent
    ZoomStyle zoomStyle = ZoomStyle::slow;
    bool zoomPartial = false;
    double zoomPartialAmount = 0.5;

    bool shakeEnabled = false;
    std::set<Uuid> shakeCameras;
    double shakeIntensity = 0.5;
    double shakeSpeed = 0.5;
    double shakeExtent = 0.5;

    bool lensEnabled = false;
    std::set<Uuid> lensCameras;
    double lensAmount = 0.4;
    LensStyle lensStyle = LensStyle::bokeh;
    LensAnimation lensAnimation = LensAnimation::still;

    bool shutterEnabled = false;
    std::set<Uuid> shutterCameras;
    double shutterTrail = 0.6;
    int shutterStep = 2;  // frames between trail samples

    bool vhsEnabled = false;
    std::set<Uuid> vhsCameras;
    double vhsIntensity = 0.6;
    double vhsChroma = 0.5;
    double vhsNoise = 0.4;
    double vhsScanlines = 0.4;
    double vhsTracking = 0.5;
    bool vhsStamp = true;

    uint64_t seed = 1;  // seed of every draw; a new one redraws all automatic plans

    bool operator==(const EffectSettings&) const = default;

    // The range the effects panel offers for a number field.
    static Range rangeOf(double EffectSettings::*field);
    static constexpr Range shutterStepRange{1, 4};
};

// The raw values double as labels.
const char* rawValue(EffectSettings::ZoomStyle s);
const char* rawValue(EffectSettings::LensStyle s);
const char* rawValue(EffectSettings::LensAnimation a);
std::optional<EffectSettings::ZoomStyle> zoomStyleFromRaw(std::string_view raw);
std::optional<EffectSettings::LensStyle> lensStyleFromRaw(std::string_view raw);
std::optional<EffectSettings::LensAnimation> lensAnimationFromRaw(std::string_view raw);

// JSON forms (nlohmann ADL hooks). Reading never throws: an unknown
// PlanEffect reads as `automatic`, and each field of an object on its own.
void to_json(json::Json& j, PlanEffect e);
void from_json(const json::Json& j, PlanEffect& e);
void to_json(json::Json& j, const PlanLooks& looks);
void from_json(const json::Json& j, PlanLooks& looks);
void to_json(json::Json& j, const EffectSettings& s);
void from_json(const json::Json& j, EffectSettings& s);

}  // namespace qv
