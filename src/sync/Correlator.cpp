#include "sync/Correlator.h"

#include <algorithm>
#include <cmath>

#include "platform/Memory.h"

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

// The hot loops' bodies are built twice, for AVX2 and plain, and the build
// is picked once from the processor. No FMA in either: every product is
// rounded before it is added, as written, so both give the same bits.
// (Dispatch by hand rather than by ifunc, which sanitizers cannot run.)
bool haveAvx2() {
    static const bool avx2 = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx2") != 0;
    }();
    return avx2;
}

// Whitened cross spectrum of bins 1 to half - 1, interleaved re/im: the
// product of C and conj(A), scaled to unit length.
[[gnu::always_inline]] inline void whitenBody(const float* c, const float* a, float* x, int half) {
    const float eps = 1e-12f;
    for (int k = 1; k < half; ++k) {
        float cr = c[2 * k], ci = c[2 * k + 1], ar = a[2 * k], ai = a[2 * k + 1];
        float re = cr * ar + ci * ai;
        float im = ar * ci - cr * ai;
        float scale = 1.0f / (std::sqrt(re * re + im * im) + eps);
        x[2 * k] = re * scale;
        x[2 * k + 1] = im * scale;
    }
}

constexpr int block = 64;  // lags per block of the peak walk

// Squares of `count` values in single precision summed in double, in a
// fixed order (so the RMS is repeatable), and each block's largest |value|
// written to `blockMax`.
[[gnu::always_inline]] inline double stretchStatsBody(const float* v, int count, float* blockMax) {
    double sum = 0;
    for (int b = 0; b < count; b += block) {
        const int e = std::min(count, b + block);
        double acc[4] = {0, 0, 0, 0};
        float m = 0;
        int i = b;
        for (; i + 4 <= e; i += 4)
            for (int k = 0; k < 4; ++k) {
                float x = v[i + k];
                acc[k] += static_cast<double>(x * x);
                float a = std::fabs(x);
                m = a > m ? a : m;
            }
        for (; i < e; ++i) {
            acc[0] += static_cast<double>(v[i] * v[i]);
            m = std::max(m, std::fabs(v[i]));
        }
        sum += (acc[0] + acc[1]) + (acc[2] + acc[3]);
        *blockMax++ = m;
    }
    return sum;
}

[[gnu::target("avx2")]] void whitenAvx2(const float* c, const float* a, float* x, int half) {
    whitenBody(c, a, x, half);
}
[[gnu::target("avx2")]] double stretchStatsAvx2(const float* v, int count, float* blockMax) {
    return stretchStatsBody(v, count, blockMax);
}

void whiten(const float* c, const float* a, float* x, int half) {
    if (haveAvx2())
        whitenAvx2(c, a, x, half);
    else
        whitenBody(c, a, x, half);
}
double stretchStats(const float* v, int count, float* blockMax) {
    return haveAvx2() ? stretchStatsAvx2(v, count, blockMax) : stretchStatsBody(v, count, blockMax);
}
}  // namespace

size_t Correlator::workFloats(int n) { return static_cast<size_t>(n) + 2 + static_cast<size_t>(n / block) + 4; }

std::shared_ptr<Correlator> Correlator::make(int minimumLength) {
    int log2n = 1;
    int n = roundUpPow2(minimumLength, log2n);
    auto fft = fft::RealFft::create(n);
    if (!fft) return nullptr;
    return std::shared_ptr<Correlator>(new Correlator(n, log2n, std::move(fft)));
}

std::shared_ptr<const Spectrum> Correlator::spectrum(const std::vector<float>& signal) const {
    auto s = std::make_shared<Spectrum>();
    if (!transform(signal, *s)) return nullptr;
    return s;
}

