// Small signal pieces shared by the synthesiser and the microphones: random
// draws from SplitMix64, a table sine and RBJ biquads. Everything here is
// deterministic: the same seed gives the same samples on every run.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "base/SplitMix64.h"

namespace qv::setgen {

inline double uniform(SplitMix64& rng, double lo, double hi) { return lo + (hi - lo) * rng.unit(); }

// Inclusive on both ends.
inline int uniformInt(SplitMix64& rng, int lo, int hi) {
    return lo + static_cast<int>(rng.next() % static_cast<uint64_t>(hi - lo + 1));
}

inline bool chance(SplitMix64& rng, double p) { return rng.unit() < p; }

// White noise in [-1, 1).
inline float whiteNoise(SplitMix64& rng) { return static_cast<float>(rng.unit() * 2.0 - 1.0); }

// Roughly Gaussian noise with unit variance (sum of four uniforms).
inline float gaussNoise(SplitMix64& rng) {
    double s = rng.unit() + rng.unit() + rng.unit() + rng.unit() - 2.0;
    return static_cast<float>(s * 1.7320508075688772);
}

// sin(2π·phase), phase in cycles, from a 4096-point table with linear
// interpolation: plenty for synthesis and several times faster than std::sin.
inline float sine(double phase) {
    static const std::array<float, 4097> table = [] {
        std::array<float, 4097> t{};
        for (size_t i = 0; i < t.size(); ++i)
            t[i] = static_cast<float>(std::sin(2.0 * std::numbers::pi * static_cast<double>(i) / 4096.0));
        return t;
    }();
    double x = (phase - std::floor(phase)) * 4096.0;
    auto i = static_cast<size_t>(x);
    if (i >= 4096) i = 0;
    float f = static_cast<float>(x - static_cast<double>(i));
    return table[i] + (table[i + 1] - table[i]) * f;
}

// Second-order section (RBJ cookbook), direct form I.
class Biquad {
public:
    static Biquad lowPass(double fc, double q, double rate) { return make(fc, q, rate, Type::low); }
    static Biquad highPass(double fc, double q, double rate) { return make(fc, q, rate, Type::high); }
    static Biquad bandPass(double fc, double q, double rate) { return make(fc, q, rate, Type::band); }

    // First-order sections (6 dB per octave), for the gentlest slopes.
    static Biquad lowPass1(double fc, double rate) {
        double k = std::tan(std::numbers::pi * std::clamp(fc, 1.0, 0.45 * rate) / rate);
        Biquad f;
        f.b0_ = f.b1_ = k / (1.0 + k);
        f.a1_ = (k - 1.0) / (k + 1.0);
        return f;
    }
    static Biquad highPass1(double fc, double rate) {
        double k = std::tan(std::numbers::pi * std::clamp(fc, 1.0, 0.45 * rate) / rate);
        Biquad f;
        f.b0_ = 1.0 / (1.0 + k);
        f.b1_ = -f.b0_;
        f.a1_ = (k - 1.0) / (k + 1.0);
        return f;
    }

    float process(float x) {
        double y = b0_ * x + b1_ * x1_ + b2_ * x2_ - a1_ * y1_ - a2_ * y2_;
        x2_ = x1_;
        x1_ = x;
        y2_ = y1_;
        y1_ = y;
        return static_cast<float>(y);
    }

    void reset() { x1_ = x2_ = y1_ = y2_ = 0; }

    // Takes another filter's coefficients and keeps this one's state, for
    // sweeps that move the corner while the sound runs.
    void retune(const Biquad& other) {
        b0_ = other.b0_;
        b1_ = other.b1_;
        b2_ = other.b2_;
        a1_ = other.a1_;
        a2_ = other.a2_;
    }

private:
    enum class Type { low, high, band };

    static Biquad make(double fc, double q, double rate, Type type) {
        // Keep the corner below Nyquist so a low rate (8 kHz sets) stays stable.
        fc = std::clamp(fc, 1.0, 0.45 * rate);
        double w = 2.0 * std::numbers::pi * fc / rate;
        double cw = std::cos(w), alpha = std::sin(w) / (2.0 * q);
        double a0 = 1.0 + alpha;
        Biquad f;
        switch (type) {
        case Type::low:
            f.b0_ = (1.0 - cw) / 2.0 / a0;
            f.b1_ = (1.0 - cw) / a0;
            f.b2_ = f.b0_;
            break;
        case Type::high:
            f.b0_ = (1.0 + cw) / 2.0 / a0;
            f.b1_ = -(1.0 + cw) / a0;
            f.b2_ = f.b0_;
            break;
        case Type::band:
            f.b0_ = alpha / a0;
            f.b1_ = 0.0;
            f.b2_ = -alpha / a0;
            break;
        }
        f.a1_ = -2.0 * cw / a0;
        f.a2_ = (1.0 - alpha) / a0;
        return f;
    }

    double b0_ = 1, b1_ = 0, b2_ = 0, a1_ = 0, a2_ = 0;
    double x1_ = 0, x2_ = 0, y1_ = 0, y2_ = 0;
};

}  // namespace qv::setgen
