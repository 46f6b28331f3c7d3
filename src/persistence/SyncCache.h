// SyncCache: the stored synchronisation of one set folder, kept beside the
// projects so that reopening a set needs no decoding and no correlation.
// Each file is named by its stamp (path, size, modification time); the cache
// is only trusted while every stamp still matches (ProjectStore::restore).
//
// Its JSON form is strict, unlike the project file: every key is required
// (`score`, `anchorName`, `drift` and the top-level `candidates` may be left
// out), and any missing or mistyped value, or a start beyond
// limits::signedSetTime, makes the whole decode fail, which simply means
// "no cache".
// Binary arrays are base64 text of little-endian float32 values.
// Plain values, safe to copy to any thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/Json.h"

namespace qv {

struct SyncCache {
    struct FileStamp {
        std::string path;    // the file's path as the scanner gave it
        int64_t size = 0;    // bytes
        double modified = 0; // seconds since 1970-01-01 00:00:00 UTC

        // The file system's answer now; nothing when the file cannot be
        // queried. Links are followed, as opening the file would.
        static std::optional<FileStamp> of(const std::filesystem::path& file);
        // {"path", "size", "modified"}, as every cache of a set writes it.
        json::Json toJson() const;
        static std::optional<FileStamp> fromJson(const json::Json& j);

        bool operator==(const FileStamp&) const = default;
    };

    struct Placed {
        FileStamp file;
        double start = 0;  // seconds on the set's time line
        std::optional<float> score;
        std::optional<std::string> anchorName;
        bool ambiguous = false;
        std::vector<uint8_t> waveform;  // raw float32 little-endian
        std::vector<uint8_t> bass;
        // ppm; optional and left out when absent: caches written before the
        // drift was measured still load, as files without one.
        std::optional<double> drift;

        // How the file stands among its source's files (PlacedItem); all
        // optional, left out at their defaults, bounded when read back.
        int take = 0;                  // 0..maxTake
        std::string lane{};            // at most maxLane bytes
        bool heard = true;
        std::string follows{};         // path of the piece before it; must be a placed file of the cache
        int soundStream = 0;           // 0..63
        uint64_t soundChannels = 0;    // bit k for channel k; 0 for all
        std::string placedBy{};        // "", "horloge" or "voisins"

        bool operator==(const Placed&) const = default;
    };

    // A start the sound proposed for a file, with its correlation score.
    struct Candidate {
        double start = 0;
        float strength = 0;
        bool operator==(const Candidate&) const = default;
    };

    static constexpr int maxTake = 100000;
    static constexpr size_t maxLane = 256;

    std::vector<Placed> placed;
    std::vector<FileStamp> unsynced;
    // The best starts of each file (placed or not), by the stamp's path;
    // optional in the file, so older caches still load without them.
    std::map<std::string, std::vector<Candidate>> candidates;

    bool operator==(const SyncCache&) const = default;

    json::Json toJson() const;
    static std::optional<SyncCache> fromJson(const json::Json& j);
};

// Standard base64 with padding; decoding refuses anything else.
std::string base64Encode(const std::vector<uint8_t>& bytes);
std::optional<std::vector<uint8_t>> base64Decode(std::string_view text);

}  // namespace qv
