// The media framework itself: filters, containers, connections and graphs, with filters that do what a test says.
#include <gtest/gtest.h>
#include <mm/mmf.h>

#include <cerrno>
#include <map>
#include <thread>
#include <vector>

namespace {

// What the fake filters answer, by call, and what was asked of them.
std::map<std::string, int> answers;
std::vector<std::string> calls;
int pools, released;
mmf_event_poster poster;
mmf_mra_pool* containers;
const kel_allocator_interface* allocator;
kel_mmf_pool* memory_pool;

int answer(const char* call, int usual = 0) {
    calls.emplace_back(call);
    const auto found = answers.find(call);
    return found == answers.end() ? usual : found->second;
}

int answer_flagged(kel_channel* channel, uint32_t flag, const char* call) {
    channel->flags |= flag;
    return answer(call);
}

kel_filter* create() {
    if (answer("create") != 0) return nullptr;
    static char name[] = "fake";
    auto* filter = new kel_filter{2, name, new kel_channel[1]{}, new kel_channel[1]{}, nullptr, {}};
    for (kel_channel* channel : {filter->inputs, filter->outputs}) channel->filter = filter;
    return filter;
}

int destroy(kel_filter* filter) {
    delete[] filter->inputs;
    delete[] filter->outputs;
    delete filter;
    return 0;
}

const mmf_output_interface output_table = {
    [](kel_filter* filter, int* cursor) { return (*cursor)++ == 0 ? filter->outputs : nullptr; },
    [](kel_channel*) { return answer("acquire_output"); },
    [](kel_channel*) { return answer("release_output"); },
    [](kel_channel*, kel_channel_format*, int* cursor) { return (*cursor)++ < 3 ? 1 : 0; },
    [](kel_channel*, const kel_channel_format*, const kel_channel_format*) { return answer("verify"); },
    [](kel_channel* c, const kel_channel_format*) {
        return answer_flagged(c, MM_CHANNEL_OUTPUT_SET, "set_output");
    },
    [](kel_channel*, mmf_mra**) { return 0; },
    [](kel_channel* c, const kel_allocator_interface* given, kel_mmf_pool* pool) {
        allocator = given;
        memory_pool = pool;
        EXPECT_EQ(MmfAllocateMraPool(&containers, c, 2, c), 0);
        return answer("output_pool");
    },
};
const mmf_input_interface input_table = {
    [](kel_filter* filter, int* cursor) { return (*cursor)++ == 0 ? filter->inputs : nullptr; },
    [](kel_channel*) { return answer("acquire_input"); },
    [](kel_channel*) { return answer("release_input"); },
    [](kel_channel*, kel_channel_format*, int, int*) { return answer("accept", MM_FORMAT_ACCEPTED); },
    [](kel_channel* c, const kel_channel_format*) {
        return answer_flagged(c, MM_CHANNEL_INPUT_SET, "set_input");
    },
    [](kel_channel*, const mmf_output_interface*) { return answer("connect"); },
    [](kel_channel*, const kel_allocator_interface*, kel_mmf_pool*) { return answer("input_pool"); },
};
const kel_allocator_interface allocator_table = {
    [](kel_mmf_pool** pool, kel_channel* channel, const kel_mmf_pool_attributes*) {
        EXPECT_NE(channel->connection, nullptr);
        const int result = answer("pool");
        if (result == 0) *pool = new kel_mmf_pool{}, ++pools;
        return result;
    },
    [](kel_mmf_pool* pool) {
        delete pool;
        --pools;
        return answer("free_pool");
    },
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    [](kel_mmf_buffer*) { return ++released, 0; },
    nullptr,
    nullptr};
const mmf_filter_interface filter_table = {create, destroy};
const mmf_control_interface control_table = {
    [](kel_filter*) { return answer("start"); }, [](kel_filter*) { return answer("stop"); },
    [](kel_filter*) { return answer("pause"); }, [](kel_filter*) { return answer("resume"); },
    [](kel_filter*) { return answer("status"); }};
const mmf_event_interface event_table = {
    [](kel_filter*, int* type, int* cursor) { return (*type = MM_EV_ERR, (*cursor)++ == 0) ? 0 : -1; },
    [](kel_filter*, mmf_event_poster own) { return poster = own, 0; },
    [](kel_filter*, int) { return answer("enable"); }};

const AOInterface_t whole[] = {{"Name", 1, "fake"},
                               {"MediaFilter", 110, &filter_table},
                               {"MediaOutput", 101, &output_table},
                               {"MediaInput", 101, &input_table},
                               {"MediaMemoryAllocator", 121, &allocator_table},
                               {"MediaControl", 101, &control_table},
                               {"MediaEventProducer", 100, &event_table},
                               {nullptr, 0, nullptr}};
const AOInterface_t without_allocator[] = {{"Name", 1, "plain"},
                                           {"MediaFilter", 110, &filter_table},
                                           {"MediaOutput", 101, &output_table},
                                           {"MediaInput", 101, &input_table},
                                           {nullptr, 0, nullptr}};
const AOInterface_t bare[] = {{"Name", 1, "bare"}, {nullptr, 0, nullptr}};

class Framework : public ::testing::Test {
  protected:
    Framework() {
        answers = {};
        calls = {};
        released = 0;
        static const AOHandle_t* const registered = AoAddStatic(whole);
        handle = registered;
        graph = MmCreateGraph();
        source = MmCreateFilter(graph, handle);
        sink = MmCreateFilter(graph, handle);
    }
    ~Framework() override {
        EXPECT_EQ(MmDestroyGraph(graph), 0);
        EXPECT_EQ(pools, 0);
    }
    int join() { return MmConnect(graph, source->outputs, sink->inputs); }

