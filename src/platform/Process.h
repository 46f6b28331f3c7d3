// Child processes without a shell: the program and each argument are passed
// as they are, so blanks and quotes in file names need no escaping.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "base/Result.h"

namespace qv::process {

struct Output {
    std::string out;   // everything the child wrote on standard output
    int exitCode = 0;  // -1 when it died on a signal
};

// Runs `program` with `args`, standard input and error on the null device,
// standard output read to its end before waiting. Fails only when it cannot
// be started (with the system's message).
Result<Output> run(const std::filesystem::path& program, const std::vector<std::string>& args);

// The first of `candidates` that is an executable file, or an empty path.
std::filesystem::path findExecutable(const std::vector<std::filesystem::path>& candidates);

}  // namespace qv::process
