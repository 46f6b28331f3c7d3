// quorvel-uipreview: the editing screen over a real set folder, without the
// application shell. It scans and synchronises the folder (or takes the
// stored synchronisation), finds the drops, lets the automatic editor cut the
// set, and shows the workspace; pictures come from the rushes themselves,
// decoded on a worker thread. Used by scripts/screenshots.sh, and to try the
// screen by hand.
//
//   quorvel-uipreview <dossier du set> [--taille LxH] [--temps s] [--format 9:16]
//                     [--zoom-plan] [--drop n] [--lecture] [--cadrage x,y]
//
// Once the window shows its first pictures it prints "prêt" on standard output.
#include <QApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QPointer>
#include <QTimer>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <iostream>
#include <map>
#include <mutex>
#include <thread>

#include "base/Text.h"
#include "edit/AutoEditor.h"
#include "edit/EditModel.h"
#include "music/DropDetector.h"
#include "persistence/ProjectStore.h"
#include "platform/VideoFrame.h"
#include "sync/FolderSync.h"
#include "sync/MediaScanner.h"
#include "ui/Monitors.h"
#include "ui/ScreenModel.h"
#include "ui/Theme.h"
#include "ui/TimelineEditor.h"
#include "ui/Workspace.h"

namespace {

using namespace qv;

// Delays of the edit on Qt's timers.
class QtScheduler : public Scheduler {
public:
    TimerId schedule(double seconds, std::function<void()> action) override {
        const TimerId id = ++next_;
        auto* timer = new QTimer(&owner_);
        timer->setSingleShot(true);
        QObject::connect(timer, &QTimer::timeout, &owner_, [this, id, timer, action = std::move(action)] {
            timers_.erase(id);
            timer->deleteLater();
            action();
        });
        timers_[id] = timer;
        timer->start(int(seconds * 1000));
        return id;
    }
    void cancel(TimerId id) override {
        auto it = timers_.find(id);
        if (it == timers_.end()) return;
        it->second->deleteLater();
        timers_.erase(it);
    }

private:
    QObject owner_;
    TimerId next_ = 0;
    std::map<TimerId, QPointer<QTimer>> timers_;
};

// A stand-in for the multi-angle player: a clock, the angles' ranges, and
// one still picture per camera decoded from the rush under the clock.
class PreviewPlayer : public QObject, public ui::ScreenPlayer {
public:
    PreviewPlayer(const SyncResult& result, const std::vector<MediaSource>& sources, std::vector<int> cameraSources)
        : result_(result), cameraSources_(std::move(cameraSources)) {
        const auto ranges = AutoEditor::cameraRanges(result_, cameraSources_);
        for (size_t c = 0; c < cameraSources_.size(); ++c)
            angles_.push_back({sources[size_t(cameraSources_[c])].name, !ranges[c].empty(), ranges[c]});
        pictures_.resize(cameraSources_.size());
        duration_ = result_.duration();
        worker_ = std::thread([this] { decodeLoop(); });
        poll_.setInterval(80);
        QObject::connect(&poll_, &QTimer::timeout, this, [this] { request(currentTime()); });
        poll_.start();
    }
    ~PreviewPlayer() override {
        {
            std::lock_guard lock(mutex_);
            stop_ = true;
        }
        wake_.notify_all();
        worker_.join();
    }

    bool isPlaying() const override { return playing_; }
    double currentTime() const override {
        if (!playing_) return base_;
        return std::min(duration_, base_ + double(clock_.elapsed()) / 1000.0);
    }
    const std::vector<AngleInfo>& angles() const override { return angles_; }
    void pause() override {
        base_ = currentTime();
        playing_ = false;
    }
    void play() override {
        if (base_ >= duration_ - 0.05) base_ = 0;
        clock_.restart();
        playing_ = true;
    }
    void seek(double t) override {
        base_ = std::clamp(t, 0.0, duration_);
        clock_.restart();
        request(base_);
    }
    QImage picture(int camera) const override {
        return camera >= 0 && size_t(camera) < pictures_.size() ? pictures_[size_t(camera)] : QImage();
    }
    int previewDivision() const override { return division_; }
    void setPreviewDivision(int division) override { division_ = std::max(1, division); }

    // Called once every camera with a picture at the asked time has one.
    std::function<void()> onPictures;

private:
    void request(double t) {
        {
            std::lock_guard lock(mutex_);
            if (wanted_ && std::abs(*wanted_ - t) < 0.02) return;
            wanted_ = t;
        }
        wake_.notify_one();
    }

    void decodeLoop() {
        for (;;) {
            double t;
            {
                std::unique_lock lock(mutex_);
                wake_.wait(lock, [this] { return stop_ || (wanted_ && *wanted_ != done_); });
                if (stop_) return;
                t = *wanted_;
            }
            std::vector<QImage> images(cameraSources_.size());
            for (size_t c = 0; c < cameraSources_.size(); ++c)
                for (const PlacedItem& p : result_.placed)
                    if (p.sourceIndex == cameraSources_[c] && p.item.hasVideo && p.start <= t && t < p.end()) {
                        auto frame = media::decodeVideoFrame(p.item.url, t - p.start);
                        if (frame)
                            images[c] = QImage(frame->pixels.data(), frame->width, frame->height, frame->width * 4,
                                               QImage::Format_RGBA8888)
                                            .copy();
                        break;
                    }
            {
                std::lock_guard lock(mutex_);
                done_ = t;
                if (stop_) return;
            }
            QMetaObject::invokeMethod(
                this,
                [this, images = std::move(images)] {
                    pictures_ = images;
                    if (onPictures) onPictures();
                },
                Qt::QueuedConnection);
        }
    }

