// Accuracy and time of the synchronisation on generated sets: for each set,
// how many files land within 1 ms of the truth (2 ms where a microphone
// filters), how many are placed wrongly, how many that should be placed are
// missing, and how many that have no common sound are placed anyway.
// Drifting files are judged at their middle; a file the scan never found
// counts as missing. Usage:
//   sync_accuracy [--ffmpeg] <set folder>...   (sets made by quorvel-setgen)
// --ffmpeg takes every file's sound through the executable, not libav.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

#include "base/Text.h"
#include "entry/SetTruth.h"
#include "sync/AudioLoader.h"
#include "sync/FolderSync.h"
#include "sync/MediaScanner.h"

using namespace qv;
namespace fs = std::filesystem;

namespace {

std::string inSet(const fs::path& set, const fs::path& file) { return fs::relative(file, set).generic_string(); }

// Where the file's time t lies on the result's line. (A probed duration
// may count a codec's priming, so the middle is taken from the truth's.)
template <class Placed>
double lineTimeOf(const Placed& p, double t) {
    if constexpr (requires { p.lineTime(0.0); })
        return p.lineTime(t);
    else
        return p.start + t;
}

}  // namespace

int main(int argc, char** argv) {
    FolderSync::Options options = FolderSync::defaultOptions();
    int first = 1;
    if (argc > 1 && std::string(argv[1]) == "--ffmpeg") {
        options.primary = AudioLoader::loadWithFFmpeg;
        first = 2;
    }
    if (argc <= first) {
        std::fprintf(stderr, "usage : sync_accuracy [--ffmpeg] <dossier de set>...\n");
        return 1;
    }
    double load[1] = {0};
    getloadavg(load, 1);
    std::printf("charge du système %.2f%s\n", load[0], first == 2 ? " ; son par l'exécutable ffmpeg" : "");
    std::printf("%-12s %6s %7s %5s %6s %5s %6s %9s %8s\n", "set", "files", "correct", "wrong", "missing", "false",
                "ambig", "worst ms", "sync s");
    for (int a = first; a < argc; ++a) {
        const fs::path set = argv[a];
        auto truth = SetTruth::read(set);
        if (!truth) {
            std::printf("%-12s truth.json illisible\n", set.filename().c_str());
            continue;
        }
        auto sources = MediaScanner::scan(set);
        auto t0 = std::chrono::steady_clock::now();
        SyncResult result = FolderSync::run(sources, nullptr, options);
        double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();

        // The line's origin against the music's, from an unfiltered file
        // placed in step with the truth: the one most files agree with.
        auto truthMiddle = [&](const SetTruth::File& t) { return t.start + t.duration / 2 / (1 + t.drift * 1e-6); };
        double shift = 0;
        int bestVotes = -1;
        for (const auto& r : result.placed) {
            const auto& tr = truth->files[inSet(set, r.item.url)];
            if (tr.expect != "placed") continue;
            double candidate = lineTimeOf(r, tr.duration / 2) - truthMiddle(tr);
            int votes = 0;
            for (const auto& p : result.placed) {
                const auto& t = truth->files[inSet(set, p.item.url)];
                votes += t.expect == "placed" &&
                         std::fabs(lineTimeOf(p, t.duration / 2) - truthMiddle(t) - candidate) < 0.002;
            }
            if (votes > bestVotes) {
                bestVotes = votes;
                shift = candidate;
            }
        }

        int files = 0, correct = 0, wrong = 0, missing = 0, falsePlaced = 0, ambiguous = 0;
        double worst = 0;
        std::string details;
        for (const auto& [path, t] : truth->files) files += t.expect == "placed" || t.expect == "unsynced";
        for (const auto& p : result.placed) {
            const std::string name = inSet(set, p.item.url);
            const auto& t = truth->files[name];
            ambiguous += p.ambiguous;
            if (t.expect != "placed") {
                ++falsePlaced;
                details += "  placé à tort : " + name + "\n";
                continue;
            }
            double error = std::fabs(lineTimeOf(p, t.duration / 2) - truthMiddle(t) - shift);
            if constexpr (requires { p.drift; })
                if (t.drift != 0 || p.drift.value_or(0) != 0)
                    details += cformat("  dérive de %s : %+.1f ppm mesurés, %+.1f ppm vrais, écart au milieu %.3f ms\n",
                                       name.c_str(), p.drift.value_or(0.0), t.drift, error * 1000);
            double tolerance = t.filtered ? 0.002 : 0.001;
            if (error < tolerance) {
                ++correct;
                worst = std::max(worst, error);
            } else {
                ++wrong;
                details += cformat("  mal placé : %s (écart %.4f s)\n", name.c_str(), error);
            }
        }
        std::set<std::string> seen;
        for (const auto& p : result.placed) seen.insert(inSet(set, p.item.url));
        for (const auto& u : result.unsynced) {
            seen.insert(inSet(set, u.item.url));
            if (truth->files[inSet(set, u.item.url)].expect == "placed") {
                ++missing;
                details += "  manquant : " + inSet(set, u.item.url) + " (" + u.reason + ")\n";
            }
        }
        for (const auto& [path, t] : truth->files)
            if (t.expect == "placed" && !seen.count(path)) {
                ++missing;
                details += "  manquant : " + path + " (pas trouvé par l'analyse du dossier)\n";
            }
        std::printf("%-12s %6d %7d %5d %6d %5d %6d %9.3f %8.2f\n", set.filename().c_str(), files, correct, wrong,
                    missing, falsePlaced, ambiguous, worst * 1000, took);
        std::fputs(details.c_str(), stdout);
        std::fflush(stdout);
    }
    return 0;
}
