// Program entry: reads the whole command line first (entry/CommandLine), then
// runs one mode. `--help` and `--version` answer without a display;
// `--selftest` wins over `--cli`; otherwise the desktop application starts.
#include <clocale>
#include <iostream>
#include <string>
#include <vector>

#include "diagnostics/Log.h"
#include "entry/Cli.h"
#include "entry/CommandLine.h"
#include "entry/SelfTest.h"
#include "platform/Notices.h"
#ifdef QUORVEL_WITH_UI
#include "ui/Application.h"
#endif

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    const std::vector<std::string> args(argv + 1, argv + argc);
    const qv::CommandLine line = qv::CommandLine::read(args);
    // What the media layer works around while reading goes to the journal.
    qv::media::setNoticeSink([](const std::string& message) { qv::Log::write(message); });

    using Mode = qv::CommandLine::Mode;
    // Help, version and a refused value are answered like the run without a
    // screen, whatever mode the line asked for.
    if (line.mode == Mode::help || line.mode == Mode::version || line.mode == Mode::cli || line.error)
        return qv::CLI::run(line, std::cout, std::cerr);
    if (line.mode == Mode::selftest) return qv::SelfTest::run(line.fixtures, std::cout);
#ifdef QUORVEL_WITH_UI
    // The window reads its own arguments again, and Qt takes its own (-platform…).
    return qv::ui::run(argc, argv, args);
#else
    std::cout << qv::CommandLine::help() << "\nCette version a été construite sans interface graphique.\n";
    return 0;
#endif
}
