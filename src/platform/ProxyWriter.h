// Small copies of camera files for the preview: the first video stream
// scaled to a fixed width (height by the picture's aspect, even), H.264 with
// a short GOP so that any frame is reached quickly, in MP4. Each picture
// keeps the time stamp of the original and the rotation it is shown with,
// so a proxy shows the same frame at the same time as its original.
// Any thread; nothing is shared.
#pragma once

#include <atomic>
#include <filesystem>

#include "base/Result.h"

namespace qv::media {

struct ProxyOptions {
    int width = 640;
    int gop = 12;      // frames between key frames
    int crf = 23;
    int threads = 1;   // encoder and decoder threads each
};

// Writes the proxy of `in` to `out`, replacing it. Stops with an error when
// `cancel` turns true. Fails with a French message naming the file when it
// has no picture, cannot be read, or H.264 cannot be written here; a failed
// or cancelled run leaves `out` removed.
Status writeProxy(const std::filesystem::path& in, const std::filesystem::path& out, const ProxyOptions& options,
                  const std::atomic<bool>& cancel);

}  // namespace qv::media
