// Program entry: picks one of three modes from the command line before
// anything else runs. `--selftest` wins over `--cli`; otherwise the desktop
// application starts.
#include <clocale>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "diagnostics/Log.h"
#include "entry/Cli.h"
#include "entry/SelfTest.h"
#include "platform/Notices.h"
#ifdef QUORVEL_WITH_UI
#include "ui/Application.h"
#endif

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    std::vector<std::string> args(argv + 1, argv + argc);
    // What the media layer works around while reading goes to the journal.
    qv::media::setNoticeSink([](const std::string& message) { qv::Log::write(message); });

    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--selftest") {
            std::string fixtures = i + 1 < args.size() ? args[i + 1] : "Tests/Fixtures";
            return qv::SelfTest::run(fixtures, std::cout);
        }
    }
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--cli") {
            std::vector<std::string> rest(args.begin() + static_cast<long>(i) + 1, args.end());
            return qv::CLI::run(rest, std::cout);
        }
    }
#ifdef QUORVEL_WITH_UI
    return qv::ui::run(argc, argv, args);
#else
    std::cout << "Quorvel : montage multicaméra de sets DJ.\n"
                 "  quorvel --cli <dossier du set> <sortie.xml> [options]   chaîne complète sans écran\n"
                 "  quorvel --selftest [dossier]                            vérification intégrée\n"
                 "Cette version a été construite sans interface graphique.\n";
    return 0;
#endif
}
