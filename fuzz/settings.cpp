// Any bytes as the user's settings file: reading never fails, every value
// read is one the settings panel could have set, a damaged file is kept
// aside, and what is written reads back the same.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "persistence/AppSettings.h"

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const fs::path folder = [] {
        char pattern[] = "/tmp/quorvel-fuzz-settings-XXXXXX";
        return fs::path(::mkdtemp(pattern));
    }();
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(folder, ec)) fs::remove_all(e.path(), ec);
    const fs::path file = folder / "settings.json";
    std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));

    qv::AppSettings settings(file);
    if (auto path = settings.exportFolderPath(); path && (path->empty() || path->front() != '/')) std::abort();
    if (!qv::exportTargetFromRaw(qv::rawValue(settings.exportTarget()))) std::abort();
    // The file that was damaged is aside: what is written now stands alone.
    settings.setSnapEnabled(!settings.snapEnabled());
    qv::AppSettings again(file);
    if (again.snapEnabled() != settings.snapEnabled() || !again.damage().empty()) std::abort();
    return 0;
}
