// many_cuts_bench <set folder>: what one edit costs the window when the edit
// holds 10^4, 10^5 and 10^6 cuts. The set's files are stretched to hold that
// many cuts half a second apart; then, on the editing screen, the camera of
// the plan under the play head is switched (key 1 or 2, stopped), and the
// main thread's work is timed as the user waits for it: the edit and the
// screen's repaint, the look rebuild 60 ms later, the autosave 1.5 s later.
// The reference is the same edit with 100 cuts, in the same run. Timers run
// on virtual time, so each share is measured alone. Run it on the offscreen
// platform or under Xvfb; it writes its projects into a temporary folder.
#include <QApplication>
#include <QElapsedTimer>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "app/AppModel.h"
#include "app/ClockPlayer.h"
#include "app/VirtualMainThread.h"
#include "ui/ContentView.h"
#include "ui/MainWindow.h"
#include "ui/QtPorts.h"
#include "ui/Theme.h"
#include "ui/Workspace.h"

namespace {

std::string load() {
    std::ifstream in("/proc/loadavg");
    std::string a, b, c;
    in >> a >> b >> c;
    return a + " " + b + " " + c;
}

// Milliseconds that `work` takes.
template <class Work>
double timed(Work work) {
    QElapsedTimer clock;
    clock.start();
    work();
    return double(clock.nsecsElapsed()) / 1e6;
}

struct Shares {
    double edit = 0, looks = 0, save = 0;
    double total() const { return edit + looks + save; }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "Usage : many_cuts_bench <dossier du set>\n");
        return 2;
    }
    char pattern[] = "/tmp/quorvel-manycuts-XXXXXX";
    const std::string home = ::mkdtemp(pattern);
    ::setenv("QUORVEL_PROJECTS_DIR", (home + "/projets").c_str(), 1);
    ::setenv("XDG_STATE_HOME", (home + "/state").c_str(), 1);

    QApplication app(argc, argv);
    qv::ui::Theme::apply(app);
    qv::VirtualMainThread main;
    qv::ui::QtDialogs dialogs;  // never opened: the edits ask nothing
    qv::ui::QtFileViewer viewer;
    qv::AppSettings settings(home + "/settings.json");
    qv::AppModel model(qv::AppModel::Services{main, dialogs, viewer, settings, qv::ClockPlayer::factory(), nullptr, {}});
    qv::ui::ModelObject object(model);
    qv::ui::MainWindow window(model, object);
    window.resize(1600, 1000);
    window.show();
    auto settle = [&] {
        main.drain();
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
    };

    model.open(argv[1], true);
    if (!main.waitUntil([&] { return !model.isWorking() && model.player(); }, 600) || model.cameraCount() < 2) {
        std::fprintf(stderr, "Le set n'a pas pu être ouvert (deux caméras au moins).\n");
        return 1;
    }
    main.advance(3);
    settle();
    const qv::SyncResult synced = *model.result();
    std::printf("Set : %s · charge de la machine : %s\n", argv[1], load().c_str());

    auto measure = [&](int count) {
        // Every file stretched over the whole edit: each camera films all along.
        const double length = 0.5 * count + 10;
        qv::SyncResult stretched = synced;
        for (qv::PlacedItem& p : stretched.placed) {
            p.start = 0;
            p.item.duration = length;
        }
        model.install(stretched, model.sources());
        std::vector<qv::Cut> cuts(static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) {
            cuts[size_t(i)].time = 0.5 * i;
            cuts[size_t(i)].camera = i % 2;
        }
        model.setCuts(std::move(cuts));
        main.advance(3);
        settle();
        model.player()->seek(0.5 * (count / 2) + 0.25);
        settle();

        Shares best;
        for (int round = 0; round < 3; ++round) {
            const double now = model.player()->currentTime();
            const int camera = model.edit().activeCamera(now) == 0 ? 1 : 0;
            model.edit().select(std::nullopt);  // the plan under the play head
            settle();
            Shares s;
            s.edit = timed([&] {
                model.edit().pressCamera(camera);
                settle();
            });
            if (model.edit().activeCamera(now) != camera) {
                std::fprintf(stderr, "La retouche n'a pas eu lieu.\n");
                std::exit(1);
            }
            s.looks = timed([&] { main.advance(qv::AppModel::looksDelay + 0.01); });
            s.save = timed([&] { main.advance(qv::AppModel::autosaveDelay); });
            if (round == 0 || s.total() < best.total()) best = s;
        }
        return best;
    };

    const Shares reference = measure(100);
    std::printf("Une retouche (changer la caméra d'un plan), fenêtre comprise, meilleure de 3 :\n");
    std::printf("  %9d coupes : %8.1f ms (retouche et écran %.1f, aperçu %.1f, sauvegarde %.1f)\n", 100,
                reference.total(), reference.edit, reference.looks, reference.save);
    for (int count : {10000, 100000, 1000000}) {
        const Shares s = measure(count);
        std::printf("  %9d coupes : %8.1f ms (retouche et écran %.1f, aperçu %.1f, sauvegarde %.1f) · %.0f × 100 coupes\n",
                    count, s.total(), s.edit, s.looks, s.save, s.total() / std::max(0.01, reference.total()));
    }
    std::fflush(stdout);
    std::system(("rm -rf '" + home + "'").c_str());
    return 0;
}
