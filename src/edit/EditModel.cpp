#include "edit/EditModel.h"

#include <algorithm>
#include <cmath>

#include "base/Format.h"

namespace qv {

namespace {

// A cut this close to time 0 is the start of the set.
constexpr double startTolerance = 0.001;
// Shortest plan that splitting and dragging may leave.
constexpr double minGap = 0.04;
// A live cut replaces any cut this close to it.
constexpr double replaceWindow = 0.02;

const char* effectToastLabel(PlanEffect e) {
    switch (e) {
    case PlanEffect::automatic: return "effet automatique";
    case PlanEffect::none: return "aucun effet";
    case PlanEffect::zoomIn: return "zoom avant";
    case PlanEffect::zoomOut: return "zoom arrière";
    case PlanEffect::shake: return "effet épaule";
    }
    return "effet automatique";
}

const char* lookName(LookKind kind) {
    switch (kind) {
    case LookKind::lens: return "flou d'objectif";
    case LookKind::shutter: return "flou de mouvement";
    case LookKind::vhs: return "effet VHS";
    }
    return "";
}

std::optional<bool>& lookField(PlanLooks& looks, LookKind kind) {
    switch (kind) {
    case LookKind::lens: return looks.lens;
    case LookKind::shutter: return looks.shutter;
    case LookKind::vhs: return looks.vhs;
    }
    return looks.lens;
}

bool resolvedLook(const ResolvedEffect& r, LookKind kind) {
    switch (kind) {
    case LookKind::lens: return r.lens;
    case LookKind::shutter: return r.shutter;
    case LookKind::vhs: return r.vhs;
    }
    return false;
}

}  // namespace

EditModel::EditModel(Scheduler& scheduler) : scheduler_(scheduler) {}

// A pending toast timer must not fire into a dead model.
EditModel::~EditModel() {
    if (toastTimer_) scheduler_.cancel(toastTimer_);
}

void EditModel::notify(Change change) {
    if (onChange_) onChange_(change);
}

// --- Context

void EditModel::setPlayer(std::shared_ptr<PlayerControl> player) {
    player_ = std::move(player);
    notify(Change::context);
}

void EditModel::setResult(std::optional<SyncResult> result) {
    result_ = std::move(result);
    plans_.reset();  // the last plan ends with the set
    notify(Change::context);
}

void EditModel::setDrops(std::vector<Drop> drops) {
    drops_ = std::move(drops);
    notify(Change::context);
}

void EditModel::setCameraIds(std::vector<Uuid> ids) { cameraIds_ = std::move(ids); }

double EditModel::duration() const { return result_ ? result_->duration() : 0; }

// --- State

void EditModel::assignCuts(std::vector<Cut> cuts) {
    // The last step must stay true of the cuts it goes back to: the first
    // change after `record` hands it the cuts as they were; a step told
    // against the cuts now (after an undo) takes its own whole first.
    if (stepOpen_) {
        history_.back().whole = std::move(cuts_);
        stepOpen_ = false;
    } else if (!history_.empty() && history_.back().compact) {
        Step& last = history_.back();
        last.whole = restored(last);
        last.compact = false;
        last.middle.clear();
    }
    replaceCuts(std::move(cuts));
}

void EditModel::replaceCuts(std::vector<Cut> cuts) {
    cuts_ = std::move(cuts);
    plans_.reset();
    notify(Change::cuts);
}

void EditModel::assignHand(HandPlacements hand) {
    if (hand == hand_) return;
    hand_ = std::move(hand);
    notify(Change::hand);
}

void EditModel::setHand(HandPlacements hand) { assignHand(std::move(hand)); }

void EditModel::placeByHand(const std::string& key, double start) {
    start = std::max(0.0, start);
    auto found = hand_.find(key);
    if (found != hand_.end() && found->second == start) return;
    record();
    HandPlacements hand = hand_;
    hand[key] = start;
    assignHand(std::move(hand));
}

void EditModel::revertToAutomatic(const std::string& key) {
    if (!hand_.count(key)) return;
    record();
    HandPlacements hand = hand_;
    hand.erase(key);
    assignHand(std::move(hand));
}

void EditModel::setCuts(std::vector<Cut> cuts) {
    const auto earlier = [](const Cut& a, const Cut& b) { return a.time < b.time; };
    if (!std::is_sorted(cuts.begin(), cuts.end(), earlier)) sortByTime(cuts);
    assignCuts(std::move(cuts));
}

void EditModel::select(std::optional<int> plan) {
    selected_ = plan;
    notify(Change::selection);
}

void EditModel::setMarks(std::optional<double> in, std::optional<double> out) {
    inPoint_ = in;
    outPoint_ = out;
    notify(Change::range);
}

void EditModel::clearEdit() {
    history_.clear();
    stepOpen_ = false;
    assignHand({});
    selected_.reset();
    inPoint_.reset();
    outPoint_.reset();
    assignCuts({});
    notify(Change::selection);
    notify(Change::range);
}

// --- Questions

bool EditModel::implicitFirstPlan() const { return cuts_.empty() || cuts_.front().time > startTolerance; }

size_t EditModel::cutsUpTo(double t) const {
    const double limit = t + startTolerance;
    return static_cast<size_t>(std::partition_point(cuts_.begin(), cuts_.end(),
                                                    [limit](const Cut& c) { return c.time <= limit; }) -
                               cuts_.begin());
}

const std::vector<Segment>& EditModel::segments() const {
    if (!plans_) plans_ = Segment::build(cuts_, duration());
    return *plans_;
}

std::optional<Segment> EditModel::segment(int index) const {
    const int count = segmentCount();
    if (index < 0 || index >= count) return std::nullopt;
    // The cut that starts the plan; none for the implicit first one.
    const int first = implicitFirstPlan() ? 1 : 0;
    const int cut = index - first;
    Segment s;
    s.id = index;
    if (cut >= 0) {
        const Cut& c = cuts_[static_cast<size_t>(cut)];
        s.start = c.time;
        s.camera = c.camera;
        s.cutIndex = cut;
        s.effect = c.effect;
        s.looks = c.looks;
    }
    s.end = index + 1 < count ? cuts_[static_cast<size_t>(cut + 1)].time : duration();
    return s;
}

int EditModel::activeCamera(double t) const {
    const size_t k = cutsUpTo(t);
    return k > 0 ? cuts_[k - 1].camera : 0;
}

std::optional<int> EditModel::segmentIndex(double t) const {
    const int k = static_cast<int>(cutsUpTo(t));
    if (implicitFirstPlan()) {
        if (k > 0) return k;
        return 0 <= t + startTolerance ? std::optional<int>(0) : std::nullopt;
    }
    return k > 0 ? std::optional<int>(k - 1) : std::nullopt;
}

bool EditModel::hasFeed(int camera, double t) const {
    if (!player_) return false;
    const auto& angles = player_->angles();
    if (camera < 0 || static_cast<size_t>(camera) >= angles.size()) return false;
    const AngleInfo& angle = angles[camera];
    if (!angle.hasPicture) return false;
    return std::any_of(angle.ranges.begin(), angle.ranges.end(),
                       [t](const TimeRange& r) { return r.start <= t && t < r.end; });
}

std::string EditModel::cameraName(int camera) const {
    if (player_) {
        const auto& angles = player_->angles();
        if (camera >= 0 && static_cast<size_t>(camera) < angles.size()) return angles[camera].name;
    }
    return "Cette caméra";
}

ResolvedEffect EditModel::resolvedEffect(const Segment& plan) const {
    EffectCameras in;
    if (plan.camera >= 0 && static_cast<size_t>(plan.camera) < cameraIds_.size())
        in = EffectCameras::of(cameraIds_[plan.camera], effects_);
    return MotionFX::resolve(plan.effect, plan.looks, plan.start, in, effects_);
}

// --- Editing

void EditModel::pressCamera(int camera) {
    if (!player_ || camera < 0 || static_cast<size_t>(camera) >= player_->angles().size()) return;
    if (player_->isPlaying()) {
        // The cut lands where the playhead is at the press, unrounded.
        liveCut(camera, player_->currentTime());
        return;
    }
    std::optional<int> plan = selected_ ? selected_ : segmentIndex(player_->currentTime());
    if (plan) switchCamera(*plan, camera);
}

void EditModel::liveCut(int camera, double t) {
    if (!hasFeed(camera, t)) {
        showToast(cameraName(camera) + " n'a pas de flux à ce moment");
        return;
    }
    if (activeCamera(t) == camera) return;
    record();
    // Two presses a few milliseconds apart mean one cut: the later wins.
    // The cuts are in time order: those it replaces stand together.
    const auto kept = [t](const Cut& c) { return std::abs(c.time - t) > replaceWindow; };
    const auto from = std::partition_point(cuts_.begin(), cuts_.end(),
                                           [&](const Cut& c) { return c.time < t && kept(c); });
    const auto to = std::partition_point(from, cuts_.end(), [&](const Cut& c) { return c.time < t || !kept(c); });
    Cut cut;
    cut.time = t;
    cut.camera = camera;
    std::vector<Cut> next;
    next.reserve(cuts_.size() + 1);
    next.insert(next.end(), cuts_.begin(), from);
    next.push_back(cut);
    next.insert(next.end(), to, cuts_.end());
    assignCuts(std::move(next));
}

void EditModel::switchCamera(int planIndex, int camera) {
    const std::optional<Segment> found = segment(planIndex);
    if (!found || !player_) return;
    const Segment& plan = *found;
    // A plan left beyond the set's end by changed rushes has start > end;
    // the test below is then false and the probe falls back to its start.
    const double now = player_->currentTime();
    const double probe = plan.start <= now && now <= plan.end ? now : plan.start + 0.01;
    if (!hasFeed(camera, probe)) {
        showToast(cameraName(camera) + " n'a pas de flux sur ce plan");
        return;
    }
    if (plan.camera == camera) return;
    record();
    std::vector<Cut> next = cuts_;
    if (plan.cutIndex) {
        next[*plan.cutIndex].camera = camera;
    } else {
        // The implicit first plan becomes real, so it can keep an effect.
        Cut cut;
        cut.time = 0;
        cut.camera = camera;
        next.insert(next.begin(), cut);
    }
    assignCuts(std::move(next));
    select(planIndex);
}

void EditModel::addEdit(double t) {
    const double d = duration();
    if (!(t > minGap && t < d - minGap)) return;
    // No plan may start within minGap of t; the implicit first one starts
    // at 0, which t > minGap already keeps away.
    const auto after = std::partition_point(cuts_.begin(), cuts_.end(), [t](const Cut& c) { return c.time < t; });
    if ((after != cuts_.end() && std::abs(after->time - t) < minGap) ||
        (after != cuts_.begin() && std::abs(std::prev(after)->time - t) < minGap))
        return;
    record();
    // The new plan shows the same picture and starts without the effect of
    // the plan it splits.
    Cut cut;
    cut.time = t;
    cut.camera = activeCamera(t);
    std::vector<Cut> next = cuts_;
    next.insert(next.begin() + (after - cuts_.begin()), cut);
    assignCuts(std::move(next));
    select(segmentIndex(t));
}

std::optional<Segment> EditModel::targetPlan() const {
    if (!player_) return std::nullopt;
    std::optional<int> index = selected_ ? selected_ : segmentIndex(player_->currentTime());
    if (!index) return std::nullopt;
    return segment(*index);
}

void EditModel::deleteSegmentCut() {
    std::optional<Segment> plan = targetPlan();
    if (!plan) return;
    const double time = plan->cutIndex ? cuts_[*plan->cutIndex].time : 0;
    if (time <= startTolerance) {
        showToast("Le premier plan reste : change sa caméra avec 1 à 8");
        return;
    }
    record();
    std::vector<Cut> next = cuts_;
    next.erase(next.begin() + *plan->cutIndex);
    assignCuts(std::move(next));
    select(std::nullopt);
}

void EditModel::moveCut(int index, double t) {
    if (index < 0 || static_cast<size_t>(index) >= cuts_.size()) return;
    const size_t i = static_cast<size_t>(index);
    const double lower = i == 0 ? minGap : cuts_[i - 1].time + minGap;
    const double upper = i + 1 == cuts_.size() ? duration() - minGap : cuts_[i + 1].time - minGap;
    std::vector<Cut> next = cuts_;
    // When the bounds cross, the upper one wins.
    next[i].time = std::min(upper, std::max(lower, t));
    assignCuts(std::move(next));
}

void EditModel::writePlan(const Segment& plan, PlanEffect effect, const PlanLooks& looks) {
    std::vector<Cut> next = cuts_;
    if (plan.cutIndex) {
        next[*plan.cutIndex].effect = effect;
        next[*plan.cutIndex].looks = looks;
    } else {
        Cut cut;
        cut.time = 0;
        cut.camera = plan.camera;
        cut.effect = effect;
        cut.looks = looks;
        next.insert(next.begin(), cut);
    }
    assignCuts(std::move(next));
}

void EditModel::setEffect(PlanEffect effect) {
    std::optional<Segment> plan = targetPlan();
    if (!plan) return;
    record();
    // Back to automatic means back to the global look settings too.
    PlanLooks looks = effect == PlanEffect::automatic ? PlanLooks{} : plan->looks;
    writePlan(*plan, effect, looks);
    showToast("Plan " + std::to_string(plan->id + 1) + " : " + effectToastLabel(effect));
}

void EditModel::cycleZoom() {
    std::optional<Segment> plan = targetPlan();
    if (!plan) return;
    setEffect(plan->effect == PlanEffect::zoomIn ? PlanEffect::zoomOut : PlanEffect::zoomIn);
}

void EditModel::toggleLook(LookKind kind) {
    std::optional<Segment> plan = targetPlan();
    if (!plan) return;
    // Toggle what the user sees, after the draw: a plan the draw has
    // blurred is switched off, not on.
    const bool now = resolvedLook(resolvedEffect(*plan), kind);
    record();
    PlanLooks looks = plan->looks;
    lookField(looks, kind) = !now;
    writePlan(*plan, plan->effect, looks);
    showToast("Plan " + std::to_string(plan->id + 1) + " : " + lookName(kind) + " " + (now ? "coupé" : "activé"));
}

// The cuts a compact step brings back, from the cuts it was told against.
std::vector<Cut> EditModel::restored(const Step& step) const {
    std::vector<Cut> cuts;
    cuts.reserve(step.front + step.middle.size() + step.back);
    cuts.insert(cuts.end(), cuts_.begin(), cuts_.begin() + static_cast<long>(step.front));
    cuts.insert(cuts.end(), step.middle.begin(), step.middle.end());
    cuts.insert(cuts.end(), cuts_.end() - static_cast<long>(step.back), cuts_.end());
    return cuts;
}

void EditModel::closeLastStep() {
    if (history_.empty() || history_.back().compact) return;
    Step& last = history_.back();
    stepOpen_ = false;
    last.compact = true;
    if (!last.whole) {
        last.front = cuts_.size();  // no cut changed since it began
        return;
    }
    const std::vector<Cut>& before = *last.whole;
    const size_t most = std::min(before.size(), cuts_.size());
    size_t front = 0;
    while (front < most && before[front] == cuts_[front]) ++front;
    size_t back = 0;
    while (back < most - front && before[before.size() - 1 - back] == cuts_[cuts_.size() - 1 - back]) ++back;
    last.front = front;
    last.back = back;
    last.middle.assign(before.begin() + static_cast<long>(front), before.end() - static_cast<long>(back));
    last.whole.reset();
}

void EditModel::record() {
    closeLastStep();
    if (history_.size() >= historyLimit) history_.pop_front();
    history_.push_back({});
    history_.back().hand = hand_;
    stepOpen_ = true;
}

void EditModel::undo() {
    if (history_.empty()) {
        showToast("Rien à annuler");
        return;
    }
    Step last = std::move(history_.back());
    history_.pop_back();
    stepOpen_ = false;
    std::vector<Cut> cuts = last.whole ? std::move(*last.whole) : last.compact ? restored(last) : cuts_;
    assignHand(std::move(last.hand));
    // The step before is told against exactly these cuts.
    replaceCuts(std::move(cuts));
    select(std::nullopt);
}

// --- Moving around and the export range

void EditModel::jumpToCut(bool forward) {
    if (!player_) return;
    const double now = player_->currentTime();
    std::vector<double> stops;
    for (const Segment& s : segments()) stops.push_back(s.start);
    stops.push_back(duration());
    std::optional<double> target;
    if (forward) {
        auto it = std::find_if(stops.begin(), stops.end(), [now](double s) { return s > now + 0.01; });
        if (it != stops.end()) target = *it;
    } else {
        auto it = std::find_if(stops.rbegin(), stops.rend(), [now](double s) { return s < now - 0.01; });
        if (it != stops.rend()) target = *it;
    }
    if (target) player_->seek(*target);
    revealPlayhead();
}

void EditModel::jumpToDrop(bool forward) {
    if (!player_) return;
    // Half a second of margin, so a jump from just before a drop (the
    // playhead left there by the last jump) moves on to the next one.
    const double now = player_->currentTime();
    const Drop* found = nullptr;
    if (forward) {
        auto it = std::find_if(drops_.begin(), drops_.end(), [now](const Drop& d) { return d.time > now + 0.5; });
        if (it != drops_.end()) found = &*it;
    } else {
        auto it = std::find_if(drops_.rbegin(), drops_.rend(), [now](const Drop& d) { return d.time < now - 0.5; });
        if (it != drops_.rend()) found = &*it;
    }
    if (found) {
        player_->seek(found->time);
        revealPlayhead();
    } else {
        showToast(drops_.empty() ? "Aucun drop repéré dans ce set" : "Plus de drop dans ce sens");
    }
}

void EditModel::focusDrop(const Drop& drop) {
    setRange(drop.time - dropPre_, drop.time + dropPost_);
    const TimeRange r = exportRange();
    if (player_) {
        player_->pause();
        player_->seek(r.start);
    }
    if (r.end > r.start) setZoom(duration() / ((r.end - r.start) * 1.3), (r.start + r.end) * 0.5, 0.5);
    showToast("Drop " + std::to_string(drop.id + 1) + " : export de " + Format::timecode(r.start) + " à " +
              Format::timecode(r.end));
}

void EditModel::setRange(double start, double end) {
    const double d = duration();
    const double a = std::min(std::max(start, 0.0), std::max(d - 1, 0.0));
    const double b = std::min(std::max(end, a + 1), d);
    // A mark this close to an end of the set is no mark: the range runs there.
    inPoint_ = a < 0.05 ? std::nullopt : std::optional<double>(a);
    outPoint_ = b > d - 0.05 ? std::nullopt : std::optional<double>(b);
    notify(Change::range);
}

TimeRange EditModel::exportRange() const {
    const double d = duration();
    const double lower = std::min(inPoint_ && *inPoint_ > 0 ? *inPoint_ : 0.0, d);
    const double upper = std::min(std::max(outPoint_.value_or(d), 0.0), d);
    if (lower < upper) return {lower, upper};
    return {0, d};  // crossed marks, as a hand-edited project may hold
}

bool EditModel::rangeIsWholeSet() const {
    const TimeRange r = exportRange();
    return r.start <= 1e-3 && r.end >= duration() - 1e-3;
}

void EditModel::markIn() {
    if (!player_) return;
    inPoint_ = player_->currentTime();
    if (outPoint_ && *outPoint_ <= *inPoint_) outPoint_.reset();
    notify(Change::range);
}

void EditModel::markOut() {
    if (!player_) return;
    outPoint_ = player_->currentTime();
    if (inPoint_ && *inPoint_ >= *outPoint_) inPoint_.reset();
    notify(Change::range);
}

double EditModel::snapTime(double t, double pointsPerSecond) const {
    if (!snapEnabled_ || !result_ || !(pointsPerSecond > 0)) return t;
    // In order of precedence: on a tie the earlier landmark wins.
    std::vector<double> marks{0, duration()};
    for (const PlacedItem& p : result_->placed) {
        marks.push_back(p.start);
        marks.push_back(p.end());
    }
    for (const Cut& c : cuts_) marks.push_back(c.time);
    for (const Drop& d : drops_) marks.push_back(d.time);
    if (player_) marks.push_back(player_->currentTime());

    double best = marks.front();
    for (double m : marks)
        if (std::abs(m - t) < std::abs(best - t)) best = m;
    return std::abs(best - t) <= 10 / pointsPerSecond ? best : t;
}

// --- View

void EditModel::setZoom(double z, double keeping, double at) {
    zoom_ = std::clamp(z, 1.0, 60.0);
    viewStart_ = keeping - (duration() / zoom_) * at;
    clampView();
}

void EditModel::setViewStart(double start) {
    viewStart_ = start;
    clampView();
}

void EditModel::clampView() {
    const double d = duration();
    viewStart_ = std::min(std::max(viewStart_, 0.0), std::max(d - d / zoom_, 0.0));
    notify(Change::view);
}

void EditModel::zoomIn() { setZoom(zoom_ * 1.5, player_ ? player_->currentTime() : 0, 0.5); }

void EditModel::zoomOut() { setZoom(zoom_ / 1.5, player_ ? player_->currentTime() : 0, 0.5); }

void EditModel::revealPlayhead() {
    if (!player_) return;
    const double now = player_->currentTime();
    const double width = duration() / zoom_;
    if (now < viewStart_ || now > viewStart_ + width * 0.95) setViewStart(now - width * 0.5);
}

void EditModel::followPlayhead(double t) {
    if (zoom_ <= 1) return;
    const double width = duration() / zoom_;
    if (t > viewStart_ + width * 0.92 || t < viewStart_) setViewStart(t - width * 0.08);
}

// --- Toast and panel

void EditModel::showToast(std::string text) {
    toast_ = std::move(text);
    // A new toast replaces the old one at once and gets its whole time.
    if (toastTimer_) scheduler_.cancel(toastTimer_);
    toastTimer_ = scheduler_.schedule(toastSeconds, [this] {
        toastTimer_ = 0;
        toast_.reset();
        notify(Change::toast);
    });
    notify(Change::toast);
}

void EditModel::setRightPanel(RightPanel panel) {
    rightPanel_ = panel;
    notify(Change::rightPanel);
}

void EditModel::togglePanel(RightPanel panel) { setRightPanel(rightPanel_ == panel ? RightPanel::none : panel); }

}  // namespace qv
