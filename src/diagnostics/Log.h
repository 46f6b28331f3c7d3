// Log: plain time-stamped lines appended to one file, written by a single
// background thread ("quorvel.log") so that the caller never waits on the
// disk. A line is the local time "yyyy-MM-dd HH:mm:ss", two blanks, the
// message and a line feed; no levels. A file past 2 000 000 bytes is deleted
// whole before the next line. File errors are swallowed: logging never stops
// the program.
//
// `write` may be called from any thread; lines keep the order of the calls
// as the queue receives them, stamped on the calling thread. The queue is
// drained at exit. A forked child must not log (it has no writer thread).
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace qv::Log {

inline constexpr uintmax_t sizeLimit = 2'000'000;  // bytes

// Takes the time and the file's place now, queues the line, returns at once.
void write(std::string message);

// Blocks until every line queued before the call is written.
void flush();

// $XDG_STATE_HOME/Quorvel/journal.log
std::filesystem::path file();
// $XDG_STATE_HOME/Quorvel/crash: where CrashHandler leaves its reports.
std::filesystem::path crashFolder();

// The newest report "Quorvel*" in the crash folder written since the last
// launch, stored as "dernierLancement" in the settings file (the distant past
// when missing). Stores the current time at once, so a report is announced by
// one launch only. Nothing when the folder is missing or holds no new report.
std::optional<std::filesystem::path> crashReportSinceLastLaunch();

}  // namespace qv::Log
