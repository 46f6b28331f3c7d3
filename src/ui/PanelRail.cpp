#include "ui/PanelRail.h"

#include <QPainter>
#include <QVBoxLayout>

#include "ui/ScreenModel.h"
#include "ui/Theme.h"

namespace qv::ui {

const std::array<PanelCommand, 8>& panelCommands() {
    // Function keys: the workspace's own keys take every modifier with the
    // digits and letters, so only keys without text are free for the menu.
    static const std::array<PanelCommand, 8> commands{{
        {RightPanel::sound, "waveform", "Son", "Son du montage", "F1"},
        {RightPanel::effects, "camera.aperture", "Effets", "Effets automatiques", "F2"},
        {RightPanel::drops, "bolt.fill", "Drops", "Drops repérés", "F3"},
        {RightPanel::automatic, "wand.and.stars", "Montage auto", "Montage automatique", "F4"},
        {RightPanel::color, "paintpalette.fill", "Étalonnage", "Étalonnage", "F5"},
        {RightPanel::crop, "crop", "Recadrage", "Recadrage", "F6"},
        {RightPanel::exportPanel, "square.and.arrow.up", "Export", "Export", "F7"},
        {RightPanel::settings, "gearshape.fill", "Paramètres", "Paramètres", "F8"},
    }};
    return commands;
}

namespace {

constexpr double symbolSize = 20;

QFont captionFont() { return Theme::text(9, Theme::Weight::medium); }

}  // namespace

// --- RailButton

RailButton::RailButton(const PanelCommand& command, QWidget* parent)
    : QAbstractButton(parent), symbol_(command.symbol) {
    setText(QString::fromUtf8(command.caption));
    setToolTip(QStringLiteral("%1 (%2)").arg(QString::fromUtf8(command.title), QString::fromUtf8(command.keys)));
    setCheckable(true);
    // The keys stay with the workspace whatever is clicked here.
    setFocusPolicy(Qt::NoFocus);
    setCursor(Qt::PointingHandCursor);
    setAttribute(Qt::WA_Hover);  // repaints on entering and leaving
}

QSize RailButton::sizeHint() const {
    return {PanelRail::width - 8, int(symbolSize) + QFontMetrics(captionFont()).height() + 20};
}

void RailButton::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    const bool on = isChecked(), hover = underMouse();
    if (on || hover) {
        p.setPen(Qt::NoPen);
        p.setBrush(on ? Theme::withAlpha(Theme::accent(), 0.12) : Theme::line());
        p.drawRoundedRect(r, 6, 6);
    }
    if (isDown()) p.setOpacity(0.7);
    const QColor symbolColor = on ? Theme::accent() : hover ? Theme::ink() : Theme::gray2();
    const QColor captionColor = on ? Theme::accent() : hover ? Theme::gray1() : Theme::gray3();
    const QFontMetrics fm(captionFont());
    const double top = (height() - symbolSize - 4 - fm.height()) / 2;
    Theme::drawSymbol(p, QRectF(0, top, width(), symbolSize), symbol_, symbolSize, symbolColor);
    p.setFont(captionFont());
    p.setPen(captionColor);
    p.drawText(QRectF(1, top + symbolSize + 4, width() - 2, fm.height()), Qt::AlignCenter,
               fm.elidedText(text(), Qt::ElideRight, width() - 2));
}

// --- PanelRail

PanelRail::PanelRail(ScreenModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    setFixedWidth(width);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(4, 8, 4, 8);
    column->setSpacing(4);
    const auto& commands = panelCommands();
    for (size_t i = 0; i < commands.size(); ++i) {
        const PanelCommand& c = commands[i];
        auto* b = new RailButton(c, this);
        connect(b, &QAbstractButton::clicked, this, [this, panel = c.panel] {
            model_.app().togglePanel(panel);
            refresh();
            emit panelToggled();
        });
        buttons_[i] = b;
        // Groups: the edit (sound to automatic), the picture (colour, crop),
        // the output; the settings stand apart at the foot.
        if (c.panel == RightPanel::color || c.panel == RightPanel::exportPanel) column->addSpacing(12);
        if (c.panel == RightPanel::settings) column->addStretch(1);
        column->addWidget(b);
    }
    connect(&model_, &ScreenModel::changed, this, &PanelRail::refresh);
    refresh();
}

QAbstractButton* PanelRail::button(RightPanel panel) const {
    for (size_t i = 0; i < buttons_.size(); ++i)
        if (panelCommands()[i].panel == panel) return buttons_[i];
    return nullptr;
}

void PanelRail::refresh() {
    const RightPanel open = model_.app().rightPanel();
    for (size_t i = 0; i < buttons_.size(); ++i) buttons_[i]->setChecked(panelCommands()[i].panel == open);
    update();
}

void PanelRail::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.fillRect(rect(), Theme::paperSoft());
    p.fillRect(QRect(0, 0, 1, height()), Theme::line());
    // A hairline between the groups.
    for (RightPanel first : {RightPanel::color, RightPanel::exportPanel}) {
        const QRect b = button(first)->geometry();
        p.fillRect(QRect(14, b.top() - 8, width - 28, 1), Theme::lineStrong());
    }
    // The open panel's button is tied to the panel by a bar on the rail's inner edge.
    if (QAbstractButton* open = button(model_.app().rightPanel())) {
        const QRect b = open->geometry();
        p.fillRect(QRect(0, b.top() + 6, 2, b.height() - 12), Theme::accent());
    }
}

}  // namespace qv::ui
