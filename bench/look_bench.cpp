// The frame filter on 1920 × 1080 frames: milliseconds per frame for each
// family of looks, the frame copy into `process` left out of the timing.
// Frames advance by 1/30 s, so the shutter trail and the noise change as in
// playback. Usage: look_bench [frames per case, default 30].
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "base/Text.h"
#include "looks/LookRenderer.h"

using namespace qv;

namespace {

constexpr int kWidth = 1920, kHeight = 1080;

// Gradients, hard edges and some fine detail, so that no filter meets an
// easy flat picture.
Image benchFrame() {
    Image img = Image::uninitialized(kWidth, kHeight);
    for (int y = 0; y < kHeight; ++y) {
        float* p = img.row(y);
        for (int x = 0; x < kWidth; ++x, p += 4) {
            const float u = float(x) / kWidth, v = float(y) / kHeight;
            const bool checker = ((x / 60) + (y / 60)) % 2 == 0;
            const float fine = ((x ^ y) & 3) * 0.03f;
            p[0] = checker ? u : 0.2f + fine;
            p[1] = checker ? v : 0.5f * u + fine;
            p[2] = checker ? 1 - u : 0.8f * v;
            p[3] = 1;
        }
    }
    return img;
}

const ColorGrade kColour{.temperature = 25, .tint = -10, .exposure = 0.3, .contrast = 30, .highlights = -20,
                         .shadows = 15, .saturation = 120, .fadedFilm = 10, .vibrance = 15,
                         .wheelMidtones = {30, 0.4, 5}};

ColorGrade withFilters(ColorGrade g, bool texture) {
    g.grain = 40;
    g.vignette = -1.5;
    g.sharpen = 40;
    if (texture) g.texture = 30;
    return g;
}

LookRenderer::Snapshot snapshot(std::optional<ColorGrade> grade, bool lens, bool shutter, bool vhs) {
    LookRenderer::Snapshot s;
    s.enabled = true;
    if (grade) s.grades[0] = *grade;
    if (lens || shutter || vhs) {
        ResolvedEffect e;
        e.lens = lens;
        e.shutter = shutter;
        e.vhs = vhs;
        s.plans.push_back({0, 1e6, 0, e});
    }
    s.effects.lensAmount = 1;
    s.effects.lensStyle = EffectSettings::LensStyle::bokeh;
    s.effects.shutterStep = 1;
    s.effects.vhsStamp = true;
    return s;
}

double msPerFrame(const LookRenderer::Snapshot& snap, const Image& frame, int frames) {
    LookRenderer renderer;
    renderer.update(snap);
    double total = 0;
    for (int i = -3; i < frames; ++i) {
        Image in = frame;
        const auto t0 = std::chrono::steady_clock::now();
        Image out = renderer.process(std::move(in), 0, 10 + i / 30.0);
        const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
        if (i >= 0) total += ms;
    }
    return total / frames;
}

}  // namespace

int main(int argc, char** argv) {
    const int frames = argc > 1 ? std::max(1, std::atoi(argv[1])) : 30;
    const Image frame = benchFrame();
    struct Case {
        const char* name;
        LookRenderer::Snapshot snap;
        double target;  // ms, 0 when none
    };
    const Case cases[] = {
        {"étalonnage seul", snapshot(kColour, false, false, false), 10},
        {"étalonnage + grain + vignette + netteté", snapshot(withFilters(kColour, false), false, false, false), 0},
        {"flou d'objectif (bokeh, 1)", snapshot(std::nullopt, true, false, false), 0},
        {"obturateur", snapshot(std::nullopt, false, true, false), 0},
        {"VHS complet", snapshot(std::nullopt, false, false, true), 0},
        {"tout à la fois", snapshot(withFilters(kColour, true), true, true, true), 80},
    };
    // Figures are wall time on a machine that may be shared: say how busy it was.
    double load[1] = {0};
    getloadavg(load, 1);
    std::printf("image %d x %d, %d images par cas, charge du système %.2f\n", kWidth, kHeight, frames, load[0]);
    for (const Case& c : cases) {
        const double ms = msPerFrame(c.snap, frame, frames);
        const std::string name = padRight(c.name, 42);
        if (c.target > 0)
            std::printf("%s %7.1f ms  (objectif < %.0f ms)\n", name.c_str(), ms, c.target);
        else
            std::printf("%s %7.1f ms\n", name.c_str(), ms);
    }
    return 0;
}
