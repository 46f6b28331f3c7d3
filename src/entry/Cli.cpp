#include "entry/Cli.h"

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <limits>
#include <numeric>
#include <set>
#include <tuple>

#include "analysis/CameraAnalysis.h"
#include "base/Format.h"
#include "base/SafeText.h"
#include "base/SystemError.h"
#include "base/Text.h"
#include "edit/AutoEditor.h"
#include "edit/Cut.h"
#include "entry/CliPicture.h"
#include "entry/CliOutputs.h"
#include "entry/CliVideo.h"
#include "export/MltExport.h"
#include "export/OtioExport.h"
#include "export/PremiereExport.h"
#include "music/DropDetector.h"
#include "platform/Paths.h"
#include "playback/PreviewRoad.h"
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
        std::string label = terminalSafe(text);
        if (label.size() > 50) label = label.substr(0, 47) + "...";
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
        out << "[" << (s.kind == SourceKind::camera ? "CAM" : "SON") << "] " << terminalSafe(s.name) << " : " << s.items.size()
            << " fichiers, " << Format::duration(s.totalDuration()) << "\n";
    }
}

// Standard output keeps the report's fixed lines, for the scripts that read
// them; what comes beside (a clock's drift, why a file stayed aside) goes to
// standard error, one line each.
void printSyncReport(const std::vector<MediaSource>& sources, const SyncResult& result, double seconds,
                     std::ostream& out, std::ostream& err) {
    out << cformat("Synchro en %.1f s", seconds) << "\n";
    for (const auto& p : result.placed) {
        const std::string source = terminalSafe(sources[static_cast<size_t>(p.sourceIndex)].name);
        std::string reliability = p.placedBy == PlacedBy::clock        ? "horloge"
                                  : p.placedBy == PlacedBy::neighbours ? "voisins"
                                  : p.score                            ? cformat("%.1f", static_cast<double>(*p.score))
                                                                       : "réf";
        if (p.ambiguous) reliability += " AMBIGU";
        out << "  " << padRight(source, 8) << " " << padRight(terminalSafe(p.item.fileName()), 22) << " "
            << cformat("début %9.3f s", p.start) << "  fiabilité " << reliability << "  (calé sur "
            << terminalSafe(p.anchorName.value_or("-")) << ")\n";
        // A clock that runs visibly off is worth telling; 20 ppm is 72 ms an hour.
        if (p.drift && std::fabs(*p.drift) > 20)
            err << source << " / " << terminalSafe(p.item.fileName()) << " : dérive "
                << cformat("%+ld", std::lround(*p.drift)) << " ppm\n";
    }
    for (const auto& u : result.unsynced) {
        const std::string source = terminalSafe(sources[static_cast<size_t>(u.sourceIndex)].name);
        out << "  NON CALÉ : " << source << " / " << terminalSafe(u.item.fileName()) << "\n";
        if (!u.reason.empty())
            err << source << " / " << terminalSafe(u.item.fileName()) << " non calé : " << u.reason << "\n";
    }
}

std::vector<int> cameraSourceIndices(const std::vector<MediaSource>& sources) {
    std::vector<int> cameras;
    for (size_t i = 0; i < sources.size(); ++i)
        if (sources[i].kind == SourceKind::camera) cameras.push_back(static_cast<int>(i));
    return cameras;
}

// The automatic editor's edit of the whole set: 2 to 6 s, on the beat,
// faster on drops, seed 1, away from the unusable pictures.
std::vector<Cut> autoCuts(const std::vector<MediaSource>& sources, const SyncResult& result,
                          const analysis::CameraPictures& pictures) {
    std::vector<int> cameras = cameraSourceIndices(sources);
    std::set<int> allowed;
    for (size_t c = 0; c < cameras.size(); ++c) allowed.insert(static_cast<int>(c));
    return AutoEditor::generate({0, result.duration()}, AutoEditor::cameraRanges(result, cameras), allowed,
                                DropDetector::detect(result, sources, 0.5), DropDetector::onsets(result, sources),
                                AutoSettings{}, {}, pictures);
}

