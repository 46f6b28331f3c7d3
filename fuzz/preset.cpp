// Any bytes as a preset file: one that reads writes and reads back equal.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "looks/LookLibrary.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto preset = qv::LookLibrary::parsePreset(std::string(reinterpret_cast<const char*>(data), size), "secours");
    if (!preset) return 0;
    auto again = qv::LookLibrary::parsePreset(qv::LookLibrary::presetText(*preset), "secours");
    if (!again || qv::LookLibrary::presetText(*again) != qv::LookLibrary::presetText(*preset)) std::abort();
    return 0;
}
