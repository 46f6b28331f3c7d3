// The command-line run: `quorvel --cli <set folder> <out.xml> [options]`.
// One synchronous pass, no interface, no project file: list the sources,
// place the files, optionally edit, write the XML. Standard output carries
// the fixed-format report; a progress bar, when shown, goes to standard error.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "edit/Cut.h"
#include "edit/TimeRange.h"
#include "entry/CommandLine.h"

namespace qv::CLI {

// The run of a read command line (`--help` and `--version` are answered
// here too). Returns the process's exit status: 0 when the files were
// written, 1 on the usage message, a value that cannot be used, a set folder
// that cannot be read, an output that may not be replaced or a write
// failure. Warnings about ignored arguments and unreadable files go to
// `err` (standard error by default), one line each.
int run(const CommandLine& line, std::ostream& out, std::ostream& err);
// The same from the words that follow "--cli".
int run(const std::vector<std::string>& arguments, std::ostream& out);
int run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);

// The value of --montage, "t:cam,t:cam,...", as cuts in time order; every
// skipped piece is named in `warnings`.
std::vector<Cut> parseCuts(const std::string& value, std::vector<std::string>* warnings = nullptr);

// The value of --range, "a-b", as the part of a set of `duration` seconds
// to export: the whole set when absent or malformed (said in `warnings`).
TimeRange parseRange(const std::optional<std::string>& value, double duration,
                     std::vector<std::string>* warnings = nullptr);

}  // namespace qv::CLI
