#include "platform/Fft.h"

#include <fftw3.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <mutex>

#include "platform/Memory.h"
#include "platform/Paths.h"

namespace qv::fft {

namespace {
std::mutex& plannerLock() {
    static std::mutex lock;
    return lock;
}

bool wisdomFound = false;

// Called under the planner lock before the first plan.
void loadWisdomOnce() {
    static bool done = false;
    if (done) return;
    done = true;
    bool system = fftwf_import_system_wisdom() != 0;
    bool own = fftwf_import_wisdom_from_filename(wisdomFile().c_str()) != 0;
    wisdomFound = system || own;
}
}  // namespace

bool importWisdom(const std::filesystem::path& file) {
    std::lock_guard<std::mutex> guard(plannerLock());
    loadWisdomOnce();
    return fftwf_import_wisdom_from_filename(file.c_str()) != 0;
}

std::filesystem::path wisdomFile() { return paths::cacheHome() / "quorvel" / "fftw-wisdom"; }

bool wisdomLoaded() {
    std::lock_guard<std::mutex> guard(plannerLock());
    loadWisdomOnce();
    return wisdomFound;
}

void Buffer::Free::operator()(float* p) const {
    if (mappedBytes)
        munmap(p, mappedBytes);
    else
        fftwf_free(p);
}

Buffer::Buffer(size_t floats, bool zeroed) : size_(floats) {
    if (floats == 0) return;
    const size_t bytes = sizeof(float) * floats;
    constexpr size_t mapFrom = 1 << 20;
    if (bytes >= mapFrom) {
        // Fresh pages read as zeros; their start is page-aligned, more than
        // any SIMD width needs.
        void* p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (p == MAP_FAILED) {
            size_ = 0;
            return;
        }
        data_ = std::unique_ptr<float, Free>(static_cast<float*>(p), Free{bytes});
        return;
    }
    data_.reset(static_cast<float*>(fftwf_malloc(bytes)));
    if (!data_) {
        size_ = 0;
        return;
    }
    if (zeroed) std::memset(data_.get(), 0, bytes);
}

std::shared_ptr<RealFft> RealFft::create(int n) {
    if (n < 2) return nullptr;
    // Plans are made on a scratch buffer and executed later on the caller's,
    // which FFTW allows for arrays of the same alignment (fftwf_malloc).
    // FFTW_ESTIMATE takes any wisdom there is for the size, else estimates.
    Buffer scratch(static_cast<size_t>(n) + 2, false);
    if (scratch.empty()) return nullptr;
    std::shared_ptr<RealFft> fft(new RealFft(n));
    std::lock_guard<std::mutex> guard(plannerLock());
    loadWisdomOnce();
    auto* c = reinterpret_cast<fftwf_complex*>(scratch.data());
    const long long before = memory::heapBytesInUse();
    fft->forward_ = fftwf_plan_dft_r2c_1d(n, scratch.data(), c, FFTW_ESTIMATE);
    fft->inverse_ = fftwf_plan_dft_c2r_1d(n, c, scratch.data(), FFTW_ESTIMATE);
    fft->tableBytes_ = std::max(0LL, memory::heapBytesInUse() - before);
    if (!fft->forward_ || !fft->inverse_) return nullptr;
    return fft;
}

RealFft::~RealFft() {
    std::lock_guard<std::mutex> guard(plannerLock());
    if (forward_) fftwf_destroy_plan(static_cast<fftwf_plan>(forward_));
    if (inverse_) fftwf_destroy_plan(static_cast<fftwf_plan>(inverse_));
}

void RealFft::forward(float* inout) const {
    fftwf_execute_dft_r2c(static_cast<fftwf_plan>(forward_), inout, reinterpret_cast<fftwf_complex*>(inout));
}

void RealFft::inverse(std::complex<float>* inout) const {
    fftwf_execute_dft_c2r(static_cast<fftwf_plan>(inverse_), reinterpret_cast<fftwf_complex*>(inout),
                          reinterpret_cast<float*>(inout));
}

}  // namespace qv::fft
