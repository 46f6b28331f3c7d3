#include "ui/ContentView.h"

#include <QDialog>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QPainter>
#include <QProgressBar>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>
#include <filesystem>
#include <functional>
#include <tuple>

#include "base/Format.h"
#include "ui/MainWindow.h"
#include "ui/Monitors.h"
#include "ui/Panels.h"
#include "ui/QtPorts.h"
#include "ui/ScreenModel.h"
#include "ui/Theme.h"
#include "ui/Widgets.h"
#include "ui/Workspace.h"

namespace qv::ui {

namespace {

QString q(const std::string& s) { return QString::fromStdString(s); }

// A dashed zone that invites a folder.
class DropZone : public QWidget {
public:
    explicit DropZone(QWidget* parent) : QWidget(parent) { setMinimumHeight(260); }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        QPen pen(Theme::lineStrong(), 1.5, Qt::DashLine);
        pen.setDashPattern({6, 5});
        p.setPen(pen);
        p.setBrush(QColor(0x10, 0x10, 0x0f));
        p.drawRoundedRect(QRectF(rect()).adjusted(1, 1, -1, -1), 12, 12);
    }
};

// Under the editing screen: the autosave note, the export range, the two exports.
class ExportStrip : public QWidget {
public:
    ExportStrip(AppModel& model, QWidget* parent) : QWidget(parent), model_(model) {
        setFixedHeight(52);
        setAutoFillBackground(true);
        QPalette pal = palette();
        pal.setColor(QPalette::Window, Theme::paperSoft());
        setPalette(pal);
        auto* row = new QHBoxLayout(this);
        row->setContentsMargins(14, 8, 14, 8);
        row->setSpacing(10);
        saved_ = symbolLabel("checkmark.circle.fill", 15, Theme::accent(), this);
        unsaved_ = symbolLabel("exclamationmark.triangle.fill", 15, Theme::warning(), this);
        row->addWidget(saved_);
        row->addWidget(unsaved_);
        note_ = new ElidedLabel(QString(), this);
        note_->setFont(Theme::text(11));
        note_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
        row->addWidget(note_, 1);
        range_ = new QuorvelLabel(QString(), this);
        row->addWidget(range_);
        const std::tuple<const char*, const char*, std::function<void()>> marks[] = {
            {"I", "Le montage exporté commencera à la tête de lecture (touche I)", [this] { model_.edit().markIn(); }},
            {"O", "Le montage exporté s'arrêtera à la tête de lecture (touche O)", [this] { model_.edit().markOut(); }},
            {"X", "Revenir au set entier (touche X)", [this] { model_.edit().setMarks(std::nullopt, std::nullopt); }}};
        for (const auto& [text, help, action] : marks) {
            auto* b = new QuorvelButton(QString::fromUtf8(text), QuorvelButton::Kind::outlined, this);
            b->setFocusPolicy(Qt::NoFocus);
            b->setFixedWidth(40);
            b->setToolTip(QString::fromUtf8(help));
            connect(b, &QPushButton::clicked, this, action);
            row->addWidget(b);
            if (*text == 'X') clear_ = b;
        }
        row->addSpacing(12);
        auto* sync = new QuorvelButton(QStringLiteral("Export synchro"), QuorvelButton::Kind::outlined, this);
        sync->setToolTip(QStringLiteral("Toutes les sources empilées et calées, sans tes coupes"));
        connect(sync, &QPushButton::clicked, this, [this] { model_.exportXML(); });
        auto* montage = new QuorvelButton(QStringLiteral("Exporter le montage"), QuorvelButton::Kind::main, this);
        montage->setToolTip(
            QStringLiteral("Premiere, DaVinci ou vidéo finie, sur la plage I → O (Ctrl+E : exporter tout de suite)"));
        connect(montage, &QPushButton::clicked, this, [this] { model_.exportMontage(); });
        for (QuorvelButton* b : {sync, montage}) {
            b->setFocusPolicy(Qt::NoFocus);
            row->addWidget(b);
        }
    }

