#include "ui/PanelControls.h"

#include <QGraphicsOpacityEffect>
#include <QHBoxLayout>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QProgressBar>
#include <QTimer>
#include <QPushButton>
#include <cmath>

#include "app/AppModel.h"
#include "base/Format.h"
#include "base/Text.h"
#include "ui/Theme.h"
#include "ui/Widgets.h"

namespace qv::ui {

namespace {

// A small square button with a number, lit in the accent when on.
class NumberButton : public QAbstractButton {
public:
    NumberButton(const QString& text, QWidget* parent) : QAbstractButton(parent) {
        setText(text);
        setCheckable(true);
        setCursor(Qt::PointingHandCursor);
        setFocusPolicy(Qt::NoFocus);
        setFixedSize(30, 26);
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.setOpacity(isEnabled() ? 1.0 : 0.35);
        QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
        p.setPen(QPen(isChecked() ? Theme::accent() : underMouse() ? Theme::gray4() : Theme::lineStrong(), 1));
        p.setBrush(isChecked() ? Theme::withAlpha(Theme::accent(), 0.16) : QColor(Qt::transparent));
        p.drawRoundedRect(r, 4, 4);
        p.setFont(Theme::numbers(12));
        p.setPen(isChecked() ? Theme::accent() : Theme::gray2());
        p.drawText(rect(), Qt::AlignCenter, text());
    }
};

}  // namespace

QString formatValue(const char* format, double value) {
    std::string s = cformat(format, value);
    // A signed zero is only a zero.
    const std::string body = s.substr(0, s.find(' '));
    if (!body.empty() && (body[0] == '+' || body[0] == '-') && body.find_first_not_of("+-0") == std::string::npos)
        s.erase(0, 1);
    return QString::fromStdString(s);
}

Formatter formatter(const char* format) {
    return [format](double v) { return formatValue(format, v); };
}

QString percentOfFraction(double fraction) { return formatValue("%.0f %%", fraction * 100); }

QString rangeText(const TimeRange& r) {
    return QString::fromStdString(Format::timecode(r.start) + " → " + Format::timecode(r.end) + " · " +
                                  Format::duration(r.end - r.start));
}

// --- ValueSlider

ValueSlider::ValueSlider(const QString& title, double minimum, double maximum, double step, double neutral,
                         Formatter format, std::function<double()> get, std::function<void(double)> set,
                         QWidget* parent)
    : QWidget(parent),
      title_(title),
      minimum_(minimum),
      maximum_(maximum),
      step_(step > 0 ? step : 1),
      neutral_(std::clamp(neutral, minimum, maximum)),
      format_(format ? std::move(format) : formatter("%.0f")),
      get_(std::move(get)),
      set_(std::move(set)) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 2, 0, 2);
    column->setSpacing(3);
    auto* head = new QHBoxLayout();
    titleLabel_ = new QLabel(title, this);
    titleLabel_->setFont(Theme::text(11));
    setTextColor(titleLabel_, Theme::gray1());
    valueLabel_ = new QLabel(this);
    valueLabel_->setFont(Theme::numbers(11));
    setTextColor(valueLabel_, Theme::gray2());
    head->addWidget(titleLabel_, 1);
    head->addWidget(valueLabel_, 0, Qt::AlignRight);
    column->addLayout(head);
    slider_ = new QSlider(Qt::Horizontal, this);
    slider_->setRange(0, int(std::lround((maximum_ - minimum_) / step_)));
    slider_->setFocusPolicy(Qt::NoFocus);
    column->addWidget(slider_);
    setToolTip(QStringLiteral("Double-clic : remettre à %1").arg(format_(neutral_)));
    for (QWidget* w : {static_cast<QWidget*>(titleLabel_), static_cast<QWidget*>(valueLabel_),
                       static_cast<QWidget*>(slider_)})
        w->installEventFilter(this);
    connect(slider_, &QSlider::valueChanged, this, [this](int position) {
        const double v = minimum_ + position * step_;
        if (std::abs(v - get_()) < step_ * 1e-6) return;
        set_(std::clamp(v, minimum_, maximum_));
        valueLabel_->setText(format_(get_()));
    });
    refresh();
}

double ValueSlider::snapped(double v) const {
    v = std::clamp(v, minimum_, maximum_);
    return std::clamp(minimum_ + std::round((v - minimum_) / step_) * step_, minimum_, maximum_);
}

void ValueSlider::setRange(double minimum, double maximum) {
    if (minimum == minimum_ && maximum == maximum_) return;
    minimum_ = minimum;
    maximum_ = std::max(minimum, maximum);
    neutral_ = std::clamp(neutral_, minimum_, maximum_);
    const QSignalBlocker block(slider_);
    slider_->setRange(0, int(std::lround((maximum_ - minimum_) / step_)));
    refresh();
}

