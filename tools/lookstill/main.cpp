// quorvel-lookstill: one still through the frame filter, written as PNG, to
// look at what each look does. The picture is a generated test card, or a
// frame of a video file. For the shutter trail a few frames before the
// chosen time are filtered first, 1/30 s apart, so that the trail has
// something to keep.
//
//   quorvel-lookstill --effect vhs --out vhs.png [--input clip.mp4 --at 12.5]
//                     [--width 1920 --height 1080]
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "TestCard.h"
#include "base/Text.h"
#include "looks/LookRenderer.h"
#include "platform/VideoFrame.h"

using namespace qv;

namespace {

constexpr const char* kEffects = "aucun, etalonnage, grain, vignette, texture, nettete, objectif, objectif-doux, "
                                 "obturateur, vhs, tout";

void usage() {
    std::fprintf(stderr,
                 "usage : quorvel-lookstill --effect <effet> --out <image.png> [--input <vidéo> --at <secondes>]\n"
                 "                          [--width <largeur> --height <hauteur>]\n"
                 "effets : %s\n",
                 kEffects);
}

const ColorGrade kWarm{.temperature = 25, .tint = -5, .exposure = 0.15, .contrast = 25, .highlights = -15,
                       .shadows = 10, .saturation = 115, .fadedFilm = 8, .vibrance = 15,
                       .shadowTint = {210, 0.3, 0}, .highlightTint = {40, 0.3, 0}};

// The snapshot that shows one effect on camera 0; nothing when the name is unknown.
std::optional<LookRenderer::Snapshot> snapshotFor(const std::string& name) {
    LookRenderer::Snapshot s;
    s.enabled = true;
    ColorGrade grade;
    ResolvedEffect effect;
    s.effects.lensAmount = 0.7;
    s.effects.shutterTrail = 0.8;
    s.effects.shutterStep = 1;
    s.effects.vhsIntensity = 0.8;
    if (name == "aucun") {
    } else if (name == "etalonnage") {
        grade = kWarm;
    } else if (name == "grain") {
        grade.grain = 70;
        grade.grainSize = 40;
    } else if (name == "vignette") {
        grade.vignette = -2.5;
    } else if (name == "texture") {
        grade.texture = 80;
    } else if (name == "nettete") {
        grade.sharpen = 90;
    } else if (name == "objectif" || name == "objectif-doux") {
        effect.lens = true;
        if (name == "objectif-doux") s.effects.lensStyle = EffectSettings::LensStyle::soft;
    } else if (name == "obturateur") {
        effect.shutter = true;
    } else if (name == "vhs") {
        effect.vhs = true;
    } else if (name == "tout") {
        grade = kWarm;
        grade.grain = 40;
        grade.vignette = -1.5;
        grade.sharpen = 30;
        grade.texture = 30;
        effect.lens = effect.shutter = effect.vhs = true;
        s.effects.lensAmount = 0.35;
    } else {
        return std::nullopt;
    }
    s.grades[0] = grade;
    s.plans.push_back({0, 1e9, 0, effect});
    return s;
}

}  // namespace

int main(int argc, char** argv) {
    std::string effect, out, input;
    double at = 10;
    int width = 1920, height = 1080;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
        if (!value) {
            usage();
            return 2;
        }
        ++i;
        if (arg == "--effect") {
            effect = value;
        } else if (arg == "--out") {
            out = value;
        } else if (arg == "--input") {
            input = value;
        } else if (arg == "--at") {
            auto v = parseDouble(value);
            if (!v) {
                std::fprintf(stderr, "Temps illisible : %s\n", value);
                return 2;
            }
            at = *v;
        } else if (arg == "--width" || arg == "--height") {
            auto v = parseInteger(value);
            if (!v || *v < 2 || *v > 8192) {
                std::fprintf(stderr, "Taille illisible : %s\n", value);
                return 2;
            }
            (arg == "--width" ? width : height) = static_cast<int>(*v);
        } else {
            usage();
            return 2;
        }
    }
    auto snapshot = snapshotFor(effect);
    if (out.empty() || !snapshot) {
        usage();
        return 2;
    }

    // The frame at a time: from the file, or the card with its ball moving.
    auto frameAt = [&](double t) -> Result<Image> {
        if (input.empty()) return testCard(width, height, t * 30 * 24);
        auto f = media::decodeVideoFrame(input, t);
        if (!f) return f.error();
        return Image::fromRgba8(f->pixels.data(), f->width, f->height, f->width * 4);
    };

    LookRenderer renderer;
    renderer.update(*snapshot);
    const int lead = effect == "obturateur" || effect == "tout" ? 8 : 0;
    Image result;
    for (int i = lead; i >= 0; --i) {
        const double t = at - i / 30.0;
        auto frame = frameAt(t);
        if (!frame) {
            std::fprintf(stderr, "%s\n", frame.error().message.c_str());
            return 1;
        }
        result = renderer.process(std::move(*frame), 0, t);
    }

    media::RgbaFrame png{result.width(), result.height(), result.toRgba8()};
    if (auto written = media::writePng(out, png); !written) {
        std::fprintf(stderr, "%s\n", written.error().message.c_str());
        return 1;
    }
    std::printf("%s : %d x %d, effet %s à %s s\n", out.c_str(), png.width, png.height, effect.c_str(),
                shortest(at).c_str());
    return 0;
}
