#include "support/media_files.hpp"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "graph/media_fixture.hpp"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace kel_test {
namespace {

struct TestFolder {
    std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("kel_media_" + std::to_string(getpid()));
    TestFolder() { std::filesystem::create_directories(path); }
    ~TestFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
};

void fill_picture(const kel_buffer& buffer, int width, int height, int n) {
    auto* rows = static_cast<uint8_t*>(buffer.ptr);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            rows[y * buffer.stride + x] = static_cast<uint8_t>(pattern_luma(x, y, n));
    for (int y = height; y < height + height / 2; ++y)
        memset(rows + y * buffer.stride, 128, static_cast<size_t>(width));
}

void fill_sine(void* data, const MediaSpec& spec, int64_t first, int frames) {
    for (int i = 0; i < frames * spec.channels; ++i) {
        const double time = static_cast<double>(first + i / spec.channels) / spec.rate;
        const double value = spec.amplitude * std::sin(2 * M_PI * spec.frequency * time);
        if (spec.bits == 8)
            static_cast<uint8_t*>(data)[i] = static_cast<uint8_t>(std::lround(128 + 127 * value));
        else if (spec.bits == 16)
            static_cast<int16_t*>(data)[i] = static_cast<int16_t>(std::lround(32767 * value));
        else
            static_cast<int32_t*>(data)[i] = static_cast<int32_t>(std::lround(8388607 * value));
    }
}

uint32_t sample_type(int bits) {
    return bits == 8 ? KEL_AUDIO_TYPE_U8 : bits == 16 ? KEL_AUDIO_TYPE_S16LE : KEL_AUDIO_TYPE_S24_8LE;
}

void feed_audio(kel_context* context, kel_queue* queue, const MediaSpec& spec) {
    const int block = std::max(spec.rate / 20, 1);
    const kel_audio_format format = {spec.rate, spec.channels, sample_type(spec.bits)};
    kel_buffer_pool* pool = kel_create_audio_buffer_pool(context, &format, static_cast<uint32_t>(block), 6);
    const auto total = static_cast<int64_t>(spec.seconds * spec.rate);
    for (int64_t done = 0; done < total && pool; done += block) {
        kel_buffer* buffer = kel_acquire_buffer_wait(pool, 20000);
        if (!buffer) break;
        kel_slice* slice =
            new_slice(buffer, static_cast<uint64_t>(kel_get_audio_pts_from_nsamples(spec.rate, done)));
        slice->spec.audio.nsamples = static_cast<uint32_t>(std::min<int64_t>(block, total - done));
        fill_sine(buffer->ptr, spec, done, static_cast<int>(slice->spec.audio.nsamples));
        if (!kel_queue_enqueue_with_timeout(queue, slice, 20000)) drop_slice(slice);
    }
    kel_queue_close(queue);
    if (pool) kel_destroy_buffer_pool_when_unused(pool);
}

void feed_video(kel_context* context, kel_queue* queue, const MediaSpec& spec) {
    const kel_video_format format = {SCREEN_FORMAT_NV12, 0x10E, spec.width, spec.height};
    kel_buffer_pool* pool = kel_create_window_buffer_pool(context, &format, SCREEN_CHILD_WINDOW, 6);
    const int total = static_cast<int>(std::lround(spec.seconds * spec.frame_rate));
    for (int n = 0; n < total && pool; ++n) {
        kel_buffer* buffer = kel_acquire_buffer_wait(pool, 20000);
        if (!buffer) break;
        fill_picture(*buffer, spec.width, spec.height, n);
        kel_slice* slice =
            new_slice(buffer, static_cast<uint64_t>(n) * 1000000 / static_cast<unsigned>(spec.frame_rate));
        if (!kel_queue_enqueue_with_timeout(queue, slice, 20000)) drop_slice(slice);
    }
    kel_queue_close(queue);
    if (pool) kel_destroy_buffer_pool_when_unused(pool);
}

}  // namespace

int pattern_luma(int x, int y, int n) {
    return 40 + (x + 3 * n) * 2 % 64 + (y + n) % 64 + 40 * ((x / 16 + y / 16) % 2);
}

void silence_codecs() {
    av_log_set_level(AV_LOG_QUIET);
}

std::string bytes_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string test_path(const std::string& name) {
    static const TestFolder folder;
    return folder.path / name;
}

kel_slice* new_slice(kel_buffer* buffer, uint64_t pts) {
    auto* slice = static_cast<kel_slice*>(std::malloc(sizeof(kel_slice)));
    *slice = kel_slice_for_buffer(buffer);
    slice->pts = pts;
    return slice;
}

int run_sinks(mm_graph* graph) {
    int status;
    while ((status = MmProcess(graph)) == MM_STATUS_PLAYING) {
    }
    return status;
}