// The pictures of every camera looked at, with the progress on the bar and
// a line of what was found: "Analyse des images : 12.5 s inutilisables, 3.0 s moyennes".
analysis::CameraPictures analysePictures(const std::vector<MediaSource>& sources, const SyncResult& result,
                                         ProgressBar& bar, std::ostream& out) {
    const std::vector<int> cameras = cameraSourceIndices(sources);
    // Preview chunks an earlier run of the program left are read in place
    // of the originals; none is made here.
    analysis::MeasureOptions options;
    const ProxyCache chunks;
    options.roadOf = [&](const MediaItem& item) { return previewRoad(chunks, item, nullptr); };
    options.progress = [&](double f, bool) {
        bar.show(f, "Analyse des images");
        return true;
    };
    const auto measures = analysis::measureCameras(result, cameras, {}, options);
    bar.finish();
    analysis::CameraPictures pictures = analysis::picturesOf(result, cameras, measures);
    double unusable = 0, weak = 0;
    for (const auto& camera : pictures)
        for (const auto& s : camera) (s.grade == analysis::PictureGrade::unusable ? unusable : weak) += s.end - s.start;
    out << cformat("Analyse des images : %.1f s inutilisables, %.1f s moyennes", unusable, weak) << "\n";
    return pictures;
}

