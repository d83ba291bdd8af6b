// The file source and the file sink when memory, FFmpeg's libraries or the disk fail them.
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <new>

#include "graph/media_fixture.hpp"
#include "support/media_files.hpp"
#include "support/threads.hpp"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/display.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace {

using namespace kel_test;

void* failing_new(std::size_t size) {
    if (detail::passes("operator new")) return ::operator new(size);
    throw std::bad_alloc();
}

void* failing_new_nothrow(std::size_t size, const std::nothrow_t& nothrow) noexcept {
    return detail::passes("operator new, nothrow") ? ::operator new(size, nothrow) : nullptr;
}

void* failing_new_array(std::size_t size, const std::nothrow_t& nothrow) noexcept {
    return detail::passes("operator new[], nothrow") ? ::operator new[](size, nothrow) : nullptr;
}

int failing_rename(const char* from, const char* into) {
    if (detail::passes("rename")) return std::rename(from, into);
    errno = EACCES;
    return -1;
}

// As the real one: without a new scaler the old one is gone, too.
SwsContext* failing_scaler(SwsContext* old, int width, int height, AVPixelFormat format, int to_width,
                           int to_height, AVPixelFormat to_format, int flags, SwsFilter* from, SwsFilter* to,
                           const double* parameters) {
    if (detail::passes("sws_getCachedContext"))
        return sws_getCachedContext(old, width, height, format, to_width, to_height, to_format, flags, from,
                                    to, parameters);
    sws_freeContext(old);
    return nullptr;
}

constexpr bool wide = sizeof(std::size_t) == 8;

// What the file filters call, and how it fails.
std::vector<FaultPoint> file_fault_points() {
    std::vector<FaultPoint> points = {
        {wide ? "_Znwm" : "_Znwj", reinterpret_cast<void*>(failing_new)},
        {wide ? "_ZnwmRKSt9nothrow_t" : "_ZnwjRKSt9nothrow_t", reinterpret_cast<void*>(failing_new_nothrow)},
        {wide ? "_ZnamRKSt9nothrow_t" : "_ZnajRKSt9nothrow_t", reinterpret_cast<void*>(failing_new_array)},
        KEL_FAULT_POINT(avformat_open_input, AVERROR(ENOMEM), ENOMEM),
        KEL_FAULT_POINT(avformat_find_stream_info, AVERROR(ENOMEM), ENOMEM),
        KEL_FAULT_POINT(avformat_seek_file, AVERROR(EIO), EIO),
        KEL_FAULT_POINT(avcodec_alloc_context3, nullptr, ENOMEM),
        KEL_FAULT_POINT(avcodec_parameters_to_context, AVERROR(ENOMEM), ENOMEM),
        KEL_FAULT_POINT(avcodec_parameters_from_context, AVERROR(ENOMEM), ENOMEM),
        KEL_FAULT_POINT(avcodec_open2, AVERROR(ENOMEM), ENOMEM),
        KEL_FAULT_POINT(av_packet_alloc, nullptr, ENOMEM),
        KEL_FAULT_POINT(av_frame_alloc, nullptr, ENOMEM),
        KEL_FAULT_POINT(av_frame_get_buffer, AVERROR(ENOMEM), ENOMEM),
        KEL_FAULT_POINT(av_buffer_pool_init, nullptr, ENOMEM),
        KEL_FAULT_POINT(av_buffer_pool_get, nullptr, ENOMEM),
        KEL_FAULT_POINT(av_read_frame, AVERROR(EIO), EIO),
        KEL_FAULT_POINT(avcodec_send_packet, AVERROR(ENOMEM), ENOMEM),
        KEL_FAULT_POINT(avcodec_send_frame, AVERROR(ENOMEM), ENOMEM),
        KEL_FAULT_POINT(swr_alloc_set_opts2, AVERROR(ENOMEM), ENOMEM),
        KEL_FAULT_POINT(swr_init, AVERROR(ENOMEM), ENOMEM),
        KEL_FAULT_POINT(swr_convert, AVERROR(ENOMEM), ENOMEM),
        {"sws_getCachedContext", reinterpret_cast<void*>(failing_scaler)},
        KEL_FAULT_POINT(sws_scale, AVERROR(EINVAL), EINVAL),
        KEL_FAULT_POINT(av_audio_fifo_alloc, nullptr, ENOMEM),
        KEL_FAULT_POINT(av_audio_fifo_write, AVERROR(ENOMEM), ENOMEM),
        KEL_FAULT_POINT(av_audio_fifo_read, AVERROR(EINVAL), EINVAL),
        KEL_FAULT_POINT(av_samples_alloc_array_and_samples, AVERROR(ENOMEM), ENOMEM),
        KEL_FAULT_POINT(avformat_alloc_output_context2, AVERROR(ENOMEM), ENOMEM),
        KEL_FAULT_POINT(avformat_new_stream, nullptr, ENOMEM),
        KEL_FAULT_POINT(avio_open, AVERROR(EACCES), EACCES),
        KEL_FAULT_POINT(avformat_write_header, AVERROR(ENOSPC), ENOSPC),
        KEL_FAULT_POINT(av_interleaved_write_frame, AVERROR(ENOSPC), ENOSPC),
        KEL_FAULT_POINT(av_write_trailer, AVERROR(ENOSPC), ENOSPC),
        {"rename", reinterpret_cast<void*>(failing_rename)},
    };
    for (FaultPoint& point : points) point.library = "libkelplatform.so";
    return points;
}

