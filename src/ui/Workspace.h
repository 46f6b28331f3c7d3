// Workspace: the working screen of an open set. The monitors on top, the
// transport bar, then the timeline; on the right the open side panel and the
// rail that opens the panels. It holds the keyboard focus so the
// cutting keys work at once, and runs the 1/30 s clock that moves the play
// head and the time; nothing else repaints on that clock but the monitors'
// pictures. It keeps no edit state of its own. Main thread only.
#pragma once

#include <QTimer>
#include <QWidget>

#include "ui/KeyMap.h"
#include "ui/ScreenModel.h"

class QHBoxLayout;
class QLabel;
class QPushButton;

namespace qv::ui {

class MonitorsView;
class PanelRail;
class TimelineEditor;
class SymbolButton;

// The bar under the monitors: play, time, state, format, quality, key strip
// and the timeline's zoom.
class TransportBar : public QWidget {
    Q_OBJECT
public:
    explicit TransportBar(ScreenModel& model, QWidget* parent = nullptr);
    // Time and state, on the screen's clock.
    void tick();
    QString timeText() const;
    QString stateText() const;
    QString formatText() const;
    QString qualityText() const;
    // The state line as drawn.
    const QLabel* stateLabel() const { return state_; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void refreshMenus();

    ScreenModel& model_;
    SymbolButton* play_ = nullptr;
    QLabel* time_ = nullptr;
    QLabel* state_ = nullptr;
    QPushButton* format_ = nullptr;
    QPushButton* quality_ = nullptr;
    QLabel* keys_ = nullptr;
    bool shownPlaying_ = false;
};

class Workspace : public QWidget {
    Q_OBJECT
public:
    explicit Workspace(ScreenModel& model, QWidget* parent = nullptr);

    // The one entry of the keys; false when the key is not the screen's.
    bool handle(const KeyPress& press);
    static KeyPress pressOf(const QKeyEvent& event);

    MonitorsView* monitors() const { return monitors_; }
    TransportBar* transport() const { return transport_; }
    TimelineEditor* timeline() const { return timeline_; }
    // The toggles of the side panels, always at the right edge.
    PanelRail* panelRail() const { return rail_; }
    // The side panel, between monitors and timeline and the rail, full height.
    void setSidePanel(QWidget* panel);
    // One step of the screen's clock (the timer calls it 30 times a second).
    void tick();

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    ScreenModel& model_;
    MonitorsView* monitors_ = nullptr;
    TransportBar* transport_ = nullptr;
    TimelineEditor* timeline_ = nullptr;
    PanelRail* rail_ = nullptr;
    QHBoxLayout* row_ = nullptr;
    double shownTime_ = -1;
    QTimer clock_;
};

}  // namespace qv::ui
