#include "ui/WheelControl.h"

#include <QConicalGradient>
#include <QMouseEvent>
#include <QPainter>
#include <QRadialGradient>
#include <cmath>

#include "ui/Theme.h"

namespace qv::ui {

namespace {
constexpr double captionHeight = 16;
}

WheelControl::WheelControl(const QString& caption, std::function<ColorWheel()> get,
                           std::function<void(const ColorWheel&)> set, double diameter, QWidget* parent)
    : QWidget(parent), caption_(caption), get_(std::move(get)), set_(std::move(set)), diameter_(diameter) {
    setCursor(Qt::CrossCursor);
    setToolTip(QStringLiteral("Double-clic : remise à zéro"));
    setMinimumSize(sizeHint());
}

QSize WheelControl::sizeHint() const { return {int(diameter_) + 8, int(diameter_ + captionHeight) + 6}; }

QPointF WheelControl::centre() const { return {width() / 2.0, 2 + diameter_ / 2}; }

ColorWheel WheelControl::pointed(ColorWheel wheel, double x, double y, double radius) {
    double d = radius > 0 ? std::min(std::hypot(x, y) / radius, 1.0) : 0;
    if (d < deadCentre) d = 0;
    wheel.amount = d;
    wheel.hue = d > 0 ? std::atan2(y, x) * 180 / M_PI : 0;
    return wheel;
}

void WheelControl::pointAt(QPointF pos) {
    const QPointF c = centre();
    set_(pointed(get_(), pos.x() - c.x(), c.y() - pos.y(), radius()));
    update();
}

void WheelControl::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) pointAt(event->position());
}

void WheelControl::mouseMoveEvent(QMouseEvent* event) {
    if (event->buttons() & Qt::LeftButton) pointAt(event->position());
}

void WheelControl::mouseDoubleClickEvent(QMouseEvent*) {
    ColorWheel w = get_();
    w.hue = 0;
    w.amount = 0;
    set_(w);
    update();
}

void WheelControl::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setOpacity(isEnabled() ? 1.0 : 0.35);
    const QPointF c = centre();
    const double r = radius();
    const QRectF disc(c.x() - r, c.y() - r, 2 * r, 2 * r);

    // Hues around, counter-clockwise from red at the right, then white from the centre.
    QConicalGradient hues(c, 0);
    const QColor stops[] = {Qt::red, Qt::yellow, Qt::green, Qt::cyan, Qt::blue, Qt::magenta, Qt::red};
    for (int i = 0; i < 7; ++i) hues.setColorAt(i / 6.0, stops[i]);
    p.setPen(Qt::NoPen);
    p.setBrush(hues);
    p.drawEllipse(disc);
    QRadialGradient white(c, r);
    white.setColorAt(0, QColor(255, 255, 255, 255));
    white.setColorAt(1, QColor(255, 255, 255, 0));
    p.setBrush(white);
    p.drawEllipse(disc);
    // Dimmed a little so the point reads on it.
    p.setBrush(QColor(0, 0, 0, 60));
    p.drawEllipse(disc);
    p.setBrush(Qt::NoBrush);
    p.setPen(QPen(Theme::lineStrong(), 1));
    p.drawEllipse(disc.adjusted(-1, -1, 1, 1));

    // Cross hairs and the point.
    p.setPen(QPen(QColor(0, 0, 0, 140), 1));
    p.drawLine(QPointF(c.x() - r, c.y()), QPointF(c.x() + r, c.y()));
    p.drawLine(QPointF(c.x(), c.y() - r), QPointF(c.x(), c.y() + r));
    const ColorWheel w = get_();
    const double a = w.hue * M_PI / 180;
    const QPointF dot(c.x() + std::cos(a) * w.amount * r, c.y() - std::sin(a) * w.amount * r);
    p.setPen(QPen(Qt::black, 1.5));
    p.setBrush(Qt::white);
    p.drawEllipse(dot, 4.5, 4.5);

    p.setPen(Theme::gray2());
    p.setFont(Theme::text(10));
    p.drawText(QRectF(0, c.y() + r + 3, width(), captionHeight), Qt::AlignHCenter | Qt::AlignTop, caption_);
}

}  // namespace qv::ui
