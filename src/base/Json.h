// Tolerant reading of JSON objects: every key is read on its own, and a key
// that is missing or of the wrong type takes its default, so a damaged value
// loses only itself. Numbers are held inside the Range the caller gives
// (Bounds.h). nlohmann writes numbers independently of the locale.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "base/Bounds.h"
#include "base/Result.h"
#include "base/Uuid.h"

namespace qv::json {

using Json = nlohmann::json;

inline const Json* field(const Json& j, const char* key) {
    if (!j.is_object()) return nullptr;
    auto it = j.find(key);
    return it == j.end() ? nullptr : &*it;
}

// A number held inside `range`; `fallback` when missing or not a number.
inline double number(const Json& j, const char* key, double fallback, Range range) {
    const Json* v = field(j, key);
    return v && v->is_number() ? range.hold(v->get<double>(), fallback) : fallback;
}

// A whole number held inside `range` (whose bounds are whole); a value with
// a fraction part, or not a number, is `fallback`.
inline long long integer(const Json& j, const char* key, long long fallback, Range range) {
    const Json* v = field(j, key);
    if (!v || !v->is_number()) return fallback;
    const double d = v->get<double>();
    if (d != std::floor(d)) return fallback;
    return static_cast<long long>(range.hold(d, static_cast<double>(fallback)));
}

// A whole number from 0 to 2^64 - 1, also when written as a float.
inline uint64_t unsignedInteger(const Json& j, const char* key, uint64_t fallback) {
    const Json* v = field(j, key);
    if (!v) return fallback;
    if (v->is_number_unsigned()) return v->get<uint64_t>();
    if (v->is_number_float()) {
        double d = v->get<double>();
        if (d >= 0 && d < 0x1.0p64 && d == static_cast<double>(static_cast<uint64_t>(d))) return static_cast<uint64_t>(d);
    }
    return fallback;
}

inline bool boolean(const Json& j, const char* key, bool fallback) {
    const Json* v = field(j, key);
    return v && v->is_boolean() ? v->get<bool>() : fallback;
}

inline std::string string(const Json& j, const char* key, const std::string& fallback) {
    const Json* v = field(j, key);
    return v && v->is_string() ? v->get<std::string>() : fallback;
}

// A set of identifiers as an array of their texts, in order.
inline Json uuidArray(const std::set<Uuid>& ids) {
    Json out = Json::array();
    for (const Uuid& id : ids) out.push_back(id.text());
    return out;
}

// One bad entry spoils the whole set, as it would a typed array decode.
inline std::set<Uuid> uuidSet(const Json& j, const char* key) {
    const Json* v = field(j, key);
    if (!v || !v->is_array()) return {};
    std::set<Uuid> out;
    for (const Json& e : *v) {
        auto id = e.is_string() ? Uuid::parse(e.get_ref<const std::string&>()) : std::nullopt;
        if (!id) return {};
        out.insert(*id);
    }
    return out;
}

// How deep arrays and objects nest in `text`, strings skipped; counting
// stops past `limit`. A pre-scan: the parser would build every level first.
inline int nestingDepth(std::string_view text, int limit) {
    int depth = 0, deepest = 0;
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') ++i;
            else if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > deepest && (deepest = depth) > limit) break;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return deepest;
}

// Parses text without throwing, nested at most limits::jsonDepth deep; the
// French reason when it cannot be read.
inline Result<Json> read(std::string_view text) {
    if (nestingDepth(text, limits::jsonDepth) > limits::jsonDepth)
        return Error{"imbrication trop profonde (plus de " + std::to_string(limits::jsonDepth) + " niveaux)"};
    Json j = Json::parse(text, nullptr, false);
    if (j.is_discarded()) return Error{text.empty() ? "fichier vide" : "pas du JSON lisible (fichier tronqué ou abîmé)"};
    return j;
}

// The same, nothing when it cannot be read.
inline std::optional<Json> parse(std::string_view text) {
    auto j = read(text);
    if (!j) return std::nullopt;
    return std::move(j).value();
}

}  // namespace qv::json
