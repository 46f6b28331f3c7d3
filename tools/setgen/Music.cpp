// Music synthesis: arranges the set bar by bar (groove, break, drop) and
// renders each instrument as events added into one buffer. Every random
// choice comes from one SplitMix64 walked in a fixed order, and every event
// owns a noise generator seeded from it, so the render does not depend on
// the order in which samples are computed.
#include "Music.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "Dsp.h"

namespace qv::setgen {

namespace {

enum class Part { groove, breakdown, drop };

// Bar lengths of the arrangement. A break lasts long enough (8 bars, about
// 15 s) for the bass to be clearly gone before the drop, and two drops are
// always at least 26 bars (48 s at 130 BPM) apart.
constexpr int leadBars = 6;
constexpr int minBreak = 8, maxBreak = 16;
constexpr int minDrop = 16, maxDrop = 32;
constexpr int minAfter = 2;
constexpr size_t tracksBars = 128;  // one track of a set with phrases

std::vector<Part> arrange(int totalBars, int drops, SplitMix64& rng) {
    // The set may end on the last drop; grooves only separate drops.
    auto needed = [](int n) { return leadBars + n * (minBreak + minDrop) + std::max(0, n - 1) * minAfter; };
    if (drops < 0) drops = std::max(0, (totalBars - leadBars) / 80);
    while (drops > 0 && needed(drops) > totalBars) --drops;
    if (drops == 0) return std::vector<Part>(static_cast<size_t>(totalBars), Part::groove);

    int lead = leadBars;
    std::vector<int> breakLen(static_cast<size_t>(drops), minBreak);
    std::vector<int> dropLen(static_cast<size_t>(drops), minDrop);
    std::vector<int> afterLen(static_cast<size_t>(drops), minAfter);
    afterLen.back() = 0;
    for (int extra = totalBars - needed(drops); extra > 0; --extra) {
        int slot = uniformInt(rng, 0, 3 * drops);
        if (slot == 0) {
            ++lead;
            continue;
        }
        auto i = static_cast<size_t>((slot - 1) / 3);
        int what = (slot - 1) % 3;
        if (what == 0 && breakLen[i] < maxBreak)
            ++breakLen[i];
        else if (what == 1 && dropLen[i] < maxDrop)
            ++dropLen[i];
        else
            ++afterLen[i];
    }

    std::vector<Part> bars(static_cast<size_t>(lead), Part::groove);
    for (size_t i = 0; i < breakLen.size(); ++i) {
        bars.insert(bars.end(), static_cast<size_t>(breakLen[i]), Part::breakdown);
        bars.insert(bars.end(), static_cast<size_t>(dropLen[i]), Part::drop);
        bars.insert(bars.end(), static_cast<size_t>(afterLen[i]), Part::groove);
    }
    return bars;
}

// Adds `length` seconds of `voice()` into the buffer from `t0`, with a short
// fade at the end so no event stops on a click.
template <class Voice>
void addEvent(std::vector<float>& buf, int rate, double t0, double length, Voice&& voice) {
    long start = std::lround(t0 * rate);
    long count = std::lround(length * rate);
    long fade = std::max(1L, std::min(count / 4, static_cast<long>(rate / 100)));
    auto size = static_cast<long>(buf.size());
    for (long i = 0; i < count; ++i) {
        long k = start + i;
        if (k >= size) break;
        float v = voice(static_cast<double>(i) / rate);
        if (i > count - fade) v *= static_cast<float>(count - i) / static_cast<float>(fade);
        if (k >= 0) buf[static_cast<size_t>(k)] += v;
    }
}

double noteHz(int semitonesFromA1) { return 55.0 * std::pow(2.0, semitonesFromA1 / 12.0); }

class Synth {
public:
    Synth(std::vector<float>& buf, int rate) : buf_(buf), rate_(rate) {}

