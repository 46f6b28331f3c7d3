// ContentView: the window's root. It decides which screen stands (the
// project list, the start screen of a set, or the workspace), takes folders
// dropped anywhere on the window, shows the status footer with the list of
// files that could not be placed, the new-project sheet and the error alert.
// The screens read the application model and call its operations; they hold
// no state of the project. Main thread only.
#pragma once

#include <QStringList>
#include <QWidget>
#include <memory>

#include "app/AppModel.h"

class QLabel;
class QProgressBar;
class QStackedWidget;
class QTimer;
class QVBoxLayout;
class QGridLayout;

namespace qv::ui {

class ModelObject;
class ScreenModel;
class Workspace;
class QuorvelButton;
class QuorvelLabel;
class SymbolButton;

// The list of projects: one card per project, newest first.
class HomeView : public QWidget {
    Q_OBJECT
public:
    HomeView(AppModel& model, ModelObject& object, QWidget* parent = nullptr);
    void refresh();
    int cardCount() const { return cards_; }
    // Cards that show their set folder as not found, at this moment.
    int missingDisks() const;

protected:
    void showEvent(QShowEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void cardMenu(const ProjectFile& project, QPoint globalPos);

    AppModel& model_;
    QuorvelLabel* heading_ = nullptr;
    QWidget* empty_ = nullptr;
    QWidget* list_ = nullptr;
    QGridLayout* grid_ = nullptr;
    QLabel* tip_ = nullptr;
    QStringList shownProjects_;
    int cards_ = 0;
    int columns_ = 0;
};

// A set on its way to its first synchronisation: three steps, the drop zone
// or the sources found.
class StartView : public QWidget {
    Q_OBJECT
public:
    StartView(AppModel& model, ModelObject& object, QWidget* parent = nullptr);
    void refresh();

protected:
    void showEvent(QShowEvent* event) override;

private:
    AppModel& model_;
    std::vector<QLabel*> stepNumbers_;
    QLabel* title_ = nullptr;
    QWidget* dropZone_ = nullptr;
    QWidget* sourcesBox_ = nullptr;
    QVBoxLayout* sourceRows_ = nullptr;
    QLabel* limits_ = nullptr;
    QLabel* nothingPlaced_ = nullptr;
    QuorvelButton* sync_ = nullptr;
    QWidget* working_ = nullptr;
    QProgressBar* progress_ = nullptr;
    QLabel* status_ = nullptr;
    QLabel* progressText_ = nullptr;
    QStringList shownSources_;
    void rebuildRows();
};

class ContentView : public QWidget {
    Q_OBJECT
public:
    // Which screen stands, by the state of the model.
    enum class Screen { home, start, workspace };
    static Screen screenFor(const AppModel& model);

    ContentView(AppModel& model, ModelObject& object, QWidget* parent = nullptr);
    ~ContentView() override;

    Screen screen() const { return screen_; }
    Workspace* workspace() const { return workspace_; }
    HomeView* home() const { return home_; }
    ScreenModel& screenModel() const { return *screenModel_; }
    // The model's toast, over whichever screen stands: over the foot of the
    // program monitor in the workspace, low in the middle elsewhere.
    QLabel* toast() const { return toast_; }
    // A drop of file URLs: the first one counts, and only a folder opens.
    bool dropUrls(const QList<QUrl>& urls);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void refresh();
    void showToast();
    void placeToast();
    void showNewProjectSheet();
    void toggleUnsynced();
    void refreshPreviewWork();

    AppModel& model_;
    ModelObject& object_;
    std::unique_ptr<ScreenModel> screenModel_;
    QStackedWidget* stack_ = nullptr;
    HomeView* home_ = nullptr;
    StartView* start_ = nullptr;
    Workspace* workspace_ = nullptr;
    const AppPlayer* workspacePlayer_ = nullptr;
    Screen screen_ = Screen::home;

    QWidget* exportStrip_ = nullptr;
    QWidget* footer_ = nullptr;
    QProgressBar* progress_ = nullptr;
    QLabel* status_ = nullptr;
    // "Sauvegarde impossible : …" or the read-only note, until all is well.
    QLabel* saveProblem_ = nullptr;
    // The preview copies under way, at the footer's right; polled, since
    // they are made on threads that never call the interface.
    QProgressBar* previewBar_ = nullptr;
    QLabel* previewLabel_ = nullptr;
    QLabel* picturesLabel_ = nullptr;  // "Analyse des images : 40 %" while it runs
    QTimer* previewPoll_ = nullptr;
    SymbolButton* unsyncedButton_ = nullptr;
    QWidget* unsyncedPanel_ = nullptr;
    QVBoxLayout* unsyncedRows_ = nullptr;
    QuorvelLabel* unsyncedTitle_ = nullptr;
    QWidget* dropFrame_ = nullptr;
    QLabel* toast_ = nullptr;
    bool sheetOpen_ = false;
    bool alertOpen_ = false;
};

}  // namespace qv::ui
