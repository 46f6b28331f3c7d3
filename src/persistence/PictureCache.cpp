#include "persistence/PictureCache.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "base/Bounds.h"
#include "persistence/ProjectStore.h"
#include "platform/Paths.h"

namespace qv {

namespace {

using json::Json;

// Eight floats a half-second, in the order of SlotMeasures.
constexpr size_t valuesPerHalf = 8;
// Ten days of footage in one file: more is a damaged cache.
constexpr size_t mostHalves = 10 * 24 * 3600 * 2;

// A value read back, held to what the analysis can give; `missing` for
// anything that is not a finite number in range.
float bounded(float v, float lo, float hi, float missing) {
    if (!std::isfinite(v)) return missing;
    return std::clamp(v, lo, hi);
}

std::vector<float> flatten(const analysis::FileMeasures& m) {
    std::vector<float> out;
    out.reserve(m.halves.size() * valuesPerHalf);
    for (const auto& h : m.halves)
        out.insert(out.end(), {h.level, h.crushed, h.clipped, h.detail, h.contrast, h.colour, h.change, h.jitter});
    return out;
}

analysis::FileMeasures unflatten(const std::vector<float>& v) {
    analysis::FileMeasures m;
    const size_t n = std::min(v.size() / valuesPerHalf, mostHalves);
    m.halves.resize(n);
    for (size_t k = 0; k < n; ++k) {
        const float* f = &v[k * valuesPerHalf];
        analysis::SlotMeasures& h = m.halves[k];
        h.level = f[0] < 0 ? -1 : bounded(f[0], 0, 255, -1);
        h.crushed = bounded(f[1], 0, 1, 0);
        h.clipped = bounded(f[2], 0, 1, 0);
        h.detail = bounded(f[3], 0, 1e6f, 0);
        h.contrast = bounded(f[4], 0, 255, 0);
        h.colour = bounded(f[5], 0, 255, 0);
        h.change = f[6] < 0 ? -1 : bounded(f[6], 0, 255, -1);
        h.jitter = f[7] < 0 ? -1 : bounded(f[7], 0, 1, -1);
    }
    return m;
}

}  // namespace

Json PictureCache::toJson() const {
    Json files = Json::array();
    for (const Entry& e : this->files)
        files.push_back({{"file", e.file.toJson()}, {"halves", base64Encode(ProjectStore::binary(flatten(e.measures)))}});
    return Json{{"version", 1}, {"files", std::move(files)}};
}

PictureCache PictureCache::fromJson(const Json& j) {
    PictureCache cache;
    const Json* files = json::field(j, "files");
    if (!files || !files->is_array()) return cache;
    for (const Json& f : *files) {
        const Json* stamp = json::field(f, "file");
        const Json* halves = json::field(f, "halves");
        if (!stamp || !halves || !halves->is_string()) continue;
        auto s = SyncCache::FileStamp::fromJson(*stamp);
        auto bytes = base64Decode(halves->get<std::string>());
        if (!s || !bytes) continue;
        cache.files.push_back({*s, unflatten(ProjectStore::floats(*bytes))});
    }
    return cache;
}

analysis::MeasuresByPath PictureCache::fresh() const {
    analysis::MeasuresByPath out;
    for (const Entry& e : files) {
        auto now = SyncCache::FileStamp::of(e.file.path);
        if (now && *now == e.file) out[e.file.path] = e.measures;
    }
    return out;
}

PictureCache PictureCache::of(const analysis::MeasuresByPath& measures) {
    PictureCache cache;
    for (const auto& [path, m] : measures)
        if (auto stamp = SyncCache::FileStamp::of(path)) cache.files.push_back({*stamp, m});
    return cache;
}

std::filesystem::path PictureCache::file(const std::filesystem::path& folder) {
    return ProjectStore::directory() / (ProjectStore::key(folder) + ".pictures.json");
}

PictureCache PictureCache::load(const std::filesystem::path& folder) {
    auto text = paths::readFile(file(folder), limits::cacheBytes);
    if (!text) return {};
    auto j = json::parse(*text);
    if (!j || !j->is_object()) return {};
    return fromJson(*j);
}

void PictureCache::save(const std::filesystem::path& folder) const {
    std::error_code ec;
    std::filesystem::create_directories(ProjectStore::directory(), ec);
    (void)paths::writeAtomically(file(folder), toJson().dump(-1, ' ', false, Json::error_handler_t::replace));
}

}  // namespace qv
