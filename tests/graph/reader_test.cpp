// NextBuffer of the reader: what it delivers, what it refuses without writing outside, how it ends.
#include <algorithm>
#include <thread>

#include "graph/media_fixture.hpp"
#include "support/threads.hpp"

namespace {

using namespace kel_test;

constexpr uint8_t guard = 0xA5;

using Property = std::tuple<int, uint32_t, uint16_t>;

// What NextBuffer gives, read back; its container is released with it.
struct Delivered {
    mmf_mra* mra = nullptr;
    int status;
    std::vector<Property> properties;
    kel_mmf_buffer* record = nullptr;
    uint8_t* data = nullptr;
    uint32_t size = 0;

    explicit Delivered(kel_channel* channel)
        : status(table_of<mmf_output_interface>(channel->filter, "MediaOutput").next_buffer(channel, &mra)) {
        int type = 0;
        for (int index = 0; mra && MmfGetMraElementType(mra, index, &type) == 0; ++index) {
            auto& [property, value, value16] = properties.emplace_back();
            if (type == MM_ELEMENT_PROPERTY) {
                MmfGetMraPropertyElement(mra, index, &property, &value, &value16);
                continue;
            }
            properties.pop_back();
            void* pointer = nullptr;
            MmfGetMraBufferElement(mra, index, &record, &pointer, &size);
            data = static_cast<uint8_t*>(pointer);
        }
    }
    ~Delivered() {
        if (mra) MmfReleaseMra(mra);
    }
    Delivered(const Delivered&) = delete;
    const uint8_t* row(int y) const { return data + y * record->buffer->stride; }
};

// A reader without a graph, one of its outputs set up with a pool of the library's allocator.
class Reader : public MediaTest {
  protected:
    Reader() { MmSetResource(reader, "KelContext", context); }
    ~Reader() override {
        kel_destroy_buffer_pool(&source);
        kel_allocator.free_memory_pool(pool);
        MmDestroyFilter(reader);
    }

    void open(kel_channel* chosen, const char* queue_name, bool own_stride) {
        channel = chosen;
        queue = queue_of(reader, queue_name);
        kel_channel_format format{};
        int cursor = 0;
        ASSERT_EQ(out.acquire_output(channel), 0);
        ASSERT_EQ(out.iterate_formats(channel, &format, &cursor), 1);
        format.flags = own_stride ? 8 : 0;
        ASSERT_EQ(out.set_format(channel, &format), 0);
        kel_mmf_pool_attributes attributes{};
        attributes.buffer_count = 3;
        attributes.buffer_size = format.buffer_size;
        channel->connection = reinterpret_cast<mmf_connection*>(this);
        ASSERT_EQ(kel_allocator.allocate_memory_pool(&pool, channel, &attributes), 0);
        channel->connection = nullptr;
        ASSERT_EQ(out.set_memory_pool(channel, &kel_allocator, pool), 0);
        guard_pool();
        play();
    }

    void open_audio() {
        for (auto [name, value] : {std::pair{"AudioSampleRate", 8000}, std::pair{"AudioBitDepth", 16},
                                   std::pair{"AudioChannels", 2}})
            set_integer(reader, name, value);
        open(&reader->outputs[0], "AudioQueue", true);
        const kel_audio_format format = {8000, 2, KEL_AUDIO_TYPE_S16LE};
        source = kel_create_audio_buffer_pool(context, &format, 6000, 2);
    }

    void open_video(const char* fourcc, int32_t screen_format, bool own_stride = true, int32_t width = 70) {
        for (auto [name, value] :
             {std::pair{"VideoWidth", 70}, std::pair{"VideoHeight", 48}, std::pair{"VideoColorDepth", 32}})
            set_integer(reader, name, value);
        MmSetResource(reader, "VideoFormat", fourcc);
        open(&reader->outputs[1], "VideoQueue", own_stride);
        const kel_video_format format = {screen_format, 0x10E, width, 48};
        source = kel_create_window_buffer_pool(context, &format, SCREEN_CHILD_WINDOW, 2);
    }

    void play() {
        control.start(reader);
        control.resume(reader);
    }