    void refresh() {
        // The promise of the autosave holds only while saves succeed.
        const bool saving = !model_.saveProblem();
        saved_->setVisible(saving);
        unsaved_->setVisible(!saving);
        note_->setText(saving ? QStringLiteral("Quorvel enregistre tout seul : en rouvrant ce dossier, tu retrouves "
                                               "ton montage et tes réglages.")
                              : QStringLiteral("Tes modifications ne sont pas enregistrées pour l'instant : la raison "
                                               "est en bas, à droite."));
        setTextColor(note_, saving ? Theme::gray3() : Theme::warning());
        note_->setToolTip(note_->text());
        const EditModel& e = model_.edit();
        const bool whole = e.rangeIsWholeSet();
        const TimeRange r = e.exportRange();
        range_->setLabel(whole ? QStringLiteral("Plage exportée · set entier")
                               : QStringLiteral("Plage exportée · %1 → %2")
                                     .arg(q(Format::timecode(r.start)), q(Format::timecode(r.end))));
        clear_->setEnabled(!whole);
    }

private:
    AppModel& model_;
    QLabel* saved_ = nullptr;
    QLabel* unsaved_ = nullptr;
    ElidedLabel* note_ = nullptr;
    QuorvelLabel* range_ = nullptr;
    QuorvelButton* clear_ = nullptr;
};

}  // namespace

// --- StartView

StartView::StartView(AppModel& model, ModelObject& object, QWidget* parent) : QWidget(parent), model_(model) {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(56, 40, 56, 32);
    row->setSpacing(56);

    auto* steps = new QVBoxLayout;
    steps->setSpacing(0);
    steps->addWidget(new QuorvelLogo(false, this));
    steps->addSpacing(10);
    title_ = makeLabel(QString(), Theme::text(13), Theme::gray2(), this);
    steps->addWidget(title_);
    steps->addSpacing(36);
    const std::pair<const char*, const char*> texts[] = {{"01", "Glisse le dossier du set"},
                                                         {"02", "Synchronise toutes les sources"},
                                                         {"03", "Monte en multicam au clavier"}};
    for (const auto& [number, text] : texts) {
        auto* line = new QHBoxLayout;
        line->setSpacing(16);
        auto* n = makeLabel(QString::fromUtf8(number), Theme::numbers(26), Theme::gray4(), this);
        n->setFixedWidth(46);
        stepNumbers_.push_back(n);
        line->addWidget(n);
        line->addWidget(makeLabel(QString::fromUtf8(text), Theme::text(16, Theme::Weight::medium), Theme::gray1(), this), 1);
        steps->addLayout(line);
        steps->addSpacing(10);
        steps->addWidget(hairline(this));
        steps->addSpacing(14);
    }
    steps->addStretch(1);
    row->addLayout(steps, 2);

    auto* right = new QVBoxLayout;
    right->setSpacing(14);
    dropZone_ = new DropZone(this);
    auto* zone = new QVBoxLayout(dropZone_);
    zone->setSpacing(10);
    zone->addStretch(1);
    zone->addWidget(symbolLabel("folder.badge.plus", 52, Theme::accent(), dropZone_));
    auto* invite = makeLabel(QStringLiteral("Glisse ici le dossier du set"), Theme::text(20, Theme::Weight::semibold), Theme::ink(), dropZone_);
    invite->setAlignment(Qt::AlignCenter);
    zone->addWidget(invite);
    auto* layout = makeLabel(QStringLiteral("Un sous-dossier par source : Cam 1 à Cam 8, Son 1 à Son 4"), Theme::text(13),
                             Theme::gray3(), dropZone_);
    layout->setAlignment(Qt::AlignCenter);
    zone->addWidget(layout);
    zone->addSpacing(10);
    auto* choose = new QuorvelButton(QStringLiteral("Choisir un dossier"), QuorvelButton::Kind::outlined, dropZone_);
    connect(choose, &QPushButton::clicked, this, [this] { model_.chooseFolder(); });
    zone->addWidget(choose, 0, Qt::AlignHCenter);
    zone->addStretch(1);
    right->addWidget(dropZone_, 1);

    sourcesBox_ = new QWidget(this);
    auto* box = new QVBoxLayout(sourcesBox_);
    box->setContentsMargins(0, 0, 0, 0);
    box->setSpacing(10);
    box->addWidget(new QuorvelLabel(QStringLiteral("Sources trouvées"), sourcesBox_));
    sourceRows_ = new QVBoxLayout;
    sourceRows_->setSpacing(0);
    box->addLayout(sourceRows_);
    limits_ = makeLabel(QStringLiteral("Quorvel est prévue pour 8 caméras et 4 sons au maximum."), Theme::text(12),
                        Theme::warning(), sourcesBox_);
    box->addWidget(limits_);
    nothingPlaced_ = makeLabel(QStringLiteral("Aucun fichier n'a pu être calé : vérifie que les rushes ont du son."),
                               Theme::text(12, Theme::Weight::medium), Theme::warning(), sourcesBox_);
    box->addWidget(nothingPlaced_);
    box->addSpacing(8);
    sync_ = new QuorvelButton(QStringLiteral("Synchroniser"), QuorvelButton::Kind::main, sourcesBox_);
    connect(sync_, &QPushButton::clicked, this, [this] { model_.synchronize(); });
    box->addWidget(sync_, 0, Qt::AlignLeft);
    // The synchronisation's progress, large, where the eye already is.
    working_ = new QWidget(sourcesBox_);
    auto* work = new QVBoxLayout(working_);
    work->setContentsMargins(0, 8, 0, 0);
    work->setSpacing(10);
    auto* workHead = new QHBoxLayout;
    workHead->addWidget(new QuorvelLabel(QStringLiteral("Synchronisation"), working_), 1);
    progressText_ = makeLabel(QString(), Theme::numbers(13), Theme::accent(), working_);
    workHead->addWidget(progressText_);
    work->addLayout(workHead);
    progress_ = new QProgressBar(working_);
    progress_->setRange(0, 1000);
    progress_->setTextVisible(false);
    progress_->setStyleSheet(QStringLiteral("QProgressBar { max-height: 6px; min-height: 6px; border-radius: 3px; }"
                                            "QProgressBar::chunk { border-radius: 3px; }"));
    work->addWidget(progress_);
    status_ = makeLabel(QString(), Theme::text(12), Theme::gray2(), working_);
    work->addWidget(status_);
    box->addWidget(working_);
    box->addStretch(1);
    right->addWidget(sourcesBox_, 1);
    row->addLayout(right, 3);

    connect(&object, &ModelObject::changed, this, [this] {
        if (isVisible()) refresh();
    });
    refresh();
}

