#include "ui/MainWindow.h"

#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QTimer>
#include <QVBoxLayout>

#include "base/Format.h"
#include "diagnostics/Log.h"
#include "ui/ContentView.h"
#include "ui/PanelRail.h"
#include "ui/QtPorts.h"
#include "ui/Workspace.h"

namespace qv::ui {

ModelObject::ModelObject(AppModel& model) {
    model.setOnChange([this](AppModel::Field) {
        if (queued_) return;
        queued_ = true;
        QTimer::singleShot(0, this, [this] {
            queued_ = false;
            emit changed();
        });
    });
    model.setOnFrames([this] { emit framesChanged(); });
}

MainWindow::MainWindow(AppModel& model, ModelObject& object) : model_(model) {
    setWindowTitle("Quorvel");
    setObjectName("main");
    setMinimumSize(1180, 760);

    content_ = new ContentView(model_, object, this);
    setCentralWidget(content_);

    buildMenus();
    connect(&object, &ModelObject::changed, this, &MainWindow::refresh);
    refresh();
}

QAction* MainWindow::addCommand(QMenu* menu, const QString& text, const QKeySequence& keys, std::function<void()> run) {
    QAction* action = menu->addAction(text);
    if (!keys.isEmpty()) action->setShortcut(keys);
    connect(action, &QAction::triggered, this, [run = std::move(run)] { run(); });
    return action;
}

void MainWindow::buildMenus() {
    QMenu* file = menuBar()->addMenu("Fichier");
    addCommand(file, "Nouveau projet…", QKeySequence("Ctrl+N"), [this] {
        if (model_.currentProjectId()) model_.closeProject();
        model_.setShowNewProject(true);
    });
    addCommand(file, "Ouvrir le dossier d'un set…", QKeySequence("Ctrl+O"), [this] { model_.chooseFolder(); });
    close_ = addCommand(file, "Fermer le projet", QKeySequence("Ctrl+Shift+W"), [this] { model_.closeProject(); });
    file->addSeparator();
    export_ = addCommand(file, "Exporter le montage", QKeySequence("Ctrl+E"), [this] { model_.exportMontage(); });
    reset_ = addCommand(file, "Repartir de zéro sur ce projet…", {}, [this] { model_.resetProject(); });
    file->addSeparator();
    addCommand(file, "Paramètres…", QKeySequence("Ctrl+,"), [this] { model_.setRightPanel(RightPanel::settings); });
    file->addSeparator();
    addCommand(file, "Quitter", QKeySequence::Quit, [this] { close(); });

    QMenu* edit = menuBar()->addMenu("Édition");
    addCommand(edit, "Annuler la dernière modif du montage", QKeySequence("Ctrl+Z"), [this] { model_.undo(); });

    // The side panels, as on the workspace's rail; checked on the open one.
    QMenu* panels = menuBar()->addMenu("Panneaux");
    const auto& commands = panelCommands();
    for (size_t i = 0; i < commands.size(); ++i) {
        const PanelCommand& c = commands[i];
        if (c.panel == RightPanel::color || c.panel == RightPanel::exportPanel) panels->addSeparator();
        panels_[i] = addCommand(panels, QString::fromUtf8(c.title), QKeySequence(QString::fromUtf8(c.keys)),
                                [this, panel = c.panel] {
                                    model_.togglePanel(panel);
                                    refresh();
                                    // The menu gives the focus back where it was: the keys belong to the workspace.
                                    if (Workspace* w = content_->workspace()) w->setFocus(Qt::OtherFocusReason);
                                });
        panels_[i]->setCheckable(true);
    }

    QMenu* help = menuBar()->addMenu("Aide");
    addCommand(help, "Afficher le journal Quorvel", {}, [this] {
        Log::write("Journal ouvert par l'utilisateur");
        Log::flush();
        QtFileViewer().open(Log::file());
    });
}

void MainWindow::refresh() {
    close_->setEnabled(model_.currentProjectId().has_value());
    export_->setEnabled(model_.player() != nullptr);
    reset_->setEnabled(model_.player() != nullptr);
    const RightPanel open = model_.rightPanel();
    for (size_t i = 0; i < panels_.size(); ++i) {
        panels_[i]->setEnabled(model_.player() != nullptr);
        panels_[i]->setChecked(panelCommands()[i].panel == open);
    }
}

QAction* MainWindow::panelAction(RightPanel panel) const {
    for (size_t i = 0; i < panels_.size(); ++i)
        if (panelCommands()[i].panel == panel) return panels_[i];
    return nullptr;
}

void MainWindow::closeEvent(QCloseEvent* event) {
    // A save that failed is not given up without the user's word.
    if (!model_.mayClose()) {
        event->ignore();
        return;
    }
    model_.terminate();
    event->accept();
}

}  // namespace qv::ui
