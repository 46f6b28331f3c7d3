// HomeView: the list of projects, one card per project, newest first, with
// the card's menu. Split from the window's root, which decides when it stands.
#include <QDateTime>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QMenu>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollArea>
#include <QTimer>
#include <QVBoxLayout>
#include <filesystem>
#include <functional>

#include "ui/ContentView.h"
#include "ui/MainWindow.h"
#include "ui/QtPorts.h"
#include "ui/Theme.h"
#include "ui/Widgets.h"

namespace qv::ui {

namespace {

QString q(const std::string& s) { return QString::fromStdString(s); }

bool folderExists(const std::string& folder) {
    std::error_code ec;
    return !folder.empty() && std::filesystem::is_directory(folder, ec);
}

QString projectName(const ProjectFile& p) {
    if (p.name && !p.name->empty()) return q(*p.name);
    return q(std::filesystem::path(p.folder).filename().string());
}

QString savedText(const ProjectFile& p) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(p.savedAt.time_since_epoch()).count();
    return QLocale(QLocale::French).toString(QDateTime::fromSecsSinceEpoch(seconds), QStringLiteral("d MMM yyyy · HH:mm"));
}

// One project on the list.
class ProjectCard : public QWidget {
public:
    ProjectCard(ProjectFile project, std::function<void()> open, std::function<void(QPoint)> menu, QWidget* parent)
        : QWidget(parent), project_(std::move(project)), open_(std::move(open)), menu_(std::move(menu)) {
        setFixedHeight(136);
        setMinimumWidth(260);
        setCursor(Qt::PointingHandCursor);
        setToolTip(QStringLiteral("Clic : ouvrir le projet"));
        setAttribute(Qt::WA_Hover);
    }
    // Asked at each drawing: a disk plugged in or pulled out shows at once.
    bool missing() const { return !folderExists(project_.folder); }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
        const bool hover = underMouse();
        const bool lost = missing();
        p.setPen(QPen(hover ? Theme::gray4() : Theme::line(), 1));
        p.setBrush(hover ? QColor(0x1a, 0x1a, 0x18) : Theme::paperSoft());
        p.drawRoundedRect(r, 8, 8);
        // A strip of the accent on the left edge marks the card.
        p.setPen(Qt::NoPen);
        p.setBrush(lost ? Theme::warning() : hover ? Theme::accent() : Theme::lineStrong());
        p.drawRoundedRect(QRectF(r.left(), r.top() + 14, 3, 30), 1.5, 1.5);

        const double left = 20, width = r.width() - 40 - 24;
        p.setFont(Theme::text(16, Theme::Weight::semibold));
        p.setPen(Theme::ink());
        QFontMetrics fmName(p.font());
        p.drawText(QRectF(left, 14, width, 24), Qt::AlignLeft | Qt::AlignVCenter,
                   fmName.elidedText(projectName(project_), Qt::ElideRight, int(width)));
        p.setFont(Theme::text(11));
        p.setPen(Theme::gray3());
        QFontMetrics fmPath(p.font());
        p.drawText(QRectF(left, 40, r.width() - 40, 18), Qt::AlignLeft | Qt::AlignVCenter,
                   fmPath.elidedText(q(project_.folder), Qt::ElideMiddle, int(r.width() - 40)));
        Theme::drawSymbol(p, QRectF(r.right() - 34, 12, 24, 24), "ellipsis", 18, hover ? Theme::gray1() : Theme::gray4());

