// The command-line run: `quorvel --cli <set folder> <out.xml> [options]`.
// One synchronous pass, no interface, no project file: list the sources,
// place the files, optionally edit, write the XML. Standard output carries
// the fixed-format report; a progress bar, when shown, goes to standard error.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace qv::CLI {

// `arguments` are what follows "--cli". Returns the process's exit status:
// 0 when the file was written, 1 on the usage message or a write failure.
int run(const std::vector<std::string>& arguments, std::ostream& out);

}  // namespace qv::CLI
