// WaitingScheduler: the main thread's timers for a run without interface
// (the command line, the benchmarks). `runUntil` sleeps until the next due
// action and runs it, on the calling thread, until the condition holds or
// nothing is pending.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <thread>
#include <utility>

#include "edit/Scheduler.h"

namespace qv {

class WaitingScheduler : public Scheduler {
public:
    using Clock = std::chrono::steady_clock;

    TimerId schedule(double seconds, std::function<void()> action) override {
        auto due = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
        pending_[++lastId_] = {due, std::move(action)};
        return lastId_;
    }
    void cancel(TimerId id) override { pending_.erase(id); }

    void runUntil(const std::function<bool()>& done) {
        while (!done() && !pending_.empty()) {
            // The earliest due; among equals the one scheduled first.
            auto next = pending_.begin();
            for (auto it = pending_.begin(); it != pending_.end(); ++it)
                if (it->second.first < next->second.first) next = it;
            std::this_thread::sleep_until(next->second.first);
            auto action = std::move(next->second.second);
            pending_.erase(next);
            action();
        }
    }

private:
    TimerId lastId_ = 0;
    std::map<TimerId, std::pair<Clock::time_point, std::function<void()>>> pending_;
};

}  // namespace qv
