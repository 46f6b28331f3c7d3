// Real FFTs in single precision (FFTW). One plan per size, shared by every
// caller; planning is serialised because FFTW's planner is not thread-safe,
// while transforms of different buffers may run on several threads at once.
//
// Plans are never timed at run time (that takes seconds per size and picks
// a different plan from one run to the next). Measured plans come from
// wisdom files made once per machine, `wisdomFile()` (scripts/setup.sh runs
// fftwf-wisdom) and FFTW's system wisdom; sizes without wisdom get FFTW's
// estimate, about half as fast for large sizes. Either way the same machine
// gives the same bits on every run.
#pragma once

#include <complex>
#include <cstddef>
#include <filesystem>
#include <memory>

namespace qv::fft {

// SIMD-aligned float storage as FFTW wants it; owns its memory. Large
// buffers are mapped pages of their own, given back to the system when the
// buffer goes, so that memory in use is memory resident: the C heap would
// keep large freed blocks and scatter new ones between them.
class Buffer {
public:
    Buffer() = default;
    explicit Buffer(size_t floats, bool zeroed = true);
    Buffer(Buffer&& other) noexcept : data_(std::move(other.data_)), size_(other.size_) { other.size_ = 0; }
    Buffer& operator=(Buffer&& other) noexcept {
        data_ = std::move(other.data_);
        size_ = other.size_;
        other.size_ = 0;
        return *this;
    }
    float* data() { return data_.get(); }
    const float* data() const { return data_.get(); }
    size_t size() const { return size_; }
    std::complex<float>* complex() { return reinterpret_cast<std::complex<float>*>(data_.get()); }
    const std::complex<float>* complex() const { return reinterpret_cast<const std::complex<float>*>(data_.get()); }
    bool empty() const { return size_ == 0; }

private:
    struct Free {
        size_t mappedBytes;  // 0: from fftwf_malloc
        void operator()(float* p) const;
    };
    std::unique_ptr<float, Free> data_{nullptr, Free{0}};
    size_t size_ = 0;
};

// $XDG_CACHE_HOME/quorvel/fftw-wisdom, default under ~/.cache.
std::filesystem::path wisdomFile();
// Whether measured plans were found when the first plan was made; loading
// happens then, once per process.
bool wisdomLoaded();
// Adds the plans of one more wisdom file. A damaged or foreign file is
// refused as a whole (false) and changes nothing.
bool importWisdom(const std::filesystem::path& file);

class RealFft {
public:
    // Null when FFTW cannot make the plans (memory exhausted).
    static std::shared_ptr<RealFft> create(int n);
    ~RealFft();
    RealFft(const RealFft&) = delete;
    RealFft& operator=(const RealFft&) = delete;

    int size() const { return n_; }
    // Memory the two plans hold (twiddle tables, buffers), as the heap grew
    // while they were made: exact when no other thread allocates meanwhile.
    // FFTW keeps about n complex values for a large size (measured: 1.6 to
    // 2.5 x n x 4 bytes for both directions), so `tableBytesFor` is the
    // room to make before planning.
    static long long tableBytesFor(int n) { return 3LL * n * static_cast<long long>(sizeof(float)); }
    long long tableBytes() const { return tableBytes_; }
    // Both transforms work in place on a buffer of n + 2 floats and are
    // unnormalised. Forward: n real values in, n/2 + 1 complex values out.
    void forward(float* inout) const;
    // Inverse: n/2 + 1 complex values in, n real values out (scaled by n).
    void inverse(std::complex<float>* inout) const;

private:
    explicit RealFft(int n) : n_(n) {}
    int n_;
    long long tableBytes_ = 0;
    void* forward_ = nullptr;
    void* inverse_ = nullptr;
};

}  // namespace qv::fft
