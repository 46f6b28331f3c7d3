#include "ui/Capture.h"

#include <QPixmap>
#include <QWidget>
#include <utility>

#include "base/Text.h"

namespace qv::ui {

namespace {

constexpr int pollMs = 20;
constexpr int startWithinPolls = 60 * 1000 / pollMs;

}  // namespace

Status grabToPng(QWidget& window, const std::filesystem::path& png) {
    const QPixmap picture = window.grab();
    if (picture.isNull()) return Error{"Capture impossible : la fenêtre n'est pas affichée."};
    // Written beside and renamed, so no half picture stands under the name.
    std::filesystem::path partial = png;
    partial += ".partiel";
    if (!picture.save(QString::fromStdString(partial.string()), "PNG")) {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        return Error{"Capture impossible : " + png.string() + " ne peut pas être écrit."};
    }
    std::error_code ec;
    std::filesystem::rename(partial, png, ec);
    if (ec) return Error{"Capture impossible : " + png.string() + " ne peut pas être écrit."};
    return Ok{};
}

UnderWayCapture::UnderWayCapture(QWidget& window, std::filesystem::path png, double from, Job job,
                                 std::function<void(const Status&)> done, QObject* parent)
    : QObject(parent), window_(window), png_(std::move(png)), from_(from), job_(std::move(job)), done_(std::move(done)) {
    poll_.setInterval(pollMs);
    connect(&poll_, &QTimer::timeout, this, &UnderWayCapture::check);
    poll_.start();
}

void UnderWayCapture::check() {
    const std::optional<double> progress = job_.progress();
    if (!progress) {
        if (seen_) {
            finish(Error{"Capture impossible : le travail s'est terminé avant " +
                         cformat("%.0f", from_ * 100) + " %."});
        } else if (++waited_ > startWithinPolls) {
            finish(Error{"Capture impossible : aucun travail n'a commencé."});
        }
        return;
    }
    seen_ = true;
    if (*progress < from_ || *progress >= 1) return;
    if (job_.settle) job_.settle();
    finish(png_.empty() ? Status(Ok{}) : grabToPng(window_, png_));
}

void UnderWayCapture::finish(const Status& status) {
    poll_.stop();
    if (auto done = std::exchange(done_, nullptr)) done(status);
}

}  // namespace qv::ui
