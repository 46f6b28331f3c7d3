// PictureCache: the stored picture analysis of one set folder, beside its
// sync cache ("{key}.pictures.json" in the projects' folder), so that a set
// reopened is not looked at again. Each file's measures are kept under its
// stamp (path, size, modification time) and trusted only while the file
// still has it: a file changed or added is measured again, alone.
//
// Read tolerantly: an entry that does not decode is dropped, and every value
// read back is held to the range the analysis can give, so a damaged or
// edited file can only lose measures, never mislead the editor.
#pragma once

#include <filesystem>
#include <optional>
#include <vector>

#include "analysis/CameraAnalysis.h"
#include "base/Json.h"
#include "persistence/SyncCache.h"

namespace qv {

struct PictureCache {
    struct Entry {
        SyncCache::FileStamp file;
        analysis::FileMeasures measures;
    };
    std::vector<Entry> files;

    json::Json toJson() const;
    static PictureCache fromJson(const json::Json& j);

    // The entries whose files still have their stamps, by path.
    analysis::MeasuresByPath fresh() const;
    // Entries for `measures`, stamped as the files are now (a file that
    // cannot be stamped is left out).
    static PictureCache of(const analysis::MeasuresByPath& measures);

    static std::filesystem::path file(const std::filesystem::path& folder);
    // Nothing read (missing, unreadable, not JSON): an empty cache.
    static PictureCache load(const std::filesystem::path& folder);
    // Written atomically; a failure is dropped (the analysis is simply made again).
    void save(const std::filesystem::path& folder) const;
};

}  // namespace qv
