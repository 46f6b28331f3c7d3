#include "sync/FolderSync.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <optional>
#include <set>

#include "base/Parallel.h"
#include "base/Text.h"
#include "platform/Memory.h"
#include "sync/AudioLoader.h"
#include "sync/Drift.h"
#include "sync/Envelopes.h"

namespace qv::FolderSync {

namespace {

constexpr double rate = 2000.0;
constexpr size_t shortestSignal = 2001;
constexpr float minScore = 9.0f;
constexpr int maxPeaks = 50;
constexpr int separation = 500;
constexpr double clusterWidth = 0.1;
constexpr double siblingOverlap = 1.0;
constexpr double silenceFloor = 30.0;
// The runner-up must stay below this fraction of the leader's value for the
// sound alone to decide. Values add squared scores, so `clearMargin` is
// about 0.7 in scores: repeated music lifts its wrong phrases to 0.8 of the
// truth when the same anchors hear both. A leader that an anchor of its own
// confirms (one with nothing at the runner-up) only needs `agreedMargin`.
constexpr double clearMargin = 0.5;
constexpr double agreedMargin = 0.8;
constexpr double witnessEvidence = 1000.0;  // a peak of about 32: more than a phrase heard in passing
// Evidence is counted in squared scores over the pair's own noise floor:
// under noise a peak of score s is about exp(s^2 / 2) times likelier to be
// true, so squares add up the way independent anchors should. A start needs
// `minEvidence` to be taken at all (a lone peak of about 12 over a floor of
// 7); a doubt is only kept, marked ambiguous, on sound as strong as
// `strongEvidence` (a peak of about 140: two files sharing a long stretch
// exactly). Below it repeated music explains the peaks as well as common
// sound does, and the file is better left unplaced.
constexpr double minEvidence = 100.0;
constexpr double strongEvidence = 20000.0;
// A source's clock, learnt from its own files, chooses among the starts the
// sound leaves close (within the clear margin of the best), within this
// distance of where it predicts.
constexpr double clockTolerance = 3.0;
// Below this evidence (a peak of about 32) a start is a weak match: against
// the source's clock it does not win.
constexpr double weakEvidence = witnessEvidence;
// An anchor hears a file distinctly when its best peak leads its next one
// by this much in squared scores (about 1.22 in scores): repeated music
// lifts every repeat of a phrase alike, a moment heard in common stands out.
constexpr double distinctLead = 1.5;
const char* const noCommonSound = "pas de son commun trouvé";
const char* const clockElsewhere = "son trop faible, la date de sa caméra le place ailleurs";
const char* const clockOutside = "la date de sa caméra le place hors de tout enregistrement";
// The spectrum budget bounds all the memory the correlations take beyond
// the signals. The cache counts its spectra, working buffers and plans; the
// rest (each thread's heap, the results, the transforms' code) comes to 5
// to 15 MB on an hour-long set, and is left room here.
constexpr long long outsideTheCache = 24'000'000;

struct Candidate {
    double start;
    float score;
    int anchor;
    double weight;  // evidence: score^2 over the pair's floor^2, at least 0
    double coherence;  // score for the samples the two share: near 1 when they match throughout
};

struct Cluster {
    double start;
    double support;  // evidence of its anchors, one vote each
    float best;
    int anchor;
    std::set<int> anchors;
    std::vector<std::pair<int, double>> votes;  // (anchor, weight), for the trace
    double coherence = 0;  // the best of its members
    double value = 0;
};

// How a start was chosen, for the trace and for learning clocks.
enum class Rule { sound, clock, doubt };

bool stopped(const Options& options) { return options.stop && options.stop->load(std::memory_order_relaxed); }

double overlap(double aStart, double aEnd, double bStart, double bEnd) {
    return std::min(aEnd, bEnd) - std::max(aStart, bStart);
}

// Everything one placement run knows; lives for one call of `place`.
class Placer {
public:
    Placer(std::vector<Entry>& entries, const Progress& progress, const Options& options)
        : e_(entries), progress_(progress), options_(options),
          cache_(std::max(options.spectrumBudget - outsideTheCache, options.spectrumBudget / 2)),
          start_(entries.size()), score_(entries.size()), anchor_(entries.size(), -1), drift_(entries.size(), 0.0),
          measured_(entries.size()), reason_(entries.size()), candidates_(entries.size()) {}

