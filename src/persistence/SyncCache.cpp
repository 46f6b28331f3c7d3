#include "persistence/SyncCache.h"

#include <sys/stat.h>

#include <cfloat>
#include <cmath>
#include <limits>

namespace qv {

using json::Json;

std::optional<SyncCache::FileStamp> SyncCache::FileStamp::of(const std::filesystem::path& file) {
    struct stat st {};
    if (::stat(file.c_str(), &st) != 0) return std::nullopt;
    FileStamp stamp;
    stamp.path = file.string();
    stamp.size = static_cast<int64_t>(st.st_size);
    stamp.modified = static_cast<double>(st.st_mtim.tv_sec) + static_cast<double>(st.st_mtim.tv_nsec) * 1e-9;
    return stamp;
}

namespace {

const char* kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int base64Value(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

// Strict readers: each answers false when the key is missing or mistyped,
// and the whole decode then fails.
const Json* member(const Json& j, const char* key) { return json::field(j, key); }

// A clock 1 % off is no clock: a drift beyond it is a damaged cache.
constexpr Range kDriftPpm{-10000, 10000};

// A number inside `range`; one outside fails the decode, as the cache is
// then worth nothing (a start beyond the set would size the time line).
bool readDouble(const Json& j, const char* key, double& out, Range range = {-DBL_MAX, DBL_MAX}) {
    const Json* v = member(j, key);
    if (!v || !v->is_number()) return false;
    out = v->get<double>();
    return range.contains(out);
}

bool readInt64(const Json& j, const char* key, int64_t& out) {
    const Json* v = member(j, key);
    if (!v) return false;
    if (v->is_number_unsigned()) {
        auto u = v->get<uint64_t>();
        if (u > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return false;
        out = static_cast<int64_t>(u);
        return true;
    }
    if (v->is_number_integer()) {
        out = v->get<int64_t>();
        return true;
    }
    if (v->is_number_float()) {
        // A whole number written with a fraction part still names a size.
        double d = v->get<double>();
        if (!(d >= -0x1p63 && d < 0x1p63) || d != std::trunc(d)) return false;
        out = static_cast<int64_t>(d);
        return true;
    }
    return false;
}

bool readBool(const Json& j, const char* key, bool& out) {
    const Json* v = member(j, key);
    if (!v || !v->is_boolean()) return false;
    out = v->get<bool>();
    return true;
}

bool readBinary(const Json& j, const char* key, std::vector<uint8_t>& out) {
    const Json* v = member(j, key);
    if (!v || !v->is_string()) return false;
    auto bytes = base64Decode(v->get_ref<const std::string&>());
    if (!bytes) return false;
    out = std::move(*bytes);
    return true;
}

bool readStamp(const Json& j, SyncCache::FileStamp& out) {
    if (!j.is_object()) return false;
    const Json* path = member(j, "path");
    if (!path || !path->is_string()) return false;
    out.path = path->get<std::string>();
    return readInt64(j, "size", out.size) && readDouble(j, "modified", out.modified);
}

// Optional keys: absent or null give nothing; a value of the wrong kind
// fails the decode like any other key.
bool readOptionalScore(const Json& j, std::optional<float>& out) {
    const Json* v = member(j, "score");
    if (!v || v->is_null()) return true;
    if (!v->is_number()) return false;
    double d = v->get<double>();
    if (std::fabs(d) > FLT_MAX) return false;
    out = static_cast<float>(d);
    return true;
}

bool readOptionalDouble(const Json& j, const char* key, std::optional<double>& out, Range range) {
    const Json* v = member(j, key);
    if (!v || v->is_null()) return true;
    if (!v->is_number()) return false;
    double d = v->get<double>();
    if (!range.contains(d)) return false;
    out = d;
    return true;
}

bool readOptionalText(const Json& j, const char* key, std::optional<std::string>& out) {
    const Json* v = member(j, key);
    if (!v || v->is_null()) return true;
    if (!v->is_string()) return false;
    out = v->get<std::string>();
    return true;
}

// An optional whole number within [lo, hi]; absent keeps `out`.
bool readOptionalBounded(const Json& j, const char* key, long long lo, long long hi, long long& out) {
    const Json* v = member(j, key);
    if (!v || v->is_null()) return true;
    if (!v->is_number_integer() && !v->is_number_unsigned()) return false;
    if (v->is_number_unsigned() && v->get<uint64_t>() > static_cast<uint64_t>(hi)) return false;
    const long long n = v->is_number_unsigned() ? static_cast<long long>(v->get<uint64_t>()) : v->get<long long>();
    if (n < lo || n > hi) return false;
    out = n;
    return true;
}

// The file's place among its source's files: every key optional, each
// value held to what a synchronisation can give.
bool readGroups(const Json& j, SyncCache::Placed& out) {
    long long take = 0, stream = 0;
    if (!readOptionalBounded(j, "take", 0, SyncCache::maxTake, take) ||
        !readOptionalBounded(j, "soundStream", 0, 63, stream))
        return false;
    out.take = static_cast<int>(take);
    out.soundStream = static_cast<int>(stream);
    if (const Json* v = member(j, "soundChannels"); v && !v->is_null()) {
        if (!v->is_number_unsigned() && !(v->is_number_integer() && v->get<long long>() >= 0)) return false;
        out.soundChannels = v->get<uint64_t>();
    }
    if (const Json* v = member(j, "heard"); v && !v->is_null()) {
        if (!v->is_boolean()) return false;
        out.heard = v->get<bool>();
    }
    std::optional<std::string> lane, follows, placedBy;
    if (!readOptionalText(j, "lane", lane) || !readOptionalText(j, "follows", follows) ||
        !readOptionalText(j, "placedBy", placedBy))
        return false;
    if (lane && lane->size() > SyncCache::maxLane) return false;
    if (placedBy && *placedBy != "horloge" && *placedBy != "voisins") return false;
    out.lane = lane.value_or("");
    out.follows = follows.value_or("");
    out.placedBy = placedBy.value_or("");
    return true;
}

bool readPlaced(const Json& j, SyncCache::Placed& out) {
    if (!j.is_object()) return false;
    const Json* file = member(j, "file");
    return file && readStamp(*file, out.file) && readDouble(j, "start", out.start, limits::signedSetTime) &&
           readOptionalScore(j, out.score) && readOptionalText(j, "anchorName", out.anchorName) &&
           readBool(j, "ambiguous", out.ambiguous) && readBinary(j, "waveform", out.waveform) &&
           readBinary(j, "bass", out.bass) && readOptionalDouble(j, "drift", out.drift, kDriftPpm) && readGroups(j, out);
}

// {"path": [[start, strength], ...]}; absent is no candidates at all.
bool readCandidates(const Json& j, std::map<std::string, std::vector<SyncCache::Candidate>>& out) {
    const Json* v = member(j, "candidates");
    if (!v || v->is_null()) return true;
    if (!v->is_object()) return false;
    for (const auto& [path, list] : v->items()) {
        if (!list.is_array()) return false;
        std::vector<SyncCache::Candidate> kept;
        for (const Json& pair : list) {
            if (!pair.is_array() || pair.size() != 2 || !pair[0].is_number() || !pair[1].is_number()) return false;
            const double start = pair[0].get<double>(), strength = pair[1].get<double>();
            if (!limits::signedSetTime.contains(start) || !(std::fabs(strength) <= FLT_MAX)) return false;
            kept.push_back({start, static_cast<float>(strength)});
        }
        out[path] = std::move(kept);
    }
    return true;
}

Json stampJson(const SyncCache::FileStamp& s) {
    return Json{{"path", s.path}, {"size", s.size}, {"modified", s.modified}};
}

}  // namespace

json::Json SyncCache::FileStamp::toJson() const { return stampJson(*this); }

std::optional<SyncCache::FileStamp> SyncCache::FileStamp::fromJson(const Json& j) {
    FileStamp s;
    if (!readStamp(j, s)) return std::nullopt;
    return s;
}

std::string base64Encode(const std::vector<uint8_t>& bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        uint32_t n = (uint32_t(bytes[i]) << 16) | (uint32_t(bytes[i + 1]) << 8) | bytes[i + 2];
        out += kAlphabet[(n >> 18) & 63];
        out += kAlphabet[(n >> 12) & 63];
        out += kAlphabet[(n >> 6) & 63];
        out += kAlphabet[n & 63];
    }
    size_t rest = bytes.size() - i;
    if (rest > 0) {
        uint32_t n = uint32_t(bytes[i]) << 16;
        if (rest == 2) n |= uint32_t(bytes[i + 1]) << 8;
        out += kAlphabet[(n >> 18) & 63];
        out += kAlphabet[(n >> 12) & 63];
        out += rest == 2 ? kAlphabet[(n >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

std::optional<std::vector<uint8_t>> base64Decode(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    std::vector<uint8_t> out;
    out.reserve(text.size() / 4 * 3);
    for (size_t i = 0; i < text.size(); i += 4) {
        bool last = i + 4 == text.size();
        int v[4];
        int padding = 0;
        for (int k = 0; k < 4; ++k) {
            char c = text[i + k];
            if (c == '=' && last && k >= 2) {
                v[k] = 0;
                ++padding;
                continue;
            }
            if (padding > 0) return std::nullopt;  // data after padding
            v[k] = base64Value(c);
            if (v[k] < 0) return std::nullopt;
        }
        uint32_t n = (uint32_t(v[0]) << 18) | (uint32_t(v[1]) << 12) | (uint32_t(v[2]) << 6) | uint32_t(v[3]);
        out.push_back(static_cast<uint8_t>(n >> 16));
        if (padding < 2) out.push_back(static_cast<uint8_t>(n >> 8));
        if (padding < 1) out.push_back(static_cast<uint8_t>(n));
    }
    return out;
}

Json SyncCache::toJson() const {
    Json placedArray = Json::array();
    for (const auto& p : placed) {
        Json o{{"file", stampJson(p.file)},
               {"start", p.start},
               {"ambiguous", p.ambiguous},
               {"waveform", base64Encode(p.waveform)},
               {"bass", base64Encode(p.bass)}};
        if (p.score) o["score"] = static_cast<double>(*p.score);
        if (p.anchorName) o["anchorName"] = *p.anchorName;
        if (p.drift) o["drift"] = *p.drift;
        if (p.take) o["take"] = p.take;
        if (!p.lane.empty()) o["lane"] = p.lane;
        if (!p.heard) o["heard"] = false;
        if (!p.follows.empty()) o["follows"] = p.follows;
        if (p.soundStream) o["soundStream"] = p.soundStream;
        if (p.soundChannels) o["soundChannels"] = p.soundChannels;
        if (!p.placedBy.empty()) o["placedBy"] = p.placedBy;
        placedArray.push_back(std::move(o));
    }
    Json unsyncedArray = Json::array();
    for (const auto& s : unsynced) unsyncedArray.push_back(stampJson(s));
    Json out{{"placed", std::move(placedArray)}, {"unsynced", std::move(unsyncedArray)}};
    if (!candidates.empty()) {
        Json byPath = Json::object();
        for (const auto& [path, list] : candidates) {
            Json pairs = Json::array();
            for (const Candidate& c : list) pairs.push_back(Json::array({c.start, static_cast<double>(c.strength)}));
            byPath[path] = std::move(pairs);
        }
        out["candidates"] = std::move(byPath);
    }
    return out;
}

std::optional<SyncCache> SyncCache::fromJson(const Json& j) {
    const Json* placedArray = member(j, "placed");
    const Json* unsyncedArray = member(j, "unsynced");
    if (!placedArray || !placedArray->is_array() || !unsyncedArray || !unsyncedArray->is_array())
        return std::nullopt;
    SyncCache cache;
    for (const Json& entry : *placedArray) {
        Placed p;
        if (!readPlaced(entry, p)) return std::nullopt;
        cache.placed.push_back(std::move(p));
    }
    for (const Json& entry : *unsyncedArray) {
        FileStamp s;
        if (!readStamp(entry, s)) return std::nullopt;
        cache.unsynced.push_back(std::move(s));
    }
    if (!readCandidates(j, cache.candidates)) return std::nullopt;
    return cache;
}

}  // namespace qv
