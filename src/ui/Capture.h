// Capture: the program photographs its own window into a PNG file at a
// moment only it can see, such as a job part-way through. A screenshot taken
// from outside races the job and often catches it finished; this cannot.
// Main thread only.
#pragma once

#include <QObject>
#include <QTimer>
#include <filesystem>
#include <functional>
#include <optional>

#include "base/Result.h"

class QWidget;

namespace qv::ui {

// Renders `window` and its children, as they stand now, into a PNG file.
Status grabToPng(QWidget& window, const std::filesystem::path& png);

// Watches a job and, the first time it runs with its progress at `from` or
// more and not yet complete, photographs `window` into `png` (nothing is
// written when `png` is empty) and calls `done` once. A job that ends before
// that moment, or does not start within 60 s, ends the watch with an error.
class UnderWayCapture : public QObject {
public:
    struct Job {
        std::function<std::optional<double>()> progress;  // nothing while the job does not run
        std::function<void()> settle;                      // brings the screen up to date; may be empty
    };
    UnderWayCapture(QWidget& window, std::filesystem::path png, double from, Job job,
                    std::function<void(const Status&)> done, QObject* parent = nullptr);
    // Still looking at the job: false once `done` has been called.
    bool watching() const { return poll_.isActive(); }

private:
    void check();
    void finish(const Status& status);

    QWidget& window_;
    std::filesystem::path png_;
    double from_;
    Job job_;
    std::function<void(const Status&)> done_;
    QTimer poll_;
    int waited_ = 0;  // polls before the job was first seen running
    bool seen_ = false;
};

}  // namespace qv::ui