class FileFaults : public MediaTest {
  protected:
    FileFaults() {
        silence_codecs();
        MmFileSource();  // registered for good
        MmFileSink();
        spec.seconds = 0.2;
        spec.ahead = true;
        spec.width = 64;
        spec.height = 48;
        spec.texts = {{"VideoCodec", "mpeg4"}};
        spec.numbers = {{"Threads", 1}};
    }
    Watchdog watchdog{std::chrono::seconds(280), "file faults"};
    MediaSpec spec;
};

TEST_F(FileFaults, SourceSaysWhyAndLosesNothingElse) {
    const std::string path = test_path("faults.mkv");
    ASSERT_EQ(make_media(context, path, spec), "");
    const int tried = sweep_faults(file_fault_points(), [&](const Fault* fault, LogCapture& log) {
        Playing playing(context, path);
        if (!playing.source || !playing.writer || playing.opened != 0) {
            EXPECT_NE(fault, nullptr);
            return;
        }
        const auto totals = playing.drain();
        // A part that is missing is spoken of.
        const bool whole = totals.frames >= 9600 && totals.pictures == 5;
        EXPECT_TRUE(whole || (fault && fault->function.rfind("operator", 0) == 0) ||
                    !log.messages(3).empty());
        kel_slice slice;
        for (kel_channel* channel : {playing.audio, playing.video})
            EXPECT_EQ(channel ? kel_writer_read_slice(channel, &slice) : 79, 79);
    });
    std::printf("%d faults\n", tried);
}

TEST_F(FileFaults, SinkLeavesNoFileThatLooksWhole) {
    const std::string path = test_path("faults_out.mp4");
    ASSERT_EQ(make_media(context, path, spec), "");
    const auto whole = std::filesystem::file_size(path);
    const int tried = sweep_faults(file_fault_points(), [&](const Fault* fault, LogCapture&) {
        std::filesystem::remove(path);
        const std::string error = make_media(context, path, spec);
        EXPECT_EQ(error.empty(), std::filesystem::exists(path)) << error;
        // A failure of the file's own is never passed over.
        const bool own =
            fault && (fault->function[0] == 'a' || fault->function[0] == 's' || fault->is("rename"));
        EXPECT_TRUE(!error.empty() || !own) << std::filesystem::file_size(path) << " of " << whole;
        EXPECT_FALSE(std::filesystem::exists(path + ".part"));
    });
    std::printf("%d faults\n", tried);
}

TEST_F(FileFaults, CopiesWholeOrNotAtAllWithoutMemory) {
    const std::string from = test_path("faults.mkv"), into = test_path("faults_copy.mkv");
    ASSERT_EQ(make_media(context, from, spec), "");
    ASSERT_EQ(copy_media(from, into, spec), "");
    const ReadMedia whole(into);
    std::vector<FaultPoint> memory = file_fault_points();
    memory.resize(3);  // the operators
    const int tried = sweep_faults(memory, [&](const Fault*, LogCapture& log) {
        std::filesystem::remove(into);
        const std::string error = copy_media(from, into, spec);
        if (error.empty() && log.messages(3).empty()) {
            const ReadMedia copy(into);
            // Not each value: emulated encoders do not give the same bits twice.
            EXPECT_EQ(copy.audio.size(), whole.audio.size());
            EXPECT_EQ(copy.luma, whole.luma);
        }
        EXPECT_FALSE(std::filesystem::exists(into + ".part"));
    });
    std::printf("%d faults\n", tried);
}

TEST_F(FileFaults, SinkSaysWhatItCannotDo) {
    struct Row {
        const char* path;
        const char* resource;
        const char* value;
        const char* message;
    };
    const Row rows[] = {
        {"no.such_kind", "", "", "its name tells of no kind of media file"},
        {"no/such/folder.mkv", "", "", "No such file"},
        {"video.wav", "", "", "no encoder of video"},
        {"a.mkv", "VideoCodec", "nonsense", "no encoder of video for it is named nonsense"},
        {"a.mkv", "VideoCodec", "flac", "no encoder of video for it is named flac"},
        {"a.mkv", "VideoOptions", "nonsense=1", "has no option nonsense"},
    };
    for (const Row& row : rows) {
        MediaSpec own = spec;
        if (*row.resource) own.texts[row.resource] = row.value;
        LogCapture log;
        const std::string error = make_media(context, test_path(row.path), own);
        EXPECT_NE(error.find(row.message), std::string::npos) << error;
        EXPECT_EQ(log.messages(2).size(), 1u);
        EXPECT_FALSE(std::filesystem::exists(test_path(row.path)));
    }
}