    SyncResult result_;
    std::vector<int> cameraSources_;
    std::vector<AngleInfo> angles_;
    std::vector<QImage> pictures_;
    double duration_ = 0;
    bool playing_ = false;
    double base_ = 0;
    QElapsedTimer clock_;
    int division_ = 1;
    QTimer poll_;

    std::mutex mutex_;
    std::condition_variable wake_;
    std::optional<double> wanted_;
    double done_ = -1;
    bool stop_ = false;
    std::thread worker_;
};

struct Options {
    std::filesystem::path folder;
    int width = 1600, height = 1000;
    std::optional<double> time;
    OutputFormat format = OutputFormat::landscape;
    bool zoomPlan = false;
    std::optional<int> drop;
    bool play = false;
    std::optional<std::pair<double, double>> framing;
};

std::optional<Options> parse(const QStringList& args) {
    Options o;
    for (int i = 1; i < args.size(); ++i) {
        const QString a = args[i];
        auto next = [&]() -> QString { return i + 1 < args.size() ? args[++i] : QString(); };
        if (a == "--taille") {
            const QStringList wh = next().split('x');
            if (wh.size() != 2) return std::nullopt;
            o.width = wh[0].toInt();
            o.height = wh[1].toInt();
        } else if (a == "--temps") {
            o.time = parseDouble(next().toStdString());
        } else if (a == "--format") {
            auto f = outputFormatFromRaw(next().toStdString());
            if (!f) return std::nullopt;
            o.format = *f;
        } else if (a == "--zoom-plan") {
            o.zoomPlan = true;
        } else if (a == "--drop") {
            o.drop = next().toInt();
        } else if (a == "--lecture") {
            o.play = true;
        } else if (a == "--cadrage") {
            const QStringList xy = next().split(',');
            if (xy.size() != 2) return std::nullopt;
            o.framing = std::pair{xy[0].toDouble(), xy[1].toDouble()};
        } else if (o.folder.empty() && !a.startsWith("--")) {
            o.folder = a.toStdString();
        } else {
            return std::nullopt;
        }
    }
    if (o.folder.empty()) return std::nullopt;
    return o;
}

}  // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    ui::Theme::apply(app);
    const auto options = parse(app.arguments());
    if (!options) {
        std::cerr << "Usage : quorvel-uipreview <dossier du set> [--taille LxH] [--temps s] [--format 9:16]"
                     " [--zoom-plan] [--drop n] [--lecture] [--cadrage x,y]\n";
        return 2;
    }
    const std::vector<MediaSource> sources = MediaScanner::scan(options->folder);
    if (sources.empty()) {
        std::cerr << "Aucune source dans ce dossier.\n";
        return 1;
    }
    std::optional<SyncResult> result;
    if (auto cache = ProjectStore::loadSync(options->folder)) result = ProjectStore::restore(*cache, sources);
    if (!result) {
        result = FolderSync::run(sources, [](double f, const std::string& s) {
            std::fprintf(stderr, "\r%3d %% %s", int(f * 100), s.c_str());
        });
        std::fprintf(stderr, "\n");
        ProjectStore::saveSync(ProjectStore::cache(*result), options->folder);
    }

    QtScheduler scheduler;
    EditModel edit(scheduler);
    edit.setResult(*result);
    const auto drops = DropDetector::detect(*result, sources, 0.5);
    edit.setDrops(drops);

    std::vector<int> cameraSources;
    for (size_t i = 0; i < sources.size(); ++i)
        if (sources[i].kind == SourceKind::camera) cameraSources.push_back(int(i));
    auto player = std::make_shared<PreviewPlayer>(*result, sources, cameraSources);
    ui::ScreenModel model(edit, player, sources);

    // An automatic edit over the whole set, with zooms on, as a user's first cut.
    EffectSettings effects;
    for (int s : cameraSources) effects.zoomCameras.insert(sources[size_t(s)].id);
    effects.vhsEnabled = true;
    edit.setEffects(effects);
    std::set<int> allowed;
    for (size_t c = 0; c < cameraSources.size(); ++c) allowed.insert(int(c));
    edit.setCuts(AutoEditor::generate({0, result->duration()}, AutoEditor::cameraRanges(*result, cameraSources), allowed,
                                      drops, DropDetector::onsets(*result, sources), AutoSettings{}, {}));
    model.setFormat(options->format);
    if (options->framing)
        for (int c = 0; c < model.cameraCount(); ++c)
            model.setFraming(c, {1, options->framing->first * (c % 2 ? -1 : 1), options->framing->second});

    double t = options->time.value_or(result->duration() * 0.3);
    if (options->zoomPlan) {
        // The middle of the first plan that zooms and has a picture.
        for (const Segment& s : edit.segments()) {
            const double mid = (s.start + s.end) / 2;
            if (s.start >= t && edit.resolvedEffect(s).zoom != 0 && edit.hasFeed(s.camera, mid)) {
                t = s.start + (s.end - s.start) * 0.8;
                break;
            }
        }
    }
    player->seek(t);
    if (options->drop && *options->drop >= 0 && size_t(*options->drop) < drops.size()) {
        edit.focusDrop(drops[size_t(*options->drop)]);
        player->seek(drops[size_t(*options->drop)].time + 1.5);
    }

    ui::Workspace window(model);
    window.setWindowTitle(QStringLiteral("Quorvel"));
    window.resize(options->width, options->height);
    window.move(0, 0);
    window.show();
    if (options->play) player->play();

    bool ready = false;
    player->onPictures = [&] {
        window.tick();
        if (ready) return;
        ready = true;
        QTimer::singleShot(600, [] { std::cout << "prêt" << std::endl; });
    };
    return app.exec();
}
