#include "playback/Proxies.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

#include "base/Text.h"
#include "platform/Paths.h"

namespace fs = std::filesystem;

namespace qv {

namespace {

std::string hex(uint64_t v) {
    char text[17];
    auto end = std::to_chars(text, text + sizeof text, v, 16).ptr;
    return std::string(text, end);
}

std::string pathKey(const fs::path& file) {
    std::error_code ec;
    fs::path absolute = fs::absolute(file, ec);
    return hex(fnv1a((ec ? file : absolute).lexically_normal().string()));
}

}  // namespace

ProxyCache::ProxyCache(fs::path folder) : folder_(std::move(folder)) {}

fs::path ProxyCache::defaultFolder() { return paths::cacheHome() / "quorvel" / "proxies"; }

std::optional<fs::path> ProxyCache::pathFor(const fs::path& file) const {
    std::error_code sizeError, timeError;
    auto size = fs::file_size(file, sizeError);
    auto modified = fs::last_write_time(file, timeError);
    if (sizeError || timeError) return std::nullopt;
    std::string state = std::to_string(size) + " " + std::to_string(modified.time_since_epoch().count());
    return folder_ / (pathKey(file) + "-" + hex(fnv1a(state)) + ".mp4");
}

std::optional<fs::path> ProxyCache::find(const fs::path& file) const {
    auto proxy = pathFor(file);
    std::error_code ec;
    if (!proxy || !fs::is_regular_file(*proxy, ec) || fs::file_size(*proxy, ec) == 0) return std::nullopt;
    return proxy;
}

void ProxyCache::removeStale(const fs::path& file) const {
    auto fresh = pathFor(file);
    std::string prefix = pathKey(file) + "-";
    std::error_code ec;
    for (fs::directory_iterator it(folder_, ec), end; !ec && it != end; it.increment(ec)) {
        std::string name = it->path().filename().string();
        if (name.rfind(prefix, 0) != 0 || (fresh && it->path() == *fresh)) continue;
        std::error_code removeError;
        fs::remove(it->path(), removeError);
    }
}

std::vector<fs::path> ProxyMaker::candidates(const std::vector<MediaSource>& sources, int proxyWidth) {
    std::vector<fs::path> files;
    for (const auto& source : sources) {
        if (source.kind != SourceKind::camera) continue;
        for (const auto& item : source.items)
            if (item.hasVideo && std::max(item.width, item.height) > proxyWidth) files.push_back(item.url);
    }
    return files;
}

ProxyMaker::ProxyMaker(ProxyCache cache, Encode encode, std::function<void()> wakeup)
    : cache_(std::move(cache)), encode_(std::move(encode)), wakeup_(std::move(wakeup)) {}

ProxyMaker::~ProxyMaker() { stopThread(); }

void ProxyMaker::stopThread() {
    cancel_ = true;
    if (thread_.joinable()) thread_.join();
    cancel_ = false;
}

void ProxyMaker::start(std::vector<fs::path> files) {
    stopThread();
    {
        std::lock_guard guard(lock_);
        progress_ = Progress{0, static_cast<int>(files.size()), files.empty(), {}};
    }
    if (files.empty()) return;
    thread_ = std::thread([this, files = std::move(files)]() mutable { run(std::move(files)); });
}

void ProxyMaker::run(std::vector<fs::path> files) {
    // Proxies only make the preview lighter: they must never slow the rest.
    setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), 19);
    std::error_code ec;
    fs::create_directories(cache_.folder(), ec);
    for (const auto& file : files) {
        if (cancel_) return;
        bool ok = true;
        if (!cache_.find(file)) {
            cache_.removeStale(file);
            auto target = cache_.pathFor(file);
            ok = false;
            if (target) {
                fs::path part = *target;
                part += ".part";
                Status made = encode_(file, part, cancel_);
                std::error_code renameError;
                if (made && !cancel_) fs::rename(part, *target, renameError);
                ok = made.ok() && !cancel_ && !renameError;
                if (!ok) fs::remove(part, renameError);
            }
        }
        if (cancel_) return;
        {
            std::lock_guard guard(lock_);
            ++progress_.done;
            if (!ok) progress_.failed.push_back(file);
            progress_.finished = progress_.done == progress_.total;
        }
        if (wakeup_) wakeup_();
    }
}

ProxyMaker::Progress ProxyMaker::progress() const {
    std::lock_guard guard(lock_);
    return progress_;
}

std::string ProxyMaker::status() const {
    std::lock_guard guard(lock_);
    if (progress_.finished) return {};
    return "Préparation de l'aperçu : " + std::to_string(progress_.done) + "/" + std::to_string(progress_.total);
}

}  // namespace qv
