// Helpers of the export tests: a job over a folder with known file starts,
// running an exporter to its end, and reading an output back.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include "edit/Fakes.h"
#include "export/MltExport.h"
#include "entry/SetTruth.h"
#include "platform/MediaReader.h"
#include "platform/Process.h"
#include "render/VideoExportSession.h"
#include "setgen/FrameCode.h"
#include "support/Fixtures.h"
#include "support/MontageSet.h"
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
    std::map<std::string, double> starts;
    if (auto truth = SetTruth::read(set))
        for (const auto& [path, file] : truth->files) starts[path] = file.start;
    return starts;
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

// One export in a session of its own, run to its end.
inline Result<std::filesystem::path> renderNow(VideoRender::Job job, VideoCodec codec, const std::filesystem::path& to) {
    ManualScheduler scheduler;
    VideoExportSession exporter(scheduler);
    return exportNow(exporter, scheduler, std::move(job), codec, to);
}

// The picture of `video` at `t`; empty when it cannot be read.
inline media::RgbaFrame frameAt(const std::filesystem::path& video, double t) {
    auto reader = media::VideoReader::open(video);
    if (!reader) return {};
    auto f = reader->frameAt(t);
    return f ? (*f)->frame : media::RgbaFrame{};
}

// The frame code burnt into a picture of a generated set.
inline std::optional<setgen::framecode::Code> codeOf(const media::RgbaFrame& f) {
    return setgen::framecode::read(f.pixels.data(), f.width, f.height, f.width * 4);
}

inline const std::filesystem::path meltProgram = "/usr/bin/melt";

// Writes the montage of `job` as MLT and renders it with melt; the video, or
// an empty path with the failure recorded.
inline std::filesystem::path meltMontage(const VideoRender::Job& job, const std::filesystem::path& dir,
                                         const TimelineLook& look) {
    auto timeline = PremiereExport::montageTimeline(
        job.sources, job.result, job.segments, job.cameraSources, job.range, job.levels, job.audio, job.effects,
        [&](const Segment& s) {
            auto at = std::find_if(job.segments.begin(), job.segments.end(),
                                   [&](const Segment& x) { return x.start == s.start; }) -
                      job.segments.begin();
            return static_cast<size_t>(at) < job.planEffects.size() ? job.planEffects[static_cast<size_t>(at)]
                                                                    : ResolvedEffect{};
        },
        true);
    const std::filesystem::path mlt = dir / "montage l'été.mlt", video = dir / "melt.mp4";
    writeText(mlt, MltExport::write("montage", job.sources, timeline, job.muted, look, {}));
    auto run = process::run(meltProgram, {"-silent", "-quiet", mlt.string(), "-consumer", "avformat:" + video.string(),
                                          "vcodec=libx264", "crf=0", "preset=ultrafast", "pix_fmt=yuv444p",
                                          "acodec=aac", "real_time=0"});
    EXPECT_TRUE(run.ok() && run->exitCode == 0) << "melt failed";
    return std::filesystem::exists(video) ? video : std::filesystem::path();
}