kel_channel* output_of(kel_filter* filter, uint32_t media_type) {
    const auto& table = table_of<mmf_output_interface>(filter, "MediaOutput");
    for (int cursor = 0; kel_channel* channel = table.iterate_outputs(filter, &cursor);)
        if (channel->format.media_type == media_type) return channel;
    return nullptr;
}

kel_channel* input_of(kel_filter* filter, uint32_t media_type) {
    const auto& table = table_of<mmf_input_interface>(filter, "MediaInput");
    for (int cursor = 0; kel_channel* channel = table.iterate_inputs(filter, &cursor);)
        if (channel->format.media_type == media_type) return channel;
    return nullptr;
}

std::string error_of(kel_filter* filter) {
    const auto* text = *static_cast<char**>(MmFindResource(filter, "Error")->value);
    return text ? text : "";
}

std::string make_media(kel_context* context, const std::string& path, const MediaSpec& spec) {
    mm_graph* graph = MmCreateGraph();
    kel_filter* reader = graph ? kel_create_reader_filter(graph) : nullptr;
    kel_filter* sink = graph ? MmCreateFilter(graph, MmFileSink()) : nullptr;
    if (!reader || !sink) {
        MmDestroyGraph(graph);
        return "no filters";
    }
    MmSetResource(reader, "KelContext", context);
    MmSetResource(sink, "Path", path.c_str());
    for (const auto& [name, text] : spec.texts) MmSetResource(sink, name.c_str(), text.c_str());
    for (const auto& [name, number] : spec.numbers) set_integer(sink, name.c_str(), number);
    std::vector<std::thread> feeders;
    std::string error;
    if (spec.rate > 0) {
        for (auto [name, value] :
             {std::pair{"AudioSampleRate", spec.rate}, std::pair{"AudioBitDepth", spec.bits},
              std::pair{"AudioChannels", spec.channels}})
            set_integer(reader, name, value);
        if (MmConnect(graph, output_of(reader, 4), input_of(sink, 4)) != 0) error = "no audio connection";
        feeders.emplace_back(feed_audio, context, queue_of(reader, "AudioQueue"), spec);
        if (spec.ahead) feeders.back().join();
    }
    if (spec.width > 0) {
        for (auto [name, value] : {std::pair{"VideoWidth", spec.width}, std::pair{"VideoHeight", spec.height},
                                   std::pair{"VideoFrameRate", spec.frame_rate}})
            set_integer(reader, name, value);
        MmSetResource(reader, "VideoFormat", "NV12");
        if (MmConnect(graph, output_of(reader, 2), input_of(sink, 2)) != 0) error = "no video connection";
        feeders.emplace_back(feed_video, context, queue_of(reader, "VideoQueue"), spec);
        if (spec.ahead) feeders.back().join();
    }
    MmStart(graph);
    MmResume(graph);
    if (error.empty() && run_sinks(graph) != MM_STATUS_END_OF_STREAM) error = error_of(sink) + " (not ended)";
    for (const char* name : {"AudioQueue", "VideoQueue"}) kel_queue_close(queue_of(reader, name));
    for (std::thread& feeder : feeders)
        if (feeder.joinable()) feeder.join();
    MmDestroyGraph(graph);
    return error;
}

std::string copy_media(const std::string& from, const std::string& into, const MediaSpec& spec) {
    mm_graph* graph = MmCreateGraph();
    kel_filter* source = graph ? MmCreateFilter(graph, MmFileSource()) : nullptr;
    kel_filter* sink = graph ? MmCreateFilter(graph, MmFileSink()) : nullptr;
    std::string error = source && sink ? "" : "no filters";
    if (error.empty()) {
        set_integer(source, "AudioBitDepth", spec.bits);
        if (MmSetResource(source, "Path", from.c_str()) != 0) error = "no source";
        if (MmSetResource(sink, "Path", into.c_str()) != 0) error = "no sink";
        for (const auto& [name, text] : spec.texts) MmSetResource(sink, name.c_str(), text.c_str());
        for (const auto& [name, number] : spec.numbers) set_integer(sink, name.c_str(), number);
    }
    for (uint32_t type : {4u, 2u})
        if (kel_channel* output = error.empty() ? output_of(source, type) : nullptr)
            if (MmConnect(graph, output, input_of(sink, type)) != 0) error = "no connection";
    MmStart(graph);
    MmResume(graph);
    if (error.empty() && run_sinks(graph) != MM_STATUS_END_OF_STREAM) error = "not ended";
    if (source && sink) error += error_of(source) + error_of(sink);
    MmDestroyGraph(graph);
    return error;
}