    void run() {
        const int count = static_cast<int>(e_.size());
        std::vector<int> order(static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) order[static_cast<size_t>(i)] = i;
        std::stable_sort(order.begin(), order.end(),
                         [&](int a, int b) { return e_[a].signal.size() > e_[b].signal.size(); });

        int reference = order.front();
        for (int i : order) {
            if (e_[i].kind == SourceKind::audio) {
                reference = i;
                break;
            }
        }
        start_[reference] = 0.0;
        reference_ = reference;
        clear_.insert(reference);
        placedCount_ = 1;

        for (bool strict : {true, false}) {
            bool placedSome = true;
            while (placedSome) {
                placedSome = false;
                for (size_t k = 0; k < order.size(); ++k) {
                    int u = order[k];
                    if (start_[u]) continue;
                    prepareSweepRest(order, k, strict);
                    if (tryPlace(u, strict)) {
                        placedSome = true;
                        ++placedCount_;
                    }
                }
            }
        }
    }

    const std::optional<double>& start(int i) const { return start_[i]; }
    std::optional<float> score(int i) const { return score_[i]; }
    int anchor(int i) const { return anchor_[i]; }
    bool ambiguous(int i) const { return ambiguous_.count(i) > 0; }
    std::optional<double> drift(int i) const { return measured_[i]; }
    const std::vector<SyncCandidate>& candidates(int u) const { return candidates_[static_cast<size_t>(u)]; }
    const std::string& reason(int i) const { return reason_[i]; }
    int spectraComputed() const { return cache_.computed(); }
    long long budgetPeak() const { return cache_.peakBytes(); }

private:
    double duration(int i) const { return e_[i].item.duration; }

    std::vector<int> anchorsOf(int u) const {
        std::vector<int> anchors;
        for (size_t p = 0; p < e_.size(); ++p)
            if (start_[p] && e_[p].sourceIndex != e_[u].sourceIndex) anchors.push_back(static_cast<int>(p));
        return anchors;
    }

    // Every file still unplaced from position k of this sweep on will be
    // tried against the anchors it needs today, so those pairs are computed
    // now in one batch, on all cores, rather than a few at a time.
    void prepareSweepRest(const std::vector<int>& order, size_t k, bool strict) {
        std::vector<std::pair<int, int>> pairs;
        for (size_t i = k; i < order.size(); ++i) {
            int u = order[i];
            if (start_[u]) continue;
            for (int p : consult(u, strict, anchorsOf(u))) pairs.emplace_back(u, p);
        }
        ensurePairs(pairs);
    }

    // Each pair is correlated once per run; the missing ones in parallel,
    // the largest transforms first so that no thread is left with a big
    // one at the end. Results land in their own slot: timing changes nothing.
    void ensurePairs(const std::vector<std::pair<int, int>>& pairs) {
        std::vector<std::pair<int, int>> missing;
        for (const auto& pair : pairs)
            if (!matches_.count(pair)) missing.push_back(pair);
        auto size = [&](const std::pair<int, int>& q) { return e_[q.first].signal.size() + e_[q.second].signal.size(); };
        std::stable_sort(missing.begin(), missing.end(), [&](const auto& a, const auto& b) { return size(a) > size(b); });
        // Plans are made here, on one thread, so that the memory they hold
        // is measured exactly and counted in the budget.
        for (const auto& pair : missing) cache_.correlator(static_cast<int>(size(pair)));
        std::vector<std::vector<Match>> found(missing.size());
        int threads = options_.threads > 0 ? options_.threads : defaultThreads();
        parallelFor(static_cast<int>(missing.size()), threads, [&](int k) {
            if (stopped(options_)) return;
            const auto& [u, p] = missing[static_cast<size_t>(k)];
            found[static_cast<size_t>(k)] = correlate(u, p);
        });
        for (size_t k = 0; k < missing.size(); ++k) matches_[missing[k]] = std::move(found[k]);
        if (options_.stats) options_.stats->correlations += static_cast<int>(missing.size());
    }

    std::vector<Match> correlate(int u, int p) {
        const auto& su = e_[u].signal;
        const auto& sp = e_[p].signal;
        auto correlator = cache_.correlator(static_cast<int>(su.size() + sp.size()));
        if (!correlator) return {};  // no FFT for that size: the pair has no match
        auto cu = cache_.spectrum(u, su, *correlator);
        auto cp = cache_.spectrum(p, sp, *correlator);
        if (!cu || !cp) return {};
        int minOverlap = static_cast<int>(std::min(std::min(su.size(), sp.size()) / 2, size_t{20000}));
        fft::Buffer scratch = cache_.borrowScratch(correlator->n());
        auto matches = correlator->correlate(*cu, *cp, minOverlap, minScore, maxPeaks, separation, &scratch);
        cache_.returnScratch(std::move(scratch));
        return matches;
    }

