// Any bytes as a project file: reading never fails, and what was read
// writes and reads back to the same project.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "persistence/ProjectFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto doc = qv::json::parse(std::string(reinterpret_cast<const char*>(data), size));
    if (!doc) return 0;
    const qv::Date readAt{};
    qv::ProjectFile project = qv::ProjectFile::fromJson(*doc, readAt);
    qv::json::Json written = project.toJson();
    (void)written.dump();
    qv::ProjectFile again = qv::ProjectFile::fromJson(written, readAt);
    if (!(again.toJson() == written)) std::abort();  // a second round trip changes nothing
    return 0;
}
