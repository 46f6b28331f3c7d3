#include "looks/ColorGrade.h"

#include <functional>

namespace qv {

const ColorGrade ColorGrade::neutral{};

namespace {

// One table drives writing, reading (each value held inside the range of
// its slider), hashing and the colour panel's sliders, so a new field cannot
// be forgotten in one of them. Wheels and the LUT name are handled apart.
struct NumberField {
    const char* key;
    double ColorGrade::*member;
    Range range;
};

constexpr Range kSigned = limits::signedPercent;
constexpr Range kDouble{0, 200};  // saturations and the look's intensity, neutral at 100

constexpr NumberField kBeforeLut[] = {
    {"temperature", &ColorGrade::temperature, kSigned}, {"tint", &ColorGrade::tint, kSigned},
    {"exposure", &ColorGrade::exposure, {-4, 4}},       {"contrast", &ColorGrade::contrast, kSigned},
    {"highlights", &ColorGrade::highlights, kSigned},   {"shadows", &ColorGrade::shadows, kSigned},
    {"whites", &ColorGrade::whites, kSigned},           {"blacks", &ColorGrade::blacks, kSigned},
    {"saturation", &ColorGrade::saturation, kDouble},
};

constexpr NumberField kAfterLut[] = {
    {"lutIntensity", &ColorGrade::lutIntensity, kDouble}, {"fadedFilm", &ColorGrade::fadedFilm, limits::percent},
    {"sharpen", &ColorGrade::sharpen, kSigned},           {"vibrance", &ColorGrade::vibrance, kSigned},
    {"creativeSaturation", &ColorGrade::creativeSaturation, kDouble},
};

struct WheelField {
    const char* key;
    ColorWheel ColorGrade::*member;
};

constexpr WheelField kWheels[] = {
    {"shadowTint", &ColorGrade::shadowTint},       {"highlightTint", &ColorGrade::highlightTint},
    {"wheelShadows", &ColorGrade::wheelShadows},   {"wheelMidtones", &ColorGrade::wheelMidtones},
    {"wheelHighlights", &ColorGrade::wheelHighlights},
};

constexpr NumberField kAfterWheels[] = {
    {"vignette", &ColorGrade::vignette, {-3, 3}},
    {"vignetteMidpoint", &ColorGrade::vignetteMidpoint, limits::percent},
    {"vignetteFeather", &ColorGrade::vignetteFeather, limits::percent},
    {"texture", &ColorGrade::texture, kSigned},
    {"grain", &ColorGrade::grain, limits::percent},
    {"grainSize", &ColorGrade::grainSize, limits::percent},
    {"grainRoughness", &ColorGrade::grainRoughness, limits::percent},
};

// A LUT is named by its file name in the library, never by a path.
bool isPlainName(const std::string& name) {
    if (name.empty() || name == "." || name == "..") return false;
    for (char c : name)
        if (c == '/' || static_cast<unsigned char>(c) < 0x20) return false;
    return true;
}

void mix(std::size_t& seed, double v) {
    seed ^= std::hash<double>{}(v) + 0x9E3779B97F4A7C15ull + (seed << 6) + (seed >> 2);
}

}  // namespace

nlohmann::ordered_json ColorWheel::toJson() const {
    nlohmann::ordered_json j = nlohmann::ordered_json::object();
    j["hue"] = hue;
    j["amount"] = amount;
    j["luma"] = luma;
    return j;
}

std::optional<ColorWheel> ColorWheel::fromJson(const json::Json& j) {
    if (!j.is_object()) return std::nullopt;
    ColorWheel w;
    w.hue = json::number(j, "hue", w.hue, hueRange);
    w.amount = json::number(j, "amount", w.amount, limits::fraction);
    w.luma = json::number(j, "luma", w.luma, limits::signedPercent);
    return w;
}

nlohmann::ordered_json ColorGrade::toJson() const {
    nlohmann::ordered_json j = nlohmann::ordered_json::object();
    for (const auto& f : kBeforeLut) j[f.key] = this->*f.member;
    if (lut) j["lut"] = *lut;
    for (const auto& f : kAfterLut) j[f.key] = this->*f.member;
    for (const auto& w : kWheels) j[w.key] = (this->*w.member).toJson();
    for (const auto& f : kAfterWheels) j[f.key] = this->*f.member;
    return j;
}

std::optional<ColorGrade> ColorGrade::fromJson(const json::Json& j) {
    if (!j.is_object()) return std::nullopt;
    ColorGrade g;
    auto readNumbers = [&](const auto& fields) {
        for (const auto& f : fields) g.*f.member = json::number(j, f.key, g.*f.member, f.range);
    };
    readNumbers(kBeforeLut);
    readNumbers(kAfterLut);
    readNumbers(kAfterWheels);
    if (const json::Json* v = json::field(j, "lut"); v && v->is_string() && isPlainName(v->get<std::string>()))
        g.lut = v->get<std::string>();
    for (const auto& w : kWheels) {
        if (const json::Json* v = json::field(j, w.key))
            g.*w.member = ColorWheel::fromJson(*v).value_or(ColorWheel{});
    }
    return g;
}

Range ColorGrade::rangeOf(double ColorGrade::*field) {
    for (const auto& f : kBeforeLut)
        if (f.member == field) return f.range;
    for (const auto& f : kAfterLut)
        if (f.member == field) return f.range;
    for (const auto& f : kAfterWheels)
        if (f.member == field) return f.range;
    return limits::signedPercent;
}

}  // namespace qv

std::size_t std::hash<qv::ColorGrade>::operator()(const qv::ColorGrade& g) const noexcept {
    using namespace qv;
    std::size_t seed = 0;
    for (const auto& f : kBeforeLut) mix(seed, g.*f.member);
    for (const auto& f : kAfterLut) mix(seed, g.*f.member);
    for (const auto& f : kAfterWheels) mix(seed, g.*f.member);
    for (const auto& w : kWheels) {
        const ColorWheel& c = g.*w.member;
        mix(seed, c.hue);
        mix(seed, c.amount);
        mix(seed, c.luma);
    }
    seed ^= g.lut ? std::hash<std::string>{}(*g.lut) + 1 : 0;
    return seed;
}
