// ExportPanel: where the montage goes. One row per export target with its
// note, the set's frame rate, the range and folder it is written to, the
// main button, and the progress of a running video export.
#pragma once

#include <QTimer>
#include <vector>

#include "ui/FrameRateBox.h"
#include "ui/PanelControls.h"

namespace qv::ui {

class ExportPanel : public PanelPage {
    Q_OBJECT
public:
    explicit ExportPanel(AppModel& model, QWidget* parent = nullptr);
    void refresh() override;
    QString mainButtonText() const;
    QAbstractButton* mainButton() const { return main_; }
    ExportProgress* progress() const { return progress_; }
    FrameRateBox* rateBox() const { return rate_; }

private:
    AppModel& model_;
    std::vector<ChoiceRow*> targets_;
    std::vector<QLabel*> targetNotes_;
    QWidget* videoPart_ = nullptr;
    QWidget* xmlPart_ = nullptr;
    QLabel* range_ = nullptr;
    QLabel* folder_ = nullptr;
    QAbstractButton* main_ = nullptr;
    QAbstractButton* syncXml_ = nullptr;
    QLabel* lutNote_ = nullptr;  // where the cubes go, by target
    FrameRateBox* rate_ = nullptr;
    bool conforming_ = false;    // as last shown
    ExportProgress* progress_ = nullptr;
    QTimer poll_;
};

}  // namespace qv::ui
