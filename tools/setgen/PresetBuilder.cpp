#include "PresetBuilder.h"

#include <algorithm>
#include <cmath>

namespace qv::setgen {

// `count` clips between `from` and `to`, each `minLen` to `maxLen` long
// (shrunk when they cannot fit) and at least `minGap` apart, never overlapping.
std::vector<std::pair<double, double>> layout(SplitMix64& rng, double from, double to, int count, double minLen,
                                              double maxLen, double minGap) {
    std::vector<double> lengths(static_cast<size_t>(count));
    double sum = 0;
    for (double& d : lengths) sum += d = uniform(rng, minLen, maxLen);
    const double span = to - from, gaps = (count - 1) * minGap;
    if (sum + gaps > span) {
        double k = (span - gaps) * 0.98 / sum;
        for (double& d : lengths) d *= k;
        sum *= k;
    }
    std::vector<double> weights(static_cast<size_t>(count + 1));
    double wsum = 0;
    for (double& w : weights) wsum += w = uniform(rng, 0.05, 1.0);
    const double slack = span - sum - gaps;
    std::vector<std::pair<double, double>> clips;
    double t = from + slack * weights[0] / wsum;
    for (size_t i = 0; i < lengths.size(); ++i) {
        clips.emplace_back(t, lengths[i]);
        t += lengths[i] + minGap + slack * weights[i + 1] / wsum;
    }
    return clips;
}

void realFootage(FilePlan& f, double mbps) {
    f.grain = 14;
    f.bitrateKbps = std::max(200, static_cast<int>(std::lround(mbps * 1000 * f.width * f.height / (1920.0 * 1080))));
}

}  // namespace qv::setgen
