// The application model without a window, for the hostile table: it opens
// a set as the window does (real scan, synchronisation, project store, lock,
// settings, autosave on virtual time), makes one cut, lets the autosave run,
// sends a frame through the looks and writes the montage, then prints what
// the window would show, one line each:
//
//   ERREUR : {error message}     TOAST : {toast, as it comes}     PIED : {save problem}
//   COUPES : {cuts in the saved project}
//
//   quorvel-appprobe <set> ouvrir
//
// Homes come from the environment (QUORVEL_PROJECTS_DIR, XDG_*).
#include <filesystem>
#include <iostream>
#include <string>

#include "app/AppModel.h"
#include "app/ClockPlayer.h"
#include "app/VirtualMainThread.h"
#include "persistence/ProjectStore.h"
#include "platform/Paths.h"

namespace fs = std::filesystem;
using namespace qv;

namespace {

struct ScriptedDialogs : qv::Dialogs {
    // Closing with a failed save keeps the window: the probe must end anyway.
    int alert(const std::string&, const std::string&, const std::vector<std::string>& buttons) override {
        return buttons.size() == 3 ? 1 : -1;
    }
    std::optional<fs::path> chooseFolder(const std::string&) override { return std::nullopt; }
    std::optional<fs::path> chooseFile(const std::string&, const std::vector<std::string>&) override {
        return std::nullopt;
    }
    std::optional<fs::path> saveFile(const std::string&, const std::string&, const std::string&,
                                     const fs::path&) override {
        return std::nullopt;
    }
};

struct Viewer : FileViewer {
    void showItems(const std::vector<fs::path>&) override {}
    void open(const fs::path&) override {}
};

// Toasts are told as they come (they last 2.5 s); the rest when asked.
void show(const AppModel& model) {
    if (model.errorMessage()) std::cout << "ERREUR : " << *model.errorMessage() << "\n";
    if (model.saveProblem()) std::cout << "PIED : " << *model.saveProblem() << "\n";
}

void showStored(const AppModel& model) {
    if (!model.currentProjectId()) return;
    auto stored = ProjectStore::read(*model.currentProjectId());
    std::cout << "COUPES : " << (stored ? std::to_string(stored->cuts.size()) : "illisible") << "\n";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3 || std::string(argv[2]) != "ouvrir") {
        std::cerr << "usage : quorvel-appprobe <set> ouvrir\n";
        return 2;
    }
    const fs::path set = argv[1];
    VirtualMainThread main;
    ScriptedDialogs dialogs;
    Viewer viewer;
    AppSettings settings;
    auto model = std::make_unique<AppModel>(AppModel::Services{
        main, dialogs, viewer, settings, ClockPlayer::factory(), nullptr, {}});
    model->setOnChange([&model](AppModel::Field field) {
        if (field == AppModel::Field::toast && model->toast()) std::cout << "TOAST : " << *model->toast() << "\n";
    });
    show(*model);
    model->clearError();

    model->open(set, true);
    if (!main.waitUntil([&] { return !model->isWorking(); })) return 3;
    main.drain();
    main.advance(3);
    show(*model);
    model->clearError();
    if (!model->result()) return 4;

    std::vector<Cut> cuts = model->cuts();
    Cut cut;
    cut.time = 0.5;
    cuts.push_back(cut);
    model->setCuts(std::move(cuts));
    main.advance(2);
    show(*model);
    showStored(*model);

    // What the window does with the numbers read: looks on a frame, the montage.
    LookRenderer looks;
    looks.update(model->lookSnapshot(true));
    for (int camera = 0; camera < model->cameraCount(); ++camera)
        (void)looks.process(Image::filled(320, 180, Rgba{0.5f, 0.4f, 0.3f, 1}), camera, 1.0);
    (void)model->montageXML("sonde");

    model->closeProject();
    main.advance(1);
    return 0;
}
