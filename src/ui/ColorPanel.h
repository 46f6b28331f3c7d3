// ColorPanel: the grade of one camera. Every control reads and writes the
// edited camera's `ColorGrade` through the application model, whose look
// rebuild carries the change to the preview. What the panel keeps is only
// its view: which sections are open, the library's lists and the name typed
// for a new preset. Main thread only.
#pragma once

#include <QLineEdit>
#include <QPushButton>
#include <set>

#include "looks/ColorGrade.h"
#include "looks/LookLibrary.h"
#include "ui/PanelControls.h"

namespace qv::ui {

class WheelControl;

class ColorPanel : public PanelPage {
    Q_OBJECT
public:
    explicit ColorPanel(AppModel& model, QWidget* parent = nullptr);
    void refresh() override;

    QAbstractButton* resetButton() const { return reset_; }
    QAbstractButton* copyButton() const { return copy_; }
    // Opens or folds a section by its identifier ("base", "creatif"...).
    void setSectionOpen(const QString& id, bool open);
    ValueSlider* findSlider(const QString& section, const QString& title) const;
    std::vector<WheelControl*> wheels() const;
    // Reads the library again (after an import, a save or a delete).
    void reloadLibrary();

private:
    struct Section {
        QString id;
        QAbstractButton* head = nullptr;
        QWidget* body = nullptr;
    };
    ColorGrade grade() const;
    void setGrade(const ColorGrade& g);
    QVBoxLayout* section(const QString& id, const QString& title);
    // A slider on a number field of the grade, over the range the grade
    // itself allows (ColorGrade::rangeOf).
    ValueSlider* slider(QVBoxLayout* into, const QString& title, double ColorGrade::*field, double step,
                        double neutral, const char* format);
    QWidget* wheel(const QString& caption, ColorWheel ColorGrade::*field, bool withLuma, double size);
    void rebuildPresets();

    AppModel& model_;
    std::set<QString> open_;
    std::vector<Section> sections_;
    std::vector<std::string> luts_;
    std::vector<LookLibrary::Preset> presets_;
    QAbstractButton* reset_ = nullptr;
    QAbstractButton* copy_ = nullptr;
    QPushButton* lutMenu_ = nullptr;
    ValueSlider* lutIntensity_ = nullptr;
    ValueSlider* grainSize_ = nullptr;
    ValueSlider* grainRoughness_ = nullptr;
    QLineEdit* presetName_ = nullptr;
    QAbstractButton* savePreset_ = nullptr;
    QVBoxLayout* presetList_ = nullptr;
};

}  // namespace qv::ui
