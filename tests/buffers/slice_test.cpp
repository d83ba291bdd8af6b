// Slices, and cache maintenance of the buffers that they view.
#include <gtest/gtest.h>
#include <kel.h>

#include <cstring>

#include "support/import_hooks.hpp"
#include "support/log_capture.hpp"

namespace {

using namespace kel_test;

constexpr kel_audio_format mono = {8000, 1, KEL_AUDIO_TYPE_S16LE};
constexpr kel_video_format rgba = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_NATIVE, 640, 480};

class Slice : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(kel_init(), 0);
        ASSERT_NE(context = kel_create_context(), nullptr);
        ASSERT_NE(video = kel_create_pixmap_buffer(context, &rgba), nullptr);
        ASSERT_NE(audio_pool = kel_create_audio_buffer_pool(context, &mono, 1024, 2), nullptr);
        audio = kel_acquire_buffer(audio_pool);
    }
    void TearDown() override {
        kel_release_buffer(video);
        kel_destroy_buffer_pool(&audio_pool);
        kel_destroy_context(&context);
        kel_fini();
    }

    static void expect_whole_frame(const kel_slice& slice, kel_buffer* buffer) {
        EXPECT_EQ(slice.buffer, buffer);
        EXPECT_EQ(slice.pts, 0u);
        const auto& v = slice.spec.video;
        EXPECT_EQ((std::vector{v.x, v.y, v.width, v.height, v.frame_width, v.frame_height}),
                  (std::vector{0, 0, 640, 480, 640, 480}));
    }

    kel_context* context = nullptr;
    kel_buffer* video = nullptr;
    kel_buffer_pool* audio_pool = nullptr;
    kel_buffer* audio = nullptr;
};

TEST_F(Slice, CoversTheWholeBuffer) {
    kel_slice slice;
    memset(&slice, 0x5a, sizeof slice);
    kel_init_buffer_slice(&slice, video);
    expect_whole_frame(slice, video);
    expect_whole_frame(kel_slice_for_buffer(video), video);

    kel_init_buffer_slice(&slice, audio);
    EXPECT_EQ(slice.buffer, audio);
    EXPECT_EQ(slice.pts, 0u);
    EXPECT_EQ(slice.spec.audio.nsamples, 1024u);
    EXPECT_EQ(slice.spec.audio.samples_start, audio->ptr);

    const kel_slice empty{};
    kel_init_buffer_slice(&slice, nullptr);
    EXPECT_EQ(memcmp(&slice, &empty, sizeof slice), 0);

    kel_slice* made = kel_create_slice_for_buffer(video);
    ASSERT_NE(made, nullptr);
    expect_whole_frame(*made, video);
    free(made);
}

void* no_memory(size_t, size_t) {
    return nullptr;
}

TEST_F(Slice, OnTheHeapCanRunOutOfMemory) {
    LogCapture log;
    const ImportHook refused = hook(no_memory, "calloc");
    EXPECT_EQ(kel_create_slice_for_buffer(audio), nullptr);
    EXPECT_TRUE(log.messages().empty());
}

TEST_F(Slice, NarrowsTheVideoFormat) {
    kel_slice slice = kel_slice_for_buffer(video);
    slice.spec.video.width = 320;
    slice.spec.video.height = 240;
    kel_video_format format = kel_get_video_slice_format(&slice);
    EXPECT_EQ(format.format, rgba.format);
    EXPECT_EQ(format.usage, rgba.usage);
    EXPECT_EQ(format.width, 320);
    EXPECT_EQ(format.height, 240);
    slice.buffer = nullptr;
    format = kel_get_video_slice_format(&slice);
    EXPECT_EQ(format.format | format.usage | format.width | format.height, 0);
}

// Cache routines that note what they were asked for.
struct Maintenance {
    int flushes, invalidations;
    void* address;
    uint64_t paddr;
    size_t length;
} maintained;

int note(struct cache_ctrl* cache, void* address, uint64_t paddr, size_t length) {
    EXPECT_EQ(cache, &kel_cache_ctrl);
    maintained.address = address;
    maintained.paddr = paddr;
    maintained.length = length;
    return -1;  // nobody looks at it
}
int noted_flush(struct cache_ctrl* cache, void* address, uint64_t paddr, size_t length) {
    ++maintained.flushes;
    return note(cache, address, paddr, length);
}
int noted_invalidation(struct cache_ctrl* cache, void* address, uint64_t paddr, size_t length) {
    ++maintained.invalidations;
    return note(cache, address, paddr, length);
}

using Cache = Slice;

TEST_F(Cache, RoutinesReceiveTheWholeBuffer) {
    const cache_ctrl saved = kel_cache_ctrl;
    kel_cache_ctrl.flush = noted_flush;
    kel_cache_ctrl.invalidate = noted_invalidation;
    const struct {
        unsigned flags;
        int flushes, invalidations;
    } rows[] = {{0, 1, 1}, {0x10000000, 1, 0}, {0x20000000, 0, 1}, {0x30000000, 0, 0}};
    for (const auto& row : rows) {
        maintained = {};
        kel_cache_ctrl.flags = row.flags;
        EXPECT_EQ(kel_invalidate_cache(video), 0);
        EXPECT_EQ(kel_flush_cache(video), 0);
        EXPECT_EQ(maintained.flushes, row.flushes);
        EXPECT_EQ(maintained.invalidations, row.invalidations);
        if (row.flushes + row.invalidations == 0) continue;
        EXPECT_EQ(maintained.address, video->ptr);
        EXPECT_EQ(maintained.paddr, video->paddr);
        EXPECT_EQ(maintained.length, video->size);
    }
    maintained = {};
    kel_cache_ctrl.flags = 0;
    kel_buffer nowhere = *video;
    nowhere.paddr = 0;
    for (const kel_buffer* refused :
         {static_cast<const kel_buffer*>(audio), static_cast<const kel_buffer*>(&nowhere),
          static_cast<const kel_buffer*>(nullptr)}) {
        EXPECT_EQ(kel_invalidate_cache(refused), 22);
        EXPECT_EQ(kel_flush_cache(refused), 22);
    }
    EXPECT_EQ(maintained.flushes + maintained.invalidations, 0);
    kel_cache_ctrl = saved;
}

TEST_F(Cache, RealMaintenanceKeepsTheData) {
    auto* bytes = static_cast<unsigned char*>(video->ptr);
    for (uint32_t i = 0; i < video->size; ++i) bytes[i] = static_cast<unsigned char>(i * 31);
    EXPECT_EQ(kel_flush_cache(video), 0);
    EXPECT_EQ(kel_invalidate_cache(video), 0);
    for (uint32_t i = 0; i < video->size; ++i) ASSERT_EQ(bytes[i], static_cast<unsigned char>(i * 31));
}

}  // namespace
