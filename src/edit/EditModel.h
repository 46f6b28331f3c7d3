// EditModel: the live edit of one set and its whole editing vocabulary:
// camera keys while playing or stopped, split, delete, drag a cut, plan
// effects, undo, the export range, jumps between cuts and drops, and the
// timeline's view. The application model owns one and grows around it.
//
// Plain C++, main thread only. It asks the player through PlayerControl and
// delays through Scheduler; both are given from outside. Every change is
// reported through the change callback; a change of `cuts` is reported on
// every assignment (the owner hangs the sound follow and the look rebuild
// on it). No operation fails: a refused condition leaves all state as it
// was, and what the user must hear is a toast (French, 2.5 s).
//
//   liveCut(B, t)        | A      |  A'  ...   ->  | A     |B ...
//                                  ^ a cut within 20 ms of t is replaced
//   addEdit(t)           | A         |       ->  | A  |A      |
//   deleteSegmentCut()   | A  |B  |C |       ->  | A      |C |
//   moveCut(i, t)        | A  |B   |C|       ->  | A    |B |C|  (never past a neighbour)
//
// The files the user placed by hand belong to the edit too: they are undone
// with the cuts, one step each.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "edit/Cut.h"
#include "edit/HandPlacement.h"
#include "edit/PlayerControl.h"
#include "edit/RightPanel.h"
#include "edit/Scheduler.h"
#include "edit/TimeRange.h"
#include "effects/MotionFX.h"
#include "music/DropDetector.h"
#include "sync/SyncResult.h"

namespace qv {

enum class LookKind { lens, shutter, vhs };

class EditModel {
public:
    // What changed, for observers.
    enum class Change { cuts, selection, range, toast, view, rightPanel, context, hand };

    // What one undo step brings back. With a million cuts a step cannot
    // hold them all: once the next step begins, it keeps only the stretch
    // of cuts that differs from the state the next step goes back to.
    //   state before:  | front | middle | back |
    //   state after:   | front |  ...   | back |   (front, back shared)
    struct Step {
        std::optional<std::vector<Cut>> whole;  // the cuts as they were, until the next step begins
        bool compact = false;                   // then: `front` and `back` cuts kept from the state after
        size_t front = 0, back = 0;
        std::vector<Cut> middle;
        HandPlacements hand;
    };

    static constexpr size_t historyLimit = 300;
    static constexpr double toastSeconds = 2.5;

    // `scheduler` must outlive the model.
    explicit EditModel(Scheduler& scheduler);
    ~EditModel();
    EditModel(const EditModel&) = delete;
    EditModel& operator=(const EditModel&) = delete;

    void setOnChange(std::function<void(Change)> onChange) { onChange_ = std::move(onChange); }

    // --- What the edit works against, set by the owner.
    void setPlayer(std::shared_ptr<PlayerControl> player);
    void setResult(std::optional<SyncResult> result);
    void setDrops(std::vector<Drop> drops);                   // ascending by time
    void setCameraIds(std::vector<Uuid> ids);                  // source id per camera number
    void setEffects(EffectSettings effects) { effects_ = std::move(effects); }
    void setSnapEnabled(bool on) { snapEnabled_ = on; }
    void setDropMargins(double pre, double post) { dropPre_ = pre, dropPost_ = post; }

    PlayerControl* player() const { return player_.get(); }
    const std::optional<SyncResult>& result() const { return result_; }
    const std::vector<Drop>& drops() const { return drops_; }
    const EffectSettings& effects() const { return effects_; }
    // Largest end of all placed files; 0 without a result.
    double duration() const;

    // --- State.
    const std::vector<Cut>& cuts() const { return cuts_; }
    void setCuts(std::vector<Cut> cuts);  // sorted by time on the way in
    const std::deque<Step>& history() const { return history_; }
    // The files placed by hand (key: HandPlacement::keyOf).
    const HandPlacements& hand() const { return hand_; }
    void setHand(HandPlacements hand);  // as read from a project: no undo step
    // Each records one undo step; a file already there, or not placed by
    // hand, changes nothing.
    void placeByHand(const std::string& key, double start);
    void revertToAutomatic(const std::string& key);
    std::optional<int> selectedSegment() const { return selected_; }
    void select(std::optional<int> plan);
    std::optional<double> inPoint() const { return inPoint_; }
    std::optional<double> outPoint() const { return outPoint_; }
    void setMarks(std::optional<double> in, std::optional<double> out);  // as read from a project
    // Forgets cuts, history, selection and marks, as when a set is unloaded.
    void clearEdit();

