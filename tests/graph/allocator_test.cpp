// The allocator: pixel formats, sizes and counts of pools, reference counts, and what is left after failures.
#include "graph/media_fixture.hpp"

namespace {

using namespace kel_test;

uint32_t packed(const char* fourcc) {
    uint32_t result = 0;
    memcpy(&result, fourcc, sizeof result);
    return result;
}

TEST(PixelFormats, Translate) {
    const struct {
        const char* fourcc;
        int32_t bits_per_pixel;
        uint32_t codes[4];  // by variant, 3 being one too many
    } rows[] = {
        {"RGB2", 16, {0x1310, 0x1110, 0x1210, 0}},
        {"RGB2", 24, {0x1018, 0x1018, 0x1018, 0x1018}},
        {"RGB2", 32, {0x1018, 0x1018, 0x1018, 0x1018}},
        {"RGB2", 15, {}},
        {"RGBA", 32, {0x1420, 0x1420, 0x1420, 0x1420}},
        {"RGBA", 16, {0x1710, 0x1510, 0x1610, 0}},
        {"RGBA", 24, {}},
        {"ABGR", 32, {}},
        {"UYVY", 1, {0x1002310, 0x1002110, 0x1002210, 0}},
        {"YUY2", 2, {0x2002310, 0x2002110, 0x2002210, 0}},
        {"V422", 3, {0x4002310, 0x4002110, 0x4002210, 0}},
        {"YVU9", 4, {0x1002088, 0x1002088, 0x1002088, 0x1002088}},
        {"YV12", 5, {0x2002088, 0x2002088, 0x2002088, 0x2002088}},
        {"I420", 6, {0x3002088, 0x3002088, 0x3002088, 0x3002088}},
        {"NV12", 0, {0x500200c, 0x500200c, 0x500200c, 0x500200c}},
        {"21VN", 0, {0x500200c, 0x500200c, 0x500200c, 0x500200c}},
    };
    LogCapture log;
    for (const auto& row : rows)
        for (uint32_t variant = 0; variant < 4; ++variant)
            EXPECT_EQ(kel_fourcc_to_mmf_format(packed(row.fourcc), row.bits_per_pixel, variant),
                      row.codes[variant])
                << row.fourcc << " " << row.bits_per_pixel << " " << variant;
    const std::pair<uint32_t, int32_t> screens[] = {
        {0x1310, 6},     {0x1420, 8},     {0x1002088, 10}, {0x3002088, 11}, {0x500200c, 12},
        {0x2002088, 13}, {0x1002310, 14}, {0x2002310, 15}, {0x3002310, 16}, {0x4002310, 17}};
    for (auto [code, format] : screens) EXPECT_EQ(kel_mmf_to_screen_format(code), format);
    EXPECT_EQ(kel_mmf_to_screen_format(0x1018), 0);
    EXPECT_EQ(log.messages(),
              (std::vector<LogMessage>{{3, "MMF colour format of 0x1018 not mapped to Screen format"}}));
}

class Allocator : public MediaTest {
  protected:
    Allocator() {
        MmSetResource(reader, "KelContext", context);
        for (int i = 0; i < 2; ++i) reader->outputs[i].connection = reinterpret_cast<mmf_connection*>(this);
        audio.format.audio = {2, 16, 48000, 0};
        audio.format.buffer_size = 4096;
        video.format.fourcc = packed("NV12");
        video.format.video = {64, 48, 12, 25};
    }
    ~Allocator() override {
        for (int i = 0; i < 2; ++i) reader->outputs[i].connection = nullptr;
        MmDestroyFilter(reader);
    }
    int make(kel_channel& channel, int32_t size = 100, int32_t count = 2) {
        kel_mmf_pool_attributes attributes{};
        attributes.buffer_size = size;
        attributes.buffer_count = count;
        return kel_allocator.allocate_memory_pool(&pool, &channel, &attributes);
    }

