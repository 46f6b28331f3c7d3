// EffectsPanel: the automatic effects laid on the plans (zoom, shoulder
// camera, lens blur, motion blur, VHS), each a numbered section with its
// switch, its cameras and its settings.
#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "effects/EffectSettings.h"
#include "ui/PanelControls.h"

namespace qv::ui {

class EffectsPanel : public PanelPage {
    Q_OBJECT
public:
    explicit EffectsPanel(AppModel& model, QWidget* parent = nullptr);
    void refresh() override;
    // A slider on a field of the effect settings.
    ValueSlider* slider(const QString& title, double EffectSettings::*field, double step, Formatter text);
    ValueSlider* partialAmount() const { return partial_; }

private:
    // A switch on a field of the effect settings.
    PanelToggle* toggle(const QString& title, bool EffectSettings::*field, QWidget* parent);
    QWidget* section(int number, const QString& title, bool EffectSettings::*isOn, QVBoxLayout*& body);

    AppModel& model_;
    ValueSlider* partial_ = nullptr;
    std::vector<std::pair<QWidget*, bool EffectSettings::*>> bodies_;
    std::vector<std::function<void()>> refreshers_;
};

}  // namespace qv::ui
