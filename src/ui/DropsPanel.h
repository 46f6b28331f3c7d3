// DropsPanel: the drops found in the set. How they are found (sensitivity,
// margins kept around them), one row per drop to go there or edit just it,
// and the ticks choosing which drops become clips.
#pragma once

#include <optional>
#include <vector>

#include "ui/PanelControls.h"

namespace qv::ui {

class DropClipsBox;

class DropsPanel : public PanelPage {
    Q_OBJECT
public:
    explicit DropsPanel(AppModel& model, QWidget* parent = nullptr);
    void refresh() override;
    int rowCount() const { return rows_; }
    QLabel* emptyNote() const { return empty_; }
    // The drop whose range is the export range, if any.
    std::optional<int> focusedDrop() const;
    // The tick of each row: that drop is among the clips.
    const std::vector<QCheckBox*>& clipTicks() const { return ticks_; }
    DropClipsBox* clipsBox() const { return clips_; }

private:
    AppModel& model_;
    std::vector<QCheckBox*> ticks_;
    DropClipsBox* clips_ = nullptr;
    QVBoxLayout* list_ = nullptr;
    QLabel* empty_ = nullptr;
    int rows_ = 0;
    QString shown_;  // what the rows were built from
};

}  // namespace qv::ui