void ValueSlider::setValue(double v) {
    set_(snapped(v));
    refresh();
}

void ValueSlider::refresh() {
    const double v = get_();
    const QSignalBlocker block(slider_);
    slider_->setValue(int(std::lround((std::clamp(v, minimum_, maximum_) - minimum_) / step_)));
    const QString text = format_(v);
    if (valueLabel_->text() != text) valueLabel_->setText(text);
}

void ValueSlider::changeEvent(QEvent* event) {
    if (event->type() == QEvent::EnabledChange) {
        if (isEnabled()) {
            setGraphicsEffect(nullptr);
        } else {
            auto* dim = new QGraphicsOpacityEffect(this);
            dim->setOpacity(0.35);
            setGraphicsEffect(dim);
        }
    }
    QWidget::changeEvent(event);
}

void ValueSlider::mouseDoubleClickEvent(QMouseEvent* event) {
    set_(neutral_);
    refresh();
    event->accept();
}

bool ValueSlider::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::MouseButtonDblClick && isEnabled()) {
        set_(neutral_);
        refresh();
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

// --- PanelBox, PanelNote, PanelToggle

PanelBox::PanelBox(const QString& title, QWidget* parent) : QFrame(parent) {
    setObjectName(QStringLiteral("panelBox"));
    setStyleSheet(QStringLiteral("QFrame#panelBox { border: 1px solid %1; border-radius: 6px; background: %2; }")
                      .arg(Theme::line().name(), Theme::withAlpha(Theme::paperSoft(), 0.6).name(QColor::HexArgb)));
    content_ = new QVBoxLayout(this);
    content_->setContentsMargins(12, 10, 12, 12);
    content_->setSpacing(8);
    if (!title.isEmpty()) content_->addWidget(new QuorvelLabel(title, this));
}

PanelNote::PanelNote(const QString& text, QWidget* parent) : QLabel(text, parent) {
    setWordWrap(true);
    setFont(Theme::text(10));
    setTextColor(this, Theme::gray3());
    setTextInteractionFlags(Qt::NoTextInteraction);
}

QLabel* textLabel(const QString& text, QWidget* parent, double size, const QColor& color, Theme::Weight weight) {
    QLabel* l = makeLabel(text, Theme::text(size, weight), color, parent);
    l->setWordWrap(true);
    return l;
}

QWidget* captioned(const QString& caption, QWidget* control, QWidget* parent) {
    auto* w = new QWidget(parent);
    auto* column = new QVBoxLayout(w);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(4);
    column->addWidget(textLabel(caption, w, 11));
    control->setParent(w);
    column->addWidget(control);
    return w;
}

PanelToggle::PanelToggle(const QString& text, std::function<bool()> get, std::function<void(bool)> set,
                         QWidget* parent)
    : QWidget(parent), get_(std::move(get)) {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(8);
    box_ = new QCheckBox(this);
    box_->setCursor(Qt::PointingHandCursor);
    box_->setFocusPolicy(Qt::NoFocus);
    box_->setStyleSheet(QStringLiteral("QCheckBox::indicator { width: 26px; height: 14px; border-radius: 7px;"
                                       " background: %1; border: 1px solid %2; }"
                                       "QCheckBox::indicator:checked { background: %3; border-color: %3; }")
                            .arg(Theme::paper().name(), Theme::lineStrong().name(), Theme::accent().name()));
    row->addWidget(box_, 0, Qt::AlignTop);
    label_ = new QLabel(text, this);
    label_->setWordWrap(true);
    label_->setFont(Theme::text(11));
    setTextColor(label_, Theme::gray1());
    label_->setVisible(!text.isEmpty());
    row->addWidget(label_, 1);
    setCursor(Qt::PointingHandCursor);
    connect(box_, &QCheckBox::toggled, this, [set = std::move(set)](bool on) { set(on); });
    refresh();
}

QString PanelToggle::text() const { return label_->text(); }
bool PanelToggle::isChecked() const { return box_->isChecked(); }
void PanelToggle::click() { box_->click(); }

void PanelToggle::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint())) box_->click();
}

void PanelToggle::refresh() {
    const QSignalBlocker block(box_);
    box_->setChecked(get_());
}

WrapButton::WrapButton(const char* symbol, const QString& text, QWidget* parent) : QAbstractButton(parent), symbol_(symbol) {
    setText(text);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::NoFocus);
    setFont(Theme::text(11, Theme::Weight::semibold));
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

int WrapButton::heightForWidth(int width) const {
    QFontMetrics fm(font());
    const QRect r = fm.boundingRect(QRect(0, 0, std::max(40, width - 44), 1000), Qt::TextWordWrap, text());
    return std::max(32, r.height() + 14);
}

QSize WrapButton::sizeHint() const { return {220, heightForWidth(220)}; }
QSize WrapButton::minimumSizeHint() const { return {80, 32}; }

