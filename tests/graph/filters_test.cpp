// Registration, resources, and every callback that needs no media: results, formats and statuses.
#include <functional>

#include "graph/media_fixture.hpp"

namespace {

using namespace kel_test;

// Calls in a row, each with its result.
void run(std::initializer_list<std::pair<int, std::function<int()>>> steps) {
    for (int i = 0; const auto& [result, step] : steps) EXPECT_EQ(step(), result) << "step " << i++;
}

std::string described(const AOInterface_t* list) {
    std::string text = static_cast<const char*>(list->table) + std::string(":");
    for (; list->name; ++list) text += std::string(" ") + list->name + " " + std::to_string(list->version);
    return text;
}

TEST_F(Filters, AreRegisteredOnce) {
    const unsigned lists = AoCountStatic();
    kel_init_mmedia_filters();
    EXPECT_EQ(AoCountStatic(), lists);
    EXPECT_EQ(described(kel_reader_interfaces),
              "kel_reader: Name 1 Version 100 MediaFilter 110 MediaOutput 101 MediaMemoryAllocator 121 "
              "MediaControl 101 MediaSeeker 102 MediaTimeConverter 100 AOResourceAccess 100");
    EXPECT_EQ(described(kel_writer_interfaces),
              "kel_writer: Name 1 Version 100 MediaFilter 110 MediaControl 101 MediaInput 101 "
              "MediaSeeker 102 AOResourceAccess 100 MediaEventProducer 100 MediaMemoryAllocator 121");
    for (auto [make, prefix] : {std::pair{&kel_create_reader_filter, "KEL_READER"},
                                std::pair{&kel_create_writer_filter, "KELWriter"}}) {
        int numbers[2];
        for (int& number : numbers) {
            kel_filter* filter = make(nullptr);
            EXPECT_EQ(filter->tag, 2u);
            EXPECT_TRUE(std::string(filter->name).starts_with(prefix));
            number = atoi(filter->name + strlen(prefix));
            MmDestroyFilter(filter);
        }
        EXPECT_EQ(numbers[1], numbers[0] + 1);
    }
}

// Name, type, and the lowest value, the highest one and the step; of a text the length.
constexpr char reader_resources[] =
    R"(AudioQueue 10000007
VideoQueue 10000007
KelContext 30000007
MinAudioBuffers 30000001 0,64,0
MinVideoBuffers 30000001 0,64,0
AudioSampleRate 30000001 0,2147483647,1
AudioBitDepth 30000001 1,32,1
AudioChannels 30000001 0,10,1
VideoWidth 30000001 -2147483647,2147483647,1
VideoHeight 30000001 -2147483647,2147483647,1
VideoFrameRate 30000001 0,2147483647,1
VideoFormat 30000004 4
VideoColorDepth 30000001 1,32,1
)";
constexpr char writer_resources[] =
    R"(AudioChannelCount 30000001 0,256,1
VideoChannelCount 30000001 0,256,1
KelContext 30000007
MinAudioBuffers 30000001 0,64,0
MinVideoBuffers 30000001 0,64,0
)";

