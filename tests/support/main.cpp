#include <gtest/gtest.h>

#include <cstdio>

#include "support/threads.hpp"

// The threads of the software rasteriser, of its compiler and of FFmpeg's codecs meet in ways that the thread
// sanitizer cannot see.
extern "C" const char* __tsan_default_suppressions() {
    return "race:swrast_dri.so\nrace:libLLVM\nrace:libavcodec.so\nrace:libavutil.so\nrace:libx264.so\n";
}

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    if (!::testing::GTEST_FLAG(list_tests)) std::printf("KEL_TEST_SEED=%lu\n", kel_test::random_seed());
    return RUN_ALL_TESTS();
}