    bool overlapsSibling(int u, double s) const {
        for (size_t q = 0; q < e_.size(); ++q) {
            if (static_cast<int>(q) == u || !start_[q] || e_[q].sourceIndex != e_[u].sourceIndex) continue;
            double o = overlap(*start_[q], *start_[q] + duration(static_cast<int>(q)), s, s + duration(u));
            if (o > siblingOverlap) return true;
        }
        return false;
    }

    // Seconds since 1970 of a file's date.
    static double seconds(const Date& d) { return std::chrono::duration<double>(d.time_since_epoch()).count(); }

    // Where u should start by its source's clock, learnt from the siblings
    // placed by clear sound: each date is their start or their end, which
    // ever keeps the clock steadier; with one sibling either may be true.
    std::vector<std::pair<double, const char*>> clockPredictions(int u) const {
        const auto& date = e_[u].item.recordedAt;
        if (!date) return {};
        std::vector<double> byStart, byEnd;
        for (size_t q = 0; q < e_.size(); ++q) {
            const int k = static_cast<int>(q);
            if (k == u || !start_[q] || !clear_.count(k) || e_[q].sourceIndex != e_[u].sourceIndex) continue;
            const auto& sibling = e_[q].item.recordedAt;
            if (!sibling) continue;
            byStart.push_back(seconds(*sibling) - *start_[q]);
            byEnd.push_back(seconds(*sibling) - *start_[q] - duration(k));
        }
        if (byStart.empty()) return {};
        auto spread = [](std::vector<double> v) { return *std::max_element(v.begin(), v.end()) - *std::min_element(v.begin(), v.end()); };
        auto median = [](std::vector<double> v) {
            std::sort(v.begin(), v.end());
            return v[v.size() / 2];
        };
        const double d = seconds(*date);
        bool starts = true, ends = true;
        if (byStart.size() >= 2) {
            double a = spread(byStart), b = spread(byEnd);
            if (a + 1.0 < b) ends = false;
            else if (b + 1.0 < a) starts = false;
        }
        std::vector<std::pair<double, const char*>> out;
        if (starts) out.emplace_back(d - median(byStart), "début");
        if (ends) out.emplace_back(d - median(byEnd) - duration(u), "fin");
        return out;
    }

    // The start of u that match m against placed anchor p gives.
    double startFrom(int u, int p, const Match& m) const {
        const double lag = m.lag / rate;
        if (drift_[p] == 0.0) return *start_[p] - lag;
        // In step at the middle of what the two share.
        const double from = std::max(0.0, lag);
        const double to = std::min(duration(u), e_[p].signal.size() / rate + lag);
        const double middle = (from + to) / 2;
        return lineTime(p, middle - lag) - middle;
    }

    // Where file time t of a placed anchor lies on the line.
    double lineTime(int p, double t) const { return *start_[p] + t / (1.0 + drift_[p] * 1e-6); }

    // The floor of a pair, in squared score: what noise reaches over all
    // the lags searched, or the pair's third peak when repeated music lifts
    // more than one wrong peak above that.
    double floor2(int u, int p, const std::vector<Match>& matches) const {
        const double lu = static_cast<double>(e_[u].signal.size()), lp = static_cast<double>(e_[p].signal.size());
        const double minOverlap = std::min(std::min(lu, lp) / 2, 20000.0);
        const double lags = std::max(2.0, lu + lp - 2 * minOverlap + 1);
        double f2 = 2 * std::log(lags);
        if (matches.size() >= 3) f2 = std::max(f2, static_cast<double>(matches[2].score) * matches[2].score);
        return f2;
    }

    // A peak's score against what the shared stretch would give if the two
    // files heard exactly the same thing there: a phase-transform peak grows
    // with the root of the samples shared (and of the transform's share of
    // the longer file). Repeated music matches a phrase elsewhere only in
    // part, the room never, so a true start stands higher on this scale.
    double coherence(int u, int p, const Match& m) const {
        const double lu = static_cast<double>(e_[u].signal.size()), lp = static_cast<double>(e_[p].signal.size());
        const double shared = std::min(lu, lp + m.lag) - std::max(0.0, static_cast<double>(m.lag));
        double n = 2;
        while (n < lu + lp) n *= 2;
        return shared > 0 ? m.score / std::sqrt(shared * n / (2 * std::max(lu, lp))) : 0.0;
    }

