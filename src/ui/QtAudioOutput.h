// QtAudioOutput: the player's sound on the machine's default sound device,
// through Qt Multimedia's QAudioSink in pull mode. The mixer thread fills a
// ring of interleaved floats; the sink drains it on the thread that made the
// output (the main thread), converting to 16-bit where the device takes no
// floats. The played position counts the frames the device has taken from
// the ring, less what still waits in the device's own buffer.
//
// Threads: `write` and `space` from the mixer thread, the rest from the
// thread that made the object; the ring has its own lock.
#pragma once

#include <QAudioFormat>
#include <QIODevice>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "playback/AudioOutput.h"
#include "playback/SampleRing.h"

class QAudioSink;

namespace qv {

class QtAudioOutput : public AudioOutput {
public:
    // Opens the default output; check `valid()`, false without a device.
    explicit QtAudioOutput(double queueSeconds = 0.25);
    ~QtAudioOutput() override;

    bool valid() const { return sink_ != nullptr; }

    int sampleRate() const override { return rate_; }
    int channels() const override { return channels_; }
    size_t space() override;
    size_t write(const float* interleaved, size_t frames) override;
    void start() override;
    void pause() override;
    void flush() override;
    int64_t playedFrames() override;

private:
    // What the sink reads from: the ring, in the device's sample format.
    class Device : public QIODevice {
    public:
        explicit Device(QtAudioOutput& owner) : owner_(owner) {}
        qint64 readData(char* data, qint64 maxSize) override;
        qint64 writeData(const char*, qint64) override { return -1; }
        qint64 bytesAvailable() const override;
        bool isSequential() const override { return true; }

    private:
        QtAudioOutput& owner_;
    };

    int rate_ = 48000;
    int channels_ = 2;
    bool floatSamples_ = true;

    mutable std::mutex lock_;
    // -- All the following fields are guarded by lock_.
    std::unique_ptr<SampleRing> ring_;
    int64_t taken_ = 0;  // frames the device has read since the last flush

    std::unique_ptr<Device> device_;
    std::unique_ptr<QAudioSink> sink_;
    bool started_ = false;
};

}  // namespace qv
