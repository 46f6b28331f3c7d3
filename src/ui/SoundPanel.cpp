// The sound panel: the audio mode, fades and master volume, all stored in
// the model's audio settings.
#include "ui/SoundPanel.h"

#include <cmath>

#include "app/AppModel.h"

namespace qv::ui {

SoundPanel::SoundPanel(AppModel& model, QWidget* parent) : PanelPage(QStringLiteral("Son du montage"), parent), model_(model) {
    using Mode = AudioSettings::Mode;
    const struct {
        Mode mode;
        const char* title;
        const char* text;
    } modes[] = {
        {Mode::camera, "Suit la caméra", "Le son change avec le plan : on entend le micro de la caméra à l'image."},
        {Mode::table, "Son de table", "Le son de table (Son 1 à 4) en continu, les micros caméra coupés."},
        {Mode::all, "Table + toutes les caméras",
         "Le son ne change pas avec les plans : le son de table et le son de toutes les caméras, en même temps."},
    };
    // Writes one field of the audio settings through the model.
    auto store = [this](auto AudioSettings::*field) {
        return [this, field](auto v) {
            AudioSettings a = model_.audio();
            a.*field = v;
            model_.setAudio(a);
        };
    };
    auto* box = new PanelBox(QString(), this);
    for (const auto& m : modes) {
        auto* row = choiceButton(QString::fromUtf8(m.title), false, [this, mode = m.mode] { model_.setAudioMode(mode); }, box);
        row->setProperty("mode", int(m.mode));
        modes_.push_back(row);
        box->add(row);
        box->add(new PanelNote(QString::fromUtf8(m.text), box));
        if (m.mode == Mode::camera) {
            cutFade_ = new PanelToggle(
                QStringLiteral("Micro-fondu entre les plans (évite les clics)"), [this] { return model_.audio().cutFade; },
                store(&AudioSettings::cutFade), box);
            box->add(cutFade_);
        }
    }
    add(box);

    auto* levels = new PanelBox(QString(), this);
    levels->add(new ValueSlider(
        QStringLiteral("Fondu quand une caméra se coupe"), 0, 3, 0.25, 0,
        [](double v) { return v <= 0 ? QStringLiteral("aucun") : formatValue("%.2g s", v); },
        [this] { return model_.audio().rushFade; }, store(&AudioSettings::rushFade), levels));
    levels->add(new PanelNote(QStringLiteral("Le son d'une caméra monte quand elle se met à filmer et descend quand elle "
                                             "s'arrête. Le son de table n'a pas de fondu."),
                              levels));
    levels->add(new ValueSlider(
        QStringLiteral("Volume général"), -20, 6, 0.5, 0, formatter("%+.1f dB"),
        [this] { return model_.audio().masterDb; }, store(&AudioSettings::masterDb), levels));
    levels->add(new PanelNote(QStringLiteral("Le volume de chaque piste se règle dans la timeline, devant la piste."), levels));
    add(levels);
    add(new PanelNote(QStringLiteral("Jamais de fondu au tout début ni à la toute fin de l'export."), this));

    // The edited camera's picture against its sound, in frames, in
    // milliseconds, or from its distance to the speakers.
    auto* picture = new PanelBox(QStringLiteral("Décalage image"), this);
    offsetTabs_ = new CameraTabs(model_, picture);
    picture->add(offsetTabs_);
    auto fps = [this] { return model_.cameraFrameRate(model_.editedCamera()); };
    auto offset = [this] { return model_.pictureOffset(model_.editedCamera()); };
    auto setOffset = [this](double seconds) { model_.setPictureOffset(model_.editedCamera(), seconds); };
    const double frames = AppModel::maxOffsetFrames;
    picture->add(new ValueSlider(
        QStringLiteral("Image par rapport au son"), -frames, frames, 1, 0,
        [fps](double n) {
            if (std::abs(n) < 1e-6) return QStringLiteral("aucun");
            const double ms = n / fps() * 1000;
            if (std::abs(n - std::round(n)) > 0.01) return formatValue("%+.0f ms", ms);
            return formatValue(std::abs(n) > 1.5 ? "%+.0f images" : "%+.0f image", n) + formatValue(" (%+.0f ms)", ms);
        },
        [fps, offset] { return offset() * fps(); }, [fps, setOffset](double n) { setOffset(n / fps()); }, picture));
    offsetMs_ = new ValueSlider(
        QStringLiteral("En millisecondes"), -400, 400, 1, 0, formatter("%+.0f ms"), [offset] { return offset() * 1000; },
        [setOffset](double ms) { setOffset(ms / 1000); }, picture);
    picture->add(offsetMs_);
    offsetMetres_ = new ValueSlider(
        QStringLiteral("Distance des enceintes"), 0, 60, 0.5, 0, formatter("%.1f m"),
        [offset] { return std::max(0.0, offset()) / AppModel::offsetForDistance(1); },
        [setOffset](double metres) { setOffset(AppModel::offsetForDistance(metres)); }, picture);
    picture->add(offsetMetres_);
    picture->add(new PanelNote(QStringLiteral("Une caméra loin des enceintes entend la musique en retard (3 ms par "
                                              "mètre) : calée sur son son, son image arrive trop tôt. Le décalage la "
                                              "remet en place dans l'aperçu, la vidéo et les XML. Jusqu'à 10 images "
                                              "dans un sens ou dans l'autre."),
                               picture));
    add(picture);
    column_->addStretch(1);
    refresh();
}

void SoundPanel::refresh() {
    PanelPage::refresh();
    for (ChoiceRow* row : modes_) row->setOn(row->property("mode").toInt() == int(model_.audio().mode));
    cutFade_->setVisible(model_.audio().mode == AudioSettings::Mode::camera);
    offsetTabs_->refresh();
    // Ten frames of the edited camera, as the model holds them, in whole
    // milliseconds and half metres.
    const double limit = AppModel::maxOffsetFrames / model_.cameraFrameRate(model_.editedCamera());
    const double ms = std::floor(limit * 1000);
    offsetMs_->setRange(-ms, ms);
    offsetMetres_->setRange(0, std::min(60.0, std::floor(limit / AppModel::offsetForDistance(1) * 2) / 2));
}

}  // namespace qv::ui
