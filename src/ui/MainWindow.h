// MainWindow: the one window "Quorvel" with its menus and shortcuts around
// the screens of ContentView.
#pragma once

#include <QAction>
#include <QLabel>
#include <QListWidget>
#include <QMainWindow>
#include <QProgressBar>
#include <QPushButton>
#include <array>

#include "app/AppModel.h"

namespace qv::ui {

// Forwards the model's change signal to Qt; many changes in one turn of the
// event loop become one `changed`, which the widgets answer by pulling state.
class ModelObject : public QObject {
    Q_OBJECT
public:
    explicit ModelObject(AppModel& model);

signals:
    void changed();
    // The player's pictures may have changed: repaint the monitors.
    void framesChanged();

private:
    bool queued_ = false;
};

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    MainWindow(AppModel& model, ModelObject& object);
    class ContentView* content() const { return content_; }
    // The item of the panel menu that toggles a panel; null for `none`.
    QAction* panelAction(RightPanel panel) const;

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void buildMenus();
    void refresh();
    QAction* addCommand(QMenu* menu, const QString& text, const QKeySequence& keys, std::function<void()> run);

    AppModel& model_;
    class ContentView* content_ = nullptr;
    QAction* close_ = nullptr;
    QAction* export_ = nullptr;
    QAction* reset_ = nullptr;
    std::array<QAction*, 8> panels_{};
};

}  // namespace qv::ui
