// Scheduler: delayed actions on the main thread (toast 2.5 s, autosave
// 1.5 s, look rebuild 60 ms). The interface uses the toolkit's timers; tests
// use a virtual clock, so nothing ever sleeps.
#pragma once

#include <cstdint>
#include <functional>

namespace qv {

class Scheduler {
public:
    using TimerId = uint64_t;  // never 0, so 0 can mean "no timer"

    virtual ~Scheduler() = default;

    // Runs `action` once on the main thread after `seconds`.
    virtual TimerId schedule(double seconds, std::function<void()> action) = 0;
    // Forgets a pending action; an unknown or spent id is ignored.
    virtual void cancel(TimerId id) = 0;
};

}  // namespace qv
