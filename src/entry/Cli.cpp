#include "entry/Cli.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>

#include "base/Format.h"
#include "base/Text.h"
#include "sync/FolderSync.h"
#include "sync/MediaScanner.h"

namespace fs = std::filesystem;

namespace qv::CLI {

namespace {

// A progress bar on standard error, only on a terminal: pipes and files get
// nothing, so standard output stays exactly the report.
class ProgressBar {
public:
    ProgressBar() : enabled_(isatty(STDERR_FILENO) == 1) {}
    ~ProgressBar() { finish(); }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void show(double fraction, const std::string& text) {
        if (!enabled_) return;
        const int width = 30;
        int filled = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * width);
        std::string bar(static_cast<size_t>(filled), '#');
        bar.append(static_cast<size_t>(width - filled), '-');
        std::string label = text.size() > 50 ? text.substr(0, 47) + "..." : text;
        std::fprintf(stderr, "\r[%s] %3d %% %-50s", bar.c_str(), static_cast<int>(fraction * 100), label.c_str());
        std::fflush(stderr);
        shown_ = true;
    }
    void finish() {
        if (!shown_) return;
        std::fprintf(stderr, "\r%-90s\r", "");
        std::fflush(stderr);
        shown_ = false;
    }

private:
    bool enabled_;
    bool shown_ = false;
};

void printListing(const std::vector<MediaSource>& sources, std::ostream& out) {
    for (const auto& s : sources) {
        out << "[" << (s.kind == SourceKind::camera ? "CAM" : "SON") << "] " << s.name << " : " << s.items.size()
            << " fichiers, " << Format::duration(s.totalDuration()) << "\n";
    }
}

void printSyncReport(const std::vector<MediaSource>& sources, const SyncResult& result, double seconds,
                     std::ostream& out) {
    out << cformat("Synchro en %.1f s", seconds) << "\n";
    for (const auto& p : result.placed) {
        std::string reliability = p.score ? cformat("%.1f", static_cast<double>(*p.score)) : "réf";
        if (p.ambiguous) reliability += " AMBIGU";
        out << "  " << padRight(sources[static_cast<size_t>(p.sourceIndex)].name, 8) << " "
            << padRight(p.item.fileName(), 22) << " " << cformat("début %9.3f s", p.start) << "  fiabilité "
            << reliability << "  (calé sur " << p.anchorName.value_or("-") << ")\n";
    }
    for (const auto& u : result.unsynced)
        out << "  NON CALÉ : " << sources[static_cast<size_t>(u.sourceIndex)].name << " / " << u.item.fileName() << "\n";
}

}  // namespace

int run(const std::vector<std::string>& arguments, std::ostream& out) {
    if (arguments.size() < 2) {
        out << "Usage : Quorvel --cli <dossier du set> <sortie.xml>\n";
        return 1;
    }
    fs::path folder = fs::absolute(arguments[0]);
    fs::path output = fs::absolute(arguments[1]);
    (void)output;

    std::vector<MediaSource> sources = MediaScanner::scan(folder);
    printListing(sources, out);
    out.flush();

    ProgressBar bar;
    auto t0 = std::chrono::steady_clock::now();
    SyncResult result = FolderSync::run(sources, [&](double f, const std::string& text) { bar.show(f, text); });
    double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    bar.finish();
    printSyncReport(sources, result, elapsed, out);
    return 0;
}

}  // namespace qv::CLI
