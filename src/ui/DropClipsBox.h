// The clips of the drops in the drops panel: the command, what it will make,
// and while it runs one progress line for the whole job with its cancel.
#pragma once

#include <QTimer>
#include <QWidget>

class QAbstractButton;
class QLabel;
class QProgressBar;

namespace qv {
class AppModel;
}

namespace qv::ui {

class DropClipsBox : public QWidget {
    Q_OBJECT
public:
    explicit DropClipsBox(AppModel& model, QWidget* parent = nullptr);
    void refresh();
    QAbstractButton* exportButton() const { return export_; }
    QAbstractButton* cancelButton() const { return cancel_; }
    QLabel* progressLine() const { return line_; }
    QLabel* summary() const { return summary_; }

private:
    AppModel& model_;
    QAbstractButton* export_ = nullptr;
    QLabel* summary_ = nullptr;
    QWidget* running_ = nullptr;
    QLabel* line_ = nullptr;
    QProgressBar* bar_ = nullptr;
    QAbstractButton* cancel_ = nullptr;
    QTimer poll_;
};

}  // namespace qv::ui
