// Helpers of the export tests: a job over a folder with known file starts,
// running an exporter to its end, and reading an output back.
#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include "base/Json.h"
#include "edit/Fakes.h"
#include "platform/MediaReader.h"
#include "platform/Process.h"
#include "render/VideoExportSession.h"
#include "sync/MediaScanner.h"

namespace qv::test {

// The sources of `folder` placed at the starts given by file path
// ("Cam 1/clip 1.mp4"); files not named are left out.
inline VideoRender::Job jobAt(const std::filesystem::path& folder, const std::map<std::string, double>& starts) {
    VideoRender::Job job;
    job.sources = MediaScanner::scan(folder);
    for (size_t s = 0; s < job.sources.size(); ++s) {
        if (job.sources[s].kind == SourceKind::camera) job.cameraSources.push_back(static_cast<int>(s));
        for (const MediaItem& item : job.sources[s].items) {
            auto it = starts.find(job.sources[s].name + "/" + item.fileName());
            if (it == starts.end()) continue;
            PlacedItem p;
            p.sourceIndex = static_cast<int>(s);
            p.item = item;
            p.start = it->second;
            job.result.placed.push_back(p);
        }
    }
    std::stable_sort(job.result.placed.begin(), job.result.placed.end(),
                     [](const PlacedItem& a, const PlacedItem& b) { return a.start < b.start; });
    job.range = {0, job.result.duration()};
    return job;
}

// The starts a generated set's truth gives.
inline std::map<std::string, double> truthStarts(const std::filesystem::path& set) {
    std::ifstream in(set / "truth.json");
    auto truth = json::Json::parse(in, nullptr, false);
    std::map<std::string, double> starts;
    for (const auto& f : truth["files"]) starts[f["path"].get<std::string>()] = f["start"].get<double>();
    return starts;
}

// Cuts at (time, camera) over `duration`.
inline std::vector<Segment> plans(const std::vector<std::pair<double, int>>& cuts, double duration) {
    std::vector<Cut> list;
    for (auto [t, c] : cuts) {
        Cut cut;
        cut.time = t;
        cut.camera = c;
        list.push_back(cut);
    }
    return Segment::build(list, duration);
}

// Runs one export to its end on a virtual main thread; the outcome `done` gave.
inline Result<std::filesystem::path> exportNow(VideoExportSession& exporter, ManualScheduler& scheduler,
                                               VideoRender::Job job, VideoCodec codec, const std::filesystem::path& to,
                                               bool retry = false, int* calls = nullptr,
                                               const std::function<void()>& whileRunning = {}) {
    std::optional<Result<std::filesystem::path>> outcome;
    int count = 0;
    exporter.start(std::move(job), codec, to, retry, [&](Result<std::filesystem::path> r) {
        ++count;
        outcome = std::move(r);
    });
    while (!outcome) {
        if (whileRunning) whileRunning();
        scheduler.advance(0.25);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    // Nothing more may come.
    scheduler.advance(1);
    if (calls) *calls = count;
    return std::move(*outcome);
}

// ffprobe's answer for one field of the first stream of `kind` ("v", "a").
inline std::string probeField(const std::filesystem::path& file, const std::string& kind, const std::string& field) {
    auto out = process::run("/usr/bin/ffprobe", {"-v", "error", "-select_streams", kind + ":0", "-show_entries",
                                                 "stream=" + field, "-of", "default=nw=1:nk=1", file.string()});
    if (!out) return {};
    std::string s = out->out;
    while (!s.empty() && (s.back() == '\n' || s.back() == '\r')) s.pop_back();
    return s;
}

}  // namespace qv::test