    void trace(int u, bool strict, const std::vector<Candidate>& candidates) const {
        std::string line = strict ? "[strict] " : "[souple] ";
        line += e_[u].item.fileName();
        line += ":";
        for (const auto& c : candidates) {
            line.push_back(' ');
            line += cformat("%.2f(%.0f,%s)", c.start, static_cast<double>(c.score),
                                  e_[c.anchor].item.fileName().c_str());
        }
        std::fprintf(stderr, "%s\n", line.c_str());
    }

    void traceDecision(int u, const std::string& what, const Cluster* chosen, double runnerUp) const {
        if (!options_.trace || dryRun_) return;
        std::string line = "  " + e_[u].item.fileName() + " -> " + what;
        if (chosen) {
            line += cformat(" à %.4f s, valeur %.0f (suivant %.0f), cohérence %.2f, votes", chosen->start, chosen->value,
                            runnerUp, chosen->coherence);
            for (const auto& [anchor, weight] : chosen->votes)
                line += cformat(" %s:%.0f", e_[anchor].item.fileName().c_str(), weight);
        }
        std::fprintf(stderr, "%s\n", line.c_str());
    }

    bool tryPlace(int u, bool strict) {
        reason_[u].clear();
        if (progress_)
            progress_(0.5 + static_cast<double>(placedCount_) / static_cast<double>(e_.size()) * 0.5,
                      "Calage de " + e_[u].item.fileName());
        const std::vector<int> all = anchorsOf(u);
        std::vector<int> anchors = consult(u, strict, all);
        ensurePairs(pairsOf(u, anchors));
        if (anchors.size() < all.size()) {
            // The stretch's own anchors must still hold it where the first
            // ones did; otherwise every anchor is heard.
            std::optional<Proposal> first = proposal_;
            std::optional<Proposal> held = propose(u, strict, anchors);
            if (!held || !first || std::fabs(held->start - first->start) >= clusterWidth ||
                held->support < witnessEvidence) {
                anchors = all;
                ensurePairs(pairsOf(u, anchors));
            }
        }
        return decide(u, strict, anchors);
    }

    static std::vector<std::pair<int, int>> pairsOf(int u, const std::vector<int>& anchors) {
        std::vector<std::pair<int, int>> pairs;
        for (int p : anchors) pairs.emplace_back(u, p);
        return pairs;
    }

    struct Proposal {
        double start;
        double support;
        double value;
        double rival;  // value of the best other start
    };

    // Where `decide` would place u with these anchors' pairs (all computed),
    // without placing it; nothing when it would not.
    std::optional<Proposal> propose(int u, bool strict, const std::vector<int>& anchors) {
        dryRun_ = true;
        proposal_.reset();
        decide(u, strict, anchors);
        dryRun_ = false;
        return proposal_;
    }

    // The anchors worth correlating u with. Once the pairs already computed
    // place it on strong sound, only the anchors that ran during the chosen
    // stretch can confirm it or count against it: the others are not
    // needed. Otherwise, or with nothing computed yet, all of them.
    std::vector<int> consult(int u, bool strict, const std::vector<int>& all) {
        std::vector<int> known;
        for (int p : all)
            if (matches_.count({u, p})) known.push_back(p);
        proposal_.reset();
        if (known.empty() || known.size() == all.size()) return all;
        std::optional<Proposal> found = propose(u, strict, known);
        if (!found || found->support < witnessEvidence) return all;
        // A chain of anchors that holds it firmly: even if every other
        // anchor ran during the stretch and stayed silent, the rival could
        // not come near; their votes are not needed either.
        const double others = static_cast<double>(all.size() - known.size());
        if (found->support >= strongEvidence && found->rival * (1 + others) < found->value * clearMargin) {
            proposal_ = found;
            return known;
        }
        std::vector<int> out;
        for (int p : all)
            if (matches_.count({u, p}) ||
                overlap(*start_[p], *start_[p] + duration(p), found->start, found->start + duration(u)) > siblingOverlap)
                out.push_back(p);
        proposal_ = found;
        return out;
    }

