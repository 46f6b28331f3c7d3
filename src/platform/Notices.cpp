#include "platform/Notices.h"

#include <mutex>
#include <set>

namespace qv::media {

namespace {

// Guarded by mutex: sink, told.
struct Notices {
    std::mutex mutex;
    NoticeSink sink;
    std::set<std::string> told;
};

Notices& notices() {
    static Notices instance;
    return instance;
}

}  // namespace

void setNoticeSink(NoticeSink sink) {
    Notices& n = notices();
    std::lock_guard lock(n.mutex);
    n.sink = std::move(sink);
}

void noticeOnce(const std::string& key, const std::string& message) {
    Notices& n = notices();
    NoticeSink sink;
    {
        std::lock_guard lock(n.mutex);
        if (!n.told.insert(key).second) return;
        sink = n.sink;
    }
    // Called outside the lock: a sink may take its own.
    if (sink) sink(message);
}

}  // namespace qv::media
