// The whole pipeline from a 1280 by 720 file with audio into another file (source, writer, slices, mixer track, queues,
// reader, sink), beside the program ffmpeg with the same codecs and thread counts.
#include <kel.h>
#include <mm/mmf.h>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>

#include "benchmarks/codec_time.hpp"
#include "benchmarks/harness.hpp"
#include "media/channels.hpp"

namespace {

using namespace kel_bench;
using kel_tool::input_of;
using kel_tool::output_of;
using kel_tool::resource;
using kel_tool::set_number;

constexpr int seconds_of_video = 4, frame_rate = 25, frames = seconds_of_video * frame_rate;
constexpr int least_rounds = 5;
constexpr int audio_block = 4096;  // frames that the mixer gives at once

struct Row {
    const char* title;
    const char* codec;
    int quality;           // the sink's
    const char* argument;  // what makes ffmpeg's encoder do the same
    const char* value;
    const char* preset;  // null where the encoder knows none
    int threads;
};

const Row rows[] = {
    {"MPEG-4, one thread a codec", "mpeg4", 90, "-q:v", "4", nullptr, 1},
    {"H.264, preset veryfast, one thread a codec", "libx264", 60, "-crf", "21", "veryfast", 1},
    {"H.264, preset veryfast, two threads a codec", "libx264", 60, "-crf", "21", "veryfast", 2},
};

// The cost of one run.
struct Cost {
    double wall = 0;
    double processor = 0;
    double own = 0;  // processor time outside of the codecs and containers
};

[[noreturn]] void give_up(const std::string& what) {
    std::fprintf(stderr, "%s\n", what.c_str());
    std::exit(1);
}

extern "C" char** environ;

Cost run_program(const std::vector<std::string>& words) {
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const double start = now();
    pid_t child = 0;
    int status = 0;
    rusage usage{};
    if (posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0 ||
        wait4(child, &status, 0, &usage) != child || status != 0)
        give_up(words[0] + " fails");
    const auto of = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return {now() - start, of(usage.ru_utime) + of(usage.ru_stime), 0};
}

std::vector<std::string> ffmpeg(const std::vector<std::string>& input, const Row& row,
                                const std::string& output) {
    const std::string threads = std::to_string(row.threads);
    std::vector<std::string> words = {"ffmpeg", "-nostdin", "-v", "error", "-y", "-threads", threads};
    words.insert(words.end(), input.begin(), input.end());
    for (const char* word :
         {"-ac", "2", "-c:a", "aac", "-b:a", "128k", "-c:v", row.codec, row.argument, row.value})
        words.push_back(word);
    if (row.preset) words.insert(words.end(), {"-preset", row.preset});
    words.insert(words.end(), {"-pix_fmt", "yuv420p", "-threads", threads, output});
    return words;
}

void drop_slice(void* data) {
    auto* slice = static_cast<kel_slice*>(data);
    kel_release_buffer(slice->buffer);
    std::free(slice);
}

// One run of the pipeline.
class Pipeline {
  public:
    explicit Pipeline(kel_context* context) : context_(context) {}

