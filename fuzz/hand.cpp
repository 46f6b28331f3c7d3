// Any bytes as a project's hand placements: every start read lies on the
// set's bounded time line, and laying them over a synchronisation keeps
// every file there, in order.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "edit/HandPlacement.h"
#include "persistence/ProjectFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto doc = qv::json::parse(std::string(reinterpret_cast<const char*>(data), size));
    if (!doc) return 0;
    const qv::ProjectFile project = qv::ProjectFile::fromJson(*doc, qv::Date{});
    for (const auto& [key, start] : project.handPlacements)
        if (!qv::limits::setTime.contains(start)) std::abort();

    qv::SyncResult automatic;
    for (const char* name : {"Cam 1/a.mp4", "Son 1/b.wav"}) {
        qv::PlacedItem p;
        p.item.url = std::filesystem::path("/set") / name;
        p.start = 3;
        automatic.placed.push_back(p);
    }
    qv::UnsyncedItem u;
    u.item.url = "/set/Son 1/c.wav";
    automatic.unsynced.push_back(u);
    const qv::SyncResult placed = qv::HandPlacement::apply(automatic, project.handPlacements, "/set");
    if (placed.placed.size() + placed.unsynced.size() != 3) std::abort();
    for (size_t i = 0; i < placed.placed.size(); ++i) {
        if (!qv::limits::setTime.contains(placed.placed[i].start)) std::abort();
        if (i > 0 && placed.placed[i - 1].start > placed.placed[i].start) std::abort();
    }
    return 0;
}
