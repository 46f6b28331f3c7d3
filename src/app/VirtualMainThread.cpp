#include "app/VirtualMainThread.h"

#include <cmath>

namespace qv {

VirtualMainThread::VirtualMainThread(Date start) : start_(start) {}

Scheduler::TimerId VirtualMainThread::schedule(double seconds, std::function<void()> action) {
    timers_[++lastId_] = {now_ + std::max(seconds, 0.0), std::move(action)};
    return lastId_;
}

void VirtualMainThread::cancel(TimerId id) { timers_.erase(id); }

void VirtualMainThread::post(std::function<void()> action) {
    {
        std::lock_guard<std::mutex> guard(lock_);
        posted_.push_back(std::move(action));
    }
    arrived_.notify_all();
}

Date VirtualMainThread::now() const {
    return start_ + std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(now_));
}

size_t VirtualMainThread::drain() {
    size_t count = 0;
    for (;;) {
        std::function<void()> action;
        {
            std::lock_guard<std::mutex> guard(lock_);
            if (posted_.empty()) return count;
            action = std::move(posted_.front());
            posted_.pop_front();
        }
        action();
        ++count;
    }
}

void VirtualMainThread::advance(double seconds) {
    const double target = now_ + seconds;
    for (;;) {
        drain();
        // The earliest due timer; the lower id first on a tie.
        auto next = timers_.end();
        for (auto it = timers_.begin(); it != timers_.end(); ++it)
            if (it->second.first <= target && (next == timers_.end() || it->second.first < next->second.first))
                next = it;
        if (next == timers_.end()) break;
        now_ = std::max(now_, next->second.first);
        auto action = std::move(next->second.second);
        timers_.erase(next);
        action();
    }
    now_ = target;
}

bool VirtualMainThread::waitUntil(const std::function<bool()>& done, double timeoutSeconds) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds);
    for (;;) {
        drain();
        if (done()) return true;
        std::unique_lock<std::mutex> guard(lock_);
        if (!arrived_.wait_until(guard, deadline, [this] { return !posted_.empty(); })) return done();
    }
}

}  // namespace qv
