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
    s->bins = fft::Buffer(static_cast<size_t>(n_) + 2, false);
    if (s->bins.empty()) return nullptr;
    double sum = 0;
    for (size_t i = 0; i < count; ++i) sum += signal[i];
    float mean = count ? static_cast<float>(sum / static_cast<double>(count)) : 0.0f;
    // Only the signal loses its mean: the padding stays exactly zero.
    float* x = s->bins.data();
    for (size_t i = 0; i < count; ++i) x[i] = signal[i] - mean;
    std::fill(x + count, x + n_ + 2, 0.0f);
    fft_->forward(x);
    return s;
}

std::vector<Match> Correlator::correlate(const Spectrum& camera, const Spectrum& audio, int minOverlap, float minScore,
                                         int maxPeaks, int separation, fft::Buffer* scratch) const {
    const int lo = minOverlap - audio.length;
    const int hi = camera.length - minOverlap;
    if (hi < lo || maxPeaks < 1) return {};

    const int half = n_ / 2;
    fft::Buffer local;
    fft::Buffer& work = scratch ? *scratch : local;
    if (work.size() < static_cast<size_t>(n_) + 2) {
        work = fft::Buffer();  // the old one goes before the new one comes
        work = fft::Buffer(static_cast<size_t>(n_) + 2, false);
    }
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

    // Squares in single precision, summed in double over two stretches
    // (negative lags wrap to the end of r), four running sums each so the
    // loop vectorises; the order is fixed, so the RMS is repeatable.
    auto sumSquares = [](const float* v, int count) {
        double acc[4] = {0, 0, 0, 0};
        int i = 0;
        for (; i + 4 <= count; i += 4)
            for (int k = 0; k < 4; ++k) acc[k] += static_cast<double>(v[i + k] * v[i + k]);
        for (; i < count; ++i) acc[0] += static_cast<double>(v[i] * v[i]);
        return (acc[0] + acc[1]) + (acc[2] + acc[3]);
    };
    double sum = 0;
    if (lo < 0) sum += sumSquares(r + n_ + lo, std::min(hi, -1) - lo + 1);
    if (hi >= 0) sum += sumSquares(r + std::max(lo, 0), hi - std::max(lo, 0) + 1);
    float rms = static_cast<float>(std::sqrt(sum / static_cast<double>(hi - lo + 1)));
    if (!(rms > 0)) return {};
    const float threshold = rms * minScore;

    std::vector<Match> peaks;
    auto consider = [&](int lag) {
        float v = at(lag);
        if (v < threshold) return;
        if (lag > lo && v < at(lag - 1)) return;
        if (lag < hi && !(v > at(lag + 1))) return;  // a flat top keeps its last sample
        peaks.push_back({lag, v / rms});
    };
    // Peaks are rare: blocks whose largest value stays under the threshold
    // are skipped after one vectorised pass. Lags are still walked upward.
    auto walk = [&](int from, int to) {
        const float* base = r + (from < 0 ? from + n_ : from);
        const int count = to - from + 1;
        constexpr int block = 64;
        for (int b = 0; b < count; b += block) {
            const int e = std::min(count, b + block);
            float m = 0;
            for (int i = b; i < e; ++i) {
                float v = std::fabs(base[i]);
                m = v > m ? v : m;
            }
            if (m < threshold) continue;
            for (int i = b; i < e; ++i) consider(from + i);
        }
    };
    if (lo < 0) walk(lo, std::min(hi, -1));
    if (hi >= 0) walk(std::max(lo, 0), hi);
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
    ++computed_;
    const long long cost = static_cast<long long>(c.n()) * 4;
    if (bytes_ + cost > budget_) {
        spectra_.clear();  // no eviction of single entries: all go at once
        bytes_ = 0;
    }
    spectra_[key] = s;
    bytes_ += cost;
    return s;
}

fft::Buffer SpectrumCache::borrowScratch() {
    std::lock_guard<std::mutex> guard(lock_);
    if (scratch_.empty()) return {};
    fft::Buffer b = std::move(scratch_.back());
    scratch_.pop_back();
    return b;
}

void SpectrumCache::returnScratch(fft::Buffer buffer) {
    std::lock_guard<std::mutex> guard(lock_);
    scratch_.push_back(std::move(buffer));
}

int SpectrumCache::computed() const {
    std::lock_guard<std::mutex> guard(lock_);
    return computed_;
}

long long SpectrumCache::bytes() const {
    std::lock_guard<std::mutex> guard(lock_);
    return bytes_;
}

}  // namespace qv