        if (lost) {
            Theme::drawSymbol(p, QRectF(left - 2, 66, 18, 30), "exclamationmark.triangle.fill", 15, Theme::warning());
            p.setFont(Theme::text(11, Theme::Weight::medium));
            p.setPen(Theme::warning());
            p.drawText(QRectF(left + 22, 66, r.width() - left - 40, 30), Qt::AlignLeft | Qt::AlignVCenter | Qt::TextWordWrap,
                       QStringLiteral("Dossier du set introuvable : branche le disque, ou relie-le en ouvrant le projet"));
        }
        p.fillRect(QRectF(left, r.bottom() - 36, r.width() - 40, 1), Theme::line());
        const int n = int(project_.cuts.size());
        p.setFont(Theme::numbers(12));
        p.setPen(Theme::gray1());
        p.drawText(QRectF(left, r.bottom() - 32, 120, 26), Qt::AlignLeft | Qt::AlignVCenter,
                   QStringLiteral("%1 %2").arg(n).arg(n == 1 ? QStringLiteral("COUPE") : QStringLiteral("COUPES")));
        p.setFont(Theme::text(11));
        p.setPen(Theme::gray3());
        p.drawText(QRectF(left, r.bottom() - 32, r.width() - 40, 26), Qt::AlignRight | Qt::AlignVCenter, savedText(project_));
    }
    void mouseReleaseEvent(QMouseEvent* e) override {
        if (e->button() != Qt::LeftButton || !rect().contains(e->position().toPoint())) return;
        if (QRectF(width() - 40, 8, 34, 32).contains(e->position()))
            menu_(e->globalPosition().toPoint());
        else
            open_();
    }
    void contextMenuEvent(QContextMenuEvent* e) override { menu_(e->globalPos()); }

private:
    ProjectFile project_;
    std::function<void()> open_;
    std::function<void(QPoint)> menu_;
};

}  // namespace

HomeView::HomeView(AppModel& model, ModelObject& object, QWidget* parent) : QWidget(parent), model_(model) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(48, 32, 48, 24);
    column->setSpacing(0);

    auto* head = new QHBoxLayout;
    head->setSpacing(24);
    auto* titles = new QVBoxLayout;
    titles->setSpacing(8);
    titles->addWidget(new QuorvelLogo(false, this));
    titles->addWidget(makeLabel(QStringLiteral("Un projet par set : ferme-le, rouvre-le plus tard, tout est enregistré tout seul."),
                                Theme::text(13), Theme::gray2(), this));
    head->addLayout(titles, 1);
    auto* create = new QuorvelButton(QStringLiteral("Nouveau projet"), QuorvelButton::Kind::main, this);
    connect(create, &QPushButton::clicked, this, [this] { model_.setShowNewProject(true); });
    head->addWidget(create, 0, Qt::AlignVCenter);
    column->addLayout(head);
    column->addSpacing(28);
    column->addWidget(hairline(this));
    column->addSpacing(24);

    // Without projects.
    empty_ = new QWidget(this);
    auto* emptyColumn = new QVBoxLayout(empty_);
    emptyColumn->addStretch(1);
    emptyColumn->addWidget(symbolLabel("folder.badge.plus", 56, Theme::gray4(), empty_));
    auto* none = makeLabel(QStringLiteral("Aucun projet pour l'instant"), Theme::text(18, Theme::Weight::semibold), Theme::gray1(), empty_);
    none->setAlignment(Qt::AlignCenter);
    emptyColumn->addWidget(none);
    auto* hint = makeLabel(QStringLiteral("Clique sur « Nouveau projet », ou glisse ici le dossier d'un set (Cam 1, Cam 2, Son 1…)."),
                           Theme::text(13), Theme::gray3(), empty_);
    hint->setAlignment(Qt::AlignCenter);
    emptyColumn->addWidget(hint);
    emptyColumn->addStretch(2);
    column->addWidget(empty_, 1);

    // With projects.
    list_ = new QWidget(this);
    auto* listColumn = new QVBoxLayout(list_);
    listColumn->setContentsMargins(0, 0, 0, 0);
    listColumn->setSpacing(16);
    heading_ = new QuorvelLabel(QString(), list_);
    listColumn->addWidget(heading_);
    auto* scroll = new QScrollArea(list_);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    auto* cards = new QWidget(scroll);
    grid_ = new QGridLayout(cards);
    grid_->setContentsMargins(0, 0, 0, 0);
    grid_->setSpacing(16);
    scroll->setWidget(cards);
    listColumn->addWidget(scroll, 1);
    tip_ = makeLabel(QStringLiteral("Astuce : glisse le dossier d'un set n'importe où dans la fenêtre pour rouvrir son dernier projet."),
                     Theme::text(12), Theme::gray3(), list_);
    listColumn->addWidget(tip_);
    column->addWidget(list_, 1);

    connect(&object, &ModelObject::changed, this, [this] {
        if (isVisible()) refresh();
    });
    // A disk comes and goes without telling: the cards look again now and then.
    auto* look = new QTimer(this);
    look->setInterval(2000);
    connect(look, &QTimer::timeout, this, [this] {
        if (!isVisible()) return;
        for (QWidget* w : findChildren<QWidget*>())
            if (dynamic_cast<ProjectCard*>(w)) w->update();
    });
    look->start();
    refresh();
}

