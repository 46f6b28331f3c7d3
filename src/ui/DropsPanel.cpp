// The drops panel: detection settings, the rows of drops (rebuilt only when
// what they show changes) and the clips of the drops.
#include "ui/DropsPanel.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <algorithm>
#include <cmath>

#include "app/AppModel.h"
#include "base/Format.h"
#include "ui/DropClipsBox.h"
#include "ui/Theme.h"
#include "ui/Widgets.h"

namespace qv::ui {

DropsPanel::DropsPanel(AppModel& model, QWidget* parent)
    : PanelPage(QStringLiteral("Drops repérés"), parent), model_(model) {
    add(new PanelNote(QStringLiteral("Quorvel écoute les basses du set : un drop, c'est le moment où elles reviennent "
                                     "fort après un passage plus calme. Touche D : drop suivant (⇧D : précédent)."),
                      this));
    auto* box = new PanelBox(QString(), this);
    auto* sensitivity = new ValueSlider(
        QStringLiteral("Sensibilité"), limits::fraction.min, limits::fraction.max, 0.05, 0.5, percentOfFraction, [this] { return model_.dropSensitivity(); },
        [this](double v) { model_.setDropSensitivity(v); }, box);
    box->add(sensitivity);
    box->add(new PanelNote(QStringLiteral("Plus haut = trouve aussi les drops moins marqués."), box));
    box->add(new ValueSlider(
        QStringLiteral("Garder avant le drop"), ProjectFile::dropPreRange.min, ProjectFile::dropPreRange.max, 1, 15, formatter("%.0f s"), [this] { return model_.dropPre(); },
        [this](double v) { model_.setDropMargins(v, model_.dropPost()); }, box));
    box->add(new ValueSlider(
        QStringLiteral("Garder après le drop"), ProjectFile::dropPostRange.min, ProjectFile::dropPostRange.max, 1, 30, formatter("%.0f s"), [this] { return model_.dropPost(); },
        [this](double v) { model_.setDropMargins(model_.dropPre(), v); }, box));
    add(box);
    auto* rows = new QWidget(this);
    list_ = new QVBoxLayout(rows);
    list_->setContentsMargins(0, 0, 0, 0);
    list_->setSpacing(6);
    add(rows);
    empty_ = textLabel(QStringLiteral("Aucun drop repéré. Monte la sensibilité si le set en a."), this, 11, Theme::gray2());
    add(empty_);
    clips_ = new DropClipsBox(model_, this);
    add(clips_);
    add(new PanelNote(QStringLiteral("« Monter ce drop » place le début et la fin de l'export autour du drop. Coupe "
                                     "ensuite au clavier, puis Exporter le montage."),
                      this));
    column_->addStretch(1);
    refresh();
}

std::optional<int> DropsPanel::focusedDrop() const {
    // Read on the range itself: a drop near an end of the set leaves that
    // end without a mark, and is focused all the same.
    if (model_.edit().rangeIsWholeSet()) return std::nullopt;
    const TimeRange r = model_.edit().exportRange();
    const double d = model_.duration();
    const auto& drops = model_.drops();
    for (size_t i = 0; i < drops.size(); ++i) {
        const double t = drops[i].time;
        const double start = std::clamp(t - model_.dropPre(), 0.0, d);
        const double end = std::clamp(t + model_.dropPost(), 0.0, d);
        if (std::abs(r.start - start) < 0.05 && std::abs(r.end - end) < 0.05) return int(i);
    }
    return std::nullopt;
}

void DropsPanel::refresh() {
    PanelPage::refresh();
    const auto& drops = model_.drops();
    const auto focused = focusedDrop();
    // Rows are rebuilt only when what they show has changed.
    QString key = QString::number(focused.value_or(-1)) + QLatin1Char('|') + QString::number(model_.dropPre()) +
                  QLatin1Char('|') + QString::number(model_.dropPost());
    for (const Drop& d : drops) key += QStringLiteral("|%1:%2").arg(d.time).arg(d.strength);
    empty_->setVisible(drops.empty());
    clips_->refresh();
    for (QCheckBox* tick : ticks_) {
        const QSignalBlocker quiet(tick);
        tick->setChecked(model_.clipDrops().count(tick->property("drop").toInt()) > 0);
    }
    if (key == shown_) return;
    shown_ = key;
    ticks_.clear();
    clearLayout(list_);
    rows_ = 0;
    for (size_t i = 0; i < drops.size(); ++i) {
        const Drop drop = drops[i];
        const bool isFocused = focused == int(i);
        auto* row = new PanelBox(QString(), list_->parentWidget());
        if (isFocused)
            row->setStyleSheet(QStringLiteral("QFrame#panelBox { border: 1px solid %1; border-radius: 6px; background: %2; }")
                                   .arg(Theme::accent().name(),
                                        Theme::withAlpha(Theme::accent(), 0.08).name(QColor::HexArgb)));
        auto* head = new QHBoxLayout();
        auto* bolt = new QLabel(Theme::symbol("bolt.fill"), row);
        bolt->setFont(Theme::iconFont(16));
        bolt->setStyleSheet(QStringLiteral("color: %1;").arg(Theme::accent().name()));
        head->addWidget(bolt);
        auto* time = new QLabel(QString::fromStdString(Format::timecode(drop.time)), row);
        time->setFont(Theme::numbers(13));
        time->setStyleSheet(QStringLiteral("color: %1;").arg(Theme::ink().name()));
        head->addWidget(time);
        head->addWidget(textLabel(QStringLiteral("force %1").arg(percentOfFraction(drop.strength)), row, 10,
                                  Theme::gray3()),
                        1);
        auto* tick = new QCheckBox(QStringLiteral("Clip"), row);
        tick->setToolTip(QStringLiteral("Coché : ce drop est dans « Exporter les clips des drops ». Rien de coché : tous."));
        tick->setProperty("drop", drop.id);
        tick->setChecked(model_.clipDrops().count(drop.id) > 0);
        connect(tick, &QCheckBox::toggled, this, [this, id = drop.id] { model_.toggleClipDrop(id); });
        head->addWidget(tick);
        ticks_.push_back(tick);
        row->content()->addLayout(head);
        auto* buttons = new QHBoxLayout();
        auto* go = new QuorvelButton(QStringLiteral("Aller au drop"), QuorvelButton::Kind::outlined, row);
        connect(go, &QAbstractButton::clicked, this, [this, drop] {
            if (AppPlayer* p = model_.player()) {
                p->seek(drop.time);
                model_.revealPlayhead();
            }
        });
        auto* mount = new QuorvelButton(QStringLiteral("Monter ce drop"),
                                        isFocused ? QuorvelButton::Kind::main : QuorvelButton::Kind::outlined, row);
        connect(mount, &QAbstractButton::clicked, this, [this, drop] { model_.edit().focusDrop(drop); });
        buttons->addWidget(go);
        buttons->addWidget(mount);
        row->content()->addLayout(buttons);
        if (isFocused)
            row->add(textLabel(QStringLiteral("Exporter seulement ce drop : %1 s avant, %2 s")
                                   .arg(formatValue("%.0f", model_.dropPre()), formatValue("%.0f", model_.dropPost())),
                               row, 11, Theme::accent()));
        list_->addWidget(row);
        ++rows_;
    }
}

}  // namespace qv::ui
