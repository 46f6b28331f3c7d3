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
#include "ui/QtPorts.h"

namespace qv::ui {

namespace {
QString q(const std::string& s) { return QString::fromStdString(s); }
}  // namespace

ModelObject::ModelObject(AppModel& model) {
    model.setOnChange([this](AppModel::Field) {
        if (queued_) return;
        queued_ = true;
        QTimer::singleShot(0, this, [this] {
            queued_ = false;
            emit changed();
        });
    });
}

MainWindow::MainWindow(AppModel& model, ModelObject& object) : model_(model) {
    setWindowTitle("Quorvel");
    setObjectName("main");
    setMinimumSize(1180, 760);
    setAcceptDrops(true);

    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    layout->setContentsMargins(32, 24, 32, 24);
    layout->setSpacing(12);
    title_ = new QLabel(central);
    title_->setStyleSheet("font-size: 22px; font-weight: 600;");
    status_ = new QLabel(central);
    status_->setWordWrap(true);
    progress_ = new QProgressBar(central);
    progress_->setRange(0, 1000);
    progress_->setTextVisible(false);
    sync_ = new QPushButton("Synchroniser", central);
    sync_->setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
    connect(sync_, &QPushButton::clicked, this, [this] { model_.synchronize(); });
    listTitle_ = new QLabel(central);
    listTitle_->setStyleSheet("font-weight: 600;");
    list_ = new QListWidget(central);
    connect(list_, &QListWidget::itemActivated, this, [this](QListWidgetItem* item) {
        // On the project list, an entry opens its project.
        if (model_.currentProjectId()) return;
        const int row = list_->row(item);
        const auto& projects = model_.projects();
        if (row >= 0 && static_cast<size_t>(row) < projects.size()) model_.openProject(projects[static_cast<size_t>(row)], true);
    });
    toast_ = new QLabel(central);
    toast_->setStyleSheet("background: #222; color: white; padding: 8px 14px; border-radius: 8px;");
    toast_->setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);

    layout->addWidget(title_);
    layout->addWidget(status_);
    layout->addWidget(progress_);
    layout->addWidget(sync_);
    layout->addWidget(listTitle_);
    layout->addWidget(list_, 1);
    layout->addWidget(toast_, 0, Qt::AlignHCenter);
    setCentralWidget(central);

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

    title_->setText(model_.currentProjectId() ? q(model_.projectName()) : QString("Projets"));
    status_->setText(q(model_.status()));
    progress_->setVisible(model_.isWorking());
    progress_->setValue(static_cast<int>(model_.progress() * 1000));
    sync_->setVisible(!model_.isWorking() && !model_.result() && !model_.sources().empty());

    list_->clear();
    if (!model_.currentProjectId()) {
        listTitle_->setText("Projets récents");
        for (const auto& p : model_.projects())
            list_->addItem(q(p.name.value_or(p.folder) + " — " + p.folder));
    } else if (model_.result()) {
        const auto& result = *model_.result();
        listTitle_->setText(q(std::to_string(model_.cuts().size()) + " coupes · " + std::to_string(model_.cameraCount()) +
                              " caméras · " + std::to_string(model_.soundCount()) + " sons · durée " +
                              Format::duration(model_.duration())));
        for (const auto& p : result.placed)
            list_->addItem(q(model_.sources()[static_cast<size_t>(p.sourceIndex)].name + " / " + p.item.fileName() +
                             " : " + Format::timecode(p.start)));
        for (const auto& u : result.unsynced)
            list_->addItem(q("NON CALÉ : " + model_.sources()[static_cast<size_t>(u.sourceIndex)].name + " / " +
                             u.item.fileName()));
    } else {
        listTitle_->setText("Sources");
        for (const auto& s : model_.sources())
            list_->addItem(q(std::string(s.kind == SourceKind::camera ? "Caméra " : "Son ") + s.name + " : " +
                             std::to_string(s.items.size()) + " fichiers, " + Format::duration(s.totalDuration())));
    }
    toast_->setVisible(model_.toast().has_value());
    if (model_.toast()) toast_->setText(q(*model_.toast()));

    if (model_.showNewProject()) {
        // The new-project sheet, in its plainest form: a folder, then a name.
        model_.setShowNewProject(false);
        QString start = model_.prefillFolder() ? q(model_.prefillFolder()->string()) : QString();
        QString dir = QFileDialog::getExistingDirectory(this, "Choisis le dossier du set (avec Cam 1, Cam 2, Son 1…)",
                                                        start, QFileDialog::ShowDirsOnly);
        if (!dir.isEmpty()) {
            QString suggested = model_.prefillName().empty() ? QFileInfo(dir).fileName() : q(model_.prefillName());
            bool ok = false;
            QString name = QInputDialog::getText(this, "Nouveau projet", "Nom du projet", QLineEdit::Normal, suggested, &ok);
            if (ok) model_.newProject(name.toStdString(), dir.toStdString(), true);
        }
        return;
    }
    if (model_.errorMessage()) {
        std::string message = *model_.errorMessage();
        model_.clearError();
        QMessageBox::warning(this, "Quorvel", q(message));
    }
}

void MainWindow::closeEvent(QCloseEvent* event) {
    model_.terminate();
    event->accept();
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
    for (const QUrl& url : event->mimeData()->urls()) {
        QFileInfo info(url.toLocalFile());
        if (info.isDir()) {
            model_.open(info.absoluteFilePath().toStdString(), true);
            return;
        }
    }
}

}  // namespace qv::ui
