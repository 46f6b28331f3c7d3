// CrashHandler: the program's own crash reporter. While one is alive, a fatal
// signal (SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT) writes a report into the
// crash folder, "Quorvel-{UTC date and time}-{pid}.crash" with the signal, the
// time, the faulting address and a backtrace (each frame as its address and
// as file+offset, which `addr2line -f -C -e file offset` turns into a
// function and a line; then the names the dynamic symbol tables know), then
// the signal is raised again
// with its default action so the process ends as it would have (exit status,
// core dump). The next launch finds the report through
// Log::crashReportSinceLastLaunch.
//
// The handler only makes async-signal-safe calls: the folder is created, its
// path copied and the loaded files listed at installation, the report is
// written with write(2).
// It runs on an alternate stack, so a stack overflow on the installing thread
// is reported too. One instance at a time, made and destroyed on the main
// thread; destruction puts the previous handlers back.
#pragma once

#include <filesystem>
#include <memory>

#include "diagnostics/Log.h"

namespace qv {

class CrashHandler {
public:
    explicit CrashHandler(const std::filesystem::path& folder = Log::crashFolder());
    ~CrashHandler();

    CrashHandler(const CrashHandler&) = delete;
    CrashHandler& operator=(const CrashHandler&) = delete;

private:
    std::unique_ptr<char[]> altStack_;
    bool altStackInstalled_ = false;
};

}  // namespace qv
