// FrameRateBox: the set's frame rate in the export panel. It tells the rate
// every export is written at ("Cadence : 25 i/s (la plus fréquente)"), lets
// the user choose another and drop-frame time codes where the rate has
// them, names the files whose rate varies and offers to make their
// constant-rate copies, following that work while it runs.
#pragma once

#include <QLabel>
#include <QPushButton>

#include "ui/PanelControls.h"

namespace qv::ui {

class FrameRateBox : public PanelBox {
    Q_OBJECT
public:
    explicit FrameRateBox(AppModel& model, QWidget* parent = nullptr);
    void refresh();
    QString rateText() const { return rate_->text(); }
    QString warningText() const { return warning_->text(); }
    QAbstractButton* conformButton() const { return conform_; }

private:
    void fillMenu();

    AppModel& model_;
    QLabel* rate_ = nullptr;
    QPushButton* choice_ = nullptr;
    PanelToggle* dropFrame_ = nullptr;
    QLabel* warning_ = nullptr;
    QAbstractButton* conform_ = nullptr;
    QLabel* conformLine_ = nullptr;
};

}  // namespace qv::ui