TEST_F(Filters, HaveResources) {
    for (kel_filter* filter : {reader, writer}) {
        const auto& access = table_of<mmf_resource_interface>(filter, "AOResourceAccess");
        std::string table;
        for (const mmf_resource* entry = access.get_resources(filter); entry->name; ++entry) {
            char type[16];
            snprintf(type, sizeof type, "%x", entry->type);
            table += std::string(entry->name) + " " + type;
            const auto* range = static_cast<const int32_t*>(entry->range);
            const int words = !range                                                        ? 0
                              : (entry->type & MM_RESOURCE_KIND_MASK) == MM_RESOURCE_STRING ? 1
                                                                                            : 3;
            for (int i = 0; i < words; ++i) table += (i ? "," : " ") + std::to_string(range[i]);
            table += "\n";
            EXPECT_NE(entry->description, nullptr);
        }
        EXPECT_EQ(table, filter == reader ? reader_resources : writer_resources);
        EXPECT_EQ(access.get_resources(nullptr), nullptr);
        EXPECT_EQ(access.set_resource(nullptr, "KelContext", context), EINVAL);
        EXPECT_EQ(access.set_resource(filter, nullptr, context), EINVAL);
        EXPECT_EQ(set_integer(filter, "kelcontext", 1), 4032);
        filter->tag = 3;
        EXPECT_EQ(access.set_resource(filter, "KelContext", context), 4032);
        EXPECT_EQ(access.get_resources(filter), nullptr);
        filter->tag = 2;
        LogCapture log;
        EXPECT_EQ(MmSetResource(filter, "KelContext", context), 0);
        EXPECT_EQ(*static_cast<kel_context**>(MmFindResource(filter, "KelContext")->value), context);
        EXPECT_EQ(log.has_starting(7, "kel_writer setting AOR_TYPE_POINTER resources KelContext to 0x"),
                  filter == writer);
    }
    for (auto [name, limit] : {std::pair{"AudioQueue", 20u}, std::pair{"VideoQueue", 5u}}) {
        EXPECT_EQ(MmSetResource(reader, name, context), 1);
        EXPECT_EQ(kel_queue_get_limit(queue_of(reader, name)), limit);
    }
}

TEST_F(Filters, IntegersTakeEffect) {
    const auto& audio = reader->outputs[0].format.audio;
    const auto& video = reader->outputs[1].format.video;
    const std::pair<const char*, const int32_t*> rows[] = {{"AudioSampleRate", &audio.rate},
                                                           {"AudioBitDepth", &audio.bits_per_sample},
                                                           {"AudioChannels", &audio.channels},
                                                           {"VideoWidth", &video.width},
                                                           {"VideoHeight", &video.height},
                                                           {"VideoFrameRate", &video.frame_rate},
                                                           {"VideoColorDepth", &video.bits_per_pixel},
                                                           {"MinAudioBuffers", nullptr},
                                                           {"MinVideoBuffers", nullptr}};
    for (int32_t value = -1000; auto [name, word] : rows) {  // the reader takes values beyond the range
        EXPECT_EQ(set_integer(reader, name, ++value), 0);
        EXPECT_EQ(*static_cast<int32_t*>(MmFindResource(reader, name)->value), value) << name;
        EXPECT_EQ(word ? *word : value, value) << name;
    }
    for (auto [text, fourcc] :
         {std::pair{"NV12", 0x4e563132u}, {"Y8", 0x59380000u}, {"", 0u}, {"I420 and more", 0x49343230u}}) {
        EXPECT_EQ(MmSetResource(reader, "VideoFormat", text), 0);
        EXPECT_EQ(reader->outputs[1].format.fourcc, fourcc) << text;
        EXPECT_EQ(static_cast<char*>(MmFindResource(reader, "VideoFormat")->value),
                  std::string(text).substr(0, 4));
    }
    EXPECT_EQ(MmSetResource(reader, "VideoFormat", nullptr), EINVAL);

    const std::tuple<const char*, int32_t, int32_t> clamped[] = {
        {"VideoChannelCount", 1000, 256}, {"VideoChannelCount", -5, 0}, {"VideoChannelCount", 256, 256},
        {"AudioChannelCount", 7, 7},      {"MinAudioBuffers", 65, 64},  {"MinVideoBuffers", -1, 0}};
    for (auto [name, value, stored] : clamped) {
        EXPECT_EQ(set_integer(writer, name, value), 0);
        EXPECT_EQ(*static_cast<int32_t*>(MmFindResource(writer, name)->value), stored) << name;
    }
    EXPECT_EQ(MmSetResource(writer, "MinAudioBuffers", nullptr), EINVAL);
}

