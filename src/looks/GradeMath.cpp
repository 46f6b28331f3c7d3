#include "looks/GradeMath.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>

#include "looks/LookLibrary.h"

namespace qv::GradeMath {

namespace {

constexpr double kLumaR = 0.2126, kLumaG = 0.7152, kLumaB = 0.0722;

double luma(double r, double g, double b) { return kLumaR * r + kLumaG * g + kLumaB * b; }

void saturate(double& r, double& g, double& b, double f) {
    double y = luma(r, g, b);
    r = y + (r - y) * f;
    g = y + (g - y) * f;
    b = y + (b - y) * f;
}

double toLinear(double c) { return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); }

double toGamma(double c) {
    if (c < 0) c = 0;
    return c <= 0.0031308 ? c * 12.92 : 1.055 * std::pow(c, 0.4166666666666667) - 0.055;
}

// The offset one wheel adds at full weight, per channel.
Rgb wheelOffset(const ColorWheel& w, double strength) {
    double lumaOffset = w.luma / 100 * 0.2;
    Rgb o{lumaOffset, lumaOffset, lumaOffset};
    if (w.amount <= 0.0005) return o;
    double h = std::fmod(std::fmod(w.hue, 360.0) + 360.0, 360.0) / 60.0;
    double x = 1 - std::fabs(std::fmod(h, 2.0) - 1);
    Rgb hue;
    switch (std::clamp(static_cast<int>(h), 0, 5)) {
        case 0: hue = {1, x, 0}; break;
        case 1: hue = {x, 1, 0}; break;
        case 2: hue = {0, 1, x}; break;
        case 3: hue = {0, x, 1}; break;
        case 4: hue = {x, 0, 1}; break;
        default: hue = {1, 0, x}; break;
    }
    double mean = (hue.r + hue.g + hue.b) / 3;
    double k = w.amount * strength;
    o.r += k * (hue.r - mean);
    o.g += k * (hue.g - mean);
    o.b += k * (hue.b - mean);
    return o;
}

void addScaled(Rgb& acc, const Rgb& v) {
    acc.r += v.r;
    acc.g += v.g;
    acc.b += v.b;
}

bool isZero(const Rgb& v) { return v.r == 0 && v.g == 0 && v.b == 0; }

// A grade turned into the constants of its pass. The pass splits in two:
// `channel` (linear light, white balance, exposure, tone curve) treats each
// channel on its own, so a bake computes it once per grid coordinate;
// `finish` mixes the channels.
class Prepared {
public:
    Prepared(const ColorGrade& grade, const CubeLUT* lut) : lut_(lut) {
        linearPass_ = grade.temperature != 0 || grade.tint != 0 || grade.exposure != 0;
        if (linearPass_) {
            double t = grade.temperature / 100 * 0.3;
            double u = grade.tint / 100 * 0.22;
            double raw[3] = {1 + t, 1 - u, 1 - t};
            double l = luma(raw[0], raw[1], raw[2]);
            double stops = std::exp2(grade.exposure);
            for (int c = 0; c < 3; ++c) gain_[c] = raw[c] / l * stops;
        }
        contrast_ = grade.contrast / 100;
        highlights_ = grade.highlights / 100;
        shadows_ = grade.shadows / 100;
        whites_ = grade.whites / 100;
        blacks_ = grade.blacks / 100;

        saturation_ = grade.saturation / 100;
        doSaturation_ = grade.saturation != 100;
        lutMix_ = grade.lutIntensity / 100;
        doLut_ = lut_ && lut_->size >= CubeLUT::kMinSize && grade.lutIntensity > 0;
        fade_ = grade.fadedFilm / 100;
        doFade_ = grade.fadedFilm > 0;
        vibrance_ = grade.vibrance / 100;
        doVibrance_ = grade.vibrance != 0;
        creative_ = grade.creativeSaturation / 100;
        doCreative_ = grade.creativeSaturation != 100;

        addScaled(dark_, wheelOffset(grade.shadowTint, 0.12));
        addScaled(dark_, wheelOffset(grade.wheelShadows, 0.25));
        addScaled(bright_, wheelOffset(grade.highlightTint, 0.12));
        addScaled(bright_, wheelOffset(grade.wheelHighlights, 0.25));
        addScaled(middle_, wheelOffset(grade.wheelMidtones, 0.3));
        doWheels_ = !isZero(dark_) || !isZero(bright_) || !isZero(middle_);
    }

