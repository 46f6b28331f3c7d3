#include "ui/Widgets.h"

#include <QFrame>
#include <QLayout>
#include <QPainter>

#include "ui/Theme.h"

namespace qv::ui {

QLabel* makeLabel(const QString& text, const QFont& font, const QColor& color, QWidget* parent) {
    auto* l = new QLabel(text, parent);
    l->setFont(font);
    setTextColor(l, color);
    return l;
}

void setTextColor(QLabel* label, const QColor& color) {
    QPalette p = label->palette();
    p.setColor(QPalette::WindowText, color);
    label->setPalette(p);
}

void clearLayout(QLayout* layout) {
    while (QLayoutItem* item = layout->takeAt(0)) {
        delete item->widget();
        delete item;
    }
}

QLabel* symbolLabel(const char* symbol, double size, const QColor& color, QWidget* parent) {
    QLabel* l = makeLabel(Theme::symbol(symbol), Theme::iconFont(size), color, parent);
    l->setAlignment(Qt::AlignCenter);
    return l;
}

QFrame* hairline(QWidget* parent) {
    auto* f = new QFrame(parent);
    f->setFixedHeight(1);
    f->setStyleSheet(QStringLiteral("background: %1;").arg(Theme::line().name()));
    return f;
}

void ElidedLabel::paintEvent(QPaintEvent*) {
    const QString shown = fontMetrics().elidedText(text(), Qt::ElideRight, width());
    if (shown == QStringLiteral("…")) return;
    QPainter p(this);
    p.setFont(font());
    p.setPen(palette().color(QPalette::WindowText));
    p.drawText(rect(), Qt::AlignVCenter | Qt::AlignLeft, shown);
}

SymbolButton::SymbolButton(const char* symbol, double symbolSize, QWidget* parent)
    : QAbstractButton(parent), symbol_(symbol), size_(symbolSize) {
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::NoFocus);
}

void SymbolButton::setSymbol(const char* symbol) {
    symbol_ = symbol;
    update();
}

void SymbolButton::setOpacity(double opacity) {
    opacity_ = opacity;
    update();
}

void SymbolButton::setBoxed(bool boxed) {
    boxed_ = boxed;
    update();
}

QSize SymbolButton::sizeHint() const {
    int side = int(size_ * 1.9);
    if (text().isEmpty()) return {side, side};
    QFontMetrics fm(Theme::text(10, Theme::Weight::semibold, 1.2));
    return {side + fm.horizontalAdvance(text()) + 8, side};
}

void SymbolButton::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    double opacity = opacity_ * (!isEnabled() ? 0.35 : isDown() ? 0.7 : 1.0);
    p.setOpacity(opacity);
    QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    if (boxed_) {
        p.setPen(QPen(hover_ ? Theme::gray4() : Theme::lineStrong(), 1));
        p.setBrush(Theme::paperSoft());
        p.drawRoundedRect(r, 4, 4);
    } else if (hover_) {
        p.setPen(Qt::NoPen);
        p.setBrush(Theme::line());
        p.drawRoundedRect(r, 4, 4);
    }
    QColor c = isChecked() ? Theme::accent() : hover_ ? Theme::ink() : Theme::gray1();
    double side = std::min<double>(height(), size_ * 1.9);
    Theme::drawSymbol(p, QRectF(0, (height() - side) / 2, side, side), symbol_, size_, c);
    if (!text().isEmpty()) {
        p.setFont(Theme::text(10, Theme::Weight::semibold, 1.2));
        p.setPen(c);
        p.drawText(QRectF(side, 0, width() - side, height()), Qt::AlignVCenter | Qt::AlignLeft, text());
    }
}

void SymbolButton::enterEvent(QEnterEvent*) {
    hover_ = true;
    update();
}

void SymbolButton::leaveEvent(QEvent*) {
    hover_ = false;
    update();
}

}  // namespace qv::ui
