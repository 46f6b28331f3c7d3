// MediaScanner: turns a set folder into sources. Each sub-folder (walked
// recursively) is one source; files lying in the set folder itself make one
// more, named after the set, standing last. A source's kind follows from its
// files: any video makes it a camera. Nothing here decides time.
//
// Never fails: unreadable folders give nothing, unreadable files are listed
// in their source's `unreadable`. Blocking; call it off the interface thread.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "sync/Media.h"

namespace qv::MediaScanner {

extern const std::vector<std::string> videoExtensions;
extern const std::vector<std::string> audioExtensions;

std::vector<MediaSource> scan(const std::filesystem::path& folder);

// The steps of `scan`, open for tests.
std::vector<std::filesystem::path> mediaFiles(const std::filesystem::path& folder, bool recursive);
std::optional<MediaSource> source(const std::string& name, const std::vector<std::filesystem::path>& files);
std::optional<MediaItem> probe(const std::filesystem::path& file);

}  // namespace qv::MediaScanner