void StartView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    // Changes while hidden were not followed: the project now standing may be another.
    refresh();
}

void StartView::refresh() {
    title_->setText(model_.projectName().empty() ? QString() : q(model_.projectName()));
    const bool done[] = {model_.folder().has_value(), false, false};
    for (size_t i = 0; i < stepNumbers_.size(); ++i) {
        stepNumbers_[i]->setText(done[i] ? Theme::symbol("checkmark.circle.fill") : QStringLiteral("0%1").arg(i + 1));
        stepNumbers_[i]->setFont(done[i] ? Theme::iconFont(28) : Theme::numbers(26));
        setTextColor(stepNumbers_[i], done[i] ? Theme::accent() : i == 1 && model_.isWorking() ? Theme::ink() : Theme::gray4());
    }
    const auto& sources = model_.sources();
    dropZone_->setVisible(sources.empty());
    sourcesBox_->setVisible(!sources.empty());
    // Rows are made again only when the sources change, not at every progress step.
    QStringList shown;
    for (const MediaSource& s : sources) shown << q(s.name) + QString::number(s.items.size());
    if (shown != shownSources_) rebuildRows();
    shownSources_ = shown;
    int cameras = 0, sounds = 0;
    for (const MediaSource& s : sources) (s.kind == SourceKind::camera ? cameras : sounds)++;
    limits_->setVisible(cameras > 8 || sounds > 4);
    nothingPlaced_->setVisible(model_.result() && model_.result()->placed.empty());
    sync_->setVisible(!model_.isWorking() && !model_.result());
    working_->setVisible(model_.isWorking());
    progress_->setValue(int(model_.progress() * 1000));
    progressText_->setText(QStringLiteral("%1 %").arg(int(model_.progress() * 100)));
    status_->setText(q(model_.status()));
}