    void kick(double t0, double vel, uint64_t seed) {
        double phase = 0, sweep = 105, env = vel;
        const double sweepDecay = std::exp(-1.0 / (0.035 * rate_));
        const double envDecay = std::exp(-1.0 / (0.28 * rate_));
        SplitMix64 noise(seed);
        addEvent(buf_, rate_, t0, 0.6, [&](double t) {
            phase += (46.0 + sweep) / rate_;
            double v = sine(phase) * env * std::min(1.0, t / 0.002);
            if (t < 0.004) v += 0.25 * vel * whiteNoise(noise) * (1.0 - t / 0.004);
            sweep *= sweepDecay;
            env *= envDecay;
            return static_cast<float>(v);
        });
    }

    // The hit that opens a drop: a long sub boom under the first kick, so
    // the bass comes back in one clear step.
    void impact(double t0, double vel) {
        double phase = 0, sweep = 30, env = vel;
        const double sweepDecay = std::exp(-1.0 / (0.3 * rate_));
        const double envDecay = std::exp(-1.0 / (0.5 * rate_));
        addEvent(buf_, rate_, t0, 1.5, [&](double t) {
            phase += (42.0 + sweep) / rate_;
            double v = sine(phase) * env * std::min(1.0, t / 0.003);
            sweep *= sweepDecay;
            env *= envDecay;
            return static_cast<float>(v);
        });
    }

    void bass(double t0, double length, double hz, double vel, double brightness, double tau) {
        double weights[6], sum = 0;
        for (int k = 0; k < 6; ++k) sum += weights[k] = std::pow(brightness, k) / (k + 1);
        for (double& w : weights) w /= sum;
        double phase = 0, env = vel;
        const double decay = std::exp(-1.0 / (tau * rate_));
        addEvent(buf_, rate_, t0, length, [&](double t) {
            phase += hz / rate_;
            double v = 0;
            for (int k = 0; k < 6; ++k) v += weights[k] * sine(phase * (k + 1));
            v *= env * std::min(1.0, t / 0.003);
            env *= decay;
            return static_cast<float>(v);
        });
    }

    void hat(double t0, double vel, bool open, uint64_t seed) {
        SplitMix64 noise(seed);
        Biquad hp = Biquad::highPass(7000, 0.7, rate_);
        const double tau = open ? 0.12 : 0.014;
        const double decay = std::exp(-1.0 / (tau * rate_));
        double env = vel;
        addEvent(buf_, rate_, t0, tau * 5, [&](double) {
            float v = hp.process(whiteNoise(noise)) * static_cast<float>(env);
            env *= decay;
            return v;
        });
    }

    void clap(double t0, double vel, uint64_t seed) {
        SplitMix64 noise(seed);
        Biquad bp = Biquad::bandPass(1400, 0.9, rate_);
        addEvent(buf_, rate_, t0, 0.3, [&](double t) {
            double env = 0;
            for (double b : {0.0, 0.009, 0.018})
                if (t >= b) env = std::max(env, std::exp(-(t - b) / 0.004));
            if (t >= 0.022) env = std::max(env, 0.6 * std::exp(-(t - 0.022) / 0.07));
            return bp.process(whiteNoise(noise)) * static_cast<float>(env * vel * 2.5);
        });
    }

    void stab(double t0, const std::vector<double>& chord, double vel, double tau) {
        static const double weights[] = {1.0, 1.0 / std::pow(2, 1.5), 1.0 / std::pow(3, 1.5), 1.0 / std::pow(4, 1.5)};
        std::vector<double> phases(chord.size(), 0.0);
        double env = vel;
        const double decay = std::exp(-1.0 / (tau * rate_));
        addEvent(buf_, rate_, t0, tau * 5, [&](double t) {
            double v = 0;
            for (size_t n = 0; n < chord.size(); ++n) {
                phases[n] += chord[n] / rate_;
                for (int k = 0; k < 4; ++k) v += sine(phases[n] * (k + 1)) * weights[k];
            }
            v *= env * std::min(1.0, t / 0.004) / static_cast<double>(chord.size());
            env *= decay;
            return static_cast<float>(v);
        });
    }