    const AOHandle_t* handle;
    mm_graph* graph;
    kel_filter *source, *sink;
};

TEST_F(Framework, ChecksItsArguments) {
    kel_channel stranger{};
    mm_graph* other = MmCreateGraph();
    kel_filter* alone = MmCreateFilter(nullptr, handle);
    static const AOHandle_t* const no_maker = AoAddStatic(bare);
    EXPECT_EQ(MmCreateFilter(graph, no_maker), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(MmCreateFilter(graph, nullptr), nullptr);
    answers["create"] = 1;
    EXPECT_EQ(MmCreateFilter(graph, handle), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    const std::pair<int, int> rows[] = {
        {MmConnect(nullptr, source->outputs, sink->inputs), EINVAL},
        {MmConnect(graph, nullptr, sink->inputs), EINVAL},
        {MmConnect(graph, &stranger, sink->inputs), EINVAL},
        {MmConnect(graph, source->outputs, &stranger), EINVAL},
        {MmConnect(other, source->outputs, sink->inputs), EINVAL},
        {MmDestroyFilter(source), EINVAL},  // the graph's
        {MmDestroyFilter(nullptr), EINVAL},
        {MmDestroyGraph(nullptr), EINVAL},
        {MmStart(nullptr), EINVAL},
        {MmSeek(nullptr, 0), EINVAL},
        {MmGetStatus(nullptr), MM_STATUS_STOPPED},
        {MmProcess(nullptr), MM_STATUS_ERROR},
        {MmProcess(other), MM_STATUS_ERROR},  // nothing to process
        {MmSetResource(source, "Path", "x"), EINVAL},
        {MmFindResource(source, "Path") != nullptr, 0},
        {MmDestroyFilter(alone), 0},
        {MmDestroyFilter(alone), EINVAL},
        {MmDestroyGraph(other), 0},
    };
    for (const auto& row : rows) EXPECT_EQ(row.first, row.second) << &row - rows;
    EXPECT_EQ(MmGetFilterInterface(source, "MediaInput"), &input_table);
    EXPECT_EQ(MmGetFilterInterface(source, "Nothing"), nullptr);
    EXPECT_EQ(errno, ESRCH);
    EXPECT_EQ(MmGetFilterInterface(alone, "MediaInput"), nullptr);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(Framework, ConnectsWholeOrNotAtAll) {
    const std::tuple<const char*, int, int> failures[] = {
        {"acquire_output", 1, EBUSY}, {"acquire_input", 1, EBUSY},
        {"accept", 0, ENOTSUP},       {"verify", 100, ENOTSUP},
        {"set_output", 1, ENOTSUP},   {"set_input", 1, ENOTSUP},
        {"connect", 1, EINVAL},       {"pool", 12, 12},
        {"output_pool", 5, 5},        {"input_pool", 6, 6}};
    for (const auto& [step, failure, result] : failures) {
        answers = {{step, failure}};
        calls.clear();
        EXPECT_EQ(join(), result);
        EXPECT_EQ(calls.back(), calls.size() == 1 ? step : "release_output");
        EXPECT_EQ(pools, 0);
        for (const kel_channel* channel : {source->outputs, sink->inputs})
            EXPECT_TRUE(channel->flags == 0 && !channel->connection && !channel->peer) << step;
    }
    answers.clear();
    calls.clear();
    EXPECT_EQ(join(), 0);
    const std::vector<std::string> order = {"acquire_output", "acquire_input", "accept",  "verify",
                                            "set_output",     "set_input",     "connect", "pool",
                                            "output_pool",    "input_pool"};
    EXPECT_EQ(calls, order);
    EXPECT_TRUE(source->outputs->peer == sink->inputs && sink->inputs->peer == source->outputs);
    EXPECT_EQ(join(), EBUSY);
}

TEST_F(Framework, HandsContainersOutAndBack) {
    ASSERT_EQ(join(), 0);
    mmf_mra *first = nullptr, *second = nullptr, *third = nullptr;
    ASSERT_EQ(MmfAcquireMra(containers, &first, 1), 0);
    ASSERT_EQ(MmfAcquireMra(containers, &second, 0), 0);
    kel_mmf_buffer record{};
    int type = 0;
    uint32_t value = 0, size = 0;
    uint16_t value16 = 0;
    kel_mmf_buffer* got = nullptr;
    void* data = nullptr;
    const std::pair<int, int> rows[] = {
        {MmfAcquireMra(containers, &third, 1), EAGAIN},
        {MmfAcquireMra(nullptr, &third, 1), EINVAL},
        {MmfAcquireMra(containers, nullptr, 1), EINVAL},
        {MmfSetMraPropertyElement(first, 1, 15, 1, 2), EINVAL},  // not the next index
        {MmfSetMraPropertyElement(first, 0, 15, 1, 2), 0},
        {MmfSetMraPropertyElement(nullptr, 1, 15, 1, 2), EINVAL},
        {MmfSetMraBufferElement(first, 1, nullptr, nullptr, 0), EINVAL},
        {MmfSetMraBufferElement(first, 1, &record, &record, 9), 0},
        {MmfGetMraElementType(first, 0, &type), 0},
        {MmfGetMraElementType(first, 2, &type), ENOENT},
        {MmfGetMraElementType(first, -1, &type), EINVAL},
        {MmfGetMraElementType(first, 0, nullptr), EINVAL},
        {MmfGetMraPropertyElement(first, 1, &type, &value, &value16), EINVAL},  // a buffer
        {MmfGetMraBufferElement(first, 0, &got, &data, &size), EINVAL},         // a property
        {MmfGetMraPropertyElement(first, 0, &type, &value, &value16), 0},
        {MmfGetMraBufferElement(first, 1, &got, &data, &size), 0},
        {MmfReleaseMra(reinterpret_cast<mmf_mra*>(&record)), EINVAL},
    };
    for (const auto& row : rows) EXPECT_EQ(row.first, row.second) << &row - rows;
    EXPECT_TRUE(type == 15 && value == 1 && value16 == 2 && got == &record && data == &record && size == 9);

    std::thread late([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(MmfReleaseMra(first), 0);
    });
    EXPECT_EQ(MmfAcquireMra(containers, &third, 0), 0);
    late.join();
    EXPECT_EQ(released, 1);
    EXPECT_EQ(MmfGetMraElementType(third, 0, &type), ENOENT);  // it comes empty
    EXPECT_EQ(MmfReleaseMra(second), 0);
    EXPECT_EQ(MmfReleaseMra(second), EINVAL);
    // One that is out when the connection ends is freed with its release; its buffer went with its pool.
    EXPECT_EQ(MmfSetMraBufferElement(third, 0, &record, &record, 9), 0);
    MmDestroyGraph(graph);
    EXPECT_EQ(MmfReleaseMra(third), 0);
    EXPECT_EQ(MmfReleaseMra(third), EINVAL);
    EXPECT_EQ(released, 1);
    graph = MmCreateGraph();
    kel_channel channel{};
    for (int count : {0, -1, 1 << 20})
        EXPECT_EQ(MmfAllocateMraPool(&containers, &channel, count, &channel), EINVAL);
}

TEST_F(Framework, HasPlainMemoryWhereNeitherEndHasAnAllocator) {
    static const AOHandle_t* const registered = AoAddStatic(without_allocator);
    kel_filter* from = MmCreateFilter(graph, registered);
    kel_filter* into = MmCreateFilter(graph, registered);
    ASSERT_EQ(MmConnect(graph, from->outputs, into->inputs), 0);
    const kel_allocator_interface& memory = *allocator;
    kel_mmf_pool* pool = memory_pool;
    int count = 0, size = 0;
    kel_mmf_buffer* all[4];
    EXPECT_EQ(memory.get_memory_pool_buffers(pool, &count, &size, nullptr), 0);
    ASSERT_EQ(count, 4);
    EXPECT_EQ(memory.get_memory_pool_buffers(pool, &count, &size, all), 0);
    EXPECT_EQ(size, 1);
    kel_mmf_buffer* held[4];
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(memory.acquire_buffer(pool, &held[i], 0), 0);
        EXPECT_EQ(held[i], all[i]);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(held[i]->data) % 64, 0u);
        *static_cast<char*>(held[i]->data) = 1;
    }
    kel_mmf_buffer* next = nullptr;
    const std::pair<int, int> rows[] = {
        {memory.acquire_buffer(pool, &next, 1), ENOMEM},
        {memory.increment_ref_count(held[2]), 0},
        {memory.release_buffer(held[2]), EAGAIN},  // somebody else's still
        {memory.decrement_ref_count(held[2]), 0},
        {memory.decrement_ref_count(held[2]), EINVAL},
        {memory.increment_ref_count(held[2]), EINVAL},
        {memory.acquire_buffer(pool, &next, 1), 0},
        {next == held[2], 1},
    };
    for (const auto& row : rows) EXPECT_EQ(row.first, row.second) << &row - rows;
    std::thread late([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(memory.release_buffer(held[1]), 0);
    });
    EXPECT_EQ(memory.acquire_buffer(pool, &next, 0), 0);
    EXPECT_EQ(next, held[1]);
    late.join();

    // Rows of pictures begin at whole cache lines, as far as the format leaves their stride open.
    kel_channel channel{};
    channel.format.media_type = MM_MEDIA_VIDEO;
    channel.format.fourcc = 0x3231564e;  // NV12
    channel.format.video.width = 70;
    channel.format.video.height = 10;
    const std::tuple<uint32_t, int, int, int, int> sizes[] = {
        {8, 1050, 1, 0, 128 * 15}, {0, 1050, 1, 0, 1050},      {8, 0, 1, EINVAL, 0},
        {8, 1050, 0, EINVAL, 0},   {8, 1 << 30, 2, ENOMEM, 0}, {8, 1050, 1 << 30, ENOMEM, 0}};
    for (auto [flags, bytes, buffers, result, got] : sizes) {
        channel.format.flags = flags;
        kel_mmf_pool_attributes attributes{};
        attributes.buffer_size = bytes;
        attributes.buffer_count = buffers;
        kel_mmf_pool* made = nullptr;
        EXPECT_EQ(memory.allocate_memory_pool(&made, &channel, &attributes), result);
        if (!made) continue;
        EXPECT_EQ(made->buffers[0].size, static_cast<uint32_t>(got));
        auto* kept = static_cast<kel_mmf_pool_attributes*>(memory.get_memory_pool_attributes(made));
        EXPECT_EQ(kept->buffer_size, bytes);
        EXPECT_EQ(memory.free_memory_pool(made), 0);
    }
    EXPECT_TRUE(memory.not_supported() && !memory.free_memory_pool(nullptr) &&
                !memory.get_memory_pool_attributes(nullptr));
}

TEST_F(Framework, ControlsEveryFilter) {
    const std::pair<int (*)(mm_graph*), const char*> controls[] = {
        {MmStart, "start"}, {MmStop, "stop"}, {MmPause, "pause"}, {MmResume, "resume"}};
    for (const auto& [control, name] : controls) {
        calls.clear();
        answers[name] = 5;
        EXPECT_EQ(control(graph), 5);
        EXPECT_EQ(calls, (std::vector<std::string>{name, name}));
    }
    for (int status :
         {MM_STATUS_PLAYING, MM_STATUS_PAUSED, MM_STATUS_END_OF_STREAM, MM_STATUS_ERROR, MM_STATUS_STOPPED}) {
        answers["status"] = status;
        EXPECT_EQ(MmGetStatus(graph), status);
    }
}

TEST_F(Framework, KeepsEvents) {
    kel_filter* from = nullptr;
    int type = 0;
    char text[6];
    EXPECT_EQ(MmNextEvent(graph, &from, &type, text, sizeof text), ENOENT);
    EXPECT_EQ(MmNextEvent(graph, nullptr, &type, text, sizeof text), EINVAL);
    for (int i = 0; i < 70; ++i) poster(sink, MM_EV_ERR, std::to_string(1000000 + i).c_str());
    poster(source, MM_EV_ERR, nullptr);
    for (int i = 7; i < 70; ++i) {  // the newest 64
        ASSERT_EQ(MmNextEvent(graph, &from, &type, text, sizeof text), 0);
        EXPECT_TRUE(from == sink && type == MM_EV_ERR);
        EXPECT_STREQ(text, "10000");
    }
    EXPECT_EQ(MmNextEvent(graph, &from, &type, nullptr, 0), 0);
    EXPECT_EQ(from, source);
    EXPECT_EQ(MmNextEvent(graph, &from, &type, text, sizeof text), ENOENT);
}

}  // namespace
