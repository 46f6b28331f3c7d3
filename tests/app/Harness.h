// One application model in a throw-away home, on virtual time, with scripted
// dialogs, a file viewer that remembers, the light clock player, and a video
// exporter that answers what the test tells it (RealRoadTest puts the real
// player in its place).
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <memory>

#include "support/TempHome.h"
#include "app/AppModel.h"
#include "app/ClockPlayer.h"
#include "app/VirtualMainThread.h"
#include "persistence/ProjectStore.h"
#include "support/Fixtures.h"
#include "support/MontageSet.h"

namespace qv::test {

struct ScriptedDialogs : Dialogs {
    std::deque<int> alerts;  // answers in order; -1 when none is left
    std::deque<std::optional<std::filesystem::path>> folders, files, saves;
    std::vector<std::string> titles, saveMessages;

    template <class T>
    static T next(std::deque<T>& q, T fallback) {
        if (q.empty()) return fallback;
        T v = q.front();
        q.pop_front();
        return v;
    }
    int alert(const std::string& title, const std::string&, const std::vector<std::string>&) override {
        titles.push_back(title);
        return next(alerts, -1);
    }
    std::optional<std::filesystem::path> chooseFolder(const std::string&) override {
        return next(folders, std::optional<std::filesystem::path>{});
    }
    std::optional<std::filesystem::path> chooseFile(const std::string&, const std::vector<std::string>&) override {
        return next(files, std::optional<std::filesystem::path>{});
    }
    std::optional<std::filesystem::path> saveFile(const std::string& message, const std::string&, const std::string&,
                                                  const std::filesystem::path&) override {
        saveMessages.push_back(message);
        return next(saves, std::optional<std::filesystem::path>{});
    }
};

struct RecordingViewer : FileViewer {
    std::vector<std::vector<std::filesystem::path>> shown;
    void showItems(const std::vector<std::filesystem::path>& files) override { shown.push_back(files); }
    void open(const std::filesystem::path&) override {}
};

struct ScriptedExporter : VideoExporter {
    std::function<void(VideoOutcome)> done;
    VideoJob job;
    std::filesystem::path to;
    void start(VideoJob j, VideoCodec, const std::filesystem::path& url, bool, std::function<void(VideoOutcome)> d) override {
        job = std::move(j);
        to = url;
        done = std::move(d);
    }
    void cancel() override {}
    bool isRunning() const override { return static_cast<bool>(done); }
    double progress() const override { return 0; }
};

class AppFixture : public ::testing::Test {
protected:
    void SetUp() override {
        settings = std::make_unique<AppSettings>(home.root() / "config" / "settings.json");
        exports = home.root() / "exports";
        std::filesystem::create_directories(exports);
        settings->setExportFolderPath(exports.string());
        exporter = std::make_shared<ScriptedExporter>();
        makeModel();
    }

    void makeModel(std::vector<std::string> arguments = {}) {
        model.reset();
        model = std::make_unique<AppModel>(AppModel::Services{main, dialogs, viewer, *settings, ClockPlayer::factory(),
                                                              exporter, std::move(arguments)});
        model->setOnChange([this](AppModel::Field f) {
            if (f == AppModel::Field::savedAt) ++savedAtChanges;
            if (f == AppModel::Field::isWorking && model && model->isWorking()) ++jobsStarted;
        });
    }

    // A copy of a generated set that the test may change.
    std::filesystem::path copySet(const std::string& preset, int seed, const std::string& name) {
        auto set = generatedSet(preset, seed);
        if (set.empty()) return {};
        auto copy = home.root() / name;
        std::filesystem::copy(set, copy, std::filesystem::copy_options::recursive);
        return copy;
    }

    // Waits for the scan and any synchronisation to end.
    bool settle() {
        bool ok = main.waitUntil([this] { return !model->isWorking(); });
        main.drain();
        return ok;
    }

    // Opens a set and lets the first saves happen.
    void openSynced(const std::filesystem::path& set) {
        model->open(set, true);
        ASSERT_TRUE(settle());
        ASSERT_TRUE(model->result());
        main.advance(3);
    }

    std::optional<ProjectFile> stored() const {
        if (!model->currentProjectId()) return std::nullopt;
        for (auto& p : ProjectStore::list())
            if (p.id == model->currentProjectId()) return p;
        return std::nullopt;
    }

    static Cut cut(double t, int camera) { return cutAt(t, camera); }

    TempHome home;
    VirtualMainThread main;
    ScriptedDialogs dialogs;
    RecordingViewer viewer;
    std::unique_ptr<AppSettings> settings;
    std::filesystem::path exports;
    std::shared_ptr<ScriptedExporter> exporter;
    std::unique_ptr<AppModel> model;
    int savedAtChanges = 0;
    int jobsStarted = 0;
};

}  // namespace qv::test
