#include "ui/FrameRateBox.h"

#include <QMenu>

#include "app/AppModel.h"
#include "base/Format.h"

namespace qv::ui {

namespace {

QString label(const PremiereExport::SequenceRate& rate) { return QString::fromStdString(PremiereExport::rateLabel(rate)); }

}  // namespace

FrameRateBox::FrameRateBox(AppModel& model, QWidget* parent) : PanelBox(QStringLiteral("Cadence"), parent), model_(model) {
    rate_ = textLabel(QString(), this, 12, Theme::ink(), Theme::Weight::medium);
    add(rate_);
    choice_ = menuButton(this);
    choice_->setText(QStringLiteral("Changer la cadence"));
    connect(choice_->menu(), &QMenu::aboutToShow, this, [this] { fillMenu(); });
    add(choice_);
    dropFrame_ = new PanelToggle(
        QStringLiteral("Timecode drop-frame"), [this] { return model_.dropFrame(); },
        [this](bool on) { model_.setDropFrame(on); }, this);
    add(dropFrame_);
    add(new PanelNote(QStringLiteral("Le XML, le MLT, l'OTIO et la vidéo finie sont tous à cette cadence."), this));

    warning_ = textLabel(QString(), this, 11, Theme::warning(), Theme::Weight::medium);
    add(warning_);
    conform_ = new WrapButton("film.stack", QStringLiteral("Conformer à cadence fixe"), this);
    connect(conform_, &QAbstractButton::clicked, this, [this] {
        model_.conformVariableRate();
        refresh();
    });
    add(conform_);
    conformLine_ = new PanelNote(QString(), this);
    add(conformLine_);
    refresh();
}

void FrameRateBox::fillMenu() {
    QMenu* menu = choice_->menu();
    menu->clear();
    const auto shares = model_.rateShares();
    const auto automatic = shares.empty() ? PremiereExport::SequenceRate{} : shares.front().rate;
    const bool chosen = model_.frameRateChoice().has_value();
    menu->addAction((chosen ? QStringLiteral("    ") : QStringLiteral("✓ ")) +
                        QStringLiteral("La plus fréquente (%1)").arg(label(automatic)),
                    this, [this] { model_.setFrameRateChoice(std::nullopt); });
    for (const PremiereExport::SequenceRate& r : PremiereExport::rateTable) {
        QString text = label(r);
        for (const auto& share : shares)
            if (share.rate == r)
                text += QStringLiteral(" · %1 de caméras").arg(QString::fromStdString(Format::duration(share.seconds)));
        const bool on = chosen && model_.frameRateChoice()->timebase == r.timebase && model_.frameRateChoice()->ntsc == r.ntsc;
        menu->addAction((on ? QStringLiteral("✓ ") : QStringLiteral("    ")) + text, this,
                        [this, r] { model_.setFrameRateChoice(r); });
    }
}

void FrameRateBox::refresh() {
    const auto rate = model_.frameRate();
    rate_->setText(QStringLiteral("Cadence : %1 (%2)")
                       .arg(label(rate), model_.frameRateChoice() ? QStringLiteral("choisie")
                                                                  : QStringLiteral("la plus fréquente")));
    choice_->setEnabled(model_.result().has_value());
    dropFrame_->refresh();
    dropFrame_->setVisible(rate.canDropFrame() || model_.dropFrame());

    const auto files = model_.variableRateFiles();
    QString names;
    for (const std::string& f : files) names += (names.isEmpty() ? QString() : QStringLiteral(", ")) + QString::fromStdString(f);
    warning_->setText(files.empty() ? QString()
                                    : QStringLiteral("%1 à cadence variable : %2. Premiere, DaVinci, Kdenlive et "
                                                     "Shotcut la lisent comme fixe : l'image y glisse peu à peu par "
                                                     "rapport au son.")
                                          .arg(files.size() > 1 ? QStringLiteral("%1 fichiers").arg(files.size())
                                                                : QStringLiteral("Fichier"),
                                               names));
    warning_->setVisible(!files.empty());
    const bool working = model_.isConforming();
    const int made = files.empty() ? 0 : model_.conformedCount();
    conform_->setVisible(!files.empty() && !working && made < static_cast<int>(files.size()));
    QString line;
    if (working) line = QString::fromStdString(model_.conformStatus());
    else if (made > 0)
        line = QStringLiteral("Copies à cadence fixe : %1 sur %2, les exports les utilisent.").arg(made).arg(files.size());
    else if (!files.empty())
        line = QStringLiteral("Des copies pleine qualité à cadence fixe, faites en arrière-plan, remplaceront ces "
                              "fichiers dans les exports.");
    conformLine_->setText(line);
    conformLine_->setVisible(!line.isEmpty());
}

}  // namespace qv::ui
