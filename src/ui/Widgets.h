// Small painted controls shared by the screens.
#pragma once

#include <QAbstractButton>
#include <QLabel>

class QFrame;
class QLayout;

namespace qv::ui {

// A label in one font and colour of the theme.
QLabel* makeLabel(const QString& text, const QFont& font, const QColor& color, QWidget* parent = nullptr);
void setTextColor(QLabel* label, const QColor& color);
// Removes and deletes every item of a layout and its widget.
void clearLayout(QLayout* layout);
// One symbol of the theme's icon table as a centred label.
QLabel* symbolLabel(const char* symbol, double size, const QColor& color, QWidget* parent = nullptr);
// A one-point line in the theme's line colour, between groups.
QFrame* hairline(QWidget* parent);

// A one-line text that ends in "…" rather than being cut, and shows
// nothing rather than the "…" alone.
class ElidedLabel : public QLabel {
    Q_OBJECT
public:
    using QLabel::QLabel;

protected:
    void paintEvent(QPaintEvent* event) override;
};

// A flat button showing one symbol of the theme's icon table, with an
// optional text after it; `opacity` dims it as a whole.
class SymbolButton : public QAbstractButton {
    Q_OBJECT
public:
    SymbolButton(const char* symbol, double symbolSize, QWidget* parent = nullptr);
    void setSymbol(const char* symbol);
    void setOpacity(double opacity);
    void setBoxed(bool boxed);  // a square with an outline, as the play button
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    const char* symbol_;
    double size_;
    double opacity_ = 1;
    bool boxed_ = false;
    bool hover_ = false;
};

}  // namespace qv::ui
