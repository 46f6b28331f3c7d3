// parallelFor: runs fn(i) for i in [0, count) on up to `threads` threads.
// Each index runs exactly once; callers write results into their own slot,
// so the outcome never depends on thread timing.
#pragma once

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

namespace qv {

inline int defaultThreads() { return std::max(1u, std::thread::hardware_concurrency()); }

template <class Fn>
void parallelFor(int count, int threads, Fn&& fn) {
    threads = std::max(1, std::min(threads, count));
    if (threads <= 1) {
        for (int i = 0; i < count; ++i) fn(i);
        return;
    }
    std::atomic<int> next{0};
    auto worker = [&] {
        for (int i = next++; i < count; i = next++) fn(i);
    };
    std::vector<std::jthread> pool;
    for (int t = 1; t < threads; ++t) pool.emplace_back(worker);
    worker();
}

}  // namespace qv
