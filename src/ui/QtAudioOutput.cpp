#include "ui/QtAudioOutput.h"

#include <QAudioDevice>
#include <QAudioSink>
#include <QMediaDevices>
#include <algorithm>
#include <cmath>
#include <cstring>

namespace qv {

QtAudioOutput::QtAudioOutput(double queueSeconds) {
    QAudioDevice device = QMediaDevices::defaultAudioOutput();
    if (device.isNull()) return;
    QAudioFormat format;
    format.setSampleRate(rate_);
    format.setChannelCount(channels_);
    format.setSampleFormat(QAudioFormat::Float);
    if (!device.isFormatSupported(format)) {
        floatSamples_ = false;
        format.setSampleFormat(QAudioFormat::Int16);
        if (!device.isFormatSupported(format)) {
            format = device.preferredFormat();
            format.setSampleFormat(QAudioFormat::Int16);
            rate_ = format.sampleRate();
            channels_ = std::max(1, format.channelCount());
        }
    }
    capacity_ = static_cast<size_t>(std::max(1.0, std::round(queueSeconds * rate_)));
    ring_.assign(capacity_ * channels_, 0.0f);
    device_ = std::make_unique<Device>(*this);
    device_->open(QIODevice::ReadOnly);
    sink_ = std::make_unique<QAudioSink>(device, format);
}

QtAudioOutput::~QtAudioOutput() {
    if (sink_) sink_->stop();
}

size_t QtAudioOutput::space() {
    std::lock_guard guard(lock_);
    return capacity_ - queued_;
}

size_t QtAudioOutput::write(const float* interleaved, size_t frames) {
    std::lock_guard guard(lock_);
    size_t take = std::min(frames, capacity_ - queued_);
    for (size_t i = 0; i < take; ++i) {
        size_t slot = (head_ + queued_ + i) % capacity_;
        std::copy_n(interleaved + i * channels_, channels_, &ring_[slot * channels_]);
    }
    queued_ += take;
    return take;
}

void QtAudioOutput::start() {
    if (!sink_) return;
    if (!started_) {
        sink_->start(device_.get());
        started_ = true;
    } else {
        sink_->resume();
    }
}

void QtAudioOutput::pause() {
    if (sink_ && started_) sink_->suspend();
}

void QtAudioOutput::flush() {
    if (sink_ && started_) {
        // Restarting the sink is the one way to drop what its device holds.
        sink_->stop();
        started_ = false;
    }
    std::lock_guard guard(lock_);
    head_ = queued_ = 0;
    taken_ = 0;
}

int64_t QtAudioOutput::playedFrames() {
    int64_t waiting = 0;
    if (sink_ && started_) {
        int bytesPerFrame = sink_->format().bytesPerFrame();
        if (bytesPerFrame > 0) waiting = (sink_->bufferSize() - sink_->bytesFree()) / bytesPerFrame;
    }
    std::lock_guard guard(lock_);
    return std::max<int64_t>(0, taken_ - waiting);
}

qint64 QtAudioOutput::Device::bytesAvailable() const {
    std::lock_guard guard(owner_.lock_);
    size_t bytesPerSample = owner_.floatSamples_ ? sizeof(float) : sizeof(int16_t);
    return static_cast<qint64>(owner_.queued_ * owner_.channels_ * bytesPerSample) + QIODevice::bytesAvailable();
}

qint64 QtAudioOutput::Device::readData(char* data, qint64 maxSize) {
    auto& o = owner_;
    std::lock_guard guard(o.lock_);
    size_t bytesPerSample = o.floatSamples_ ? sizeof(float) : sizeof(int16_t);
    size_t frameBytes = bytesPerSample * o.channels_;
    size_t frames = std::min(o.queued_, static_cast<size_t>(maxSize) / frameBytes);
    for (size_t i = 0; i < frames; ++i) {
        const float* frame = &o.ring_[((o.head_ + i) % o.capacity_) * o.channels_];
        char* out = data + i * frameBytes;
        if (o.floatSamples_) {
            std::memcpy(out, frame, frameBytes);
        } else {
            for (int c = 0; c < o.channels_; ++c) {
                auto s = static_cast<int16_t>(std::lround(std::clamp(frame[c], -1.0f, 1.0f) * 32767.0f));
                std::memcpy(out + c * sizeof(int16_t), &s, sizeof(int16_t));
            }
        }
    }
    o.head_ = (o.head_ + frames) % o.capacity_;
    o.queued_ -= frames;
    o.taken_ += static_cast<int64_t>(frames);
    return static_cast<qint64>(frames * frameBytes);
}

}  // namespace qv
