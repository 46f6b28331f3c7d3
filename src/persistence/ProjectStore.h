// ProjectStore: the folder where projects live, and the sync cache kept
// beside them. Projects are handled here as JSON object documents, one per
// `{id}.json`; the typed ProjectFile reads and writes through these.
// Caches are `{key}.sync.json`, one per set folder, shared by its projects.
//
// Every write replaces its file atomically, so a reader never sees half a
// file. No operation throws or reports an error: a project that cannot be
// read is left out, a write that fails leaves the old file. Call from one
// thread at a time (the interface thread in the application).
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/Json.h"
#include "persistence/ProjectFile.h"
#include "persistence/SyncCache.h"
#include "sync/Media.h"
#include "sync/SyncResult.h"

namespace qv::ProjectStore {

// QUORVEL_PROJECTS_DIR when set, else $XDG_DATA_HOME/Quorvel/Projets.
std::filesystem::path directory();

// Dates in project files: seconds since 2001-01-01 00:00:00 UTC.
Date dateFromReference(double seconds);
double referenceSeconds(Date date);

// Every readable project document, newest `savedAt` first (stable). Only
// `*.json` files that are not caches and hold a JSON object count; a document
// without a text `id` gets its file's base name. A `savedAt` that is missing
// or not a number reads as the time of listing.
std::vector<json::Json> documents();

// The newest document whose `folder` names the same set folder (both sides
// standardised), if any.
std::optional<json::Json> latestDocument(const std::filesystem::path& folder);

// Writes `{id}.json` pretty printed with sorted keys; nothing without a text id.
void saveDocument(const json::Json& project);

// The same three on ProjectFile: each document decoded by the project
// file's reading rule.
std::vector<ProjectFile> list();
std::optional<ProjectFile> latest(const std::filesystem::path& folder);
// `cutList`: the project's cutsText(2), when the caller has it already.
void save(const ProjectFile& project, const std::string* cutList = nullptr);

// Removes `{id}.json`; the set's cache stays.
void remove(const std::string& id);

// Base name of a set folder's cache: the folder's last name kept to letters,
// digits, blanks and "-", cut to 40 characters, a blank, then the 64-bit
// FNV-1a of the standardised path in lower-case hexadecimal.
std::string key(const std::filesystem::path& folder);

std::filesystem::path syncFile(const std::filesystem::path& folder);
void saveSync(const SyncCache& cache, const std::filesystem::path& folder);
// Nothing when the file is missing or does not decode.
std::optional<SyncCache> loadSync(const std::filesystem::path& folder);

// The stamp of every file of `sources` as it is now, by path. Taken before
// the synchronisation reads them: a recording that grows while it runs then
// no longer matches its stamp, and the next opening analyses it again.
using Stamps = std::map<std::string, SyncCache::FileStamp>;
Stamps stamps(const std::vector<MediaSource>& sources);

// The result under the stamps its files had `before` it was computed; a file
// without one is left out (and `restore` will then refuse the cache).
SyncCache cache(const SyncResult& result, const Stamps& before);

// The stored result, trusted only when the cache names exactly the files of
// `sources` and each still has its stamp (path, size and modification time,
// the time compared exactly). Any doubt gives nothing, never a partial result.
std::optional<SyncResult> restore(const SyncCache& cache, const std::vector<MediaSource>& sources);

// Float arrays as stored: 4 bytes a value, little-endian IEEE 754 single
// precision, no header. Reading takes floor(bytes / 4) values.
std::vector<float> floats(const std::vector<uint8_t>& bytes);
std::vector<uint8_t> binary(const std::vector<float>& values);

}  // namespace qv::ProjectStore
