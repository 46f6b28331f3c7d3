#include "ui/Workspace.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

#include "base/Format.h"
#include "ui/Monitors.h"
#include "ui/PanelRail.h"
#include "ui/Theme.h"
#include "ui/TimelineEditor.h"
#include "ui/Widgets.h"

namespace qv::ui {

namespace {

const char* formatItem(OutputFormat f) {
    switch (f) {
        case OutputFormat::landscape: return "Horizontal 16:9";
        case OutputFormat::portrait: return "Vertical 9:16 (Reels, TikTok, Shorts)";
        case OutputFormat::fourFive: return "Portrait 4:5 (Instagram)";
        case OutputFormat::square: return "Carré 1:1";
    }
    return "";
}

QPushButton* chip(QWidget* parent) {
    auto* b = new QPushButton(parent);
    b->setFocusPolicy(Qt::NoFocus);
    b->setCursor(Qt::PointingHandCursor);
    b->setFont(Theme::numbers(10));
    b->setStyleSheet(QStringLiteral("QPushButton { color: %1; background: %2; border: 1px solid %3; border-radius: 4px;"
                                    " padding: 6px 11px; letter-spacing: 1px; }"
                                    "QPushButton:hover { border-color: %4; color: %5; }"
                                    "QPushButton::menu-indicator { width: 0; image: none; }")
                         .arg(Theme::gray1().name(), Theme::paper().name(), Theme::lineStrong().name(),
                              Theme::gray4().name(), Theme::ink().name()));
    return b;
}

const QString playingLine = QStringLiteral("EN LECTURE · 1 à 8 = COUPER");
const QString stoppedLine = QStringLiteral("À L'ARRÊT · 1 à 8 = CHANGER LA CAMÉRA DU PLAN");

// The state line asks for the width of its longer text, so the menus beside
// it stay put when playing starts or stops.
class StateLine : public ElidedLabel {
public:
    using ElidedLabel::ElidedLabel;
    QSize sizeHint() const override {
        const QFontMetrics fm(font());
        const int widest = std::max(fm.horizontalAdvance(playingLine), fm.horizontalAdvance(stoppedLine));
        return {widest + 4, ElidedLabel::sizeHint().height()};
    }
};

const QString keyStrip = QStringLiteral(
    "Z zoom · E épaule · B flou objectif · M flou mouvement · V VHS · N aucun · A auto · I / O plage · "
    "C scinder · ⌫ supprimer · Ctrl+Z annuler · ↑↓ coupes · ← → 5 s");

}  // namespace

// --- TransportBar

TransportBar::TransportBar(ScreenModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    setFixedHeight(48);
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(12, 8, 12, 8);
    row->setSpacing(12);

    play_ = new SymbolButton("play.fill", 13, this);
    play_->setBoxed(true);
    play_->setFixedSize(32, 32);
    play_->setToolTip(QStringLiteral("Lecture / pause (espace)"));
    connect(play_, &QAbstractButton::clicked, this, [this] {
        AppPlayer* p = model_.player();
        if (!p) return;
        if (p->isPlaying())
            p->pause();
        else
            p->play();
        tick();
    });
    row->addWidget(play_);

    time_ = makeLabel(QString(), Theme::numbers(13), Theme::ink(), this);
    time_->setFixedWidth(110);
    row->addWidget(time_);

    // Beside an open panel at the window's smallest the line gives way first,
    // down to its first words; the key strip goes before it.
    state_ = new StateLine(this);
    state_->setFont(Theme::text(10, Theme::Weight::semibold, 1.2));
    state_->setMinimumWidth(110);
    row->addWidget(state_);
    row->addStretch(1);

    format_ = chip(this);
    format_->setToolTip(QStringLiteral("Format de l'export : horizontal, vertical 9:16, 4:5 ou carré"));
    auto* formats = new QMenu(format_);
    for (OutputFormat f : {OutputFormat::landscape, OutputFormat::portrait, OutputFormat::fourFive, OutputFormat::square})
        formats->addAction(QString::fromUtf8(formatItem(f)), this, [this, f] { model_.app().setFormat(f); });
    format_->setMenu(formats);
    row->addWidget(format_);

    quality_ = chip(this);
    quality_->setToolTip(QStringLiteral(
        "Qualité de l'aperçu : baisse-la si la lecture saccade. L'export reste en pleine qualité."));
    auto* qualities = new QMenu(quality_);
    for (int division : {1, 2, 4})
        qualities->addAction(division == 1 ? QStringLiteral("Pleine") : QStringLiteral("1/%1").arg(division), this,
                             [this, division] {
                                 model_.app().setPreviewDivision(division);
                             });
    quality_->setMenu(qualities);
    row->addWidget(quality_);

    keys_ = new ElidedLabel(this);
    keys_->setFont(Theme::text(10));
    setTextColor(keys_, Theme::gray3());
    keys_->setText(keyStrip);
    keys_->setMinimumWidth(0);
    keys_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    keys_->setToolTip(keyStrip);
    row->addWidget(keys_, 3);

    auto* zoomOut = new SymbolButton("minus.magnifyingglass", 15, this);
    auto* zoomIn = new SymbolButton("plus.magnifyingglass", 15, this);
    for (SymbolButton* b : {zoomOut, zoomIn}) {
        b->setOpacity(0.8);
        b->setFixedSize(28, 28);
        b->setToolTip(QStringLiteral("Zoom de la timeline (+ et −)"));
        row->addWidget(b);
    }
    connect(zoomOut, &QAbstractButton::clicked, this, [this] { model_.edit().zoomOut(); });
    connect(zoomIn, &QAbstractButton::clicked, this, [this] { model_.edit().zoomIn(); });

    connect(&model_, &ScreenModel::changed, this, &TransportBar::refreshMenus);
    refreshMenus();
    tick();
}

QString TransportBar::timeText() const {
    const AppPlayer* p = model_.player();
    const double t = p ? p->currentTime() : 0;
    return QString::fromStdString(Format::timecode(t) + " / " + Format::timecode(model_.edit().duration()));
}

QString TransportBar::stateText() const {
    const AppPlayer* p = model_.player();
    return p && p->isPlaying() ? playingLine : stoppedLine;
}

QString TransportBar::formatText() const { return QStringLiteral("FORMAT %1").arg(rawValue(model_.format())); }

QString TransportBar::qualityText() const {
    const int division = model_.app().previewDivision();
    return division <= 1 ? QStringLiteral("QUALITÉ PLEINE") : QStringLiteral("QUALITÉ 1/%1").arg(division);
}

void TransportBar::refreshMenus() {
    format_->setText(formatText() + QStringLiteral("  ▾"));
    quality_->setText(qualityText() + QStringLiteral("  ▾"));
}

void TransportBar::tick() {
    const QString t = timeText();
    if (time_->text() != t) time_->setText(t);
    const bool playing = model_.player() && model_.player()->isPlaying();
    if (playing != shownPlaying_ || state_->text().isEmpty()) {
        shownPlaying_ = playing;
        state_->setText(stateText());
        state_->setToolTip(stateText());
        setTextColor(state_, playing ? Theme::accent() : Theme::gray2());
        play_->setSymbol(playing ? "pause.fill" : "play.fill");
    }
}

void TransportBar::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.fillRect(rect(), Theme::paperSoft());
    p.fillRect(QRect(0, 0, width(), 1), Theme::line());
    p.fillRect(QRect(0, height() - 1, width(), 1), Theme::line());
}