void StartView::rebuildRows() {
    clearLayout(sourceRows_);
    for (const MediaSource& s : model_.sources()) {
        auto* line = new QWidget(sourcesBox_);
        line->setFixedHeight(40);
        auto* h = new QHBoxLayout(line);
        h->setContentsMargins(4, 0, 4, 0);
        h->setSpacing(12);
        h->addWidget(symbolLabel(s.kind == SourceKind::camera ? "videocam" : "waveform", 18, Theme::gray2(), line));
        h->addWidget(makeLabel(q(s.name), Theme::text(14, Theme::Weight::medium), Theme::ink(), line), 1);
        const int n = int(s.items.size());
        h->addWidget(makeLabel(QStringLiteral("%1 %2").arg(n).arg(n == 1 ? "fichier" : "fichiers"), Theme::numbers(12),
                               Theme::gray2(), line));
        sourceRows_->addWidget(line);
        sourceRows_->addWidget(hairline(sourcesBox_));
    }
}

// --- ContentView

ContentView::Screen ContentView::screenFor(const AppModel& model) {
    if (!model.currentProjectId()) return Screen::home;
    if (!model.player()) return Screen::start;
    return Screen::workspace;
}

ContentView::ContentView(AppModel& model, ModelObject& object, QWidget* parent)
    : QWidget(parent), model_(model), object_(object) {
    setAcceptDrops(true);
    setAutoFillBackground(true);
    screenModel_ = std::make_unique<ScreenModel>(model_, object_);

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    stack_ = new QStackedWidget(this);
    home_ = new HomeView(model_, object_, stack_);
    start_ = new StartView(model_, object_, stack_);
    stack_->addWidget(home_);
    stack_->addWidget(start_);
    column->addWidget(stack_, 1);
    exportStrip_ = new ExportStrip(model_, this);
    column->addWidget(exportStrip_);

    // The status footer.
    footer_ = new QWidget(this);
    footer_->setFixedHeight(30);
    footer_->setAutoFillBackground(true);
    QPalette fp = footer_->palette();
    fp.setColor(QPalette::Window, Theme::paperSoft());
    footer_->setPalette(fp);
    auto* f = new QHBoxLayout(footer_);
    f->setContentsMargins(14, 0, 10, 0);
    f->setSpacing(12);
    progress_ = new QProgressBar(footer_);
    progress_->setRange(0, 1000);
    progress_->setTextVisible(false);
    progress_->setFixedWidth(180);
    f->addWidget(progress_);
    status_ = makeLabel(QString(), Theme::text(11), Theme::gray2(), footer_);
    f->addWidget(status_, 1);
    saveProblem_ = makeLabel(QString(), Theme::text(11, Theme::Weight::semibold), Theme::warning(), footer_);
    saveProblem_->setObjectName("saveProblem");
    f->addWidget(saveProblem_);
    picturesLabel_ = makeLabel(QString(), Theme::text(11), Theme::gray2(), footer_);
    picturesLabel_->setObjectName("picturesWork");
    picturesLabel_->setToolTip(QStringLiteral("Quorvel regarde les images de chaque caméra pour que le montage auto "
                                              "évite les passages noirs, flous, tremblés, masqués ou figés."));
    picturesLabel_->hide();
    f->addWidget(picturesLabel_);
    previewLabel_ = makeLabel(QString(), Theme::text(11), Theme::gray2(), footer_);
    previewLabel_->setObjectName("previewWork");
    f->addWidget(previewLabel_);
    previewBar_ = new QProgressBar(footer_);
    previewBar_->setRange(0, 1000);
    previewBar_->setTextVisible(false);
    previewBar_->setFixedWidth(90);
    f->addWidget(previewBar_);
    previewPoll_ = new QTimer(this);
    previewPoll_->setInterval(500);
    connect(previewPoll_, &QTimer::timeout, this, &ContentView::refreshPreviewWork);
    unsyncedButton_ = new SymbolButton("exclamationmark.triangle.fill", 13, footer_);
    unsyncedButton_->setToolTip(QStringLiteral("Fichiers non synchronisés ou illisibles"));
    connect(unsyncedButton_, &QAbstractButton::clicked, this, &ContentView::toggleUnsynced);
    f->addWidget(unsyncedButton_);
    column->addWidget(footer_);

    // The list of files not placed, over the screen's lower right corner.
    unsyncedPanel_ = new QFrame(this);
    unsyncedPanel_->setObjectName("unsynced");
    unsyncedPanel_->setStyleSheet(QStringLiteral("#unsynced { background: %1; border: 1px solid %2; border-radius: 8px; }")
                                      .arg(Theme::paperSoft().name(), Theme::lineStrong().name()));
    auto* panel = new QVBoxLayout(unsyncedPanel_);
    panel->setContentsMargins(16, 12, 10, 14);
    auto* panelHead = new QHBoxLayout;
    unsyncedTitle_ = new QuorvelLabel(QStringLiteral("Non synchronisés"), unsyncedPanel_);
    panelHead->addWidget(unsyncedTitle_, 1);
    auto* closeList = new SymbolButton("xmark.circle.fill", 15, unsyncedPanel_);
    connect(closeList, &QAbstractButton::clicked, this, &ContentView::toggleUnsynced);
    panelHead->addWidget(closeList);
    panel->addLayout(panelHead);
    unsyncedRows_ = new QVBoxLayout;
    unsyncedRows_->setSpacing(6);
    panel->addLayout(unsyncedRows_);
    unsyncedPanel_->hide();

    dropFrame_ = new QWidget(this);
    dropFrame_->setAttribute(Qt::WA_TransparentForMouseEvents);
    dropFrame_->setStyleSheet(QStringLiteral("border: 2px solid %1; border-radius: 10px; background: rgba(244,196,0,18);")
                                  .arg(Theme::accent().name()));
    dropFrame_->hide();

    toast_ = new QLabel(this);
    toast_->setFont(Theme::text(12, Theme::Weight::medium));
    toast_->setStyleSheet(QStringLiteral("QLabel { color: %1; background: %2; border: 1px solid %3; border-radius: 6px;"
                                         " padding: 8px 14px; }")
                              .arg(Theme::ink().name(), QColor(0x1c, 0x1b, 0x19).name(), Theme::lineStrong().name()));
    toast_->setWordWrap(true);
    toast_->setAttribute(Qt::WA_TransparentForMouseEvents);
    toast_->hide();

    connect(&object_, &ModelObject::changed, this, &ContentView::refresh);
    connect(&object_, &ModelObject::framesChanged, this, [this] {
        if (workspace_) workspace_->monitors()->update();
    });
    refresh();
}