// The automatic editor's statistics: how long its plans are, and the faults
// an editor would see (a camera following itself, a plan with no picture).
void printAutoStatistics(const std::vector<MediaSource>& sources, const SyncResult& result,
                         const analysis::CameraPictures& pictures, std::ostream& out) {
    std::vector<int> cameras = cameraSourceIndices(sources);
    auto ranges = AutoEditor::cameraRanges(result, cameras);
    auto drops = DropDetector::detect(result, sources, 0.5);
    const double duration = result.duration();
    auto plans = Segment::build(autoCuts(sources, result, pictures), duration);

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

// Writes the whole document (a new file renamed over the old one, so a
// failure leaves the old one whole), or reports why not in French.
int writeOutput(const fs::path& output, const std::string& shownPath, const std::string& data, std::ostream& out) {
    if (Status written = paths::writeAtomically(output, data); !written) {
        out << "Erreur d'écriture : " << written.error().message << "\n";
        return 1;
    }
    out << "XML : " << terminalSafe(shownPath) << "\n";
    return 0;
}

// A number the run can use: finite, whatever the text says.
std::optional<double> finiteNumber(std::string_view text) {
    auto v = parseDouble(text);
    if (!v || !std::isfinite(*v)) return std::nullopt;
    return v;
}

// The edit the options ask for, shared by the XML and the video: the
// `--montage` cuts, else the automatic edit with `--auto`, else none (one
// plan on the first camera). What cannot be used is said on `err`.
VideoRequest editOf(const CommandLine& line, const std::vector<MediaSource>& sources, const SyncResult& result,
                    const analysis::CameraPictures& pictures, std::ostream& err) {
    VideoRequest edit;
    const double duration = result.duration();
    std::vector<std::string> warnings;
    if (line.montage) edit.cuts = parseCuts(*line.montage, &warnings);
    else if (line.autoEdit) edit.cuts = autoCuts(sources, result, pictures);
    edit.range = parseRange(line.range, duration, &warnings);
    for (const auto& w : warnings) err << w << "\n";

    const std::vector<int> cameras = cameraSourceIndices(sources);
    std::set<int> missing;
    for (const Cut& c : edit.cuts)
        if (c.camera < 0 || static_cast<size_t>(c.camera) >= cameras.size()) missing.insert(c.camera + 1);
    for (int n : missing)
        err << "Caméra " << n << " inexistante dans --montage : le set a " << cameras.size() << " caméra"
            << (cameras.size() > 1 ? "s" : "") << "\n";

    if (line.soundAll) edit.audio.mode = AudioSettings::Mode::all;
    if (line.soundCamera) edit.audio.mode = AudioSettings::Mode::camera;
    edit.audio.rushFade = 1.0;
    edit.audio.cutFade = true;
    edit.audio.masterDb = 0;

    if (const auto& raw = line.format) {
        auto known = outputFormatFromRaw(*raw);
        if (!known) err << "Format inconnu ignoré : " << terminalSafe(*raw) << " (16:9 est pris)\n";
        edit.format = known.value_or(OutputFormat::landscape);
    }
    if (const auto& raw = line.framing) {
        if (auto x = finiteNumber(*raw)) {
            for (const auto& s : sources)
                if (s.kind == SourceKind::camera) edit.framing[s.id] = CameraFrame{1.0, *x, 0.0};
        } else {
            err << "Valeur de --cadrage ignorée : " << terminalSafe(*raw) << " (un nombre est attendu)\n";
        }
    }

    edit.loudness = line.loudness;

    const bool drawn = line.effects;
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
                    const SyncResult& result, const PremiereExport::PictureChoices& picture, std::ostream& out) {
    const double duration = result.duration();
    std::string document = PremiereExport::makeMontageXML(
        setName + " - MONTAGE", sources, result, Segment::build(edit.cuts, duration), cameraSourceIndices(sources),
        edit.range, {}, {}, edit.audio, edit.effects, edit.effectFor, edit.format, edit.framing, false, picture);
    out << "Montage : " << edit.cuts.size() << " coupes, plage " << shortest(edit.range.start) << "-"
        << shortest(edit.range.end) << " s\n";
    return document;
}

// The timelines for the editors of Linux and OpenTimelineIO, beside the
// xmeml or instead of it: the montage with `--montage` or `--auto`, else
// the synchro.
int writeTimelines(const CommandLine& line, const VideoRequest& edit, const std::string& setName,
                   const std::vector<MediaSource>& sources, const SyncResult& result,
                   const PremiereExport::PictureChoices& picture, std::ostream& out) {
    if (!line.mlt && !line.otio) return 0;
    const bool montage = line.montage.has_value() || line.autoEdit;
    const std::string name = setName + (montage ? " - MONTAGE" : " - SYNCHRO");
    const PremiereExport::Timeline timeline =
        montage ? PremiereExport::montageTimeline(sources, result, Segment::build(edit.cuts, result.duration()),
                                                  cameraSourceIndices(sources), edit.range, {}, edit.audio,
                                                  edit.effects, edit.effectFor, false, picture)
                : PremiereExport::synchroTimeline(sources, result, {}, picture);
    const double from = montage ? edit.range.start : 0;
    std::vector<TimelineMarker> markers;
    for (const Drop& d : DropDetector::detect(result, sources, 0.5))
        if (d.time >= from && d.time - from <= timeline.duration)
            markers.push_back({d.time - from, "Drop " + std::to_string(d.id + 1)});

    auto write = [&](const std::string& shown, const std::string& label, const std::string& data) {
        if (Status written = paths::writeAtomically(fs::absolute(shown), data); !written) {
            out << "Erreur d'écriture : " << written.error().message << "\n";
            return 1;
        }
        out << label << " : " << terminalSafe(shown) << "\n";
        return 0;
    };
    if (line.mlt) {
        TimelineLook look;
        if (montage) look = {edit.format, edit.framing, {}, edit.effects, {}};
        look.aliases = paths::plainNameLinks(MltExport::unnameable(sources));
        if (int status = write(*line.mlt, "MLT", MltExport::write(name, sources, timeline, {}, look, markers)))
            return status;
    }
    if (line.otio) return write(*line.otio, "OTIO", OtioExport::write(name, sources, timeline, {}, markers));
    return 0;
}

// The files and folder the options ask to write, the xmeml first.
std::vector<Output> outputsOf(const CommandLine& line, const std::optional<std::string>& xml) {
    std::vector<Output> outputs;
    if (xml) outputs.push_back({*xml, Output::Kind::xml});
    if (line.mlt) outputs.push_back({*line.mlt, Output::Kind::xml});
    if (line.otio) outputs.push_back({*line.otio, Output::Kind::json});
    if (line.video) outputs.push_back({*line.video, Output::Kind::video});
    if (line.clipsFolder) outputs.push_back({*line.clipsFolder, Output::Kind::folder});
    return outputs;
}

std::string folderName(const fs::path& folder) {
    fs::path p = folder;
    if (!p.has_filename()) p = p.parent_path();
    return p.filename().string();
}

}  // namespace