TEST_F(Filters, OutputsAnswer) {
    const mmf_output_interface& out = outputs();
    int cursor = 0;
    kel_channel* audio = out.iterate_outputs(reader, &cursor);
    kel_channel* video = out.iterate_outputs(reader, &cursor);
    EXPECT_EQ(out.iterate_outputs(reader, &cursor), nullptr);
    EXPECT_STREQ(audio->name, "RawAudioOut");
    EXPECT_STREQ(video->name, "RawVideoOut");
    for (const kel_channel* channel : {audio, video}) {
        const kel_channel_format& f = channel->format;
        EXPECT_EQ(
            std::tuple(f.fourcc, f.word_40c, f.word_410, f.word_414, f.word_418, f.flags, channel->word_0),
            channel == audio ? std::tuple(0x52415741u, 2u, 2u, 768u, 0x80000u, 1u, 4u)
                             : std::tuple(0u, 2u, 1u, 768u, 0x80000u, 1u, 4u));
    }
    kel_channel_format format = audio->format;
    auto* allocator = &kel_allocator;
    auto* pool = reinterpret_cast<kel_mmf_pool*>(this);  // never looked at
    run({
        {22, [&] { return out.acquire_output(nullptr); }},
        {4015, [&] { return out.release_output(audio); }},
        {22, [&] { return out.set_format(audio, nullptr); }},
        {22, [&] { return out.set_format(nullptr, &format); }},
        {4014, [&] { return out.set_format(audio, &format); }},
        {22, [&] { return out.set_memory_pool(audio, allocator, pool); }},  // no buffer size
        {0, [&] { return out.acquire_output(audio); }},
        {4013, [&] { return out.acquire_output(audio); }},
        {0, [&] { return out.set_format(audio, &format); }},
        {4016, [&] { return out.set_format(audio, &format); }},
        {22, [&] { return out.set_memory_pool(audio, allocator, pool); }},
        {0, [&] { return audio->flags &= ~8u, format.buffer_size = 64, out.set_format(audio, &format); }},
        {22, [&] { return out.set_memory_pool(nullptr, allocator, pool); }},
        {22, [&] { return out.set_memory_pool(audio, nullptr, pool); }},
        {22, [&] { return out.set_memory_pool(audio, allocator, nullptr); }},
        {4017, [&] { return audio->flags &= ~8u, out.set_memory_pool(audio, allocator, pool); }},
        {4014, [&] { return audio->flags = 8, out.set_memory_pool(audio, allocator, pool); }},
        {0, [&] { return audio->flags = 9, out.set_memory_pool(audio, allocator, pool); }},
        {0, [&] { return out.release_output(audio); }},
        {22, [&] { return out.release_output(nullptr); }},
    });
    EXPECT_EQ(table_of<mmf_filter_interface>(reader, "MediaFilter").destroy(nullptr), 22);
}

TEST_F(Filters, OutputsProposeAndVerifyFormats) {
    const mmf_output_interface& out = outputs();
    for (auto [name, value] : {std::pair{"AudioSampleRate", 44100}, std::pair{"AudioBitDepth", 16},
                               std::pair{"AudioChannels", 2}, std::pair{"VideoHeight", 480}})
        set_integer(reader, name, value);
    kel_channel_format format{};
    int cursor = -3;
    EXPECT_EQ(out.iterate_formats(&reader->outputs[0], &format, &cursor), 1);
    EXPECT_EQ(cursor, -2);
    EXPECT_EQ(format.audio.rate, 44100);
    EXPECT_EQ(format.bit_rate, 44100u * 16 * 2);
    EXPECT_EQ(format.buffer_size, 88200);
    cursor = 1;
    EXPECT_EQ(out.iterate_formats(&reader->outputs[0], &format, &cursor), 0);

    cursor = 0;
    reader->outputs[1].format.flags = 0x19;
    for (uint32_t flags : {0x11u, 0x19u, 0x19u}) {
        EXPECT_EQ(out.iterate_formats(&reader->outputs[1], &format, &cursor), 1);
        EXPECT_EQ(format.flags, flags);
        EXPECT_EQ(format.buffer_size, 480 << 12);
    }
    EXPECT_EQ(out.iterate_formats(&reader->outputs[1], &format, &cursor), 0);
    EXPECT_EQ(cursor, 3);

    struct Row {
        uint32_t media_type, capabilities, flags;
        bool has_context;
        int result, messages;
    };
    const Row rows[] = {{4, 12, 1, true, 100, 0}, {4, 12, 9, true, 0, 0},  {4, 4, 9, true, 100, 0},
                        {2, 12, 1, true, 100, 0}, {2, 4, 1, true, 0, 0},   {2, 12, 8, true, 0, 0},
                        {2, 4, 8, false, 0, 1},   {4, 12, 9, false, 0, 1}, {4, 12, 1, false, 100, 0}};
    for (const Row& row : rows) {
        MmSetResource(reader, "KelContext", row.has_context ? context : nullptr);
        kel_channel_format a{}, b{};
        a.capabilities = row.capabilities;
        b.media_type = row.media_type;
        b.flags = row.flags;
        LogCapture log;
        EXPECT_EQ(out.verify_format(&reader->outputs[0], &a, &b), row.result) << &row - rows;
        EXPECT_EQ(log.count(2, "kel_reader: No kel_context set!"), row.messages);
    }
}

