// VirtualMainThread: a main thread whose clock moves only when told. Timers
// fall due when `advance` passes their time; work posted from other threads
// waits in a queue until the owner's thread drains it. Tests run autosaves,
// toasts and look rebuilds without sleeping, and still receive the results
// of real background jobs (`waitUntil` blocks on the queue, not on a clock).
#pragma once

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>

#include "app/Ports.h"

namespace qv {

class VirtualMainThread : public MainThread {
public:
    explicit VirtualMainThread(Date start = Date{} + std::chrono::hours(24 * 365 * 56));

    TimerId schedule(double seconds, std::function<void()> action) override;
    void cancel(TimerId id) override;
    void post(std::function<void()> action) override;
    Date now() const override;

    // Moves the clock, running posted work and every timer that falls due
    // on the way, in time order (timers scheduled meanwhile included).
    void advance(double seconds);
    // Runs what other threads posted so far; returns how many ran.
    size_t drain();
    // Drains posted work as it arrives until `done` answers true or
    // `timeoutSeconds` of real time pass; the answer of `done` at the end.
    bool waitUntil(const std::function<bool()>& done, double timeoutSeconds = 120);
    size_t pendingTimers() const { return timers_.size(); }
    double elapsed() const { return now_; }

private:
    Date start_;
    double now_ = 0;
    TimerId lastId_ = 0;
    std::map<TimerId, std::pair<double, std::function<void()>>> timers_;
    std::mutex lock_;  // guards posted_
    std::condition_variable arrived_;
    std::deque<std::function<void()>> posted_;
};

}  // namespace qv
