// The right side of the workspace: the page of the open panel, made again
// when the model opens another one.
#include "ui/SidePanel.h"

#include <QPainter>

#include "app/AppModel.h"
#include "ui/AutoPanel.h"
#include "ui/ColorPanel.h"
#include "ui/CropPanel.h"
#include "ui/DropsPanel.h"
#include "ui/EffectsPanel.h"
#include "ui/ExportPanel.h"
#include "ui/MainWindow.h"
#include "ui/SettingsPanel.h"
#include "ui/SoundPanel.h"
#include "ui/Theme.h"

namespace qv::ui {

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
