// AutoPanel: the automatic edit. Plan lengths, the cameras it may use and how
// much each is seen, and the buttons that run it over the export range.
#pragma once

#include "ui/PanelControls.h"

namespace qv::ui {

class AutoPanel : public PanelPage {
    Q_OBJECT
public:
    explicit AutoPanel(AppModel& model, QWidget* parent = nullptr);
    void refresh() override;
    QString caption() const;

private:
    void rebuildWeights();

    AppModel& model_;
    QLabel* caption_ = nullptr;
    QLabel* range_ = nullptr;
    QVBoxLayout* weights_ = nullptr;
    int weightRows_ = -1;
};

}  // namespace qv::ui
