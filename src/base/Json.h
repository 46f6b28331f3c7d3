// Tolerant reading of JSON objects: every key is read on its own, and a key
// that is missing or of the wrong type takes its default, so a damaged value
// loses only itself. nlohmann writes numbers independently of the locale.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>

#include "base/Uuid.h"

namespace qv::json {

using Json = nlohmann::json;

inline const Json* field(const Json& j, const char* key) {
    if (!j.is_object()) return nullptr;
    auto it = j.find(key);
    return it == j.end() ? nullptr : &*it;
}

inline double number(const Json& j, const char* key, double fallback) {
    const Json* v = field(j, key);
    return v && v->is_number() ? v->get<double>() : fallback;
}

inline long long integer(const Json& j, const char* key, long long fallback) {
    const Json* v = field(j, key);
    if (!v) return fallback;
    if (v->is_number_integer()) return v->get<long long>();
    if (v->is_number_float()) {
        double d = v->get<double>();
        // Range first: converting a float outside long long is undefined.
        if (d >= -0x1.0p63 && d < 0x1.0p63 && d == static_cast<double>(static_cast<long long>(d)))
            return static_cast<long long>(d);
    }
    return fallback;
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

// Parses text without throwing; nothing when it is not JSON.
inline std::optional<Json> parse(const std::string& text) {
    Json j = Json::parse(text, nullptr, false);
    if (j.is_discarded()) return std::nullopt;
    return j;
}

}  // namespace qv::json
