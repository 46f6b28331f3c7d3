// The crop panel: zoom and position sliders for the edited camera, the
// quick placements, and the reset.
#include "ui/CropPanel.h"

#include <QHBoxLayout>
#include <array>

#include "app/AppModel.h"
#include "ui/Theme.h"
#include "ui/Widgets.h"

namespace qv::ui {

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
    // A slider on a field of the edited camera's frame, in percent.
    auto percent = [this](const QString& title, double CameraFrame::*field, double min, double max, double step,
                          double neutral, QWidget* parent) {
        return new ValueSlider(
            title, min, max, step, neutral, [](double v) { return formatValue("%.0f %%", v); },
            [this, field] { return frame().*field * 100; },
            [this, field](double v) {
                CameraFrame f = frame();
                f.*field = v / 100;
                setFrame(f);
            },
            parent);
    };
    auto* zoomBox = new PanelBox(QStringLiteral("Zoom"), this);
    zoomBox->add(percent(QStringLiteral("Zoom dans l'image"), &CameraFrame::zoom, CameraFrame::zoomRange.min * 100,
                         CameraFrame::zoomRange.max * 100, 5, 100, zoomBox));
    add(zoomBox);

    auto* position = new PanelBox(QStringLiteral("Position"), this);
    constexpr Range side = CameraFrame::offsetRange;
    x_ = percent(QStringLiteral("Gauche ↔ droite"), &CameraFrame::x, side.min * 100, side.max * 100, 1, 0, position);
    y_ = percent(QStringLiteral("Haut ↔ bas"), &CameraFrame::y, side.min * 100, side.max * 100, 1, 0, position);
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
    auto* reset = new WrapButton("arrow.counterclockwise", QStringLiteral("Remettre à zéro"), this);
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

}  // namespace qv::ui
