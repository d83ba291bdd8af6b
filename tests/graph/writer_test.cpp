// The writer at the end of a graph whose source is the reader: what it hands out, its pts and its statuses.
#include "graph/media_fixture.hpp"

namespace {

using namespace kel_test;

// Reader to writer: two audio inputs, the first connected, and one video input.
class Writer : public MediaTest {
  protected:
    void SetUp() override {
        for (kel_filter* filter : {reader, writer}) {
            MmSetResource(filter, "KelContext", context);
            set_integer(filter, "MinAudioBuffers", 6);
        }
        for (auto [name, value] :
             {std::pair{"AudioSampleRate", 48000}, std::pair{"AudioBitDepth", 16},
              std::pair{"AudioChannels", 1}, std::pair{"VideoWidth", 64}, std::pair{"VideoHeight", 48}})
            set_integer(reader, name, value);
        MmSetResource(reader, "VideoFormat", "NV12");
        set_integer(writer, "AudioChannelCount", 2);
        set_integer(writer, "VideoChannelCount", 1);
        int cursor = 0;
        audio = inputs.iterate_inputs(writer, &cursor);
        video = kel_writer_get_video_channel(writer, 0);
        ASSERT_EQ(MmConnect(graph, &reader->outputs[0], audio), 0);
        ASSERT_EQ(MmConnect(graph, &reader->outputs[1], video), 0);
        const kel_audio_format pcm = {48000, 1, KEL_AUDIO_TYPE_S16LE};
        samples = kel_create_audio_buffer_pool(context, &pcm, 1024, 20);
        const kel_video_format nv12 = {SCREEN_FORMAT_NV12, 0x10E, 64, 48};
        pictures = kel_create_window_buffer_pool(context, &nv12, SCREEN_CHILD_WINDOW, 5);
        audio_queue = queue_of(reader, "AudioQueue");
        video_queue = queue_of(reader, "VideoQueue");
    }
    void TearDown() override {
        MmDestroyGraph(graph);
        EXPECT_EQ(samples->in_use, 0);
        EXPECT_EQ(pictures->in_use, 0);
        kel_destroy_buffer_pool(&samples);
        kel_destroy_buffer_pool(&pictures);
    }

    void put(kel_queue* queue, kel_buffer_pool* pool, uint64_t pts) {
        auto* item = static_cast<kel_slice*>(std::malloc(sizeof(kel_slice)));
        *item = kel_slice_for_buffer(kel_acquire_buffer(pool));
        item->pts = pts;
        ASSERT_EQ(kel_queue_enqueue_with_timeout(queue, item, 0), 1);
    }
    int read(kel_channel* channel) { return kel_writer_read_slice(channel, &slice); }
    int status() const { return control.get_status(writer); }

