// MainWindow: the one window "Quorvel", its menus and shortcuts, and a plain
// view of the model's state (status, progress, projects, sources, files that
// could not be placed) until the real screens take its place.
#pragma once

#include <QAction>
#include <QLabel>
#include <QListWidget>
#include <QMainWindow>
#include <QProgressBar>
#include <QPushButton>

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

private:
    bool queued_ = false;
};

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    MainWindow(AppModel& model, ModelObject& object);

protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void buildMenus();
    void refresh();
    QAction* addCommand(QMenu* menu, const QString& text, const QKeySequence& keys, std::function<void()> run);

    AppModel& model_;
    QLabel* title_ = nullptr;
    QLabel* status_ = nullptr;
    QProgressBar* progress_ = nullptr;
    QLabel* listTitle_ = nullptr;
    QListWidget* list_ = nullptr;
    QLabel* toast_ = nullptr;
    QPushButton* sync_ = nullptr;
    QAction* close_ = nullptr;
    QAction* export_ = nullptr;
    QAction* reset_ = nullptr;
};

}  // namespace qv::ui