bool Correlator::transform(const std::vector<float>& signal, Spectrum& into) const {
    const size_t floats = static_cast<size_t>(n_) + 2;
    if (into.bins.size() != floats) {
        into.bins = fft::Buffer();
        into.bins = fft::Buffer(floats, false);
        if (into.bins.empty()) return false;
    }
    size_t count = std::min(signal.size(), static_cast<size_t>(n_));
    into.length = static_cast<int>(count);
    double sum = 0;
    for (size_t i = 0; i < count; ++i) sum += signal[i];
    float mean = count ? static_cast<float>(sum / static_cast<double>(count)) : 0.0f;
    // Only the signal loses its mean: the padding stays exactly zero.
    float* x = into.bins.data();
    for (size_t i = 0; i < count; ++i) x[i] = signal[i] - mean;
    std::fill(x + count, x + floats, 0.0f);
    fft_->forward(x);
    return true;
}

std::vector<Match> Correlator::correlate(const Spectrum& camera, const Spectrum& audio, int minOverlap, float minScore,
                                         int maxPeaks, int separation, fft::Buffer* scratch) const {
    const int lo = minOverlap - audio.length;
    const int hi = camera.length - minOverlap;
    if (hi < lo || maxPeaks < 1) return {};
    // Lags beyond n would wrap onto others: a correlator is sized for the
    // two lengths together, and a pair longer than that has no answer here.
    if (static_cast<long long>(hi) - lo + 1 > n_) return {};

    const int half = n_ / 2;
    fft::Buffer local;
    fft::Buffer& work = scratch ? *scratch : local;
    if (work.size() < workFloats(n_)) {
        work = fft::Buffer();  // the old one goes before the new one comes
        work = fft::Buffer(workFloats(n_), false);
    }
    if (work.empty()) return {};
    std::complex<float>* x = work.complex();
    const std::complex<float>* c = camera.bins.complex();
    const std::complex<float>* a = audio.bins.complex();

    // Whitened cross spectrum: the mean bin carries no weight, Nyquist is real.
    x[0] = 0;
    float p = c[half].real() * a[half].real();
    x[half] = p / (std::fabs(p) + 1e-12f);
    whiten(camera.bins.data(), audio.bins.data(), work.data(), half);
    fft_->inverse(x);
    const float* r = work.data();
    auto at = [&](int lag) { return std::fabs(r[lag < 0 ? lag + n_ : lag]); };

    // One pass over r gives both the sum of squares and each block's
    // largest |value|; the peak walk then visits only the blocks that reach
    // the threshold. Negative lags wrap to the end of r, so the searched
    // lags form at most two stretches.
    struct Stretch {
        int from, to;
    };
    std::vector<Stretch> stretches;
    if (lo < 0) stretches.push_back({lo, std::min(hi, -1)});
    if (hi >= 0) stretches.push_back({std::max(lo, 0), hi});
    float* blockMax = work.data() + n_ + 2;  // room for n / block + 2 blocks
    double sum = 0;
    float* nextMax = blockMax;
    for (const Stretch& s : stretches) {
        const int count = s.to - s.from + 1;
        sum += stretchStats(r + (s.from < 0 ? s.from + n_ : s.from), count, nextMax);
        nextMax += (count + block - 1) / block;
    }
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
    // Lags are walked upward; blocks under the threshold hold no peak.
    size_t next = 0;
    for (const Stretch& s : stretches) {
        const int count = s.to - s.from + 1;
        for (int b = 0; b < count; b += block, ++next) {
            if (blockMax[next] < threshold) continue;
            for (int i = b, e = std::min(count, b + block); i < e; ++i) consider(s.from + i);
        }
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
    makeRoomLocked(fft::RealFft::tableBytesFor(n), 0);
    auto c = Correlator::make(n);
    memory::returnFreeMemory();  // what the planner freed would otherwise stay resident
    if (!c) return nullptr;
    correlators_[n] = c;
    planBytes_ += c->tableBytes();
    notePeakLocked();
    return c;
}

SpectrumCache::SpectrumCache(long long budget) : budget_(budget), store_(std::make_shared<Store>()) {}

void SpectrumCache::Store::give(fft::Buffer buffer) {
    std::lock_guard<std::mutex> guard(lock);
    free[buffer.size()].push_back(std::move(buffer));
}

long long SpectrumCache::accountedLocked() const { return store_->bytes.load() + scratchBytes_ + planBytes_; }

void SpectrumCache::makeRoomLocked(long long cost, size_t keep) {
    auto over = [&] { return accountedLocked() + cost > budget_; };
    // Free buffers hold nothing: they go first, those of size `keep` last.
    auto release = [&] {
        std::lock_guard<std::mutex> guard(store_->lock);
        for (bool kept : {false, true})
            for (auto& [size, buffers] : store_->free) {
                if ((size == keep) != kept) continue;
                while (!buffers.empty() && over()) {
                    store_->bytes -= static_cast<long long>(size * sizeof(float));
                    buffers.pop_back();
                }
            }
    };
    release();
    if (!over()) return;
    // Then every stored spectrum at once: there is no eviction of single
    // entries. Those no correlation still reads come back free.
    spectra_.clear();
    bytes_ = 0;
    if (keep) {
        std::lock_guard<std::mutex> guard(store_->lock);
        auto it = store_->free.find(keep);
        if (it != store_->free.end() && !it->second.empty()) return;  // reused as it is
    }
    release();
}

fft::Buffer SpectrumCache::roomFor(size_t floats) {
    auto takeFree = [&] {
        std::lock_guard<std::mutex> guard(store_->lock);
        auto it = store_->free.find(floats);
        if (it == store_->free.end() || it->second.empty()) return fft::Buffer();
        fft::Buffer b = std::move(it->second.back());
        it->second.pop_back();
        return b;
    };
    if (fft::Buffer b = takeFree(); !b.empty()) return b;
    const long long cost = static_cast<long long>(floats * sizeof(float));
    makeRoomLocked(cost, floats);
    if (fft::Buffer b = takeFree(); !b.empty()) return b;
    store_->bytes += cost;  // taken before the transform so that two threads cannot both pass the budget
    notePeakLocked();
    return fft::Buffer();
}

std::shared_ptr<const Spectrum> SpectrumCache::spectrum(int index, const std::vector<float>& signal,
                                                        const Correlator& c) {
    const std::pair<int, int> key{index, c.n()};
    const size_t floats = static_cast<size_t>(c.n()) + 2;
    auto fresh = std::make_shared<Spectrum>();
    {
        std::lock_guard<std::mutex> guard(lock_);
        auto it = spectra_.find(key);
        if (it != spectra_.end()) return it->second;
        fresh->bins = roomFor(floats);
    }
    // Computed outside the lock so that two threads transform at once; a
    // rare duplicate computation gives the same bins.
    const bool reused = !fresh->bins.empty();
    if (!c.transform(signal, *fresh)) {
        if (!reused) store_->bytes -= static_cast<long long>(floats * sizeof(float));
        return nullptr;
    }
    // When the last reader lets go, the buffer goes back to the store.
    std::shared_ptr<const Spectrum> s(fresh.get(), [fresh, store = store_](const Spectrum*) mutable {
        store->give(std::move(fresh->bins));
        fresh.reset();
    });
    std::lock_guard<std::mutex> guard(lock_);
    auto it = spectra_.find(key);
    if (it != spectra_.end()) return it->second;
    ++computed_;
    spectra_[key] = s;
    bytes_ += static_cast<long long>(c.n()) * 4;
    return s;
}

fft::Buffer SpectrumCache::borrowScratch(int n) {
    const size_t floats = Correlator::workFloats(n);
    std::lock_guard<std::mutex> guard(lock_);
    fft::Buffer b;
    if (!scratch_.empty()) {
        b = std::move(scratch_.back());
        scratch_.pop_back();
    }
    if (b.size() < floats) {
        scratchBytes_ -= static_cast<long long>(b.size() * sizeof(float));
        b = fft::Buffer();  // the old one goes before the new one comes
        makeRoomLocked(static_cast<long long>(floats * sizeof(float)), 0);
        b = fft::Buffer(floats, false);
        scratchBytes_ += static_cast<long long>(b.size() * sizeof(float));
        notePeakLocked();
    }
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

long long SpectrumCache::planBytes() const {
    std::lock_guard<std::mutex> guard(lock_);
    return planBytes_;
}

long long SpectrumCache::peakBytes() const {
    std::lock_guard<std::mutex> guard(lock_);
    return peak_;
}

long long SpectrumCache::liveBytes() const {
    std::lock_guard<std::mutex> guard(lock_);
    return accountedLocked();
}

}  // namespace qv
