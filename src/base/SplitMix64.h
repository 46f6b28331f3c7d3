// SplitMix64: the repeatable generator behind every random choice that must
// come out the same from the same seed (edits, effect draws).
#pragma once

#include <cstdint>

namespace qv {

class SplitMix64 {
public:
    explicit SplitMix64(uint64_t state) : state_(state) {}

    uint64_t next() {
        state_ += 0x9E3779B97F4A7C15ull;
        uint64_t z = state_;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }

    // Uniform in [0, 1): the top 53 bits of the output.
    double unit() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }

    uint64_t state() const { return state_; }

private:
    uint64_t state_;
};

}  // namespace qv
