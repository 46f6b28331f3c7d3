// SettingsPanel: the user's settings, kept across projects. Timeline
// behaviour, export defaults and folder, the preview of looks, the version
// and the log.
#pragma once

#include <QString>

#include "ui/PanelControls.h"

class QFileDialog;

namespace qv::ui {

class SettingsPanel : public PanelPage {
    Q_OBJECT
public:
    explicit SettingsPanel(AppModel& model, QWidget* parent = nullptr);
    void refresh() override;
    // "~/Vidéos/Sets" for a folder under the home folder.
    static QString shortPath(const QString& path);

private:
    AppModel& model_;
    QAbstractButton* target_ = nullptr;
    QAbstractButton* codec_ = nullptr;
    QAbstractButton* loudness_ = nullptr;
    QLabel* folder_ = nullptr;
};

// The folder picker of the settings' export folder: folders only, new ones
// allowed, opening on `start`. The caller owns it.
QFileDialog* exportFolderDialog(QWidget* parent, const QString& start);

}  // namespace qv::ui
