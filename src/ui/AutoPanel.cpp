// The automatic edit panel: its settings, one weight slider per camera,
// and the buttons that run the edit or draw it again.
#include "ui/AutoPanel.h"

#include <QHBoxLayout>

#include "app/AppModel.h"
#include "ui/Theme.h"
#include "ui/Widgets.h"

namespace qv::ui {

AutoPanel::AutoPanel(AppModel& model, QWidget* parent)
    : PanelPage(QStringLiteral("Quorvel monte tout seul"), parent), model_(model) {
    auto* head = new PanelBox(QString(), this);
    caption_ = textLabel(QString(), head, 12, Theme::ink(), Theme::Weight::semibold);
    range_ = textLabel(QString(), head, 12, Theme::accent(), Theme::Weight::medium);
    range_->setFont(Theme::numbers(12));
    head->add(caption_);
    head->add(range_);
    add(head);

    const AutoSettings defaults;
    auto plan = [this](const QString& title, double AutoSettings::*field, Range range, double neutral) {
        return new ValueSlider(
            title, range.min, range.max, 0.5, neutral, formatter("%.1f s"), [this, field] { return model_.autoSettings().*field; },
            [this, field](double v) {
                AutoSettings a = model_.autoSettings();
                a.*field = v;
                model_.setAutoSettings(std::move(a));
            },
            this);
    };
    auto toggle = [this](const QString& title, bool AutoSettings::*field) {
        return new PanelToggle(
            title, [this, field] { return model_.autoSettings().*field; },
            [this, field](bool on) {
                AutoSettings a = model_.autoSettings();
                a.*field = on;
                model_.setAutoSettings(std::move(a));
            },
            this);
    };
    auto* plans = new PanelBox(QString(), this);
    plans->add(plan(QStringLiteral("Plan le plus court"), &AutoSettings::minPlan, AutoSettings::minPlanRange, defaults.minPlan));
    plans->add(plan(QStringLiteral("Plan le plus long"), &AutoSettings::maxPlan, AutoSettings::maxPlanRange, defaults.maxPlan));
    plans->add(toggle(QStringLiteral("Couper sur les temps forts de la musique"), &AutoSettings::snapToBeat));
    plans->add(toggle(QStringLiteral("Plans plus courts juste après un drop"), &AutoSettings::fasterOnDrops));
    plans->add(toggle(QStringLiteral("Éviter les images inutilisables"), &AutoSettings::avoidUnusable));
    add(plans);

    auto* cameras = new PanelBox(QString(), this);
    cameras->add(new CameraPicker(
        model_, QStringLiteral("Caméras utilisées"),
        [this](int c) {
            auto id = model_.cameraId(c);
            return id && model_.autoSettings().cameras.count(*id) > 0;
        },
        [this](int c) { model_.toggleAutoCamera(c); }, cameras));
    auto* weightsHead = new QHBoxLayout();
    weightsHead->addWidget(textLabel(QStringLiteral("Caméras les plus vues"), cameras, 11), 3);
    auto* equal = new QuorvelButton(QStringLiteral("Égaliser"), QuorvelButton::Kind::outlined, cameras);
    connect(equal, &QAbstractButton::clicked, this, [this] {
        AutoSettings a = model_.autoSettings();
        a.weights.clear();  // every camera at 100 %
        model_.setAutoSettings(std::move(a));
    });
    weightsHead->addWidget(equal, 2);
    cameras->content()->addLayout(weightsHead);
    weights_ = new QVBoxLayout();
    weights_->setSpacing(6);
    cameras->content()->addLayout(weights_);
    add(cameras);

    for (const char* note :
         {"Il enchaîne des plans de durée aléatoire sur des caméras tirées au sort : jamais deux fois la même de suite, "
          "seulement des caméras qui filment, et un plan s'arrête avant que sa caméra ne coupe.",
          "Le pourcentage = part du temps à l'écran visée. 0 % = jamais (sauf si c'est la seule caméra qui filme).",
          "Règle la plage avec les repères I et O (ou « Monter ce drop »). Les coupes hors de la plage ne bougent pas.",
          "Tu peux ensuite retoucher à la main (1 à 8, C, ⌫…). Ctrl+Z annule le montage auto."})
        add(new PanelNote(QString::fromUtf8(note), this));

    auto* run = new QuorvelButton(QStringLiteral("GÉNÉRER LE MONTAGE AUTO"), QuorvelButton::Kind::main, this);
    connect(run, &QAbstractButton::clicked, this, [this] { model_.runAuto(false); });
    add(run);
    auto* redraw = new WrapButton("dice", QStringLiteral("Nouveau tirage"), this);
    connect(redraw, &QAbstractButton::clicked, this, [this] { model_.runAuto(true); });
    add(redraw);
    column_->addStretch(1);
    refresh();
}

QString AutoPanel::caption() const {
    const bool marked = model_.inPoint() || model_.outPoint();
    return marked ? QStringLiteral("Sur la plage d'export") : QStringLiteral("Sur tout le set");
}

void AutoPanel::rebuildWeights() {
    const int count = model_.cameraCount();
    if (count == weightRows_) return;
    weightRows_ = count;
    clearLayout(weights_);
    for (int c = 0; c < count; ++c)
        weights_->addWidget(new ValueSlider(
            QString::fromStdString(model_.cameraName(c)), AutoSettings::weightRange.min, AutoSettings::weightRange.max, 1,
            100, formatter("%.0f %%"),
            [this, c] {
                auto id = model_.cameraId(c);
                if (!id) return 100.0;
                auto it = model_.autoSettings().weights.find(*id);
                return it == model_.autoSettings().weights.end() ? 100.0 : it->second;
            },
            [this, c](double v) {
                auto id = model_.cameraId(c);
                if (!id) return;
                AutoSettings a = model_.autoSettings();
                a.weights[*id] = v;
                model_.setAutoSettings(std::move(a));
            },
            this));
}

void AutoPanel::refresh() {
    rebuildWeights();
    PanelPage::refresh();
    caption_->setText(caption());
    range_->setText(rangeText(model_.edit().exportRange()));
}

}  // namespace qv::ui
