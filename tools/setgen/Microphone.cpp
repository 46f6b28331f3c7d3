// Microphone draws and recording: room, zero-phase band, gain and hiss.
#include "Microphone.h"

#include <algorithm>
#include <cmath>

#include "Dsp.h"

namespace qv::setgen {

namespace {

void addRoom(SplitMix64& rng, Microphone& mic, double wet) {
    int taps = uniformInt(rng, 3, 6);
    for (int i = 0; i < taps; ++i) {
        double delay = uniform(rng, 0.004, 0.045);
        mic.reflections.emplace_back(delay, uniform(rng, -1.0, 1.0) * wet / (i + 1));
    }
    mic.echoDelay = uniform(rng, 0.025, 0.06);
    mic.echoFeedback = uniform(rng, 0.2, 0.45);
    mic.echoMix = uniform(rng, 0.05, 0.2) * wet / 0.3;
}

// One pass of a biquad over the samples, then a second pass backwards:
// the phase shifts cancel, so the band moves nothing in time.
void zeroPhase(std::vector<float>& x, Biquad filter) {
    for (float& v : x) v = filter.process(v);
    filter.reset();
    for (auto it = x.rbegin(); it != x.rend(); ++it) *it = filter.process(*it);
}

}  // namespace

Microphone Microphone::camera(SplitMix64& rng) {
    Microphone mic;
    mic.gain = uniform(rng, 0.6, 1.3);
    mic.highPass = uniform(rng, 90, 180);
    mic.lowPass = chance(rng, 0.6) ? uniform(rng, 6000, 12000) : 0;
    mic.hiss = uniform(rng, 0.002, 0.008);
    addRoom(rng, mic, 0.3);
    mic.noiseSeed = rng.next();
    return mic;
}

Microphone Microphone::recorder(SplitMix64& rng) {
    Microphone mic;
    mic.gain = uniform(rng, 0.7, 1.4);
    if (chance(rng, 0.5)) {
        mic.highPass = chance(rng, 0.5) ? uniform(rng, 25, 40) : 0;
        mic.lowPass = uniform(rng, 8000, 15000);
    }
    mic.hiss = uniform(rng, 0.0005, 0.002);
    addRoom(rng, mic, 0.12);
    mic.noiseSeed = rng.next();
    return mic;
}

std::vector<float> Microphone::record(const float* mix, size_t count, int rate, int channels) const {
    // The room: direct sound, a few reflections and a decaying echo.
    std::vector<float> room(mix, mix + count);
    for (const auto& [delay, g] : reflections) {
        auto d = static_cast<size_t>(std::lround(delay * rate));
        for (size_t i = count; i-- > d;) room[i] += static_cast<float>(g) * mix[i - d];
    }
    if (echoMix > 0) {
        auto d = std::max<size_t>(1, static_cast<size_t>(std::lround(echoDelay * rate)));
        std::vector<float> echo(count, 0.0f);
        for (size_t i = d; i < count; ++i)
            echo[i] = room[i - d] + static_cast<float>(echoFeedback) * echo[i - d];
        for (size_t i = 0; i < count; ++i) room[i] += static_cast<float>(echoMix) * echo[i];
    }

    // First-order sections, run twice: 12 dB per octave in all, no delay.
    if (highPass > 0) zeroPhase(room, Biquad::highPass1(highPass, rate));
    if (lowPass > 0) zeroPhase(room, Biquad::lowPass1(lowPass, rate));

    std::vector<float> out(count * static_cast<size_t>(channels));
    // Seeds for the channels come out of a generator of their own: seeds one
    // step apart would give the same noise shifted by one draw.
    SplitMix64 seeds(noiseSeed);
    for (int c = 0; c < channels; ++c) {
        SplitMix64 noise(seeds.next());
        // Each channel of a stereo pair sits a little apart in level.
        double level = gain * (c == 0 ? 1.0 : 0.93);
        for (size_t i = 0; i < count; ++i) {
            double v = level * room[i] + hiss * gaussNoise(noise);
            out[i * static_cast<size_t>(channels) + static_cast<size_t>(c)] =
                static_cast<float>(std::clamp(v, -1.0, 1.0));
        }
    }
    return out;
}

}  // namespace qv::setgen