    // Steps of the choice for u from the pairs with `anchors`, all computed.
    bool decide(int u, bool strict, const std::vector<int>& anchors) {
        // What each anchor can tell: its best evidence anywhere. An anchor
        // that tells nothing clearly does not count against a start.
        std::map<int, double> hearing;
        std::vector<Candidate> candidates;
        for (int p : anchors) {
            const auto& matches = matches_.at({u, p});
            const double f2 = floor2(u, p, matches);
            for (const Match& m : matches) {
                if (m.score < minScore) continue;
                const double s = startFrom(u, p, m);
                const double weight = std::max(0.0, static_cast<double>(m.score) * m.score - f2);
                hearing[p] = std::max(hearing[p], weight);
                if (!overlapsSibling(u, s)) candidates.push_back({s, m.score, p, weight, coherence(u, p, m)});
            }
        }
        if (options_.trace && !dryRun_) trace(u, strict, candidates);
        if (candidates.empty()) {
            traceDecision(u, strict ? "en attente : aucun candidat" : noCommonSound, nullptr, 0);
            return false;
        }

        std::stable_sort(candidates.begin(), candidates.end(),
                         [](const Candidate& a, const Candidate& b) { return a.score > b.score; });
        std::vector<Cluster> clusters;
        for (const auto& c : candidates) {
            auto home = std::find_if(clusters.begin(), clusters.end(),
                                     [&](const Cluster& k) { return std::fabs(k.start - c.start) < clusterWidth; });
            if (home == clusters.end()) {
                clusters.push_back({c.start, c.weight, c.score, c.anchor, {c.anchor}, {{c.anchor, c.weight}}, c.coherence});
            } else if (home->anchors.insert(c.anchor).second) {
                home->coherence = std::max(home->coherence, c.coherence);
                home->support += c.weight;  // one vote per anchor
                home->votes.emplace_back(c.anchor, c.weight);
            }
        }

        for (auto& k : clusters) {
            int silent = 0;
            for (int p : anchors) {
                if (k.anchors.count(p) || hearing[p] < minEvidence) continue;
                double need = std::min(silenceFloor, 0.5 * std::min(duration(p), duration(u)));
                double o = overlap(*start_[p], *start_[p] + duration(p), k.start, k.start + duration(u));
                if (o >= need) ++silent;
            }
            double a = static_cast<double>(k.anchors.size());
            k.value = a * k.support / (a + silent);
        }

        std::vector<const Cluster*> ranked;
        for (const auto& k : clusters) ranked.push_back(&k);
        std::stable_sort(ranked.begin(), ranked.end(),
                         [](const Cluster* a, const Cluster* b) { return a->value > b->value; });
        keepCandidates(u, ranked);
        const Cluster& leader = *ranked[0];
        const double runnerUp = ranked.size() > 1 ? ranked[1]->value : 0.0;
        leader_ = &leader;
        runnerUp_ = runnerUp;
        // A witness of its own: an anchor that clearly hears the leader and
        // has nothing at all at the runner-up.
        const bool agreed = ranked.size() < 2 || std::any_of(leader.votes.begin(), leader.votes.end(), [&](const auto& v) {
                                return v.second >= witnessEvidence && !ranked[1]->anchors.count(v.first);
                            });
        const bool clear = runnerUp < leader.value * (agreed ? agreedMargin : clearMargin);

        // The clock chooses only among starts the sound leaves close.
        const auto predictions = clockPredictions(u);
        const Cluster* byClock = nearPrediction(predictions, ranked, leader.value * clearMargin);
        const char* hypothesis = byClock ? hypothesis_ : "";
        if (byClock) {
            double other = byClock == &leader ? runnerUp : leader.value;
            traceDecision(u, cformat("horloge de la source (dates de %s)", hypothesis), byClock, other);
            placeFrom(u, *byClock, Rule::clock);
            return true;
        }
        // A weak match far from where the clock puts the file does not win:
        // a weaker start that the clock confirms does, or nothing.
        if (!predictions.empty() && leader.support < weakEvidence) {
            if (const Cluster* confirmed = nearPrediction(predictions, ranked, 0.0)) {
                traceDecision(u, cformat("horloge de la source contre un son faible (dates de %s)", hypothesis_),
                              confirmed, leader.value);
                placeFrom(u, *confirmed, Rule::clock);
                return true;
            }
            const char* why = outsideEveryRecording(u, predictions) ? clockOutside : clockElsewhere;
            traceDecision(u, strict ? std::string("en attente : ") + why : std::string(why), &leader, runnerUp);
            if (!strict && !dryRun_) reason_[u] = why;
            return false;
        }
        // Until its source's dated files are placed, a weak match waits for
        // the clock they will teach.
        if (strict && predictions.empty() && leader.support < weakEvidence && datedSiblingWaits(u)) {
            traceDecision(u, "en attente de l'horloge de la source", &leader, runnerUp);
            return false;
        }
        if (leader.support < minEvidence) {
            traceDecision(u, strict ? "en attente : preuve trop faible" : noCommonSound, &leader, runnerUp);
            return false;
        }
        if (clear) {
            traceDecision(u, agreed ? "son net, plus d'ancres d'accord" : "son net", &leader, runnerUp);
            placeFrom(u, leader, Rule::sound);
            return true;
        }
        if (strict) {
            traceDecision(u, "en attente d'autres ancres", &leader, runnerUp);
            return false;
        }
        // Unclear is not absent: a start is taken, marked ambiguous. Between
        // the two best, an anchor that heard both stretches and clearly
        // prefers one knows more than votes from anchors that heard only one
        // of them. Only a file no such anchor hears is refused, as when it
        // was filmed while nothing else ran and the music's repeats answer.
        const Cluster& second = *ranked[1];  // unclear: there is a runner-up
        const int forLeader = judges(u, leader, second, anchors), forSecond = judges(u, second, leader, anchors);
        const Cluster* choice = forSecond > forLeader ? &second : &leader;
        if (choice->support < strongEvidence && std::max(forLeader, forSecond) == 0) {
            traceDecision(u, std::string(noCommonSound) + " (isolé : musique répétée seulement)", choice, runnerUp);
            return false;
        }
        traceDecision(u, choice == &leader ? "doute : AMBIGU" : "doute, départagé par une ancre qui entend les deux : AMBIGU",
                      choice, choice == &leader ? runnerUp : leader.value);
        placeFrom(u, *choice, Rule::doubt);
        return true;
    }

