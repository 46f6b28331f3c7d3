#include "analysis/PictureGrades.h"

#include <algorithm>
#include <cmath>

namespace qv::analysis {

namespace {

// --- Exposure, on absolute levels (0 to 255).
// Black: a lens cap or a pocket leaves a mean below 20 with nine pixels in
// ten at black; a dark club shot keeps lights and faces above that.
constexpr float blackMean = 20, blackShare = 0.9f;
// Dark: below this mean a shot is murky but may still tell something.
constexpr float darkMean = 30;
// Burnt: more than half the frame at white (a light straight into the lens).
constexpr float burntShare = 0.5f;

// --- Detail and spread, against the camera's typical values.
// Blur: less than a fifth of the camera's usual fine detail is a shot out of
// focus; less than 45 % is soft.
constexpr float blurRatio = 0.2f, softRatio = 0.45f;
// Blocked lens: a hand or a head leaves a dim, even patch: fine detail
// gone (below a quarter) and the spread of tones and colours too (below 40 %).
constexpr float blockedDetail = 0.25f, blockedSpread = 0.4f;
// Floors of the typical values, so that a camera filming a plain wall does
// not turn every speck of noise into "detail".
constexpr float detailFloor = 2, spreadFloor = 4;

// --- Motion, in picture widths between two pictures of a short step, once
// the smooth pan around them is taken out. A hand-held shot wanders about
// 1 % of the width; a violent shake throws the frame 3 % and more, many
// times a second. A slow pan, taken out, leaves well under 1 %.
constexpr float shakeJitter = 0.03f, shakyJitter = 0.015f;

// --- Frozen: pictures that differ by less than a tenth of a level on
// average are the same picture again (sensor noise alone moves a live
// picture by more than one level). It takes a whole second of them.
constexpr float frozenChange = 0.1f;
constexpr int frozenSlots = 2;

// A slot without a picture of its own (key frames only, far apart) takes the
// grade of the nearest measured one within this many halves.
constexpr int fillReach = 3;

float spreadOf(const SlotMeasures& s) { return s.contrast + s.colour; }

bool isBlack(const SlotMeasures& s) { return s.level < blackMean && s.crushed > blackShare; }

float median(std::vector<float> v) {
    if (v.empty()) return 0;
    auto mid = v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2);
    std::nth_element(v.begin(), mid, v.end());
    return *mid;
}

SlotGrade unusable(PictureFault f) { return {PictureGrade::unusable, f}; }
SlotGrade weak(PictureFault f) { return {PictureGrade::weak, f}; }

// The grade of one measured slot, frozen pictures aside; in the order in
// which a user would name what is wrong.
SlotGrade gradeSlot(const SlotMeasures& s, const CameraTypical& typical) {
    const float detail = s.detail / std::max(typical.detail, detailFloor);
    const float spread = spreadOf(s) / std::max(typical.spread, spreadFloor);
    if (isBlack(s)) return unusable(PictureFault::black);
    if (detail < blockedDetail && spread < blockedSpread) return unusable(PictureFault::blocked);
    if (detail < blurRatio) return unusable(PictureFault::blur);
    if (s.jitter > shakeJitter) return unusable(PictureFault::shake);
    if (s.level < darkMean) return weak(PictureFault::dark);
    if (s.clipped > burntShare) return weak(PictureFault::burnt);
    if (detail < softRatio) return weak(PictureFault::soft);
    if (s.jitter > shakyJitter) return weak(PictureFault::shaky);
    return {};
}

}  // namespace

std::string faultLabel(PictureFault fault) {
    switch (fault) {
    case PictureFault::none: return "Image correcte";
    case PictureFault::black: return "Image noire";
    case PictureFault::blur: return "Flou";
    case PictureFault::shake: return "Tremblé";
    case PictureFault::blocked: return "Objectif masqué";
    case PictureFault::frozen: return "Image figée";
    case PictureFault::dark: return "Image sombre";
    case PictureFault::soft: return "Un peu flou";
    case PictureFault::shaky: return "Bouge beaucoup";
    case PictureFault::burnt: return "Image brûlée";
    }
    return {};
}

CameraTypical typicalOf(const std::vector<const FileMeasures*>& files) {
    std::vector<float> detail, spread;
    for (const FileMeasures* f : files) {
        if (!f) continue;
        for (const SlotMeasures& s : f->halves) {
            if (!s.measured() || isBlack(s)) continue;
            detail.push_back(s.detail);
            spread.push_back(spreadOf(s));
        }
    }
    return {median(detail), median(spread)};
}

