#include "ui/Panels.h"

#include <QCheckBox>
#include <QDir>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QMenu>
#include <QPainter>
#include <QPushButton>

#include "app/AppModel.h"
#include "base/Format.h"
#include "diagnostics/Log.h"
#include "ui/ColorPanel.h"
#include "ui/DropClipsBox.h"
#include "ui/MainWindow.h"
#include "ui/QtPorts.h"
#include "ui/Theme.h"
#include "ui/Widgets.h"

#ifndef QUORVEL_VERSION
#define QUORVEL_VERSION "0.1"
#endif

namespace qv::ui {

namespace {

QString q(const std::string& s) { return QString::fromStdString(s); }

QLabel* textLabel(const QString& text, QWidget* parent, double size = 11, const QColor& color = Theme::gray1(),
                  Theme::Weight weight = Theme::Weight::regular) {
    QLabel* l = makeLabel(text, Theme::text(size, weight), color, parent);
    l->setWordWrap(true);
    return l;
}

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

// A caption over a control.
QWidget* captioned(const QString& caption, QWidget* control, QWidget* parent) {
    auto* w = new QWidget(parent);
    auto* column = new QVBoxLayout(w);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(4);
    column->addWidget(textLabel(caption, w, 11));
    control->setParent(w);
    column->addWidget(control);
    return w;
}

QAbstractButton* symbolButton(const char* symbol, const QString& text, QWidget* parent) {
    return new WrapButton(symbol, text, parent);
}

QString rangeText(const TimeRange& r) {
    return q(Format::timecode(r.start) + " → " + Format::timecode(r.end) + " · " + Format::duration(r.end - r.start));
}

void refreshSegmented(QWidget* root) {
    for (QWidget* w : root->findChildren<QWidget*>())
        if (auto* s = dynamic_cast<Segmented*>(w)) s->refresh();
}

}  // namespace

// --- Sound

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
                [this](bool on) {
                    AudioSettings a = model_.audio();
                    a.cutFade = on;
                    model_.setAudio(a);
                },
                box);
            box->add(cutFade_);
        }
    }
    add(box);

    auto* levels = new PanelBox(QString(), this);
    levels->add(new ValueSlider(
        QStringLiteral("Fondu quand une caméra se coupe"), 0, 3, 0.25, 0,
        [](double v) { return v <= 0 ? QStringLiteral("aucun") : formatValue("%.2g s", v); },
        [this] { return model_.audio().rushFade; },
        [this](double v) {
            AudioSettings a = model_.audio();
            a.rushFade = v;
            model_.setAudio(a);
        },
        levels));
    levels->add(new PanelNote(QStringLiteral("Le son d'une caméra monte quand elle se met à filmer et descend quand elle "
                                             "s'arrête. Le son de table n'a pas de fondu."),
                              levels));
    levels->add(new ValueSlider(
        QStringLiteral("Volume général"), -20, 6, 0.5, 0, formatter("%+.1f dB"),
        [this] { return model_.audio().masterDb; },
        [this](double v) {
            AudioSettings a = model_.audio();
            a.masterDb = v;
            model_.setAudio(a);
        },
        levels));
    levels->add(new PanelNote(QStringLiteral("Le volume de chaque piste se règle dans la timeline, devant la piste."), levels));
    add(levels);
    add(new PanelNote(QStringLiteral("Jamais de fondu au tout début ni à la toute fin de l'export."), this));
    column_->addStretch(1);
    refresh();
}

void SoundPanel::refresh() {
    PanelPage::refresh();
    for (ChoiceRow* row : modes_) row->setOn(row->property("mode").toInt() == int(model_.audio().mode));
    cutFade_->setVisible(model_.audio().mode == AudioSettings::Mode::camera);
}

// --- Effects

ValueSlider* EffectsPanel::slider(const QString& title, double EffectSettings::*field, double min, double max,
                                  double step, Formatter text) {
    const EffectSettings defaults;
    return new ValueSlider(
        title, min, max, step, defaults.*field, text ? std::move(text) : percentOfFraction,
        [this, field] { return model_.effects().*field; },
        [this, field](double v) {
            EffectSettings e = model_.effects();
            e.*field = v;
            model_.setEffects(std::move(e));
        },
        this);
}