ContentView::~ContentView() {
    // The workspace reads the screen model: it goes first.
    delete workspace_;
    workspace_ = nullptr;
}

void ContentView::refreshPreviewWork() {
    const AppPlayer* player = screen_ == Screen::workspace ? model_.player() : nullptr;
    const AppPlayer::PreviewWork work = player ? player->previewWork() : AppPlayer::PreviewWork{};
    QString line = q(work.line);
    if (work.failedFiles > 0) {
        const QString originals = work.failedFiles == 1 ? QStringLiteral("1 fichier lu sur son original")
                                                        : QStringLiteral("%1 fichiers lus sur leur original")
                                                              .arg(work.failedFiles);
        line = line.isEmpty() ? QStringLiteral("Aperçu : ") + originals : line + QStringLiteral(" · ") + originals;
    }
    if (previewLabel_->text() != line) {
        previewLabel_->setText(line);
        QString tip = QStringLiteral("Copies légères des caméras lourdes, faites autour de la tête de lecture d'abord, "
                                     "pour que tous les angles jouent ensemble. Là où une copie manque encore, "
                                     "l'original est lu.");
        if (line.startsWith(QStringLiteral("Aperçu 4K")))
            tip += QStringLiteral(" Les originaux 4K sont trop lourds pour jouer côte à côte : en attendant leur "
                                  "copie, leurs vignettes ne montrent que leurs images clés.");
        previewLabel_->setToolTip(tip);
    }
    previewLabel_->setVisible(!line.isEmpty());
    previewBar_->setVisible(!work.line.empty());
    previewBar_->setValue(static_cast<int>(work.share * 1000));
    // Polled only while copies are made.
    if (work.line.empty()) previewPoll_->stop();
    else if (!previewPoll_->isActive()) previewPoll_->start();
}