void WrapButton::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setOpacity(!isEnabled() ? 0.35 : isDown() ? 0.7 : 1.0);
    QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    p.setPen(QPen(underMouse() ? Theme::gray4() : Theme::lineStrong(), 1));
    p.setBrush(Theme::paperSoft());
    p.drawRoundedRect(r, 4, 4);
    Theme::drawSymbol(p, QRectF(6, 0, 24, height()), symbol_, 15, Theme::gray1());
    p.setFont(font());
    p.setPen(Theme::gray1());
    p.drawText(QRectF(34, 7, width() - 44, height() - 14), Qt::AlignVCenter | Qt::AlignLeft | Qt::TextWordWrap, text());
}

QPushButton* menuButton(QWidget* parent) {
    auto* b = new QPushButton(parent);
    b->setCursor(Qt::PointingHandCursor);
    b->setFocusPolicy(Qt::NoFocus);
    b->setFont(Theme::text(11, Theme::Weight::medium));
    b->setStyleSheet(QStringLiteral("QPushButton { color: %1; background: %2; border: 1px solid %3; border-radius: 4px;"
                                    " padding: 6px 10px; text-align: left; }"
                                    "QPushButton::menu-indicator { subcontrol-position: right center; right: 8px; }")
                         .arg(Theme::gray1().name(), Theme::paper().name(), Theme::lineStrong().name()));
    b->setMenu(new QMenu(b));
    return b;
}

QAbstractButton* fitWidth(QAbstractButton* button) {
    button->setSizePolicy(QSizePolicy::Ignored, button->sizePolicy().verticalPolicy());
    button->setMinimumWidth(40);
    return button;
}

// --- CameraTabs and CameraPicker

CameraTabs::CameraTabs(AppModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    row_ = new QHBoxLayout(this);
    row_->setContentsMargins(0, 0, 0, 0);
    row_->setSpacing(4);
    row_->addStretch(1);
    refresh();
}

QAbstractButton* CameraTabs::tab(int camera) const {
    return camera >= 0 && size_t(camera) < tabs_.size() ? tabs_[size_t(camera)] : nullptr;
}

void CameraTabs::refresh() {
    const int count = model_.cameraCount();
    while (int(tabs_.size()) > count) {
        delete tabs_.back();
        tabs_.pop_back();
    }
    while (int(tabs_.size()) < count) {
        const int camera = int(tabs_.size());
        auto* b = new NumberButton(QString::number(camera + 1), this);
        b->setToolTip(QString::fromStdString(model_.cameraName(camera)));
        connect(b, &QAbstractButton::clicked, this, [this, camera] { model_.setEditedCamera(camera); });
        row_->insertWidget(camera, b);
        tabs_.push_back(b);
    }
    for (int c = 0; c < count; ++c) {
        const QSignalBlocker block(tabs_[size_t(c)]);
        tabs_[size_t(c)]->setChecked(c == model_.editedCamera());
    }
}

CameraPicker::CameraPicker(AppModel& model, const QString& title, std::function<bool(int)> isOn,
                           std::function<void(int)> toggle, QWidget* parent)
    : QWidget(parent), model_(model), isOn_(std::move(isOn)), toggle_(std::move(toggle)) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(4);
    auto* caption = new QLabel(title, this);
    caption->setFont(Theme::text(10));
    setTextColor(caption, Theme::gray3());
    column->addWidget(caption);
    row_ = new QHBoxLayout();
    row_->setSpacing(4);
    row_->addStretch(1);
    column->addLayout(row_);
    refresh();
}

void CameraPicker::refresh() {
    const int count = model_.cameraCount();
    while (int(buttons_.size()) > count) {
        delete buttons_.back();
        buttons_.pop_back();
    }
    while (int(buttons_.size()) < count) {
        const int camera = int(buttons_.size());
        auto* b = new NumberButton(QString::number(camera + 1), this);
        b->setToolTip(QString::fromStdString(model_.cameraName(camera)));
        connect(b, &QAbstractButton::clicked, this, [this, camera] { toggle_(camera); });
        row_->insertWidget(camera, b);
        buttons_.push_back(b);
    }
    for (int c = 0; c < count; ++c) {
        const QSignalBlocker block(buttons_[size_t(c)]);
        buttons_[size_t(c)]->setChecked(isOn_(c));
    }
}

// --- ChoiceRow

ChoiceRow::ChoiceRow(const QString& title, QWidget* parent) : QAbstractButton(parent) {
    setText(title);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::NoFocus);
}

void ChoiceRow::setOn(bool on) {
    if (on_ == on) return;
    on_ = on;
    update();
}

QSize ChoiceRow::sizeHint() const {
    QFontMetrics fm(Theme::text(12, Theme::Weight::medium));
    return {fm.horizontalAdvance(text()) + 46, 34};
}