    kel_filter* reader = kel_create_reader_filter(nullptr);
    kel_channel& audio = reader->outputs[0];
    kel_channel& video = reader->outputs[1];
    kel_mmf_pool* pool = nullptr;
};

TEST_F(Allocator, RefusesWhatItCannotMake) {
    kel_mmf_pool_attributes good{};
    good.buffer_size = good.buffer_count = 1;
    pool = reinterpret_cast<kel_mmf_pool*>(this);
    EXPECT_EQ(kel_allocator.allocate_memory_pool(nullptr, &audio, &good), 22);
    EXPECT_EQ(kel_allocator.allocate_memory_pool(&pool, &audio, nullptr), 22);
    EXPECT_EQ(make(audio, 0, 1), 37);
    EXPECT_EQ(make(audio, 1, 0), 37);
    EXPECT_EQ(make(audio, -5, -5), 37);
    auto expect_unsupported = [&](uint32_t kel_mmf_pool_attributes::*field, uint32_t value) {
        kel_mmf_pool_attributes attributes = good;
        attributes.*field = value;
        EXPECT_EQ(kel_allocator.allocate_memory_pool(&pool, &audio, &attributes), 48) << value;
    };
    for (uint32_t flag : {0x10u, 0x1000u, 0x20000u, 0x40000u})
        expect_unsupported(&kel_mmf_pool_attributes::flags, flag);
    for (auto word : {&kel_mmf_pool_attributes::word_14, &kel_mmf_pool_attributes::word_18,
                      &kel_mmf_pool_attributes::word_1c})
        expect_unsupported(word, 1);
    EXPECT_EQ(pool, reinterpret_cast<kel_mmf_pool*>(this));  // untouched so far

    LogCapture log;
    audio.format.media_type = 8;
    EXPECT_EQ(make(audio), 22);
    EXPECT_TRUE(log.has(2, "kel_allocator: AllocateMemoryPool() for unhandled media type 8"));
    audio.format.media_type = MM_MEDIA_AUDIO;
    audio.format.audio.bits_per_sample = 24;
    EXPECT_EQ(make(audio), 22);
    EXPECT_TRUE(log.has(2, "kel_allocator: AllocateMemoryPool() for unhandled sample depth 24"));
    EXPECT_EQ(pool, nullptr);
    audio.format.audio = {0, 16, 48000, 0};
    EXPECT_EQ(make(audio), 22);
    audio.connection = nullptr;
    EXPECT_EQ(make(audio), 22);
    log.clear();
    video.format.fourcc = packed("MJPG");
    EXPECT_EQ(make(video), 12);
    EXPECT_EQ(log.messages().back(), (LogMessage{6, "Translating FOURCC 'MJPG'"}));
    video.format.fourcc = packed("RGB2");
    video.format.video.bits_per_pixel = 24;
    EXPECT_EQ(make(video), 12);
    EXPECT_TRUE(log.has(7, "kel_allocator: Screen format for FOURCC 2BGR = 0x00000000"));
}

TEST_F(Allocator, MakesAudioPools) {
    const struct {
        kel_audio_format format;
        int32_t bits, bytes, count, minimum;
        uint32_t frames;
        int32_t made;
    } rows[] = {{{44100, 2, KEL_AUDIO_TYPE_S16LE}, 16, 96000, 2, 0, 24000, 2},
                {{44100, 2, KEL_AUDIO_TYPE_S16LE}, 16, 96001, 2, 5, 24001, 5},
                {{8000, 1, KEL_AUDIO_TYPE_U8}, 8, 77, 9, 5, 77, 9},
                {{8000, 6, KEL_AUDIO_TYPE_S24_8LE}, 32, 100, 1, 1, 5, 1}};
    for (const auto& row : rows) {
        audio.format.audio = {row.format.channels, row.bits, row.format.rate, 0};
        audio.format.buffer_size = row.bytes;
        set_integer(reader, "MinAudioBuffers", row.minimum);
        set_integer(reader, "MinVideoBuffers", 33);
        LogCapture log;
        ASSERT_EQ(make(audio, row.bytes, row.count), 0);
        EXPECT_TRUE(log.has(6, "kel_allocator: AllocateMemoryPool() for " + std::string(reader->name) +
                                   " -> RawAudioOut " + std::to_string(row.count) + " x " +
                                   std::to_string(row.bytes) +
                                   " bytes (min: a: " + std::to_string(row.minimum) + ", v: 33)"));
        const kel_buffer_format& format = pool->buffer_pool->format;
        EXPECT_FALSE(kel_audio_formats_differ(&format.audio, &row.format));
        EXPECT_EQ(format.nsamples, row.frames);
        EXPECT_EQ(pool->buffer_size, row.frames * static_cast<uint32_t>(row.format.channels * row.bits / 8));
        EXPECT_EQ(pool->buffers[0].paddr, 0u);

        const auto list = kel_allocator.get_memory_pool_buffers;
        int count = 0, size = 0;
        kel_mmf_buffer* records[10] = {};
        EXPECT_EQ(list(pool, &count, &size, nullptr), 0);
        EXPECT_EQ(list(pool, &count, &size, records), 0);
        EXPECT_EQ(count, row.made);
        EXPECT_EQ(static_cast<uint32_t>(size), pool->buffer_size);
        for (int i = 0; i < count; ++i) EXPECT_EQ(records[i], &pool->buffers[i]);
        EXPECT_EQ(records[count], nullptr);
        EXPECT_EQ(list(nullptr, &count, &size, nullptr), 22);
        EXPECT_EQ(list(pool, nullptr, &size, nullptr), 22);
        EXPECT_EQ(list(pool, &count, nullptr, nullptr), 22);
        EXPECT_EQ(kel_allocator.get_memory_pool_attributes(pool), &pool->attributes);
        EXPECT_EQ(pool->attributes.buffer_count, row.count);
        EXPECT_EQ(kel_allocator.free_memory_pool(pool), 0);
        EXPECT_TRUE(log.has_starting(7, "kel_allocator: FreeMemoryPool() mpool = "));
        EXPECT_TRUE(log.has(7, "kel_allocator: FreeMemoryPool() done"));
    }
    EXPECT_EQ(kel_allocator.free_memory_pool(nullptr), 0);
    EXPECT_EQ(kel_allocator.not_supported(), 48);
}

TEST_F(Allocator, CountsReferences) {
    set_integer(reader, "MinVideoBuffers", 3);
    LogCapture log;
    ASSERT_EQ(make(video), 0);
    EXPECT_TRUE(log.has(7, "kel_allocator: Screen format for FOURCC 21VN = 0x0000000c"));
    const kel_buffer_pool& library = *pool->buffer_pool;
    EXPECT_EQ(library.format.video.usage, 0x10E);
    EXPECT_EQ(library.count, 3);
    const kel_allocator_interface& a = kel_allocator;
    kel_mmf_buffer* records[3];
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(a.acquire_buffer(pool, &records[i], i % 2), 0);
        const kel_buffer& buffer = library.buffers[i];
        EXPECT_EQ(records[i], &pool->buffers[i]);
        EXPECT_EQ(std::tuple(records[i]->buffer, records[i]->data, records[i]->size, records[i]->paddr),
                  std::tuple(&buffer, buffer.ptr, buffer.size, buffer.paddr));
        EXPECT_EQ(records[i]->refcount, 1u);
    }
    kel_mmf_buffer* none = nullptr;
    EXPECT_EQ(a.acquire_buffer(pool, &none, 1), 12);