// --- Workspace

Workspace::Workspace(ScreenModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_StyledBackground);
    QPalette pal = palette();
    pal.setColor(QPalette::Window, Theme::paper());
    setPalette(pal);
    setAutoFillBackground(true);

    row_ = new QHBoxLayout(this);
    row_->setContentsMargins(0, 0, 0, 0);
    row_->setSpacing(0);
    auto* column = new QVBoxLayout();
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    row_->addLayout(column, 1);
    monitors_ = new MonitorsView(model_, this);
    transport_ = new TransportBar(model_, this);
    timeline_ = new TimelineEditor(model_, this);
    // The timeline takes what its lanes need, the monitors the rest.
    timeline_->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    column->addWidget(monitors_, 1);
    column->addWidget(transport_, 0);
    column->addWidget(timeline_, 0);
    rail_ = new PanelRail(model_, this);
    row_->addWidget(rail_);
    // A click on the rail leaves the cutting keys where they were, here.
    connect(rail_, &PanelRail::panelToggled, this, [this] { setFocus(Qt::OtherFocusReason); });

    clock_.setInterval(1000 / 30);
    connect(&clock_, &QTimer::timeout, this, &Workspace::tick);
    clock_.start();
}

KeyPress Workspace::pressOf(const QKeyEvent& event) {
    KeyPress press{event.key(), event.text(), event.modifiers()};
    // With Ctrl held the platform types a control character; the key's letter is what counts.
    if ((press.characters.isEmpty() || press.characters.at(0).unicode() < 0x20) && event.key() >= Qt::Key_A &&
        event.key() <= Qt::Key_Z)
        press.characters = QString(QChar(u'a' + (event.key() - Qt::Key_A)));
    return press;
}

bool Workspace::handle(const KeyPress& press) {
    AppPlayer* player = model_.player();
    if (!player) return false;
    const bool handled = KeyMap::handle(press, model_.edit(), *player);
    if (handled) tick();
    return handled;
}

void Workspace::keyPressEvent(QKeyEvent* event) {
    if (handle(pressOf(*event)))
        event->accept();
    else
        QWidget::keyPressEvent(event);
}

void Workspace::setSidePanel(QWidget* panel) {
    panel->setParent(this);
    row_->insertWidget(row_->indexOf(rail_), panel);
}

void Workspace::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    setFocus(Qt::OtherFocusReason);
}

void Workspace::tick() {
    timeline_->tick();
    transport_->tick();
    const AppPlayer* player = model_.player();
    const double t = player ? player->currentTime() : 0;
    if (t != shownTime_) {
        shownTime_ = t;
        monitors_->update();
    }
}

void Workspace::resizeEvent(QResizeEvent*) {
    const int wanted = timeline_->sizeHint().height();
    const int most = std::max(timeline_->minimumSizeHint().height(), int(height() * 0.5));
    if (timeline_->height() != std::min(wanted, most)) timeline_->setFixedHeight(std::min(wanted, most));
}

}  // namespace qv::ui
