#include "ui/Theme.h"

#include <QApplication>
#include <QFontDatabase>
#include <QPainter>
#include <QPalette>
#include <QStandardPaths>
#include <QStyleOptionButton>
#include <algorithm>
#include <cmath>
#include <cstring>

namespace qv::ui {

namespace {

QColor rgb(double r, double g, double b) { return QColor::fromRgbF(float(r), float(g), float(b)); }

// Platform symbol names to glyphs of the Material icon font (code points of
// its Regular face). The one place that knows which glyph means what.
struct SymbolEntry {
    const char* name;
    char16_t codePoint;
};
constexpr SymbolEntry symbolTable[] = {
    {"play.fill", 0xe037},
    {"pause.fill", 0xe034},
    {"plus.magnifyingglass", 0xe8ff},
    {"minus.magnifyingglass", 0xe900},
    {"bolt.fill", 0xea0b},
    {"waveform.path", 0xe62d},
    {"camera.aperture", 0xe3af},
    {"wind", 0xefd8},
    {"tv", 0xe333},
    {"film.stack", 0xe43a},
    {"waveform", 0xe1b8},
    {"speaker.wave.2.fill", 0xe050},
    {"speaker.slash.fill", 0xe04f},
    {"video.slash.fill", 0xe04c},
    {"folder.badge.plus", 0xe2cc},
    {"folder", 0xe2c7},
    {"videocam", 0xe04b},
    {"exclamationmark.triangle.fill", 0xe002},
    {"xmark.circle.fill", 0xe5c9},
    {"checkmark.circle.fill", 0xe86c},
    {"checkmark", 0xe5ca},
    {"chevron.down", 0xe5cf},
    {"ellipsis", 0xe5d3},
    {"crop", 0xe3be},
    // Side panels.
    {"largecircle.fill.circle", 0xe837},
    {"circle", 0xe836},
    {"dice", 0xeb40},
    {"arrow.counterclockwise", 0xe042},
    {"square.on.square", 0xe14d},
    {"square.and.arrow.up", 0xe2c6},
    {"square.and.arrow.down", 0xe2c4},
    {"folder.fill", 0xe2c7},
    {"paintpalette.fill", 0xe40a},
    {"trash", 0xe872},
    {"chevron.right", 0xe5cc},
    // Panel rail.
    {"wand.and.stars", 0xe663},
    {"gearshape.fill", 0xe8b8},
};

QString upperTracked(const QString& text) { return text.toUpper(); }

// A button's symbol square and the gap after it, beside text of size 11.
constexpr double buttonSymbolSize = 15;
constexpr double buttonSymbolGap = 7;
constexpr int buttonPadding = 18;

}  // namespace

namespace Theme {

QColor paper() { return rgb(0.0431, 0.0431, 0.0431); }
QColor paperSoft() { return rgb(0.0863, 0.0863, 0.0784); }
QColor line() { return rgb(0.1490, 0.1451, 0.1373); }
QColor lineStrong() { return rgb(0.2275, 0.2196, 0.2078); }
QColor ink() { return rgb(1, 1, 1); }
QColor gray1() { return rgb(0.8980, 0.8902, 0.8706); }
QColor gray2() { return rgb(0.6784, 0.6706, 0.6510); }
QColor gray3() { return rgb(0.5529, 0.5451, 0.5294); }
QColor gray4() { return rgb(0.3608, 0.3529, 0.3373); }
QColor accent() { return rgb(0.9569, 0.7686, 0); }
QColor warning() { return rgb(1.0, 0.4863, 0.2471); }
QColor barFill() { return rgb(0.2275, 0.2902, 0.3608); }

QColor withAlpha(QColor c, double alpha) {
    c.setAlphaF(float(alpha));
    return c;
}

QFont text(double pixelSize, Weight weight, double tracking) {
    QFont f(QStringLiteral("Inter"));
    f.setPixelSize(std::max(1, int(std::lround(pixelSize))));
    switch (weight) {
        case Weight::regular: f.setWeight(QFont::Normal); break;
        case Weight::medium: f.setWeight(QFont::Medium); break;
        case Weight::semibold: f.setWeight(QFont::DemiBold); break;
        case Weight::bold: f.setWeight(QFont::Bold); break;
    }
    if (tracking != 0) f.setLetterSpacing(QFont::AbsoluteSpacing, tracking);
    f.setHintingPreference(QFont::PreferNoHinting);
    return f;
}

QFont numbers(double pixelSize) {
    QFont f(QStringLiteral("B612"));
    f.setPixelSize(std::max(1, int(std::lround(pixelSize))));
    f.setWeight(QFont::Bold);
    return f;
}

QFont iconFont(double pixelSize) {
    QFont f(QStringLiteral("Material Icons"));
    f.setPixelSize(std::max(1, int(std::lround(pixelSize))));
    return f;
}

QString symbol(const char* name) {
    for (const SymbolEntry& e : symbolTable)
        if (std::strcmp(e.name, name) == 0) return QString(QChar(e.codePoint));
    qWarning("Symbole inconnu : %s", name);
    return {};
}

void drawSymbol(QPainter& painter, const QRectF& rect, const char* name, double pixelSize, const QColor& color) {
    painter.save();
    painter.setFont(iconFont(pixelSize));
    painter.setPen(color);
    painter.drawText(rect, Qt::AlignCenter, symbol(name));
    painter.restore();
}

void apply(QApplication& app) {
    app.setStyle(QStringLiteral("Fusion"));
    QPalette p;
    p.setColor(QPalette::Window, paper());
    p.setColor(QPalette::WindowText, gray1());
    p.setColor(QPalette::Base, paperSoft());
    p.setColor(QPalette::AlternateBase, line());
    p.setColor(QPalette::Text, gray1());
    p.setColor(QPalette::Button, paperSoft());
    p.setColor(QPalette::ButtonText, gray1());
    p.setColor(QPalette::Highlight, accent());
    p.setColor(QPalette::HighlightedText, paper());
    p.setColor(QPalette::ToolTipBase, paperSoft());
    p.setColor(QPalette::ToolTipText, gray1());
    p.setColor(QPalette::PlaceholderText, gray4());
    p.setColor(QPalette::Disabled, QPalette::Text, gray4());
    p.setColor(QPalette::Disabled, QPalette::WindowText, gray4());
    p.setColor(QPalette::Disabled, QPalette::ButtonText, gray4());
    app.setPalette(p);
    app.setFont(text(12));

    const QString sheet = QStringLiteral(R"(
QToolTip { background: %1; color: %2; border: 1px solid %3; padding: 5px 7px; font-size: 11px; }
QMenuBar { background: %5; color: %2; border-bottom: 1px solid %3; padding: 2px 6px; }
QMenuBar::item { background: transparent; padding: 4px 10px; border-radius: 4px; }
QMenuBar::item:selected { background: %3; }
QMenuBar::item:pressed { background: %4; color: %5; }
QMenu { background: %1; color: %2; border: 1px solid %3; padding: 5px 0; }
QMenu::item { padding: 5px 22px 5px 16px; font-size: 12px; }
QMenu::item:selected { background: %4; color: %5; }
QMenu::item:disabled { color: %6; }
QMenu::separator { height: 1px; background: %3; margin: 5px 8px; }
QLineEdit { background: %5; color: %2; border: 1px solid %3; border-radius: 4px; padding: 6px 8px;
            selection-background-color: %4; selection-color: %5; }
QLineEdit:focus { border-color: %4; }
QScrollArea, QScrollArea > QWidget > QWidget { background: transparent; border: none; }
QScrollBar:vertical { background: transparent; width: 10px; margin: 0; }
QScrollBar::handle:vertical { background: %3; border-radius: 4px; min-height: 30px; margin: 2px; }
QScrollBar::add-line, QScrollBar::sub-line { height: 0; width: 0; }
QSlider::groove:horizontal { height: 3px; background: %3; border-radius: 1px; }
QSlider::sub-page:horizontal { background: %7; border-radius: 1px; }
QSlider::handle:horizontal { background: %2; width: 10px; height: 10px; margin: -4px 0; border-radius: 5px; }
QProgressBar { background: %3; border: none; border-radius: 2px; max-height: 4px; }
QProgressBar::chunk { background: %4; border-radius: 2px; }
QDialog, QMessageBox { background: %8; }
)")
                              .arg(paperSoft().name(), gray1().name(), lineStrong().name(), accent().name(),
                                   paper().name(), gray4().name(), gray3().name(), paperSoft().name());
    app.setStyleSheet(sheet);
}

}  // namespace Theme

QuorvelLabel::QuorvelLabel(const QString& text, QWidget* parent) : QLabel(parent) {
    setFont(Theme::text(10, Theme::Weight::semibold, 1.8));
    QPalette p = palette();
    p.setColor(QPalette::WindowText, Theme::gray3());
    setPalette(p);
    setLabel(text);
}

void QuorvelLabel::setLabel(const QString& text) { setText(upperTracked(text)); }

QuorvelButton::QuorvelButton(const QString& text, Kind kind, QWidget* parent)
    : QPushButton(upperTracked(text), parent), kind_(kind) {
    setFont(Theme::text(11, Theme::Weight::bold, 1.6));
    setCursor(Qt::PointingHandCursor);
}

QuorvelButton::QuorvelButton(const char* symbol, const QString& text, Kind kind, QWidget* parent)
    : QuorvelButton(text, kind, parent) {
    symbol_ = symbol;
}

void QuorvelButton::setSymbol(const char* symbol) {
    symbol_ = symbol;
    updateGeometry();
    update();
}

QSize QuorvelButton::sizeHint() const {
    QFontMetrics fm(font());
    int w = fm.horizontalAdvance(text()) + 2 * buttonPadding;
    if (symbol_) w += int(std::ceil(buttonSymbolSize + buttonSymbolGap));
    return {w, fm.height() + 20};
}

void QuorvelButton::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    double opacity = !isEnabled() ? 0.35 : isDown() ? 0.7 : 1.0;
    p.setOpacity(opacity);
    QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QColor ink;
    if (kind_ == Kind::main) {
        p.setPen(Qt::NoPen);
        p.setBrush(Theme::accent());
        p.drawRoundedRect(r, 4, 4);
        ink = Theme::paper();
    } else {
        p.setPen(QPen(underMouse() && isEnabled() ? Theme::gray4() : Theme::lineStrong(), 1));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(r, 4, 4);
        ink = Theme::gray1();
    }
    p.setFont(font());
    p.setPen(ink);
    if (!symbol_) {
        p.drawText(rect(), Qt::AlignCenter, text());
        return;
    }
    // Symbol and text centred as one group; a text too long for the button
    // loses its end to an ellipsis rather than running under the edges.
    const QFontMetricsF fm(font());
    const double lead = buttonSymbolSize + buttonSymbolGap;
    const double room = std::max(0.0, width() - 2.0 * buttonPadding - lead);
    const QString shown = fm.elidedText(text(), Qt::ElideRight, room);
    const double group = lead + fm.horizontalAdvance(shown);
    const double left = std::max<double>(buttonPadding, (width() - group) / 2);
    Theme::drawSymbol(p, QRectF(left, 0, buttonSymbolSize, height()), symbol_, buttonSymbolSize, ink);
    p.drawText(QRectF(left + lead, 0, width() - left - lead, height()), Qt::AlignVCenter | Qt::AlignLeft, shown);
}

