// The controls every side panel is built from. A control holds no value of
// its own: it reads through a getter and writes through a setter, both bound
// to the application model by the panel, and `refresh` pulls the value again
// after the model changed. Main thread only.
#pragma once

#include <QAbstractButton>
#include <QCheckBox>
#include <QFrame>
#include <QLabel>
#include <QScrollArea>
#include <QSlider>
#include <QVBoxLayout>
#include <functional>
#include <vector>

#include "edit/TimeRange.h"
#include "ui/Theme.h"

class QProgressBar;
class QPushButton;

namespace qv {
class AppModel;
class VideoExporter;
}  // namespace qv

namespace qv::ui {

using Formatter = std::function<QString(double)>;

// printf-style text of a number in the C locale; a result that reads as a
// signed zero ("+0", "-0") is written "0", so "%+.0f" shows 0 plainly while
// "%+.2f" keeps "+0.00".
QString formatValue(const char* format, double value);
Formatter formatter(const char* format);
// A fraction of 0 to 1 written as a whole percentage, "35 %".
QString percentOfFraction(double fraction);
// "12:00 → 15:00 · 3 min": a range, then its length.
QString rangeText(const TimeRange& range);

class ValueSlider : public QWidget {
    Q_OBJECT
public:
    ValueSlider(const QString& title, double minimum, double maximum, double step, double neutral, Formatter format,
                std::function<double()> get, std::function<void(double)> set, QWidget* parent = nullptr);

    const QString& title() const { return title_; }
    double neutral() const { return neutral_; }
    double minimum() const { return minimum_; }
    double maximum() const { return maximum_; }
    double step() const { return step_; }
    double value() const { return get_(); }
    QString valueText() const { return valueLabel_->text(); }
    QSlider* slider() const { return slider_; }
    // Writes a value, kept within the range and on the steps.
    void setValue(double v);
    // A range that follows the model (the neutral value stays inside it).
    void setRange(double minimum, double maximum);
    void refresh();

protected:
    void changeEvent(QEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    double snapped(double v) const;

    QString title_;
    double minimum_, maximum_, step_, neutral_;
    Formatter format_;
    std::function<double()> get_;
    std::function<void(double)> set_;
    QLabel* titleLabel_ = nullptr;
    QLabel* valueLabel_ = nullptr;
    QSlider* slider_ = nullptr;
};

// A framed group with its title as a section label.
class PanelBox : public QFrame {
    Q_OBJECT
public:
    explicit PanelBox(const QString& title, QWidget* parent = nullptr);
    QVBoxLayout* content() const { return content_; }
    void add(QWidget* widget) { content_->addWidget(widget); }

private:
    QVBoxLayout* content_ = nullptr;
};

// A small note in a dim colour.
class PanelNote : public QLabel {
    Q_OBJECT
public:
    explicit PanelNote(const QString& text, QWidget* parent = nullptr);
};

// A label that wraps, in the panels' text font.
QLabel* textLabel(const QString& text, QWidget* parent, double size = 11, const QColor& color = Theme::gray1(),
                  Theme::Weight weight = Theme::Weight::regular);

// A caption over a control.
QWidget* captioned(const QString& caption, QWidget* control, QWidget* parent);

// A switch with its text beside it, wrapping on narrow panels; bound like a
// slider. A click on the text flips the switch too.
class PanelToggle : public QWidget {
    Q_OBJECT
public:
    PanelToggle(const QString& text, std::function<bool()> get, std::function<void(bool)> set,
                QWidget* parent = nullptr);
    QString text() const;
    bool isChecked() const;
    void click();
    void refresh();

protected:
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    QCheckBox* box_ = nullptr;
    QLabel* label_ = nullptr;
    std::function<bool()> get_;
};

// An outlined button with a symbol and a text that wraps.
class WrapButton : public QAbstractButton {
    Q_OBJECT
public:
    WrapButton(const char* symbol, const QString& text, QWidget* parent = nullptr);
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    const char* symbol_;
};

// A button that opens its menu, showing the chosen item's text.
QPushButton* menuButton(QWidget* parent);

// Lets a button shrink with the panel instead of widening it.
QAbstractButton* fitWidth(QAbstractButton* button);

// One button per camera, with its number; selects the edited camera.
class CameraTabs : public QWidget {
    Q_OBJECT
public:
    explicit CameraTabs(AppModel& model, QWidget* parent = nullptr);
    void refresh();
    QAbstractButton* tab(int camera) const;

private:
    AppModel& model_;
    QHBoxLayout* row_ = nullptr;
    std::vector<QAbstractButton*> tabs_;
};

// A row of toggles, one per camera, for the cameras an effect or the
// automatic editor may use.
class CameraPicker : public QWidget {
    Q_OBJECT
public:
    CameraPicker(AppModel& model, const QString& title, std::function<bool(int)> isOn, std::function<void(int)> toggle,
                 QWidget* parent = nullptr);
    void refresh();

private:
    AppModel& model_;
    std::function<bool(int)> isOn_;
    std::function<void(int)> toggle_;
    QHBoxLayout* row_ = nullptr;
    std::vector<QAbstractButton*> buttons_;
};

// A selectable row for the modes of a panel; the chosen one is marked.
class ChoiceRow : public QAbstractButton {
    Q_OBJECT
public:
    ChoiceRow(const QString& title, QWidget* parent = nullptr);
    void setOn(bool on);
    bool isOn() const { return on_; }
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    bool on_ = false;
};

ChoiceRow* choiceButton(const QString& title, bool on, std::function<void()> action, QWidget* parent = nullptr);

// Follows a running video export: title, percentage, bar, cancel button.
// The clips of the drops show as one job, with the percentage the drops
// panel and the footer show. Polls every 0.25 s while it is shown.
class ExportProgress : public QWidget {
    Q_OBJECT
public:
    explicit ExportProgress(AppModel& model, QWidget* parent = nullptr);
    void refresh();
    QString percentText() const;
    QAbstractButton* cancelButton() const { return cancel_; }

private:
    double fraction() const;

    AppModel& model_;
    QLabel* title_ = nullptr;
    QLabel* percent_ = nullptr;
    QProgressBar* bar_ = nullptr;
    QAbstractButton* cancel_ = nullptr;
};

// The frame shared by the panels: a title, then a scrolling column.
class PanelPage : public QScrollArea {
    Q_OBJECT
public:
    explicit PanelPage(const QString& title, QWidget* parent = nullptr);
    QVBoxLayout* column() const { return column_; }
    void add(QWidget* widget) { column_->addWidget(widget); }
    // Every bound control of the page reads the model again.
    virtual void refresh();
    // The sliders of the page, for tests and for the double click.
    std::vector<ValueSlider*> sliders() const;

protected:
    QVBoxLayout* column_ = nullptr;
};

}  // namespace qv::ui
