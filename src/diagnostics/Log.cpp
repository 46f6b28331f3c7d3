#include "diagnostics/Log.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <deque>
#include <mutex>
#include <thread>

#include "base/Json.h"
#include "platform/Paths.h"

namespace fs = std::filesystem;

namespace qv::Log {

namespace {

// "dernierLancement" is stored like every date of ours: seconds since
// 2001-01-01 00:00:00 UTC.
constexpr double kReferenceEpoch = 978307200.0;

struct Line {
    fs::path file;
    std::string text;
};

// Only a regular file is written. A FIFO, a device or a socket put in the
// log's place would block the writer thread (and the exit that drains it)
// or swallow lines: the open never waits and anything else is left alone.
void append(const Line& line) {
    std::error_code ec;
    fs::create_directories(line.file.parent_path(), ec);
    struct stat st {};
    if (::stat(line.file.c_str(), &st) == 0 && S_ISREG(st.st_mode) && static_cast<uintmax_t>(st.st_size) > sizeLimit)
        ::unlink(line.file.c_str());
    int fd = ::open(line.file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0644);
    if (fd < 0) return;
    if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) paths::writeAll(fd, line.text.data(), line.text.size());
    ::close(fd);
}

// One queue, one thread. Lines are numbered as they arrive so that `flush`
// can wait for exactly the lines queued before it.
class Writer {
public:
    Writer() : thread_([this] { run(); }) { pthread_setname_np(thread_.native_handle(), "quorvel.log"); }

    ~Writer() {
        {
            std::lock_guard<std::mutex> guard(mutex_);
            stopping_ = true;
        }
        wake_.notify_all();
        thread_.join();
    }

    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    void push(Line line) {
        {
            std::lock_guard<std::mutex> guard(mutex_);
            queue_.push_back(std::move(line));
            ++queued_;
        }
        wake_.notify_one();
    }

    void flush() {
        std::unique_lock<std::mutex> lock(mutex_);
        uint64_t target = queued_;
        done_.wait(lock, [&] { return written_ >= target; });
    }

private:
    void run() {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            wake_.wait(lock, [&] { return stopping_ || !queue_.empty(); });
            if (queue_.empty()) return;  // stopping, and everything is written
            Line line = std::move(queue_.front());
            queue_.pop_front();
            lock.unlock();
            append(line);
            lock.lock();
            ++written_;
            done_.notify_all();
        }
    }

    // Guarded by mutex_: queue_, queued_, written_, stopping_.
    std::mutex mutex_;
    std::condition_variable wake_;
    std::condition_variable done_;
    std::deque<Line> queue_;
    uint64_t queued_ = 0;
    uint64_t written_ = 0;
    bool stopping_ = false;
    std::thread thread_;  // last, so it starts after the rest exists
};

Writer& writer() {
    static Writer instance;
    return instance;
}

std::string stamp(std::time_t now) {
    std::tm local{};
    localtime_r(&now, &local);
    char text[32];
    size_t n = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return std::string(text, n);
}

double unixSeconds(const struct timespec& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

}  // namespace

void write(std::string message) {
    std::time_t now = std::time(nullptr);
    std::string text = stamp(now);
    text += "  ";
    text += message;
    text += '\n';
    writer().push({file(), std::move(text)});
}

void flush() { writer().flush(); }

fs::path file() { return paths::stateHome() / "Quorvel" / "journal.log"; }

fs::path crashFolder() { return paths::stateHome() / "Quorvel" / "crash"; }

std::optional<fs::path> crashReportSinceLastLaunch() {
    fs::path settings = paths::settingsFile();
    std::optional<double> lastLaunch;  // Unix seconds; none is the distant past
    const json::Json stored = paths::readSettings(settings);
    if (const json::Json* v = json::field(stored, "dernierLancement"); v && v->is_number())
        lastLaunch = v->get<double>() + kReferenceEpoch;

    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    paths::writeSetting(settings, "dernierLancement", json::Json(unixSeconds(now) - kReferenceEpoch));

    std::optional<fs::path> newest;
    double newestTime = 0;
    std::error_code ec;
    fs::directory_iterator it(crashFolder(), ec);
    if (ec) return std::nullopt;
    for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
        const fs::path& p = it->path();
        if (p.filename().string().rfind("Quorvel", 0) != 0) continue;
        struct stat st {};
        if (::stat(p.c_str(), &st) != 0) continue;
        double modified = unixSeconds(st.st_mtim);
        if (lastLaunch && !(modified > *lastLaunch)) continue;
        if (!newest || modified > newestTime) {
            newest = p;
            newestTime = modified;
        }
    }
    return newest;
}

}  // namespace qv::Log
