// NextBuffer of the reader: what it delivers, what it refuses without writing outside, how it ends.
#include <algorithm>
#include <thread>

#include "mmedia/media_fixture.hpp"
#include "support/threads.hpp"

namespace {

using namespace kel_test;

constexpr uint8_t guard = 0xA5;

// A reader without a graph, one of its outputs set up with a pool of the library's allocator.
class Reader : public MediaTest {
  protected:
    Reader() { MmSetResource(reader, "KelContext", context); }
    ~Reader() override {
        if (source) kel_destroy_buffer_pool(&source);
        kel_allocator.free_memory_pool(pool);
        MmDestroyFilter(reader);
    }

    void open(kel_channel* chosen, bool own_stride = true) {
        channel = chosen;
        queue = queue_of(reader, channel == &reader->outputs[0] ? "AudioQueue" : "VideoQueue");
        const auto& out = table_of<mmf_output_interface>(reader, "MediaOutput");
        next = out.next_buffer;
        kel_channel_format format{};
        int cursor = 0;
        ASSERT_EQ(out.acquire_output(channel), 0);
        ASSERT_EQ(out.iterate_formats(channel, &format, &cursor), 1);
        format.flags = own_stride ? 8 : 0;
        ASSERT_EQ(out.set_format(channel, &format), 0);
        kel_mmf_pool_attributes attributes{};
        attributes.buffer_count = 3;
        attributes.buffer_size = std::max(format.buffer_size, 1);
        channel->connection = reinterpret_cast<mmf_connection*>(this);
        ASSERT_EQ(kel_allocator.allocate_memory_pool(&pool, channel, &attributes), 0);
        channel->connection = nullptr;
        ASSERT_EQ(out.set_memory_pool(channel, &kel_allocator, pool), 0);
        play();
    }

    void open_audio(int32_t rate = 8000) {
        for (auto [name, value] : {std::pair{"AudioSampleRate", rate}, std::pair{"AudioBitDepth", 16},
                                   std::pair{"AudioChannels", 2}})
            set_integer(reader, name, value);
        open(&reader->outputs[0]);
        const kel_audio_format format = {rate, 2, KEL_AUDIO_TYPE_S16LE};
        source = kel_create_audio_buffer_pool(context, &format, 6000, 2);
    }

    void open_video(const char* fourcc, int32_t screen_format, bool own_stride = true, int32_t width = 70,
                    int32_t height = 48) {
        for (auto [name, value] :
             {std::pair{"VideoWidth", 70}, std::pair{"VideoHeight", 48}, std::pair{"VideoColorDepth", 32}})
            set_integer(reader, name, value);
        MmSetResource(reader, "VideoFormat", fourcc);
        open(&reader->outputs[1], own_stride);
        const kel_video_format format = {screen_format, 0x10E, width, height};
        source = kel_create_window_buffer_pool(context, &format, SCREEN_CHILD_WINDOW, 2);
        ASSERT_NE(source, nullptr);
    }

    void play() {
        const auto& control = table_of<mmf_control_interface>(reader, "MediaControl");
        control.start(reader);
        control.resume(reader);
    }

    // A slice of the source pool, its buffer filled with what depends on the position.
    kel_slice* put(uint64_t pts = 0x123456789abc, uint32_t frames = 0) {
        kel_buffer* buffer = kel_acquire_buffer(source);
        auto* bytes = static_cast<uint8_t*>(buffer->ptr);
        for (uint32_t i = 0; i < buffer->size; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + i / 251);
        auto* slice = static_cast<kel_slice*>(std::malloc(sizeof(kel_slice)));
        *slice = kel_slice_for_buffer(buffer);
        slice->pts = pts;
        if (frames) slice->spec.audio.nsamples = frames;
        EXPECT_EQ(kel_queue_enqueue_with_timeout(queue, slice, 100), 1);
        return slice;
    }