namespace {

// The logo's image: built into the program, or installed beside its data.
QImage logoImage() {
    QImage image(QStringLiteral(":/logo-quorvel.png"));
    if (image.isNull()) {
        const QString installed =
            QStandardPaths::locate(QStandardPaths::GenericDataLocation, QStringLiteral("quorvel/logo-quorvel.png"));
        if (!installed.isEmpty()) image.load(installed);
    }
    return image;
}

}  // namespace

QuorvelLogo::QuorvelLogo(bool small, QWidget* parent) : QWidget(parent), small_(small), image_(logoImage()) {}

QSize QuorvelLogo::sizeHint() const {
    QFontMetrics fm(Theme::numbers(small_ ? 13 : 22));
    const int height = fm.height() + 4;
    if (!image_.isNull())
        return {std::max(1, int(std::lround(double(image_.width()) * height / std::max(1, image_.height())))), height};
    return {fm.horizontalAdvance(QStringLiteral("QUORVEL MULTICAM")) + 4, height};
}

void QuorvelLogo::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::TextAntialiasing);
    p.setOpacity(small_ ? 0.45 : 1.0);
    if (!image_.isNull()) {
        p.setRenderHint(QPainter::SmoothPixmapTransform);
        const QSizeF shown = QSizeF(image_.size()).scaled(QSizeF(size()), Qt::KeepAspectRatio);
        p.drawImage(QRectF(QPointF(0, (height() - shown.height()) / 2), shown), image_);
        return;
    }
    QFont f = Theme::numbers(small_ ? 13 : 22);
    f.setLetterSpacing(QFont::AbsoluteSpacing, small_ ? 1.5 : 2.5);
    p.setFont(f);
    QFontMetrics fm(f);
    const QString first = QStringLiteral("QUORVEL"), second = QStringLiteral("MULTICAM");
    int y = (height() + fm.ascent() - fm.descent()) / 2;
    p.setPen(Theme::ink());
    p.drawText(0, y, first);
    p.setPen(Theme::accent());
    p.drawText(fm.horizontalAdvance(first + QLatin1Char(' ')), y, second);
}

}  // namespace qv::ui
