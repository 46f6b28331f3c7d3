// Presets: the named kinds of set the generator makes, from a 20-second
// set for unit tests to an hour for benchmarks, plus the sets of hard cases
// (damaged, silent, unrelated, very long against very short files).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "SetPlan.h"
#include "base/Result.h"

namespace qv::setgen {

const std::vector<std::string>& presetNames();

// The plan of `preset` for `seed`; an unknown name is an error.
Result<SetPlan> makePlan(const std::string& preset, uint64_t seed);

}  // namespace qv::setgen
