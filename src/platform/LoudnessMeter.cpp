#include "platform/LoudnessMeter.h"

#include <ebur128.h>

#include <algorithm>
#include <cmath>

namespace qv::media {

// The library's state under a name of ours, so the header stays free of it.
struct LoudnessMeter::State {
    ebur128_state* st = nullptr;
};

void LoudnessMeter::Destroyer::operator()(State* s) const {
    if (s && s->st) ebur128_destroy(&s->st);
    delete s;
}

Result<LoudnessMeter> LoudnessMeter::create(int sampleRate, int channels) {
    if (sampleRate <= 0 || channels <= 0) return Error{"mesure du volume impossible (format du son invalide)."};
    LoudnessMeter meter;
    meter.state_.reset(new State);
    meter.state_->st = ebur128_init(static_cast<unsigned>(channels), static_cast<unsigned long>(sampleRate),
                                    EBUR128_MODE_I | EBUR128_MODE_TRUE_PEAK);
    if (!meter.state_->st) return Error{"mesure du volume impossible (mémoire insuffisante)."};
    meter.channels_ = channels;
    return meter;
}

Status LoudnessMeter::add(const float* interleaved, size_t frames) {
    if (frames == 0) return Ok{};
    if (ebur128_add_frames_float(state_->st, interleaved, frames) != EBUR128_SUCCESS)
        return Error{"mesure du volume impossible (mémoire insuffisante)."};
    return Ok{};
}

std::optional<double> LoudnessMeter::integrated() const {
    double lufs = 0;
    if (ebur128_loudness_global(state_->st, &lufs) != EBUR128_SUCCESS || !std::isfinite(lufs)) return std::nullopt;
    return lufs;
}

double LoudnessMeter::truePeak() const {
    double peak = 0;
    for (int c = 0; c < channels_; ++c) {
        double p = 0;
        if (ebur128_true_peak(state_->st, static_cast<unsigned>(c), &p) == EBUR128_SUCCESS) peak = std::max(peak, p);
    }
    return peak;
}

}  // namespace qv::media