ReadMedia::ReadMedia(const std::string& path) {
    AVFormatContext* format = nullptr;
    if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) < 0) return;
    opened = avformat_find_stream_info(format, nullptr) >= 0;
    container = format->iformat->name;
    duration = static_cast<double>(format->duration) / AV_TIME_BASE;
    std::vector<AVCodecContext*> decoders(format->nb_streams);
    for (unsigned i = 0; i < format->nb_streams; ++i) {
        const AVCodecParameters& parameters = *format->streams[i]->codecpar;
        const AVCodec* codec = avcodec_find_decoder(parameters.codec_id);
        decoders[i] = avcodec_alloc_context3(codec);
        avcodec_parameters_to_context(decoders[i], &parameters);
        opened &= avcodec_open2(decoders[i], codec, nullptr) >= 0;
        if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) {
            audio_codec = codec->name;
            rate = parameters.sample_rate;
            channels = parameters.ch_layout.nb_channels;
            bits = parameters.bits_per_raw_sample ? parameters.bits_per_raw_sample
                                                  : parameters.bits_per_coded_sample;
        } else {
            video_codec = codec->name;
            width = parameters.width;
            height = parameters.height;
        }
    }
    SwrContext* resampler = nullptr;
    SwsContext* scaler = nullptr;
    AVFrame* frame = av_frame_alloc();
    auto take = [&](unsigned index) {
        while (avcodec_receive_frame(decoders[index], frame) >= 0) {
            if (frame->nb_samples > 0) {
                if (!resampler)
                    swr_alloc_set_opts2(&resampler, &frame->ch_layout, AV_SAMPLE_FMT_FLTP, frame->sample_rate,
                                        &frame->ch_layout, static_cast<AVSampleFormat>(frame->format),
                                        frame->sample_rate, 0, nullptr);
                swr_init(resampler);
                std::vector<std::vector<float>> planes(
                    8, std::vector<float>(static_cast<size_t>(frame->nb_samples)));
                uint8_t* pointers[8];
                for (size_t i = 0; i < 8; ++i) pointers[i] = reinterpret_cast<uint8_t*>(planes[i].data());
                swr_convert(resampler, pointers, frame->nb_samples,
                            const_cast<const uint8_t**>(frame->extended_data), frame->nb_samples);
                audio.insert(audio.end(), planes[0].begin(), planes[0].end());
                continue;
            }
            video_pts.push_back(static_cast<double>(frame->best_effort_timestamp) *
                                av_q2d(format->streams[index]->time_base));
            std::vector<uint8_t> picture(
                static_cast<size_t>(frame->width) * static_cast<size_t>(frame->height) * 3 / 2 + 64);
            scaler = sws_getCachedContext(
                scaler, frame->width, frame->height, static_cast<AVPixelFormat>(frame->format), frame->width,
                frame->height, AV_PIX_FMT_NV12, SWS_POINT, nullptr, nullptr, nullptr);
            uint8_t* into[] = {picture.data(), picture.data() + frame->width * frame->height, nullptr,
                               nullptr};
            const int strides[] = {frame->width, frame->width, 0, 0};
            sws_scale(scaler, frame->data, frame->linesize, 0, frame->height, into, strides);
            picture.resize(static_cast<size_t>(frame->width) * static_cast<size_t>(frame->height));
            luma.push_back(std::move(picture));
        }
    };
    AVPacket* packet = av_packet_alloc();
    while (opened && av_read_frame(format, packet) >= 0) {
        const auto index = static_cast<unsigned>(packet->stream_index);
        avcodec_send_packet(decoders[index], packet);
        av_packet_unref(packet);
        take(index);
    }
    for (unsigned i = 0; i < format->nb_streams; ++i) {
        if (opened && avcodec_send_packet(decoders[i], nullptr) >= 0) take(i);
        avcodec_free_context(&decoders[i]);
    }
    av_packet_free(&packet);
    av_frame_free(&frame);
    swr_free(&resampler);
    sws_freeContext(scaler);
    avformat_close_input(&format);
}

double ReadMedia::frequency() const {
    const size_t first = audio.size() / 4, last = audio.size() * 3 / 4;
    int crossings = 0;
    for (size_t i = first + 1; i < last; ++i) crossings += audio[i - 1] < 0 && audio[i] >= 0;
    return last > first ? crossings * static_cast<double>(rate) / static_cast<double>(last - first) : 0;
}

double ReadMedia::rms() const {
    const size_t first = audio.size() / 4, last = audio.size() * 3 / 4;
    double sum = 0;
    for (size_t i = first; i < last; ++i) sum += static_cast<double>(audio[i]) * audio[i];
    return last > first ? std::sqrt(sum / static_cast<double>(last - first)) : 0;
}

double psnr(const std::vector<uint8_t>& luma, int width, const std::function<double(int, int)>& expected) {
    double error = 0;
    int count = 0;
    for (int y = 0; y < static_cast<int>(luma.size()) / width; ++y)
        for (int x = 0; x < width; ++x, ++count) {
            const double difference = luma[static_cast<size_t>(y * width + x)] - expected(x, y);
            error += difference * difference;
        }
    return 10 * std::log10(255.0 * 255.0 / std::max(error / std::max(count, 1), 1e-6));
}

}  // namespace kel_test
