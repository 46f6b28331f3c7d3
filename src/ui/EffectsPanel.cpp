// The effects panel: one section per automatic effect, bound to the model's
// effect settings, and the keys that set an effect on one plan.
#include "ui/EffectsPanel.h"

#include <QHBoxLayout>
#include <QPushButton>
#include <cmath>

#include "app/AppModel.h"
#include "ui/Theme.h"

namespace qv::ui {

namespace {

// A row of buttons of which one is chosen: "Lent" / "Rapide".
class Segmented : public QWidget {
public:
    Segmented(const QStringList& items, std::function<int()> get, std::function<void(int)> set, QWidget* parent)
        : QWidget(parent), get_(std::move(get)) {
        auto* row = new QHBoxLayout(this);
        row->setContentsMargins(0, 0, 0, 0);
        row->setSpacing(4);
        for (int i = 0; i < items.size(); ++i) {
            auto* b = new QPushButton(items[i], this);
            b->setCheckable(true);
            b->setFocusPolicy(Qt::NoFocus);
            b->setCursor(Qt::PointingHandCursor);
            b->setFont(Theme::text(11, Theme::Weight::medium));
            b->setStyleSheet(QStringLiteral("QPushButton { color: %1; background: transparent; border: 1px solid %2;"
                                            " border-radius: 4px; padding: 5px 8px; }"
                                            "QPushButton:checked { color: %3; border-color: %3; background: %4; }"
                                            "QPushButton:disabled { color: %5; }")
                                 .arg(Theme::gray2().name(), Theme::lineStrong().name(), Theme::accent().name(),
                                      Theme::withAlpha(Theme::accent(), 0.1).name(QColor::HexArgb),
                                      Theme::gray4().name()));
            connect(b, &QPushButton::clicked, this, [this, i, set] {
                set(i);
                refresh();
            });
            row->addWidget(b, 1);
            buttons_.push_back(b);
        }
        refresh();
    }
    void refresh() {
        const int chosen = get_();
        for (int i = 0; i < int(buttons_.size()); ++i) {
            const QSignalBlocker block(buttons_[size_t(i)]);
            buttons_[size_t(i)]->setChecked(i == chosen);
        }
    }

private:
    std::function<int()> get_;
    std::vector<QPushButton*> buttons_;
};

void refreshSegmented(QWidget* root) {
    for (QWidget* w : root->findChildren<QWidget*>())
        if (auto* s = dynamic_cast<Segmented*>(w)) s->refresh();
}

}  // namespace

ValueSlider* EffectsPanel::slider(const QString& title, double EffectSettings::*field, double step, Formatter text) {
    const EffectSettings defaults;
    // The range is the settings' own, the one project files are held to.
    const Range range = EffectSettings::rangeOf(field);
    return new ValueSlider(
        title, range.min, range.max, step, defaults.*field, text ? std::move(text) : percentOfFraction,
        [this, field] { return model_.effects().*field; },
        [this, field](double v) {
            EffectSettings e = model_.effects();
            e.*field = v;
            model_.setEffects(std::move(e));
        },
        this);
}

PanelToggle* EffectsPanel::toggle(const QString& title, bool EffectSettings::*field, QWidget* parent) {
    return new PanelToggle(
        title, [this, field] { return model_.effects().*field; },
        [this, field](bool on) {
            EffectSettings e = model_.effects();
            e.*field = on;
            model_.setEffects(std::move(e));
        },
        parent);
}

QWidget* EffectsPanel::section(int number, const QString& title, bool EffectSettings::*isOn, QVBoxLayout*& body) {
    auto* box = new PanelBox(QString(), this);
    auto* head = new QHBoxLayout();
    auto* n = new QLabel(QString::number(number), box);
    n->setFont(Theme::numbers(13));
    n->setStyleSheet(QStringLiteral("color: %1;").arg(Theme::accent().name()));
    head->addWidget(n);
    head->addWidget(textLabel(title, box, 12, Theme::ink(), Theme::Weight::semibold), 1);
    head->addWidget(toggle(QString(), isOn, box));
    box->content()->addLayout(head);
    auto* inner = new QWidget(box);
    body = new QVBoxLayout(inner);
    body->setContentsMargins(0, 4, 0, 0);
    body->setSpacing(8);
    box->add(inner);
    bodies_.emplace_back(inner, isOn);
    add(box);
    return box;
}

EffectsPanel::EffectsPanel(AppModel& model, QWidget* parent)
    : PanelPage(QStringLiteral("Effets automatiques"), parent), model_(model) {
    using E = EffectSettings;
    auto picker = [this](std::function<bool(const EffectSettings&, const Uuid&)> has, std::function<void(int)> toggle) {
        return new CameraPicker(
            model_, QStringLiteral("Caméras concernées"),
            [this, has](int c) {
                auto id = model_.cameraId(c);
                return id && has(model_.effects(), *id);
            },
            std::move(toggle), this);
    };
    // A row of choices on one of the styles of the settings.
    auto choices = [this]<class Style>(const QStringList& items, Style E::*field) {
        return new Segmented(
            items, [this, field] { return int(model_.effects().*field); },
            [this, field](int i) {
                E e = model_.effects();
                e.*field = Style(i);
                model_.setEffects(std::move(e));
            },
            nullptr);
    };
    QVBoxLayout* body = nullptr;

    section(1, QStringLiteral("Zoom et dézoom automatiques"), &E::zoomEnabled, body);
    body->addWidget(picker([](const E& e, const Uuid& id) { return e.zoomCameras.count(id) > 0; },
                           [this](int c) { model_.toggleZoomCamera(c); }));
    body->addWidget(slider(QStringLiteral("Part zoom avant / dézoom"), &E::zoomInShare, 0.05, [](double v) {
        const int in = int(std::lround(v * 100));
        return QStringLiteral("%1 / %2 %").arg(in).arg(100 - in);
    }));
    body->addWidget(slider(QStringLiteral("Force du zoom"), &E::zoomMax, 1, formatter("%.0f %%")));
    body->addWidget(captioned(QStringLiteral("Vitesse"),
                              choices({QStringLiteral("Lent"), QStringLiteral("Rapide")}, &E::zoomStyle), this));
    body->addWidget(toggle(QStringLiteral("Zoom partiel (jamais à fond, plus doux)"), &E::zoomPartial, this));
    partial_ = slider(QStringLiteral("Part du chemin"), &E::zoomPartialAmount, 0.05, nullptr);
    body->addWidget(partial_);
    auto* draw = new WrapButton("dice", QStringLiteral("Tire au sort d'autres zooms avant / arrière"), this);
    connect(draw, &QAbstractButton::clicked, this, [this] { model_.reshuffleEffects(); });
    body->addWidget(draw);

    section(2, QStringLiteral("Mouvement caméra épaule"), &E::shakeEnabled, body);
    body->addWidget(picker([](const E& e, const Uuid& id) { return e.shakeCameras.count(id) > 0; },
                           [this](int c) { model_.toggleShakeCamera(c); }));
    body->addWidget(slider(QStringLiteral("Intensité"), &E::shakeIntensity, 0.05, nullptr));
    body->addWidget(slider(QStringLiteral("Rapidité"), &E::shakeSpeed, 0.05, nullptr));
    body->addWidget(slider(QStringLiteral("Ampleur des mouvements"), &E::shakeExtent, 0.05, nullptr));

    section(3, QStringLiteral("Flou d'objectif"), &E::lensEnabled, body);
    body->addWidget(picker([](const E& e, const Uuid& id) { return e.lensCameras.count(id) > 0; },
                           [this](int c) { model_.toggleEffectCamera(LookKind::lens, c); }));
    body->addWidget(slider(QStringLiteral("Force du flou"), &E::lensAmount, 0.05, nullptr));
    body->addWidget(captioned(QStringLiteral("Rendu"),
                              choices({QStringLiteral("Bokeh"), QStringLiteral("Doux")}, &E::lensStyle), this));
    body->addWidget(captioned(QStringLiteral("Animation"),
                              choices({QStringLiteral("Fixe"), QStringLiteral("Mise au point"),
                                       QStringLiteral("Perte de netteté")},
                                      &E::lensAnimation),
                              this));
    body->addWidget(new PanelNote(QStringLiteral("Mise au point : le plan commence flou et devient net. Perte de "
                                                 "netteté : l'inverse, à la fin du plan."),
                                  this));

    section(4, QStringLiteral("Flou de mouvement"), &E::shutterEnabled, body);
    body->addWidget(picker([](const E& e, const Uuid& id) { return e.shutterCameras.count(id) > 0; },
                           [this](int c) { model_.toggleEffectCamera(LookKind::shutter, c); }));
    body->addWidget(slider(QStringLiteral("Traînée"), &E::shutterTrail, 0.05, nullptr));
    body->addWidget(new ValueSlider(
        QStringLiteral("Saccades"), E::shutterStepRange.min, E::shutterStepRange.max, 1, EffectSettings{}.shutterStep,
        [](double v) {
            const int n = int(std::lround(v));
            return n <= 1 ? QStringLiteral("fluide") : QStringLiteral("image tenue ×%1").arg(n);
        },
        [this] { return double(model_.effects().shutterStep); },
        [this](double v) {
            E e = model_.effects();
            e.shutterStep = int(std::lround(v));
            model_.setEffects(std::move(e));
        },
        this));
    body->addWidget(new PanelNote(QStringLiteral("Comme un obturateur très lent : ce qui bouge laisse une traînée. Les "
                                                 "saccades donnent l'effet « shutter » des clips de soirée."),
                                  this));

    section(5, QStringLiteral("Effet VHS"), &E::vhsEnabled, body);
    body->addWidget(picker([](const E& e, const Uuid& id) { return e.vhsCameras.count(id) > 0; },
                           [this](int c) { model_.toggleEffectCamera(LookKind::vhs, c); }));
    body->addWidget(slider(QStringLiteral("Intensité"), &E::vhsIntensity, 0.05, nullptr));
    body->addWidget(slider(QStringLiteral("Couleurs qui bavent"), &E::vhsChroma, 0.05, nullptr));
    body->addWidget(slider(QStringLiteral("Neige"), &E::vhsNoise, 0.05, nullptr));
    body->addWidget(slider(QStringLiteral("Lignes"), &E::vhsScanlines, 0.05, nullptr));
    body->addWidget(slider(QStringLiteral("Bande de tracking"), &E::vhsTracking, 0.05, nullptr));
    body->addWidget(toggle(QStringLiteral("« PLAY ▶ » et la date à l'écran"), &E::vhsStamp, this));

    auto* foot = new PanelBox(QStringLiteral("Sur un plan précis"), this);
    foot->add(textLabel(QStringLiteral("Sélectionne le plan (clic dans MONTAGE) ou mets-toi dessus, puis :"), foot));
    auto* keys = textLabel(QStringLiteral("Z zoom avant / arrière · E épaule · B flou d'objectif · M flou de mouvement "
                                          "· V VHS · N aucun effet · A automatique"),
                           foot, 11, Theme::accent(), Theme::Weight::medium);
    foot->add(keys);
    foot->add(new PanelNote(QStringLiteral("Zoom, épaule et recadrage arrivent dans Premiere / DaVinci en images-clés "
                                           "modifiables. Les flous, le VHS et l'étalonnage sont rendus par Quorvel : "
                                           "visibles dans l'aperçu et dans la vidéo finie (page EXPORT)."),
                            foot));
    add(foot);
    column_->addStretch(1);
    refresh();
}

void EffectsPanel::refresh() {
    PanelPage::refresh();
    refreshSegmented(widget());
    const EffectSettings& e = model_.effects();
    for (auto& [body, isOn] : bodies_) body->setEnabled(e.*isOn);
    partial_->setVisible(e.zoomPartial);
}

}  // namespace qv::ui
