// Log, interface lists, cache maintenance, kernel calls.
#include <aoi/aoi.h>
#include <atomic.h>
#include <sys/cache.h>
#include <sys/neutrino.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <numeric>
#include <string>
#include <vector>

#include "support/log_capture.hpp"
#include "support/threads.hpp"

namespace {

using kel_test::LogMessage;

TEST(Log, ThresholdSinkAndLongMessages) {
    std::vector<LogMessage> seen;
    const AoLogSink keep = [](void* argument, int level, const char* message) {
        static_cast<std::vector<LogMessage>*>(argument)->push_back({level, message});
    };
    AoLogSetSink(keep, &seen);
    const int old_threshold = AoLogSetThreshold(5);
    const std::string longest(5000, 'x');
    errno = 77;
    AoLog(6, "dropped %d", 1);
    AoLog(5, "kept %s %d", "five", 5);
    AoLog(2, "%s", longest.c_str());
    EXPECT_EQ(errno, 77);
    EXPECT_EQ(AoLogSetThreshold(old_threshold), 5);
    EXPECT_EQ(seen, (std::vector<LogMessage>{{5, "kept five 5"}, {2, longest}}));
    AoLogSetSink(nullptr, nullptr);
    testing::internal::CaptureStderr();
    AoLog(2, "to standard %s", "error");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "to standard error\n");
}

TEST(Log, MessagesComeWholeAndOneAtATime) {
    int counts[2] = {};  // inside, in all; plain: the log's own lock guards them
    const AoLogSink count = [](void* argument, int, const char* message) {
        int* both = static_cast<int*>(argument);
        EXPECT_EQ(++both[0], 1);
        EXPECT_STREQ(message, "0123456789");
        ++both[1];
        --both[0];
    };
    AoLogSetSink(count, counts);
    kel_test::run_together(4, [](int) {
        for (int i = 0; i < 500; ++i) AoLog(2, "%s%s", "01234", "56789");
    });
    AoLogSetSink(nullptr, nullptr);
    EXPECT_EQ(counts[1], 2000);
}

TEST(Interfaces, AreRegisteredAndFoundByName) {
    static const int table = 5;
    static const AOInterface_t list[] = {{"Name", 1, "thing"}, {"Player", 3, &table}, {nullptr, 0, nullptr}};
    const unsigned before = AoCountStatic();
    const AOHandle_t* handle = AoAddStatic(list);
    EXPECT_EQ(AoGetInterface(handle, "Player"), &list[1]);
    const auto error_of = [](const void* result) { return result ? 0 : errno; };
    EXPECT_EQ(error_of(AoGetInterface(handle, "Writer")), ESRCH);
    EXPECT_EQ(error_of(AoGetInterface(handle, nullptr)), EINVAL);
    EXPECT_EQ(error_of(AoGetInterface(nullptr, "Name")), EINVAL);
    EXPECT_EQ(error_of(AoGetInterface(reinterpret_cast<const AOHandle_t*>(&table), "Name")), EINVAL);
    EXPECT_EQ(error_of(AoAddStatic(nullptr)), EINVAL);
    EXPECT_EQ(error_of(AoAddStatic(list + 1)), EINVAL);  // without a name
    EXPECT_EQ(AoCountStatic(), before + 1);
}

TEST(Cache, LinesAreWorkedOnAndMemoryStays) {
    cache_ctrl cache{NOFD, 0, 0, nullptr, nullptr};
    const auto error_of = [](int result) { return result == 0 ? 0 : errno; };
    EXPECT_EQ(error_of(cache_fini(&cache)), EINVAL);
    EXPECT_EQ(error_of(cache_init(1, &cache, nullptr)), EINVAL);
    EXPECT_EQ(error_of(cache_init(0, nullptr, nullptr)), EINVAL);
    EXPECT_EQ(error_of(cache_init(0, &cache, "other")), EINVAL);
    ASSERT_EQ(cache_init(0, &cache, nullptr), 0);
    EXPECT_GE(cache.line_size, 16u);
    EXPECT_EQ(cache.line_size & (cache.line_size - 1), 0u);
    std::vector<unsigned char> memory(3 * 4096);
    std::iota(memory.begin(), memory.end(), static_cast<unsigned char>(0));
    const std::vector<unsigned char> copy = memory;
    for (size_t start : {0, 1, 63}) {
        for (size_t length : {size_t{0}, size_t{1}, size_t{64}, size_t{65}, memory.size() - start}) {
            EXPECT_EQ(CACHE_FLUSH(&cache, memory.data() + start, 1, length), 0);
            EXPECT_EQ(CACHE_INVAL(&cache, memory.data() + start, 1, length), 0);
        }
    }
    EXPECT_EQ(memory, copy);
    EXPECT_EQ(CACHE_FLUSH(&cache, nullptr, 1, 64), EINVAL);
    EXPECT_EQ(CACHE_INVAL(&cache, &cache, 1, SIZE_MAX), EINVAL);
    cache.flags = CACHE_FLAG_SNOOPED_FLUSH | CACHE_FLAG_SNOOPED_INVAL;
    EXPECT_EQ(CACHE_FLUSH(&cache, nullptr, 1, 64) + CACHE_INVAL(&cache, nullptr, 1, 64), 0);
    EXPECT_EQ(cache_fini(&cache), 0);
    EXPECT_EQ(cache_fini(&cache), -1);
}

TEST(Kernel, PrivilegesAndScheduling) {
    sched_param parameters{};
    EXPECT_EQ(ThreadCtl(_NTO_TCTL_IO, nullptr), 0);
    EXPECT_EQ(ThreadCtl(0, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    for (const pid_t pid : {0, getpid()})
        for (const int tid : {0, gettid()}) EXPECT_EQ(SchedGet(pid, tid, &parameters), sched_getscheduler(0));
    EXPECT_EQ(SchedGet(0, 0, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(SchedGet(0, 1, &parameters), -1);  // a thread, but of another process
    EXPECT_EQ(errno, ESRCH);
}

TEST(Atomic, AdditionsFromSeveralThreadsAllCount) {
    volatile unsigned word = 5;
    EXPECT_EQ(atomic_add_value(&word, 3), 5u);
    kel_test::run_together(4, [&](int) {
        for (int i = 0; i < 10000; ++i) atomic_add_value(&word, 2);
    });
    EXPECT_EQ(word, 80008u);
}

}  // namespace
