#include "entry/SetTruth.h"

#include <algorithm>
#include <fstream>

#include "base/Json.h"
#include "sync/MediaScanner.h"

namespace qv {

std::optional<SetTruth> SetTruth::read(const std::filesystem::path& set) {
    std::ifstream in(set / "truth.json", std::ios::binary);
    if (!in) return std::nullopt;
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    auto j = json::parse(text);
    if (!j || !j->is_object()) return std::nullopt;
    SetTruth truth;
    if (const auto* files = json::field(*j, "files"); files && files->is_array())
        for (const auto& f : *files) {
            File file{json::number(f, "start", 0, limits::signedSetTime), json::boolean(f, "filtered", false),
                      json::string(f, "expect", ""), json::number(f, "drift", 0, Range{-1e4, 1e4}),
                      json::number(f, "duration", 0, limits::setTime), {}};
            if (const auto* events = json::field(f, "events"); events && events->is_array())
                for (const auto& e : *events)
                    file.events.push_back({json::string(e, "what", ""), json::number(e, "from", 0, limits::setTime),
                                           json::number(e, "to", 0, limits::setTime)});
            truth.files[json::string(f, "path", "")] = std::move(file);
        }
    if (const auto* drops = json::field(*j, "drops"); drops && drops->is_array())
        for (const auto& d : *drops)
            if (d.is_number()) truth.drops.push_back(d.get<double>());
    return truth;
}

VideoRender::Job SetTruth::placedJob(const std::filesystem::path& set) const {
    VideoRender::Job job;
    job.sources = MediaScanner::scan(set);
    for (size_t s = 0; s < job.sources.size(); ++s) {
        if (job.sources[s].kind == SourceKind::camera) job.cameraSources.push_back(static_cast<int>(s));
        for (const MediaItem& item : job.sources[s].items) {
            auto known = files.find(std::filesystem::relative(item.url, set).generic_string());
            if (known == files.end()) continue;
            PlacedItem p;
            p.sourceIndex = static_cast<int>(s);
            p.item = item;
            p.start = known->second.start;
            job.result.placed.push_back(std::move(p));
        }
    }
    std::stable_sort(job.result.placed.begin(), job.result.placed.end(),
                     [](const PlacedItem& a, const PlacedItem& b) { return a.start < b.start; });
    job.range = {0, job.result.duration()};
    return job;
}

}  // namespace qv
