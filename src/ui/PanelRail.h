// PanelRail: the narrow strip at the right edge of the workspace with one
// toggle per side panel, in the order of RightPanel. A click opens that panel
// or closes it when it is the open one; the open panel's button is marked in
// the accent. The rail keeps no state: the marks are read back from the
// model's `rightPanel` after every change. Main thread only.
#pragma once

#include <QAbstractButton>
#include <array>

#include "edit/RightPanel.h"

namespace qv::ui {

class ScreenModel;

// What the rail and the menu show for one panel.
struct PanelCommand {
    RightPanel panel;
    const char* symbol;   // a name of the theme's symbol table
    const char* caption;  // under the rail's symbol
    const char* title;    // the menu item and the help text
    const char* keys;     // the menu's shortcut
};
// The eight panels, in the order of RightPanel.
const std::array<PanelCommand, 8>& panelCommands();

// One toggle of the rail: a symbol over a short caption.
class RailButton : public QAbstractButton {
    Q_OBJECT
public:
    RailButton(const PanelCommand& command, QWidget* parent = nullptr);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    const char* symbol_;
};

class PanelRail : public QWidget {
    Q_OBJECT
public:
    explicit PanelRail(ScreenModel& model, QWidget* parent = nullptr);
    // The toggle of a panel; null for `none`.
    QAbstractButton* button(RightPanel panel) const;
    // Marks the open panel's button.
    void refresh();

    static constexpr int width = 72;

signals:
    // A click toggled a panel; the workspace takes the keys back.
    void panelToggled();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    ScreenModel& model_;
    std::array<RailButton*, 8> buttons_{};
};

}  // namespace qv::ui
