// The tools themselves: a fault sweep that finds nothing would prove nothing.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <kel.h>

#include <atomic>

#include "support/faults.hpp"
#include "support/threads.hpp"

namespace kel_test {
namespace {

int refuse_context(screen_context_t*, int) {
    errno = EPERM;
    return -1;
}

TEST(ImportHook, ReplacesACallOfTheLibraryOnlyWhileItLives) {
    LogCapture log;
    {
        ImportHook refused = hook(refuse_context, "screen_create_context");
        ASSERT_TRUE(refused.bound());
        EXPECT_EQ(kel_create_context(), nullptr);
        EXPECT_TRUE(log.has(2, "kel_context:  screen_create_context failed: Operation not permitted"));
    }
    kel_context* context = kel_create_context();
    EXPECT_NE(context, nullptr);
    kel_destroy_context(&context);
    EXPECT_FALSE(hook(refuse_context, "no_such_function").bound());
}

TEST(SweepFaults, FailsEachCallOnce) {
    std::vector<std::string> seen;
    int tried = sweep_faults(screen_fault_points(), [&](const Fault* fault, LogCapture&) {
        kel_context* context = kel_create_context();
        EXPECT_EQ(context == nullptr, fault != nullptr);
        if (fault) seen.push_back(fault->function);
        if (context) kel_destroy_context(&context);
    });
    EXPECT_EQ(tried, 2);
    EXPECT_EQ(seen, (std::vector<std::string>{"calloc", "screen_create_context"}));
}

TEST(SweepFaults, ReportsWhatIsLeftBehind) {
    static kel_context* kept = nullptr;
    EXPECT_NONFATAL_FAILURE(
        {
            Faults faults;
            const Holdings before = faults.holdings();
            kept = kel_create_context();
            EXPECT_EQ(faults.holdings(), before) << "left behind";
        },
        "left behind");
    kel_destroy_context(&kept);
}

TEST(RunTogether, RunsEveryBodyOnce) {
    Watchdog watchdog(std::chrono::seconds(60));
    std::atomic<int> sum = 0;
    run_together(5, [&](int i) { sum += 1 << i; });
    EXPECT_EQ(sum, 31);
}

}  // namespace
}  // namespace kel_test
