#include "support/Fixtures.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <mutex>
#include <random>

namespace fs = std::filesystem;

namespace qv::test {

TempDir::TempDir() {
    std::random_device rd;
    for (int tries = 0; tries < 100; ++tries) {
        fs::path p = fs::temp_directory_path() / ("quorvel-test-" + std::to_string(rd()));
        std::error_code ec;
        if (fs::create_directory(p, ec)) {
            path_ = p;
            return;
        }
    }
}

TempDir::~TempDir() {
    std::error_code ec;
    // Give back permissions a test may have taken away, then remove.
    for (auto it = fs::recursive_directory_iterator(path_, fs::directory_options::skip_permission_denied, ec);
         !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        std::error_code ignored;
        if (!it->is_symlink(ignored)) fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    }
    fs::remove_all(path_, ec);
}

bool haveFFmpeg() { return access("/usr/bin/ffmpeg", X_OK) == 0; }

namespace {
std::string quote(const std::string& s) {
    std::string out = "'";
    for (char c : s) {
        if (c == '\'') out += "'\\''";
        else out += c;
    }
    return out + "'";
}
}  // namespace

bool ffmpeg(const std::vector<std::string>& args) {
    std::string cmd = "/usr/bin/ffmpeg -nostdin -v error -y";
    for (const auto& a : args) cmd += " " + quote(a);
    return std::system(cmd.c_str()) == 0;
}

void writeText(const fs::path& file, const std::string& text) {
    std::ofstream out(file, std::ios::binary);
    out << text;
}

fs::path generatedSet(const std::string& preset, int seed) {
#ifdef QUORVEL_SETGEN
    static std::mutex lock;
    std::lock_guard<std::mutex> guard(lock);
    const char* root = std::getenv("QUORVEL_FIXTURES");
    fs::path base = root ? fs::path(root) : fs::temp_directory_path() / "quorvel-fixtures";
    fs::path set = base / (preset + "-" + std::to_string(seed));
    if (fs::exists(set / "truth.json")) return set;
    std::error_code ec;
    fs::remove_all(set, ec);
    fs::create_directories(base, ec);
    // Made under a temporary name and renamed, so that a test run that
    // stops half-way never leaves a set that looks complete.
    fs::path partial = base / (preset + "-" + std::to_string(seed) + ".partial-" + std::to_string(getpid()));
    std::string cmd = quote(QUORVEL_SETGEN) + " --preset " + quote(preset) + " --seed " + std::to_string(seed) + " " +
                      quote(partial.string()) + " >/dev/null 2>&1";
    if (std::system(cmd.c_str()) != 0) {
        fs::remove_all(partial, ec);
        return {};
    }
    fs::rename(partial, set, ec);
    if (ec) return fs::exists(set / "truth.json") ? set : fs::path{};
    return set;
#else
    (void)preset;
    (void)seed;
    return {};
#endif
}

}  // namespace qv::test
