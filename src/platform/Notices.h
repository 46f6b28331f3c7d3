// Notices: what the media layer works around while it reads, and the user's
// journal should hold (a picture read another way than its tags ask). The
// platform cannot see the log, so the program hands it a sink at start;
// without one, notices are dropped.
//
// Any thread. Each key is told once per run, so a fault met at every
// picture of a file makes one line, not one per frame.
#pragma once

#include <functional>
#include <string>

namespace qv::media {

using NoticeSink = std::function<void(const std::string& message)>;

// Replaces the sink; an empty one drops notices. Keys already told stay told.
void setNoticeSink(NoticeSink sink);

// Hands `message` to the sink the first time `key` comes in this run.
void noticeOnce(const std::string& key, const std::string& message);

}  // namespace qv::media
