// TimelineEditor: the lower half of the editing screen. A ruler with the
// drops and the export range, the MONTAGE lane of plans with draggable cuts,
// one lane per camera and per sound recorder with a header each, and a
// bottom bar with the overview of the set and the zoom slider.
//
// Everything but the play head is drawn into a cached picture that is only
// redrawn when the edit, the view, the mix or the size change; the play head
// is a child widget moved 30 times a second, so playing repaints a sliver
// from the cache and never the lanes. Every change goes through the models;
// the widget only keeps the origin of a running drag. Main thread only.
#pragma once

#include <QPixmap>
#include <QWidget>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "edit/AudioSettings.h"
#include "edit/TimeRange.h"
#include "ui/ScreenModel.h"

class QMenu;
class QSlider;

namespace qv::ui {

class SymbolButton;

namespace Timeline {

constexpr int headerWidth = 210;
constexpr int rulerHeight = 30;
constexpr int montageHeight = 40;
constexpr int cameraHeight = 26;
constexpr int audioHeight = 38;
constexpr int bottomHeight = 30;

// Seconds between ruler ticks: the first step at least 70 points wide.
double rulerStep(double pointsPerSecond);
// The zoom slider's log scale: position ln(zoom) / ln(60), and back.
double sliderPosition(double zoom);
double zoomAt(double position);
// The range of a lane's level knob, in decibels.
constexpr double levelMin = AudioSettings::trackLevelRange.min, levelMax = AudioSettings::trackLevelRange.max;
// Rounds a level to half decibels.
double roundLevel(double db);

}  // namespace Timeline

class TimelineEditor : public QWidget {
    Q_OBJECT
public:
    explicit TimelineEditor(ScreenModel& model, QWidget* parent = nullptr);
    ~TimelineEditor() override;

    double pointsPerSecond() const;
    double xOf(double t) const;        // widget x of a time
    double timeAt(double x) const;     // time under a widget x
    int laneLeft() const { return Timeline::headerWidth + 1; }
    double laneWidth() const;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

    // Called by the screen's 1/30 s clock: moves the play head, follows it
    // while playing, and redraws headers only when the camera on screen changes.
    void tick();
    // How many times the lanes were drawn; the play head never adds to it.
    int laneRenders() const { return laneRenders_; }

    // Geometry for tests and the screen: the rectangle of a lane row.
    QRect montageRect() const;
    QRect rulerRect() const;
    // The mute button of a source's lane, where the lanes' scroll puts it.
    QRectF muteRectOf(int source) const;

    // A file the user may place by hand: placed in doubt (AMBIGU) or by
    // hand on its lane, or waiting in its lane's strip "À placer".
    struct HandFile {
        std::string key;          // among the hand placements
        int source = 0;
        QString name;
        double duration = 0;
        std::optional<double> start;  // on the lane; none while it waits
        std::vector<SyncCandidate> candidates;
        QRectF rect;                  // its bar, or its chip in the strip
    };
    // Every such file where the lanes' scroll and the view put it.
    std::vector<HandFile> handFiles() const;
    // The menu of a file: "Positions possibles" and the way back to the
    // automatic placement. Shown by a right click on the file.
    std::unique_ptr<QMenu> handMenu(const HandFile& file);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    bool event(QEvent* event) override;

private:
    struct Track {
        int source = 0;
        bool audio = false;
        int number = 0;  // camera or recorder number from 1
        int top = 0, height = 0;
    };
    enum class DragKind { none, seek, cut, rangeIn, rangeOut, thumb, level, hand };
    struct Hit {
        enum Kind { none, seek, drop, rangeIn, rangeOut, cut, plan, mute, level, overview, thumb, header } kind = none;
        int index = -1;  // drop, cut, plan or track index
    };

    void layoutTracks();
    // The camera and sound lanes scroll under the pinned ruler and MONTAGE
    // lane when they are taller than the room the workspace gives them.
    int trackBandTop() const;
    int trackBandHeight() const;
    int maxLaneScroll() const;
    void setLaneScroll(int pixels);
    void invalidate();
    void syncSlider();
    QRectF levelRect(const Track& track) const;
    QRectF muteRect(const Track& track) const;
    QRectF overviewRect() const;
    QRectF thumbRect() const;
    // Drawing (TimelinePainting.cpp).
    void render(QPainter& p);
    void paintRuler(QPainter& p);
    void paintMontage(QPainter& p, const std::vector<Segment>& plans);
    void paintTrack(QPainter& p, const Track& track, int activeCamera);
    void paintHeader(QPainter& p, const Track& track, int activeCamera);
    void paintBottom(QPainter& p);
    // The pointer (TimelineMouse.cpp).
    Hit hitTest(QPointF pos) const;
    QString toolTipAt(QPointF pos) const;
    QString pictureTipAt(QPointF pos) const;
    void planMenu(int plan, QPoint globalPos);
    // A camera row's menu: its picture offset against its sound.
    void offsetMenu(int camera, QPoint globalPos);
    void setLevelFromX(const Track& track, double x);
    // Placing by hand (TimelineHand.cpp).
    const Track* trackOf(int source) const;
    std::optional<HandFile> handFileAt(QPointF pos) const;
    void paintWaiting(QPainter& p, const Track& track);
    void paintHandDrag(QPainter& p);
    bool pressHand(QPointF pos);
    void moveHand(QPointF pos);
    void releaseHand();

    ScreenModel& model_;
    std::vector<Track> tracks_;
    int laneScroll_ = 0;
    QPixmap cache_;
    bool dirty_ = true;
    int laneRenders_ = 0;
    int shownCamera_ = -1;
    QWidget* playhead_ = nullptr;
    QSlider* slider_ = nullptr;
    SymbolButton* zoomOut_ = nullptr;
    SymbolButton* zoomIn_ = nullptr;
    bool settingSlider_ = false;

    DragKind drag_ = DragKind::none;
    QPointF pressPos_;
    int dragIndex_ = -1;
    std::optional<double> dragOrigin_;       // the cut's time
    std::optional<double> thumbOrigin_;      // the view's start
    std::optional<TimeRange> rangeOrigin_;   // the export range
    // A file dragged along its lane: where it was taken, and where it would
    // land now (none until the pointer has moved).
    struct HandDrag {
        HandFile file;
        double grab = 0;  // seconds from the file's start to the pointer
        std::optional<double> start;
    };
    std::optional<HandDrag> handDrag_;
};

}  // namespace qv::ui
