// The colour grade of one camera as plain data, and its JSON form.
//
// Percent fields run 0..100 or -100..100 as the colour panel offers them;
// `saturation`, `creativeSaturation` and `lutIntensity` are percentages whose
// neutral is 100, `exposure` is in stops. Only the colour fields reach
// GradeMath and a `.cube`; sharpen, vignette, texture and grain are image
// filters applied by the renderer. A grade is a value: comparable field by
// field and hashable, so that it can key a map of baked cubes.
//
// Reading JSON is tolerant: each key that is missing or of the wrong type
// takes its neutral value, so older project and preset files load as they
// are. Only a value that is not an object at all is refused.
#pragma once

#include <compare>
#include <cstddef>
#include <optional>
#include <string>

#include "base/Json.h"

namespace qv {

struct ColorWheel {
    double hue = 0;     // degrees, taken modulo 360; files give at most two turns
    double amount = 0;  // 0..1, distance from the wheel's centre
    double luma = 0;    // -100..100, brightness of the zone

    bool operator==(const ColorWheel&) const = default;
    auto operator<=>(const ColorWheel&) const = default;

    static constexpr Range hueRange{-360, 720};

    // Keys "hue", "amount", "luma", in that order.
    nlohmann::ordered_json toJson() const;
    static std::optional<ColorWheel> fromJson(const json::Json& j);
};

struct ColorGrade {
    double temperature = 0;
    double tint = 0;
    double exposure = 0;
    double contrast = 0;
    double highlights = 0;
    double shadows = 0;
    double whites = 0;
    double blacks = 0;
    double saturation = 100;
    std::optional<std::string> lut{};  // file name of a `.cube` in the look library
    double lutIntensity = 100;
    double fadedFilm = 0;
    double sharpen = 0;
    double vibrance = 0;
    double creativeSaturation = 100;
    ColorWheel shadowTint{};
    ColorWheel highlightTint{};
    ColorWheel wheelShadows{};
    ColorWheel wheelMidtones{};
    ColorWheel wheelHighlights{};
    double vignette = 0;
    double vignetteMidpoint = 50;
    double vignetteFeather = 50;
    double texture = 0;
    double grain = 0;
    double grainSize = 25;
    double grainRoughness = 50;

    // Not all zeros: grain size and roughness, vignette shape and the
    // saturations have their own neutral.
    static const ColorGrade neutral;

    bool operator==(const ColorGrade&) const = default;
    auto operator<=>(const ColorGrade&) const = default;

    // Every key in field order; "lut" only when present.
    nlohmann::ordered_json toJson() const;
    // Nothing only when `j` is not an object. Each number is held inside the
    // range of its slider (rangeOf); a "lut" that is not a plain file name
    // is dropped.
    static std::optional<ColorGrade> fromJson(const json::Json& j);

    // The range the colour panel offers for a number field.
    static Range rangeOf(double ColorGrade::*field);
};

}  // namespace qv

template <>
struct std::hash<qv::ColorGrade> {
    std::size_t operator()(const qv::ColorGrade& g) const noexcept;
};
