// The correlator's contract: lags, their sense, scores, and the guards.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "platform/Fft.h"
#include "platform/Paths.h"
#include "platform/Process.h"
#include "support/Fixtures.h"
#include "sync/Signals.h"
#include "sync/Correlator.h"

namespace qv {
namespace {

// `n` samples of the placement tests' noise.
std::vector<float> noise(uint64_t seed, size_t n) { return test::noise(seed, static_cast<double>(n) / test::kRate); }

std::vector<Match> correlate(const std::vector<float>& cam, const std::vector<float>& aud, int minOverlap = 2000,
                             int maxPeaks = 50, int separation = 500) {
    auto c = Correlator::make(static_cast<int>(cam.size() + aud.size()));
    auto sc = c->spectrum(cam);
    auto sa = c->spectrum(aud);
    return c->correlate(*sc, *sa, minOverlap, 9.0f, maxPeaks, separation);
}

TEST(Correlator, DelayedCopyGivesItsLagAndSwappingNegatesIt) {
    auto master = noise(1, 40000);
    const int d = 1234;
    // camera holds the master's material d samples later than audio does
    std::vector<float> audio(master.begin(), master.begin() + 20000);
    std::vector<float> camera(static_cast<size_t>(d), 0.0f);
    camera.insert(camera.end(), master.begin(), master.begin() + 15000);

    auto m = correlate(camera, audio);
    ASSERT_FALSE(m.empty());
    EXPECT_EQ(m[0].lag, d);
    EXPECT_GT(m[0].score, 50.0f);

    auto swapped = correlate(audio, camera);
    ASSERT_FALSE(swapped.empty());
    EXPECT_EQ(swapped[0].lag, -d);
    EXPECT_NEAR(swapped[0].score, m[0].score, m[0].score * 1e-3);
}

// Measured plans come from a wisdom file: a damaged one is refused, one
// made by FFTW's own tool is taken, and the matches do not move.
TEST(Correlator, WisdomChangesSpeedNotMatches) {
    auto master = noise(11, 10000);
    std::vector<float> audio(master.begin(), master.begin() + 8000);
    std::vector<float> camera(master.begin() + 3000, master.begin() + 9000);  // n = 16384
    auto before = correlate(camera, audio);
    ASSERT_FALSE(before.empty());
    EXPECT_EQ(before[0].lag, -3000);

    test::TempDir dir;
    ASSERT_TRUE(paths::writeAtomically(dir / "broken", "(fftw-3.3 fftwf_wisdom #x1 (pas du tout"));
    EXPECT_FALSE(fft::importWisdom(dir / "broken"));

    auto tool = process::findExecutable({"/usr/bin/fftwf-wisdom"});
    if (tool.empty()) GTEST_SKIP() << "fftwf-wisdom absent";
    auto made = process::run(tool, {"-n", "-m", "-o", (dir / "wisdom").string(), "rif16384", "rib16384"});
    ASSERT_TRUE(made && made->exitCode == 0);
    EXPECT_TRUE(fft::importWisdom(dir / "wisdom"));
    auto after = correlate(camera, audio);
    ASSERT_EQ(after.size(), before.size());
    for (size_t i = 0; i < after.size(); ++i) {
        EXPECT_EQ(after[i].lag, before[i].lag);
        EXPECT_NEAR(after[i].score, before[i].score, before[i].score * 1e-4);
    }
}

TEST(Correlator, InvertedPolarityScoresAlike) {
    auto a = noise(2, 16000);
    std::vector<float> shifted(a.begin() + 700, a.end());
    std::vector<float> inverted = shifted;
    for (auto& v : inverted) v = -v;
    auto plain = correlate(shifted, a);
    auto flipped = correlate(inverted, a);
    ASSERT_FALSE(plain.empty());
    ASSERT_FALSE(flipped.empty());
    EXPECT_EQ(plain[0].lag, -700);
    EXPECT_EQ(flipped[0].lag, plain[0].lag);
    EXPECT_NEAR(flipped[0].score, plain[0].score, plain[0].score * 1e-4);
}

TEST(Correlator, GuardsGiveNothing) {
    // Together shorter than twice the overlap: no lag can overlap enough.
    EXPECT_TRUE(correlate(noise(3, 1500), noise(4, 1400), 1500).empty());
    // Silence has an RMS of zero: no match, and nothing divided by zero.
    std::vector<float> zeros(8000, 0.0f);
    EXPECT_TRUE(correlate(zeros, zeros).empty());
    // No peaks asked for, none given.
    EXPECT_TRUE(correlate(noise(5, 8000), noise(5, 8000), 2000, 0).empty());
}

TEST(Correlator, KeptPeaksRespectTheSeparation) {
    // Echoes at 0, 200, 1000, 1600 and 1900 samples, weaker each time: the
    // greedy walk keeps 0, 1000 and 1600 and drops the two that crowd them.
    auto a = noise(6, 30000);
    const std::pair<int, float> echoes[] = {{0, 1.0f}, {200, 0.9f}, {1000, 0.8f}, {1600, 0.7f}, {1900, 0.6f}};
    std::vector<float> camera(a.size() + 2000, 0.0f);
    for (auto [delay, gain] : echoes)
        for (size_t t = 0; t < a.size(); ++t) camera[t + static_cast<size_t>(delay)] += gain * a[t];
    auto m = correlate(camera, a, 2000, 50, 500);
    ASSERT_GE(m.size(), 3u);
    EXPECT_EQ(m[0].lag, 0);
    EXPECT_EQ(m[1].lag, 1000);
    EXPECT_EQ(m[2].lag, 1600);
    for (size_t i = 0; i < m.size(); ++i)
        for (size_t j = i + 1; j < m.size(); ++j) EXPECT_GE(std::abs(m[i].lag - m[j].lag), 500);
    for (size_t i = 1; i < m.size(); ++i) EXPECT_GE(m[i - 1].score, m[i].score);
}

TEST(SpectrumCache, SharesCorrelatorsAndFlushesPastTheBudget) {
    const long long room = (4096 + 2) * 4;  // one spectrum's buffer
    long long probed = 0;  // what the plans hold, as a cache measures it (FFTW's own
    {                      // bookkeeping makes it vary by a few hundred bytes)
        SpectrumCache probe(1LL << 40);
        probe.correlator(4096);
        probe.correlator(1);
        probed = probe.liveBytes();
    }
    SpectrumCache cache(probed + 3 * room + room / 2);
    auto c1 = cache.correlator(3000);
    auto c2 = cache.correlator(4096);
    EXPECT_EQ(c1, c2);
    EXPECT_EQ(c1->n(), 4096);
    EXPECT_EQ(cache.correlator(1)->n(), 2);
    const long long tables = cache.liveBytes();

    auto x = noise(7, 3000);
    auto s0 = cache.spectrum(0, x, *c1);
    EXPECT_EQ(cache.spectrum(0, x, *c1), s0);  // stored, not recomputed
    cache.spectrum(1, x, *c1);
    cache.spectrum(2, x, *c1);
    EXPECT_EQ(cache.bytes(), 3 * 4096 * 4);
    EXPECT_EQ(cache.liveBytes(), tables + 3 * room);
    cache.spectrum(3, x, *c1);  // over budget: everything goes, then this one is stored
    EXPECT_EQ(cache.bytes(), 4096 * 4);
    EXPECT_EQ(cache.computed(), 4);

    // s0 was dropped but is still read here: it keeps its bins, and the new
    // spectrum of entry 0 takes a freed buffer rather than new memory.
    auto again = cache.spectrum(0, x, *c1);
    ASSERT_NE(again, s0);
    EXPECT_NE(again->bins.data(), s0->bins.data());
    EXPECT_EQ(std::memcmp(again->bins.data(), s0->bins.data(), static_cast<size_t>(room)), 0);
    EXPECT_EQ(cache.liveBytes(), tables + 3 * room);

    // Working buffers count too: with the budget full, the stored spectra
    // make room for one, and the unread one's buffer is given back.
    auto scratch = cache.borrowScratch(4096);
    EXPECT_GE(scratch.size(), Correlator::workFloats(4096));
    EXPECT_EQ(cache.bytes(), 0);
    const long long withScratch = cache.liveBytes();
    EXPECT_EQ(withScratch, tables + 2 * room + static_cast<long long>(scratch.size() * sizeof(float)));
    cache.returnScratch(std::move(scratch));
    cache.returnScratch(cache.borrowScratch(1024));
    EXPECT_EQ(cache.liveBytes(), withScratch);
}

}  // namespace
}  // namespace qv