TEST_F(Filters, ReaderControls) {
    const auto& control = table_of<mmf_control_interface>(reader, "MediaControl");
    const auto start = control.start, stop = control.stop, pause = control.pause, resume = control.resume;
    EXPECT_EQ(control.get_status(reader), 16);
    for (auto [step, status] : {std::pair{resume, 16},
                                {start, 64},
                                {resume, 256},
                                {pause, 64},
                                {resume, 256},
                                {stop, 16},
                                {pause, 64},
                                {stop, 16}}) {
        EXPECT_EQ(step(reader), 0);
        EXPECT_EQ(control.get_status(reader), status);
        EXPECT_EQ(step(nullptr), EINVAL);
    }
    const auto& seeker = table_of<mmf_seeker_interface>(reader, "MediaSeeker");
    EXPECT_EQ(seeker.get_unit(reader), 4);
    EXPECT_EQ(seeker.seek(nullptr, 4, 0), EINVAL);
    const auto& times = table_of<mmf_time_converter_interface>(reader, "MediaTimeConverter");
    for (auto convert : {times.to_media_time, times.from_media_time}) {
        uint64_t out = 0;
        EXPECT_EQ(convert(reader, 0x123456789abcdef0, &out), 0);
        EXPECT_EQ(out, 0x123456789abcdef0u);
        EXPECT_EQ(convert(nullptr, 1, &out), 22);
        EXPECT_EQ(convert(reader, 1, nullptr), 22);
    }
}