    // Whether anchor p's own best peak for u lies in cluster k and leads
    // the pair's next peak clearly.
    bool bestPeakIn(int u, int p, const Cluster& k) const {
        const auto& matches = matches_.at({u, p});
        if (matches.empty()) return false;
        const double first = static_cast<double>(matches[0].score) * matches[0].score;
        const double second = matches.size() > 1 ? static_cast<double>(matches[1].score) * matches[1].score : 0.0;
        return std::fabs(startFrom(u, p, matches[0]) - k.start) < clusterWidth &&
               first - floor2(u, p, matches) >= minEvidence && first >= distinctLead * second;
    }

    // Anchors that heard both starts' stretches and hear u distinctly at `k`.
    // None for either start means that u is isolated: only the music's
    // repeats answer it, or anchors too short to hear a repeat.
    int judges(int u, const Cluster& k, const Cluster& other, const std::vector<int>& anchors) const {
        int count = 0;
        for (int p : anchors) {
            const double need = std::min(silenceFloor, 0.5 * std::min(duration(p), duration(u)));
            auto covers = [&](const Cluster& c) {
                return overlap(*start_[p], *start_[p] + duration(p), c.start, c.start + duration(u)) >= need;
            };
            if (covers(k) && covers(other) && bestPeakIn(u, p, k)) ++count;
        }
        return count;
    }

    // The cluster nearest one of the clock's predictions, within the
    // tolerance, among those with evidence enough and a value of at least
    // `floor`; its hypothesis is left in `hypothesis_`.
    const Cluster* nearPrediction(const std::vector<std::pair<double, const char*>>& predictions,
                                  const std::vector<const Cluster*>& ranked, double floor) {
        const Cluster* found = nullptr;
        double nearest = clockTolerance;
        for (const auto& [predicted, which] : predictions) {
            for (const Cluster* k : ranked) {
                if (k->support < minEvidence || k->value < floor) continue;
                double d = std::fabs(k->start - predicted);
                if (d < nearest) {
                    nearest = d;
                    found = k;
                    hypothesis_ = which;
                }
            }
        }
        return found;
    }

    // Whether every prediction puts u where no placed file of another
    // source runs for as long as a match needs.
    bool outsideEveryRecording(int u, const std::vector<std::pair<double, const char*>>& predictions) const {
        const double need = std::min(duration(u) / 2, 10.0);
        for (const auto& [predicted, which] : predictions)
            for (int p : anchorsOf(u))
                if (overlap(*start_[p], *start_[p] + duration(p), predicted, predicted + duration(u)) >= need)
                    return false;
        return true;
    }

