// The side panels of the workspace, one at a time on the right, chosen by
// the model's `rightPanel`. Each is a list of controls bound to fields of the
// application model or of the user's settings: every change goes through the
// model (which saves the project by itself), and `refresh` reads everything
// back after the model changed. No panel keeps project state of its own.
// Main thread only.
#pragma once

#include <QPointer>
#include <QTimer>
#include <QWidget>
#include <memory>
#include <optional>

#include "effects/EffectSettings.h"
#include "effects/Reframe.h"

#include "edit/RightPanel.h"
#include "ui/PanelControls.h"

class QStackedLayout;
class QCheckBox;

class QFileDialog;

namespace qv::ui {

class ModelObject;
class ChoiceRow;
class DropClipsBox;

class SoundPanel : public PanelPage {
    Q_OBJECT
public:
    explicit SoundPanel(AppModel& model, QWidget* parent = nullptr);
    void refresh() override;

private:
    AppModel& model_;
    std::vector<ChoiceRow*> modes_;
    PanelToggle* cutFade_ = nullptr;
};

class EffectsPanel : public PanelPage {
    Q_OBJECT
public:
    explicit EffectsPanel(AppModel& model, QWidget* parent = nullptr);
    void refresh() override;
    // A slider on a field of the effect settings.
    ValueSlider* slider(const QString& title, double EffectSettings::*field, double min, double max, double step,
                        Formatter text);
    ValueSlider* partialAmount() const { return partial_; }

private:
    QWidget* section(int number, const QString& title, bool EffectSettings::*isOn, QVBoxLayout*& body);

    AppModel& model_;
    ValueSlider* partial_ = nullptr;
    std::vector<std::pair<QWidget*, bool EffectSettings::*>> bodies_;
    std::vector<std::function<void()>> refreshers_;
};

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

class ExportPanel : public PanelPage {
    Q_OBJECT
public:
    explicit ExportPanel(AppModel& model, QWidget* parent = nullptr);
    void refresh() override;
    QString mainButtonText() const;
    QAbstractButton* mainButton() const { return main_; }
    ExportProgress* progress() const { return progress_; }

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
    ExportProgress* progress_ = nullptr;
    QTimer poll_;
};

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

// The folder picker of the settings' export folder: folders only, new ones
// allowed, opening on `start`. The caller owns it.
QFileDialog* exportFolderDialog(QWidget* parent, const QString& start);

}  // namespace qv::ui
