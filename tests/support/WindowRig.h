// The real main window over a real application model in a throw-away home,
// on virtual time, for the interface suites (Qt Test, offscreen platform).
// No dialog answers and no file is shown: a test that needs them brings its own.
#pragma once

#include <QApplication>
#include <QMouseEvent>

#include "app/AppModel.h"
#include "app/ClockPlayer.h"
#include "app/VirtualMainThread.h"
#include "support/Fixtures.h"
#include "support/TempHome.h"
#include "ui/ContentView.h"
#include "ui/MainWindow.h"
#include "ui/Workspace.h"

namespace qv::test {

struct NoDialogs : Dialogs {
    int alert(const std::string&, const std::string&, const std::vector<std::string>&) override { return -1; }
    std::optional<std::filesystem::path> chooseFolder(const std::string&) override { return std::nullopt; }
    std::optional<std::filesystem::path> chooseFile(const std::string&, const std::vector<std::string>&) override {
        return std::nullopt;
    }
    std::optional<std::filesystem::path> saveFile(const std::string&, const std::string&, const std::string&,
                                                  const std::filesystem::path&) override {
        return std::nullopt;
    }
};

struct NoViewer : FileViewer {
    void showItems(const std::vector<std::filesystem::path>&) override {}
    void open(const std::filesystem::path&) override {}
};

// A mouse event as the platform delivers it: the left button, pressed or not.
inline void send(QWidget* w, QEvent::Type type, QPointF at, Qt::MouseButtons buttons) {
    QMouseEvent e(type, at, w->mapToGlobal(at), Qt::LeftButton, buttons, Qt::NoModifier);
    QCoreApplication::sendEvent(w, &e);
}

// A drag with the left button: pressed at `from`, moved in `steps` even steps
// to `to` and let go there. No step is a click.
inline void drag(QWidget* w, QPointF from, QPointF to, int steps) {
    send(w, QEvent::MouseButtonPress, from, Qt::LeftButton);
    for (int k = 1; k <= steps; ++k) send(w, QEvent::MouseMove, from + (to - from) * k / double(steps), Qt::LeftButton);
    send(w, QEvent::MouseButtonRelease, to, Qt::NoButton);
}

struct WindowRig {
    explicit WindowRig(std::vector<std::string> arguments = {}) : arguments(std::move(arguments)) {}
    std::vector<std::string> arguments;  // the command line, for --tuto and --demo
    TempHome home;
    VirtualMainThread main;
    NoDialogs dialogs;
    NoViewer viewer;
    AppSettings settings{home.root() / "config" / "settings.json"};
    AppModel model{AppModel::Services{main, dialogs, viewer, settings, ClockPlayer::factory(), nullptr, arguments}};
    ui::ModelObject object{model};
    ui::MainWindow window{model, object};

    ui::ContentView& content() { return *window.content(); }
    ui::Workspace& workspace() { return *content().workspace(); }

    // Waits for the model's work to end with a player, and the screens to catch up.
    bool settle() {
        if (!main.waitUntil([this] { return !model.isWorking() && model.player(); })) return false;
        main.drain();
        QCoreApplication::processEvents();
        return true;
    }
    // Opens a generated set and synchronises it.
    bool openSet(const std::string& preset = "tiny", int seed = 11) {
        const auto set = generatedSet(preset, seed);
        if (set.empty()) return false;
        model.open(set, true);
        return settle();
    }
};

}  // namespace qv::test
