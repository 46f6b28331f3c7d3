// What the set generator knows of a set it wrote (truth.json): each file's
// true start on the music's time line, whether its microphone filters the
// sound, where it must end up, and the drop times. Read by the self check,
// the benchmarks and the tests that must not hang on the sync.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "render/VideoRender.h"

namespace qv {

struct SetTruth {
    struct File {
        double start = 0;  // seconds on the music's time line
        bool filtered = false;
        std::string expect;  // "placed", "unsynced", "unreadable" or "ignored"
        double drift = 0;     // ppm its clock runs fast against the music's
        double duration = 0;  // seconds of the file
        // What the camera saw: "pan", or a fault ("black", "blur", "shake",
        // "hand", "frozen"), on the file's own time line.
        struct Event {
            std::string what;
            double from = 0, to = 0;
        };
        std::vector<Event> events;
    };
    std::map<std::string, File> files;  // by path inside the set
    std::vector<double> drops;           // seconds on the music's time line

    // Nothing when the file is missing or not a JSON object.
    static std::optional<SetTruth> read(const std::filesystem::path& set);

    // `set` scanned, its camera numbers given, and every file this truth
    // knows placed at its true start (ascending), over the whole set: the
    // synchronisation the generator meant, ready for the player or a render.
    VideoRender::Job placedJob(const std::filesystem::path& set) const;
};

}  // namespace qv