    // A slice of the source pool, its buffer filled with what depends on the position.
    kel_slice* put(uint64_t pts = 0x123456789abc, uint32_t frames = 10) {
        kel_buffer* buffer = kel_acquire_buffer(source);
        auto* bytes = static_cast<uint8_t*>(buffer->ptr);
        for (uint32_t i = 0; i < buffer->size; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + i / 251);
        auto* slice = static_cast<kel_slice*>(std::malloc(sizeof(kel_slice)));
        *slice = kel_slice_for_buffer(buffer);
        slice->pts = pts;
        if (buffer->pool->format.type == KEL_BUFFER_AUDIO) slice->spec.audio.nsamples = frames;
        EXPECT_EQ(kel_queue_enqueue_with_timeout(queue, slice, 100), 1);
        return slice;
    }

    // The pool's memory all guard bytes, and its records cut to `size`.
    void guard_pool(uint32_t size = UINT32_MAX) {
        for (int i = 0; i < pool->buffer_pool->count; ++i) {
            const kel_buffer& buffer = pool->buffer_pool->buffers[i];
            memset(buffer.ptr, guard, buffer.size);
            pool->buffers[i].size = std::min(size, buffer.size);
        }
    }
    void remove_data() {
        for (int i = 0; i < pool->buffer_pool->count; ++i) pool->buffers[i].data = nullptr;
    }

    void expect_nothing_held() const {
        EXPECT_EQ(pool->buffer_pool->in_use, 0);
        EXPECT_EQ(source->in_use, 0);
    }

    void expect_refused(const std::string& message = "") {
        LogCapture log;
        EXPECT_EQ(Delivered(channel).status, 1);
        const auto errors = log.messages(2);
        ASSERT_EQ(errors.size(), message.empty() ? 1u : 2u);
        EXPECT_TRUE(errors.front().text.starts_with(message)) << errors.front().text;
        EXPECT_EQ(errors.back().text, "kel_reader: Setting MRA data failed.");
        expect_nothing_held();
        for (int i = 0; i < pool->buffer_pool->count; ++i) {
            const kel_buffer& buffer = pool->buffer_pool->buffers[i];
            const auto* bytes = static_cast<uint8_t*>(buffer.ptr);
            EXPECT_TRUE(std::all_of(bytes, bytes + buffer.size, [](uint8_t byte) { return byte == guard; }));
        }
    }

    // Every call of the framework fails once, and nothing is lost; nothing is allocated once the queue is warm.
    void sweep() {
        put();
        EXPECT_EQ(Delivered(channel).status, 256);
        sweep_faults(framework_fault_points(), [&](const Fault* fault, LogCapture& log) {
            put();
            const bool container = fault && fault->is("MmfAcquireMra");
            EXPECT_EQ(Delivered(channel).status, fault ? 1 : 256);
            EXPECT_EQ(log.has(2, "kel_reader: Failed to acquire an MRA."), container);
            EXPECT_EQ(log.has(2, "kel_reader: Setting MRA data failed."), fault && !container);
            if (container) {
                EXPECT_EQ(Delivered(channel).status, 256);
            }
            expect_nothing_held();
        });
    }