    // A sustained chord across a break, swelling in and out.
    void pad(double t0, double length, const std::vector<double>& chord, double vel) {
        std::vector<double> phases(chord.size(), 0.0);
        addEvent(buf_, rate_, t0, length, [&](double t) {
            double v = 0;
            double wobble = 1.0 + 0.004 * sine(t * 0.3);
            for (size_t n = 0; n < chord.size(); ++n) {
                phases[n] += chord[n] * wobble / rate_;
                v += sine(phases[n]) + 0.3 * sine(phases[n] * 2) + 0.12 * sine(phases[n] * 3);
            }
            double swell = std::sin(std::numbers::pi * std::clamp(t / length, 0.0, 1.0));
            return static_cast<float>(v * vel * std::sqrt(swell) / static_cast<double>(chord.size()));
        });
    }

    // Noise whose band climbs from 400 Hz to 5 kHz as it grows louder.
    void riser(double t0, double length, double vel, uint64_t seed) {
        SplitMix64 noise(seed);
        Biquad bp = Biquad::bandPass(400, 2.0, rate_);
        Biquad hp = Biquad::highPass(300, 0.7, rate_);
        long i = 0;
        addEvent(buf_, rate_, t0, length, [&](double t) {
            double x = std::clamp(t / length, 0.0, 1.0);
            if (i++ % 32 == 0) bp.retune(Biquad::bandPass(400 * std::pow(12.5, x), 2.0, rate_));
            return hp.process(bp.process(whiteNoise(noise))) * static_cast<float>(vel * x * x * 3.0);
        });
    }

    void crash(double t0, double vel, uint64_t seed) {
        SplitMix64 noise(seed);
        Biquad hp = Biquad::highPass(5000, 0.7, rate_);
        double env = vel;
        const double decay = std::exp(-1.0 / (1.0 * rate_));
        addEvent(buf_, rate_, t0, 3.5, [&](double) {
            float v = hp.process(whiteNoise(noise)) * static_cast<float>(env);
            env *= decay;
            return v;
        });
    }

    // A voice in the crowd: a vowel with its own pitch glide and formants.
    void shout(double t0, double length, double vel, SplitMix64& rng) {
        double f0 = uniform(rng, 170, 380), glide = uniform(rng, -0.25, 0.25);
        double f1 = uniform(rng, 400, 800), f2 = uniform(rng, 900, 1800);
        int harmonics = std::min(12, static_cast<int>(0.45 * rate_ / (f0 * 1.3)));
        std::vector<double> weights(static_cast<size_t>(harmonics));
        for (int k = 1; k <= harmonics; ++k) {
            double f = k * f0;
            weights[static_cast<size_t>(k - 1)] = std::exp(-std::pow((f - f1) / 200, 2)) +
                                                  0.7 * std::exp(-std::pow((f - f2) / 300, 2)) + 0.05;
        }
        double phase = 0;
        addEvent(buf_, rate_, t0, length, [&](double t) {
            double f = f0 * (1.0 + glide * t / length) * (1.0 + 0.02 * sine(5.5 * t));
            phase += f / rate_;
            double v = 0;
            for (int k = 1; k <= harmonics; ++k) v += weights[static_cast<size_t>(k - 1)] * sine(phase * k);
            double env = std::min({1.0, t / 0.04, (length - t) / 0.1});
            return static_cast<float>(v * vel * std::max(0.0, env) * 0.35);
        });
    }

