// Test entry: adopts the environment's locale (the suite runs under
// fr_FR.UTF-8, where "%f" writes a comma) before running the tests.
#include <gtest/gtest.h>

#include <clocale>

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
