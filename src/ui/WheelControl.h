// WheelControl: a colour wheel bound to one `ColorWheel` of a grade. The
// angle of the point is the hue (0 at the right, counter-clockwise, y up),
// its distance from the centre the amount; the centre catches the point
// within 4 % of the radius, the rim holds it at 1. A double click puts hue
// and amount back to 0; the brightness (`luma`) is another control's.
// Main thread only.
#pragma once

#include <QWidget>
#include <functional>

#include "looks/ColorGrade.h"

namespace qv::ui {

class WheelControl : public QWidget {
    Q_OBJECT
public:
    static constexpr double deadCentre = 0.04;

    WheelControl(const QString& caption, std::function<ColorWheel()> get, std::function<void(const ColorWheel&)> set,
                 double diameter = 84, QWidget* parent = nullptr);

    // The wheel after pointing at (x, y) from the centre, y upward, on a
    // disc of `radius`: hue and amount change, luma stays.
    static ColorWheel pointed(ColorWheel wheel, double x, double y, double radius);
    // The disc's centre and radius in the widget.
    QPointF centre() const;
    double radius() const { return diameter_ / 2; }
    const QString& caption() const { return caption_; }
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;

private:
    void pointAt(QPointF pos);

    QString caption_;
    std::function<ColorWheel()> get_;
    std::function<void(const ColorWheel&)> set_;
    double diameter_;
};

}  // namespace qv::ui
