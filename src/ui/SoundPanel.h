// SoundPanel: how the montage sounds. The audio mode (camera sound, table
// sound, or both), the fades between plans and cameras, the master volume,
// and each camera's picture offset against its sound.
#pragma once

#include "ui/PanelControls.h"

namespace qv::ui {

class SoundPanel : public PanelPage {
    Q_OBJECT
public:
    explicit SoundPanel(AppModel& model, QWidget* parent = nullptr);
    void refresh() override;

private:
    AppModel& model_;
    std::vector<ChoiceRow*> modes_;
    PanelToggle* cutFade_ = nullptr;
    CameraTabs* offsetTabs_ = nullptr;
    ValueSlider* offsetMs_ = nullptr;        // its range: ten frames of the edited camera
    ValueSlider* offsetMetres_ = nullptr;
};

}  // namespace qv::ui