std::vector<SlotGrade> gradeFile(const FileMeasures& file, const CameraTypical& typical) {
    const size_t n = file.halves.size();
    std::vector<SlotGrade> grades(n);
    std::vector<bool> measured(n);
    for (size_t k = 0; k < n; ++k) {
        measured[k] = file.halves[k].measured();
        if (measured[k]) grades[k] = gradeSlot(file.halves[k], typical);
    }
    // Frozen: a run of halves whose pictures did not change, unless something
    // worse already names them (a black picture does not change either).
    for (size_t k = 0; k < n;) {
        size_t end = k;
        while (end < n && file.halves[end].change >= 0 && file.halves[end].change < frozenChange) ++end;
        if (end - k >= static_cast<size_t>(frozenSlots))
            for (size_t j = k; j < end; ++j)
                if (grades[j].grade != PictureGrade::unusable) grades[j] = unusable(PictureFault::frozen);
        k = std::max(end, k + 1);
    }
    // Faults have soft edges: the weak half-seconds that lead into or out of
    // an unusable stretch belong to it.
    for (int pass = 0; pass < 2; ++pass) {
        for (size_t i = 1; i < n; ++i) {
            const size_t k = pass == 0 ? i : n - 1 - i, from = pass == 0 ? k - 1 : k + 1;
            if (grades[k].grade == PictureGrade::weak && grades[from].grade == PictureGrade::unusable)
                grades[k] = grades[from];
        }
    }
    // Slots between sparse pictures take the nearest measured grade.
    for (size_t k = 0; k < n; ++k) {
        if (measured[k]) continue;
        for (int d = 1; d <= fillReach; ++d) {
            if (k >= static_cast<size_t>(d) && measured[k - d]) {
                grades[k] = grades[k - d];
                break;
            }
            if (k + d < n && measured[k + d]) {
                grades[k] = grades[k + d];
                break;
            }
        }
    }
    return grades;
}

CameraPictures cameraPictures(const SyncResult& result, const std::vector<int>& cameraSources,
                              const std::function<const FileMeasures*(const MediaItem&)>& measuresOf) {
    CameraPictures out(cameraSources.size());
    for (size_t c = 0; c < cameraSources.size(); ++c) {
        std::vector<const PlacedItem*> files;
        std::vector<const FileMeasures*> measures;
        for (const PlacedItem& p : result.placed) {
            if (p.sourceIndex != cameraSources[c] || !p.item.hasVideo) continue;
            if (const FileMeasures* m = measuresOf(p.item)) {
                files.push_back(&p);
                measures.push_back(m);
            }
        }
        const CameraTypical typical = typicalOf(measures);
        std::vector<PictureStretch>& list = out[c];
        for (size_t i = 0; i < files.size(); ++i) {
            const PlacedItem& p = *files[i];
            const std::vector<SlotGrade> grades = gradeFile(*measures[i], typical);
            for (size_t k = 0; k < grades.size(); ++k) {
                if (grades[k].grade == PictureGrade::good) continue;
                // A camera far from the speakers shows its picture later than its sound.
                const double from = p.lineTime(static_cast<double>(k) * slotSeconds) + p.pictureOffset;
                const double to =
                    std::min(p.lineTime(static_cast<double>(k + 1) * slotSeconds), p.end()) + p.pictureOffset;
                if (!(to > from)) continue;
                PictureStretch s{from, to, grades[k].grade, grades[k].fault};
                if (!list.empty() && list.back().grade == s.grade && list.back().fault == s.fault &&
                    std::abs(list.back().end - s.start) < 1e-3)
                    list.back().end = s.end;
                else
                    list.push_back(s);
            }
        }
        std::stable_sort(list.begin(), list.end(),
                         [](const PictureStretch& a, const PictureStretch& b) { return a.start < b.start; });
    }
    return out;
}

std::vector<PictureStretch> ofGrade(const std::vector<PictureStretch>& stretches, PictureGrade grade) {
    std::vector<PictureStretch> out;
    for (const PictureStretch& s : stretches)
        if (s.grade == grade) out.push_back(s);
    return out;
}

}  // namespace qv::analysis
