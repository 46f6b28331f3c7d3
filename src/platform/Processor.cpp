#include "platform/Processor.h"

#include <sched.h>
#include <time.h>

#include <algorithm>
#include <thread>

namespace qv::platform {

namespace {

double clockSeconds(clockid_t clock) {
    timespec t{};
    if (clock_gettime(clock, &t) != 0) return 0;
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

}  // namespace

int processorCores() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof set, &set) == 0) return std::max(1, CPU_COUNT(&set));
    return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

double threadCpuSeconds() { return clockSeconds(CLOCK_THREAD_CPUTIME_ID); }

double processCpuSeconds() { return clockSeconds(CLOCK_PROCESS_CPUTIME_ID); }

}  // namespace qv::platform
