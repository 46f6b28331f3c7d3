#include "sync/SoundChoice.h"

#include <algorithm>

#include "base/Text.h"

namespace qv::SoundChoice {

namespace {

// The one-channel lanes of take `take` of a source, in the order of their
// names: its inputs.
std::vector<const PlacedItem*> inputLanes(const SyncResult& result, int sourceIndex, int take) {
    std::vector<const PlacedItem*> out;
    for (const PlacedItem& p : result.placed)
        if (p.sourceIndex == sourceIndex && p.take == take && p.item.audioChannels == 1) out.push_back(&p);
    std::stable_sort(out.begin(), out.end(),
                     [](const PlacedItem* a, const PlacedItem* b) { return naturalCompare(a->lane, b->lane) < 0; });
    return out;
}

}  // namespace

int inputs(const SyncResult& result, int sourceIndex) {
    int most = 0;
    for (const PlacedItem& p : result.placed) {
        if (p.sourceIndex != sourceIndex) continue;
        const int lanes = p.take ? static_cast<int>(inputLanes(result, sourceIndex, p.take).size()) : 0;
        most = std::max(most, lanes > 0 ? lanes : p.item.audioChannels);
    }
    return most > 1 ? most : 0;
}

SyncResult apply(SyncResult result, const std::map<int, int>& choices) {
    for (PlacedItem& p : result.placed) {
        auto chosen = choices.find(p.sourceIndex);
        const int choice = chosen == choices.end() ? 0 : chosen->second;
        if (choice <= 0) continue;
        // A take whose inputs are files of their own: the chosen one is heard.
        if (p.take) {
            const auto lanes = inputLanes(result, p.sourceIndex, p.take);
            if (!lanes.empty()) {
                if (static_cast<size_t>(choice) <= lanes.size()) p.heard = lanes[static_cast<size_t>(choice) - 1] == &p;
                continue;
            }
        }
        if (choice <= std::min(p.item.audioChannels, 64)) p.sound.channels = uint64_t{1} << (choice - 1);
    }
    return result;
}

}  // namespace qv::SoundChoice
