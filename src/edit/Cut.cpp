#include "edit/Cut.h"

#include <algorithm>

namespace qv {

std::vector<Segment> Segment::build(const std::vector<Cut>& cuts, double duration) {
    std::vector<Segment> plans;
    plans.reserve(cuts.size() + 1);
    if (cuts.empty() || cuts.front().time > 0.001) plans.push_back(Segment{});
    for (size_t i = 0; i < cuts.size(); ++i) {
        const Cut& c = cuts[i];
        Segment s;
        s.start = c.time;
        s.camera = c.camera;
        s.cutIndex = static_cast<int>(i);
        s.effect = c.effect;
        s.looks = c.looks;
        plans.push_back(s);
    }
    for (size_t i = 0; i < plans.size(); ++i) {
        plans[i].id = static_cast<int>(i);
        plans[i].end = i + 1 < plans.size() ? plans[i + 1].start : duration;
    }
    return plans;
}

void sortByTime(std::vector<Cut>& cuts) {
    std::stable_sort(cuts.begin(), cuts.end(), [](const Cut& a, const Cut& b) { return a.time < b.time; });
}

}  // namespace qv
