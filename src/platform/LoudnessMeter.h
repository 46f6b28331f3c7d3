// LoudnessMeter: the loudness of a sound as the broadcast norm measures it
// (K-weighted, gated integration) and its true peak, over interleaved float
// frames fed in any number of pieces. A thin owner of a libebur128 state.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include "base/Result.h"

namespace qv::media {

class LoudnessMeter {
public:
    // Fails when the library refuses the rate or the channel count.
    static Result<LoudnessMeter> create(int sampleRate, int channels);

    Status add(const float* interleaved, size_t frames);

    // Integrated loudness in LUFS; none while everything fed is silence or
    // lies below the absolute gate.
    std::optional<double> integrated() const;
    // The largest true peak over the channels, linear (1 is 0 dBTP).
    double truePeak() const;

    struct State;
    struct Destroyer {
        void operator()(State* s) const;
    };

private:
    std::unique_ptr<State, Destroyer> state_;
    int channels_ = 0;
};

}  // namespace qv::media
