#include "diagnostics/CrashHandler.h"

#include <execinfo.h>
#include <link.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <ctime>

#include "platform/Paths.h"

namespace qv {

namespace {

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
constexpr const char* kSignalNames[] = {"SIGSEGV", "SIGBUS", "SIGFPE", "SIGILL", "SIGABRT"};
constexpr size_t kSignalCount = sizeof kSignals / sizeof kSignals[0];
constexpr size_t kAltStackSize = 64 * 1024;

// The program and the libraries loaded at installation, so that the
// handler can tell each address of the stack as a file and an offset in it,
// the form `addr2line -e {file} {offset}` reads, without asking the loader
// (which takes locks).
struct Module {
    char path[512] = {};
    uintptr_t base = 0;      // load address: an offset is an address less this
    uintptr_t begin = 0, end = 0;  // the mapped segments, first byte to past the last
};
constexpr size_t kMaxModules = 256;

// Everything the handler reads is prepared here at installation: it may not
// allocate, lock or call anything that does.
struct State {
    char folder[4096] = {};
    struct sigaction previous[kSignalCount] = {};
    stack_t previousStack = {};
    std::atomic<bool> reporting{false};
    Module modules[kMaxModules];
    size_t moduleCount = 0;
};
State state;

int collectModule(struct dl_phdr_info* info, size_t, void*) {
    if (state.moduleCount >= kMaxModules) return 1;
    Module& m = state.modules[state.moduleCount];
    m = Module{};
    m.base = info->dlpi_addr;
    bool any = false;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)& ph = info->dlpi_phdr[i];
        if (ph.p_type != PT_LOAD) continue;
        const uintptr_t from = info->dlpi_addr + ph.p_vaddr, to = from + ph.p_memsz;
        m.begin = any ? std::min(m.begin, from) : from;
        m.end = any ? std::max(m.end, to) : to;
        any = true;
    }
    if (!any) return 0;
    // The program itself comes first, without a name: its file is /proc/self/exe.
    const char* name = info->dlpi_name;
    if (!name || !*name) {
        ssize_t n = readlink("/proc/self/exe", m.path, sizeof m.path - 1);
        m.path[n > 0 ? n : 0] = '\0';
    } else {
        std::strncpy(m.path, name, sizeof m.path - 1);
    }
    if (!m.path[0]) return 0;  // the vDSO: no file to read
    ++state.moduleCount;
    return 0;
}

const Module* moduleOf(uintptr_t address) {
    for (size_t i = 0; i < state.moduleCount; ++i)
        if (address >= state.modules[i].begin && address < state.modules[i].end) return &state.modules[i];
    return nullptr;
}

// A small writer into a fixed buffer, for numbers and text without stdio.
struct Buffer {
    char data[1024];
    size_t length = 0;

    void text(const char* s) {
        while (*s && length < sizeof data) data[length++] = *s++;
    }
    void number(unsigned long long v, int minDigits = 1, int base = 10) {
        char digits[32];
        int n = 0;
        do {
            digits[n++] = "0123456789abcdef"[v % static_cast<unsigned>(base)];
            v /= static_cast<unsigned>(base);
        } while (v > 0 && n < 32);
        while (n < minDigits && n < 32) digits[n++] = '0';
        while (n > 0 && length < sizeof data) data[length++] = digits[--n];
    }
};

// Unix time to the civil UTC date, by arithmetic only (gmtime is not
// async-signal-safe). Days-to-date after H. Hinnant's civil_from_days.
struct Civil {
    long long year;
    unsigned month, day, hour, minute, second;
};

Civil civilUTC(long long t) {
    long long days = t >= 0 ? t / 86400 : (t - 86399) / 86400;
    long long secs = t - days * 86400;
    long long z = days + 719468;
    long long era = (z >= 0 ? z : z - 146096) / 146097;
    long long doe = z - era * 146097;
    long long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    long long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    long long mp = (5 * doy + 2) / 153;
    unsigned d = static_cast<unsigned>(doy - (153 * mp + 2) / 5 + 1);
    unsigned m = static_cast<unsigned>(mp < 10 ? mp + 3 : mp - 9);
    long long y = yoe + era * 400 + (m <= 2 ? 1 : 0);
    return {y, m, d, static_cast<unsigned>(secs / 3600), static_cast<unsigned>(secs % 3600 / 60),
            static_cast<unsigned>(secs % 60)};
}

// "2026-11-23{between}22{timeSep}10{timeSep}05", without allocating.
void appendStamp(Buffer& b, const Civil& c, const char* between, const char* timeSep) {
    b.number(static_cast<unsigned long long>(c.year), 4);
    b.text("-");
    b.number(c.month, 2);
    b.text("-");
    b.number(c.day, 2);
    b.text(between);
    b.number(c.hour, 2);
    b.text(timeSep);
    b.number(c.minute, 2);
    b.text(timeSep);
    b.number(c.second, 2);
}