// Reads the frame code of each of the `frames` frames of `video`, made from
// `job` at `rate` fps from set time `from`: each must show its plan's camera,
// the right file, and that file's frame for the set time (within `slack`
// frames; 0 asks for the exact frame), or be black where that camera films
// nothing. Returns how many frames were black.
inline int checkFrameCodes(const std::filesystem::path& video, const VideoRender::Job& job, double from, long frames,
                           double rate, double slack = 0, const std::string& label = {}) {
    struct File {
        int camera, clip;
        double at, fps, duration;
    };
    std::vector<File> files;
    for (const PlacedItem& p : job.result.placed) {
        if (!p.item.hasVideo) continue;
        const auto camera = std::find(job.cameraSources.begin(), job.cameraSources.end(), p.sourceIndex) -
                            job.cameraSources.begin();
        const std::string name = p.item.fileName();  // "clip 2.mp4"
        files.push_back({static_cast<int>(camera) + 1, std::stoi(name.substr(name.find(' ') + 1)), p.start,
                         p.item.frameRate, p.item.duration});
    }
    auto reader = media::VideoReader::open(video);
    if (!reader) {
        ADD_FAILURE() << label << " unreadable";
        return -1;
    }
    int black = 0;
    for (long n = 0; n < frames; ++n) {
        const double t = n / rate, setTime = t + from;
        auto pic = reader->frameAt(t + 0.5 / rate);
        if (!pic) {
            ADD_FAILURE() << label << " frame " << n << " unreadable";
            return -1;
        }
        auto code = codeOf((*pic)->frame);
        const Segment* plan = nullptr;
        for (const Segment& s : job.segments)
            if (s.start <= setTime + 0.0005) plan = &s;
        if (!plan) {
            ADD_FAILURE() << label << " frame " << n << " has no plan";
            return -1;
        }
        const File* file = nullptr;
        for (const File& x : files)
            if (x.camera == plan->camera + 1 && x.at <= setTime && setTime < x.at + x.duration) file = &x;
        if (!file) {
            EXPECT_FALSE(code.has_value()) << label << " frame " << n << " should be black";
            ++black;
            continue;
        }
        if (!code) {
            ADD_FAILURE() << label << " frame " << n << " has no frame code";
            continue;
        }
        EXPECT_EQ(code->camera, file->camera) << label << " frame " << n;
        EXPECT_EQ(code->clip, file->clip) << label << " frame " << n;
        const double expected = (setTime - file->at) * file->fps;
        if (slack == 0) EXPECT_EQ(code->frame, static_cast<long>(std::floor(expected + 1e-4))) << label << " frame " << n;
        else EXPECT_NEAR(code->frame, expected, slack) << label << " frame " << n;
    }
    return black;
}

// One 4 s camera file at 320×180 drawn by ffmpeg's drawbox filters, in a
// file whose name an XML writer must escape, and a one-plan job over it.
class OneCameraPicture : public ::testing::Test {
protected:
    static constexpr const char* kFile = "Cam 1/a & \"é\".mp4";
    void SetUp() override {
        if (!haveFFmpeg()) GTEST_SKIP() << "ffmpeg missing";
        std::filesystem::create_directories(dir_ / "set" / "Cam 1");
    }
    void camera(const std::string& background, const std::string& boxes) {
        ASSERT_TRUE(ffmpeg({"-f", "lavfi", "-i", "color=" + background + ":s=320x180:r=25:d=4", "-f", "lavfi", "-i",
                            "anullsrc=r=48000:cl=stereo", "-vf", boxes, "-c:v", "libx264", "-crf", "0", "-pix_fmt",
                            "yuv444p", "-c:a", "aac", "-t", "4", (dir_.path() / "set" / kFile).string()}));
    }
    // Three upright bars of colour on grey, for the grade.
    void bars() {
        camera("0x808080", "drawbox=x=0:y=0:w=80:h=180:color=0xc04020:t=fill,"
                           "drawbox=x=80:y=0:w=80:h=180:color=0x20a060:t=fill,"
                           "drawbox=x=160:y=0:w=80:h=180:color=0x3050c0:t=fill");
    }
    static ColorGrade someGrade() {
        ColorGrade grade;
        grade.contrast = 25;
        grade.saturation = 140;
        grade.temperature = 20;
        grade.exposure = 0.3;
        return grade;
    }
    VideoRender::Job job() {
        auto j = jobAt(dir_ / "set", {{kFile, 0}});
        j.segments = plans({{0, 0}}, 4);
        j.planEffects.resize(j.segments.size());
        return j;
    }
    static int green(const media::RgbaFrame& f, int x, int y) {
        return f.pixels[(static_cast<size_t>(y) * f.width + x) * 4 + 1];
    }
    // Width in pixels of the lit part of row `y`, and the first lit column.
    static int litWidth(const media::RgbaFrame& f, int y) {
        int width = 0;
        for (int x = 0; x < f.width; ++x) width += green(f, x, y) > 128;
        return width;
    }
    static int firstLit(const media::RgbaFrame& f, int y) {
        for (int x = 0; x < f.width; ++x)
            if (green(f, x, y) > 128) return x;
        return -1;
    }
    TempDir dir_;
};

}  // namespace qv::test
