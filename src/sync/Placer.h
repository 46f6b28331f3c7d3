// Placer: the placing half of FolderSync, private to the synchronisation.
// One object lives for one call of FolderSync::place and knows everything
// that run learns: the pairs correlated, the starts taken, the clocks of
// the sources, how files of one source belong together.
//
//   Placer.cpp       sweeps, pairs, candidates and clusters: the sound's say
//   PlacerClock.cpp  what device clocks and a recording's pieces predict
//   PlacerGroups.cpp takes placed as one, pieces chained, drifts shared
//
// A take (FileGroups) is placed as one file: its leader stands for it in
// the sweeps, and every member's correlation with every anchor votes, so a
// repeat of the music that one member rules out is ruled out for all.
#pragma once

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "sync/FileGroups.h"
#include "sync/FolderSync.h"

namespace qv::FolderSync {

inline constexpr double analysisRate = 2000.0;

namespace placing {

inline constexpr float minScore = 9.0f;
inline constexpr int maxPeaks = 50;
inline constexpr int separation = 500;
inline constexpr double clusterWidth = 0.1;
inline constexpr double siblingOverlap = 1.0;
inline constexpr double silenceFloor = 30.0;
// The runner-up must stay below this fraction of the leader's value for the
// sound alone to decide. Values add squared scores, so `clearMargin` is
// about 0.7 in scores: repeated music lifts its wrong phrases to 0.8 of the
// truth when the same anchors hear both. A leader that an anchor of its own
// confirms (one with nothing at the runner-up) only needs `agreedMargin`.
inline constexpr double clearMargin = 0.5;
inline constexpr double agreedMargin = 0.8;
inline constexpr double witnessEvidence = 1000.0;  // a peak of about 32: more than a phrase heard in passing
// Evidence is counted in squared scores over the pair's own noise floor:
// under noise a peak of score s is about exp(s^2 / 2) times likelier to be
// true, so squares add up the way independent anchors should. A start needs
// `minEvidence` to be taken at all (a lone peak of about 12 over a floor of
// 7); a doubt is only kept, marked ambiguous, on sound as strong as
// `strongEvidence` (a peak of about 140: two files sharing a long stretch
// exactly). Below it repeated music explains the peaks as well as common
// sound does, and the file is better left unplaced.
inline constexpr double minEvidence = 100.0;
inline constexpr double strongEvidence = 20000.0;
// A source's clock, learnt from its own files' dates, chooses among the
// starts the sound leaves close (within the clear margin of the best),
// within this distance of where it predicts.
inline constexpr double clockTolerance = 3.0;
// Below this evidence (a peak of about 32) a start is a weak match: against
// the source's clock it does not win.
inline constexpr double weakEvidence = witnessEvidence;
// An anchor hears a file distinctly when its best peak leads its next one
// by this much in squared scores (about 1.22 in scores): repeated music
// lifts every repeat of a phrase alike, a moment heard in common stands out.
inline constexpr double distinctLead = 1.5;
// Files of one source whose starts lie this close were written at the same
// moment: a take, whatever their names say.
inline constexpr double simultaneous = 0.01;
// A later piece of a recording may start this much before the earlier one
// ends (or after) and still continue it.
inline constexpr double pieceSlack = 0.5;
// Without anything the device wrote, two files of a source this close end
// to start are one recording cut in two.
inline constexpr double soundPieceSlack = 0.1;
// No device clock runs further off than this.
inline constexpr double worstClock = 5e-4;

inline const char* const noCommonSound = "pas de son commun trouvé";
inline const char* const clockElsewhere = "son trop faible, la date de sa caméra le place ailleurs";
inline const char* const clockOutside = "la date de sa caméra le place hors de tout enregistrement";

inline double overlap(double aStart, double aEnd, double bStart, double bEnd) {
    return std::min(aEnd, bEnd) - std::max(aStart, bStart);
}

}  // namespace placing

class Placer {
public:
    Placer(std::vector<Entry>& entries, const Progress& progress, const Options& options);

    void run();

    const std::optional<double>& start(int i) const { return start_[static_cast<size_t>(i)]; }
    std::optional<float> score(int i) const { return score_[static_cast<size_t>(i)]; }
    int anchor(int i) const { return anchor_[static_cast<size_t>(i)]; }
    bool ambiguous(int i) const { return ambiguous_.count(i) > 0; }
    std::optional<double> drift(int i) const { return measured_[static_cast<size_t>(i)]; }
    const std::vector<SyncCandidate>& candidates(int u) const { return candidates_[static_cast<size_t>(u)]; }
    const std::string& reason(int i) const { return reason_[static_cast<size_t>(i)]; }
    int spectraComputed() const { return cache_.computed(); }
    long long budgetPeak() const { return cache_.peakBytes(); }
    // How the file stands among its source's files (SyncResult.h).
    int take(int i) const { return take_[static_cast<size_t>(i)]; }
    const std::vector<int>& members(int i) const;
    int follows(int i) const { return follows_[static_cast<size_t>(i)]; }
    PlacedBy placedBy(int i) const { return placedBy_[static_cast<size_t>(i)]; }

    struct Candidate {
        double start;
        float score;
        int voter;      // member * entries + anchor: one vote each
        double weight;  // evidence: score^2 over the pair's floor^2, at least 0
        double coherence;  // score for the samples the two share: near 1 when they match throughout
    };

    struct Cluster {
        double start;
        double support;  // evidence of its voters, one vote each
        float best;
        int anchor;
        std::set<int> voters;
        std::vector<std::pair<int, double>> votes;  // (voter, weight), for the trace
        double coherence = 0;  // the best of its members
        double value = 0;
    };

