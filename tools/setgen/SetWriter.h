// SetWriter: carries out a SetPlan in a folder. Renders the music, records
// each file through its microphones, encodes it, then writes truth.json last,
// so a folder with a truth file is a complete set. Progress lines in French
// go to `log`.
#pragma once

#include <filesystem>
#include <ostream>

#include "SetPlan.h"
#include "base/Result.h"

namespace qv::setgen {

// The folder may be missing, empty, or hold an earlier generated set (which
// is replaced); any other content is left alone and the call fails.
Status writeSet(const SetPlan& plan, const std::filesystem::path& folder, std::ostream& log);

}  // namespace qv::setgen
