#include "support/Fixtures.h"

#include <sys/wait.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
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

namespace {
std::string seconds(double s) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, s).ptr;  // a dot under any locale
    return std::string(text, end);
}
}  // namespace

bool makeClip(const fs::path& file, double length, bool sound, const std::vector<std::string>& extra) {
    fs::create_directories(file.parent_path());
    const std::string d = seconds(length);
    std::vector<std::string> args = {"-f", "lavfi", "-i", "color=c=blue:s=64x36:r=25:d=" + d};
    if (sound) args.insert(args.end(), {"-f", "lavfi", "-i", "sine=f=440:r=48000:d=" + d});
    args.insert(args.end(), {"-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p"});
    args.insert(args.end(), extra.begin(), extra.end());
    args.push_back(file.string());
    return ffmpeg(args);
}

bool makeWav(const fs::path& file, double length) {
    fs::create_directories(file.parent_path());
    return ffmpeg({"-f", "lavfi", "-i", "sine=f=300:r=48000:d=" + seconds(length), file.string()});
}

std::optional<Loudness> measureLoudness(const fs::path& file) {
    const std::string cmd = "/usr/bin/ffmpeg -nostdin -nostats -hide_banner -i " + quote(file.string()) +
                            " -filter_complex ebur128=peak=true -f null - 2>&1";
    FILE* pipe = popen(cmd.c_str(), "r");
    if (!pipe) return std::nullopt;
    std::string text;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, pipe)) > 0) text.append(buf, n);
    if (pclose(pipe) != 0) return std::nullopt;
    // The summary at the end: "I: -14.0 LUFS" and, under "True peak:", "Peak: -1.2 dBFS".
    const size_t summary = text.rfind("Summary:");
    if (summary == std::string::npos) return std::nullopt;
    auto numberAfter = [&](const std::string& label) -> std::optional<double> {
        const size_t at = text.find(label, summary);
        if (at == std::string::npos) return std::nullopt;
        // Not strtod: the tests run under a French locale.
        const char* from = text.c_str() + at + label.size();
        while (*from == ' ') ++from;
        double v = 0;
        if (std::from_chars(from, text.c_str() + text.size(), v).ec != std::errc{}) return std::nullopt;
        return v;
    };
    auto integrated = numberAfter("I:");
    auto peak = numberAfter("Peak:");
    if (!integrated || !peak) return std::nullopt;
    return Loudness{*integrated, *peak};
}

std::string ffprobe(const fs::path& file, const std::string& entries, const std::string& stream) {
    ShellAnswer r = runShell("/usr/bin/ffprobe -v error -select_streams " + quote(stream) + " -show_entries " +
                             quote(entries) + " -of default=nw=1:nk=1 " + quote(file.string()));
    if (r.status != 0) return {};
    while (!r.out.empty() && (r.out.back() == '\n' || r.out.back() == '\r')) r.out.pop_back();
    return r.out;
}

ShellAnswer runShell(const std::string& command) {
    ShellAnswer r;
    FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
    if (!pipe) return {-1, {}, {}};
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, pipe)) > 0) r.out.append(buf, n);
    const int status = pclose(pipe);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.lastLine = lastLine(r.out);
    return r;
}

std::string lastLine(const std::string& text) {
    std::string t = text;
    while (!t.empty() && t.back() == '\n') t.pop_back();
    return t.substr(t.rfind('\n') + 1);
}

void writeText(const fs::path& file, const std::string& text) {
    std::ofstream out(file, std::ios::binary);
    out << text;
}

std::string readText(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
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