    bool datedSiblingWaits(int u) const {
        if (!e_[u].item.recordedAt) return false;
        for (size_t q = 0; q < e_.size(); ++q)
            if (static_cast<int>(q) != u && !start_[q] && e_[q].sourceIndex == e_[u].sourceIndex &&
                e_[q].item.recordedAt)
                return true;
        return false;
    }

    // The strongest starts of the latest try, for the user's own choice.
    void keepCandidates(int u, const std::vector<const Cluster*>& ranked) {
        auto& kept = candidates_[static_cast<size_t>(u)];
        kept.clear();
        for (const Cluster* k : ranked) {
            if (kept.size() == maxCandidates) break;
            kept.push_back({k->start, k->best});
        }
    }

    void placeFrom(int u, const Cluster& k, Rule rule) {
        if (dryRun_) {
            proposal_ = Proposal{k.start, k.support, k.value, &k == leader_ ? runnerUp_ : leader_->value};
            return;
        }
        start_[u] = k.start;
        score_[u] = k.best;
        anchor_[u] = k.anchor;
        if (rule == Rule::doubt) ambiguous_.insert(u);
        if (rule == Rule::sound) clear_.insert(u);
        measureDrift(u);
    }

    // A long file's rate against the reference: a drifting file then stands
    // where its time 0 lies, and later anchors follow its clock.
    void measureDrift(int u) {
        if (u == reference_ || duration(u) < Drift::minimumSpan) return;
        int threads = options_.threads > 0 ? options_.threads : defaultThreads();
        auto fit = Drift::measure(e_[u].signal, e_[reference_].signal, *start_[u], *start_[reference_], threads);
        if (options_.trace)
            std::fprintf(stderr, "  %s : %s\n", e_[u].item.fileName().c_str(),
                         fit ? Drift::describe(*fit).c_str() : "dérive non mesurée");
        if (!fit) return;
        if (!fit->significant()) {
            measured_[u] = 0.0;
            return;
        }
        drift_[u] = fit->ppm;
        measured_[u] = fit->ppm;
        start_[u] = fit->start;
    }

