// The picture analysis: how fast it reads each camera of a heavy set (full
// HD, grain, B-frames) against real time and against decoding every picture
// of the same file in the same run, and how well it finds the faults of a
// generated set with truth (the share of unusable half-seconds found, the
// share of good ones wrongly flagged) and how much of the automatic edit
// still lands on a fault. Usage:
//   vision_bench [<realcam set> [<vision set>]]
// (defaults /work/sets/realcam-1 and /work/sets/visionlong-1, made by
// quorvel-setgen --preset realcam / --preset visionlong).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <set>

#include "edit/AutoEditor.h"
#include "entry/PictureScore.h"
#include "platform/MediaReader.h"
#include "platform/PictureSampler.h"

using namespace qv;
namespace fs = std::filesystem;

namespace {

double seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

const char* roadName(media::SamplerRoad road) {
    switch (road) {
    case media::SamplerRoad::every: return "toutes les images";
    case media::SamplerRoad::anchors: return "images I et P";
    case media::SamplerRoad::intraPicked: return "images choisies";
    case media::SamplerRoad::keysOnly: return "images clés";
    }
    return "";
}

// Decoding every picture of the first `span` seconds, the way a player reads.
double fullDecodeSpeed(const fs::path& file, double span) {
    auto reader = media::VideoReader::open(file);
    if (!reader) return 0;
    reader->setOutputSize(256, 144);
    const double step = 1 / std::max(reader->frameRate(), 1.0);
    const auto t0 = std::chrono::steady_clock::now();
    for (double t = 0; t < span; t += step)
        if (!reader->frameAt(t)) break;
    return span / std::max(seconds(t0), 1e-9);
}

// A generated set with its truth and the job that places its files;
// nothing, said under `figure`'s name, when the set was not made.
struct TruthSet {
    SetTruth truth;
    VideoRender::Job job;
};

std::optional<TruthSet> openSet(const fs::path& set, const char* figure, const char* preset) {
    auto truth = SetTruth::read(set);
    if (!truth) {
        std::printf("%s : pas de set dans %s (quorvel-setgen --preset %s)\n", figure, set.c_str(), preset);
        return std::nullopt;
    }
    VideoRender::Job job = truth->placedJob(set);
    return TruthSet{std::move(*truth), std::move(job)};
}

void speed(const fs::path& set) {
    const auto opened = openSet(set, "vitesse", "realcam");
    if (!opened) return;
    const VideoRender::Job& job = opened->job;
    std::printf("%-22s %7s %8s %8s %9s %8s  %s\n", "caméra", "durée s", "analyse", "× réel", "décodage", "rapport",
                "lecture");
    double worst = 1e9;
    for (const PlacedItem& p : job.result.placed) {
        if (!p.item.hasVideo) continue;
        // The road the sampler takes, from its first picture.
        media::SamplerRoad road{};
        if (auto r = media::samplePictures(p.item.url, {}, [](media::SampledPicture&&) { return false; })) road = *r;
        const auto t0 = std::chrono::steady_clock::now();
        auto measured = analysis::measureFile(p.item.url);
        const double took = seconds(t0);
        if (!measured) continue;
        const double realTime = p.item.duration / std::max(took, 1e-9);
        const double full = fullDecodeSpeed(p.item.url, std::min(10.0, p.item.duration));
        worst = std::min(worst, realTime);
        std::printf("%-22s %7.1f %8.2f %8.1f %9.1f %8.1f  %s\n",
                    fs::relative(p.item.url, set).generic_string().c_str(), p.item.duration, took, realTime, full,
                    full > 0 ? realTime / full : 0.0, roadName(road));
    }
    std::printf("plus lente : ×%.1f temps réel (but : ×30 par caméra 1080p)\n", worst);
}

void accuracy(const fs::path& set) {
    const auto opened = openSet(set, "justesse", "visionlong");
    if (!opened) return;
    const SetTruth* truth = &opened->truth;
    const VideoRender::Job& job = opened->job;
    const auto t0 = std::chrono::steady_clock::now();
    const auto measures = analysis::measureCameras(job.result, job.cameraSources);
    const double took = seconds(t0);
    const PictureScore score = scorePictures(*truth, set, job, measures);
    std::printf("justesse : %d / %d demi-secondes inutilisables trouvées (%.1f %%, but ≥ 95 %%), "
                "%d / %d bonnes signalées (%.1f %%, but ≤ 5 %%), analyse en %.1f s\n",
                score.found, score.unusable, 100 * score.foundShare(), score.falseAlarms, score.good,
                100 * score.falseShare(), took);

    const auto pictures = analysis::picturesOf(job.result, job.cameraSources, measures);
    std::set<int> allowed;
    for (size_t c = 0; c < job.cameraSources.size(); ++c) allowed.insert(static_cast<int>(c));
    std::vector<Drop> drops;
    for (double d : truth->drops) drops.push_back({static_cast<int>(drops.size()), d, 1.0});
    const double duration = job.result.duration();
    const auto ranges = AutoEditor::cameraRanges(job.result, job.cameraSources);
    for (bool look : {false, true}) {
        const auto cuts = AutoEditor::generate({0, duration}, ranges, allowed, drops, {}, AutoSettings{}, {},
                                               look ? pictures : analysis::CameraPictures{});
        const PlanScore plans = scorePlans(*truth, set, job, Segment::build(cuts, duration));
        std::printf("montage auto %s : %.1f s sur une image fautive ; à l'écran", look ? "avec analyse" : "sans analyse",
                    plans.onFaults);
        for (double s : plans.shown) std::printf(" %.0f %%", 100 * s / std::max(duration, 1e-9));
        std::printf("\n");
    }
}

}  // namespace

int main(int argc, char** argv) {
    const fs::path realcam = argc > 1 ? argv[1] : "/work/sets/realcam-1";
    const fs::path vision = argc > 2 ? argv[2] : "/work/sets/visionlong-1";
    double load[1] = {0};
    getloadavg(load, 1);
    std::printf("charge du système %.2f\n", load[0]);
    speed(realcam);
    accuracy(vision);
    return 0;
}
