// quorvel-setgen: writes a synthetic set folder (cameras, recorders, hard
// cases) and its truth.json from a preset and a seed, for tests, the demo
// and benchmarks. Usage: quorvel-setgen [--preset NOM] [--seed N] <dossier>.
#include <iostream>
#include <string>
#include <vector>

#include "Presets.h"
#include "SetWriter.h"
#include "base/Text.h"

namespace {

void usage(std::ostream& out) {
    out << "Usage : quorvel-setgen [--preset NOM] [--seed N] <dossier de sortie>\n"
           "Préréglages :";
    for (const auto& name : qv::setgen::presetNames()) out << " " << name;
    out << " (par défaut : test). Graine par défaut : 1.\n";
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    std::string preset = "test";
    uint64_t seed = 1;
    std::string folder;

    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "-h" || a == "--help") {
            usage(std::cout);
            return 0;
        }
        if ((a == "--preset" || a == "--seed") && i + 1 >= args.size()) {
            std::cerr << "Valeur manquante après " << a << "\n";
            usage(std::cerr);
            return 2;
        }
        if (a == "--preset") {
            preset = args[++i];
        } else if (a == "--seed") {
            auto n = qv::parseInteger(args[++i]);
            if (!n || *n < 0) {
                std::cerr << "Graine invalide : " << args[i] << "\n";
                return 2;
            }
            seed = static_cast<uint64_t>(*n);
        } else if (!a.empty() && a[0] == '-') {
            std::cerr << "Option inconnue : " << a << "\n";
            usage(std::cerr);
            return 2;
        } else if (folder.empty()) {
            folder = a;
        } else {
            std::cerr << "Un seul dossier de sortie est attendu.\n";
            usage(std::cerr);
            return 2;
        }
    }
    if (folder.empty()) {
        usage(std::cerr);
        return 2;
    }

    auto plan = qv::setgen::makePlan(preset, seed);
    if (!plan) {
        std::cerr << plan.error().message << "\n";
        usage(std::cerr);
        return 2;
    }
    qv::Status written = qv::setgen::writeSet(*plan, folder, std::cerr);
    if (!written) {
        std::cerr << "Erreur : " << written.error().message << "\n";
        return 1;
    }
    return 0;
}