    // The pool's memory all guard bytes, and its records cut to `size`.
    void guard_pool(uint32_t size = UINT32_MAX) {
        for (int i = 0; i < pool->buffer_pool->count; ++i) {
            memset(pool->buffers[i].data, guard, pool->buffer_pool->buffers[i].size);
            pool->buffers[i].size = std::min(size, pool->buffer_pool->buffers[i].size);
        }
    }

    bool pool_is_untouched() const {
        for (int i = 0; i < pool->buffer_pool->count; ++i) {
            auto* bytes = static_cast<uint8_t*>(pool->buffers[i].data);
            if (std::any_of(bytes, bytes + pool->buffer_pool->buffers[i].size,
                            [](uint8_t byte) { return byte != guard; }))
                return false;
        }
        return true;
    }

    void expect_nothing_held() const {
        EXPECT_EQ(pool->buffer_pool->in_use, 0);
        EXPECT_EQ(source->in_use, 0);
    }

    void expect_refused(const std::string& message = "") {
        LogCapture log;
        mmf_mra* mra = nullptr;
        EXPECT_EQ(next(channel, &mra), 1);
        EXPECT_EQ(mra, nullptr);
        const auto errors = log.messages(2);
        ASSERT_FALSE(errors.empty());
        EXPECT_EQ(errors.back().text, "kel_reader: Setting MRA data failed.");
        EXPECT_EQ(errors.size(), message.empty() ? 1u : 2u);
        if (!message.empty()) {
            EXPECT_EQ(errors[0].text.substr(0, message.size()), message);
        }
        expect_nothing_held();
    }

