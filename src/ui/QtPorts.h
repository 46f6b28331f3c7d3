// The application model's ports made of Qt: timers and the hand-off to the
// main thread, dialogs (QMessageBox, QFileDialog) and the file manager.
#pragma once

#include <QObject>
#include <QPointer>
#include <QTimer>
#include <QWidget>
#include <map>
#include <memory>

#include "app/Ports.h"

namespace qv::ui {

// Timers are single-shot QTimers on the main thread; `post` queues a call on
// the main thread's event loop and may come from any thread.
class QtMainThread : public MainThread {
public:
    QtMainThread();
    ~QtMainThread() override;
    TimerId schedule(double seconds, std::function<void()> action) override;
    void cancel(TimerId id) override;
    void post(std::function<void()> action) override;

private:
    std::unique_ptr<QObject> receiver_;  // lives on the main thread
    std::map<TimerId, std::unique_ptr<QTimer>> timers_;
    TimerId lastId_ = 0;
};

class QtDialogs : public Dialogs {
public:
    void setParent(QWidget* parent) { parent_ = parent; }
    int alert(const std::string& title, const std::string& text, const std::vector<std::string>& buttons) override;
    std::optional<std::filesystem::path> chooseFolder(const std::string& message) override;
    std::optional<std::filesystem::path> chooseFile(const std::string& message,
                                                    const std::vector<std::string>& extensions) override;
    std::optional<std::filesystem::path> saveFile(const std::string& message, const std::string& suggested,
                                                  const std::string& extension,
                                                  const std::filesystem::path& folder) override;

private:
    QPointer<QWidget> parent_;
};

// The freedesktop FileManager1 interface over D-Bus selects the files; where
// no file manager answers, the folder of the first file is opened.
class QtFileViewer : public FileViewer {
public:
    void showItems(const std::vector<std::filesystem::path>& files) override;
    void open(const std::filesystem::path& file) override;
};

}  // namespace qv::ui