    Cost run(const Row& row, const std::string& input, const std::string& output) {
        mm_graph* from = MmCreateGraph();
        kel_filter* source = MmCreateFilter(from, MmFileSource());
        kel_filter* writer = kel_create_writer_filter(from);
        set_number(source, "Threads", row.threads);
        MmSetResource(writer, "KelContext", context_);
        for (const char* name : {"AudioChannelCount", "VideoChannelCount"}) set_number(writer, name, 1);
        set_number(writer, "MinVideoBuffers", 8);  // those in the queue, too
        if (MmSetResource(source, "Path", input.c_str()) != 0) give_up(resource<char>(source, "Error"));
        kel_channel *audio_input = input_of(writer, MM_MEDIA_AUDIO),
                    *video_input = input_of(writer, MM_MEDIA_VIDEO);
        connect(from, output_of(source, MM_MEDIA_AUDIO), audio_input);
        connect(from, output_of(source, MM_MEDIA_VIDEO), video_input);

        mm_graph* into = MmCreateGraph();
        kel_filter* reader = kel_create_reader_filter(into);
        kel_filter* sink = MmCreateFilter(into, MmFileSink());
        MmSetResource(reader, "KelContext", context_);
        for (auto [name, value] : {std::pair{"AudioSampleRate", 48000}, std::pair{"AudioBitDepth", 16},
                                   std::pair{"AudioChannels", 2}, std::pair{"VideoWidth", 1280},
                                   std::pair{"VideoHeight", 720}, std::pair{"VideoFrameRate", frame_rate}})
            set_number(reader, name, value);
        MmSetResource(reader, "VideoFormat", "NV12");
        MmSetResource(sink, "Path", output.c_str());
        MmSetResource(sink, "VideoCodec", row.codec);
        if (row.preset) MmSetResource(sink, "VideoOptions", (std::string("preset=") + row.preset).c_str());
        set_number(sink, "VideoQuality", row.quality);
        set_number(sink, "Threads", row.threads);
        connect(into, output_of(reader, MM_MEDIA_AUDIO), input_of(sink, MM_MEDIA_AUDIO));
        connect(into, output_of(reader, MM_MEDIA_VIDEO), input_of(sink, MM_MEDIA_VIDEO));
        auto* audio_queue = resource<kel_queue>(reader, "AudioQueue");
        auto* video_queue = resource<kel_queue>(reader, "VideoQueue");

        for (kel_queue* queue : {audio_queue, video_queue}) kel_queue_set_node_destructor(queue, drop_slice);
        for (mm_graph* graph : {from, into}) MmStart(graph), MmResume(graph);
        own_ = 0;
        const double start = now(), processor = process_seconds();
        std::thread audio([&] { counted([&] { mix(audio_input, audio_queue); }); });
        std::thread video([&] { counted([&] { pass(video_input, video_queue); }); });
        counted([&] {
            int status;
            while ((status = MmProcess(into)) == MM_STATUS_PLAYING) continue;
            if (status != MM_STATUS_END_OF_STREAM) give_up(resource<char>(sink, "Error"));
        });
        audio.join();
        video.join();
        const Cost cost = {now() - start, process_seconds() - processor, own_};
        MmDestroyGraph(from);
        MmDestroyGraph(into);
        return cost;
    }

  private:
    static void connect(mm_graph* graph, kel_channel* output, kel_channel* input) {
        if (const int error = MmConnect(graph, output, input))
            give_up("no connection: " + std::to_string(error));
    }

    // Adds what the work costs its thread outside of the codecs.
    template <typename Work>
    void counted(Work work) {
        const double start = thread_seconds() - codec_seconds();
        work();
        own_ += thread_seconds() - codec_seconds() - start;
    }

    static void send(kel_queue* queue, const kel_slice& slice) {
        auto* copy = kel_create_slice_for_buffer(slice.buffer);
        *copy = slice;
        if (!kel_queue_enqueue(queue, copy)) give_up("closed queue");
    }

    // The decoder's own buffers go on to the reader.
    static void pass(kel_channel* channel, kel_queue* queue) {
        kel_slice slice;
        while (kel_writer_read_slice(channel, &slice) == 0) {
            if (!slice.buffer) continue;
            kel_ref_buffer(slice.buffer);
            send(queue, slice);
        }
        kel_queue_close(queue);
    }

