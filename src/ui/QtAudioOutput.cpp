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
    ring_ = std::make_unique<SampleRing>(static_cast<size_t>(std::max(1.0, std::round(queueSeconds * rate_))),
                                         channels_);
    device_ = std::make_unique<Device>(*this);
    device_->open(QIODevice::ReadOnly);
    sink_ = std::make_unique<QAudioSink>(device, format);
}

QtAudioOutput::~QtAudioOutput() {
    if (sink_) sink_->stop();
}

size_t QtAudioOutput::space() {
    std::lock_guard guard(lock_);
    return ring_ ? ring_->space() : 0;
}

size_t QtAudioOutput::write(const float* interleaved, size_t frames) {
    std::lock_guard guard(lock_);
    return ring_ ? ring_->write(interleaved, frames) : 0;
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
    if (ring_) ring_->clear();
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
    size_t queued = owner_.ring_ ? owner_.ring_->queued() : 0;
    return static_cast<qint64>(queued * owner_.channels_ * bytesPerSample) + QIODevice::bytesAvailable();
}

qint64 QtAudioOutput::Device::readData(char* data, qint64 maxSize) {
    auto& o = owner_;
    std::lock_guard guard(o.lock_);
    size_t bytesPerSample = o.floatSamples_ ? sizeof(float) : sizeof(int16_t);
    size_t frameBytes = bytesPerSample * o.channels_;
    if (!o.ring_) return 0;
    size_t frames = std::min(o.ring_->queued(), static_cast<size_t>(maxSize) / frameBytes);
    char* out = data;
    o.ring_->take(frames, [&](const float* frame) {
        if (o.floatSamples_) {
            std::memcpy(out, frame, frameBytes);
        } else {
            for (int c = 0; c < o.channels_; ++c) {
                auto s = static_cast<int16_t>(std::lround(std::clamp(frame[c], -1.0f, 1.0f) * 32767.0f));
                std::memcpy(out + c * sizeof(int16_t), &s, sizeof(int16_t));
            }
        }
        out += frameBytes;
    });
    o.taken_ += static_cast<int64_t>(frames);
    return static_cast<qint64>(frames * frameBytes);
}

}  // namespace qv