void ChoiceRow::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setOpacity(!isEnabled() ? 0.35 : isDown() ? 0.7 : 1.0);
    QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    p.setPen(QPen(on_ ? Theme::withAlpha(Theme::accent(), 0.6) : Theme::line(), 1));
    p.setBrush(on_ ? Theme::withAlpha(Theme::accent(), 0.08) : QColor(Qt::transparent));
    p.drawRoundedRect(r, 5, 5);
    Theme::drawSymbol(p, QRectF(8, 0, 22, height()), on_ ? "largecircle.fill.circle" : "circle", 16,
                      on_ ? Theme::accent() : Theme::gray4());
    p.setFont(Theme::text(12, Theme::Weight::medium));
    p.setPen(on_ ? Theme::ink() : Theme::gray1());
    p.drawText(QRectF(36, 0, width() - 40, height()), Qt::AlignVCenter | Qt::AlignLeft, text());
}

ChoiceRow* choiceButton(const QString& title, bool on, std::function<void()> action, QWidget* parent) {
    auto* row = new ChoiceRow(title, parent);
    row->setOn(on);
    QObject::connect(row, &QAbstractButton::clicked, row, [action = std::move(action)] { action(); });
    return row;
}

// --- ExportProgress

ExportProgress::ExportProgress(AppModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(6);
    auto* head = new QHBoxLayout();
    title_ = new QLabel(this);
    title_->setFont(Theme::text(12, Theme::Weight::semibold));
    setTextColor(title_, Theme::ink());
    percent_ = new QLabel(this);
    percent_->setFont(Theme::numbers(12));
    setTextColor(percent_, Theme::accent());
    head->addWidget(title_, 1);
    head->addWidget(percent_);
    column->addLayout(head);
    bar_ = new QProgressBar(this);
    bar_->setRange(0, 1000);
    bar_->setTextVisible(false);
    column->addWidget(bar_);
    cancel_ = new QuorvelButton(QStringLiteral("Annuler l'export"), QuorvelButton::Kind::outlined, this);
    connect(cancel_, &QAbstractButton::clicked, this, [this] {
        if (model_.isExportingClips()) model_.cancelDropClips();
        else if (VideoExporter* exporter = model_.videoExporter()) exporter->cancel();
    });
    column->addWidget(cancel_);
    auto* timer = new QTimer(this);
    timer->setInterval(250);
    connect(timer, &QTimer::timeout, this, [this] {
        if (isVisible()) refresh();
    });
    timer->start();
    refresh();
}

double ExportProgress::fraction() const {
    if (model_.isExportingClips()) return model_.clipsProgress();
    const VideoExporter* exporter = model_.videoExporter();
    return exporter ? std::clamp(exporter->progress(), 0.0, 1.0) : 0;
}

QString ExportProgress::percentText() const { return QString::fromStdString(Format::percent(fraction())); }

void ExportProgress::refresh() {
    title_->setText(model_.isExportingClips() ? QStringLiteral("Clips des drops en cours")
                                              : QStringLiteral("Export vidéo en cours"));
    percent_->setText(percentText());
    bar_->setValue(int(std::lround(fraction() * 1000)));
}

// --- PanelPage

PanelPage::PanelPage(const QString& title, QWidget* parent) : QScrollArea(parent) {
    // Only text fields take the keys: a click on the panel's ground must
    // leave the arrows, the space bar and the camera keys to the workspace.
    setFocusPolicy(Qt::NoFocus);
    setWidgetResizable(true);
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto* inner = new QWidget(this);
    column_ = new QVBoxLayout(inner);
    column_->setContentsMargins(16, 16, 14, 20);
    column_->setSpacing(12);
    if (!title.isEmpty()) {
        auto* head = new QLabel(title, inner);
        head->setFont(Theme::text(15, Theme::Weight::semibold));
        setTextColor(head, Theme::ink());
        column_->addWidget(head);
    }
    setWidget(inner);
}

void PanelPage::refresh() {
    // Buttons shrink with the panel rather than widen it.
    for (auto* b : widget()->findChildren<QuorvelButton*>())
        if (b->sizePolicy().horizontalPolicy() != QSizePolicy::Ignored) fitWidth(b);
    for (auto* s : widget()->findChildren<ValueSlider*>()) s->refresh();
    for (auto* t : widget()->findChildren<PanelToggle*>()) t->refresh();
    for (auto* t : widget()->findChildren<CameraTabs*>()) t->refresh();
    for (auto* t : widget()->findChildren<CameraPicker*>()) t->refresh();
}

std::vector<ValueSlider*> PanelPage::sliders() const {
    auto found = widget()->findChildren<ValueSlider*>();
    return {found.begin(), found.end()};
}

}  // namespace qv::ui