QWidget* EffectsPanel::section(int number, const QString& title, bool EffectSettings::*isOn, QVBoxLayout*& body) {
    auto* box = new PanelBox(QString(), this);
    auto* head = new QHBoxLayout();
    auto* n = new QLabel(QString::number(number), box);
    n->setFont(Theme::numbers(13));
    n->setStyleSheet(QStringLiteral("color: %1;").arg(Theme::accent().name()));
    head->addWidget(n);
    head->addWidget(textLabel(title, box, 12, Theme::ink(), Theme::Weight::semibold), 1);
    auto* on = new PanelToggle(
        QString(), [this, isOn] { return model_.effects().*isOn; },
        [this, isOn](bool v) {
            EffectSettings e = model_.effects();
            e.*isOn = v;
            model_.setEffects(std::move(e));
        },
        box);
    head->addWidget(on);
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
    QVBoxLayout* body = nullptr;

    section(1, QStringLiteral("Zoom et dézoom automatiques"), &E::zoomEnabled, body);
    body->addWidget(picker([](const E& e, const Uuid& id) { return e.zoomCameras.count(id) > 0; },
                           [this](int c) { model_.toggleZoomCamera(c); }));
    body->addWidget(slider(QStringLiteral("Part zoom avant / dézoom"), &E::zoomInShare, 0, 1, 0.05, [](double v) {
        const int in = int(std::lround(v * 100));
        return QStringLiteral("%1 / %2 %").arg(in).arg(100 - in);
    }));
    body->addWidget(slider(QStringLiteral("Force du zoom"), &E::zoomMax, 102, 140, 1, formatter("%.0f %%")));
    auto* speed = new Segmented(
        {QStringLiteral("Lent"), QStringLiteral("Rapide")}, [this] { return int(model_.effects().zoomStyle); },
        [this](int i) {
            E e = model_.effects();
            e.zoomStyle = E::ZoomStyle(i);
            model_.setEffects(std::move(e));
        },
        nullptr);
    body->addWidget(captioned(QStringLiteral("Vitesse"), speed, this));
    body->addWidget(new PanelToggle(
        QStringLiteral("Zoom partiel (jamais à fond, plus doux)"), [this] { return model_.effects().zoomPartial; },
        [this](bool on) {
            E e = model_.effects();
            e.zoomPartial = on;
            model_.setEffects(std::move(e));
        },
        this));
    partial_ = slider(QStringLiteral("Part du chemin"), &E::zoomPartialAmount, 0.2, 0.9, 0.05, nullptr);
    body->addWidget(partial_);
    auto* draw = symbolButton("dice", QStringLiteral("Tire au sort d'autres zooms avant / arrière"), this);
    connect(draw, &QAbstractButton::clicked, this, [this] { model_.reshuffleEffects(); });
    body->addWidget(draw);

    section(2, QStringLiteral("Mouvement caméra épaule"), &E::shakeEnabled, body);
    body->addWidget(picker([](const E& e, const Uuid& id) { return e.shakeCameras.count(id) > 0; },
                           [this](int c) { model_.toggleShakeCamera(c); }));
    body->addWidget(slider(QStringLiteral("Intensité"), &E::shakeIntensity, 0, 1, 0.05, nullptr));
    body->addWidget(slider(QStringLiteral("Rapidité"), &E::shakeSpeed, 0, 1, 0.05, nullptr));
    body->addWidget(slider(QStringLiteral("Ampleur des mouvements"), &E::shakeExtent, 0, 1, 0.05, nullptr));

    section(3, QStringLiteral("Flou d'objectif"), &E::lensEnabled, body);
    body->addWidget(picker([](const E& e, const Uuid& id) { return e.lensCameras.count(id) > 0; },
                           [this](int c) { model_.toggleEffectCamera(LookKind::lens, c); }));
    body->addWidget(slider(QStringLiteral("Force du flou"), &E::lensAmount, 0, 1, 0.05, nullptr));
    body->addWidget(captioned(QStringLiteral("Rendu"),
                              new Segmented(
                                  {QStringLiteral("Bokeh"), QStringLiteral("Doux")},
                                  [this] { return int(model_.effects().lensStyle); },
                                  [this](int i) {
                                      E e = model_.effects();
                                      e.lensStyle = E::LensStyle(i);
                                      model_.setEffects(std::move(e));
                                  },
                                  nullptr),
                              this));
    body->addWidget(captioned(QStringLiteral("Animation"),
                              new Segmented(
                                  {QStringLiteral("Fixe"), QStringLiteral("Mise au point"),
                                   QStringLiteral("Perte de netteté")},
                                  [this] { return int(model_.effects().lensAnimation); },
                                  [this](int i) {
                                      E e = model_.effects();
                                      e.lensAnimation = E::LensAnimation(i);
                                      model_.setEffects(std::move(e));
                                  },
                                  nullptr),
                              this));
    body->addWidget(new PanelNote(QStringLiteral("Mise au point : le plan commence flou et devient net. Perte de "
                                                 "netteté : l'inverse, à la fin du plan."),
                                  this));

    section(4, QStringLiteral("Flou de mouvement"), &E::shutterEnabled, body);
    body->addWidget(picker([](const E& e, const Uuid& id) { return e.shutterCameras.count(id) > 0; },
                           [this](int c) { model_.toggleEffectCamera(LookKind::shutter, c); }));
    body->addWidget(slider(QStringLiteral("Traînée"), &E::shutterTrail, 0.1, 0.95, 0.05, nullptr));
    body->addWidget(new ValueSlider(
        QStringLiteral("Saccades"), 1, 4, 1, EffectSettings{}.shutterStep,
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
    body->addWidget(slider(QStringLiteral("Intensité"), &E::vhsIntensity, 0, 1, 0.05, nullptr));
    body->addWidget(slider(QStringLiteral("Couleurs qui bavent"), &E::vhsChroma, 0, 1, 0.05, nullptr));
    body->addWidget(slider(QStringLiteral("Neige"), &E::vhsNoise, 0, 1, 0.05, nullptr));
    body->addWidget(slider(QStringLiteral("Lignes"), &E::vhsScanlines, 0, 1, 0.05, nullptr));
    body->addWidget(slider(QStringLiteral("Bande de tracking"), &E::vhsTracking, 0, 1, 0.05, nullptr));
    body->addWidget(new PanelToggle(
        QStringLiteral("« PLAY ▶ » et la date à l'écran"), [this] { return model_.effects().vhsStamp; },
        [this](bool on) {
            E e = model_.effects();
            e.vhsStamp = on;
            model_.setEffects(std::move(e));
        },
        this));

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

// --- Automatic edit

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
    auto plan = [this](const QString& title, double AutoSettings::*field, double max, double neutral) {
        return new ValueSlider(
            title, 0.5, max, 0.5, neutral, formatter("%.1f s"), [this, field] { return model_.autoSettings().*field; },
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
    plans->add(plan(QStringLiteral("Plan le plus court"), &AutoSettings::minPlan, 15, defaults.minPlan));
    plans->add(plan(QStringLiteral("Plan le plus long"), &AutoSettings::maxPlan, 30, defaults.maxPlan));
    plans->add(toggle(QStringLiteral("Couper sur les temps forts de la musique"), &AutoSettings::snapToBeat));
    plans->add(toggle(QStringLiteral("Plans plus courts juste après un drop"), &AutoSettings::fasterOnDrops));
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
    auto* redraw = symbolButton("dice", QStringLiteral("Nouveau tirage"), this);
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
            q(model_.cameraName(c)), 0, 100, 1, 100, formatter("%.0f %%"),
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

// --- Drops

DropsPanel::DropsPanel(AppModel& model, QWidget* parent)
    : PanelPage(QStringLiteral("Drops repérés"), parent), model_(model) {
    add(new PanelNote(QStringLiteral("Quorvel écoute les basses du set : un drop, c'est le moment où elles reviennent "
                                     "fort après un passage plus calme. Touche D : drop suivant (⇧D : précédent)."),
                      this));
    auto* box = new PanelBox(QString(), this);
    auto* sensitivity = new ValueSlider(
        QStringLiteral("Sensibilité"), 0, 1, 0.05, 0.5, percentOfFraction, [this] { return model_.dropSensitivity(); },
        [this](double v) { model_.setDropSensitivity(v); }, box);
    box->add(sensitivity);
    box->add(new PanelNote(QStringLiteral("Plus haut = trouve aussi les drops moins marqués."), box));
    box->add(new ValueSlider(
        QStringLiteral("Garder avant le drop"), 2, 60, 1, 15, formatter("%.0f s"), [this] { return model_.dropPre(); },
        [this](double v) { model_.setDropMargins(v, model_.dropPost()); }, box));
    box->add(new ValueSlider(
        QStringLiteral("Garder après le drop"), 5, 120, 1, 30, formatter("%.0f s"), [this] { return model_.dropPost(); },
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
        auto* time = new QLabel(q(Format::timecode(drop.time)), row);
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

// --- Crop

CameraFrame CropPanel::frame() const {
    if (auto id = model_.cameraId(model_.editedCamera())) {
        auto it = model_.framing().find(*id);
        if (it != model_.framing().end()) return it->second;
    }
    return {};
}

void CropPanel::setFrame(CameraFrame f) { model_.setFraming(f, model_.editedCamera()); }

CropPanel::CropPanel(AppModel& model, QWidget* parent)
    : PanelPage(QStringLiteral("Caméra à recadrer"), parent), model_(model) {
    add(new CameraTabs(model_, this));
    auto percent = [](double v) { return formatValue("%.0f %%", v); };
    auto* zoomBox = new PanelBox(QStringLiteral("Zoom"), this);
    zoomBox->add(new ValueSlider(
        QStringLiteral("Zoom dans l'image"), 100, 400, 5, 100, percent, [this] { return frame().zoom * 100; },
        [this](double v) {
            CameraFrame f = frame();
            f.zoom = v / 100;
            setFrame(f);
        },
        zoomBox));
    add(zoomBox);

    auto* position = new PanelBox(QStringLiteral("Position"), this);
    x_ = new ValueSlider(
        QStringLiteral("Gauche ↔ droite"), -100, 100, 1, 0, percent, [this] { return frame().x * 100; },
        [this](double v) {
            CameraFrame f = frame();
            f.x = v / 100;
            setFrame(f);
        },
        position);
    y_ = new ValueSlider(
        QStringLiteral("Haut ↔ bas"), -100, 100, 1, 0, percent, [this] { return frame().y * 100; },
        [this](double v) {
            CameraFrame f = frame();
            f.y = v / 100;
            setFrame(f);
        },
        position);
    position->add(x_);
    position->add(y_);
    auto buttons = [this, position](const QString& caption, const std::array<QString, 3>& names, bool vertical) {
        auto* group = new QWidget(position);
        auto* row = new QHBoxLayout(group);
        row->setContentsMargins(0, 0, 0, 0);
        row->setSpacing(4);
        auto* label = textLabel(caption, group, 10, Theme::gray3());
        label->setMinimumWidth(70);
        row->addWidget(label);
        const double places[] = {-0.5, 0, 0.5};
        for (int i = 0; i < 3; ++i) {
            auto* b = new QuorvelButton(names[size_t(i)], QuorvelButton::Kind::outlined, group);
            b->setFont(Theme::text(9, Theme::Weight::bold, 1));
            connect(b, &QAbstractButton::clicked, this, [this, vertical, v = places[i]] {
                CameraFrame f = frame();
                (vertical ? f.y : f.x) = v;
                setFrame(f);
            });
            row->addWidget(b, 1);
        }
        position->add(group);
        return group;
    };
    horizontal_ = buttons(QStringLiteral("Horizontale"), {QStringLiteral("Gauche"), QStringLiteral("Centre"),
                                                          QStringLiteral("Droite")},
                          false);
    vertical_ = buttons(QStringLiteral("Verticale"), {QStringLiteral("Haut"), QStringLiteral("Centre"),
                                                      QStringLiteral("Bas")},
                        true);
    add(position);
    fullFrame_ = new PanelNote(QStringLiteral("Monte un peu le zoom pour pouvoir déplacer l'image dans ce sens (à 100 %, "
                                              "toute l'image est déjà dans le cadre)."),
                               this);
    add(fullFrame_);
    auto* reset = symbolButton("arrow.counterclockwise", QStringLiteral("Remettre à zéro"), this);
    connect(reset, &QAbstractButton::clicked, this, [this] { model_.resetCrop(model_.editedCamera()); });
    add(reset);
    add(new PanelNote(QStringLiteral("Tu peux aussi glisser le cadre jaune directement sur la vignette de la caméra. Le "
                                     "recadrage vaut pour toute la caméra, dans tous les formats ; il arrive dans "
                                     "Premiere et DaVinci en Échelle / Position modifiables."),
                      this));
    column_->addStretch(1);
    refresh();
}

void CropPanel::refresh() {
    PanelPage::refresh();
    const int camera = model_.editedCamera();
    const bool canX = model_.cropCanMove(camera, false), canY = model_.cropCanMove(camera, true);
    x_->setEnabled(canX);
    horizontal_->setEnabled(canX);
    y_->setEnabled(canY);
    vertical_->setEnabled(canY);
    fullFrame_->setVisible(frame().zoom <= 1.0005 && (!canX || !canY));
}

// --- Export

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
    progress_ = new ExportProgress(model_.videoExporter(), this);
    add(progress_);
    syncXml_ = symbolButton("square.and.arrow.up",
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
                             .arg(s.exportFolderPath() ? q(s.exportFolder().filename().string())
                                                       : QStringLiteral("Téléchargements")));
    main_->setText(mainButtonText());
    main_->setEnabled(model_.player() != nullptr);
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
    const bool running = model_.videoExporter() && model_.videoExporter()->isRunning();
    main_->setVisible(!running);
    progress_->setVisible(running);
    if (running) progress_->refresh();
}

// --- Settings

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
    target_ = menuButton(exportBox);
    QMenu* targets = static_cast<QPushButton*>(target_)->menu();
    for (ExportTarget t : allExportTargets)
        targets->addAction(QString::fromUtf8(rawValue(t)), this, [this, t] {
            model_.settings().setExportTarget(t);
            refresh();
        });
    exportBox->add(captioned(QStringLiteral("Export par défaut"), target_, exportBox));
    exportBox->add(toggle(exportBox, QStringLiteral("Demander où enregistrer à chaque export"),
                          &AppSettings::askWhereToSave, &AppSettings::setAskWhereToSave));
    exportBox->add(toggle(exportBox, QStringLiteral("XML : une piste vidéo par caméra"), &AppSettings::trackPerCamera,
                          &AppSettings::setTrackPerCamera));
    exportBox->add(toggle(exportBox, QStringLiteral("XML : LUT .cube de chaque caméra étalonnée"),
                          &AppSettings::exportLUTs, &AppSettings::setExportLUTs));
    codec_ = menuButton(exportBox);
    QMenu* codecs = static_cast<QPushButton*>(codec_)->menu();
    for (VideoCodec c : {VideoCodec::hevc, VideoCodec::prores, VideoCodec::h264})
        codecs->addAction(QString::fromUtf8(rawValue(c)), this, [this, c] {
            model_.settings().setVideoCodec(c);
            refresh();
        });
    exportBox->add(captioned(QStringLiteral("Codec de la vidéo finie"), codec_, exportBox));
    loudness_ = menuButton(exportBox);
    QMenu* levels = static_cast<QPushButton*>(loudness_)->menu();
    for (OutputLoudness l : allOutputLoudness)
        levels->addAction(QString::fromUtf8(rawValue(l)), this, [this, l] {
            model_.settings().setOutputLoudness(l);
            refresh();
        });
    exportBox->add(captioned(QStringLiteral("Volume de sortie"), loudness_, exportBox));
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
        std::unique_ptr<QFileDialog> dialog(exportFolderDialog(this, q(model_.settings().exportFolder().string())));
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
    folder_->setText(shortPath(q(s.exportFolder().string())));
}

// --- The right side

QFileDialog* exportFolderDialog(QWidget* parent, const QString& start) {
    auto* dialog = new QFileDialog(parent, QStringLiteral("Dossier où Quorvel enregistre les exports"), start);
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly, true);
    dialog->setLabelText(QFileDialog::Accept, QStringLiteral("Choisir"));
    return dialog;
}

PanelPage* makePanel(RightPanel panel, AppModel& model, QWidget* parent) {
    switch (panel) {
        case RightPanel::none: return nullptr;
        case RightPanel::sound: return new SoundPanel(model, parent);
        case RightPanel::effects: return new EffectsPanel(model, parent);
        case RightPanel::drops: return new DropsPanel(model, parent);
        case RightPanel::automatic: return new AutoPanel(model, parent);
        case RightPanel::color: return new ColorPanel(model, parent);
        case RightPanel::crop: return new CropPanel(model, parent);
        case RightPanel::exportPanel: return new ExportPanel(model, parent);
        case RightPanel::settings: return new SettingsPanel(model, parent);
    }
    return nullptr;
}

SidePanel::SidePanel(AppModel& model, ModelObject& object, QWidget* parent) : QWidget(parent), model_(model) {
    setFixedWidth(width);
    setAutoFillBackground(true);
    QPalette p = palette();
    p.setColor(QPalette::Window, Theme::paper());
    setPalette(p);
    layout_ = new QVBoxLayout(this);
    layout_->setContentsMargins(1, 0, 0, 0);
    connect(&object, &ModelObject::changed, this, &SidePanel::refresh);
    refresh();
}

void SidePanel::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.fillRect(rect(), Theme::paper());
    p.fillRect(QRect(0, 0, 1, height()), Theme::line());
}

void SidePanel::refresh() {
    const RightPanel wanted = model_.rightPanel();
    if (wanted != shown_ || (!page_ && wanted != RightPanel::none)) {
        shown_ = wanted;
        delete page_.data();
        page_ = makePanel(wanted, model_, this);
        if (page_) layout_->addWidget(page_);
    } else if (page_) {
        page_->refresh();
    }
    setVisible(page_ != nullptr);
}

}  // namespace qv::ui