    void mix(kel_channel* channel, kel_queue* queue) const {
        const kel_audio_format format = {48000, 2, KEL_AUDIO_TYPE_S16LE};
        kel_buffer_pool* pool = kel_create_audio_buffer_pool(context_, &format, audio_block, 8);
        kel_audio_mixer* mixer = kel_create_audio_mixer(pool);
        kel_audio_mixer_track* track = kel_acquire_audio_mixer_track(mixer);
        const auto emit = [&] {
            kel_slice mixed;
            while (kel_get_audio_mixer_track_num_samples_left(track) == 0 ||
                   kel_audio_mixer_has_buffer(mixer)) {
                if (kel_wait_for_audio_mixer(mixer, -1) != 0) give_up("no mixed buffer");
                kel_get_audio_mixer_slice(mixer, &mixed);
                send(queue, mixed);
            }
        };
        kel_slice slice;
        while (kel_writer_read_slice(channel, &slice) == 0) {
            if (!slice.buffer) continue;
            const auto count = static_cast<int32_t>(slice.spec.audio.nsamples);
            for (int32_t start = 0; start < count; emit()) {
                const int32_t taken = kel_feed_audio_mixer_track(track, &slice, start, count - start);
                if (taken < 0) give_up("the track takes nothing");
                start += taken;
            }
        }
        kel_feed_audio_mixer_track_silence(track, kel_get_audio_mixer_track_num_samples_left(track));
        emit();
        kel_queue_close(queue);
        kel_release_audio_mixer_track(track);
        kel_destroy_audio_mixer(&mixer);
        kel_destroy_buffer_pool_when_unused(pool);
    }

    kel_context* context_;
    std::atomic<double> own_{0};
};

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void compare(const Row& row, kel_context* context, const std::filesystem::path& folder, double seconds) {
    const std::string input = folder / "in.mp4", kel_output = folder / "kel.mp4",
                      ffmpeg_output = folder / "ffmpeg.mp4";
    const std::string length = ":d=" + std::to_string(seconds_of_video);
    run_program(ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=1280x720:rate=25" + length, "-f", "lavfi", "-i",
                        "sine=sample_rate=48000" + length},
                       row, input));
    std::vector<double> fps[2], processor[2], share, ratio, processor_ratio;
    const double end = now() + seconds;
    for (int round = 0; round < least_rounds || now() < end; ++round) {
        Cost costs[2];
        for (int i : {round % 2, 1 - round % 2})
            costs[i] = i == 0 ? Pipeline(context).run(row, input, kel_output)
                              : run_program(ffmpeg({"-i", input}, row, ffmpeg_output));
        for (int i = 0; i < 2; ++i) {
            fps[i].push_back(frames / costs[i].wall);
            processor[i].push_back(1e3 * costs[i].processor / frames);
        }
        share.push_back(costs[0].own / costs[0].processor);
        ratio.push_back(costs[1].wall / costs[0].wall);
        processor_ratio.push_back(costs[0].processor / costs[1].processor);
    }
    std::printf(
        "### %s\n\n| candidate | frames per second | processor, ms per frame | bytes "
        "|\n|---|---:|---:|---:|\n",
        row.title);
    const char* names[] = {"**libkel**", "ffmpeg"};
    for (int i = 0; i < 2; ++i)
        std::printf("| %s | %.0f | %.2f | %ju |\n", names[i], median(fps[i]), median(processor[i]),
                    static_cast<uintmax_t>(std::filesystem::file_size(i == 0 ? kel_output : ffmpeg_output)));
    std::printf(
        "\nOf ffmpeg's: %.2f of the frames per second, %.2f of the processor time. Outside the codecs: %.1f "
        "%% "
        "of libkel's.\nMedians of %zu rounds.\n\n",
        median(ratio), median(processor_ratio), 100 * median(share), share.size());
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse_options(argc, argv);
    const auto folder = std::filesystem::temp_directory_path() / ("kel_pipeline_" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    kel_init();
    kel_context* context = kel_create_context();
    kel_init_mmedia_filters();
    for (const Row& row : rows)
        if (std::string(row.title).find(options.filter) != std::string::npos)
            compare(row, context, folder, 6 * options.seconds_per_candidate);
    kel_destroy_context(&context);
    kel_fini();
    std::filesystem::remove_all(folder);
}