    kel_mmf_buffer* record = records[1];
    const std::tuple<int (*)(kel_mmf_buffer*), int, uint32_t, int> steps[] = {
        {a.decrement_ref_count, 22, 1, 3}, {a.increment_ref_count, 0, 2, 3},
        {a.release_buffer, 11, 2, 3},      {a.increment_ref_count, 0, 3, 3},
        {a.decrement_ref_count, 0, 2, 3},  {a.decrement_ref_count, 0, 0, 2},
        {a.increment_ref_count, 22, 0, 2}, {a.decrement_ref_count, 22, 0, 2},
        {a.release_buffer, 11, 0, 2}};
    for (int i = 0; auto [step, result, refcount, in_use] : steps) {
        EXPECT_EQ(step(record), result) << "step " << i++;
        EXPECT_EQ(record->refcount, refcount);
        EXPECT_EQ(library.in_use, in_use);
    }
    EXPECT_EQ(log.count(2, "kel_allocator: IncrementRefCount of buffer with ref count = 0."), 1);
    EXPECT_EQ(log.count(2, "kel_allocator: DecrementRefCount of buffer with ref count <= 1."), 2);
    for (auto [call, name] : {std::pair{a.increment_ref_count, "IncrementRefCount"},
                              {a.decrement_ref_count, "DecrementRefCount"},
                              {a.release_buffer, "ReleaseBuffer"}}) {
        EXPECT_EQ(call(nullptr), 22);
        EXPECT_TRUE(log.has(2, "kel_allocator: " + std::string(name) + " unable to lock mutex."));
    }
    EXPECT_EQ(a.release_buffer(records[0]), 0);
    EXPECT_EQ(a.release_buffer(records[2]), 0);
    EXPECT_EQ(library.in_use, 0);
    a.free_memory_pool(pool);
}

int waits_left;

kel_buffer* impatient_wait(kel_buffer_pool* pool, int32_t timeout_ms) {
    EXPECT_EQ(timeout_ms, 1000);
    return --waits_left == 0 ? kel_acquire_buffer(pool) : nullptr;
}

TEST_F(Allocator, WarnsEveryTenthWait) {
    ASSERT_EQ(make(audio), 0);
    const ImportHook waiting = hook(impatient_wait, "kel_acquire_buffer_wait");
    ASSERT_TRUE(waiting.bound());
    for (auto [waits, warnings] : {std::pair{9, 0}, {10, 1}, {25, 2}}) {
        LogCapture log;
        waits_left = waits;
        kel_mmf_buffer* record = nullptr;
        EXPECT_EQ(kel_allocator.acquire_buffer(pool, &record, 0), 0);
        EXPECT_EQ(log.count(3, "kel_allocator: AcquireBuffer() Unable to acquire a buffer for 10 seconds"),
                  warnings);
        kel_allocator.release_buffer(record);
    }
    kel_allocator.free_memory_pool(pool);
}

TEST_F(Allocator, FailsWhole) {
    for (kel_channel* channel : {&audio, &video})
        sweep_faults(screen_fault_points(), [&](const Fault* fault, LogCapture& log) {
            pool = reinterpret_cast<kel_mmf_pool*>(this);
            const int result = make(*channel);
            // The library's pool says what it could not do; two of its steps are not fatal.
            EXPECT_EQ(result, !fault || log.messages(3).size() == 1 ? 0 : 12);
            EXPECT_EQ(pool == nullptr, result != 0);
            kel_allocator.free_memory_pool(pool);
        });
}

}  // namespace
