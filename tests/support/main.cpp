#include <gtest/gtest.h>

#include <cstdio>

#include "support/threads.hpp"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    if (!::testing::GTEST_FLAG(list_tests)) std::printf("KEL_TEST_SEED=%lu\n", kel_test::random_seed());
    return RUN_ALL_TESTS();
}