void writeReport(int index, const siginfo_t* info) {
    time_t now = time(nullptr);
    Civil c = civilUTC(static_cast<long long>(now));

    Buffer path;
    path.text(state.folder);
    path.text("/Quorvel-");
    appendStamp(path, c, "-", "");
    path.text("-");
    path.number(static_cast<unsigned long long>(getpid()));
    path.text(".crash");
    if (path.length >= sizeof path.data) return;
    path.data[path.length] = '\0';

    int fd = ::open(path.data, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return;

    Buffer head;
    head.text("Quorvel : arrêt sur le signal ");
    head.number(static_cast<unsigned long long>(kSignals[index]));
    head.text(" (");
    head.text(kSignalNames[index]);
    head.text(")\nHeure (UTC) : ");
    appendStamp(head, c, " ", ":");
    head.text("\nProcessus : ");
    head.number(static_cast<unsigned long long>(getpid()));
    if (info && info->si_code > 0) {  // sent by the kernel: the address means something
        head.text("\nAdresse : 0x");
        head.number(reinterpret_cast<uintptr_t>(info->si_addr), 1, 16);
    }
    head.text("\n\nPile d'appels (fichier+décalage, lisible par addr2line -f -C -e fichier décalage) :\n");
    paths::writeAll(fd, head.data, head.length);

    void* frames[64];
    const int count = backtrace(frames, 64);
    for (int i = 0; i < count; ++i) {
        const uintptr_t address = reinterpret_cast<uintptr_t>(frames[i]);
        Buffer line;
        line.text("#");
        line.number(static_cast<unsigned long long>(i), 2);
        line.text(" 0x");
        line.number(address, 1, 16);
        if (const Module* m = moduleOf(address)) {
            line.text(" ");
            line.text(m->path);
            line.text("+0x");
            line.number(address - m->base, 1, 16);
        }
        line.text("\n");
        paths::writeAll(fd, line.data, line.length);
    }
    // The names the dynamic symbol tables know, for the libraries above all.
    const char names[] = "\nSymboles :\n";
    paths::writeAll(fd, names, sizeof names - 1);
    backtrace_symbols_fd(frames, count, fd);
    fsync(fd);
    ::close(fd);
}

void onFatalSignal(int signal, siginfo_t* info, void*) {
    size_t index = 0;
    while (index < kSignalCount && kSignals[index] != signal) ++index;
    // Only the first fatal signal writes: a second thread crashing at the
    // same time must not interleave with the report.
    if (index < kSignalCount && !state.reporting.exchange(true)) writeReport(static_cast<int>(index), info);

    // Default action, then raise again: the signal stays blocked while we are
    // in the handler, so it is delivered as we return and ends the process
    // with its usual status and core dump.
    struct sigaction fallback {};
    fallback.sa_handler = SIG_DFL;
    sigemptyset(&fallback.sa_mask);
    sigaction(signal, &fallback, nullptr);
    raise(signal);
}

}  // namespace

CrashHandler::CrashHandler(const std::filesystem::path& folder) {
    std::error_code ec;
    std::filesystem::create_directories(folder, ec);
    std::string text = folder.string();
    size_t n = std::min(text.size(), sizeof state.folder - 1);
    std::memcpy(state.folder, text.data(), n);
    state.folder[n] = '\0';
    state.reporting = false;

    // The first backtrace() loads libgcc's unwinder, which allocates: do it
    // now rather than inside the handler.
    void* warmUp[2];
    backtrace(warmUp, 2);
    state.moduleCount = 0;
    dl_iterate_phdr(collectModule, nullptr);

    altStack_ = std::make_unique<char[]>(kAltStackSize);
    stack_t stack{};
    stack.ss_sp = altStack_.get();
    stack.ss_size = kAltStackSize;
    altStackInstalled_ = sigaltstack(&stack, &state.previousStack) == 0;

    for (size_t i = 0; i < kSignalCount; ++i) {
        struct sigaction action {};
        action.sa_sigaction = onFatalSignal;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK;
        sigemptyset(&action.sa_mask);
        sigaction(kSignals[i], &action, &state.previous[i]);
    }
}

CrashHandler::~CrashHandler() {
    for (size_t i = 0; i < kSignalCount; ++i) sigaction(kSignals[i], &state.previous[i], nullptr);
    if (altStackInstalled_) sigaltstack(&state.previousStack, nullptr);
}

}  // namespace qv