    std::vector<Entry>& e_;
    const Progress& progress_;
    const Options& options_;
    SpectrumCache cache_;
    std::vector<std::optional<double>> start_;
    std::vector<std::optional<float>> score_;
    std::vector<int> anchor_;
    std::vector<double> drift_;                  // ppm, 0 unless measured and significant
    std::vector<std::optional<double>> measured_;
    std::set<int> ambiguous_;
    std::vector<std::string> reason_;  // why a file was refused, when not for lack of common sound
    std::vector<std::vector<SyncCandidate>> candidates_;  // unnormalised starts
    const char* hypothesis_ = "";      // which reading of the dates `nearPrediction` last took
    bool dryRun_ = false;              // `decide` only proposes: no trace, no placement
    const Cluster* leader_ = nullptr;  // of the choice under way, for the proposal
    double runnerUp_ = 0;
    std::optional<Proposal> proposal_;
    std::set<int> clear_;  // placed by clear sound: their dates teach the clock
    int reference_ = 0;
    std::map<std::pair<int, int>, std::vector<Match>> matches_;
    int placedCount_ = 0;
};

}  // namespace

Options defaultOptions() {
    Options o;
    o.trace = std::getenv("QUORVEL_DEBUG") != nullptr;
    o.primary = AudioLoader::loadWithLibav;
    o.fallback = AudioLoader::loadWithFFmpeg;
    return o;
}

SyncResult place(std::vector<Entry> entries, std::vector<UnsyncedItem> unsynced, const Progress& progress,
                 const Options& options) {
    SyncResult result;
    result.unsynced = std::move(unsynced);
    if (entries.empty()) {
        if (progress) progress(1.0, "Synchronisation terminée");
        return result;
    }
    auto t0 = std::chrono::steady_clock::now();
    Placer placer(entries, progress, options);
    placer.run();
    if (stopped(options)) return {};
    if (options.stats) {
        options.stats->placeSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        options.stats->spectra = placer.spectraComputed();
        options.stats->budgetPeak = placer.budgetPeak();
    }

    double earliest = INFINITY;
    for (size_t i = 0; i < entries.size(); ++i)
        if (placer.start(static_cast<int>(i))) earliest = std::min(earliest, *placer.start(static_cast<int>(i)));

    std::vector<std::string> names;
    for (const auto& e : entries) names.push_back(e.item.fileName());
    auto candidatesOf = [&](int k) {
        std::vector<SyncCandidate> out = placer.candidates(k);
        for (auto& c : out) c.start -= earliest;
        return out;
    };
    for (size_t i = 0; i < entries.size(); ++i) {
        int k = static_cast<int>(i);
        Entry& e = entries[i];
        if (!placer.start(k)) {
            const std::string& why = placer.reason(k);
            result.unsynced.push_back(
                {e.sourceIndex, std::move(e.item), why.empty() ? noCommonSound : why, candidatesOf(k)});
            continue;
        }
        PlacedItem p;
        p.sourceIndex = e.sourceIndex;
        p.start = *placer.start(k) - earliest;
        p.score = placer.score(k);
        if (placer.anchor(k) >= 0) p.anchorName = names[static_cast<size_t>(placer.anchor(k))];
        p.ambiguous = placer.ambiguous(k);
        p.drift = placer.drift(k);
        p.candidates = candidatesOf(k);
        p.waveform = Envelopes::waveform(e.signal);
        p.bass = Envelopes::bassEnvelope(e.signal);
        p.item = std::move(e.item);
        result.placed.push_back(std::move(p));
    }
    if (progress) progress(1.0, "Synchronisation terminée");
    std::stable_sort(result.placed.begin(), result.placed.end(),
                     [](const PlacedItem& a, const PlacedItem& b) { return a.start < b.start; });
    return result;
}

SyncResult run(const std::vector<MediaSource>& sources, const Progress& progress) {
    return run(sources, progress, defaultOptions());
}

std::vector<std::vector<float>> decodeAll(const std::vector<const MediaItem*>& items, const Options& options,
                                          const Progress& progress) {
    Loader primary = options.primary ? options.primary : Loader(AudioLoader::loadWithLibav);
    Loader fallback = options.fallback ? options.fallback : Loader(AudioLoader::loadWithFFmpeg);
    // Longest files first, so that no core is left alone with a long one at
    // the end; each result lands in its own slot, so the order changes nothing.
    std::vector<int> order(items.size());
    for (size_t i = 0; i < items.size(); ++i) order[i] = static_cast<int>(i);
    auto duration = [&](int i) { return items[static_cast<size_t>(i)]->duration; };
    std::stable_sort(order.begin(), order.end(), [&](int a, int b) { return duration(a) > duration(b); });

    std::vector<std::vector<float>> signals(items.size());
    std::mutex progressLock;
    int started = 0;
    int threads = options.threads > 0 ? options.threads : defaultThreads();
    parallelFor(static_cast<int>(items.size()), threads, [&](int k) {
        if (stopped(options)) return;
        const size_t i = static_cast<size_t>(order[static_cast<size_t>(k)]);
        const MediaItem& item = *items[i];
        {
            std::lock_guard<std::mutex> guard(progressLock);
            double n = static_cast<double>(std::max<size_t>(items.size(), 1));
            if (progress) progress(started / n * 0.5, "Lecture du son : " + item.fileName());
            ++started;
        }
        if (item.audioChannels < 1) return;
        auto signal = primary(item.url);
        if (!signal || signal->empty()) signal = fallback(item.url);
        if (signal && !signal->empty()) signals[i] = std::move(*signal);
    });
    return signals;
}

SyncResult run(const std::vector<MediaSource>& sources, const Progress& progress, const Options& options) {
    struct Job {
        int sourceIndex;
        SourceKind kind;
        const MediaItem* item;
    };
    std::vector<Job> jobs;
    std::vector<const MediaItem*> items;
    for (size_t s = 0; s < sources.size(); ++s)
        for (const auto& item : sources[s].items) {
            jobs.push_back({static_cast<int>(s), sources[s].kind, &item});
            items.push_back(&item);
        }

    auto t0 = std::chrono::steady_clock::now();
    std::vector<std::vector<float>> signals = decodeAll(items, options, progress);
    if (stopped(options)) return {};
    memory::returnFreeMemory();  // what the decoders freed, before the spectra need room
    if (options.stats)
        options.stats->decodeSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();

    std::vector<Entry> entries;
    std::vector<UnsyncedItem> unsynced;
    for (size_t i = 0; i < jobs.size(); ++i) {
        if (signals[i].size() >= shortestSignal)
            entries.push_back({jobs[i].sourceIndex, jobs[i].kind, *jobs[i].item, std::move(signals[i])});
        else
            unsynced.push_back({jobs[i].sourceIndex, *jobs[i].item, "pas de son utilisable"});
    }
    return place(std::move(entries), std::move(unsynced), progress, options);
}

}  // namespace qv::FolderSync