    // The room: band-limited noise whose level wanders slowly, louder for a
    // while after each drop.
    void crowd(double duration, const std::vector<double>& drops, SplitMix64& rng, double loudness) {
        const double step = 1.7;
        std::vector<double> points(static_cast<size_t>(duration / step) + 3);
        for (double& p : points) p = uniform(rng, 0.45, 1.0);
        SplitMix64 noise(rng.next());
        Biquad hp = Biquad::highPass(250, 0.7, rate_);
        Biquad lp = Biquad::lowPass(2500, 0.7, rate_);
        size_t next = 0;  // the first drop whose cheer is not over yet
        for (size_t k = 0; k < buf_.size(); ++k) {
            double t = static_cast<double>(k) / rate_;
            double x = t / step;
            auto i = static_cast<size_t>(x);
            double f = x - static_cast<double>(i);
            double w = 0.5 - 0.5 * sine(0.5 * f + 0.25);  // cosine ease between points
            double level = points[i] + (points[i + 1] - points[i]) * w;
            while (next < drops.size() && t >= drops[next] + 20) ++next;
            if (next < drops.size() && t >= drops[next]) level *= 1.0 + 2.0 * std::exp(-(t - drops[next]) / 3.0);
            buf_[k] += lp.process(hp.process(whiteNoise(noise))) * static_cast<float>(0.09 * loudness * level);
        }
    }

private:
    std::vector<float>& buf_;
    int rate_;
};

// Minor pentatonic degrees, in semitones above the key's root.
constexpr int scale[] = {0, 3, 5, 7, 10};

int scaleNote(int root, int degree) {
    int octave = degree / 5, d = degree % 5;
    if (d < 0) {
        d += 5;
        --octave;
    }
    return root + 12 * octave + scale[d];
}

}  // namespace

Music renderMusic(const MusicRecipe& recipe) {
    SplitMix64 arrangementRng(recipe.seed);
    SplitMix64& rng = arrangementRng;
    Music music;
    music.rate = recipe.rate;
    music.duration = recipe.duration;
    music.bpm = std::round(uniform(rng, 120.0, 130.0) * 100.0) / 100.0;
    const double beat = 60.0 / music.bpm, bar = 4 * beat, step = beat / 4;
    const int totalBars = static_cast<int>(std::ceil(recipe.duration / bar));
    const std::vector<Part> parts = arrange(totalBars, recipe.drops, rng);

    for (size_t b = 0; b < parts.size(); ++b) {
        if (parts[b] != Part::breakdown || (b > 0 && parts[b - 1] == Part::breakdown)) continue;
        size_t e = b;
        while (e < parts.size() && parts[e] == Part::breakdown) ++e;
        music.breaks.emplace_back(static_cast<double>(b) * bar, static_cast<double>(e) * bar);
        if (e < parts.size()) music.drops.push_back(static_cast<double>(e) * bar);
    }

    music.samples.assign(static_cast<size_t>(std::llround(recipe.duration * recipe.rate)), 0.0f);
    Synth synth(music.samples, recipe.rate);
    const int key = uniformInt(rng, -2, 9);  // semitones from A1: bass lies between 49 and 110 Hz

    size_t partStart = 0;
    for (size_t b = 0; b < parts.size(); ++b) {
        const Part part = parts[b];
        const double t0 = static_cast<double>(b) * bar;
        const bool beats = part != Part::breakdown;
        const double energy = part == Part::drop ? 1.0 : 0.8;
        if (b > 0 && parts[b - 1] != part) partStart = b;
        // With phrases, a bar's music is drawn from its place in the phrase
        // of its kind of part within its track (128 bars, some four
        // minutes), so bar 9 of a drop plays bar 1 again; the next track
        // brings new phrases.
        const uint64_t slot = (b / tracksBars) * 32 + static_cast<uint64_t>(part) * 8 + (b - partStart) % 8;
        SplitMix64 phraseRng(recipe.seed ^ (0x9E3779B97F4A7C15ull * (slot + 1)));
        SplitMix64& rng = recipe.phrases ? phraseRng : arrangementRng;

        if (beats) {
            // Draws go through named values: the order in which a call's
            // arguments are evaluated is not fixed, the seed's meaning must be.
            for (int k = 0; k < 4; ++k) {
                double vel = energy * uniform(rng, 0.9, 1.0);
                synth.kick(t0 + k * beat, vel, rng.next());
            }
            for (int k : {1, 3}) {
                if (!chance(rng, 0.85)) continue;
                double vel = uniform(rng, 0.5, 1.0) * 0.3;
                synth.clap(t0 + k * beat, vel, rng.next());
            }

            // One note per bar, a pattern per bar, now and then a jump.
            int note = scaleNote(key, uniformInt(rng, 0, 4));
            double brightness = uniform(rng, 0.3, 0.75);
            // The first two bars of a drop hold long notes: the bass then
            // stays up between kicks, and its return is the one big step.
            const bool opening = part == Part::drop && ((b >= 1 && parts[b - 1] == Part::breakdown) ||
                                                        (b >= 2 && parts[b - 2] == Part::breakdown));
            const int style = opening ? 3 : uniformInt(rng, 0, 2);
            for (int s = 0; s < 16; ++s) {
                bool onBeat = s % 4 == 0;
                bool play = style == 0   ? s % 4 == 2
                            : style == 1 ? !onBeat
                            : style == 2 ? !onBeat && chance(rng, 0.5)
                                         : s % 8 == 0;
                if (!play) continue;
                int n = chance(rng, 0.15) ? note + (chance(rng, 0.5) ? 12 : 7) : note;
                double len = style == 0 ? step * 1.6 : style == 3 ? step * 8 : step * 0.85;
                double vel = energy * 0.75 * uniform(rng, 0.85, 1.0);
                synth.bass(t0 + s * step, len, noteHz(n), vel, brightness, style == 3 ? 2.0 : 0.5);
            }
        }

        // Hats on every bar, thinner in breaks, never twice the same: the
        // drummer's hand and the DJ's effects change even where the track
        // repeats, so from here on the draws are the set's own.
        SplitMix64& own = arrangementRng;
        for (int s = 0; s < 16; ++s) {
            double p = part == Part::breakdown ? 0.35 : (s % 2 == 0 ? 0.6 : 0.9);
            if (chance(own, p)) {
                double vel = uniform(own, 0.25, 1.0) * 0.22;
                synth.hat(t0 + s * step, vel, false, own.next());
            }
            if (s % 4 == 2 && chance(own, 0.35)) {
                double vel = uniform(own, 0.3, 0.8) * 0.12;
                synth.hat(t0 + s * step, vel, true, own.next());
            }
        }

        // Melodic stabs at random places.
        int stabs = part == Part::breakdown ? uniformInt(own, 1, 4) : uniformInt(own, 0, 3);
        for (int k = 0; k < stabs; ++k) {
            int root = scaleNote(key + 36, uniformInt(own, 0, 6));
            std::vector<double> chord = {noteHz(root), noteHz(root + (chance(own, 0.5) ? 3 : 4))};
            if (chance(own, 0.6)) chord.push_back(noteHz(root + 7));
            double at = t0 + uniformInt(own, 0, 15) * step;
            double vel = uniform(own, 0.06, 0.16);
            synth.stab(at, chord, vel, uniform(own, 0.06, 0.3));
        }

        // A pad and a riser carry each break; a crash marks its drop.
        if (part == Part::breakdown && (b == 0 || parts[b - 1] != Part::breakdown)) {
            size_t e = b;
            while (e < parts.size() && parts[e] == Part::breakdown) ++e;
            double length = static_cast<double>(e - b) * bar;
            int root = scaleNote(key + 24, uniformInt(own, 0, 4));
            while (noteHz(root) < 180) root += 12;
            synth.pad(t0, length, {noteHz(root), noteHz(root + 3), noteHz(root + 7)}, 0.09);
            double riseLen = std::min(4 * bar, length);
            synth.riser(t0 + length - riseLen, riseLen, 0.12, own.next());
            if (e < parts.size()) {
                synth.crash(t0 + length, 0.25, own.next());
                synth.impact(t0 + length, 1.1);
            }
        }
    }

    // The crowd: a bed, shouts and bursts of clapping at random moments.
    synth.crowd(recipe.duration, music.drops, rng, recipe.room);
    for (double t = uniform(rng, 0.5, 3.0); t < recipe.duration; t += uniform(rng, 1.5, 7.0)) {
        if (chance(rng, 0.6)) {
            double length = uniform(rng, 0.25, 0.9);
            double vel = uniform(rng, 0.04, 0.12) * recipe.room;
            synth.shout(t, length, vel, rng);
        } else {
            double c = t;
            for (int n = uniformInt(rng, 3, 10); n > 0; --n) {
                double vel = uniform(rng, 0.04, 0.12) * recipe.room;
                synth.clap(c, vel, rng.next());
                c += uniform(rng, 0.14, 0.35);
            }
        }
    }

    float peak = 0;
    for (float v : music.samples) peak = std::max(peak, std::fabs(v));
    if (peak > 0) {
        const float scale = 0.6f / peak;
        for (float& v : music.samples) v *= scale;
    }
    return music;
}

}  // namespace qv::setgen
