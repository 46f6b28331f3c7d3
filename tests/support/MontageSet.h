// Cuts and plans for the tests, and the small edit the timeline-file tests
// write out: two cameras and a stereo table recorder over 60 s, camera A a
// stereo file to 45 s and one from 50 s, camera B mono from 5 to 58 s; the
// usual plans A 0-15, B 15-25, A 25-45, B 45-55, A 55-60. Names are given so
// a test can make them hard to write.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "edit/Cut.h"
#include "sync/Media.h"
#include "sync/SyncResult.h"

namespace qv::test {

// A file of `duration` seconds: pictures (full HD at 25 fps unless told) for
// any name but a ".wav" one, and `channels` of sound at 48 kHz.
inline MediaItem mediaFile(const std::string& path, double duration, int channels, double fps = 25,
                           int width = 1920, int height = 1080) {
    MediaItem m;
    m.id = Uuid::make();
    m.url = path;
    m.duration = duration;
    m.hasVideo = !path.ends_with(".wav");
    m.frameRate = m.hasVideo ? fps : 0;
    m.width = m.hasVideo ? width : 0;
    m.height = m.hasVideo ? height : 0;
    m.audioChannels = channels;
    m.sampleRate = channels ? 48000 : 0;
    return m;
}

// A cut to `camera` at `time`.
inline Cut cutAt(double time, int camera, PlanEffect effect = PlanEffect::automatic) {
    Cut c;
    c.time = time;
    c.camera = camera;
    c.effect = effect;
    return c;
}

// Cuts at (time, camera) over `duration`.
inline std::vector<Segment> plans(const std::vector<std::pair<double, int>>& cuts, double duration) {
    std::vector<Cut> list;
    for (auto [t, camera] : cuts) list.push_back(cutAt(t, camera));
    return Segment::build(list, duration);
}

struct MontageSet {
    std::vector<MediaSource> sources;
    SyncResult result;

    MontageSet(const std::string& cameraB, const std::string& fileA1, const std::string& fileB,
               const std::string& table)
        : sources{{Uuid::make(), "Cam A", SourceKind::camera, {}, {}},
                  {Uuid::make(), cameraB, SourceKind::camera, {}, {}},
                  {Uuid::make(), "Table", SourceKind::audio, {}, {}}} {
        auto place = [&](int s, MediaItem m, double at) {
            result.placed.push_back({s, m, at, {}, {}, false, {}, {}, {}});
        };
        place(2, mediaFile(table, 60, 2), 0);
        place(0, mediaFile(fileA1, 45, 2), 0);
        place(1, mediaFile(fileB, 53, 1), 5);
        place(0, mediaFile("/set/Cam A/A2.mov", 10, 2), 50);
    }
    static std::vector<Segment> usualPlans() { return plans({{0, 0}, {15, 1}, {25, 0}, {45, 1}, {55, 0}}, 60); }
};

}  // namespace qv::test