// "t:cam,t:cam,...": pieces that are not exactly a finite number and a
// decimal integer are skipped, each named in `warnings`. The cuts come back
// in time order.
std::vector<Cut> parseCuts(const std::string& value, std::vector<std::string>* warnings) {
    std::vector<Cut> cuts;
    for (const auto& piece : split(value, ',')) {
        auto parts = split(piece, ':');
        std::optional<double> t;
        std::optional<long long> cam;
        if (parts.size() == 2) {
            t = finiteNumber(parts[0]);
            if (parts[1].find_first_not_of("0123456789+-") == std::string::npos) cam = parseInteger(parts[1]);
        }
        // Beyond an int a camera number means nothing; it is not a cut.
        if (!t || !cam || *cam <= std::numeric_limits<int>::min() || *cam > std::numeric_limits<int>::max()) {
            if (warnings)
                warnings->push_back("Coupe de --montage ignorée : « " + terminalSafe(piece) +
                                    " » (attendu : secondes:caméra)");
            continue;
        }
        Cut cut;
        cut.time = *t;
        cut.camera = static_cast<int>(*cam - 1);
        cuts.push_back(cut);
    }
    sortByTime(cuts);  // plans run from one cut to the next in time, whatever the order typed
    return cuts;
}

// "a-b" with a below b, clipped to the set; anything else is the whole set,
// said in `warnings`. A start beyond the set's end leaves an empty range there.
TimeRange parseRange(const std::optional<std::string>& value, double duration, std::vector<std::string>* warnings) {
    if (!value) return {0, duration};
    std::vector<double> numbers;
    for (const auto& part : split(*value, '-'))
        if (auto v = finiteNumber(part)) numbers.push_back(*v);
    if (numbers.size() != 2 || !(numbers[0] < numbers[1])) {
        if (warnings)
            warnings->push_back("Plage de --range ignorée : « " + terminalSafe(*value) +
                                " » (attendu : début-fin, début avant fin) ; tout le set est exporté");
        return {0, duration};
    }
    double end = std::min(numbers[1], duration);
    double start = std::min(numbers[0], end);
    return {start, end};
}

int run(const std::vector<std::string>& arguments, std::ostream& out) { return run(arguments, out, std::cerr); }

int run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
    return run(CommandLine::read(arguments), out, err);
}

