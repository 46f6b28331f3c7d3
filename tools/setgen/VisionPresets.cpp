// Presets for the picture analysis: cameras filming a textured scene, each
// of them losing its picture now and then the ways club footage does (a lens
// cap, a focus lost in the dark, a violent shake, a hand over the lens, a
// frozen picture), and panning slowly over good stretches, which must stay
// good. Every fault and pan goes to the truth, on each file's time line.
#include <algorithm>
#include <numeric>

#include "PresetBuilder.h"

namespace qv::setgen {

namespace {

constexpr LensEvent faults[] = {LensEvent::black, LensEvent::blur, LensEvent::shake, LensEvent::hand,
                                LensEvent::frozen};

// Three cameras over `length` seconds. The set is cut into stretches of
// four seconds; each holds at most one camera's fault, so at any time at
// least two cameras film well; the faults go round the cameras and kinds,
// and each camera pans slowly twice in stretches where it films well.
SetPlan lensFaults(Builder& b, double length) {
    b.addMusic(length + 4, 1);
    constexpr int cameras = 3;
    constexpr double stretch = 4.0, first = 2.0;
    const int stretches = static_cast<int>((length - first) / stretch);
    // Every camera meets every fault at least once; longer sets keep a quarter
    // of their stretches clean for all.
    const int faultCount = std::max(cameras * static_cast<int>(std::size(faults)), stretches * 3 / 4);
    SplitMix64& rng = b.rng();

    // Which stretch holds which camera's fault: a shuffle of the stretches.
    std::vector<int> order(static_cast<size_t>(stretches));
    std::iota(order.begin(), order.end(), 0);
    for (size_t i = order.size(); i > 1; --i) std::swap(order[i - 1], order[static_cast<size_t>(uniformInt(rng, 0, static_cast<int>(i) - 1))]);

    // Built apart and handed to the builder once complete: its list of files
    // moves as it grows.
    std::vector<FilePlan> files;
    for (int c = 1; c <= cameras; ++c) {
        b.rate(c, 25, 1);
        FilePlan f = b.camera(c, 1, 0.2 * c, length);
        realFootage(f, 16);
        f.grain = 6;
        files.push_back(std::move(f));
    }
    std::vector<std::vector<bool>> busy(cameras, std::vector<bool>(static_cast<size_t>(stretches)));
    for (int k = 0; k < std::min(faultCount, stretches); ++k) {
        const int camera = k % cameras, slot = order[static_cast<size_t>(k)];
        FilePlan& f = files[static_cast<size_t>(camera)];
        const double len = uniform(rng, 2.5, 3.5);
        const double at = first + slot * stretch + uniform(rng, 0.2, stretch - len - 0.2);
        f.events.push_back({faults[static_cast<size_t>(k / cameras) % std::size(faults)], at - f.start, at + len - f.start});
        busy[static_cast<size_t>(camera)][static_cast<size_t>(slot)] = true;
    }
    // Two pans per camera, in stretches free of its faults and away from them.
    for (int c = 0; c < cameras; ++c) {
        FilePlan& f = files[static_cast<size_t>(c)];
        int made = 0;
        for (int attempt = 0; attempt < 64 && made < 2; ++attempt) {
            const int slot = uniformInt(rng, 0, stretches - 1);
            auto freeAt = [&](int s) { return s < 0 || s >= stretches || !busy[static_cast<size_t>(c)][static_cast<size_t>(s)]; };
            if (!freeAt(slot - 1) || !freeAt(slot) || !freeAt(slot + 1)) continue;
            const double at = first + slot * stretch + 0.3;
            f.events.push_back({LensEvent::pan, at - f.start, at + stretch - 0.6 - f.start});
            busy[static_cast<size_t>(c)][static_cast<size_t>(slot)] = true;
            ++made;
        }
        std::stable_sort(f.events.begin(), f.events.end(),
                         [](const PictureEvent& x, const PictureEvent& y) { return x.from < y.from; });
    }
    b.mainRecorder(1, "prise 1.wav");
    SetPlan plan = b.take();
    for (FilePlan& f : files)
        for (FilePlan& planned : plan.files)
            if (planned.path == f.path) planned = std::move(f);
    return plan;
}

// The tests' set: a minute, every fault once per camera.
SetPlan vision(Builder& b) { return lensFaults(b, 64); }

// The same over four minutes, for the benchmark's accuracy figures.
SetPlan visionlong(Builder& b) { return lensFaults(b, 240); }

// Two minutes in full HD: files the size cameras write, which get preview
// copies, so the analysis is measured both on the originals and on the copies.
SetPlan visionhd(Builder& b) {
    b.pictureSize(1920, 1080);
    return lensFaults(b, 120);
}

}  // namespace

const NamedPresets& visionPresets() {
    static const NamedPresets list = {{"vision", vision}, {"visionlong", visionlong}, {"visionhd", visionhd}};
    return list;
}

}  // namespace qv::setgen
