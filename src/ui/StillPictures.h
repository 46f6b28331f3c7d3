// StillPictures: one picture per camera, decoded from the rushes at the
// player's present time on a worker thread, for the monitors while no
// decoding player draws them. A newer request replaces an older one that has
// not started; the worker never touches the model, it gets copies of the
// placed files and hands finished pictures back through a queued call.
#pragma once

#include <QImage>
#include <QObject>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "sync/SyncResult.h"
#include "ui/ScreenModel.h"

namespace qv::ui {

class StillPictures : public QObject, public AnglePictures {
    Q_OBJECT
public:
    StillPictures();
    ~StillPictures() override;

    // The files of each camera (by camera number); forgets the pictures.
    void setFiles(std::vector<std::vector<PlacedItem>> cameras);
    // Asks for the pictures at time t; a request within 20 ms of the last is ignored.
    void request(double t);
    QImage picture(int camera) const override;
    // The time of the pictures shown, if any.
    std::optional<double> shownTime() const { return shownTime_; }

signals:
    void updated();

private:
    void run();

    std::vector<QImage> pictures_;
    std::optional<double> shownTime_;
    std::optional<double> lastRequest_;

    std::mutex mutex_;  // guards everything below
    std::condition_variable wake_;
    std::vector<std::vector<PlacedItem>> files_;
    uint64_t generation_ = 0;  // bumped by setFiles, so stale pictures are dropped
    std::optional<double> wanted_;
    bool stop_ = false;
    std::thread worker_;
};

}  // namespace qv::ui
