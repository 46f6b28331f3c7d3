// SoundPanel: how the montage sounds. The audio mode (camera sound, table
// sound, or both), the fades between plans and cameras, the master volume,
// what is heard of each recorder that has several inputs, and each camera's
// picture offset against its sound.
#pragma once

#include <utility>
#include <vector>

#include "base/Uuid.h"
#include "ui/PanelControls.h"

class QPushButton;

namespace qv::ui {

class SoundPanel : public PanelPage {
    Q_OBJECT
public:
    explicit SoundPanel(AppModel& model, QWidget* parent = nullptr);
    void refresh() override;

    // The "Canal" menu of a source, when it has one (for tests).
    QPushButton* channelMenu(const QString& source) const;

private:
    // One "Canal : mélange / 1 / 2 / …" menu per source with inputs to
    // choose from, made again when the sources or their inputs change.
    void refreshChannels();

    AppModel& model_;
    std::vector<ChoiceRow*> modes_;
    PanelToggle* cutFade_ = nullptr;
    PanelBox* channels_ = nullptr;
    std::vector<std::pair<QString, QPushButton*>> channelMenus_;
    std::vector<std::pair<qv::Uuid, int>> channelLayout_;  // what the menus were made for
    CameraTabs* offsetTabs_ = nullptr;
    ValueSlider* offsetMs_ = nullptr;        // its range: ten frames of the edited camera
    ValueSlider* offsetMetres_ = nullptr;
};

}  // namespace qv::ui