void ContentView::refresh() {
    // The workspace belongs to one player: a new set gets a new one.
    if (workspace_ && model_.player() != workspacePlayer_) {
        stack_->removeWidget(workspace_);
        delete workspace_;
        workspace_ = nullptr;
        workspacePlayer_ = nullptr;
    }
    if (!workspace_ && model_.player()) {
        workspace_ = new Workspace(*screenModel_, stack_);
        workspace_->setSidePanel(new SidePanel(model_, object_));
        // The toast stands on the program monitor, wherever the timeline's height puts it.
        workspace_->monitors()->installEventFilter(this);
        workspacePlayer_ = model_.player();
        stack_->addWidget(workspace_);
    }
    screen_ = screenFor(model_);
    QWidget* shown = screen_ == Screen::home ? static_cast<QWidget*>(home_)
                     : screen_ == Screen::start ? static_cast<QWidget*>(start_)
                                                : static_cast<QWidget*>(workspace_);
    if (stack_->currentWidget() != shown) {
        stack_->setCurrentWidget(shown);
        if (screen_ == Screen::workspace) workspace_->setFocus();
    }

    showToast();
    exportStrip_->setVisible(screen_ == Screen::workspace);
    if (screen_ == Screen::workspace) static_cast<ExportStrip*>(exportStrip_)->refresh();
    progress_->setVisible(model_.isWorking());
    progress_->setValue(int(model_.progress() * 1000));
    status_->setText(q(model_.status()));
    saveProblem_->setVisible(model_.saveProblem().has_value());
    saveProblem_->setText(q(model_.saveProblem().value_or("")));
    // Files set aside, placed or not read at all: the user must be able to
    // see which and why, not only in the log.
    const size_t unsynced = model_.result() ? model_.result()->unsynced.size() : 0;
    const size_t refused = model_.refusals().size();
    QStringList counts;
    if (unsynced > 0)
        counts << QStringLiteral("%1 NON %2").arg(unsynced).arg(unsynced == 1 ? "SYNCHRONISÉ" : "SYNCHRONISÉS");
    if (refused > 0) counts << QStringLiteral("%1 %2").arg(refused).arg(refused == 1 ? "ILLISIBLE" : "ILLISIBLES");
    unsyncedButton_->setVisible(!counts.isEmpty());
    unsyncedButton_->setText(counts.join(QStringLiteral(" · ")));
    unsyncedButton_->setFixedWidth(unsyncedButton_->sizeHint().width());
    if (counts.isEmpty()) unsyncedPanel_->hide();
    refreshPreviewWork();
    const QString pictures = q(model_.picturesLine());
    if (picturesLabel_->text() != pictures) picturesLabel_->setText(pictures);
    picturesLabel_->setVisible(screen_ == Screen::workspace && !pictures.isEmpty());

    if (model_.showNewProject() && !sheetOpen_) QTimer::singleShot(0, this, &ContentView::showNewProjectSheet);
    if (model_.errorMessage() && !alertOpen_) {
        alertOpen_ = true;
        const QString message = q(*model_.errorMessage());
        QTimer::singleShot(0, this, [this, message] {
            model_.clearError();
            QMessageBox::warning(this, QStringLiteral("Erreur"), message);
            alertOpen_ = false;
        });
    }
}