    // Where a start is expected by something other than the sound.
    struct Prediction {
        double start;
        const char* why;   // for the trace: "début", "fin", "horloge", "morceaux"
        double tolerance;  // seconds either side
        bool exact;        // precise enough to place a file the sound cannot
        int from;          // the entry it was learnt from
        PlacedBy rule;     // what placing by it means
        bool rulesOut = true;  // a weak match far from it loses; names in sequence only choose
    };

    struct Proposal {
        double start;
        double support;
        double value;
        double rival;  // value of the best other start
    };

private:
    enum class Rule { sound, clock, doubt, device };

    double duration(int i) const { return e_[static_cast<size_t>(i)].item.duration; }
    int source(int i) const { return e_[static_cast<size_t>(i)].sourceIndex; }
    int memberOf(int voter) const { return voter / count_; }
    int anchorOf(int voter) const { return voter % count_; }
    // The longest span of u's take, so a take's members collide as one.
    double spanOf(int u) const;

    std::vector<int> anchorsOf(int u) const;
    void prepareSweepRest(const std::vector<int>& order, size_t k, bool strict);
    void ensurePairs(const std::vector<std::pair<int, int>>& pairs);
    std::vector<Match> correlate(int u, int p);
    std::vector<std::pair<int, int>> pairsOf(int u, const std::vector<int>& anchors) const;

    bool tryPlace(int u, bool strict);
    std::optional<Proposal> propose(int u, bool strict, const std::vector<int>& anchors);
    std::vector<int> consult(int u, bool strict, const std::vector<int>& all);
    bool decide(int u, bool strict, const std::vector<int>& anchors);
    // What u's sibling q says of start s: nothing, a collision, or the same moment.
    enum class Sibling { apart, collides, together };
    Sibling againstSiblings(int u, double s, int* who) const;

    double startFrom(int u, int p, const Match& m) const;
    double lineTime(int p, double t) const;
    double floor2(int u, int p, const std::vector<Match>& matches) const;
    double coherence(int u, int p, const Match& m) const;
    bool bestPeakIn(int voter, const Cluster& k) const;
    int judges(int u, const Cluster& k, const Cluster& other, const std::vector<int>& anchors) const;
    const Cluster* heardClearly(int u, const std::vector<const Cluster*>& ranked, const std::vector<int>& anchors) const;
    void refuseForSibling(int u, double kept);

    void trace(int u, bool strict, const std::vector<Candidate>& candidates) const;
    void traceDecision(int u, const std::string& what, const Cluster* chosen, double runnerUp) const;
    std::string voterName(int voter) const;

    // PlacerClock.cpp
    std::vector<Prediction> clockPredictions(int u) const;
    std::vector<Prediction> datePredictions(int u) const;
    std::vector<Prediction> devicePredictions(int u) const;
    std::vector<Prediction> piecePredictions(int u) const;
    double clockSlack(int q, double span) const;
    const Cluster* nearPrediction(const std::vector<Prediction>& predictions, const std::vector<const Cluster*>& ranked,
                                  double floor);
    bool outsideEveryRecording(int u, const std::vector<Prediction>& predictions) const;
    bool datedSiblingWaits(int u) const;
    // Places u where an exact prediction puts it, when the sound could not.
    bool placeByDevice(int u, const std::vector<Prediction>& predictions);

    void keepCandidates(int u, const std::vector<const Cluster*>& ranked);
    void placeFrom(int u, const Cluster& k, Rule rule);
    void placeAt(int u, double start, std::optional<float> score, int anchor, Rule rule);
    void measureDrift(int u);

    // PlacerGroups.cpp
    void findGroups();
    void chainPieces();
    std::optional<double> chainDrift(const std::vector<int>& chain) const;

    std::vector<Entry>& e_;
    const Progress& progress_;
    const Options& options_;
    const int count_;
    SpectrumCache cache_;
    std::vector<std::optional<double>> start_;
    std::vector<std::optional<float>> score_;
    std::vector<int> anchor_;
    std::vector<double> drift_;                  // ppm, 0 unless measured and significant
    std::vector<std::optional<double>> measured_;
    std::set<int> ambiguous_;
    std::vector<std::string> reason_;  // why a file was refused, when not for lack of common sound
    std::vector<std::vector<SyncCandidate>> candidates_;  // unnormalised starts
    const char* hypothesis_ = "";      // which reading of the clocks `nearPrediction` last took
    bool dryRun_ = false;              // `decide` only proposes: no trace, no placement
    const Cluster* leader_ = nullptr;  // of the choice under way, for the proposal
    double runnerUp_ = 0;
    std::optional<Proposal> proposal_;
    std::set<int> clear_;    // placed by clear sound: their dates teach the clock
    std::set<int> trusted_;  // placed by clear sound or an exact device rule: their device clocks teach
    int reference_ = 0;
    std::map<std::pair<int, int>, std::vector<Match>> matches_;
    int placedCount_ = 0;

    // How files of one source belong together.
    std::vector<int> take_;                    // from 1, unique in the run; 0 alone
    std::map<int, std::vector<int>> members_;  // take to its entries, longest first
    std::vector<int> prev_, next_;             // a recording's pieces by what the device wrote; -1 none
    std::vector<FileGroups::Link> prevLink_;
    std::vector<int> follows_;                 // the piece this one continues, once placed; -1 none
    std::vector<PlacedBy> placedBy_;
    std::vector<std::pair<double, int>> overlapHit_;  // strongest start dropped for a sibling: (evidence, sibling)
};

}  // namespace qv::FolderSync
