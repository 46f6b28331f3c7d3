#include "ui/StillPictures.h"

#include <cmath>

#include "platform/VideoFrame.h"

namespace qv::ui {

StillPictures::StillPictures() { worker_ = std::thread([this] { run(); }); }

StillPictures::~StillPictures() {
    {
        std::lock_guard lock(mutex_);
        stop_ = true;
    }
    wake_.notify_all();
    worker_.join();
}

void StillPictures::setFiles(std::vector<std::vector<PlacedItem>> cameras) {
    {
        std::lock_guard lock(mutex_);
        // The worker needs no envelope.
        for (auto& files : cameras)
            for (auto& f : files) {
                f.waveform.clear();
                f.bass.clear();
            }
        files_ = std::move(cameras);
        ++generation_;
        wanted_.reset();
    }
    pictures_.clear();
    shownTime_.reset();
    lastRequest_.reset();
}

void StillPictures::request(double t) {
    if (lastRequest_ && std::abs(*lastRequest_ - t) < 0.02) return;
    lastRequest_ = t;
    {
        std::lock_guard lock(mutex_);
        wanted_ = t;
    }
    wake_.notify_one();
}

QImage StillPictures::picture(int camera) const {
    return camera >= 0 && size_t(camera) < pictures_.size() ? pictures_[size_t(camera)] : QImage();
}

void StillPictures::run() {
    for (;;) {
        double t = 0;
        uint64_t generation = 0;
        std::vector<std::vector<PlacedItem>> files;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return stop_ || wanted_.has_value(); });
            if (stop_) return;
            t = *wanted_;
            wanted_.reset();
            generation = generation_;
            files = files_;
        }
        std::vector<QImage> images(files.size());
        for (size_t c = 0; c < files.size(); ++c)
            for (const PlacedItem& p : files[c])
                if (p.item.hasVideo && p.start <= t && t < p.end()) {
                    if (auto frame = media::decodeVideoFrame(p.item.url, t - p.start))
                        images[c] = QImage(frame->pixels.data(), frame->width, frame->height, frame->width * 4,
                                           QImage::Format_RGBA8888)
                                        .copy();
                    break;
                }
        {
            std::lock_guard lock(mutex_);
            if (stop_) return;
        }
        QMetaObject::invokeMethod(
            this,
            [this, t, generation, images = std::move(images)]() mutable {
                {
                    std::lock_guard lock(mutex_);
                    if (generation != generation_) return;
                }
                pictures_ = std::move(images);
                shownTime_ = t;
                emit updated();
            },
            Qt::QueuedConnection);
    }
}

}  // namespace qv::ui