void ContentView::showToast() {
    const auto& text = model_.toast();
    if (!text) {
        toast_->hide();
        return;
    }
    toast_->setText(q(*text));
    placeToast();
    toast_->show();
    toast_->raise();
}

// Over the foot of the program monitor, where the eye already is, and never
// over the tiles' captions; on the other screens low in the middle.
void ContentView::placeToast() {
    QRect zone;
    if (screen_ == Screen::workspace && workspace_) {
        const MonitorsView* monitors = workspace_->monitors();
        const QRect program = monitors->programRect().toAlignedRect();
        zone = QRect(monitors->mapTo(this, program.topLeft()), program.size());
    } else {
        zone = stack_->geometry();
    }
    // One line when it fits, wrapped inside the zone when it does not.
    toast_->setWordWrap(false);
    const int line = toast_->sizeHint().width();
    toast_->setWordWrap(true);
    const int w = std::min(line, std::max(200, zone.width() - 24));
    toast_->resize(w, toast_->heightForWidth(w));
    toast_->move(zone.center().x() - toast_->width() / 2, zone.bottom() - toast_->height() - 18);
}

bool ContentView::eventFilter(QObject* watched, QEvent* event) {
    if (workspace_ && watched == workspace_->monitors() && event->type() == QEvent::Resize && toast_->isVisible())
        placeToast();
    return QWidget::eventFilter(watched, event);
}

void ContentView::toggleUnsynced() {
    if (unsyncedPanel_->isVisible()) {
        unsyncedPanel_->hide();
        return;
    }
    clearLayout(unsyncedRows_);
    auto row = [this](const QString& name, const QString& why) {
        auto* line = new QWidget(unsyncedPanel_);
        auto* h = new QHBoxLayout(line);
        h->setContentsMargins(0, 0, 0, 0);
        h->setSpacing(14);
        h->addWidget(makeLabel(name, Theme::text(12, Theme::Weight::medium), Theme::ink(), line), 1);
        h->addWidget(makeLabel(why, Theme::text(11), Theme::warning(), line));
        unsyncedRows_->addWidget(line);
    };
    const auto& sources = model_.sources();
    const size_t unsynced = model_.result() ? model_.result()->unsynced.size() : 0;
    if (model_.result())
        for (const UnsyncedItem& u : model_.result()->unsynced) {
            // Sister cameras often hold files of the same name: say whose.
            const QString source = u.sourceIndex >= 0 && size_t(u.sourceIndex) < sources.size()
                                       ? q(sources[size_t(u.sourceIndex)].name) + QStringLiteral("/")
                                       : QString();
            row(source + q(u.item.fileName()), u.item.audioChannels == 0 ? QStringLiteral("pas de son dans ce fichier")
                                                                         : QStringLiteral("pas de son commun trouvé"));
        }
    for (const MediaScanner::Refusal& r : model_.refusals()) row(q(r.name), q(r.reason));
    const bool refused = !model_.refusals().empty();
    unsyncedTitle_->setText(unsynced > 0 && refused ? QStringLiteral("Non synchronisés et illisibles")
                            : refused              ? QStringLiteral("Illisibles")
                                                   : QStringLiteral("Non synchronisés"));
    unsyncedPanel_->adjustSize();
    resizeEvent(nullptr);
    unsyncedPanel_->show();
    unsyncedPanel_->raise();
}

