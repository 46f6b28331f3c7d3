#include "effects/EffectSettings.h"

#include <array>
#include <cmath>
#include <utility>

namespace qv {

namespace {

using Json = json::Json;

template <class E, size_t N>
using RawTable = std::array<std::pair<E, const char*>, N>;

constexpr RawTable<PlanEffect, 5> planEffectRaw{{
    {PlanEffect::automatic, "auto"},
    {PlanEffect::none, "none"},
    {PlanEffect::zoomIn, "zoomIn"},
    {PlanEffect::zoomOut, "zoomOut"},
    {PlanEffect::shake, "shake"},
}};
constexpr RawTable<EffectSettings::ZoomStyle, 2> zoomStyleRaw{{
    {EffectSettings::ZoomStyle::slow, "Lent"},
    {EffectSettings::ZoomStyle::punch, "Rapide"},
}};
constexpr RawTable<EffectSettings::LensStyle, 2> lensStyleRaw{{
    {EffectSettings::LensStyle::bokeh, "Bokeh"},
    {EffectSettings::LensStyle::soft, "Doux"},
}};
constexpr RawTable<EffectSettings::LensAnimation, 3> lensAnimationRaw{{
    {EffectSettings::LensAnimation::still, "Fixe"},
    {EffectSettings::LensAnimation::focusIn, "Mise au point"},
    {EffectSettings::LensAnimation::focusOut, "Perte de netteté"},
}};

template <class E, size_t N>
const char* rawOf(const RawTable<E, N>& table, E value) {
    for (const auto& [e, raw] : table)
        if (e == value) return raw;
    return table[0].second;
}

template <class E, size_t N>
std::optional<E> fromRaw(const RawTable<E, N>& table, std::string_view raw) {
    for (const auto& [e, text] : table)
        if (raw == text) return e;
    return std::nullopt;
}

template <class E, size_t N>
E enumField(const Json& j, const char* key, const RawTable<E, N>& table, E fallback) {
    const Json* v = json::field(j, key);
    if (!v || !v->is_string()) return fallback;
    return fromRaw(table, v->get_ref<const std::string&>()).value_or(fallback);
}

// The number fields with the range of their slider: reading holds each
// inside, and the panel draws its sliders from the same rows.
struct NumberField {
    const char* key;
    double EffectSettings::*member;
    Range range;
};

using E = EffectSettings;
constexpr NumberField kNumbers[] = {
    {"zoomInShare", &E::zoomInShare, {0, 1}},
    {"zoomMax", &E::zoomMax, {102, 140}},
    {"zoomPartialAmount", &E::zoomPartialAmount, {0.2, 0.9}},
    {"shakeIntensity", &E::shakeIntensity, {0, 1}},
    {"shakeSpeed", &E::shakeSpeed, {0, 1}},
    {"shakeExtent", &E::shakeExtent, {0, 1}},
    {"lensAmount", &E::lensAmount, {0, 1}},
    {"shutterTrail", &E::shutterTrail, {0.1, 0.95}},
    {"vhsIntensity", &E::vhsIntensity, {0, 1}},
    {"vhsChroma", &E::vhsChroma, {0, 1}},
    {"vhsNoise", &E::vhsNoise, {0, 1}},
    {"vhsScanlines", &E::vhsScanlines, {0, 1}},
    {"vhsTracking", &E::vhsTracking, {0, 1}},
};

std::optional<bool> optionalBool(const Json& j, const char* key) {
    const Json* v = json::field(j, key);
    if (v && v->is_boolean()) return v->get<bool>();
    return std::nullopt;
}

}  // namespace

Range EffectSettings::rangeOf(double EffectSettings::*field) {
    for (const NumberField& f : kNumbers)
        if (f.member == field) return f.range;
    return limits::fraction;
}

const char* rawValue(PlanEffect e) { return rawOf(planEffectRaw, e); }

const char* label(PlanEffect e) {
    switch (e) {
    case PlanEffect::automatic: return "effet automatique";
    case PlanEffect::none: return "aucun effet";
    case PlanEffect::zoomIn: return "zoom avant";
    case PlanEffect::zoomOut: return "zoom arrière";
    case PlanEffect::shake: return "épaule";
    }
    return "effet automatique";
}

std::optional<PlanEffect> planEffectFromRaw(std::string_view raw) { return fromRaw(planEffectRaw, raw); }

const char* rawValue(EffectSettings::ZoomStyle s) { return rawOf(zoomStyleRaw, s); }
const char* rawValue(EffectSettings::LensStyle s) { return rawOf(lensStyleRaw, s); }
const char* rawValue(EffectSettings::LensAnimation a) { return rawOf(lensAnimationRaw, a); }

std::optional<EffectSettings::ZoomStyle> zoomStyleFromRaw(std::string_view raw) {
    return fromRaw(zoomStyleRaw, raw);
}
std::optional<EffectSettings::LensStyle> lensStyleFromRaw(std::string_view raw) {
    return fromRaw(lensStyleRaw, raw);
}
std::optional<EffectSettings::LensAnimation> lensAnimationFromRaw(std::string_view raw) {
    return fromRaw(lensAnimationRaw, raw);
}

void to_json(Json& j, PlanEffect e) { j = rawValue(e); }

void from_json(const Json& j, PlanEffect& e) {
    e = j.is_string() ? planEffectFromRaw(j.get_ref<const std::string&>()).value_or(PlanEffect::automatic)
                      : PlanEffect::automatic;
}

void to_json(Json& j, const PlanLooks& looks) {
    j = Json::object();
    if (looks.lens) j["lens"] = *looks.lens;
    if (looks.shutter) j["shutter"] = *looks.shutter;
    if (looks.vhs) j["vhs"] = *looks.vhs;
}

void from_json(const Json& j, PlanLooks& looks) {
    looks.lens = optionalBool(j, "lens");
    looks.shutter = optionalBool(j, "shutter");
    looks.vhs = optionalBool(j, "vhs");
}

void to_json(Json& j, const EffectSettings& s) {
    j = Json::object();
    j["zoomEnabled"] = s.zoomEnabled;
    j["zoomCameras"] = json::uuidArray(s.zoomCameras);
    j["zoomInShare"] = s.zoomInShare;
    j["zoomMax"] = s.zoomMax;
    j["zoomStyle"] = rawValue(s.zoomStyle);
    j["zoomPartial"] = s.zoomPartial;
    j["zoomPartialAmount"] = s.zoomPartialAmount;
    j["shakeEnabled"] = s.shakeEnabled;
    j["shakeCameras"] = json::uuidArray(s.shakeCameras);
    j["shakeIntensity"] = s.shakeIntensity;
    j["shakeSpeed"] = s.shakeSpeed;
    j["shakeExtent"] = s.shakeExtent;
    j["lensEnabled"] = s.lensEnabled;
    j["lensCameras"] = json::uuidArray(s.lensCameras);
    j["lensAmount"] = s.lensAmount;
    j["lensStyle"] = rawValue(s.lensStyle);
    j["lensAnimation"] = rawValue(s.lensAnimation);
    j["shutterEnabled"] = s.shutterEnabled;
    j["shutterCameras"] = json::uuidArray(s.shutterCameras);
    j["shutterTrail"] = s.shutterTrail;
    j["shutterStep"] = s.shutterStep;
    j["vhsEnabled"] = s.vhsEnabled;
    j["vhsCameras"] = json::uuidArray(s.vhsCameras);
    j["vhsIntensity"] = s.vhsIntensity;
    j["vhsChroma"] = s.vhsChroma;
    j["vhsNoise"] = s.vhsNoise;
    j["vhsScanlines"] = s.vhsScanlines;
    j["vhsTracking"] = s.vhsTracking;
    j["vhsStamp"] = s.vhsStamp;
    j["seed"] = s.seed;
}

void from_json(const Json& j, EffectSettings& s) {
    const EffectSettings d;
    for (const NumberField& f : kNumbers) s.*f.member = json::number(j, f.key, d.*f.member, f.range);
    s.zoomEnabled = json::boolean(j, "zoomEnabled", d.zoomEnabled);
    s.zoomCameras = json::uuidSet(j, "zoomCameras");
    s.zoomStyle = enumField(j, "zoomStyle", zoomStyleRaw, d.zoomStyle);
    s.zoomPartial = json::boolean(j, "zoomPartial", d.zoomPartial);
    s.shakeEnabled = json::boolean(j, "shakeEnabled", d.shakeEnabled);
    s.shakeCameras = json::uuidSet(j, "shakeCameras");
    s.lensEnabled = json::boolean(j, "lensEnabled", d.lensEnabled);
    s.lensCameras = json::uuidSet(j, "lensCameras");
    s.lensStyle = enumField(j, "lensStyle", lensStyleRaw, d.lensStyle);
    s.lensAnimation = enumField(j, "lensAnimation", lensAnimationRaw, d.lensAnimation);
    s.shutterEnabled = json::boolean(j, "shutterEnabled", d.shutterEnabled);
    s.shutterCameras = json::uuidSet(j, "shutterCameras");
    s.shutterStep = static_cast<int>(json::integer(j, "shutterStep", d.shutterStep, EffectSettings::shutterStepRange));
    s.vhsEnabled = json::boolean(j, "vhsEnabled", d.vhsEnabled);
    s.vhsCameras = json::uuidSet(j, "vhsCameras");
    s.vhsStamp = json::boolean(j, "vhsStamp", d.vhsStamp);
    s.seed = json::unsignedInteger(j, "seed", d.seed);
}

}  // namespace qv
