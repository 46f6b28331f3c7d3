// Correlator: at which offsets does one signal line up with another, and how
// strongly? A phase-transform cross-correlation (every frequency weighs the
// same, whatever its energy) over real FFTs, returning several peaks.
//
// Lag sense: a positive lag means the material of `camera` comes that many
// samples later than in `audio`: sample t of camera matches t - lag of audio.
// Scores are a peak's |r| over the RMS of r across the searched lags.
//
// A Correlator is tied to one FFT size and may be used from several threads
// at once. SpectrumCache keeps one synchronisation's spectra under a byte
// budget; it is thread-safe too. The budget bounds all the memory the
// correlations work in: stored spectra, spectra a flush dropped while a
// correlation still reads them, free spectrum buffers kept for reuse,
// working buffers and the FFT plans' tables. Only the stored ones follow
// the n x 4 bytes count of `bytes()`; the rest is counted as allocated.
#pragma once

#include <algorithm>
#include <atomic>
#include <complex>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/Fft.h"

namespace qv {

struct Spectrum {
    fft::Buffer bins;  // n/2 + 1 complex values of the mean-removed, zero-padded signal
    int length = 0;    // samples of the signal before padding
};

struct Match {
    int lag = 0;      // samples at the analysis rate
    float score = 0;  // peak / RMS of the correlation
};

class Correlator {
public:
    // Null when no FFT setup can be made for that size (memory exhausted).
    static std::shared_ptr<Correlator> make(int minimumLength);

    int n() const { return n_; }
    int log2n() const { return log2n_; }
    // Floats of working memory `correlate` needs: the transform, then one
    // maximum per block of the peak walk.
    static size_t workFloats(int n);
    long long tableBytes() const { return fft_->tableBytes(); }

    // The signal must not be longer than n. Null when memory runs out.
    std::shared_ptr<const Spectrum> spectrum(const std::vector<float>& signal) const;
    // The same into `into`, whose bins are reused when they have the right
    // size (n + 2 floats); false when memory runs out.
    bool transform(const std::vector<float>& signal, Spectrum& into) const;

    // Both spectra must come from this correlator. Sorted by score,
    // descending (of equal scores the lower lag first), no two closer than
    // `separation` samples, at most `maxPeaks`. `scratch`, when given, is
    // reused (and grown to `workFloats(n)`) as the working memory: a fresh
    // one for every pair costs as much in page faults as the transform.
    std::vector<Match> correlate(const Spectrum& camera, const Spectrum& audio, int minOverlap, float minScore,
                                 int maxPeaks, int separation, fft::Buffer* scratch = nullptr) const;

private:
    Correlator(int n, int log2n, std::shared_ptr<fft::RealFft> fft) : n_(n), log2n_(log2n), fft_(std::move(fft)) {}
    int n_;
    int log2n_;
    std::shared_ptr<fft::RealFft> fft_;
};

class SpectrumCache {
public:
    static constexpr long long defaultBudget = 1'500'000'000;
    explicit SpectrumCache(long long budget = defaultBudget);

    // One correlator per power-of-two size; null when it cannot be made.
    std::shared_ptr<Correlator> correlator(int minimumLength);
    // The spectrum of entry `index` at the correlator's size, computed once
    // while the budget allows; past the budget every stored one is dropped.
    std::shared_ptr<const Spectrum> spectrum(int index, const std::vector<float>& signal, const Correlator& c);

    long long bytes() const;      // stored spectra, n x 4 bytes each
    long long budget() const { return budget_; }
    long long planBytes() const;  // the FFT plans' tables made so far
    long long liveBytes() const;  // everything the budget counts
    long long peakBytes() const;  // the most it has counted at once

    // A working buffer of `Correlator::workFloats(n)` for `correlate`,
    // lent to one thread at a time and kept for the cache's life.
    fft::Buffer borrowScratch(int n);
    void returnScratch(fft::Buffer buffer);
    int computed() const;  // spectra computed so far, recomputations included

private:
    // The memory of every spectrum buffer in existence: stored, dropped but
    // still read by a correlation, or free for the next spectrum of its
    // size (touching fresh pages costs as much as the transform). Shared
    // with the spectra's deleters, which may outlive the cache.
    struct Store {
        std::mutex lock;  // guards `free`; taken after the cache's lock
        std::map<size_t, std::vector<fft::Buffer>> free;  // by size in floats
        std::atomic<long long> bytes{0};
        void give(fft::Buffer buffer);
    };

    long long accountedLocked() const;
    void notePeakLocked() { peak_ = std::max(peak_, accountedLocked()); }
    // Room for `cost` more bytes within the budget, if it can be made.
    void makeRoomLocked(long long cost, size_t keep);
    // A free buffer of `floats`, or an empty one with its room reserved in
    // `store_->bytes`, after making room within the budget.
    fft::Buffer roomFor(size_t floats);

    mutable std::mutex lock_;  // guards everything below but `store_`
    std::map<int, std::shared_ptr<Correlator>> correlators_;
    std::map<std::pair<int, int>, std::shared_ptr<const Spectrum>> spectra_;  // (index, n)
    long long bytes_ = 0;
    long long budget_;
    int computed_ = 0;
    std::vector<fft::Buffer> scratch_;
    long long scratchBytes_ = 0;  // pooled and lent working buffers
    long long planBytes_ = 0;     // tables of the correlators' FFT plans
    long long peak_ = 0;
    std::shared_ptr<Store> store_;
};

}  // namespace qv
