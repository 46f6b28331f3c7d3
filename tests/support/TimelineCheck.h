// Readers of the timeline files for the other editors, written from their
// public descriptions, so a test judges a file as an importer would:
// OpenTimelineIO JSON (every object's schema, ranges that add up) and MLT
// XML (strict XML, producers, entries and filters that resolve and stay
// inside their files, key frames inside their clip).
//
// Free of any test framework so GoogleTest and Qt Test suites share it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qv::test {

// One child of an OpenTimelineIO track, placed by adding up the durations
// before it, in frames of the timeline's rate.
struct OtioItem {
    bool gap = false;
    int64_t start = 0, duration = 0;  // on the track
    int64_t in = 0;                   // in the file
    std::string name, url;
    bool enabled = true;
};
struct OtioTrack {
    std::string kind, name;
    std::vector<OtioItem> items;
    int64_t length() const { return items.empty() ? 0 : items.back().start + items.back().duration; }
};
struct OtioMarker {
    int64_t at = 0;
    std::string name;
};
struct OtioTimeline {
    std::string name;
    double rate = 0;
    std::vector<OtioTrack> tracks;
    std::vector<OtioMarker> markers;
};

// Reads `bytes`; every departure from the schema goes to `problems`.
OtioTimeline readOtio(const std::string& bytes, std::vector<std::string>& problems);

// One line per fault of an MLT document; empty for a sound one.
std::vector<std::string> mltProblems(const std::string& bytes);

// The bytes of a file URL's path, its escapes undone.
std::string urlPath(const std::string& url);

}  // namespace qv::test
