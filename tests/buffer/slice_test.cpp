// Slices, and cache maintenance of the buffers that they view.
#include <gtest/gtest.h>
#include <kel.h>

#include <cstring>
#include <tuple>

#include "support/import_hooks.hpp"
#include "support/log_capture.hpp"

namespace {

using namespace kel_test;

constexpr kel_audio_format mono = {8000, 1, KEL_AUDIO_TYPE_S16LE};
constexpr kel_video_format rgba = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_NATIVE, 640, 480};

class Slice : public ::testing::Test {
  protected:
    void TearDown() override {
        kel_release_buffer(video);
        kel_destroy_buffer_pool(&audio_pool);
        kel_destroy_context(&context);
    }

    kel_context* context = kel_create_context();
    kel_buffer* video = kel_create_pixmap_buffer(context, &rgba);
    kel_buffer_pool* audio_pool = kel_create_audio_buffer_pool(context, &mono, 1024, 2);
    kel_buffer* audio = kel_acquire_buffer(audio_pool);
};

TEST_F(Slice, CoversTheWholeBuffer) {
    kel_slice* made = kel_create_slice_for_buffer(video);
    ASSERT_NE(made, nullptr);
    for (const kel_slice& slice : {*made, kel_slice_for_buffer(video)}) {
        const auto& v = slice.spec.video;
        EXPECT_EQ(
            std::tuple(slice.buffer, slice.pts, v.x, v.y, v.width, v.height, v.frame_width, v.frame_height),
            std::tuple(video, 0u, 0, 0, 640, 480, 640, 480));
    }
    free(made);
    kel_slice slice;
    memset(&slice, 0x5a, sizeof slice);
    kel_init_buffer_slice(&slice, audio);
    const auto& a = slice.spec.audio;
    EXPECT_EQ(std::tuple(slice.buffer, slice.pts, a.nsamples, a.samples_start),
              std::tuple(audio, 0u, 1024u, audio->ptr));

    const kel_slice empty{};
    kel_init_buffer_slice(&slice, nullptr);
    EXPECT_EQ(memcmp(&slice, &empty, sizeof empty), 0);

    LogCapture log;
    const ImportHook refused = hook(
        +[](size_t, size_t) -> void* { return nullptr; }, "calloc");
    EXPECT_EQ(kel_create_slice_for_buffer(audio), nullptr);
    EXPECT_TRUE(log.messages().empty());
}

TEST_F(Slice, NarrowsTheVideoFormat) {
    kel_slice slice = kel_slice_for_buffer(video);
    slice.spec.video.width = 320;
    slice.spec.video.height = 240;
    const kel_video_format narrowed = kel_get_video_slice_format(&slice);
    const kel_video_format expected = {rgba.format, rgba.usage, 320, 240};
    EXPECT_EQ(memcmp(&narrowed, &expected, sizeof expected), 0);
    slice.buffer = nullptr;
    const kel_video_format none = kel_get_video_slice_format(&slice);
    EXPECT_EQ(none.format | none.usage | none.width | none.height, 0);
}

// Routines that note what they were asked for.
using Call = std::tuple<char, void*, uint64_t, size_t>;
std::vector<Call> calls;

template <char operation>
int note(struct cache_ctrl* cache, void* address, uint64_t paddr, size_t length) {
    EXPECT_EQ(cache, &kel_cache_ctrl);
    calls.emplace_back(operation, address, paddr, length);
    return -1;  // nobody looks at it
}

TEST_F(Slice, CacheRoutinesReceiveWholeVideoBuffers) {
    const Call flush = {'f', video->ptr, video->paddr, video->size};
    const Call invalidate = {'i', video->ptr, video->paddr, video->size};
    const struct {
        unsigned flags;
        std::vector<Call> calls;
    } rows[] = {
        {0, {invalidate, flush}}, {0x10000000, {flush}}, {0x20000000, {invalidate}}, {0x30000000, {}}};
    const cache_ctrl saved = kel_cache_ctrl;
    kel_cache_ctrl.flush = note<'f'>;
    kel_cache_ctrl.invalidate = note<'i'>;
    kel_buffer nowhere = *video;
    nowhere.paddr = 0;
    for (const auto& row : rows) {
        calls.clear();
        kel_cache_ctrl.flags = row.flags;
        EXPECT_EQ(kel_invalidate_cache(video), 0);
        EXPECT_EQ(kel_flush_cache(video), 0);
        for (const kel_buffer* refused : {audio, &nowhere, static_cast<kel_buffer*>(nullptr)}) {
            EXPECT_EQ(kel_invalidate_cache(refused), 22);
            EXPECT_EQ(kel_flush_cache(refused), 22);
        }
        EXPECT_EQ(calls, row.calls);
    }
    kel_cache_ctrl = saved;
}

}  // namespace
