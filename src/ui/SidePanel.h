// The right side of the workspace that holds the open panel, and the
// factory of the panels' pages.
#pragma once

#include <QPointer>
#include <QWidget>

#include "edit/RightPanel.h"
#include "ui/PanelControls.h"

namespace qv::ui {

class ModelObject;

// The right side of the workspace: the open panel, rebuilt when the model's
// `rightPanel` changes, hidden while it is `none`.
class SidePanel : public QWidget {
    Q_OBJECT
public:
    SidePanel(AppModel& model, ModelObject& object, QWidget* parent = nullptr);
    PanelPage* page() const { return page_; }
    void refresh();

    static constexpr int width = 340;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    AppModel& model_;
    RightPanel shown_ = RightPanel::none;
    QPointer<PanelPage> page_;
    QVBoxLayout* layout_ = nullptr;
};

// The page for one panel; nothing for `none`.
PanelPage* makePanel(RightPanel panel, AppModel& model, QWidget* parent = nullptr);

}  // namespace qv::ui
