// Counted initialisation, and contexts.
#include <aoi/aoi.h>
#include <gtest/gtest.h>
#include <kel.h>
#include <sys/neutrino.h>

#include "support/faults.hpp"

namespace {

using namespace kel_test;

std::vector<FaultPoint> platform_fault_points() {
    return {KEL_FAULT_POINT(cache_init, -1, EINVAL), KEL_FAULT_POINT(ThreadCtl, -1, EPERM)};
}

int cache_inits, cache_finis;

int counted_cache_init(int flags, cache_ctrl* cache, const char* library) {
    EXPECT_EQ(flags, 0);
    EXPECT_EQ(cache, &kel_cache_ctrl);
    EXPECT_EQ(cache->fd, NOFD);
    EXPECT_EQ(library, nullptr);
    ++cache_inits;
    return cache_init(flags, cache, library);
}

int counted_cache_fini(cache_ctrl* cache) {
    ++cache_finis;
    return cache_fini(cache);
}

TEST(Init, CountsAndSetsUpOnce) {
    const ImportHook hooks[] = {hook(counted_cache_init, "cache_init"),
                                hook(counted_cache_fini, "cache_fini")};
    kel_fini();  // ignored
    for (int round = 1; round <= 2; ++round) {
        for (int i = 0; i < 3; ++i) EXPECT_EQ(kel_init(), 0);
        kel_fini();
        kel_fini();
        EXPECT_EQ(cache_inits, round);
        EXPECT_EQ(cache_finis, round - 1);
        kel_fini();
        EXPECT_EQ(cache_finis, round);
        kel_fini();  // ignored
        EXPECT_EQ(cache_finis, round);
    }
}

TEST(Init, FailsSilentlyAndTriesAgain) {
    const ImportHook counted = hook(counted_cache_fini, "cache_fini");
    const int tried = sweep_faults(platform_fault_points(), [](const Fault* fault, LogCapture& log) {
        cache_finis = 0;
        if (fault) {
            EXPECT_EQ(kel_init(), -1);
            EXPECT_EQ(cache_finis, fault->is("ThreadCtl") ? 1 : 0);  // the record is released again
            kel_fini();                                              // the count stayed 0
            EXPECT_EQ(cache_finis, fault->is("ThreadCtl") ? 1 : 0);
        }
        EXPECT_EQ(kel_init(), 0);
        kel_fini();
        EXPECT_TRUE(log.messages().empty());
    });
    EXPECT_EQ(tried, 2);
}

TEST(Context, EachFailureIsReported) {
    sweep_faults(screen_fault_points(), [](const Fault* fault, LogCapture& log) {
        errno = 0;
        kel_context* context = kel_create_context();
        if (fault) {
            const char* text = fault->is("calloc")
                                   ? "kel_context:  Out of memory in kel_create_context."
                                   : "kel_context:  screen_create_context failed: Cannot allocate memory";
            EXPECT_EQ(context, nullptr);
            EXPECT_EQ(errno, ENOMEM);
            EXPECT_EQ(log.messages(), (std::vector<LogMessage>{{2, text}}));
        } else {
            ASSERT_NE(context, nullptr);
            EXPECT_NE(context->screen_context, nullptr);
            EXPECT_EQ(context->gles, nullptr);
            EXPECT_EQ(context->text, nullptr);
            EXPECT_EQ(context->max_image_width, 2048);
            EXPECT_EQ(context->max_image_height, 2048);
        }
        kel_destroy_context(&context);
        EXPECT_EQ(context, nullptr);
        kel_destroy_context(&context);
    });
    kel_destroy_context(nullptr);
}

}  // namespace