    kel_filter* reader = kel_create_reader_filter(nullptr);
    kel_channel* channel = nullptr;
    kel_queue* queue = nullptr;
    kel_mmf_pool* pool = nullptr;
    kel_buffer_pool* source = nullptr;
    int (*next)(kel_channel*, mmf_mra**) = nullptr;
};

using Properties = std::vector<Delivered::Property>;

TEST_F(Reader, CopiesAudioOnce) {
    open_audio();  // half a second: 4000 frames
    guard_pool();
    LogCapture log;
    kel_slice* slice = put(0x123456789abc, 1000);
    const void* data = slice->buffer->ptr;
    mmf_mra* mra = nullptr;
    ASSERT_EQ(next(channel, &mra), 256);
    const Delivered got(mra);
    EXPECT_EQ(got.properties, (Properties{{15, 0x56789abc, 0x1234}}));
    EXPECT_EQ(got.size, 4000u);
    EXPECT_EQ(got.data, got.record->data);
    EXPECT_EQ(memcmp(got.data, data, 4000), 0);
    EXPECT_TRUE(std::all_of(got.data + 4000, got.data + 16000, [](uint8_t byte) { return byte == guard; }));
    EXPECT_TRUE(log.has_starting(7, "kel_reader: -> NextBuffer() audio, pts: 20015998343868, data: 0x"));
    EXPECT_EQ(source->in_use, 0);
    EXPECT_EQ(pool->buffer_pool->in_use, 1);
    MmfReleaseMra(mra);
    expect_nothing_held();
}

TEST_F(Reader, RefusesAudioThatDoesNotFit) {
    open_audio();
    guard_pool(3999);
    put(0, 1000);
    expect_refused();
    put(0, UINT32_MAX);
    expect_refused();
    const std::string message = "kel_reader: -> NextBuffer() audio: returning MM_STATUS_ERROR: data: 0x0x";
    put(0, 10)->spec.audio.samples_start = nullptr;
    expect_refused(message);
    put(0, 10);
    for (int i = 0; i < 3; ++i) pool->buffers[i].data = nullptr;
    expect_refused("kel_reader: -> NextBuffer() audio: returning MM_STATUS_ERROR: data: 0x");
    for (int i = 0; i < 3; ++i) pool->buffers[i].data = pool->buffer_pool->buffers[i].ptr;
    EXPECT_TRUE(pool_is_untouched());
}

TEST_F(Reader, CopiesPicturesAtEitherStride) {
    for (bool own_stride : {true, false}) {
        open_video("NV12", SCREEN_FORMAT_NV12, own_stride);
        guard_pool();
        kel_slice* slice = put();
        slice->spec.video.width = 68;
        std::vector<uint8_t> from(static_cast<uint8_t*>(slice->buffer->ptr),
                                  static_cast<uint8_t*>(slice->buffer->ptr) + slice->buffer->size);
        const int from_stride = slice->buffer->stride;
        ASSERT_GT(from_stride, 70);
        mmf_mra* mra = nullptr;
        ASSERT_EQ(next(channel, &mra), 256);
        const Delivered got(mra);
        EXPECT_EQ(got.properties, (Properties{{14, 0x56789abc, 0x1234}, {35, 0, 0}, {31, 68, 48}}));
        EXPECT_EQ(got.size, 70u * 48 * 3 / 2);
        const int stride = own_stride ? got.record->buffer->stride : 70;
        int wrong = 0;
        for (int i = 0; i < static_cast<int>(got.record->size); ++i) {
            const int row = i / stride, x = i % stride;
            const bool copied = row < 72 && x < 68;
            wrong += got.data[i] != (copied ? from[static_cast<size_t>(row * from_stride + x)] : guard);
        }
        EXPECT_EQ(wrong, 0);
        MmfReleaseMra(mra);
        expect_nothing_held();
        // The other stride starts anew.
        kel_destroy_buffer_pool(&source);
        kel_allocator.free_memory_pool(pool);
        MmDestroyFilter(reader);
        pool = nullptr;
        reader = kel_create_reader_filter(nullptr);
        MmSetResource(reader, "KelContext", context);
    }
}

TEST_F(Reader, BlitsRgba) {
    open_video("ABGR", SCREEN_FORMAT_RGBA8888);  // the bytes in memory are RGBA
    kel_slice* slice = put();
    const kel_buffer copy = *slice->buffer;
    mmf_mra* mra = nullptr;
    ASSERT_EQ(next(channel, &mra), 256);
    const Delivered got(mra);
    EXPECT_EQ(got.size, copy.size);
    const int stride = got.record->buffer->stride;
    for (int y = 0; y < 48; ++y)
        EXPECT_EQ(memcmp(got.data + y * stride, static_cast<uint8_t*>(copy.ptr) + y * copy.stride, 280), 0);
    MmfReleaseMra(mra);
    guard_pool(copy.size - 1);
    put();
    expect_refused();
    EXPECT_TRUE(pool_is_untouched());
}

TEST_F(Reader, ConvertsToNv12) {
    open_video("21VN", SCREEN_FORMAT_RGBA8888);  // the other byte order
    kel_slice* slice = put();
    kel_buffer copy = *slice->buffer;
    mmf_mra* mra = nullptr;
    ASSERT_EQ(next(channel, &mra), 256);
    const Delivered got(mra);
    EXPECT_EQ(got.size, 70u * 48 * 3 / 2);
    kel_mmf_buffer* expected = nullptr;
    ASSERT_EQ(kel_allocator.acquire_buffer(pool, &expected, 1), 0);
    bgra8888_to_nv12(&copy, expected->buffer);
    const int stride = got.record->buffer->stride;
    for (int y = 0; y < 72; ++y)
        EXPECT_EQ(memcmp(got.data + y * stride, static_cast<uint8_t*>(expected->data) + y * stride, 70), 0);
    kel_allocator.release_buffer(expected);
    MmfReleaseMra(mra);
    expect_nothing_held();
}

TEST_F(Reader, RefusesPicturesThatDoNotFit) {
    open_video("NV12", SCREEN_FORMAT_NV12);
    guard_pool();
    const struct {
        const char* name;
        int32_t value, sane;
    } rows[] = {{"VideoHeight", 49, 48},
                {"VideoHeight", 1 << 30, 48},
                {"VideoHeight", -2, 48},
                {"VideoWidth", 100000, 70},
                {"VideoWidth", -70, 70}};
    for (const auto& row : rows) {
        set_integer(reader, row.name, row.value);
        put();
        expect_refused();
        set_integer(reader, row.name, row.sane);
    }
    guard_pool(pool->buffers[0].size - 64);
    put();
    expect_refused();
    guard_pool();
    EXPECT_TRUE(pool_is_untouched());
    kel_slice* slice = put();
    slice->spec.video.width = -1;
    expect_refused();
    for (int i = 0; i < 3; ++i) pool->buffers[i].data = nullptr;
    put();
    expect_refused("kel_reader: -> NextBuffer() video: returning MM_STATUS_ERROR: data: 0x");
}

TEST_F(Reader, RefusesSmallSourcesAndOtherPairings) {
    open_video("NV12", SCREEN_FORMAT_RGBA8888, true, 68, 48);
    guard_pool();
    put();
    expect_refused();  // the frame has fewer pixels than the destination
    channel->format.fourcc = 0x52474241;
    MmSetResource(reader, "VideoFormat", "RGBA");
    put();
    expect_refused(
        "kel_reader: Can not output buffer with screen format 0x8 on channel with FOURCC 0x52474241 (RGBA).");
    EXPECT_TRUE(pool_is_untouched());
}

TEST_F(Reader, StartsAgainAfterASeek) {
    open_audio();
    put(7, 10);
    const auto& seeker = table_of<mmf_seeker_interface>(reader, "MediaSeeker");
    EXPECT_EQ(seeker.seek(reader, 4, 0), 0);
    EXPECT_EQ(kel_queue_get_size(queue), 0u);
    expect_nothing_held();
    for (bool first : {true, false}) {
        LogCapture log;
        put(0x200000009, 10);
        mmf_mra* mra = nullptr;
        ASSERT_EQ(next(channel, &mra), 256);
        Properties expected = {{15, 9, 2}};
        if (first) expected.insert(expected.begin(), {3, 9, 2});
        EXPECT_EQ(Delivered(mra).properties, expected);
        EXPECT_EQ(log.has(7, "kel_reader: Adding a data discontinuity, pts: 8589934601"), first);
        MmfReleaseMra(mra);
    }
}

TEST_F(Reader, EndsAndWaits) {
    open_audio();
    const auto& control = table_of<mmf_control_interface>(reader, "MediaControl");
    mmf_mra* mra = nullptr;
    control.stop(reader);
    put(0, 10);
    EXPECT_EQ(next(channel, &mra), 16);  // without a look at the queue
    EXPECT_EQ(kel_queue_get_size(queue), 1u);
    kel_queue_clear(queue);
    play();
    {
        LogCapture log;
        std::thread late([&] {
            while (log.messages(5).size() < 2) std::this_thread::yield();
            put(0, 10);
        });
        EXPECT_EQ(next(channel, &mra), 256);
        late.join();
        EXPECT_GE(log.count(5, "kel_reader: Dequeue timed out, status: 256, closed: no, size: 0"), 2);
        MmfReleaseMra(mra);
    }
    {
        LogCapture log;
        std::thread late([&] {
            while (log.messages(5).empty()) std::this_thread::yield();
            control.stop(reader);
        });
        EXPECT_EQ(next(channel, &mra), 16);
        late.join();
        expect_nothing_held();
    }
    play();
    LogCapture log;
    kel_queue_close(queue);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(next(channel, &mra), 4);
    EXPECT_EQ(log.count(5, "kel_reader: Dequeue timed out, status: 256, closed: yes, size: 0"), 1);
    EXPECT_EQ(control.get_status(reader), 256);  // the other channel has not ended
    expect_nothing_held();
    reader->outputs[1].format.media_type = 8;
    EXPECT_EQ(next(&reader->outputs[1], &mra), 1);
    reader->outputs[1].format.media_type = 2;

    const auto& seeker = table_of<mmf_seeker_interface>(reader, "MediaSeeker");
    seeker.seek(reader, 4, 0);
    kel_queue_reset(queue);
    put(0, 10);
    EXPECT_EQ(next(channel, &mra), 256);
    MmfReleaseMra(mra);
}

TEST_F(Reader, EndsWithItsLastChannel) {
    open_audio();
    const auto& out = table_of<mmf_output_interface>(reader, "MediaOutput");
    kel_channel* other = &reader->outputs[1];
    out.acquire_output(other);
    other->format.buffer_size = 1;
    out.set_format(other, &other->format);
    ASSERT_EQ(out.set_memory_pool(other, &kel_allocator, pool), 0);
    kel_queue_close(queue);
    kel_queue_close(queue_of(reader, "VideoQueue"));
    const auto& control = table_of<mmf_control_interface>(reader, "MediaControl");
    mmf_mra* mra = nullptr;
    EXPECT_EQ(next(channel, &mra), 4);
    EXPECT_EQ(control.get_status(reader), 256);
    EXPECT_EQ(next(other, &mra), 4);
    EXPECT_EQ(control.get_status(reader), 4);
}

TEST_F(Reader, RunsOutAndRecovers) {
    open_audio();
    mmf_mra* held[3];
    for (mmf_mra*& mra : held) {
        put(0, 10);
        ASSERT_EQ(next(channel, &mra), 256);
    }
    LogCapture log;
    put(0, 10);
    mmf_mra* mra = nullptr;
    EXPECT_EQ(next(channel, &mra), 1);
    EXPECT_EQ(log.count(2, "kel_reader: Failed to acquire a buffer."), 1);
    EXPECT_EQ(kel_queue_get_size(queue), 1u);
    for (mmf_mra* each : held) MmfReleaseMra(each);
    EXPECT_EQ(next(channel, &mra), 256);
    MmfReleaseMra(mra);
}

void sweep_next_buffer(int (*next)(kel_channel*, mmf_mra**), kel_channel* channel,
                       const std::function<void()>& put, const std::function<void()>& check) {
    sweep_faults(framework_fault_points(), [&](const Fault* fault, LogCapture& log) {
        put();
        mmf_mra* mra = nullptr;
        const bool container = fault && fault->is("MmfAcquireMra");
        const bool expected = !fault || fault->function == "calloc" || fault->function == "malloc";
        EXPECT_EQ(next(channel, &mra), expected ? 256 : 1);
        EXPECT_EQ(log.has(2, "kel_reader: Failed to acquire an MRA."), container);
        EXPECT_EQ(log.has(2, "kel_reader: Setting MRA data failed."), !expected && !container);
        if (mra) MmfReleaseMra(mra);
        if (container && next(channel, &mra) == 256) MmfReleaseMra(mra);
        check();
    });
}

TEST_F(Reader, FailsWithoutLoss) {
    open_audio();
    put(0, 1);  // the queue has its node from now on
    mmf_mra* mra = nullptr;
    next(channel, &mra);
    MmfReleaseMra(mra);
    auto put_audio = [&] { put(0, 10); };
    sweep_next_buffer(next, channel, put_audio, [&] { expect_nothing_held(); });
}

TEST_F(Reader, FailsWithoutLossOfPictures) {
    open_video("ABGR", SCREEN_FORMAT_RGBA8888);
    put();
    mmf_mra* mra = nullptr;
    next(channel, &mra);
    MmfReleaseMra(mra);
    sweep_next_buffer(
        next, channel, [&] { put(); }, [&] { expect_nothing_held(); });
    LogCapture log;
    const ImportHook failing = hook(
        +[](mmf_mra*, int, kel_mmf_buffer*, void*, uint32_t) { return 5; }, "MmfSetMraBufferElement");
    put();
    EXPECT_EQ(next(channel, &mra), 1);
    EXPECT_TRUE(log.has(2, "kel_reader: Error MmfSetMraBufferElement() failed err = 5 index = 3"));
}

TEST_F(Reader, AllocatesNothingWhenWarm) {
    open_audio();
    mmf_mra* mra = nullptr;
    for (int round = 0; round < 3; ++round) {
        put(0, 10);
        Faults faults;
        ASSERT_EQ(next(channel, &mra), 256);
        MmfReleaseMra(mra);
        EXPECT_EQ(faults.allocations(), 0);
    }
}

}  // namespace