    kel_filter* reader = kel_create_reader_filter(nullptr);
    const mmf_output_interface& out = table_of<mmf_output_interface>(reader, "MediaOutput");
    const mmf_control_interface& control = table_of<mmf_control_interface>(reader, "MediaControl");
    const mmf_seeker_interface& seeker = table_of<mmf_seeker_interface>(reader, "MediaSeeker");
    kel_channel* channel = nullptr;
    kel_queue* queue = nullptr;
    kel_mmf_pool* pool = nullptr;
    kel_buffer_pool* source = nullptr;
};

using Properties = std::vector<Property>;

TEST_F(Reader, CopiesAudioOnce) {
    open_audio();  // half a second: 4000 frames
    LogCapture log;
    const void* data = put(0x123456789abc, 1000)->buffer->ptr;
    {
        const Delivered got(channel);
        EXPECT_EQ(got.status, 256);
        EXPECT_EQ(got.properties, (Properties{{15, 0x56789abc, 0x1234}}));
        ASSERT_EQ(got.size, 4000u);
        EXPECT_EQ(got.data, got.record->data);
        EXPECT_EQ(memcmp(got.data, data, 4000), 0);
        EXPECT_EQ(std::count(got.data + 4000, got.data + 16000, guard), 12000);
        EXPECT_TRUE(log.has_starting(7, "kel_reader: -> NextBuffer() audio, pts: 20015998343868, data: 0x"));
        EXPECT_EQ(source->in_use, 0);
        EXPECT_EQ(pool->buffer_pool->in_use, 1);
    }
    expect_nothing_held();
}

TEST_F(Reader, RefusesAudioThatDoesNotFit) {
    open_audio();
    guard_pool(3999);
    for (uint32_t frames : {1000u, UINT32_MAX}) {
        put(0, frames);
        expect_refused();
    }
    const std::string message = "kel_reader: -> NextBuffer() audio: returning MM_STATUS_ERROR: data: 0x";
    put()->spec.audio.samples_start = nullptr;
    expect_refused(message);
    remove_data();
    put();
    expect_refused(message);
}

class ReaderStride : public Reader, public testing::WithParamInterface<bool> {};

TEST_P(ReaderStride, CopiesPictures) {
    open_video("NV12", SCREEN_FORMAT_NV12, GetParam());
    kel_slice* slice = put();
    slice->spec.video.width = 68;
    const kel_buffer from = *slice->buffer;
    ASSERT_GT(from.stride, 70);
    const Delivered got(channel);
    ASSERT_EQ(got.status, 256);
    EXPECT_EQ(got.properties, (Properties{{14, 0x56789abc, 0x1234}, {35, 0, 0}, {31, 68, 48}}));
    EXPECT_EQ(got.size, 70u * 48 * 3 / 2);
    const int stride = GetParam() ? got.record->buffer->stride : 70;
    int wrong = 0;
    for (int i = 0; i < static_cast<int>(got.record->size); ++i) {
        const int row = i / stride, x = i % stride;
        const bool copied = row < 72 && x < 68;
        wrong += got.data[i] != (copied ? static_cast<uint8_t*>(from.ptr)[row * from.stride + x] : guard);
    }
    EXPECT_EQ(wrong, 0);
}

INSTANTIATE_TEST_SUITE_P(, ReaderStride, testing::Bool());

TEST_F(Reader, BlitsRgba) {
    open_video("ABGR", SCREEN_FORMAT_RGBA8888);  // the bytes in memory are RGBA
    const kel_buffer from = *put()->buffer;
    {
        const Delivered got(channel);
        ASSERT_EQ(got.status, 256);
        EXPECT_EQ(got.size, from.size);
        for (int y = 0; y < 48; ++y)
            EXPECT_EQ(memcmp(got.row(y), static_cast<uint8_t*>(from.ptr) + y * from.stride, 280), 0);
    }
    guard_pool(from.size - 1);
    put();
    expect_refused();
}

TEST_F(Reader, ConvertsToNv12) {
    open_video("21VN", SCREEN_FORMAT_RGBA8888);  // the other byte order
    kel_buffer from = *put()->buffer;
    const Delivered got(channel);
    ASSERT_EQ(got.status, 256);
    EXPECT_EQ(got.size, 70u * 48 * 3 / 2);
    kel_mmf_buffer* expected = nullptr;
    ASSERT_EQ(kel_allocator.acquire_buffer(pool, &expected, 1), 0);
    bgra8888_to_nv12(&from, expected->buffer);
    for (int y = 0; y < 72; ++y)
        EXPECT_EQ(
            memcmp(got.row(y), static_cast<uint8_t*>(expected->data) + y * expected->buffer->stride, 70), 0);
    kel_allocator.release_buffer(expected);
}

TEST_F(Reader, RefusesPicturesThatDoNotFit) {
    open_video("NV12", SCREEN_FORMAT_NV12);
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
    put()->spec.video.width = -1;
    expect_refused();
    guard_pool(pool->buffers[0].size - 64);
    put();
    expect_refused();
    remove_data();
    put();
    expect_refused("kel_reader: -> NextBuffer() video: returning MM_STATUS_ERROR: data: 0x");
}

TEST_F(Reader, RefusesSmallSourcesAndOtherPairings) {
    open_video("NV12", SCREEN_FORMAT_RGBA8888, true, 68);
    put();
    expect_refused();  // the frame has fewer pixels than the destination
    channel->format.fourcc = 0x52474241;
    MmSetResource(reader, "VideoFormat", "RGBA");
    put();
    expect_refused(
        "kel_reader: Can not output buffer with screen format 0x8 on channel with FOURCC 0x52474241 (RGBA).");
}

TEST_F(Reader, StartsAgainAfterASeek) {
    open_audio();
    put();
    EXPECT_EQ(seeker.seek(reader, 4, 0), 0);
    EXPECT_EQ(kel_queue_get_size(queue), 0u);
    expect_nothing_held();
    for (bool first : {true, false}) {
        LogCapture log;
        put(0x200000009);
        Properties expected = {{15, 9, 2}};
        if (first) expected.insert(expected.begin(), {3, 9, 2});
        EXPECT_EQ(Delivered(channel).properties, expected);
        EXPECT_EQ(log.has(7, "kel_reader: Adding a data discontinuity, pts: 8589934601"), first);
    }
}

TEST_F(Reader, WaitsWhileItPlays) {
    open_audio();
    control.stop(reader);
    put();
    EXPECT_EQ(Delivered(channel).status, 16);  // without a look at the queue
    EXPECT_EQ(kel_queue_get_size(queue), 1u);
    kel_queue_clear(queue);
    const std::pair<int, std::function<void()>> ends[] = {{256, [&] { put(); }},
                                                          {16, [&] { control.stop(reader); }}};
    for (const auto& [status, end] : ends) {
        play();
        LogCapture log;
        std::thread late([&, &end = end] {
            while (log.messages(5).size() < 2) std::this_thread::yield();
            end();
        });
        EXPECT_EQ(Delivered(channel).status, status);
        late.join();
        EXPECT_GE(log.count(5, "kel_reader: Dequeue timed out, status: 256, closed: no, size: 0"), 2);
        expect_nothing_held();
    }
}

TEST_F(Reader, EndsWithItsLastChannel) {
    open_audio();
    kel_channel* other = &reader->outputs[1];
    out.acquire_output(other);
    other->format.buffer_size = 1;
    out.set_format(other, &other->format);
    ASSERT_EQ(out.set_memory_pool(other, &kel_allocator, pool), 0);
    kel_queue_close(queue);
    kel_queue_close(queue_of(reader, "VideoQueue"));
    LogCapture log;
    for (int i = 0; i < 2; ++i) EXPECT_EQ(Delivered(channel).status, 4);
    EXPECT_EQ(log.count(5, "kel_reader: Dequeue timed out, status: 256, closed: yes, size: 0"), 1);
    EXPECT_EQ(control.get_status(reader), 256);
    other->format.media_type = 8;
    EXPECT_EQ(Delivered(other).status, 1);
    other->format.media_type = MM_MEDIA_VIDEO;
    EXPECT_EQ(Delivered(other).status, 4);
    EXPECT_EQ(control.get_status(reader), 4);
    expect_nothing_held();

    seeker.seek(reader, 4, 0);
    kel_queue_reset(queue);
    play();
    put();
    EXPECT_EQ(Delivered(channel).status, 256);
}

TEST_F(Reader, RunsOutAndRecovers) {
    open_audio();
    {
        put();
        const Delivered first(channel);
        put();
        const Delivered second(channel);
        put();
        const Delivered third(channel);
        LogCapture log;
        put();
        EXPECT_EQ(Delivered(channel).status, 1);
        EXPECT_EQ(log.count(2, "kel_reader: Failed to acquire a buffer."), 1);
        EXPECT_EQ(kel_queue_get_size(queue), 1u);
    }
    EXPECT_EQ(Delivered(channel).status, 256);
}

TEST_F(Reader, FailsWithoutLoss) {
    open_audio();
    sweep();
}

TEST_F(Reader, FailsWithoutLossOfPictures) {
    open_video("ABGR", SCREEN_FORMAT_RGBA8888);
    sweep();
    LogCapture log;
    const ImportHook failing = hook(
        +[](mmf_mra*, int, kel_mmf_buffer*, void*, uint32_t) { return 5; }, "MmfSetMraBufferElement");
    put();
    EXPECT_EQ(Delivered(channel).status, 1);
    EXPECT_TRUE(log.has(2, "kel_reader: Error MmfSetMraBufferElement() failed err = 5 index = 3"));
}

}  // namespace