// A stop, and the end of the graph, finish the file with what has come so far.
TEST_F(FileFaults, SinkFinishesWhatItHas) {
    for (bool stop : {true, false}) {
        const std::string path = test_path("stopped.flac");
        mm_graph* graph = MmCreateGraph();
        kel_filter* reader = kel_create_reader_filter(graph);
        kel_filter* sink = MmCreateFilter(graph, MmFileSink());
        for (auto [name, value] : {std::pair{"AudioSampleRate", 8000}, std::pair{"AudioBitDepth", 16},
                                   std::pair{"AudioChannels", 1}})
            set_integer(reader, name, value);
        MmSetResource(reader, "KelContext", context);
        MmSetResource(sink, "Path", path.c_str());
        ASSERT_EQ(MmConnect(graph, output_of(reader, 4), input_of(sink, 4)), 0);
        EXPECT_EQ(MmProcess(graph), MM_STATUS_STOPPED);
        MmStart(graph);
        EXPECT_EQ(MmProcess(graph), MM_STATUS_PAUSED);
        MmResume(graph);
        const kel_audio_format format = {8000, 1, KEL_AUDIO_TYPE_S16LE};
        kel_buffer_pool* pool = kel_create_audio_buffer_pool(context, &format, 1000, 2);
        for (uint64_t pts : {0u, 375000u}) {  // with a hole of a quarter of a second
            kel_queue_enqueue(queue_of(reader, "AudioQueue"), new_slice(kel_acquire_buffer(pool), pts));
            EXPECT_EQ(MmProcess(graph), MM_STATUS_PLAYING);
        }
        EXPECT_EQ(MmSetResource(sink, "Path", "elsewhere.flac"), 1);
        EXPECT_TRUE(std::filesystem::exists(path + ".part"));
        EXPECT_EQ(stop ? MmStop(graph) : 0, 0);
        EXPECT_EQ(std::filesystem::exists(path), stop);
        MmDestroyGraph(graph);
        EXPECT_EQ(ReadMedia(path).audio.size(), 4000u);
        EXPECT_EQ(pool->in_use, 0);
        kel_destroy_buffer_pool(&pool);
        std::filesystem::remove(path);
    }
}

// Copies a file's packets and says by how much its pictures are to be turned clockwise.
void turn_file(const std::string& from, const std::string& into, double degrees) {
    AVFormatContext *input = nullptr, *output = nullptr;
    ASSERT_GE(avformat_open_input(&input, from.c_str(), nullptr, nullptr), 0);
    avformat_find_stream_info(input, nullptr);
    avformat_alloc_output_context2(&output, nullptr, nullptr, into.c_str());
    AVStream* stream = avformat_new_stream(output, nullptr);
    avcodec_parameters_copy(stream->codecpar, input->streams[0]->codecpar);
    auto* matrix = reinterpret_cast<int32_t*>(
        av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(int32_t)));
    av_display_rotation_set(matrix, degrees);
    avio_open(&output->pb, into.c_str(), AVIO_FLAG_WRITE);
    ASSERT_GE(avformat_write_header(output, nullptr), 0);
    AVPacket* packet = av_packet_alloc();
    while (av_read_frame(input, packet) >= 0) {
        av_packet_rescale_ts(packet, input->streams[0]->time_base, stream->time_base);
        av_interleaved_write_frame(output, packet);
    }
    av_packet_free(&packet);
    av_write_trailer(output);
    avio_closep(&output->pb);
    avformat_free_context(output);
    avformat_close_input(&input);
}

TEST_F(FileFaults, SourceTurnsPicturesUpright) {
    spec.rate = 0;
    spec.numbers["VideoQuality"] = 100;
    const std::string lying = test_path("lying.mp4"), turned = test_path("turned.mp4");
    ASSERT_EQ(make_media(context, lying, spec), "");
    for (int degrees : {0, 90, 180, 270}) {
        turn_file(lying, turned, degrees);
        Playing playing(context, turned);
        ASSERT_EQ(playing.opened, 0);
        kel_slice slice;
        ASSERT_EQ(kel_writer_read_slice(playing.video, &slice), 0);
        const int width = degrees % 180 ? 48 : 64, height = degrees % 180 ? 64 : 48;
        EXPECT_EQ(slice.spec.video.width, width);
        EXPECT_EQ(slice.spec.video.height, height);
        std::vector<uint8_t> luma;
        for (int y = 0; y < height; ++y) {
            const auto* row = static_cast<const uint8_t*>(slice.buffer->ptr) + y * slice.buffer->stride;
            luma.insert(luma.end(), row, row + width);
        }
        // Where the pixel at (x, y) of the upright picture was.
        auto expected = [&](int x, int y) {
            return degrees == 90    ? pattern_luma(y, 47 - x, 0)
                   : degrees == 180 ? pattern_luma(63 - x, 47 - y, 0)
                   : degrees == 270 ? pattern_luma(63 - y, x, 0)
                                    : pattern_luma(x, y, 0);
        };
        EXPECT_GE(psnr(luma, width, expected), 35) << degrees;
    }
}

}  // namespace
