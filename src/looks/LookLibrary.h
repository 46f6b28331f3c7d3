// The user's store of `.cube` LUTs and saved grades, shared by all projects.
//
// One folder, `base()`: QUORVEL_PROJECTS_DIR when set, else
// $XDG_DATA_HOME/Quorvel. Below it "LUT" holds `.cube` files under their
// own names and "Préréglages" the presets as `.quorvellook` JSON files
// (keys "name" and "grade", pretty-printed, keys sorted). Folders are made
// on demand. The base is read on every call, so moving the variable moves
// the library.
//
// Threads: `lut()` may be called from any thread (GradeMath bakes cubes off
// the main thread); parsed LUTs are cached by path under a lock of their
// own. Everything else touches files and belongs to the main thread.
// Failures come back as values with a French message for a toast.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "base/Result.h"
#include "looks/ColorGrade.h"
#include "looks/CubeLUT.h"

namespace qv::LookLibrary {

struct Preset {
    std::string name;  // identifies the preset and names its file
    ColorGrade grade;
    bool operator==(const Preset&) const = default;
};

inline constexpr const char* kLutFolder = "LUT";
inline constexpr const char* kPresetFolder = "Préréglages";
inline constexpr const char* kPresetExtension = ".quorvellook";

std::filesystem::path base();

// File names ending in ".cube" (any case) in "LUT", in natural order; empty
// when the folder does not exist.
std::vector<std::string> luts();

// The parsed LUT of that file name, from the cache while the file keeps its
// stamp (device, inode, size, modification time), else read now. Null when
// the file is missing or refused; a refused file is not read again until it
// changes.
std::shared_ptr<const CubeLUT> lut(const std::string& name);

// All presets that read, sorted by name in natural order. A file without a
// readable "name" is listed under its file name.
std::vector<Preset> presets();

// Writes the preset atomically, replacing one of the same name. Path
// separators and control characters in the name become "-" in the file name.
Status save(const Preset& preset);

// Removes the preset's file; a preset that has no file is not an error.
Status remove(const Preset& preset);

// Parses the file and, when it is a LUT, copies it into "LUT" under its own
// name, replacing a file and a cache entry of that name. Returns the name.
// A file that does not parse is refused and nothing is copied.
Result<std::string> importLUT(const std::filesystem::path& file);

// By extension (any case): a `.cube` is imported as a LUT and saved as a
// preset named after the file (neutral grade, that LUT at 100 %); a
// `.quorvellook` is read, loses a LUT reference that cannot be found, and is
// saved. Anything else is refused. Returns the saved preset.
Result<Preset> importPreset(const std::filesystem::path& file);

// The preset's JSON file text, and a preset read back from one. Reading is
// tolerant; nothing only when the text is not a JSON object or its "grade"
// is not an object. `fallbackName` stands in for a missing "name".
std::string presetText(const Preset& preset);
std::optional<Preset> parsePreset(const std::string& text, const std::string& fallbackName);

}  // namespace qv::LookLibrary