void ContentView::showNewProjectSheet() {
    if (sheetOpen_ || !model_.showNewProject()) return;
    sheetOpen_ = true;
    QDialog sheet(this);
    sheet.setWindowTitle(QStringLiteral("Nouveau projet"));
    sheet.setMinimumWidth(520);
    auto* column = new QVBoxLayout(&sheet);
    column->setContentsMargins(28, 24, 28, 22);
    column->setSpacing(10);
    column->addWidget(makeLabel(QStringLiteral("Nouveau projet"), Theme::text(18, Theme::Weight::semibold), Theme::ink(), &sheet));
    column->addSpacing(6);
    column->addWidget(new QuorvelLabel(QStringLiteral("Nom"), &sheet));
    auto* name = new QLineEdit(q(model_.prefillName()), &sheet);
    name->setPlaceholderText(QStringLiteral("Ex. Soirée Zanbar Club — reel drop"));
    column->addWidget(name);
    column->addSpacing(6);
    column->addWidget(new QuorvelLabel(QStringLiteral("Dossier du set"), &sheet));
    std::optional<std::filesystem::path> folder = model_.prefillFolder();
    auto* folderRow = new QHBoxLayout;
    auto* chooseFolder = new QuorvelButton(QStringLiteral("Choisir le dossier…"), QuorvelButton::Kind::outlined, &sheet);
    auto* path = makeLabel(QString(), Theme::text(12), Theme::gray2(), &sheet);
    folderRow->addWidget(chooseFolder);
    folderRow->addWidget(path, 1);
    column->addLayout(folderRow);
    column->addWidget(makeLabel(QStringLiteral("Le dossier du set, avec un sous-dossier par source (Cam 1, Cam 2, Son 1…)"),
                                Theme::text(11), Theme::gray3(), &sheet));
    column->addSpacing(12);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    auto* cancel = new QuorvelButton(QStringLiteral("Annuler"), QuorvelButton::Kind::outlined, &sheet);
    auto* create = new QuorvelButton(QStringLiteral("Créer le projet"), QuorvelButton::Kind::main, &sheet);
    buttons->addWidget(cancel);
    buttons->addWidget(create);
    column->addLayout(buttons);

    auto show = [&] {
        path->setText(folder ? q(folder->string()) : QStringLiteral("aucun dossier choisi"));
        create->setEnabled(folder.has_value());
    };
    show();
    connect(chooseFolder, &QPushButton::clicked, &sheet, [&] {
        const QString dir = QFileDialog::getExistingDirectory(&sheet, QStringLiteral("Choisis le dossier du set"),
                                                              folder ? q(folder->string()) : QString());
        if (!dir.isEmpty()) folder = std::filesystem::path(dir.toStdString());
        show();
    });
    connect(cancel, &QPushButton::clicked, &sheet, &QDialog::reject);
    connect(create, &QPushButton::clicked, &sheet, &QDialog::accept);
    const bool accepted = sheet.exec() == QDialog::Accepted;
    model_.setShowNewProject(false);
    sheetOpen_ = false;
    if (accepted && folder) model_.newProject(name->text().toStdString(), *folder, true);
}

bool ContentView::dropUrls(const QList<QUrl>& urls) {
    if (urls.isEmpty()) return false;
    const QFileInfo info(urls.first().toLocalFile());
    if (!info.isDir()) return false;
    model_.open(info.absoluteFilePath().toStdString(), false);
    return true;
}

void ContentView::dragEnterEvent(QDragEnterEvent* event) {
    if (!event->mimeData()->hasUrls()) return;
    event->acceptProposedAction();
    dropFrame_->setGeometry(rect().adjusted(6, 6, -6, -6));
    dropFrame_->show();
    dropFrame_->raise();
}

void ContentView::dragLeaveEvent(QDragLeaveEvent*) { dropFrame_->hide(); }

void ContentView::dropEvent(QDropEvent* event) {
    dropFrame_->hide();
    if (event->mimeData()->hasUrls() && dropUrls(event->mimeData()->urls()))
        event->acceptProposedAction();
    else
        event->ignore();
}

void ContentView::resizeEvent(QResizeEvent*) {
    if (unsyncedPanel_->isVisible() || unsyncedPanel_->sizeHint().isValid()) {
        const QSize s = unsyncedPanel_->sizeHint().expandedTo(QSize(380, 80));
        unsyncedPanel_->setGeometry(width() - s.width() - 12, height() - footer_->height() - s.height() - 8, s.width(), s.height());
    }
    if (dropFrame_->isVisible()) dropFrame_->setGeometry(rect().adjusted(6, 6, -6, -6));
    if (toast_->isVisible()) placeToast();
}

}  // namespace qv::ui
