// Drop detection against the generator's truth: for each set given, every
// true drop with the detected one nearest to it, and the detections that
// match no true drop. Usage: drop_accuracy <set> [<set> ...]
#include <cmath>
#include <cstdio>

#include "base/Text.h"
#include "entry/SetTruth.h"
#include "music/DropDetector.h"
#include "sync/FolderSync.h"
#include "sync/MediaScanner.h"

using namespace qv;

int main(int argc, char** argv) {
    std::printf("%-22s %10s %10s %8s\n", "set", "vrai (s)", "trouvé (s)", "écart");
    int missed = 0, falseDrops = 0, total = 0;
    for (int a = 1; a < argc; ++a) {
        std::filesystem::path set = argv[a];
        auto truth = SetTruth::read(set);
        if (!truth) {
            std::fprintf(stderr, "%s : truth.json illisible\n", argv[a]);
            continue;
        }
        auto sources = MediaScanner::scan(set);
        auto result = FolderSync::run(sources, nullptr);
        // The truth counts from the music's start, the result from its earliest file.
        double shift = 0;
        for (const auto& p : result.placed) {
            auto it = truth->files.find(std::filesystem::relative(p.item.url, set).string());
            if (it != truth->files.end()) {
                shift = p.start - it->second.start;
                break;
            }
        }
        auto drops = DropDetector::detect(result, sources, 0.5);
        std::vector<bool> used(drops.size(), false);
        for (double t : truth->drops) {
            double onLine = t + shift;
            ++total;
            int best = -1;
            for (size_t i = 0; i < drops.size(); ++i)
                if (best < 0 || std::fabs(drops[i].time - onLine) < std::fabs(drops[static_cast<size_t>(best)].time - onLine))
                    best = static_cast<int>(i);
            bool hit = best >= 0 && std::fabs(drops[static_cast<size_t>(best)].time - onLine) <= 0.5;
            if (hit) used[static_cast<size_t>(best)] = true;
            else ++missed;
            double found = hit ? drops[static_cast<size_t>(best)].time : 0;
            std::printf("%-22s %10.2f %10s %8s\n", set.filename().c_str(), onLine,
                        hit ? cformat("%.2f", found).c_str() : "-",
                        hit ? cformat("%+.2f", found - onLine).c_str() : "manqué");
        }
        for (size_t i = 0; i < drops.size(); ++i) {
            if (used[i]) continue;
            ++falseDrops;
            std::printf("%-22s %10s %10.2f %8s\n", set.filename().c_str(), "-", drops[i].time, "faux");
        }
    }
    std::printf("%d drops vrais, %d manqués, %d faux\n", total, missed, falseDrops);
    return 0;
}
