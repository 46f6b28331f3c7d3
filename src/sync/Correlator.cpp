#include "sync/Correlator.h"

#include <algorithm>
#include <cmath>

namespace qv {

namespace {
int roundUpPow2(int length, int& log2n) {
    int n = 2;
    log2n = 1;
    while (n < length && n < (1 << 30)) {
        n <<= 1;
        ++log2n;
    }
    return n;
}
}  // namespace

std::shared_ptr<Correlator> Correlator::make(int minimumLength) {
    int log2n = 1;
    int n = roundUpPow2(minimumLength, log2n);
    auto fft = fft::RealFft::create(n);
    if (!fft) return nullptr;
    return std::shared_ptr<Correlator>(new Correlator(n, log2n, std::move(fft)));
}

std::shared_ptr<const Spectrum> Correlator::spectrum(const std::vector<float>& signal) const {
    auto s = std::make_shared<Spectrum>();
    size_t count = std::min(signal.size(), static_cast<size_t>(n_));
    s->length = static_cast<int>(count);
    fft::Buffer padded(static_cast<size_t>(n_));
    s->bins = fft::Buffer(static_cast<size_t>(n_) + 2);
    if (padded.empty() || s->bins.empty()) return nullptr;
    double sum = 0;
    for (size_t i = 0; i < count; ++i) sum += signal[i];
    float mean = count ? static_cast<float>(sum / static_cast<double>(count)) : 0.0f;
    // Only the signal loses its mean: the padding stays exactly zero.
    for (size_t i = 0; i < count; ++i) padded.data()[i] = signal[i] - mean;
    fft_->forward(padded.data(), s->bins.complex());
    return s;
}

std::vector<Match> Correlator::correlate(const Spectrum& camera, const Spectrum& audio, int minOverlap, float minScore,
                                         int maxPeaks, int separation) const {
    const int lo = minOverlap - audio.length;
    const int hi = camera.length - minOverlap;
    if (hi < lo || maxPeaks < 1) return {};

    const int half = n_ / 2;
    fft::Buffer work(static_cast<size_t>(n_) + 2);
    if (work.empty()) return {};
    std::complex<float>* x = work.complex();
    const std::complex<float>* c = camera.bins.complex();
    const std::complex<float>* a = audio.bins.complex();
    const float eps = 1e-12f;

    // Whitened cross spectrum: the mean bin carries no weight, Nyquist is real.
    x[0] = 0;
    float p = c[half].real() * a[half].real();
    x[half] = p / (std::fabs(p) + eps);
    for (int k = 1; k < half; ++k) {
        float cr = c[k].real(), ci = c[k].imag(), ar = a[k].real(), ai = a[k].imag();
        float re = cr * ar + ci * ai;
        float im = ar * ci - cr * ai;
        float scale = 1.0f / (std::sqrt(re * re + im * im) + eps);
        x[k] = {re * scale, im * scale};
    }
    fft_->inverse(x);
    const float* r = work.data();
    auto at = [&](int lag) { return std::fabs(r[lag < 0 ? lag + n_ : lag]); };

    double sum = 0;
    for (int lag = lo; lag <= hi; ++lag) {
        float v = r[lag < 0 ? lag + n_ : lag];
        sum += static_cast<double>(v * v);
    }
    float rms = static_cast<float>(std::sqrt(sum / static_cast<double>(hi - lo + 1)));
    if (!(rms > 0)) return {};
    const float threshold = rms * minScore;

    std::vector<Match> peaks;
    for (int lag = lo; lag <= hi; ++lag) {
        float v = at(lag);
        if (v < threshold) continue;
        if (lag > lo && v < at(lag - 1)) continue;
        if (lag < hi && !(v > at(lag + 1))) continue;  // a flat top keeps its last sample
        peaks.push_back({lag, v / rms});
    }
    std::stable_sort(peaks.begin(), peaks.end(), [](const Match& l, const Match& m) { return l.score > m.score; });

    std::vector<Match> kept;
    for (const Match& m : peaks) {
        bool tooClose = std::any_of(kept.begin(), kept.end(), [&](const Match& k) {
            return std::abs(static_cast<long long>(k.lag) - m.lag) < separation;
        });
        if (tooClose) continue;
        kept.push_back(m);
        if (static_cast<int>(kept.size()) >= maxPeaks) break;
    }
    return kept;
}

std::shared_ptr<Correlator> SpectrumCache::correlator(int minimumLength) {
    int log2n = 1;
    int n = roundUpPow2(minimumLength, log2n);
    std::lock_guard<std::mutex> guard(lock_);
    auto it = correlators_.find(n);
    if (it != correlators_.end()) return it->second;
    auto c = Correlator::make(n);
    if (c) correlators_[n] = c;
    return c;
}

std::shared_ptr<const Spectrum> SpectrumCache::spectrum(int index, const std::vector<float>& signal,
                                                        const Correlator& c) {
    const std::pair<int, int> key{index, c.n()};
    {
        std::lock_guard<std::mutex> guard(lock_);
        auto it = spectra_.find(key);
        if (it != spectra_.end()) return it->second;
    }
    // Computed outside the lock so that two threads transform at once; a
    // rare duplicate computation gives the same bins.
    auto s = c.spectrum(signal);
    if (!s) return nullptr;
    std::lock_guard<std::mutex> guard(lock_);
    auto it = spectra_.find(key);
    if (it != spectra_.end()) return it->second;
    const long long cost = static_cast<long long>(c.n()) * 4;
    if (bytes_ + cost > budget_) {
        spectra_.clear();  // no eviction of single entries: all go at once
        bytes_ = 0;
    }
    spectra_[key] = s;
    bytes_ += cost;
    return s;
}

long long SpectrumCache::bytes() const {
    std::lock_guard<std::mutex> guard(lock_);
    return bytes_;
}

}  // namespace qv
