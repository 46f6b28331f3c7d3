// Theme: the look of the whole interface in one place. A dark surface, warm
// greys and one yellow accent; Inter for text, B612 for the numbers on
// monitors and tracks, and the Material icon font for symbols, reached only
// through `Theme::symbol` so one table says which glyph stands for what.
// All sizes are in device-independent pixels. Main thread only.
#pragma once

#include <QColor>
#include <QFont>
#include <QImage>
#include <QLabel>
#include <QPushButton>
#include <QString>

class QApplication;
class QPainter;

namespace qv::ui {

namespace Theme {

// Colours, sRGB.
QColor paper();       // 11, 11, 11
QColor paperSoft();   // surfaces one step above the paper
QColor line();        // hairlines between areas
QColor lineStrong();  // outlines of controls
QColor ink();         // white
QColor gray1();
QColor gray2();
QColor gray3();
QColor gray4();
QColor accent();      // 244, 196, 0
QColor warning();     // doubtful placements, urgent captions
QColor barFill();     // camera file bars, under white at 0.18
QColor withAlpha(QColor c, double alpha);

enum class Weight { regular, medium, semibold, bold };
QFont text(double pixelSize, Weight weight = Weight::regular, double tracking = 0);
// The numbers' face, bold and with tabular figures.
QFont numbers(double pixelSize);
QFont iconFont(double pixelSize);

// The glyph for a symbol name of the interface ("play.fill", "bolt.fill"...).
// An unknown name gives an empty string and a log line, never a crash.
QString symbol(const char* name);
// Draws a symbol centred in `rect`.
void drawSymbol(QPainter& painter, const QRectF& rect, const char* name, double pixelSize, const QColor& color);

// Installs the palette, the style sheet and the default font.
void apply(QApplication& app);

}  // namespace Theme

// A section label: capitals, size 10, semibold, tracking 1.8, gray3.
class QuorvelLabel : public QLabel {
    Q_OBJECT
public:
    explicit QuorvelLabel(const QString& text, QWidget* parent = nullptr);
    void setLabel(const QString& text);
};

// Buttons of the interface: filled with the accent (main) or outlined.
// Text in capitals, size 11, bold, tracking 1.6; pressed 0.7, disabled 0.35.
// An optional symbol of the theme's table stands before the text, in the
// text's colour; symbol and text are centred together.
class QuorvelButton : public QPushButton {
    Q_OBJECT
public:
    enum class Kind { main, outlined };
    QuorvelButton(const QString& text, Kind kind, QWidget* parent = nullptr);
    QuorvelButton(const char* symbol, const QString& text, Kind kind, QWidget* parent = nullptr);
    // The symbol's name, or nullptr for text alone.
    const char* symbol() const { return symbol_; }
    void setSymbol(const char* symbol);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    Kind kind_;
    const char* symbol_ = nullptr;
};

// The logo image when it loads; otherwise the program's name in two words
// of the numbers' face, the second in the accent. The small form is dimmed.
class QuorvelLogo : public QWidget {
    Q_OBJECT
public:
    explicit QuorvelLogo(bool small, QWidget* parent = nullptr);
    QSize sizeHint() const override;
    bool drawsImage() const { return !image_.isNull(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    bool small_;
    QImage image_;
};

}  // namespace qv::ui
