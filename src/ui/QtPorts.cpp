#include "ui/QtPorts.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDesktopServices>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>
#include <QUrl>

namespace qv::ui {

namespace {
QString q(const std::string& s) { return QString::fromStdString(s); }
std::filesystem::path fromQ(const QString& s) { return std::filesystem::path(s.toStdString()); }
}  // namespace

QtMainThread::QtMainThread() : receiver_(std::make_unique<QObject>()) {}

QtMainThread::~QtMainThread() = default;

Scheduler::TimerId QtMainThread::schedule(double seconds, std::function<void()> action) {
    const TimerId id = ++lastId_;
    auto timer = std::make_unique<QTimer>();
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer);
    QObject::connect(timer.get(), &QTimer::timeout, receiver_.get(), [this, id, action = std::move(action)] {
        // The timer goes first: the action may schedule or cancel others.
        auto it = timers_.find(id);
        if (it == timers_.end()) return;
        it->second.release()->deleteLater();
        timers_.erase(it);
        action();
    });
    timer->start(static_cast<int>(std::max(0.0, seconds) * 1000.0 + 0.5));
    timers_[id] = std::move(timer);
    return id;
}

void QtMainThread::cancel(TimerId id) { timers_.erase(id); }

void QtMainThread::post(std::function<void()> action) {
    QMetaObject::invokeMethod(receiver_.get(), std::move(action), Qt::QueuedConnection);
}

int QtDialogs::alert(const std::string& title, const std::string& text, const std::vector<std::string>& buttons) {
    QMessageBox box(parent_);
    box.setWindowTitle(q(title));
    box.setText(q(title));
    box.setInformativeText(q(text));
    std::vector<QPushButton*> pushes;
    for (size_t i = 0; i < buttons.size(); ++i) {
        // The last of several buttons is the way out ("Annuler", "OK").
        auto role = i + 1 == buttons.size() && buttons.size() > 1 && buttons[i] == "Annuler" ? QMessageBox::RejectRole
                                                                                               : QMessageBox::AcceptRole;
        pushes.push_back(box.addButton(q(buttons[i]), role));
    }
    if (!pushes.empty()) box.setDefaultButton(pushes.front());
    box.exec();
    for (size_t i = 0; i < pushes.size(); ++i)
        if (box.clickedButton() == pushes[i]) return static_cast<int>(i);
    return -1;
}

std::optional<std::filesystem::path> QtDialogs::chooseFolder(const std::string& message) {
    QString dir = QFileDialog::getExistingDirectory(parent_, q(message), QString(), QFileDialog::ShowDirsOnly);
    if (dir.isEmpty()) return std::nullopt;
    return fromQ(dir);
}

std::optional<std::filesystem::path> QtDialogs::chooseFile(const std::string& message,
                                                           const std::vector<std::string>& extensions) {
    QString filter;
    for (const auto& e : extensions) filter += (filter.isEmpty() ? "" : " ") + QString("*.") + q(e);
    QString file = QFileDialog::getOpenFileName(parent_, q(message), QString(), filter);
    if (file.isEmpty()) return std::nullopt;
    return fromQ(file);
}

std::optional<std::filesystem::path> QtDialogs::saveFile(const std::string& message, const std::string& suggested,
                                                         const std::string& extension,
                                                         const std::filesystem::path& folder) {
    QString filter = extension.empty() ? QString("*") : QString("*.") + q(extension);
    QString file = QFileDialog::getSaveFileName(parent_, q(message), q((folder / suggested).string()), filter);
    if (file.isEmpty()) return std::nullopt;
    return fromQ(file);
}

void QtFileViewer::showItems(const std::vector<std::filesystem::path>& files) {
    if (files.empty()) return;
    QStringList uris;
    for (const auto& f : files) uris << QUrl::fromLocalFile(q(f.string())).toString();
    QDBusMessage call = QDBusMessage::createMethodCall("org.freedesktop.FileManager1", "/org/freedesktop/FileManager1",
                                                       "org.freedesktop.FileManager1", "ShowItems");
    call << uris << QString();
    QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 2000);
    if (reply.type() == QDBusMessage::ReplyMessage) return;
    QDesktopServices::openUrl(QUrl::fromLocalFile(q(files.front().parent_path().string())));
}

void QtFileViewer::open(const std::filesystem::path& file) {
    QDesktopServices::openUrl(QUrl::fromLocalFile(q(file.string())));
}

}  // namespace qv::ui
