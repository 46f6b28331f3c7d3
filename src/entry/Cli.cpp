#include "entry/Cli.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <numeric>

#include "base/Format.h"
#include "base/Text.h"
#include "edit/AutoEditor.h"
#include "edit/Cut.h"
#include "entry/CliVideo.h"
#include "export/PremiereExport.h"
#include "music/DropDetector.h"
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

bool hasFlag(const std::vector<std::string>& args, const std::string& flag) {
    return std::find(args.begin(), args.end(), flag) != args.end();
}

// The value behind an option; nothing when the option is absent or last.
std::optional<std::string> optionValue(const std::vector<std::string>& args, const std::string& flag) {
    auto it = std::find(args.begin(), args.end(), flag);
    if (it == args.end() || it + 1 == args.end()) return std::nullopt;
    return *(it + 1);
}

std::vector<int> cameraSourceIndices(const std::vector<MediaSource>& sources) {
    std::vector<int> cameras;
    for (size_t i = 0; i < sources.size(); ++i)
        if (sources[i].kind == SourceKind::camera) cameras.push_back(static_cast<int>(i));
    return cameras;
}

// The automatic editor's edit of the whole set: 2 to 6 s, on the beat,
// faster on drops, seed 1.
std::vector<Cut> autoCuts(const std::vector<MediaSource>& sources, const SyncResult& result) {
    std::vector<int> cameras = cameraSourceIndices(sources);
    std::set<int> allowed;
    for (size_t c = 0; c < cameras.size(); ++c) allowed.insert(static_cast<int>(c));
    return AutoEditor::generate({0, result.duration()}, AutoEditor::cameraRanges(result, cameras), allowed,
                                DropDetector::detect(result, sources, 0.5), DropDetector::onsets(result, sources),
                                AutoSettings{}, {});
}

// The automatic editor's statistics: how long its plans are, and the faults
// an editor would see (a camera following itself, a plan with no picture).
void printAutoStatistics(const std::vector<MediaSource>& sources, const SyncResult& result, std::ostream& out) {
    std::vector<int> cameras = cameraSourceIndices(sources);
    auto ranges = AutoEditor::cameraRanges(result, cameras);
    auto drops = DropDetector::detect(result, sources, 0.5);
    const double duration = result.duration();
    auto plans = Segment::build(autoCuts(sources, result), duration);

    double shortest = 0, longest = 0, total = 0, afterDropTotal = 0;
    int sameCamera = 0, withoutPicture = 0, afterDrop = 0;
    for (size_t i = 0; i < plans.size(); ++i) {
        const Segment& p = plans[i];
        double length = p.end - p.start;
        shortest = i == 0 ? length : std::min(shortest, length);
        longest = i == 0 ? length : std::max(longest, length);
        total += length;
        if (i > 0 && plans[i - 1].camera == p.camera) ++sameCamera;
        bool filmed = false;
        if (p.camera >= 0 && static_cast<size_t>(p.camera) < ranges.size())
            for (const auto& r : ranges[static_cast<size_t>(p.camera)])
                filmed = filmed || (r.start - 0.01 <= p.start && p.end <= r.end + 0.01);
        if (!filmed) ++withoutPicture;
        bool isAfterDrop = std::any_of(drops.begin(), drops.end(),
                                       [&](const Drop& d) { return p.start >= d.time && p.start < d.time + 16.0; });
        if (isAfterDrop) {
            ++afterDrop;
            afterDropTotal += length;
        }
    }
    double mean = plans.empty() ? 0 : total / static_cast<double>(plans.size());
    double meanAfterDrop = afterDrop ? afterDropTotal / afterDrop : 0;
    out << cformat("Auto : %d plans, durée %.1f à %.1f s (moy. %.1f) · même caméra 2 fois de suite : %d · plan sans "
                   "image : %d · moy. après drop : %.1f s",
                   static_cast<int>(plans.size()), shortest, longest, mean, sameCamera, withoutPicture, meanAfterDrop)
        << "\n";
}

void printDrops(const std::vector<MediaSource>& sources, const SyncResult& result, std::ostream& out) {
    std::string line;
    for (const Drop& d : DropDetector::detect(result, sources, 0.5)) {
        if (!line.empty()) line += " · ";
        line += Format::timecode(d.time) + cformat(" (force %.0f %%)", d.strength * 100);
    }
    out << "Drops : " << line << "\n";
}

// Writes the whole document, or reports why not in the system's words.
int writeOutput(const fs::path& output, const std::string& data, std::ostream& out) {
    std::ofstream file(output, std::ios::binary | std::ios::trunc);
    if (file) file.write(data.data(), static_cast<std::streamsize>(data.size()));
    if (file) file.close();
    if (!file) {
        int code = errno ? errno : EIO;
        out << "Erreur d'écriture : " << std::strerror(code) << "\n";
        return 1;
    }
    out << "XML : " << output.string() << "\n";
    return 0;
}

// "t:cam,t:cam,...": pieces that are not exactly a number and a decimal
// integer are skipped without a word.
std::vector<Cut> parseCuts(const std::string& value) {
    std::vector<Cut> cuts;
    for (const auto& piece : split(value, ',')) {
        auto parts = split(piece, ':');
        if (parts.size() != 2) continue;
        auto t = parseDouble(parts[0]);
        auto cam = parseInteger(parts[1]);
        if (!t || !cam || parts[1].find_first_not_of("0123456789+-") != std::string::npos) continue;
        Cut cut;
        cut.time = *t;
        cut.camera = static_cast<int>(*cam - 1);
        cuts.push_back(cut);
    }
    return cuts;
}

