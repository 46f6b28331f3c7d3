// The picture analysis: how fast it reads each camera of a heavy set (full
// HD, grain, B-frames) against real time and against decoding every picture
// of the same file in the same run, both from the originals and from the
// preview chunks the player makes of them (made here first, timed); and how
// well it finds the faults of generated sets with truth (the share of
// unusable half-seconds found, the share of good ones wrongly flagged) and
// how much of the automatic edit still lands on a fault. The small set is
// read from its originals (too small for previews); the full-HD one, which
// nothing was tuned on, from both. Usage:
//   vision_bench [<realcam set> [<vision set> [<full-HD vision set>]]]
// (defaults /work/sets/realcam-1, /work/sets/visionlong-1 and
// /work/sets/visionhd-1, made by quorvel-setgen --preset realcam,
// --preset visionlong and --preset visionhd --seed 7).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <set>
#include <thread>

#include "edit/AutoEditor.h"
#include "entry/PictureScore.h"
#include "platform/MediaReader.h"
#include "platform/PictureSampler.h"
#include "playback/PreviewRoad.h"
#include "playback/ProxyEncoder.h"

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

// Preview chunks of every camera file of `job`, made by the player's maker
// into a fresh folder; how long that took is printed.
ProxyCache makePreviews(const VideoRender::Job& job, const fs::path& folder) {
    fs::remove_all(folder);
    ProxyCache cache(folder);
    std::vector<ProxyFile> files;
    double footage = 0;
    for (const PlacedItem& p : job.result.placed)
        if (p.item.hasVideo && std::max(p.item.width, p.item.height) > media::ProxyOptions{}.width) {
            files.push_back({p.item.url, 0, p.item.duration, false});
            footage += p.item.duration;
        }
    if (files.empty()) return cache;
    ProxyMaker maker(cache, proxyEncoder(), {});
    const auto t0 = std::chrono::steady_clock::now();
    maker.start(std::move(files));
    while (!maker.progress().finished) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const double took = seconds(t0);
    std::printf("aperçus : %.0f s d'images en %.1f s (×%.1f temps réel pour tous les fichiers ensemble)\n", footage,
                took, footage / std::max(took, 1e-9));
    return cache;
}

void speed(const fs::path& set) {
    const auto opened = openSet(set, "vitesse", "realcam");
    if (!opened) return;
    const VideoRender::Job& job = opened->job;
    const ProxyCache previews = makePreviews(job, fs::temp_directory_path() / "quorvel-vision-bench");
    std::printf("%-22s %7s %8s %8s %9s %8s %9s  %s\n", "caméra", "durée s", "analyse", "× réel", "décodage",
                "rapport", "× aperçu", "lecture");
    double worst = 1e9, worstPreview = 1e9;
    for (const PlacedItem& p : job.result.placed) {
        if (!p.item.hasVideo) continue;
        // The road the sampler takes, from its first picture.
        media::SamplerRoad road{};
        if (auto r = media::samplePictures(p.item.url, {}, [](media::SampledPicture&&) { return false; })) road = *r;
        auto t0 = std::chrono::steady_clock::now();
        auto measured = analysis::measureFile(p.item.url);
        const double took = seconds(t0);
        if (!measured) continue;
        const double realTime = p.item.duration / std::max(took, 1e-9);
        const double full = fullDecodeSpeed(p.item.url, std::min(10.0, p.item.duration));
        worst = std::min(worst, realTime);
        double fromPreview = 0;
        const analysis::PictureRoad chunks = previewRoad(previews, p.item, nullptr);
        if (chunks.kind == analysis::PictureRoad::Kind::copies) {
            t0 = std::chrono::steady_clock::now();
            if (analysis::measureFile(chunks.pieces)) fromPreview = p.item.duration / std::max(seconds(t0), 1e-9);
            worstPreview = std::min(worstPreview, fromPreview);
        }
        std::printf("%-22s %7.1f %8.2f %8.1f %9.1f %8.1f %9.1f  %s\n",
                    fs::relative(p.item.url, set).generic_string().c_str(), p.item.duration, took, realTime, full,
                    full > 0 ? realTime / full : 0.0, fromPreview, roadName(road));
    }
    std::printf("plus lente : ×%.1f temps réel sur l'original, ×%.1f sur l'aperçu (but : ×30 par caméra 1080p)\n",
                worst, worstPreview < 1e9 ? worstPreview : 0.0);
    fs::remove_all(previews.folder());
}

void accuracy(const fs::path& set, const char* preset, bool fromPreviews) {
    const auto opened = openSet(set, "justesse", preset);
    if (!opened) return;
    const SetTruth* truth = &opened->truth;
    const VideoRender::Job& job = opened->job;
    std::optional<ProxyCache> previews;
    analysis::MeasureOptions options;
    if (fromPreviews) {
        previews = makePreviews(job, fs::temp_directory_path() / "quorvel-vision-bench");
        options.roadOf = [&](const MediaItem& item) { return previewRoad(*previews, item, nullptr); };
    }
    const auto t0 = std::chrono::steady_clock::now();
    const auto measures = analysis::measureCameras(job.result, job.cameraSources, {}, options);
    const double took = seconds(t0);
    if (previews) fs::remove_all(previews->folder());
    const PictureScore score = scorePictures(*truth, set, job, measures);
    std::printf("justesse (%s, %s) : %d / %d demi-secondes inutilisables trouvées (%.1f %%, but ≥ 95 %%), "
                "%d / %d bonnes signalées (%.1f %%, but ≤ 5 %%), analyse en %.1f s\n",
                preset, fromPreviews ? "sur l'aperçu" : "sur les originaux", score.found, score.unusable,
                100 * score.foundShare(), score.falseAlarms, score.good, 100 * score.falseShare(), took);

    if (!score.missed.empty()) {
        std::printf("  manquées :");
        for (const auto& [kind, n] : score.missed) std::printf(" %s %d", kind.c_str(), n);
        std::printf("\n");
    }
    const auto pictures = analysis::picturesOf(job.result, job.cameraSources, measures);
    // Weak stretches weigh on the edit's shares: their seconds by camera.
    std::printf("  moyennes par caméra :");
    for (const auto& camera : pictures) {
        double weak = 0;
        for (const auto& st : camera)
            if (st.grade == analysis::PictureGrade::weak) weak += st.end - st.start;
        std::printf(" %.1f s", weak);
    }
    std::printf("\n");
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
        std::printf("  montage auto %s : %.1f s sur une image fautive ; à l'écran", look ? "avec analyse" : "sans analyse",
                    plans.onFaults);
        for (double s : plans.shown) std::printf(" %.0f %%", 100 * s / std::max(duration, 1e-9));
        std::printf("\n");
    }
}

}  // namespace

int main(int argc, char** argv) {
    const fs::path realcam = argc > 1 ? argv[1] : "/work/sets/realcam-1";
    const fs::path vision = argc > 2 ? argv[2] : "/work/sets/visionlong-1";
    const fs::path visionHd = argc > 3 ? argv[3] : "/work/sets/visionhd-1";
    double load[1] = {0};
    getloadavg(load, 1);
    std::printf("charge du système %.2f\n", load[0]);
    speed(realcam);
    accuracy(vision, "visionlong", false);
    accuracy(visionHd, "visionhd", false);
    accuracy(visionHd, "visionhd", true);
    return 0;
}
