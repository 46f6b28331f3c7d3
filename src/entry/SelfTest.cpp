#include "entry/SelfTest.h"

#include <pugixml.hpp>

#include <cmath>
#include <fstream>
#include <map>

#include "base/Format.h"
#include "base/Json.h"
#include "base/SplitMix64.h"
#include "base/Text.h"
#include "entry/SetTruth.h"
#include "export/PremiereExport.h"
#include "music/DropDetector.h"
#include "sync/AudioLoader.h"
#include "sync/Correlator.h"
#include "sync/FolderSync.h"
#include "sync/MediaScanner.h"

namespace fs = std::filesystem;

namespace qv::SelfTest {

namespace {

Check check(std::string name, bool passed, std::string detail = {}) {
    return {std::move(name), passed, passed ? std::string() : std::move(detail)};
}

std::string inSet(const fs::path& set, const fs::path& file) { return fs::relative(file, set).string(); }

std::vector<float> noise(uint64_t seed, size_t n) {
    SplitMix64 rng(seed);
    std::vector<float> x(n);
    for (auto& v : x) v = static_cast<float>(rng.unit() * 2 - 1);
    return x;
}

}  // namespace

std::vector<Check> builtInChecks() {
    std::vector<Check> checks;
    SplitMix64 rng(0);
    checks.push_back(check("SplitMix64, graine 0", rng.next() == 0xE220A8397B1DCDAFull && rng.next() == 0x6E789E6AA1B965F4ull,
                           "valeurs de référence différentes"));
    checks.push_back(check("Format", Format::timecode(3725.9) == "1:02:05" && Format::duration(59.6) == "1 min" &&
                                         Format::fileTime(-3) == "0m00" && Format::countdown(4.2) == "0:05",
                           "textes de temps inattendus"));
    auto ones = AudioLoader::decimate(std::vector<float>(4001, 1.0f));
    bool unity = !ones.empty() && std::fabs(ones.front() - 1.0f) < 1e-6f;
    checks.push_back(check("Décimation", AudioLoader::decimate(std::vector<float>(33, 1.0f)).empty() &&
                                             AudioLoader::decimate(std::vector<float>(34, 1.0f)).size() == 1 && unity,
                           "longueurs ou gain faux"));
    auto a = noise(1, 20000);
    std::vector<float> c(777, 0.0f);
    c.insert(c.end(), a.begin(), a.begin() + 15000);
    auto correlator = Correlator::make(static_cast<int>(a.size() + c.size()));
    std::vector<Match> m;
    if (correlator) m = correlator->correlate(*correlator->spectrum(c), *correlator->spectrum(a), 2000, 9.0f, 50, 500);
    checks.push_back(check("Corrélation d'une copie décalée", !m.empty() && m[0].lag == 777 && m[0].score > 50,
                           "décalage 777 attendu"));
    return checks;
}

std::vector<Check> checkSet(const fs::path& set) {
    std::vector<Check> checks;
    const std::string name = set.filename().string();
    auto truth = SetTruth::read(set);
    if (!truth) {
        checks.push_back(check(name + " : vérité", false, "truth.json illisible"));
        return checks;
    }
    auto sources = MediaScanner::scan(set);
    SyncResult result = FolderSync::run(sources, nullptr);

    // Placement, against an unfiltered placed file where there is one.
    std::string errors;
    const PlacedItem* reference = result.placed.empty() ? nullptr : &result.placed.front();
    for (auto it = result.placed.rbegin(); it != result.placed.rend(); ++it)
        if (!truth->files[inSet(set, it->item.url)].filtered) reference = &*it;
    double worst = 0;
    double musicToLine = 0;  // the truth counts from the music's start, the result from its earliest file
    if (reference) {
        const SetTruth::File& ref = truth->files[inSet(set, reference->item.url)];
        musicToLine = reference->start - ref.start;
        for (const auto& p : result.placed) {
            const SetTruth::File& t = truth->files[inSet(set, p.item.url)];
            double error = std::fabs((p.start - reference->start) - (t.start - ref.start));
            double tolerance = t.filtered || ref.filtered ? 0.002 : 0.001;
            worst = std::max(worst, error);
            if (t.expect != "placed" || error >= tolerance || p.ambiguous)
                errors += cformat(" %s (écart %.4f s%s)", inSet(set, p.item.url).c_str(), error,
                                  p.ambiguous ? ", ambigu" : "");
        }
    }
    size_t expected = 0;
    for (const auto& [path, t] : truth->files) expected += t.expect == "placed";
    if (result.placed.size() != expected)
        errors += cformat(" %zu fichiers calés au lieu de %zu", result.placed.size(), expected);
    checks.push_back(check(name + " : calage" + cformat(" (écart max %.2f ms)", worst * 1000), errors.empty(),
                           "mal calés :" + errors));

    std::string misplaced;
    for (const auto& u : result.unsynced)
        if (truth->files[inSet(set, u.item.url)].expect != "unsynced") misplaced += " " + inSet(set, u.item.url);
    for (const auto& s : sources)
        for (const auto& u : s.unreadable)
            if (truth->files[inSet(set, u)].expect != "unreadable") misplaced += " " + inSet(set, u);
    checks.push_back(check(name + " : cas difficiles écartés", misplaced.empty(), "inattendus :" + misplaced));

    // Drops: each true drop found within 0.5 s, and nothing else.
    auto drops = DropDetector::detect(result, sources, 0.5);
    for (double& t : truth->drops) t += musicToLine;
    std::string dropErrors;
    for (double t : truth->drops) {
        bool found = std::any_of(drops.begin(), drops.end(), [&](const Drop& d) { return std::fabs(d.time - t) <= 0.5; });
        if (!found && result.duration() >= 30.0) dropErrors += " manqué " + Format::timecode(t) + cformat(" (%.1f s)", t);
    }
    for (const Drop& d : drops) {
        bool real = std::any_of(truth->drops.begin(), truth->drops.end(),
                                [&](double t) { return std::fabs(d.time - t) <= 0.5; });
        if (!real) dropErrors += cformat(" faux drop à %.1f s", d.time);
    }
    checks.push_back(check(name + cformat(" : drops (%zu trouvés)", drops.size()), dropErrors.empty(), dropErrors));

    std::string xml = PremiereExport::makeXML(name + " - SYNC", sources, result, {}, {});
    pugi::xml_document doc;
    auto parsed = doc.load_buffer(xml.data(), xml.size(), pugi::parse_default | pugi::parse_doctype);
    checks.push_back(check(name + " : XML", parsed && doc.child("xmeml"), std::string("XML invalide : ") + parsed.description()));
    return checks;
}

int run(const fs::path& fixtures, std::ostream& out) {
    std::vector<Check> checks = builtInChecks();
    std::vector<fs::path> sets;
    std::error_code ec;
    for (fs::directory_iterator it(fixtures, ec); !ec && it != fs::directory_iterator(); it.increment(ec))
        if (fs::exists(it->path() / "truth.json")) sets.push_back(it->path());
    std::sort(sets.begin(), sets.end());
    if (sets.empty()) out << "Aucun set de référence dans " << fixtures.string() << " : vérifications de calcul seules.\n";
    for (const auto& set : sets) {
        auto more = checkSet(set);
        checks.insert(checks.end(), more.begin(), more.end());
    }
    int passed = 0, failed = 0;
    for (const auto& c : checks) {
        if (c.passed) {
            ++passed;
            out << "ok     " << c.name << "\n";
        } else {
            ++failed;
            out << "ÉCHEC  " << c.name << " : " << c.detail << "\n";
        }
    }
    out << passed << " passed, " << failed << " failed\n";
    return failed == 0 ? 0 : 1;
}

}  // namespace qv::SelfTest
