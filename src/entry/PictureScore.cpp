#include "entry/PictureScore.h"

#include <algorithm>
#include <cmath>

namespace qv {

namespace {

const SetTruth::File* truthOf(const SetTruth& truth, const std::filesystem::path& set, const MediaItem& item) {
    auto it = truth.files.find(std::filesystem::relative(item.url, set).generic_string());
    return it == truth.files.end() ? nullptr : &it->second;
}

bool isFault(const SetTruth::File::Event& e) { return e.what != "pan"; }

// Seconds of [from, to) under a fault, and the fault covering most of it.
double faultOverlap(const SetTruth::File& file, double from, double to, std::string* kind = nullptr) {
    double sum = 0, most = 0;
    for (const auto& e : file.events) {
        if (!isFault(e)) continue;
        const double o = std::max(0.0, std::min(to, e.to) - std::max(from, e.from));
        sum += o;
        if (kind && o > most) {
            most = o;
            *kind = e.what;
        }
    }
    return sum;
}

}  // namespace

PictureScore scorePictures(const SetTruth& truth, const std::filesystem::path& set, const VideoRender::Job& job,
                           const MeasuresByPath& measures) {
    PictureScore score;
    for (size_t c = 0; c < job.cameraSources.size(); ++c) {
        std::vector<const PlacedItem*> files;
        std::vector<const analysis::FileMeasures*> of;
        for (const PlacedItem& p : job.result.placed) {
            auto m = measures.find(p.item.url.string());
            if (p.sourceIndex != job.cameraSources[c] || m == measures.end()) continue;
            files.push_back(&p);
            of.push_back(&m->second);
        }
        const analysis::CameraTypical typical = analysis::typicalOf(of);
        for (size_t i = 0; i < files.size(); ++i) {
            const SetTruth::File* t = truthOf(truth, set, files[i]->item);
            if (!t) continue;
            const auto grades = analysis::gradeFile(*of[i], typical);
            for (size_t k = 0; k < grades.size(); ++k) {
                const double from = static_cast<double>(k) * analysis::slotSeconds, to = from + analysis::slotSeconds;
                if (to > files[i]->item.duration) break;
                std::string kind;
                const double covered = faultOverlap(*t, from, to, &kind);
                const bool marked = grades[k].grade == analysis::PictureGrade::unusable;
                if (covered >= analysis::slotSeconds / 2) {
                    ++score.unusable;
                    score.found += marked;
                    if (!marked) ++score.missed[kind];
                } else if (covered <= 0) {
                    ++score.good;
                    score.falseAlarms += marked;
                }
            }
        }
    }
    return score;
}

PlanScore scorePlans(const SetTruth& truth, const std::filesystem::path& set, const VideoRender::Job& job,
                     const std::vector<Segment>& plans) {
    PlanScore score;
    const size_t cameras = job.cameraSources.size();
    score.shown.assign(cameras, 0);
    // Whether camera c films at t, and whether its picture is faulty there.
    auto state = [&](size_t c, double t, bool& films, bool& faulty) {
        films = faulty = false;
        for (const PlacedItem& p : job.result.placed) {
            if (p.sourceIndex != job.cameraSources[c] || t < p.start || t >= p.end()) continue;
            films = true;
            if (const SetTruth::File* f = truthOf(truth, set, p.item))
                for (const auto& e : f->events)
                    if (isFault(e) && t >= p.start + e.from && t < p.start + e.to) faulty = true;
        }
    };
    constexpr double step = 0.01;
    const double end = job.result.duration();
    size_t plan = 0;
    for (double t = step / 2; t < end; t += step) {
        while (plan + 1 < plans.size() && plans[plan].end <= t) ++plan;
        if (plans.empty()) break;
        const int shown = plans[plan].camera;
        if (shown < 0 || static_cast<size_t>(shown) >= cameras) continue;
        bool films = false, faulty = false;
        state(static_cast<size_t>(shown), t, films, faulty);
        if (faulty) score.onFaults += step;
        score.shown[static_cast<size_t>(shown)] += step;
    }
    return score;
}

}  // namespace qv
