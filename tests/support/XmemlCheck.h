// What every timeline document the program writes must hold, whoever wrote
// it (the command line, the export commands, the interface): strict XML 1.0,
// the xmeml head, numbers that read in the C locale and are numbers, clips of
// at least a frame that stay inside their file, file definitions given once,
// links and file references that resolve, keyframes inside their clip,
// field, pixel and time-code names that importers know.
//
// Free of any test framework so GoogleTest and Qt Test suites share it.
#pragma once

#include <string>
#include <vector>

namespace qv::test {

// What expat, as strict as XML 1.0, says of `bytes`; empty when it accepts them.
std::string strictXmlError(const std::string& bytes);

// One line per fault found, in document order; empty for a sound document.
std::vector<std::string> xmemlProblems(const std::string& bytes);

// The faults joined by new lines, for an assertion's message.
std::string joined(const std::vector<std::string>& problems);

}  // namespace qv::test
