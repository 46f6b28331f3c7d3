// FileGroups: how the files of one source belong together before any sound
// is heard, from what the device wrote and how it named them.
//
//   take    files written at one moment: the same iXML family, the same
//           sample clock, or names that differ only by a track suffix
//           ("ZOOM0001_LR", "ZOOM0001_Tr1") with lengths that agree
//   pieces  one recording cut in files: the next file's sample clock
//           starts where this one's ends, or the names run in sequence
//           ("GX010050", "GX020050"); sequence alone is only a hint that
//           the placement confirms by time
//
// Pure functions of the items; any thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sync/Media.h"

namespace qv::FileGroups {

// Takes among `items` (one source): for each item its take number, from 1
// in order of first member, or 0 for an item alone.
std::vector<int> takes(const std::vector<const MediaItem*>& items);

// The lane a member of a take holds, named after its track: the part of
// its name that differs from its take's other names ("LR", "Tr1"), else
// its iXML track names, else its name without extension.
std::string laneName(const MediaItem& item, const std::vector<const MediaItem*>& take);

// How sure it is that `later` continues the recording of `earlier`.
enum class Link {
    none,
    sequence,  // names in sequence: to be confirmed by where the sound puts them
    clock,     // the sample clock runs on from one file to the next
};
Link link(const MediaItem& earlier, const MediaItem& later);

// For a clock link, seconds of `earlier`'s own clock from its start to
// `later`'s start (its length when nothing was lost between them).
std::optional<double> clockStep(const MediaItem& earlier, const MediaItem& later);

}  // namespace qv::FileGroups
