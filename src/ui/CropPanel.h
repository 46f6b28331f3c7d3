// CropPanel: the framing of one camera. Zoom into the picture and where the
// frame sits in it, for the whole camera and every output format.
#pragma once

#include "effects/Reframe.h"
#include "ui/PanelControls.h"

namespace qv::ui {

class CropPanel : public PanelPage {
    Q_OBJECT
public:
    explicit CropPanel(AppModel& model, QWidget* parent = nullptr);
    void refresh() override;
    QLabel* fullFrameNote() const { return fullFrame_; }

private:
    CameraFrame frame() const;
    void setFrame(CameraFrame f);

    AppModel& model_;
    QLabel* fullFrame_ = nullptr;
    QWidget* horizontal_ = nullptr;
    QWidget* vertical_ = nullptr;
    ValueSlider* x_ = nullptr;
    ValueSlider* y_ = nullptr;
};

}  // namespace qv::ui
