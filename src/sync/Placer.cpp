// The sound's say: sweeps over the unplaced files, the pairs they need,
// candidates clustered by start, valued by their voters and by the anchors
// that heard the stretch and stayed silent.
#include "sync/Placer.h"

#include <cmath>
#include <cstdio>

#include "base/Parallel.h"
#include "base/Text.h"
#include "sync/Drift.h"

namespace qv::FolderSync {

using namespace placing;

namespace {

// The spectrum budget bounds all the memory the correlations take beyond
// the signals. The cache counts its spectra, working buffers and plans; the
// rest (each thread's heap, the results, the transforms' code) comes to 5
// to 15 MB on an hour-long set, and is left room here.
constexpr long long outsideTheCache = 24'000'000;

bool stopped(const Options& options) { return options.stop && options.stop->load(std::memory_order_relaxed); }

}  // namespace

Placer::Placer(std::vector<Entry>& entries, const Progress& progress, const Options& options)
    : e_(entries), progress_(progress), options_(options), count_(static_cast<int>(entries.size())),
      cache_(std::max(options.spectrumBudget - outsideTheCache, options.spectrumBudget / 2)),
      start_(entries.size()), score_(entries.size()), anchor_(entries.size(), -1), drift_(entries.size(), 0.0),
      measured_(entries.size()), reason_(entries.size()), candidates_(entries.size()), take_(entries.size(), 0),
      prev_(entries.size(), -1), next_(entries.size(), -1), prevLink_(entries.size(), FileGroups::Link::none),
      follows_(entries.size(), -1), placedBy_(entries.size(), PlacedBy::sound), overlapHit_(entries.size(), {0.0, -1}) {}

const std::vector<int>& Placer::members(int i) const {
    static const std::vector<int> none;
    auto it = members_.find(take_[static_cast<size_t>(i)]);
    return it == members_.end() ? none : it->second;
}

double Placer::spanOf(int u) const {
    double d = duration(u);
    for (int m : members(u)) d = std::max(d, duration(m));
    return d;
}

void Placer::run() {
    findGroups();
    std::vector<int> order(static_cast<size_t>(count_));
    for (int i = 0; i < count_; ++i) order[static_cast<size_t>(i)] = i;
    std::stable_sort(order.begin(), order.end(),
                     [&](int a, int b) { return e_[a].signal.size() > e_[b].signal.size(); });
    // A take is tried through its longest member; the others follow it.
    auto leads = [&](int u) { return take_[static_cast<size_t>(u)] == 0 || members(u).front() == u; };

    int reference = order.front();
    for (int i : order) {
        if (e_[i].kind == SourceKind::audio) {
            reference = i;
            break;
        }
    }
    if (!leads(reference)) reference = members(reference).front();
    reference_ = reference;
    placeAt(reference, 0.0, std::nullopt, -1, Rule::sound);
    placedCount_ = 1;

    for (bool strict : {true, false}) {
        bool placedSome = true;
        while (placedSome) {
            placedSome = false;
            for (size_t k = 0; k < order.size(); ++k) {
                int u = order[k];
                if (start_[u] || !leads(u)) continue;
                prepareSweepRest(order, k, strict);
                if (tryPlace(u, strict)) {
                    placedSome = true;
                    ++placedCount_;
                }
            }
        }
    }
    chainPieces();
}

std::vector<int> Placer::anchorsOf(int u) const {
    std::vector<int> anchors;
    for (int p = 0; p < count_; ++p)
        if (start_[p] && source(p) != source(u)) anchors.push_back(p);
    return anchors;
}

std::vector<std::pair<int, int>> Placer::pairsOf(int u, const std::vector<int>& anchors) const {
    std::vector<std::pair<int, int>> pairs;
    const std::vector<int> alone{u};
    for (int m : take_[static_cast<size_t>(u)] ? members(u) : alone)
        for (int p : anchors) pairs.emplace_back(m, p);
    return pairs;
}

// Every file still unplaced from position k of this sweep on will be tried
// against the anchors it needs today, so those pairs are computed now in
// one batch, on all cores, rather than a few at a time.
void Placer::prepareSweepRest(const std::vector<int>& order, size_t k, bool strict) {
    std::vector<std::pair<int, int>> pairs;
    for (size_t i = k; i < order.size(); ++i) {
        int u = order[i];
        if (start_[u] || (take_[static_cast<size_t>(u)] && members(u).front() != u)) continue;
        for (const auto& pair : pairsOf(u, consult(u, strict, anchorsOf(u)))) pairs.push_back(pair);
    }
    ensurePairs(pairs);
}

// Each pair is correlated once per run; the missing ones in parallel, the
// largest transforms first so that no thread is left with a big one at the
// end. As many pairs of one size run at once as the budget holds with two
// spectra and a working buffer each, so more cores never mean more memory.
// Results land in their own slot: timing changes nothing.
void Placer::ensurePairs(const std::vector<std::pair<int, int>>& pairs) {
    std::vector<std::pair<int, int>> missing;
    for (const auto& pair : pairs)
        if (!matches_.count(pair) && std::find(missing.begin(), missing.end(), pair) == missing.end())
            missing.push_back(pair);
    auto size = [&](const std::pair<int, int>& q) { return e_[q.first].signal.size() + e_[q.second].signal.size(); };
    std::stable_sort(missing.begin(), missing.end(), [&](const auto& a, const auto& b) { return size(a) > size(b); });
    // Plans are made here, on one thread, so that the memory they hold is
    // measured exactly and counted in the budget.
    for (const auto& pair : missing) cache_.correlator(static_cast<int>(size(pair)));
    std::vector<std::vector<Match>> found(missing.size());
    const int threads = options_.threads > 0 ? options_.threads : defaultThreads();
    for (size_t from = 0; from < missing.size();) {
        auto correlator = cache_.correlator(static_cast<int>(size(missing[from])));
        const int n = correlator ? correlator->n() : 2;
        size_t to = from;
        while (to < missing.size()) {
            auto c = cache_.correlator(static_cast<int>(size(missing[to])));
            if ((c ? c->n() : 2) != n) break;
            ++to;
        }
        const long long perPair =
            static_cast<long long>((2 * (static_cast<size_t>(n) + 2) + Correlator::workFloats(n)) * sizeof(float));
        const long long room = cache_.budget() - cache_.planBytes();
        const int atOnce = static_cast<int>(std::clamp<long long>(room / std::max(perPair, 1LL), 1, threads));
        parallelFor(static_cast<int>(to - from), atOnce, [&](int k) {
            if (stopped(options_)) return;
            const auto& [u, p] = missing[from + static_cast<size_t>(k)];
            found[from + static_cast<size_t>(k)] = correlate(u, p);
        });
        from = to;
    }
    for (size_t k = 0; k < missing.size(); ++k) matches_[missing[k]] = std::move(found[k]);
    if (options_.stats) options_.stats->correlations += static_cast<int>(missing.size());
}

std::vector<Match> Placer::correlate(int u, int p) {
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

Placer::Sibling Placer::againstSiblings(int u, double s, int* who) const {
    const double span = spanOf(u);
    Sibling worst = Sibling::apart;
    for (int q = 0; q < count_; ++q) {
        if (q == u || !start_[q] || source(q) != source(u)) continue;
        if (take_[static_cast<size_t>(q)] && take_[static_cast<size_t>(q)] == take_[static_cast<size_t>(u)]) continue;
        if (overlap(*start_[q], *start_[q] + duration(q), s, s + span) <= siblingOverlap) continue;
        // Written at the same moment and as long: one take, not a collision.
        if (std::fabs(*start_[q] - s) < simultaneous && std::fabs(duration(q) - span) < pieceSlack) {
            if (worst == Sibling::apart) worst = Sibling::together;
            continue;
        }
        if (who) *who = q;
        return Sibling::collides;
    }
    return worst;
}

// The start of u that match m against placed anchor p gives.
double Placer::startFrom(int u, int p, const Match& m) const {
    const double lag = m.lag / analysisRate;
    if (drift_[p] == 0.0) return *start_[p] - lag;
    // In step at the middle of what the two share.
    const double from = std::max(0.0, lag);
    const double to = std::min(duration(u), e_[p].signal.size() / analysisRate + lag);
    const double middle = (from + to) / 2;
    return lineTime(p, middle - lag) - middle;
}

// Where file time t of a placed anchor lies on the line.
double Placer::lineTime(int p, double t) const { return *start_[p] + t / (1.0 + drift_[p] * 1e-6); }

// The floor of a pair, in squared score: what noise reaches over all the
// lags searched, or the pair's third peak when repeated music lifts more
// than one wrong peak above that.
double Placer::floor2(int u, int p, const std::vector<Match>& matches) const {
    const double lu = static_cast<double>(e_[u].signal.size()), lp = static_cast<double>(e_[p].signal.size());
    const double minOverlap = std::min(std::min(lu, lp) / 2, 20000.0);
    const double lags = std::max(2.0, lu + lp - 2 * minOverlap + 1);
    double f2 = 2 * std::log(lags);
    if (matches.size() >= 3) f2 = std::max(f2, static_cast<double>(matches[2].score) * matches[2].score);
    return f2;
}

// A peak's score against what the shared stretch would give if the two
// files heard exactly the same thing there: a phase-transform peak grows
// with the root of the samples shared (and of the transform's share of the
// longer file). Repeated music matches a phrase elsewhere only in part, the
// room never, so a true start stands higher on this scale.
double Placer::coherence(int u, int p, const Match& m) const {
    const double lu = static_cast<double>(e_[u].signal.size()), lp = static_cast<double>(e_[p].signal.size());
    const double shared = std::min(lu, lp + m.lag) - std::max(0.0, static_cast<double>(m.lag));
    double n = 2;
    while (n < lu + lp) n *= 2;
    return shared > 0 ? m.score / std::sqrt(shared * n / (2 * std::max(lu, lp))) : 0.0;
}

std::string Placer::voterName(int voter) const {
    const int m = memberOf(voter), p = anchorOf(voter);
    std::string name = e_[p].item.fileName();
    if (!members(m).empty()) name = e_[m].item.fileName() + "@" + name;
    return name;
}

void Placer::trace(int u, bool strict, const std::vector<Candidate>& candidates) const {
    std::string line = strict ? "[strict] " : "[souple] ";
    line += e_[u].item.fileName();
    line += ":";
    for (const auto& c : candidates) {
        line.push_back(' ');
        line += cformat("%.2f(%.0f,%s)", c.start, static_cast<double>(c.score), voterName(c.voter).c_str());
    }
    std::fprintf(stderr, "%s\n", line.c_str());
}

void Placer::traceDecision(int u, const std::string& what, const Cluster* chosen, double runnerUp) const {
    if (!options_.trace || dryRun_) return;
    std::string line = "  " + e_[u].item.fileName() + " -> " + what;
    if (chosen) {
        line += cformat(" à %.4f s, valeur %.0f (suivant %.0f), cohérence %.2f, votes", chosen->start, chosen->value,
                        runnerUp, chosen->coherence);
        for (const auto& [voter, weight] : chosen->votes) line += cformat(" %s:%.0f", voterName(voter).c_str(), weight);
    }
    std::fprintf(stderr, "%s\n", line.c_str());
}

bool Placer::tryPlace(int u, bool strict) {
    reason_[u].clear();
    if (progress_)
        progress_(0.5 + static_cast<double>(placedCount_) / static_cast<double>(count_) * 0.5,
                  "Calage de " + e_[u].item.fileName());
    const std::vector<int> all = anchorsOf(u);
    std::vector<int> anchors = consult(u, strict, all);
    ensurePairs(pairsOf(u, anchors));
    if (anchors.size() < all.size()) {
        // The stretch's own anchors must still hold it where the first ones
        // did; otherwise every anchor is heard.
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

// Where `decide` would place u with these anchors' pairs (all computed),
// without placing it; nothing when it would not.
std::optional<Placer::Proposal> Placer::propose(int u, bool strict, const std::vector<int>& anchors) {
    dryRun_ = true;
    proposal_.reset();
    decide(u, strict, anchors);
    dryRun_ = false;
    return proposal_;
}

// The anchors worth correlating u with. Once the pairs already computed
// place it on strong sound, only the anchors that ran during the chosen
// stretch can confirm it or count against it: the others are not needed.
// Otherwise, or with nothing computed yet, all of them.
std::vector<int> Placer::consult(int u, bool strict, const std::vector<int>& all) {
    std::vector<int> known;
    for (int p : all)
        if (matches_.count({u, p})) known.push_back(p);
    proposal_.reset();
    if (known.empty() || known.size() == all.size()) return all;
    std::optional<Proposal> found = propose(u, strict, known);
    if (!found || found->support < witnessEvidence) return all;
    // A chain of anchors that holds it firmly: even if every other anchor
    // ran during the stretch and stayed silent, the rival could not come
    // near; their votes are not needed either.
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

// Steps of the choice for u (and its take) from the pairs with `anchors`,
// all computed.
bool Placer::decide(int u, bool strict, const std::vector<int>& anchors) {
    // What each voter can tell: its best evidence anywhere. A voter that
    // tells nothing clearly does not count against a start.
    std::map<int, double> hearing;
    std::vector<Candidate> candidates;
    const std::vector<int> alone{u};
    const std::vector<int>& voices = take_[static_cast<size_t>(u)] ? members(u) : alone;
    if (!dryRun_) overlapHit_[u] = {0.0, -1};
    for (int m : voices)
        for (int p : anchors) {
            auto found = matches_.find({m, p});
            if (found == matches_.end()) continue;
            const auto& matches = found->second;
            const double f2 = floor2(m, p, matches);
            const int voter = m * count_ + p;
            for (const Match& match : matches) {
                if (match.score < minScore) continue;
                const double s = startFrom(m, p, match);
                const double weight = std::max(0.0, static_cast<double>(match.score) * match.score - f2);
                hearing[voter] = std::max(hearing[voter], weight);
                int sibling = -1;
                if (againstSiblings(u, s, &sibling) == Sibling::collides) {
                    if (!dryRun_ && weight > overlapHit_[u].first) overlapHit_[u] = {weight, sibling};
                    continue;
                }
                candidates.push_back({s, match.score, voter, weight, coherence(m, p, match)});
            }
        }
    if (options_.trace && !dryRun_) trace(u, strict, candidates);
    const std::vector<Prediction> predictions = clockPredictions(u);
    if (candidates.empty()) {
        if (!strict && placeByDevice(u, predictions)) return true;
        traceDecision(u, strict ? "en attente : aucun candidat" : noCommonSound, nullptr, 0);
        if (!strict) refuseForSibling(u, 0);
        return false;
    }

    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const Candidate& a, const Candidate& b) { return a.score > b.score; });
    std::vector<Cluster> clusters;
    for (const auto& c : candidates) {
        auto home = std::find_if(clusters.begin(), clusters.end(),
                                 [&](const Cluster& k) { return std::fabs(k.start - c.start) < clusterWidth; });
        if (home == clusters.end()) {
            clusters.push_back({c.start, c.weight, c.score, anchorOf(c.voter), {c.voter}, {{c.voter, c.weight}},
                                c.coherence});
        } else if (home->voters.insert(c.voter).second) {
            home->coherence = std::max(home->coherence, c.coherence);
            home->support += c.weight;  // one vote per voter
            home->votes.emplace_back(c.voter, c.weight);
        }
    }

    for (auto& k : clusters) {
        int silent = 0;
        for (const auto& [voter, heard] : hearing) {
            if (k.voters.count(voter) || heard < minEvidence) continue;
            const int p = anchorOf(voter);
            double need = std::min(silenceFloor, 0.5 * std::min(duration(p), duration(memberOf(voter))));
            double o = overlap(*start_[p], *start_[p] + duration(p), k.start, k.start + duration(memberOf(voter)));
            if (o >= need) ++silent;
        }
        double a = static_cast<double>(k.voters.size());
        k.value = a * k.support / (a + silent);
    }

    std::vector<const Cluster*> ranked;
    for (const auto& k : clusters) ranked.push_back(&k);
    std::stable_sort(ranked.begin(), ranked.end(), [](const Cluster* a, const Cluster* b) { return a->value > b->value; });
    keepCandidates(u, ranked);
    const Cluster& leader = *ranked[0];
    const double runnerUp = ranked.size() > 1 ? ranked[1]->value : 0.0;
    leader_ = &leader;
    runnerUp_ = runnerUp;
    // A witness of its own: a voter that clearly hears the leader and has
    // nothing at all at the runner-up.
    const bool agreed = ranked.size() < 2 || std::any_of(leader.votes.begin(), leader.votes.end(), [&](const auto& v) {
                            return v.second >= witnessEvidence && !ranked[1]->voters.count(v.first);
                        });
    const bool clear = runnerUp < leader.value * (agreed ? agreedMargin : clearMargin);

    // The clock chooses only among starts the sound leaves close.
    const Cluster* byClock = nearPrediction(predictions, ranked, leader.value * clearMargin);
    if (byClock) {
        double other = byClock == &leader ? runnerUp : leader.value;
        traceDecision(u, cformat("horloge de la source (%s)", hypothesis_), byClock, other);
        placeFrom(u, *byClock, Rule::clock);
        return true;
    }
    // A weak match far from where the clock puts the file does not win: a
    // weaker start that the clock confirms does, or an exact clock alone,
    // or nothing.
    const bool ruled = std::any_of(predictions.begin(), predictions.end(), [](const Prediction& p) { return p.rulesOut; });
    if (ruled && leader.support < weakEvidence) {
        if (const Cluster* confirmed = nearPrediction(predictions, ranked, 0.0)) {
            traceDecision(u, cformat("horloge de la source contre un son faible (%s)", hypothesis_), confirmed,
                          leader.value);
            placeFrom(u, *confirmed, Rule::clock);
            return true;
        }
        if (!strict && placeByDevice(u, predictions)) return true;
        const char* why = outsideEveryRecording(u, predictions) ? clockOutside : clockElsewhere;
        traceDecision(u, strict ? std::string("en attente : ") + why : std::string(why), &leader, runnerUp);
        if (!strict && !dryRun_) reason_[u] = why;
        return false;
    }
    // Until its source's dated files are placed, a weak match waits for the
    // clock they will teach.
    if (strict && !ruled && leader.support < weakEvidence && datedSiblingWaits(u)) {
        traceDecision(u, "en attente de l'horloge de la source", &leader, runnerUp);
        return false;
    }
    if (leader.support < minEvidence) {
        if (!strict && placeByDevice(u, predictions)) return true;
        traceDecision(u, strict ? "en attente : preuve trop faible" : noCommonSound, &leader, runnerUp);
        if (!strict) refuseForSibling(u, leader.support);
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
    // Unclear is not absent: a start is taken, marked ambiguous. Between the
    // two best, an anchor that heard both stretches and clearly prefers one
    // knows more than votes from anchors that heard only one of them.
    const Cluster& second = *ranked[1];  // unclear: there is a runner-up
    const int forLeader = judges(u, leader, second, anchors), forSecond = judges(u, second, leader, anchors);
    const Cluster* choice = forSecond > forLeader ? &second : &leader;
    if (std::max(forLeader, forSecond) == 0) {
        // Where no recording covers both, a start that one anchor heard
        // whole, distinctly and as coherently as a moment recorded twice,
        // well above the others, is that moment: the rest are its phrase
        // repeated. Only a file no anchor hears so is refused, as when it
        // was filmed while nothing else ran and the music's repeats answer.
        if (const Cluster* heard = heardClearly(u, ranked, anchors)) {
            choice = heard;
        } else if (choice->support < strongEvidence) {
            traceDecision(u, std::string(noCommonSound) + " (isolé : musique répétée seulement)", choice, runnerUp);
            refuseForSibling(u, choice->support);
            return false;
        }
    }
    traceDecision(u, choice == &leader ? "doute : AMBIGU" : "doute, départagé par une ancre qui entend les deux : AMBIGU",
                  choice, choice == &leader ? runnerUp : leader.value);
    placeFrom(u, *choice, Rule::doubt);
    return true;
}

// A file of one device heard while another of its files records: two files
// of a device cannot run at once unless they are one take, so it is refused
// for that, not for a lack of common sound.
void Placer::refuseForSibling(int u, double kept) {
    const auto& [evidence, sibling] = overlapHit_[u];
    if (dryRun_ || sibling < 0 || evidence < minEvidence || evidence <= kept) return;
    reason_[u] = "entendu pendant " + e_[sibling].item.fileName() + ", du même appareil, sans être de la même prise";
}

// Whether voter (member, anchor)'s own best peak lies in cluster k and leads
// the pair's next peak clearly.
bool Placer::bestPeakIn(int voter, const Cluster& k) const {
    const int m = memberOf(voter), p = anchorOf(voter);
    auto found = matches_.find({m, p});
    if (found == matches_.end() || found->second.empty()) return false;
    const auto& matches = found->second;
    const double first = static_cast<double>(matches[0].score) * matches[0].score;
    const double second = matches.size() > 1 ? static_cast<double>(matches[1].score) * matches[1].score : 0.0;
    return std::fabs(startFrom(m, p, matches[0]) - k.start) < clusterWidth &&
           first - floor2(m, p, matches) >= minEvidence && first >= distinctLead * second;
}

// Anchors that heard both starts' stretches and hear u distinctly at `k`.
// None for either start means that u is isolated: only the music's repeats
// answer it, or anchors too short to hear a repeat.
int Placer::judges(int u, const Cluster& k, const Cluster& other, const std::vector<int>& anchors) const {
    int count = 0;
    for (int p : anchors) {
        const double need = std::min(silenceFloor, 0.5 * std::min(duration(p), duration(u)));
        auto covers = [&](const Cluster& c) {
            return overlap(*start_[p], *start_[p] + duration(p), c.start, c.start + duration(u)) >= need;
        };
        if (covers(k) && covers(other) && bestPeakIn(u * count_ + p, k)) ++count;
    }
    return count;
}

// The one start among the best that an anchor covering the whole of u
// hears distinctly, more coherently by `clearer` than every other start is
// heard: the room and the crowd of a moment recorded twice, where the
// others share only a phrase. Null when none stands out.
const Placer::Cluster* Placer::heardClearly(int u, const std::vector<const Cluster*>& ranked,
                                            const std::vector<int>& anchors) const {
    constexpr double sameMoment = 0.25;  // below it, what an anchor shares with u is too little to tell
    constexpr double clearer = 1.3;
    const size_t considered = std::min(ranked.size(), maxCandidates);
    const Cluster* found = nullptr;
    double clarity = 0;
    for (size_t i = 0; i < considered; ++i) {
        const Cluster& k = *ranked[i];
        for (int p : anchors) {
            const bool whole = *start_[p] <= k.start + 0.5 && *start_[p] + duration(p) >= k.start + duration(u) - 0.5;
            if (!whole || !bestPeakIn(u * count_ + p, k)) continue;
            const double c = coherence(u, p, matches_.at({u, p})[0]);
            if (c < sameMoment) continue;
            if (found && found != &k) return nullptr;  // two starts heard so: no telling
            found = &k;
            clarity = std::max(clarity, c);
        }
    }
    if (!found) return nullptr;
    for (size_t i = 0; i < considered; ++i)
        if (ranked[i] != found && ranked[i]->coherence * clearer > clarity) return nullptr;
    return found;
}

// The strongest starts of the latest try, for the user's own choice.
void Placer::keepCandidates(int u, const std::vector<const Cluster*>& ranked) {
    if (dryRun_) return;
    auto& kept = candidates_[static_cast<size_t>(u)];
    kept.clear();
    for (const Cluster* k : ranked) {
        if (kept.size() == maxCandidates) break;
        kept.push_back({k->start, k->best});
    }
}

void Placer::placeFrom(int u, const Cluster& k, Rule rule) {
    if (dryRun_) {
        proposal_ = Proposal{k.start, k.support, k.value, &k == leader_ ? runnerUp_ : leader_->value};
        return;
    }
    placeAt(u, k.start, k.best, k.anchor, rule);
}

// Places u, and the rest of its take with it: one start, one score, one
// anchor, one drift.
void Placer::placeAt(int u, double start, std::optional<float> score, int anchor, Rule rule) {
    const std::vector<int> alone{u};
    const std::vector<int>& all = take_[static_cast<size_t>(u)] ? members(u) : alone;
    for (int m : all) {
        start_[m] = start;
        score_[m] = score;
        anchor_[m] = anchor;
        if (rule == Rule::doubt) ambiguous_.insert(m);
        if (rule == Rule::sound) clear_.insert(m);
        if (rule == Rule::sound || rule == Rule::device) trusted_.insert(m);
        if (m != u) candidates_[static_cast<size_t>(m)] = candidates_[static_cast<size_t>(u)];
    }
    if (rule != Rule::device) measureDrift(u);
    for (int m : all) {
        start_[m] = start_[u];
        drift_[m] = drift_[u];
        measured_[m] = measured_[u];
    }
}

// A long file's rate against the reference: a drifting file then stands
// where its time 0 lies, and later anchors follow its clock.
void Placer::measureDrift(int u) {
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

}  // namespace qv::FolderSync