    mm_graph* graph = MmCreateGraph();
    kel_filter* reader = kel_create_reader_filter(graph);
    kel_filter* writer = kel_create_writer_filter(graph);
    const mmf_input_interface& inputs = table_of<mmf_input_interface>(writer, "MediaInput");
    const mmf_control_interface& control = table_of<mmf_control_interface>(writer, "MediaControl");
    const mmf_seeker_interface& seeker = table_of<mmf_seeker_interface>(writer, "MediaSeeker");
    kel_channel *audio = nullptr, *video = nullptr;
    kel_queue *audio_queue = nullptr, *video_queue = nullptr;
    kel_buffer_pool *samples = nullptr, *pictures = nullptr;
    kel_slice slice{};
};

TEST_F(Writer, CountsFramesFromTheBase) {
    ASSERT_EQ(MmStart(graph), 0);
    ASSERT_EQ(MmResume(graph), 0);
    // Three containers that carry no pts of their own would count on; here each has one, so the base moves.
    for (uint64_t pts : {1000000u, 5000000u}) put(audio_queue, samples, pts);
    for (uint64_t pts : {1000000u, 5000000u}) {
        ASSERT_EQ(read(audio), 0);
        EXPECT_EQ(slice.pts, pts);
        EXPECT_EQ(slice.spec.audio.nsamples, 1024u);
        EXPECT_EQ(slice.spec.audio.samples_start, slice.buffer->ptr);  // the graph's own buffer
        EXPECT_NE(slice.buffer->pool, samples);
        EXPECT_EQ(slice.buffer->pool->in_use, 1);
    }
    put(video_queue, pictures, 40000);
    ASSERT_EQ(read(video), 0);
    EXPECT_EQ(slice.pts, 40000u);
    const auto& v = slice.spec.video;
    EXPECT_EQ(std::tuple(v.x, v.y, v.width, v.height, v.frame_width, v.frame_height),
              std::tuple(0, 0, 64, 48, 64, 48));
    EXPECT_EQ(kel_get_buffer_format(slice.buffer)->video.usage, 14);
    EXPECT_EQ(kel_writer_get_format(video)->video.width, 64);
}

// An upstream that gives containers with the elements of a script.
struct Script {
    struct Step {
        int property;  // 0: a buffer of `value` frames
        uint32_t value;
        uint16_t value16;
    };
    std::vector<Step> steps;
    int result = MM_STATUS_PLAYING;
    mmf_mra_pool* containers = nullptr;
    kel_mmf_pool* pool = nullptr;
    int calls = 0;
} script;

int scripted_next(kel_channel*, mmf_mra** out) {
    ++script.calls;
    if (script.steps.empty()) return script.result;
    mmf_mra* mra = nullptr;
    EXPECT_EQ(MmfAcquireMra(script.containers, &mra, 1), 0);
    for (int index = 0; const Script::Step& step : script.steps) {
        if (step.property) {
            EXPECT_EQ(MmfSetMraPropertyElement(mra, index++, step.property, step.value, step.value16), 0);
            continue;
        }
        kel_mmf_buffer* record = nullptr;
        EXPECT_EQ(kel_allocator.acquire_buffer(script.pool, &record, 1), 0);
        EXPECT_EQ(MmfSetMraBufferElement(mra, index++, record, record->data, step.value * 2), 0);
    }
    *out = mra;
    const int result = script.result;
    script.steps.clear();
    return result;
}

class ScriptedWriter : public Writer {
  protected:
    void SetUp() override {
        Writer::SetUp();
        table = table_of<mmf_output_interface>(reader, "MediaOutput");
        table.next_buffer = scripted_next;
        for (kel_channel* channel : {audio, video}) EXPECT_EQ(inputs.connect_output(channel, &table), 0);
        // The pool that the graph made for the channel is seen in the first buffer that comes.
        script = {};
        kel_mmf_pool_attributes attributes{};
        attributes.buffer_count = attributes.buffer_size = 8;
        ASSERT_EQ(kel_allocator.allocate_memory_pool(&script.pool, audio, &attributes), 0);
        ASSERT_EQ(MmfAllocateMraPool(&script.containers, audio, 4, audio), 0);
        MmStart(graph);
        MmResume(graph);
    }
    void TearDown() override {
        MmStop(graph);
        inputs.release_input(audio);
        EXPECT_EQ(script.pool->buffer_pool->in_use, 0);
        kel_allocator.free_memory_pool(script.pool);
        Writer::TearDown();
    }
    mmf_output_interface table;
};

TEST_F(ScriptedWriter, TakesContainersApart) {
    script.steps = {{15, 1000000, 0}, {0, 1024, 0}, {0, 1024, 0}, {3, 9, 9},   {0, 1024, 0},
                    {11, 5, 2},       {0, 1, 0},    {35, 7, 8},   {14, 99, 0}, {77, 1, 1}};
    for (uint64_t pts : {1000000u, 1021333u, 1042666u}) {
        ASSERT_EQ(read(audio), 0);
        EXPECT_EQ(slice.pts, pts);
        EXPECT_EQ(slice.spec.audio.nsamples, 1024u);
    }
    EXPECT_EQ(script.pool->buffer_pool->in_use, 4);
    ASSERT_EQ(read(audio), 0);
    EXPECT_EQ(slice.pts, 0x200000005u);
    EXPECT_EQ(slice.spec.audio.nsamples, 1u);
    EXPECT_EQ(script.calls, 1);
    EXPECT_EQ(seeker.seek(writer, 2, 0x300000000), 0);
    script.steps = {{0, 480, 0}, {0, 1, 0}};  // the container before still says 99
    ASSERT_EQ(read(audio), 0);
    EXPECT_EQ(slice.pts, 99u);
    EXPECT_EQ(script.pool->buffer_pool->in_use, 2);  // the container before is gone
    EXPECT_EQ(seeker.seek(writer, 2, 0x300000000), 0);
    ASSERT_EQ(read(audio), 0);
    EXPECT_EQ(slice.pts, 0x300000000u);
    script.result = MM_STATUS_END_OF_STREAM;
    for (int i = 0; i < 3; ++i) {
        slice.buffer = script.pool->buffers[0].buffer;
        EXPECT_EQ(read(audio), 79);
        EXPECT_EQ(slice.buffer, nullptr);
    }
    EXPECT_EQ(script.calls, 3);
    EXPECT_EQ(script.pool->buffer_pool->in_use, 0);
}

TEST_F(ScriptedWriter, ChangesItsStatus) {
    auto play = [&] { return control.start(writer), control.resume(writer); };
    EXPECT_EQ(status(), 256);
    control.pause(writer);
    EXPECT_EQ(status(), 16);  // neither playing nor paused: pending
    slice.buffer = script.pool->buffers[0].buffer;
    EXPECT_EQ(read(audio), 0);
    EXPECT_EQ(slice.buffer, nullptr);
    EXPECT_EQ(status(), 64);
    EXPECT_EQ(read(audio), 11);
    EXPECT_EQ(script.calls, 0);
    control.resume(writer);
    script.steps = {{0, 1, 0}};
    EXPECT_EQ(read(audio), 0);
    EXPECT_NE(slice.buffer, nullptr);

    const struct { int upstream, read_again, stop; } ends[] = {{4, 79, 0}, {1, 79, 4041}, {8, 0, 0}};
    for (const auto& end : ends) {
        play();
        script.result = end.upstream;
        EXPECT_EQ(read(audio), 79);
        EXPECT_EQ(read(audio), end.read_again) << end.upstream;
        EXPECT_EQ(slice.buffer, nullptr);
        EXPECT_EQ(read(audio), end.upstream == 8 ? 11 : 79);
        EXPECT_EQ(control.stop(writer), end.stop);
        EXPECT_EQ(status(), 16);
        EXPECT_EQ(read(audio), 11);
    }
    // What an upstream gives with its last status is handed out first.
    play();
    script = {{{0, 1, 0}}, MM_STATUS_END_OF_STREAM, script.containers, script.pool, 0};
    EXPECT_EQ(read(audio), 0);
    EXPECT_EQ(read(audio), 79);
    for (auto step : {control.start, control.stop, control.pause, control.resume})
        EXPECT_EQ(step(nullptr), EINVAL);
}

TEST_F(ScriptedWriter, ReleasesItsContainerWithTheChannel) {
    script.steps = {{0, 1, 0}, {0, 1, 0}};
    EXPECT_EQ(read(audio), 0);
    LogCapture log;
    EXPECT_EQ(inputs.release_input(audio), 0);
    EXPECT_TRUE(log.has(6, "kel_writer: ReleaseInputChannel: MmfReleaseMra"));
    EXPECT_EQ(script.pool->buffer_pool->in_use, 0);
    EXPECT_EQ(inputs.acquire_input(audio), 0);
}

}  // namespace
