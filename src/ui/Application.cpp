#include "ui/Application.h"

#include <QApplication>
#include <QScreen>
#include <QSocketNotifier>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>
#include <QTimer>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <random>

#include "app/AppModel.h"
#include "app/MulticamAppPlayer.h"
#include "app/RenderVideoExporter.h"
#include "diagnostics/CrashHandler.h"
#include "diagnostics/Log.h"
#include "ui/MainWindow.h"
#include "ui/QtAudioOutput.h"
#include "ui/QtPorts.h"
#include "ui/Scene.h"
#include "ui/Theme.h"

namespace qv::ui {

namespace {

bool hasDisplay() {
    for (const char* name : {"QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY"}) {
        const char* v = std::getenv(name);
        if (v && *v) return true;
    }
    return false;
}

std::optional<std::string> valueAfter(const std::vector<std::string>& args, const std::string& flag) {
    for (size_t i = 0; i + 1 < args.size(); ++i)
        if (args[i] == flag) return args[i + 1];
    return std::nullopt;
}

}  // namespace

std::optional<std::filesystem::path> folderToOpen(const std::vector<std::string>& arguments) {
    const auto value = valueAfter(arguments, "--open");
    std::error_code ec;
    if (!value || value->empty() || !std::filesystem::is_directory(*value, ec)) return std::nullopt;
    return std::filesystem::path(*value);
}

namespace {

double unixSeconds() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// `--test-edits`: once a set is installed, adds cuts in bursts (one to four,
// 100 ms apart) separated by random pauses of up to 5 s, and tells each edit
// and each save on standard output with the wall-clock time, so that a test
// can kill the program anywhere and judge the project file it left.
class EditDriver : public QObject {
public:
    EditDriver(AppModel& model, ModelObject& object) : model_(model), rng_(std::random_device{}()) {
        connect(&object, &ModelObject::changed, this, [this] {
            if (!started_ || model_.savedAt() == lastSave_) return;
            lastSave_ = model_.savedAt();
            std::printf("SAUVE %zu %.3f\n", model_.cuts().size(), unixSeconds());
            std::fflush(stdout);
        });
        QTimer::singleShot(50, this, [this] { step(); });
    }

private:
    void step() {
        if (!started_) {
            if (!model_.player() || model_.isWorking()) {
                QTimer::singleShot(50, this, [this] { step(); });
                return;
            }
            started_ = true;
            lastSave_ = model_.savedAt();
            std::printf("PRET %zu %.3f\n", model_.cuts().size(), unixSeconds());
            std::fflush(stdout);
        }
        std::vector<Cut> cuts = model_.cuts();
        Cut c;
        c.time = 0.2 + 0.02 * static_cast<double>(cuts.size());
        c.camera = static_cast<int>(cuts.size() % std::max(1, model_.cameraCount()));
        cuts.push_back(c);
        model_.setCuts(std::move(cuts));
        std::printf("EDIT %zu %.3f\n", model_.cuts().size(), unixSeconds());
        std::fflush(stdout);
        int delay = --burst_ > 0 ? 100 : static_cast<int>(std::uniform_int_distribution<int>(200, 5000)(rng_));
        if (burst_ <= 0) burst_ = std::uniform_int_distribution<int>(1, 4)(rng_);
        QTimer::singleShot(delay, this, [this] { step(); });
    }

    AppModel& model_;
    std::mt19937 rng_;
    bool started_ = false;
    int burst_ = 1;
    std::optional<Date> lastSave_;
};

// TERM, INT and HUP end the event loop like a closed window, through a
// socket pair: the handler only writes one byte, the main thread does the rest.
int signalPipe[2] = {-1, -1};

void onSignal(int) {
    char byte = 1;
    [[maybe_unused]] ssize_t n = ::write(signalPipe[0], &byte, 1);
}

void quitOnSignals(QApplication& app) {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0) return;
    auto* notifier = new QSocketNotifier(signalPipe[1], QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, [&app] {
        char byte;
        [[maybe_unused]] ssize_t n = ::read(signalPipe[1], &byte, 1);
        app.quit();
    });
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int sig : {SIGTERM, SIGINT, SIGHUP}) ::sigaction(sig, &action, nullptr);
}

// The machine's sound device, or null where none opens: the player then
// keeps time on its silent clocked output.
std::unique_ptr<AudioOutput> soundDevice() {
    auto device = std::make_unique<QtAudioOutput>();
    if (device->valid()) return device;
    Log::write("Pas de sortie son : lecture muette");
    return nullptr;
}

}  // namespace

int run(int argc, char** argv, const std::vector<std::string>& arguments) {
    if (!hasDisplay()) {
        std::cerr << "Quorvel : aucun écran disponible (ni DISPLAY ni WAYLAND_DISPLAY). Lance Quorvel dans une "
                     "session graphique, ou utilise « quorvel --cli <dossier du set> <sortie.xml> » sans écran.\n";
        return 1;
    }
    CrashHandler crashHandler;
    Log::write("Lancement de Quorvel");

    QApplication app(argc, argv);
    QApplication::setApplicationName("Quorvel");
    QApplication::setDesktopFileName("org.quorvel.Quorvel");
    Theme::apply(app);
    // Qt takes the user's locale for numbers; files and arguments must not.
    std::setlocale(LC_NUMERIC, "C");
    QApplication::setQuitOnLastWindowClosed(true);
    quitOnSignals(app);

    QtMainThread main;
    QtDialogs dialogs;
    QtFileViewer viewer;
    auto model = std::make_unique<AppModel>(AppModel::Services{main, dialogs, viewer, AppSettings::shared(),
                                                               MulticamAppPlayer::factory(soundDevice),
                                                               std::make_shared<RenderVideoExporter>(main),
                                                               arguments});
    ModelObject object(*model);
    std::unique_ptr<EditDriver> driver;
    MainWindow window(*model, object);
    dialogs.setParent(&window);
    // Roomy by default, but never larger than the screen a laptop has.
    QSize size(1440, 900);
    if (const QScreen* screen = QGuiApplication::primaryScreen()) size = size.boundedTo(screen->availableSize());
    window.resize(size);
    auto scene = Scene::start(*model, object, window, arguments);
    window.show();

    QTimer::singleShot(0, &window, [&] {
        model->checkPreviousCrash();
        if (auto value = valueAfter(arguments, "--open")) {
            if (auto folder = folderToOpen(arguments))
                model->open(*folder, true);
            else
                model->showToast("--open attend le dossier d'un set : « " + *value + " » n'en est pas un");
        }
        if (std::find(arguments.begin(), arguments.end(), "--test-edits") != arguments.end())
            driver = std::make_unique<EditDriver>(*model, object);
    });
    // A closing session or a TERM signal ends the loop through here too.
    QObject::connect(&app, &QCoreApplication::aboutToQuit, [&] { model->terminate(); });

    int status = app.exec();
    driver.reset();
    scene.reset();
    model.reset();
    Log::write("Fermeture de Quorvel");
    Log::flush();
    return status;
}

}  // namespace qv::ui
