// The generated "devices" set (recorders' takes, stamped files, camera
// chapters from a fast clock, polyphonic and Wave64/RF64 files), scanned
// and synchronised once per test program, with what its truth says.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/Json.h"
#include "support/Fixtures.h"
#include "sync/FolderSync.h"
#include "sync/MediaScanner.h"

namespace qv::test {

struct DevicesSet {
    struct Truth {
        double start = 0;     // seconds on the music's line
        double duration = 0;  // seconds of the file
        double drift = 0;     // ppm
        std::string expect, take, lane, follows;
    };

    std::filesystem::path folder;
    std::vector<MediaSource> sources;
    SyncResult result;
    std::map<std::string, Truth> truth;  // by path in the set

    // The set synchronised once; nothing when the generator is missing.
    static const DevicesSet* get() {
        static const std::optional<DevicesSet> once = [] {
            std::optional<DevicesSet> out;
            DevicesSet d;
            d.folder = generatedSet("devices", 1);
            if (d.folder.empty()) return out;
            auto text = readText(d.folder / "truth.json");
            auto j = json::parse(text);
            if (!j) return out;
            for (const auto& f : (*j)["files"])
                d.truth[json::string(f, "path", "")] = {json::number(f, "start", 0, limits::signedSetTime), json::number(f, "duration", 0, limits::signedSetTime),
                                                        json::number(f, "drift", 0, {-1e4, 1e4}), json::string(f, "expect", ""),
                                                        json::string(f, "take", ""), json::string(f, "lane", ""),
                                                        json::string(f, "follows", "")};
            d.sources = MediaScanner::scan(d.folder);
            FolderSync::Options options = FolderSync::defaultOptions();
            options.trace = false;
            d.result = FolderSync::run(d.sources, nullptr, options);
            out = std::move(d);
            return out;
        }();
        return once ? &*once : nullptr;
    }

    std::string pathOf(const MediaItem& item) const {
        return std::filesystem::relative(item.url, folder).generic_string();
    }
    const PlacedItem* placed(const std::string& path) const {
        for (const auto& p : result.placed)
            if (pathOf(p.item) == path) return &p;
        return nullptr;
    }
    // Where file time t of a placed file lies on the music's line, by the
    // truth, and by the result moved onto the music's line at the table.
    double truthAt(const std::string& path, double t) const {
        const Truth& f = truth.at(path);
        return f.start + t / (1 + f.drift * 1e-6);
    }
    double placedAt(const std::string& path, double t) const {
        const PlacedItem* table = placed("Son 1/table.wav");
        return placed(path)->lineTime(t) - table->start + truth.at("Son 1/table.wav").start;
    }
    std::vector<int> cameraSources() const {
        std::vector<int> out;
        for (size_t s = 0; s < sources.size(); ++s)
            if (sources[s].kind == SourceKind::camera) out.push_back(static_cast<int>(s));
        return out;
    }
};

}  // namespace qv::test