int HomeView::missingDisks() const {
    int n = 0;
    // The cards are plain widgets, without a meta-object of their own.
    for (const QWidget* w : findChildren<QWidget*>())
        if (auto* card = dynamic_cast<const ProjectCard*>(w); card && card->missing()) ++n;
    return n;
}

void HomeView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    model_.refreshProjects();
    refresh();
}

void HomeView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    if (std::max(1, (width() - 96 + 16) / (300 + 16)) != columns_) refresh();
}

void HomeView::refresh() {
    const auto& projects = model_.projects();
    empty_->setVisible(projects.empty());
    list_->setVisible(!projects.empty());
    heading_->setLabel(QStringLiteral("Projets récents · %1").arg(projects.size()));
    const int columns = std::max(1, (width() - 96 + 16) / (300 + 16));
    QStringList shown;
    for (const ProjectFile& p : projects)
        shown << q(p.id.value_or("") + p.name.value_or("") + p.folder) + savedText(p) + QString::number(p.cuts.size());
    if (shown == shownProjects_ && columns == columns_) return;
    shownProjects_ = shown;
    clearLayout(grid_);
    columns_ = columns;
    int i = 0;
    for (const ProjectFile& p : projects) {
        auto* card = new ProjectCard(
            p, [this, p] { model_.openProject(p, false); }, [this, p](QPoint at) { cardMenu(p, at); }, this);
        grid_->addWidget(card, i / columns_, i % columns_);
        ++i;
    }
    for (int c = 0; c < columns_; ++c) grid_->setColumnStretch(c, 1);
    grid_->setRowStretch(i / columns_ + 1, 1);
    cards_ = i;
}

void HomeView::cardMenu(const ProjectFile& project, QPoint globalPos) {
    QMenu menu(this);
    menu.addAction(QStringLiteral("Ouvrir"), this, [this, project] { model_.openProject(project, false); });
    menu.addAction(QStringLiteral("Renommer…"), this, [this, project] {
        bool ok = false;
        const QString text = QInputDialog::getText(this, QStringLiteral("Renommer le projet"), QStringLiteral("Nom du projet"),
                                                   QLineEdit::Normal, projectName(project), &ok);
        if (ok && project.id) model_.renameProject(*project.id, text.toStdString());
    });
    menu.addAction(QStringLiteral("Dupliquer (nouvelle version)"), this, [this, project] {
        if (project.id) model_.duplicateProject(*project.id);
    });
    menu.addAction(QStringLiteral("Afficher les rushes dans le gestionnaire de fichiers"), this,
                   [project] { QtFileViewer().showItems({project.folder}); });
    menu.addSeparator();
    menu.addAction(QStringLiteral("Supprimer le projet…"), this, [this, project] {
        QMessageBox box(QMessageBox::Warning, QStringLiteral("Supprimer ce projet ?"),
                        QStringLiteral("Le montage et les réglages de « %1 » seront effacés. Les rushes ne sont pas touchés.")
                            .arg(projectName(project)),
                        QMessageBox::NoButton, this);
        QPushButton* remove = box.addButton(QStringLiteral("Supprimer"), QMessageBox::DestructiveRole);
        box.addButton(QStringLiteral("Annuler"), QMessageBox::RejectRole);
        box.exec();
        if (box.clickedButton() == remove && project.id) model_.deleteProject(*project.id);
    });
    menu.exec(globalPos);
}

}  // namespace qv::ui
