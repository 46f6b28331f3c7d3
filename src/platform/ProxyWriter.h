// Copies of camera files written in chunks: the pictures a file shows over a
// stretch of its time line, scaled to a fixed width (height by the display
// aspect, even, pixels square) and deinterlaced, in H.264 MP4. Preview
// copies are made to be cheap to write and to decode (short GOP, no
// B-frames, no CABAC nor deblocking); the options also make full-size
// copies at a constant rate for editing programs. A chunk's time 0 stands at the start of its stretch and its
// first picture is the one the original shows there, so the chunk shows the
// same frame as the original at every time of the stretch. The rotation the
// original is shown with is kept.
//
// For a light copy the original is decoded without its loop filter: a
// preview of a quarter of the size cannot show the difference, and it is the
// dearest part of decoding a heavy file.
//
// A writer belongs to one thread; different writers may run on different
// threads.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <string>

#include "base/Result.h"

namespace qv::media {

struct ProxyOptions {
    int width = 640;   // never wider than the original; 0 keeps its display width
    int gop = 12;      // frames between key frames
    int crf = 26;
    int threads = 1;   // encoder and decoder threads each
    std::string preset = "ultrafast";  // of the H.264 encoder
    bool lightDecode = true;  // a stream cheap to decode; the original read without its deblocking

    // A constant rate of rateNum / rateDen pictures a second: each picture
    // of the copy is the one the original shows at its time, so a variable
    // rate becomes constant without moving any picture by a whole step.
    // 0 keeps the original's own picture times.
    int rateNum = 0, rateDen = 1;
    // Told the share of the stretch written so far, now and then, on the
    // writer's thread.
    std::function<void(double)> progress{};
};

// How a chunk went. An input failure concerns the original (gone, damaged),
// an output failure the folder the chunk is written to (full, unwritable).
struct ChunkOutcome {
    enum class Kind { made, inputFailed, outputFailed, cancelled };
    Kind kind = Kind::made;
    std::string message;  // French, naming the file; empty when made
    bool made() const { return kind == Kind::made; }
};

class ProxyWriter {
public:
    ~ProxyWriter();
    ProxyWriter(ProxyWriter&&) noexcept;
    ProxyWriter& operator=(ProxyWriter&&) noexcept;

    // Opens the original's first picture stream; fails with a French message
    // naming it when it cannot be read or has no picture.
    static Result<ProxyWriter> open(const std::filesystem::path& original, const ProxyOptions& options = {});

    // Writes the pictures shown over [from, to) seconds of the original's
    // time line to `out`, replacing it; `to` past the end takes the rest.
    // A chunk that starts where the last one ended goes on decoding without
    // a seek. Stops when `cancel` turns true. Anything but `made` leaves
    // `out` removed.
    ChunkOutcome write(const std::filesystem::path& out, double from, double to, const std::atomic<bool>& cancel);

private:
    struct State;
    explicit ProxyWriter(std::unique_ptr<State> s);
    std::unique_ptr<State> s_;
};

// The whole original as one proxy (one chunk from 0 to the end).
Status writeProxy(const std::filesystem::path& in, const std::filesystem::path& out, const ProxyOptions& options,
                  const std::atomic<bool>& cancel);

}  // namespace qv::media
