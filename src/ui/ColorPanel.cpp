#include "ui/ColorPanel.h"

#include <QHBoxLayout>
#include <QMenu>
#include <QPainter>

#include "app/AppModel.h"
#include "ui/Theme.h"
#include "ui/WheelControl.h"
#include "ui/Widgets.h"

namespace qv::ui {

namespace {

QString q(const std::string& s) { return QString::fromStdString(s); }

// The head of a folding section: a chevron and the title.
class SectionHead : public QAbstractButton {
public:
    SectionHead(const QString& title, QWidget* parent) : QAbstractButton(parent) {
        setText(title);
        setCheckable(true);
        setCursor(Qt::PointingHandCursor);
        setFocusPolicy(Qt::NoFocus);
        setFixedHeight(32);
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.fillRect(QRect(0, height() - 1, width(), 1), Theme::line());
        Theme::drawSymbol(p, QRectF(0, 0, 20, height()), isChecked() ? "chevron.down" : "chevron.right", 16,
                          isChecked() ? Theme::accent() : Theme::gray3());
        p.setFont(Theme::text(12, Theme::Weight::semibold));
        p.setPen(underMouse() || isChecked() ? Theme::ink() : Theme::gray1());
        p.drawText(QRectF(24, 0, width() - 24, height()), Qt::AlignVCenter | Qt::AlignLeft, text());
    }
};

QLabel* subheading(const QString& text, QWidget* parent) {
    auto* l = new QLabel(text.toUpper(), parent);
    l->setFont(Theme::text(9, Theme::Weight::semibold, 1.4));
    l->setStyleSheet(QStringLiteral("color: %1; padding-top: 4px;").arg(Theme::gray4().name()));
    return l;
}

QAbstractButton* smallButton(const char* symbol, const QString& text, QWidget* parent) {
    auto* b = new SymbolButton(symbol, 14, parent);
    b->setText(text);
    b->setBoxed(true);
    b->setMinimumHeight(28);
    return b;
}

}  // namespace

ColorGrade ColorPanel::grade() const { return model_.grade(model_.editedCamera()); }

void ColorPanel::setGrade(const ColorGrade& g) { model_.setGrade(g, model_.editedCamera()); }

QVBoxLayout* ColorPanel::section(const QString& id, const QString& title) {
    auto* head = new SectionHead(title, widget());
    auto* body = new QWidget(widget());
    auto* layout = new QVBoxLayout(body);
    layout->setContentsMargins(4, 4, 0, 8);
    layout->setSpacing(8);
    connect(head, &QAbstractButton::clicked, this, [this, id](bool on) { setSectionOpen(id, on); });
    add(head);
    add(body);
    sections_.push_back({id, head, body});
    return layout;
}

void ColorPanel::setSectionOpen(const QString& id, bool open) {
    if (open)
        open_.insert(id);
    else
        open_.erase(id);
    for (const Section& s : sections_)
        if (s.id == id) {
            const QSignalBlocker block(s.head);
            s.head->setChecked(open);
            s.body->setVisible(open);
        }
}

ValueSlider* ColorPanel::slider(QVBoxLayout* into, const QString& title, double ColorGrade::*field, double step,
                                double neutral, const char* format) {
    // The range is the grade's own, the one its files are held to.
    const Range range = ColorGrade::rangeOf(field);
    auto* s = new ValueSlider(
        title, range.min, range.max, step, neutral, formatter(format), [this, field] { return grade().*field; },
        [this, field](double v) {
            ColorGrade g = grade();
            g.*field = v;
            setGrade(g);
        },
        into->parentWidget());
    s->setObjectName(title);
    into->addWidget(s);
    return s;
}

QWidget* ColorPanel::wheel(const QString& caption, ColorWheel ColorGrade::*field, bool withLuma, double size) {
    auto* box = new QWidget(widget());
    auto* column = new QVBoxLayout(box);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(2);
    auto* w = new WheelControl(
        caption, [this, field] { return grade().*field; },
        [this, field](const ColorWheel& v) {
            ColorGrade g = grade();
            g.*field = v;
            setGrade(g);
        },
        size, box);
    column->addWidget(w, 0, Qt::AlignHCenter);
    if (withLuma) {
        auto* luma = new ValueSlider(
            QStringLiteral("Luminosité"), limits::signedPercent.min, limits::signedPercent.max, 1, 0, formatter("%+.0f"), [this, field] { return (grade().*field).luma; },
            [this, field](double v) {
                ColorGrade g = grade();
                (g.*field).luma = v;
                setGrade(g);
            },
            box);
        luma->setToolTip(QStringLiteral("Luminosité de cette zone. Double-clic : remettre à 0"));
        column->addWidget(luma);
    }
    return box;
}

ColorPanel::ColorPanel(AppModel& model, QWidget* parent) : PanelPage(QString(), parent), model_(model) {
    add(new QuorvelLabel(QStringLiteral("Caméra à étalonner"), widget()));
    add(new CameraTabs(model_, widget()));
    auto* actions = new QHBoxLayout();
    reset_ = smallButton("arrow.counterclockwise", QStringLiteral("Remettre à zéro"), widget());
    copy_ = smallButton("square.on.square", QStringLiteral("Copier sur toutes"), widget());
    connect(reset_, &QAbstractButton::clicked, this, [this] { setGrade(ColorGrade::neutral); });
    connect(copy_, &QAbstractButton::clicked, this, [this] { model_.copyGradeToAll(model_.editedCamera()); });
    actions->addWidget(reset_);
    actions->addWidget(copy_);
    actions->addStretch(1);
    column_->addLayout(actions);
    add(new PanelNote(QStringLiteral("L'étalonnage se voit dans l'aperçu et dans la vidéo finie. Pour Premiere / DaVinci, "
                                     "l'export XML ajoute une LUT .cube par caméra."),
                      widget()));

    using G = ColorGrade;
    QVBoxLayout* base = section(QStringLiteral("base"), QStringLiteral("Correction de base"));
    base->addWidget(subheading(QStringLiteral("Balance des blancs"), widget()));
    slider(base, QStringLiteral("Température"), &G::temperature, 1, 0, "%+.0f");
    slider(base, QStringLiteral("Teinte"), &G::tint, 1, 0, "%+.0f");
    base->addWidget(subheading(QStringLiteral("Ton"), widget()));
    slider(base, QStringLiteral("Exposition"), &G::exposure, 0.05, 0, "%+.2f");
    slider(base, QStringLiteral("Contraste"), &G::contrast, 1, 0, "%+.0f");
    slider(base, QStringLiteral("Tons clairs"), &G::highlights, 1, 0, "%+.0f");
    slider(base, QStringLiteral("Tons foncés"), &G::shadows, 1, 0, "%+.0f");
    slider(base, QStringLiteral("Blancs"), &G::whites, 1, 0, "%+.0f");
    slider(base, QStringLiteral("Noirs"), &G::blacks, 1, 0, "%+.0f");
    slider(base, QStringLiteral("Saturation"), &G::saturation, 1, 100, "%.0f");

    QVBoxLayout* creative = section(QStringLiteral("creatif"), QStringLiteral("Créatif"));
    creative->addWidget(subheading(QStringLiteral("Look (LUT .cube)"), widget()));
    lutMenu_ = menuButton(widget());
    creative->addWidget(lutMenu_);
    lutIntensity_ = slider(creative, QStringLiteral("Intensité du look"), &G::lutIntensity, 1, 100, "%.0f");
    slider(creative, QStringLiteral("Film délavé"), &G::fadedFilm, 1, 0, "%.0f");
    slider(creative, QStringLiteral("Netteté"), &G::sharpen, 1, 0, "%+.0f");
    slider(creative, QStringLiteral("Vibrance"), &G::vibrance, 1, 0, "%+.0f");
    slider(creative, QStringLiteral("Saturation"), &G::creativeSaturation, 1, 100, "%.0f");
    auto* tints = new QHBoxLayout();
    tints->addWidget(wheel(QStringLiteral("Teinte tons foncés"), &G::shadowTint, false, 84));
    tints->addWidget(wheel(QStringLiteral("Teinte tons clairs"), &G::highlightTint, false, 84));
    creative->addLayout(tints);

    QVBoxLayout* wheels = section(QStringLiteral("roues"), QStringLiteral("Roues chromatiques"));
    auto* zones = new QHBoxLayout();
    zones->setSpacing(6);
    zones->addWidget(wheel(QStringLiteral("Tons foncés"), &G::wheelShadows, true, 78));
    zones->addWidget(wheel(QStringLiteral("Tons moyens"), &G::wheelMidtones, true, 78));
    zones->addWidget(wheel(QStringLiteral("Tons clairs"), &G::wheelHighlights, true, 78));
    wheels->addLayout(zones);
    wheels->addWidget(new PanelNote(
        QStringLiteral("Glisse le point vers une couleur pour teinter. Double-clic sur une roue : remise à zéro."), widget()));

    QVBoxLayout* vignette = section(QStringLiteral("vignette"), QStringLiteral("Vignette"));
    slider(vignette, QStringLiteral("Quantité"), &G::vignette, 0.05, 0, "%+.1f");
    slider(vignette, QStringLiteral("Milieu"), &G::vignetteMidpoint, 1, 50, "%.0f");
    slider(vignette, QStringLiteral("Contour progressif"), &G::vignetteFeather, 1, 50, "%.0f");

    QVBoxLayout* texture = section(QStringLiteral("texture"), QStringLiteral("Texture et grain"));
    slider(texture, QStringLiteral("Texture"), &G::texture, 1, 0, "%+.0f");
    slider(texture, QStringLiteral("Grain"), &G::grain, 1, 0, "%.0f");
    grainSize_ = slider(texture, QStringLiteral("Taille du grain"), &G::grainSize, 1, 25, "%.0f");
    grainRoughness_ = slider(texture, QStringLiteral("Rugosité"), &G::grainRoughness, 1, 50, "%.0f");

    QVBoxLayout* presets = section(QStringLiteral("presets"), QStringLiteral("Préréglages"));
    auto* nameRow = new QHBoxLayout();
    presetName_ = new QLineEdit(widget());
    presetName_->setPlaceholderText(QStringLiteral("Nom du préréglage"));
    nameRow->addWidget(presetName_, 3);
    savePreset_ = new QuorvelButton(QStringLiteral("Enregistrer"), QuorvelButton::Kind::main, widget());
    connect(presetName_, &QLineEdit::textChanged, this,
            [this](const QString& t) { savePreset_->setEnabled(!t.trimmed().isEmpty()); });
    connect(savePreset_, &QAbstractButton::clicked, this, [this] {
        const QString name = presetName_->text().trimmed();
        if (name.isEmpty()) return;
        auto saved = LookLibrary::save({name.toStdString(), grade()});
        model_.showToast(saved ? "Préréglage « " + name.toStdString() + " » enregistré" : saved.error().message);
        presetName_->clear();
        reloadLibrary();
    });
    nameRow->addWidget(savePreset_, 2);
    presets->addLayout(nameRow);
    auto* io = new QHBoxLayout();
    auto* import = smallButton("square.and.arrow.down", QStringLiteral("Importer"), widget());
    auto* exportCube = smallButton("square.and.arrow.up", QStringLiteral("Exporter en .cube"), widget());
    connect(import, &QAbstractButton::clicked, this, [this] {
        model_.importPresets();
        reloadLibrary();
    });
    connect(exportCube, &QAbstractButton::clicked, this, [this] { model_.exportCube(model_.editedCamera()); });
    io->addWidget(import);
    io->addWidget(exportCube);
    io->addStretch(1);
    presets->addLayout(io);
    auto* list = new QWidget(widget());
    presetList_ = new QVBoxLayout(list);
    presetList_->setContentsMargins(0, 0, 0, 0);
    presetList_->setSpacing(4);
    presets->addWidget(list);
    presets->addWidget(new PanelNote(QStringLiteral("Depuis Premiere : Lumetri › menu ≡ › « Exporter .cube », puis "
                                                    "Importer ici. Le .cube garde les couleurs ; netteté, vignette, "
                                                    "texture et grain restent dans Quorvel."),
                                     widget()));
    column_->addStretch(1);

    for (const Section& s : sections_) setSectionOpen(s.id, s.id == "base" || s.id == "creatif");
    savePreset_->setEnabled(false);
    reloadLibrary();
}

void ColorPanel::reloadLibrary() {
    luts_ = LookLibrary::luts();
    presets_ = LookLibrary::presets();
    rebuildPresets();
    refresh();
}

void ColorPanel::rebuildPresets() {
    clearLayout(presetList_);
    QWidget* parent = presetList_->parentWidget();
    if (presets_.empty()) {
        presetList_->addWidget(new PanelNote(QStringLiteral("Aucun préréglage. Enregistre l'étalonnage de cette caméra, ou "
                                                            "importe des .cube (Premiere, DaVinci…) ou des .quorvellook."),
                                             parent));
        return;
    }
    for (const LookLibrary::Preset& preset : presets_) {
        auto* row = new QWidget(parent);
        auto* line = new QHBoxLayout(row);
        line->setContentsMargins(0, 0, 0, 0);
        auto* icon = new QLabel(Theme::symbol("paintpalette.fill"), row);
        icon->setFont(Theme::iconFont(15));
        icon->setStyleSheet(QStringLiteral("color: %1;").arg(Theme::accent().name()));
        line->addWidget(icon);
        auto* name = new QLabel(q(preset.name), row);
        name->setFont(Theme::text(11, Theme::Weight::medium));
        line->addWidget(name, 3);
        auto* apply = new QuorvelButton(QStringLiteral("APPLIQUER"), QuorvelButton::Kind::outlined, row);
        connect(apply, &QAbstractButton::clicked, this, [this, g = preset.grade] { setGrade(g); });
        line->addWidget(apply, 2);
        auto* remove = new SymbolButton("trash", 15, row);
        remove->setToolTip(QStringLiteral("Supprimer ce préréglage"));
        connect(remove, &QAbstractButton::clicked, this, [this, preset] {
            auto removed = LookLibrary::remove(preset);
            if (!removed) model_.showToast(removed.error().message);
            reloadLibrary();
        });
        line->addWidget(remove);
        presetList_->addWidget(row);
    }
}

void ColorPanel::refresh() {
    PanelPage::refresh();
    for (auto* w : wheels()) w->update();
    const ColorGrade g = grade();
    const bool neutral = g == ColorGrade::neutral;
    reset_->setEnabled(!neutral);
    copy_->setEnabled(!neutral);
    lutIntensity_->setEnabled(g.lut.has_value());
    grainSize_->setEnabled(g.grain != 0);
    grainRoughness_->setEnabled(g.grain != 0);

    lutMenu_->setText(g.lut ? q(*g.lut) : QStringLiteral("Aucun"));
    QMenu* menu = lutMenu_->menu();
    menu->clear();
    menu->addAction(QStringLiteral("Aucun"), this, [this] {
        ColorGrade c = grade();
        c.lut.reset();
        setGrade(c);
    });
    menu->addSeparator();
    for (const std::string& name : luts_)
        menu->addAction(q(name), this, [this, name] {
            ColorGrade c = grade();
            c.lut = name;
            setGrade(c);
        });
    menu->addSeparator();
    menu->addAction(QStringLiteral("Importer une LUT .cube…"), this, [this] {
        model_.importLUT(model_.editedCamera());
        reloadLibrary();
    });
}

ValueSlider* ColorPanel::findSlider(const QString& id, const QString& title) const {
    for (const Section& s : sections_)
        if (s.id == id)
            for (auto* slider : s.body->findChildren<ValueSlider*>())
                if (slider->title() == title) return slider;
    return nullptr;
}

std::vector<WheelControl*> ColorPanel::wheels() const {
    auto found = widget()->findChildren<WheelControl*>();
    return {found.begin(), found.end()};
}

}  // namespace qv::ui
