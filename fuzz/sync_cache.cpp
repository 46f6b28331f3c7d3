// Any bytes as a sync cache: a cache either reads whole or not at all, and
// one that reads writes back to itself.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "persistence/SyncCache.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    (void)qv::base64Decode(text);
    auto doc = qv::json::parse(text);
    if (!doc) return 0;
    auto cache = qv::SyncCache::fromJson(*doc);
    if (!cache) return 0;
    auto again = qv::SyncCache::fromJson(cache->toJson());
    if (!again || !(again->toJson() == cache->toJson())) std::abort();
    return 0;
}