    // Steps up to the tone curve, for channel 0 (red), 1 (green) or 2 (blue).
    double channel(double v, int c) const {
        if (linearPass_) v = toGamma(toLinear(v) * gain_[c]);
        v = std::clamp(v, 0.0, 1.5);
        constexpr double pi = std::numbers::pi;
        if (contrast_ != 0 && v <= 1) v -= 0.12 * contrast_ * std::sin(2 * pi * v);
        if (highlights_ != 0) v += 0.2 * highlights_ * std::sin(pi * std::clamp((v - 0.35) / 0.65, 0.0, 1.0));
        if (shadows_ != 0) v += 0.2 * shadows_ * std::sin(pi * std::clamp(v / 0.65, 0.0, 1.0));
        if (whites_ != 0) v *= 1 + 0.22 * whites_ * v * v;
        if (blacks_ != 0) {
            double room = std::max(1 - v, 0.0);
            v += 0.12 * blacks_ * room * room * room;
        }
        return v;
    }

    // The steps that mix channels, after `channel` has run on each.
    Rgb finish(double r, double g, double b) const {
        if (doSaturation_) saturate(r, g, b, saturation_);
        if (doLut_) {
            Rgb s = lut_->sample(r, g, b);
            r += lutMix_ * (s.r - r);
            g += lutMix_ * (s.g - g);
            b += lutMix_ * (s.b - b);
        }
        if (doFade_) {
            double lift = 0.1 * fade_, keep = 1 - 0.18 * fade_;
            r = lift + r * keep;
            g = lift + g * keep;
            b = lift + b * keep;
        }
        if (doVibrance_) {
            double hi = std::max({r, g, b}), lo = std::min({r, g, b});
            double s = hi <= 0 ? 0 : std::min((hi - lo) / hi, 1.0);
            saturate(r, g, b, vibrance_ * (1 - s) + 1);
        }
        if (doCreative_) saturate(r, g, b, creative_);
        if (doWheels_) {
            double y = std::clamp(luma(r, g, b), 0.0, 1.0);
            double d = (1 - y) * (1 - y), br = y * y, mid = std::max(1 - d - br, 0.0);
            r += d * dark_.r + br * bright_.r + mid * middle_.r;
            g += d * dark_.g + br * bright_.g + mid * middle_.g;
            b += d * dark_.b + br * bright_.b + mid * middle_.b;
        }
        return {std::clamp(r, 0.0, 1.0), std::clamp(g, 0.0, 1.0), std::clamp(b, 0.0, 1.0)};
    }

private:
    const CubeLUT* lut_;
    bool linearPass_ = false;
    double gain_[3] = {1, 1, 1};
    double contrast_, highlights_, shadows_, whites_, blacks_;
    double saturation_, lutMix_, fade_, vibrance_, creative_;
    bool doSaturation_, doLut_, doFade_, doVibrance_, doCreative_, doWheels_;
    // Wheel and tint offsets summed per zone: dark, bright, middle tones.
    Rgb dark_, bright_, middle_;
};

// Walks the cube blue-outer, red-inner and hands each graded colour to `emit`.
template <class Emit>
void bake(const ColorGrade& grade, int size, Emit&& emit) {
    size = std::clamp(size, CubeLUT::kMinSize, CubeLUT::kMaxSize);
    std::shared_ptr<const CubeLUT> lut;
    if (grade.lut) lut = LookLibrary::lut(*grade.lut);
    const Prepared prepared(grade, lut.get());

    std::vector<double> axis[3];
    for (int c = 0; c < 3; ++c) {
        axis[c].resize(static_cast<size_t>(size));
        for (int i = 0; i < size; ++i) axis[c][i] = prepared.channel(static_cast<double>(i) / (size - 1), c);
    }
    for (int b = 0; b < size; ++b)
        for (int g = 0; g < size; ++g)
            for (int r = 0; r < size; ++r) emit(prepared.finish(axis[0][r], axis[1][g], axis[2][b]));
}

}  // namespace

Rgb apply(double r, double g, double b, const ColorGrade& grade, const CubeLUT* lut) {
    const Prepared prepared(grade, lut);
    return prepared.finish(prepared.channel(r, 0), prepared.channel(g, 1), prepared.channel(b, 2));
}

std::vector<float> cubeData(const ColorGrade& grade, int size) {
    std::vector<float> data;
    int n = std::clamp(size, CubeLUT::kMinSize, CubeLUT::kMaxSize);
    data.reserve(static_cast<size_t>(n) * n * n * 4);
    bake(grade, n, [&](const Rgb& c) {
        data.push_back(static_cast<float>(c.r));
        data.push_back(static_cast<float>(c.g));
        data.push_back(static_cast<float>(c.b));
        data.push_back(1.0f);
    });
    return data;
}

CubeLUT cubeLUT(const ColorGrade& grade, int size) {
    CubeLUT out;
    out.size = std::clamp(size, CubeLUT::kMinSize, CubeLUT::kMaxSize);
    out.values.reserve(static_cast<size_t>(out.size) * out.size * out.size * 3);
    bake(grade, out.size, [&](const Rgb& c) {
        out.values.push_back(static_cast<float>(c.r));
        out.values.push_back(static_cast<float>(c.g));
        out.values.push_back(static_cast<float>(c.b));
    });
    return out;
}

}  // namespace qv::GradeMath
