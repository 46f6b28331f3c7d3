#include "platform/ThreadPriority.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace qv::platform {

void yieldToOthers(int steps) {
    // On Linux a thread is a task of its own: PRIO_PROCESS with its id sets
    // that thread only, and the threads it creates inherit it.
    const auto tid = static_cast<id_t>(syscall(SYS_gettid));
    errno = 0;
    const int now = getpriority(PRIO_PROCESS, tid);
    if (errno != 0) return;
    (void)setpriority(PRIO_PROCESS, tid, std::min(19, now + std::clamp(steps, 1, 19)));
}

void runWhenIdle() {
    sched_param none{};
    if (pthread_setschedparam(pthread_self(), SCHED_IDLE, &none) != 0) yieldToOthers(19);
}

int niceness() {
    errno = 0;
    const int now = getpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)));
    return errno != 0 ? 0 : now;
}

}  // namespace qv::platform
