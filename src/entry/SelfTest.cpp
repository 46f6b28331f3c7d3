#include "entry/SelfTest.h"

namespace qv::SelfTest {

int run(const std::filesystem::path& fixtures, std::ostream& out) {
    (void)fixtures;
    out << "0 passed, 0 failed\n";
    return 0;
}

}  // namespace qv::SelfTest