// "a-b" with a below b, clipped to the set; anything else is the whole set.
// A start beyond the set's end leaves an empty range there.
TimeRange parseRange(const std::optional<std::string>& value, double duration) {
    if (!value) return {0, duration};
    std::vector<double> numbers;
    for (const auto& part : split(*value, '-'))
        if (auto v = parseDouble(part)) numbers.push_back(*v);
    if (numbers.size() != 2 || !(numbers[0] < numbers[1])) return {0, duration};
    double end = std::min(numbers[1], duration);
    double start = std::min(numbers[0], end);
    return {start, end};
}

// The edit the options ask for, shared by the XML and the video: the
// `--montage` cuts, else the automatic edit with `--auto`, else none (one
// plan on the first camera).
VideoRequest editOf(const std::vector<std::string>& args, const std::vector<MediaSource>& sources,
                    const SyncResult& result) {
    VideoRequest edit;
    const double duration = result.duration();
    if (auto cutsText = optionValue(args, "--montage")) edit.cuts = parseCuts(*cutsText);
    else if (hasFlag(args, "--auto")) edit.cuts = autoCuts(sources, result);
    edit.range = parseRange(optionValue(args, "--range"), duration);

    if (hasFlag(args, "--son-tout")) edit.audio.mode = AudioSettings::Mode::all;
    if (hasFlag(args, "--son-camera")) edit.audio.mode = AudioSettings::Mode::camera;
    edit.audio.rushFade = 1.0;
    edit.audio.cutFade = true;
    edit.audio.masterDb = 0;

    if (auto raw = optionValue(args, "--format"))
        edit.format = outputFormatFromRaw(*raw).value_or(OutputFormat::landscape);
    if (auto raw = optionValue(args, "--cadrage")) {
        if (auto x = parseDouble(*raw)) {
            for (const auto& s : sources)
                if (s.kind == SourceKind::camera) edit.framing[s.id] = CameraFrame{1.0, *x, 0.0};
        }
    }

    const bool drawn = hasFlag(args, "--effets");
    edit.effectFor = [effects = edit.effects, drawn](const Segment& plan) {
        if (!drawn) return ResolvedEffect{};
        EffectCameras cameras;
        cameras.zoom = true;
        cameras.shake = plan.camera % 2 == 1;
        return MotionFX::resolve(PlanEffect::automatic, PlanLooks{}, plan.start, cameras, effects);
    };
    return edit;
}

std::string montage(const VideoRequest& edit, const std::string& setName, const std::vector<MediaSource>& sources,
                    const SyncResult& result, std::ostream& out) {
    const double duration = result.duration();
    std::string document = PremiereExport::makeMontageXML(
        setName + " - MONTAGE", sources, result, Segment::build(edit.cuts, duration), cameraSourceIndices(sources),
        edit.range, {}, {}, edit.audio, edit.effects, edit.effectFor, edit.format, edit.framing, false);
    out << "Montage : " << edit.cuts.size() << " coupes, plage " << shortest(edit.range.start) << "-"
        << shortest(edit.range.end) << " s\n";
    return document;
}

std::string folderName(const fs::path& folder) {
    fs::path p = folder;
    if (!p.has_filename()) p = p.parent_path();
    return p.filename().string();
}

}  // namespace

int run(const std::vector<std::string>& arguments, std::ostream& out) {
    if (arguments.size() < 2) {
        out << "Usage : Quorvel --cli <dossier du set> <sortie.xml>\n";
        return 1;
    }
    fs::path folder = fs::absolute(arguments[0]);
    fs::path output = fs::absolute(arguments[1]);

    std::vector<MediaSource> sources = MediaScanner::scan(folder);
    printListing(sources, out);
    out.flush();

    ProgressBar bar;
    auto t0 = std::chrono::steady_clock::now();
    SyncResult result = FolderSync::run(sources, [&](double f, const std::string& text) { bar.show(f, text); });
    double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    bar.finish();
    printSyncReport(sources, result, elapsed, out);

    if (hasFlag(arguments, "--auto")) printAutoStatistics(sources, result, out);
    if (hasFlag(arguments, "--drops")) printDrops(sources, result, out);

    VideoRequest edit = editOf(arguments, sources, result);
    std::string document;
    if (optionValue(arguments, "--montage"))
        document = montage(edit, folderName(folder), sources, result, out);
    else
        document = PremiereExport::makeXML(folderName(folder) + " - SYNC", sources, result, {}, {});
    out.flush();
    int status = writeOutput(output, document, out);
    if (status != 0) return status;

    // The finished video of the same edit.
    if (auto video = optionValue(arguments, "--video")) {
        edit.file = *video;
        edit.codec = optionValue(arguments, "--codec").value_or("");
        edit.sources = sources;
        edit.result = result;
        status = exportVideo(std::move(edit), out, [&](double f, const std::string& text) { bar.show(f, text); });
        bar.finish();
    }
    return status;
}

}  // namespace qv::CLI
