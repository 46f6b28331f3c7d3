// The settings panel, and the folder picker for the exports.
#include "ui/SettingsPanel.h"

#include <QDir>
#include <QFileDialog>
#include <QMenu>
#include <QPushButton>
#include <array>
#include <memory>

#include "app/AppModel.h"
#include "diagnostics/Log.h"
#include "ui/QtPorts.h"
#include "ui/Theme.h"
#include "ui/Widgets.h"

#ifndef QUORVEL_VERSION
#define QUORVEL_VERSION "0.1"
#endif

namespace qv::ui {

QString SettingsPanel::shortPath(const QString& path) {
    const QString home = QDir::homePath();
    if (path == home) return QStringLiteral("~");
    if (path.startsWith(home + QLatin1Char('/'))) return QStringLiteral("~") + path.mid(home.size());
    return path;
}

SettingsPanel::SettingsPanel(AppModel& model, QWidget* parent) : PanelPage(QStringLiteral("Paramètres"), parent), model_(model) {
    AppSettings& s = model_.settings();
    auto toggle = [this](QWidget* parent, const QString& text, bool (AppSettings::*get)() const,
                         void (AppSettings::*set)(bool)) {
        return new PanelToggle(
            text, [this, get] { return (model_.settings().*get)(); }, [this, set](bool on) { (model_.settings().*set)(on); },
            parent);
    };
    auto* timeline = new PanelBox(QStringLiteral("Timeline"), this);
    auto* snap = new PanelToggle(
        QStringLiteral("Aimant : les repères I / O se collent aux rushes, aux coupes et aux drops"),
        [this] { return model_.settings().snapEnabled(); },
        [this](bool on) {
            model_.settings().setSnapEnabled(on);
            model_.edit().setSnapEnabled(on);
        },
        timeline);
    timeline->add(snap);
    timeline->add(toggle(timeline,
                         QStringLiteral("Drops cliquables sur la timeline (clic : y aller, double-clic : monter le drop)"),
                         &AppSettings::dropsClickable, &AppSettings::setDropsClickable));
    add(timeline);

    auto* exportBox = new PanelBox(QStringLiteral("Export"), this);
    // A menu of the values of one setting, under its caption.
    auto choice = [this, exportBox](const QString& caption, const auto& values, auto set) {
        QPushButton* button = menuButton(exportBox);
        for (auto v : values)
            button->menu()->addAction(QString::fromUtf8(rawValue(v)), this, [this, set, v] {
                (model_.settings().*set)(v);
                refresh();
            });
        exportBox->add(captioned(caption, button, exportBox));
        return button;
    };
    target_ = choice(QStringLiteral("Export par défaut"), allExportTargets, &AppSettings::setExportTarget);
    exportBox->add(toggle(exportBox, QStringLiteral("Demander où enregistrer à chaque export"),
                          &AppSettings::askWhereToSave, &AppSettings::setAskWhereToSave));
    exportBox->add(toggle(exportBox, QStringLiteral("XML : une piste vidéo par caméra"), &AppSettings::trackPerCamera,
                          &AppSettings::setTrackPerCamera));
    exportBox->add(toggle(exportBox, QStringLiteral("XML : LUT .cube de chaque caméra étalonnée"),
                          &AppSettings::exportLUTs, &AppSettings::setExportLUTs));
    codec_ = choice(QStringLiteral("Codec de la vidéo finie"),
                    std::array{VideoCodec::hevc, VideoCodec::prores, VideoCodec::h264}, &AppSettings::setVideoCodec);
    loudness_ = choice(QStringLiteral("Volume de sortie"), allOutputLoudness, &AppSettings::setOutputLoudness);
    exportBox->add(new PanelNote(QStringLiteral("Pour la vidéo finie et les clips des drops : le son est mesuré puis "
                                                "amené au volume choisi, sans saturer (crêtes sous −1 dBTP). Les XML "
                                                "ne changent pas."),
                                 exportBox));
    auto* folderCaption = textLabel(QStringLiteral("Dossier des exports"), exportBox, 11);
    exportBox->add(folderCaption);
    folder_ = textLabel(QString(), exportBox, 11, Theme::ink());
    folder_->setFont(Theme::numbers(11));
    exportBox->add(folder_);
    // One button a row: the side panel is too narrow for both labels side by side.
    auto* folderButtons = new QVBoxLayout();
    auto* choose = new QuorvelButton(QStringLiteral("Choisir…"), QuorvelButton::Kind::outlined, exportBox);
    connect(choose, &QAbstractButton::clicked, this, [this] {
        std::unique_ptr<QFileDialog> dialog(
            exportFolderDialog(this, QString::fromStdString(model_.settings().exportFolder().string())));
        // Only a confirmed choice is stored.
        if (dialog->exec() != QDialog::Accepted || dialog->selectedFiles().isEmpty()) return;
        model_.settings().setExportFolderPath(dialog->selectedFiles().first().toStdString());
        refresh();
    });
    auto* back = new QuorvelButton(QStringLiteral("Revenir à Téléchargements"), QuorvelButton::Kind::outlined, exportBox);
    connect(back, &QAbstractButton::clicked, this, [this] {
        model_.settings().setExportFolderPath(std::nullopt);
        refresh();
    });
    folderButtons->addWidget(choose);
    folderButtons->addWidget(back);
    exportBox->content()->addLayout(folderButtons);
    add(exportBox);

    auto* preview = new PanelBox(QStringLiteral("Aperçu"), this);
    preview->add(new PanelToggle(
        QStringLiteral("Afficher l'étalonnage et les effets d'image dans l'aperçu"),
        [this] { return model_.settings().previewLooks(); },
        [this](bool on) {
            model_.settings().setPreviewLooks(on);
            model_.applyLooks();
        },
        preview));
    preview->add(new PanelNote(QStringLiteral("À couper si la lecture saccade (avec la QUALITÉ d'aperçu). L'export garde "
                                              "toujours tout."),
                               preview));
    add(preview);

    auto* about = new PanelBox(QStringLiteral("Quorvel"), this);
    about->add(textLabel(QStringLiteral("Version %1").arg(QStringLiteral(QUORVEL_VERSION)), about, 11));
    auto* log = new QuorvelButton(QStringLiteral("Afficher le journal"), QuorvelButton::Kind::outlined, about);
    connect(log, &QAbstractButton::clicked, this, [] {
        Log::write("Journal ouvert par l'utilisateur");
        Log::flush();
        QtFileViewer().open(Log::file());
    });
    about->add(log);
    add(about);
    (void)s;
    column_->addStretch(1);
    refresh();
}

void SettingsPanel::refresh() {
    PanelPage::refresh();
    const AppSettings& s = model_.settings();
    target_->setText(QString::fromUtf8(rawValue(s.exportTarget())));
    codec_->setText(QString::fromUtf8(rawValue(s.videoCodec())));
    loudness_->setText(QString::fromUtf8(rawValue(s.outputLoudness())));
    folder_->setText(shortPath(QString::fromStdString(s.exportFolder().string())));
}

QFileDialog* exportFolderDialog(QWidget* parent, const QString& start) {
    auto* dialog = new QFileDialog(parent, QStringLiteral("Dossier où Quorvel enregistre les exports"), start);
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly, true);
    dialog->setLabelText(QFileDialog::Accept, QStringLiteral("Choisir"));
    return dialog;
}

}  // namespace qv::ui