int run(const CommandLine& line, std::ostream& out, std::ostream& err) {
    if (line.mode == CommandLine::Mode::help) {
        out << CommandLine::help();
        return 0;
    }
    if (line.mode == CommandLine::Mode::version) {
        out << CommandLine::version() << "\n";
        return 0;
    }
    if (line.error) {
        err << *line.error << "\n";
        return 1;
    }
    for (const auto& w : line.warnings) err << w << "\n";

    // With --mlt or --otio the xmeml may be left out: the folder alone will do.
    const bool timelineOnly = line.paths.size() == 1 && (line.mlt || line.otio);
    if ((line.paths.size() < 2 && !timelineOnly) || line.paths[0].empty() ||
        (!timelineOnly && line.paths[1].empty())) {
        out << "Usage : Quorvel --cli <dossier du set> <sortie.xml>\n";
        return 1;
    }
    const std::string& folderText = line.paths[0];
    const std::string outputText = timelineOnly ? std::string() : line.paths[1];
    fs::path folder = fs::absolute(folderText);
    fs::path output = timelineOnly ? fs::path() : fs::absolute(outputText);

    // Both paths are judged before any work: an hour of decoding must not
    // end on a folder that does not exist.
    std::error_code ec;
    if (!fs::is_directory(folder, ec)) {
        err << "Dossier du set introuvable : " << terminalSafe(folderText) << "\n";
        return 1;
    }
    if (fs::directory_iterator(folder, ec); ec) {
        err << "Dossier du set illisible : " << terminalSafe(folderText) << " (" << systemMessage(ec.value())
            << ")\n";
        return 1;
    }
    // Every output is judged before the scan, against every file under the set.
    const std::vector<Output> outputs = outputsOf(line, timelineOnly ? std::nullopt : std::optional(outputText));
    const OutputTarget::Protected owned = OutputTarget::ofFolder(folder);
    if (int status = judgeOutputs(outputs, owned, out, err)) return status;

    std::vector<MediaScanner::Refusal> refused;
    std::vector<MediaScanner::SetAside> setAside;
    std::vector<MediaSource> sources = MediaScanner::scan(folder, &refused, &setAside);
    for (const auto& r : refused) err << terminalSafe(r.message()) << "\n";
    reportSetAside(setAside, err);
    err.flush();
    printListing(sources, out);
    out.flush();

    ProgressBar bar;
    auto t0 = std::chrono::steady_clock::now();
    SyncResult result = FolderSync::run(sources, [&](double f, const std::string& text) { bar.show(f, text); });
    double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    bar.finish();
    printSyncReport(sources, result, elapsed, out, err);

    // The automatic edits (the whole set's, the drops') look at the pictures first.
    analysis::CameraPictures stretches;
    if ((line.autoEdit || line.clipsFolder) && !line.noAnalysis) stretches = analysePictures(sources, result, bar, out);

    if (line.autoEdit) printAutoStatistics(sources, result, stretches, out);
    if (line.drops) printDrops(sources, result, out);

    VideoRequest edit = editOf(line, sources, result, stretches, err);
    const PremiereExport::PictureChoices picture =
        pictureChoices(line.rate ? rateOf(*line.rate) : std::nullopt, line.constantRate, sources, result, out, err,
                       [&](double f, const std::string& text) { bar.show(f, text); });
    bar.finish();
    edit.rate = picture.rate;
    std::string document;
    // The automatic edit is written as the montage, as a hand-given one.
    if (line.montage || line.autoEdit)
        document = montage(edit, folderName(folder), sources, result, picture, out);
    else
        document = PremiereExport::makeXML(folderName(folder) + " - SYNC", sources, result, {}, {}, picture);
    out.flush();
    int status = timelineOnly ? 0 : writeOutput(output, outputText, document, out);
    if (status == 0) status = writeTimelines(line, edit, folderName(folder), sources, result, picture, out);
    if (status != 0) return status;

    // The finished video of the same edit.
    if (line.video) {
        edit.file = *line.video;
        edit.codec = line.codec;
        edit.sources = sources;
        edit.result = result;
        status = exportVideo(edit, out, err, [&](double f, const std::string& text) { bar.show(f, text); });
        bar.finish();
        if (status != 0) return status;
    }

    // The clips of the drops, vertical unless a format is asked.
    if (const auto& folderOfClips = line.clipsFolder) {
        ClipsRequest clips;
        clips.edit = std::move(edit);
        clips.edit.codec = line.codec;
        clips.edit.sources = sources;
        clips.edit.result = result;
        if (!line.format) clips.edit.format = OutputFormat::portrait;
        clips.folder = fs::absolute(*folderOfClips);
        clips.setName = folderName(folder);
        clips.drops = DropDetector::detect(result, sources, 0.5);
        clips.onsets = DropDetector::onsets(result, sources);
        clips.pictures = stretches;
        if (line.dropMargins) std::tie(clips.pre, clips.post) = *line.dropMargins;
        clips.owned = owned;
        status = exportDropClips(std::move(clips), out, err, [&](double f, const std::string& text) { bar.show(f, text); });
        bar.finish();
    }
    return status;
}

}  // namespace qv::CLI
