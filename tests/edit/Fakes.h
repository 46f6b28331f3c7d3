// Stand-ins for the player and the main-thread timers, driven by the tests.
#pragma once

#include <map>

#include "edit/PlayerControl.h"
#include "edit/Scheduler.h"

namespace qv::test {

struct FakePlayer : PlayerControl {
    bool playing = false;
    double time = 0;
    std::vector<AngleInfo> angleList;

    bool isPlaying() const override { return playing; }
    double currentTime() const override { return time; }
    const std::vector<AngleInfo>& angles() const override { return angleList; }
    void pause() override { playing = false; }
    void seek(double t) override { time = t; }
};

// Virtual time: actions run only when the test advances the clock.
class ManualScheduler : public Scheduler {
public:
    TimerId schedule(double seconds, std::function<void()> action) override {
        pending_[++lastId_] = {now_ + seconds, std::move(action)};
        return lastId_;
    }
    void cancel(TimerId id) override { pending_.erase(id); }
    size_t pendingCount() const { return pending_.size(); }

    // Runs every action that falls due, including ones scheduled meanwhile.
    void advance(double seconds) {
        now_ += seconds;
        for (auto it = pending_.begin(); it != pending_.end(); it = pending_.begin()) {
            while (it != pending_.end() && it->second.first > now_) ++it;
            if (it == pending_.end()) break;
            auto action = std::move(it->second.second);
            pending_.erase(it);
            action();
        }
    }

private:
    double now_ = 0;
    TimerId lastId_ = 0;
    std::map<TimerId, std::pair<double, std::function<void()>>> pending_;
};

}  // namespace qv::test
