#include "looks/LookRenderer.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <new>
#include <optional>

#include "base/Text.h"
#include "looks/GradeMath.h"
#include "platform/TextRaster.h"

namespace qv {

using namespace ImageOps;

namespace {

double smoothstep01(double p) {
    p = std::clamp(p, 0.0, 1.0);
    return p * p * (3 - 2 * p);
}

// The plan on screen: the last one started by `time` (half a millisecond of
// slack), and only that one. It counts when it is this camera's, carries an
// image effect and has not been over for 50 ms.
// Found by halving: an edit may hold a million plans, and every frame asks.
const LookRenderer::Plan* findPlan(const LookRenderer::Snapshot& snapshot, int camera, double time) {
    const auto& plans = snapshot.plans;
    auto it = std::partition_point(plans.begin(), plans.end(),
                                   [time](const LookRenderer::Plan& p) { return p.start <= time + 0.0005; });
    if (it == plans.begin()) return nullptr;
    --it;
    const bool effect = it->effect.lens || it->effect.shutter || it->effect.vhs;
    return it->camera == camera && effect && time < it->end + 0.05 ? &*it : nullptr;
}

// The grade's image filters, after its cube: texture, sharpen, vignette,
// grain. Steps that only need their own pixels run together per band; a
// blur in between first finishes the steps before it.
void applyGrade(Image& image, const ColorGrade& grade, const std::vector<float>* cube, double time, double k) {
    const int w = image.width(), h = image.height();
    std::vector<RowStep> steps;
    auto flush = [&] {
        runRows(image, steps);
        steps.clear();
    };
    if (cube) steps.push_back(colorCube(*cube, LookRenderer::kCubeSize));

    std::optional<Blurred> texture;
    if (grade.texture > 0) {
        flush();
        texture.emplace(gaussianBlur(image, 10 * k));
        const float intensity = static_cast<float>(grade.texture / 100 * 0.7);
        steps.push_back(mixWithBlur(*texture, 1 + intensity, -intensity));
    } else if (grade.texture < 0) {
        flush();
        texture.emplace(gaussianBlur(image, 4 * k));
        const float t = static_cast<float>(1 + 0.6 * grade.texture / 100);
        steps.push_back(mixWithBlur(*texture, t, 1 - t));
    }

    Plane luma;
    std::optional<Blurred> softened;
    if (grade.sharpen > 0) {
        luma = Plane(w, h);
        steps.push_back(storeLuma(luma));
        flush();
        lumaDetail(luma, 1.6 * k);
        steps.push_back(addLumaDetail(luma, grade.sharpen / 100 * 1.2));
    } else if (grade.sharpen < 0) {
        flush();
        softened.emplace(gaussianBlur(image, grade.sharpen / -100 * 2.5 * k));
        steps.push_back(mixWithBlur(*softened, 0, 1));
    }

    if (std::abs(grade.vignette) > 0.01) {
        const double halfDiagonal = std::hypot(w, h) * 0.5;
        steps.push_back(vignette(w, h, halfDiagonal * (grade.vignetteMidpoint / 100 * 0.7 + 0.45), grade.vignette / -3,
                                 grade.vignetteFeather / 100 * 0.85 + 0.15));
    }

    Plane grain;
    if (grade.grain > 0) {
        const double amount = grade.grain / 100, size = grade.grainSize / 100, roughness = grade.grainRoughness / 100;
        const double g = std::max(0.5, (size * 3 + 0.7) * k);
        const double sigma = roughness < 0.95 ? (1 - roughness) * g * 0.6 : 0;
        const int margin = sigma > 0 ? static_cast<int>(std::ceil(3 * sigma)) : 0;
        grain = noisePlane(Noise(time, g, g, w, h, margin));
        if (sigma > 0) gaussianBlur(grain, sigma);
        steps.push_back(softLightNoise(grain, margin, amount * 0.55));
    }
    flush();
}

void lensBlur(Image& image, const EffectSettings& settings, double u, double duration, double k) {
    double amount = settings.lensAmount;
    const double ramp = std::min(duration * 0.5, 1.5);
    switch (settings.lensAnimation) {
        case EffectSettings::LensAnimation::still: break;
        case EffectSettings::LensAnimation::focusIn:
            amount *= 1 - smoothstep01(u / std::max(ramp, 0.01));
            break;
        case EffectSettings::LensAnimation::focusOut:
            amount *= smoothstep01((u - (duration - ramp)) / std::max(ramp, 0.01));
            break;
    }
    if (amount <= 0.01) return;
    const double radius = amount * 26 * k;
    const Blurred blurred = settings.lensStyle == EffectSettings::LensStyle::bokeh
                                ? bokehBlur(image, radius, 0.15, 0.12, 1.2 * k)
                                : gaussianBlur(image, radius * 0.55);
    runRows(image, {mixWithBlur(blurred, 0, 1)});
}

// Rows whose centres lie in [yLow, yHigh), y measured up from the bottom.
std::pair<int, int> rowsBetween(int height, double yLow, double yHigh) {
    const int begin = static_cast<int>(std::floor(height - 0.5 - yHigh)) + 1;
    const int end = static_cast<int>(std::floor(height - 0.5 - yLow)) + 1;
    return {std::clamp(begin, 0, height), std::clamp(end, 0, height)};
}

}  // namespace

LookRenderer::LookRenderer() : snapshot_(std::make_shared<const Snapshot>()) {}

ColorGrade LookRenderer::reduced(const ColorGrade& grade) {
    ColorGrade r = grade;
    r.sharpen = 0;
    r.vignette = 0;
    r.vignetteMidpoint = 50;
    r.vignetteFeather = 50;
    r.texture = 0;
    r.grain = 0;
    r.grainSize = 25;
    r.grainRoughness = 50;
    return r;
}

const std::string& LookRenderer::stampDate() {
    static const std::string date = [] {
        static constexpr const char* kMonths[] = {"JAN", "FEB", "MAR", "APR", "MAY", "JUN",
                                                  "JUL", "AUG", "SEP", "OCT", "NOV", "DEC"};
        std::time_t now = std::time(nullptr);
        std::tm tm{};
        localtime_r(&now, &tm);
        return cformat("%s. %02d %04d", kMonths[std::clamp(tm.tm_mon, 0, 11)], tm.tm_mday, tm.tm_year + 1900);
    }();
    return date;
}

bool LookRenderer::changesCamera(int camera) {
    std::lock_guard guard(lock_);
    if (!snapshot_->enabled) return false;
    auto grade = snapshot_->grades.find(camera);
    if (grade != snapshot_->grades.end() && !(grade->second == ColorGrade::neutral)) return true;
    return std::any_of(snapshot_->plans.begin(), snapshot_->plans.end(), [camera](const Plan& plan) {
        return plan.camera == camera && (plan.effect.lens || plan.effect.shutter || plan.effect.vhs);
    });
}

void LookRenderer::update(Snapshot snapshot) {
    const ColorGrade neutral = reduced(ColorGrade::neutral);
    CubeMap fresh;
    for (const auto& [camera, grade] : snapshot.grades) {
        ColorGrade key = reduced(grade);
        if (key == neutral || fresh.contains(key)) continue;
        std::shared_ptr<const std::vector<float>> data;
        {
            std::lock_guard guard(lock_);
            if (auto it = cubes_.find(key); it != cubes_.end()) data = it->second;
        }
        if (!data) data = std::make_shared<const std::vector<float>>(GradeMath::cubeData(key, kCubeSize));
        fresh.emplace(std::move(key), std::move(data));
    }
    auto installed = std::make_shared<const Snapshot>(std::move(snapshot));
    {
        std::lock_guard guard(lock_);
        snapshot_.swap(installed);
        cubes_.swap(fresh);
    }
    // The old snapshot and cubes are released here, outside the lock.
}

Image LookRenderer::process(Image image, int camera, double time) {
    std::shared_ptr<const Snapshot> snapshot;
    std::shared_ptr<const std::vector<float>> cube;
    const ColorGrade* grade = nullptr;
    {
        std::lock_guard guard(lock_);
        snapshot = snapshot_;
        if (auto it = snapshot->grades.find(camera); it != snapshot->grades.end()) {
            grade = &it->second;
            if (auto c = cubes_.find(reduced(*grade)); c != cubes_.end()) cube = c->second;
        }
    }
    if (!snapshot->enabled) return image;
    if (image.width() <= 1 || image.height() <= 1) return image;
    const double k = image.height() / 1080.0;

    if (grade && *grade != ColorGrade::neutral) applyGrade(image, *grade, cube.get(), time, k);

    const Plan* plan = findPlan(*snapshot, camera, time);
    if (!plan) {
        std::lock_guard guard(lock_);
        trails_.erase(camera);
        return image;
    }
    const EffectSettings& settings = snapshot->effects;
    if (plan->effect.lens) lensBlur(image, settings, time - plan->start, plan->end - plan->start, k);
    {
        std::lock_guard guard(lock_);
        if (plan->effect.shutter)
            shutter(image, camera, time, settings);
        else
            trails_.erase(camera);
    }
    if (plan->effect.vhs) vhs(image, settings, time, k);
    return image;
}

void LookRenderer::shutter(Image& image, int camera, double time, const EffectSettings& settings) {
    auto it = trails_.find(camera);
    if (it != trails_.end()) {
        Trail& trail = it->second;
        const bool continues = trail.accumulator.width() == image.width() &&
                               trail.accumulator.height() == image.height() && trail.lastTime - 0.001 <= time &&
                               time - trail.lastTime <= 0.25;
        if (continues) {
            trail.frame += 1;
            const int step = std::max(settings.shutterStep, 1);
            if (trail.frame % step == 0) {
                const double held = std::min(settings.shutterTrail, 0.95);
                trail.accumulator.dissolveTo(image, settings.shutterTrail <= 0 ? 1 : 1 - held);
            } else {
                image = trail.accumulator.image();
            }
            trail.lastTime = time;
            return;
        }
    }
    // A new trail: no trail yet, another size, a seek or playing backwards.
    // The frame itself is returned.
    try {
        Trail fresh{ImageAccumulator(image.width(), image.height()), time, 0};
        fresh.accumulator.setImage(image);
        trails_.insert_or_assign(camera, std::move(fresh));
    } catch (const std::bad_alloc&) {
        trails_.erase(camera);
    }
}

void LookRenderer::vhs(Image& image, const EffectSettings& settings, double time, double k) {
    const double intensity = settings.vhsIntensity;
    if (intensity <= 0.01) return;
    const int h = image.height();
    std::vector<RowStep> steps;

    // A horizontal smear, duller colours, then red and blue pulled apart.
    steps.push_back(motionBlur(3.5 * k * intensity));
    steps.push_back(colorControls(1 - 0.12 * intensity, 0.025 * intensity, 1 - 0.12 * intensity));
    const double chroma = 6 * k * intensity * settings.vhsChroma;
    if (chroma > 0.3) steps.push_back(shiftChannels(chroma, -chroma));

    if (settings.vhsTracking > 0.01) {
        const double tau = intensity * settings.vhsTracking;
        // A band that wanders down the picture, and the head-switching strip.
        const double bandHeight = h * 0.07;
        const double f = time * 0.11 - std::floor(time * 0.11);
        const double bottom = h - f * (h + bandHeight);
        const double low = std::max(bottom, 0.0), high = std::min(bottom + bandHeight, static_cast<double>(h));
        if (high - low > 1) {
            const auto [begin, end] = rowsBetween(h, low, high);
            const double shift = (std::sin(time * 23) * 14 + std::sin(time * 7.3) * 6) * k * tau;
            steps.push_back(shiftRows(begin, end, shift, tau * 0.07));
        }
        const auto [begin, end] = rowsBetween(h, 0, h * 0.035);
        steps.push_back(shiftRows(begin, end, (std::sin(time * 41) * 8 + 18) * k * tau, 0));
    }

    std::vector<Rgba> stripes;
    if (settings.vhsScanlines > 0.01) {
        const float dark = static_cast<float>(1 - 0.28 * intensity * settings.vhsScanlines);
        stripes = horizontalStripes(h, {1, 1, 1, 1}, {dark, dark, dark, 1}, std::max(1.0, 1.5 * k), 0.4);
        steps.push_back(multiplyRows(stripes));
    }

    std::optional<Noise> noise;
    if (settings.vhsNoise > 0.01) {
        noise.emplace(time, std::max(1.0, 2.5 * k), std::max(1.0, 1.2 * k), image.width(), h);
        steps.push_back(softLightNoise(*noise, intensity * settings.vhsNoise * 0.35));
    }
    runRows(image, steps);

    if (settings.vhsStamp) {
        const int left = static_cast<int>(std::lround(60 * k));
        if (auto play = text("PLAY \u25B6", 46 * k))
            compositeOver(image, *play, left, static_cast<int>(std::lround(60 * k)));
        if (auto date = text(stampDate(), 46 * k * 0.9))
            compositeOver(image, *date, left, static_cast<int>(std::lround(h - 70 * k)) - date->height());
    }
}

std::shared_ptr<const Image> LookRenderer::text(const std::string& string, double size) {
    const std::string key = string + "|" + std::to_string(static_cast<long long>(size));
    {
        std::lock_guard guard(lock_);
        if (auto it = textCache_.find(key); it != textCache_.end()) return it->second;
    }
    auto raster = TextRaster::open();
    if (!raster) return nullptr;
    TextCoverage coverage = raster->render(string, size);
    if (coverage.empty()) return nullptr;
    auto image = std::make_shared<const Image>(textImage(coverage, size * 0.06));
    std::lock_guard guard(lock_);
    return textCache_.emplace(key, std::move(image)).first->second;
}

}  // namespace qv