TEST_F(Filters, InputsAnswer) {
    const mmf_input_interface& in = inputs();
    int cursor = 0;
    EXPECT_EQ(in.iterate_inputs(writer, &cursor), nullptr);
    EXPECT_EQ(kel_writer_get_audio_channel(writer, 0), nullptr);
    set_integer(writer, "AudioChannelCount", 2);
    set_integer(writer, "VideoChannelCount", 1);
    for (const char* name : {"KELOutAudio0", "KELOutAudio1", "KELOutVideo0"}) {
        kel_channel* channel = in.iterate_inputs(writer, &cursor);
        ASSERT_NE(channel, nullptr);
        EXPECT_STREQ(channel->name, name);
        EXPECT_EQ(channel->format.media_type, name[6] == 'A' ? 4u : 2u);
        EXPECT_EQ(channel->format.capabilities, 12u);
    }
    EXPECT_EQ(in.iterate_inputs(writer, &cursor), nullptr);
    EXPECT_EQ(set_integer(writer, "AudioChannelCount", 100), 1);
    EXPECT_EQ(set_integer(writer, "VideoChannelCount", 100), 0);  // without effect on the channels
    EXPECT_EQ(kel_writer_get_audio_channel(writer, 1), &writer->inputs[1]);
    EXPECT_EQ(kel_writer_get_video_channel(writer, 0), &writer->inputs[2]);
    for (int32_t index : {-1, 2}) EXPECT_EQ(kel_writer_get_audio_channel(writer, index), nullptr);
    for (int32_t index : {-1, 1, 99}) EXPECT_EQ(kel_writer_get_video_channel(writer, index), nullptr);
    EXPECT_EQ(kel_writer_get_video_channel(reader, 0), nullptr);
    EXPECT_EQ(kel_writer_get_audio_channel(nullptr, 0), nullptr);
    EXPECT_EQ(kel_writer_get_format(&writer->inputs[2]), &writer->inputs[2].format);
    EXPECT_EQ(kel_writer_get_format(&reader->outputs[0]), nullptr);
    kel_slice slice;
    EXPECT_EQ(kel_writer_read_slice(&reader->outputs[0], &slice), 22);
    EXPECT_EQ(kel_writer_read_slice(nullptr, &slice), 22);

    kel_channel* input = &writer->inputs[0];
    kel_channel_format format = input->format;
    format.buffer_size = 1;
    auto* pool = reinterpret_cast<kel_mmf_pool*>(this);  // never looked at
    const mmf_output_interface& upstream = outputs();
    LogCapture log;
    run({
        {22, [&] { return in.acquire_input(nullptr); }},
        {22, [&] { return in.release_input(nullptr); }},
        {4010, [&] { return in.release_input(input); }},
        {22, [&] { return in.set_format(input, nullptr); }},
        {4009, [&] { return in.set_format(input, &format); }},
        {4009, [&] { return in.set_memory_pool(input, &kel_allocator, pool); }},
        {0, [&] { return in.acquire_input(input); }},
        {4008, [&] { return in.acquire_input(input); }},
        {4012, [&] { return in.set_memory_pool(input, &kel_allocator, pool); }},
        {4005, [&] { return format.buffer_size = 0, in.set_format(input, &format); }},
        {48, [&] { return format.buffer_size = 1, format.audio.rate = -1, in.set_format(input, &format); }},
        {0, [&] { return format.audio.rate = 8000, in.set_format(input, &format); }},
        {4011, [&] { return in.set_format(input, &format); }},
        {22, [&] { return in.connect_output(input, nullptr); }},
        {22, [&] { return in.connect_output(nullptr, &upstream); }},
        {0, [&] { return input->flags = 1, in.connect_output(input, &upstream); }},
        {0, [&] { return in.set_memory_pool(input, &kel_allocator, pool); }},
        {22, [&] { return in.set_memory_pool(input, nullptr, pool); }},
        {22, [&] { return in.set_memory_pool(input, &kel_allocator, nullptr); }},
        {0, [&] { return in.release_input(input); }},
    });
    EXPECT_EQ(log.count(6, "kel_writer: ReleaseInputChannel."), 2);
    EXPECT_EQ(table_of<mmf_filter_interface>(writer, "MediaFilter").destroy(nullptr), 22);
}