    // --- Questions; none records history. Times are found by halving, so
    // they cost the same with ten cuts or a million.
    // The plans, built once per change of the cuts or of the set's length.
    const std::vector<Segment>& segments() const;
    // Plan `index` alone, without building the others; nothing out of range.
    std::optional<Segment> segment(int index) const;
    int segmentCount() const { return static_cast<int>(cuts_.size()) + (implicitFirstPlan() ? 1 : 0); }
    int activeCamera(double t) const;
    std::optional<int> segmentIndex(double t) const;
    bool hasFeed(int camera, double t) const;
    std::string cameraName(int camera) const;  // "Cette caméra" when unknown
    ResolvedEffect resolvedEffect(const Segment& plan) const;

    // --- Editing. Each records one undo step before it changes `cuts`.
    void pressCamera(int camera);  // keys 1 to 8
    void liveCut(int camera, double t);
    void switchCamera(int plan, int camera);
    void addEdit(double t);
    void deleteSegmentCut();
    // Does not record: a drag records once when it begins, then moves.
    void moveCut(int index, double t);
    void setEffect(PlanEffect effect);
    void cycleZoom();
    void toggleLook(LookKind kind);
    void record();
    void undo();

    // --- Moving around and the export range.
    void jumpToCut(bool forward);
    void jumpToDrop(bool forward);
    void focusDrop(const Drop& drop);
    void setRange(double start, double end);
    TimeRange exportRange() const;
    // Whether the export range runs from the set's start to its end, marks
    // or not (crossed marks, or marks on the ends, give the whole set too).
    bool rangeIsWholeSet() const;
    void markIn();
    void markOut();
    // Snaps a dragged mark to the nearest landmark within 10 points on screen.
    double snapTime(double t, double pointsPerSecond) const;

    // --- The timeline's view: `zoom` 1 shows the whole set, the view is
    // duration / zoom seconds wide from `viewStart`.
    double zoom() const { return zoom_; }
    double viewStart() const { return viewStart_; }
    void setZoom(double z, double keeping, double at);
    void setViewStart(double start);
    void clampView();
    void zoomIn();
    void zoomOut();
    void revealPlayhead();
    void followPlayhead(double t);

    // --- Short answers to the user and the side panel.
    const std::optional<std::string>& toast() const { return toast_; }
    void showToast(std::string text);
    RightPanel rightPanel() const { return rightPanel_; }
    void setRightPanel(RightPanel panel);
    void togglePanel(RightPanel panel);

private:
    // Segment::build's rule: no cut at the very start means a plan on camera 0 stands first.
    bool implicitFirstPlan() const;
    // The number of cuts at or before `t` (within the start tolerance).
    size_t cutsUpTo(double t) const;
    // The last step, kept whole while it is open, told against the cuts now.
    void closeLastStep();
    std::vector<Cut> restored(const Step& step) const;
    void assignCuts(std::vector<Cut> cuts);
    void replaceCuts(std::vector<Cut> cuts);  // no bookkeeping of the history
    void assignHand(HandPlacements hand);
    void notify(Change change);
    // The plan that keys and menus act on: the selected one, else the one
    // under the playhead; nothing without a player or when stale.
    std::optional<Segment> targetPlan() const;
    // Writes a plan's effect and looks on its cut, or on a new cut at 0 for
    // the implicit first plan.
    void writePlan(const Segment& plan, PlanEffect effect, const PlanLooks& looks);

    Scheduler& scheduler_;
    std::function<void(Change)> onChange_;

    std::shared_ptr<PlayerControl> player_;
    std::optional<SyncResult> result_;
    std::vector<Drop> drops_;
    std::vector<Uuid> cameraIds_;
    EffectSettings effects_;
    bool snapEnabled_ = true;
    double dropPre_ = 15, dropPost_ = 30;

    std::vector<Cut> cuts_;
    mutable std::optional<std::vector<Segment>> plans_;  // segments(), until the cuts or the length change
    std::deque<Step> history_;  // oldest first
    bool stepOpen_ = false;     // the last step has not seen its first change of cuts yet
    HandPlacements hand_;
    std::optional<int> selected_;
    std::optional<double> inPoint_, outPoint_;
    double zoom_ = 1, viewStart_ = 0;
    std::optional<std::string> toast_;
    Scheduler::TimerId toastTimer_ = 0;
    RightPanel rightPanel_ = RightPanel::none;
};

}  // namespace qv
