// The export panel: the targets, the XML options, the range and folder
// shown, and the main button that exports.
#include "ui/ExportPanel.h"

#include <QHBoxLayout>
#include <QPushButton>

#include "app/AppModel.h"
#include "ui/Theme.h"
#include "ui/Widgets.h"

namespace qv::ui {

ExportPanel::ExportPanel(AppModel& model, QWidget* parent)
    : PanelPage(QStringLiteral("Exporter vers"), parent), model_(model) {
    static const char* notes[] = {
        "XML à importer dans Premiere (Fichier › Importer). Coupes, son, zooms, épaule et recadrages modifiables.",
        "XML à importer dans DaVinci Resolve (Fichier › Importer › Timeline). Même contenu que pour Premiere.",
        "Quorvel fabrique la vidéo lui-même, avec l'étalonnage et tous les effets. Rien à faire dans un logiciel de "
        "montage.",
        // Indexed by the target's value: the two timeline files come after the video.
        "Projet MLT à ouvrir dans Kdenlive ou Shotcut (Fichier › Ouvrir). Coupes, son, zooms, épaule, recadrages et "
        "étalonnage (LUT .cube) modifiables ; les drops deviennent des repères.",
        "Timeline OpenTimelineIO pour DaVinci Resolve 18.5 ou plus et Kdenlive. Coupes, pistes et son, drops en "
        "marqueurs ; les zooms, recadrages et l'étalonnage n'y passent pas.",
        "Un clip vertical par drop (ou par drop coché dans DROPS), prêt pour les réseaux : de « Garder avant » à "
        "« Garder après » le drop, avec tes coupes, sinon un montage auto de ce passage."};
    auto* box = new PanelBox(QString(), this);
    for (ExportTarget t : allExportTargets) {
        auto* row = choiceButton(QString::fromUtf8(rawValue(t)), false,
                                 [this, t] {
                                     model_.settings().setExportTarget(t);
                                     refresh();
                                 },
                                 box);
        targets_.push_back(row);
        box->add(row);
        auto* note = new PanelNote(QString::fromUtf8(notes[int(t)]), box);
        targetNotes_.push_back(note);
        box->add(note);
    }
    add(box);

    videoPart_ = new PanelNote(QStringLiteral("Avec l'étalonnage, les flous, le VHS, les zooms, l'épaule, le recadrage et "
                                              "le son réglé. Le format se change avec le menu FORMAT sous les caméras."),
                               this);
    add(videoPart_);
    xmlPart_ = new PanelBox(QString(), this);
    auto* xml = static_cast<PanelBox*>(xmlPart_);
    AppSettings& settings = model_.settings();
    xml->add(new PanelToggle(
        QStringLiteral("Une piste vidéo par caméra (V1 = Cam 1, V2 = Cam 2…)"), [&settings] { return settings.trackPerCamera(); },
        [&settings](bool on) { settings.setTrackPerCamera(on); }, xml));
    xml->add(new PanelToggle(
        QStringLiteral("Étalonnage de chaque caméra en LUT .cube"), [&settings] { return settings.exportLUTs(); },
        [&settings](bool on) { settings.setExportLUTs(on); }, xml));
    lutNote_ = new PanelNote(QString(), xml);
    xml->add(lutNote_);
    add(xmlPart_);
    rate_ = new FrameRateBox(model_, this);
    add(rate_);

    auto* where = new PanelBox(QString(), this);
    range_ = textLabel(QString(), where, 12, Theme::ink(), Theme::Weight::medium);
    where->add(range_);
    where->add(new PanelNote(QStringLiteral("Repères I et O sur la timeline (ils se collent aux rushes et aux coupes)."),
                             where));
    auto* folderRow = new QHBoxLayout();
    auto* icon = new QLabel(Theme::symbol("folder.fill"), where);
    icon->setFont(Theme::iconFont(15));
    icon->setStyleSheet(QStringLiteral("color: %1;").arg(Theme::gray2().name()));
    folderRow->addWidget(icon);
    folder_ = textLabel(QString(), where, 11);
    folderRow->addWidget(folder_, 1);
    where->content()->addLayout(folderRow);
    auto* change = new QPushButton(QStringLiteral("Changer dans PARAMÈTRES"), where);
    change->setFlat(true);
    change->setFocusPolicy(Qt::NoFocus);
    change->setCursor(Qt::PointingHandCursor);
    change->setFont(Theme::text(10, Theme::Weight::semibold));
    change->setStyleSheet(QStringLiteral("QPushButton { color: %1; border: none; text-align: left; padding: 0; }")
                              .arg(Theme::accent().name()));
    connect(change, &QPushButton::clicked, this, [this] { model_.setRightPanel(RightPanel::settings); });
    where->add(change);
    add(where);

    main_ = new QuorvelButton("square.and.arrow.up", QString(), QuorvelButton::Kind::main, this);
    main_->setMinimumHeight(40);
    connect(main_, &QAbstractButton::clicked, this, [this] {
        model_.exportMontage();
        refresh();
    });
    add(main_);
    progress_ = new ExportProgress(model_, this);
    add(progress_);
    syncXml_ = new WrapButton("square.and.arrow.up",
                            QStringLiteral("XML synchro (toutes les sources empilées, sans tes coupes)"), this);
    connect(syncXml_, &QAbstractButton::clicked, this,
            [this] { model_.exportSynchro(model_.settings().exportTarget()); });
    add(syncXml_);
    column_->addStretch(1);

    // A video export starts and ends outside of the model's fields.
    poll_.setInterval(250);
    connect(&poll_, &QTimer::timeout, this, [this] {
        const bool running = model_.videoExporter() && model_.videoExporter()->isRunning();
        if (running != progress_->isVisibleTo(this)) refresh();
        // Constant-rate copies tell their progress between whole files too.
        if (model_.isConforming() || conforming_) rate_->refresh();
        conforming_ = model_.isConforming();
    });
    poll_.start();
    refresh();
}

QString ExportPanel::mainButtonText() const {
    switch (model_.settings().exportTarget()) {
        case ExportTarget::premiere: return QStringLiteral("EXPORTER LE XML PREMIERE");
        case ExportTarget::davinci: return QStringLiteral("EXPORTER LE XML DAVINCI");
        case ExportTarget::video: return QStringLiteral("EXPORTER LA VIDÉO");
        case ExportTarget::mlt: return QStringLiteral("EXPORTER LE PROJET MLT");
        case ExportTarget::otio: return QStringLiteral("EXPORTER LA TIMELINE OTIO");
        case ExportTarget::dropClips: return QStringLiteral("EXPORTER LES CLIPS DES DROPS");
    }
    return {};
}

void ExportPanel::refresh() {
    PanelPage::refresh();
    const ExportTarget target = model_.settings().exportTarget();
    for (size_t i = 0; i < targets_.size(); ++i) {
        targets_[i]->setOn(allExportTargets[i] == target);
        targetNotes_[i]->setVisible(allExportTargets[i] == target);
    }
    const bool video = target == ExportTarget::video || target == ExportTarget::dropClips;
    videoPart_->setVisible(video);
    xmlPart_->setVisible(!video);
    const bool marked = !model_.edit().rangeIsWholeSet();
    range_->setText(marked ? QStringLiteral("Plage exportée · ") + rangeText(model_.edit().exportRange())
                           : QStringLiteral("Plage exportée · set entier"));
    const AppSettings& s = model_.settings();
    if (s.askWhereToSave())
        folder_->setText(QStringLiteral("Demandé à chaque export"));
    else
        folder_->setText(QStringLiteral("Enregistré dans %1")
                             .arg(s.exportFolderPath() ? QString::fromStdString(s.exportFolder().filename().string())
                                                       : QStringLiteral("Téléchargements")));
    main_->setText(mainButtonText());
    // Clips of the drops need a drop; the panel's note says what they are.
    const bool noDrop = target == ExportTarget::dropClips && model_.drops().empty();
    main_->setEnabled(model_.player() != nullptr && !noDrop);
    main_->setToolTip(noDrop ? QStringLiteral("Aucun drop repéré dans ce set : monte la sensibilité dans DROPS.")
                             : QString());
    lutNote_->setText(
        target == ExportTarget::mlt
            ? QStringLiteral("Le projet MLT étalonne chaque caméra par sa LUT .cube, posée à côté (filtre lut3d). Flous, "
                             "VHS et grain n'y passent pas : choisis « Vidéo finie » pour les avoir.")
        : target == ExportTarget::otio
            ? QStringLiteral("Le .otio ne porte que les coupes, les pistes et le son : les LUT .cube posées à côté se "
                             "mettent à la main (nœuds de DaVinci, effet LUT de Kdenlive).")
            : QStringLiteral("Les LUT se posent dans Lumetri › Créatif › Look (Premiere) ou dans les nœuds de DaVinci. "
                             "Flous, VHS et grain ne passent pas par le XML : choisis « Vidéo finie » pour les avoir."));
    syncXml_->setEnabled(model_.result().has_value());
    syncXml_->setText(target == ExportTarget::mlt    ? QStringLiteral("Synchro MLT (toutes les sources empilées, sans tes coupes)")
                      : target == ExportTarget::otio ? QStringLiteral("Synchro .otio (toutes les sources empilées, sans tes coupes)")
                                                     : QStringLiteral("XML synchro (toutes les sources empilées, sans tes coupes)"));
    rate_->refresh();
    const bool running = model_.videoExporter() && model_.videoExporter()->isRunning();
    main_->setVisible(!running);
    progress_->setVisible(running);
    if (running) progress_->refresh();
}

}  // namespace qv::ui