TEST_F(Filters, InputsNegotiate) {
    set_integer(writer, "AudioChannelCount", 1);
    set_integer(writer, "VideoChannelCount", 1);
    const mmf_input_interface& in = inputs();
    int cursor = 0;
    kel_channel* audio = in.iterate_inputs(writer, &cursor);
    kel_channel* video = in.iterate_inputs(writer, &cursor);
    kel_channel_format format{};
    auto ask = [&](kel_channel* channel, int complete, int first = 0) {
        cursor = first;
        return in.iterate_formats(channel, &format, complete, &cursor);
    };
    LogCapture log;
    format.media_type = MM_MEDIA_AUDIO;
    EXPECT_EQ(ask(audio, 1), 0);
    EXPECT_TRUE(log.has(2, "kel_writer: no kel_context set"));
    EXPECT_EQ(cursor, 1);
    MmSetResource(writer, "KelContext", context);
    EXPECT_EQ(ask(audio, 1, 1), 0);
    EXPECT_EQ(ask(video, 1), 0);
    format.audio = {2, 16, 48000, 0};
    const std::tuple<int, int32_t, int32_t> sizes[] = {{0, 0, 0}, {1, 0, 4096}, {1, 77, 77}};
    for (auto [complete, before, after] : sizes) {
        format.buffer_size = before;
        format.capabilities = 0;
        EXPECT_EQ(ask(audio, complete), 80);
        EXPECT_EQ(format.buffer_size, after);
        EXPECT_EQ(format.capabilities, 12u);
    }
    const std::tuple<const char*, int32_t, int> fourccs[] = {{"NV12", 12, 80}, {"21VN", 12, 80},
                                                             {"UYVY", 16, 80}, {"YV12", 12, 0},
                                                             {"RGBA", 32, 0},  {"none", 12, 0}};
    for (auto [fourcc, depth, result] : fourccs) {
        log.clear();
        format = {};
        format.media_type = MM_MEDIA_VIDEO;
        memcpy(&format.fourcc, fourcc, 4);
        format.video.bits_per_pixel = depth;
        EXPECT_EQ(ask(video, 1), result) << fourcc;
        EXPECT_TRUE(log.has(6, std::string("kel_writer given a FOURCC of '") + fourcc + "'."));
        EXPECT_TRUE(log.has(6, std::string("Translating FOURCC '") + fourcc + "'"));
        EXPECT_EQ(log.has_starting(6, "frame_writer: Looking for format "), strcmp(fourcc, "none") != 0);
    }
    // The window's display and its formats only make a message.
    memcpy(&format.fourcc, "NV12", 4);
    sweep_faults(screen_fault_points(), [&](const Fault* fault, LogCapture& said) {
        const bool create = fault && fault->is("screen_create_window_type");
        const bool usage = fault && fault->is("screen_set_window_property_iv");
        EXPECT_EQ(ask(video, 1), create || usage ? 0 : 80);
        EXPECT_EQ(said.has(2, "frame_writer:  screen_window_create failed (err = -1)"), create);
        EXPECT_EQ(said.has(2,
                           "frame_writer:  screen_set_window_property_iv(SCREEN_PROPERTY_USAGE) to 00000084 "
                           "failed (err = -1)"),
                  usage);
        EXPECT_EQ(said.has_starting(6, "frame_writer: Looking for format 12.  Window supports "), !fault);
    });
}

TEST_F(Filters, WriterPostsEvents) {
    const auto& events = table_of<mmf_event_interface>(writer, "MediaEventProducer");
    LogCapture log;
    int type = 0, cursor = 0;
    EXPECT_EQ(events.iterate_events(writer, &type, &cursor), 0);
    EXPECT_EQ(type, 1);
    EXPECT_EQ(events.iterate_events(writer, &type, &cursor), -1);
    EXPECT_TRUE(log.has(7, "kel_writer iterating through our postable event returning type = 0x1 MM_EV_ERR"));
    EXPECT_EQ(events.set_event_poster(writer, nullptr), 0);
    EXPECT_TRUE(log.has_starting(7, "kel_writer registering the "));
    EXPECT_EQ(events.enable_event(writer, 2), -1);
    EXPECT_EQ(events.enable_event(writer, 1), 0);
    EXPECT_TRUE(log.has(7, "kel_writer a client is interested in event MM_EV_ERR 0x1"));
    EXPECT_EQ(table_of<mmf_seeker_interface>(writer, "MediaSeeker").get_unit(writer), 2);
}

TEST_F(Filters, CreationFailsWhole) {
    for (const auto make : {kel_create_reader_filter, kel_create_writer_filter}) {
        const std::string who = make == kel_create_reader_filter ? "kel_reader" : "kel_writer";
        int locks = 0;  // but for those of the queues, which speak for themselves
        sweep_faults(framework_fault_points(), [&](const Fault* fault, LogCapture& log) {
            kel_filter* filter = make(nullptr);
            EXPECT_EQ(filter == nullptr, fault != nullptr);
            for (const char* which : {"status", "channel"})
                locks += log.count(2, who + ": Unable to create " + which + " mutex. (err = 12)");
            MmDestroyFilter(filter);
        });
        EXPECT_EQ(locks, make == kel_create_reader_filter ? 3 : 1);
    }
    set_integer(writer, "AudioChannelCount", 2);
    set_integer(writer, "VideoChannelCount", 2);
    Faults faults;
    int point = 0, cursor = 0;
    kel_channel* channel = nullptr;
    while (faults.fail_call(++point), channel = inputs().iterate_inputs(writer, &cursor), !channel)
        EXPECT_EQ(faults.holdings().blocks, 0);
    EXPECT_EQ(point, 1 + 1 + 4 * 2);
}

}  // namespace
