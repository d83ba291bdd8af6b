#include "mm/stream_encoder.hpp"

#include "mm/stream_decoder.hpp"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace platform::mmf {

stream_encoder::stream_encoder(output_file& file)
    : file_(file), packet_(av_packet_alloc()), frame_(av_frame_alloc()) {}

stream_encoder::~stream_encoder() {
    av_frame_free(&frame_);
    av_packet_free(&packet_);
    avcodec_free_context(&context_);
}

// Opens the encoder whose parameters were set, and gives the file its stream.
bool stream_encoder::open(const encoder_settings& settings, std::string& error) {
    if (file_.wants_global_headers()) context_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    context_->thread_count = settings.threads;
    context_->log_level_offset = AV_LOG_ERROR;  // only errors are worth a line on the terminal
    AVDictionary* options = nullptr;
    int status = av_dict_parse_string(&options, settings.options.c_str(), "=", ":", 0);
    if (status >= 0) status = avcodec_open2(context_, codec_, &options);
    const AVDictionaryEntry* unknown = av_dict_get(options, "", nullptr, AV_DICT_IGNORE_SUFFIX);
    const std::string left_over = unknown ? unknown->key : "";
    av_dict_free(&options);
    if (status >= 0 && !left_over.empty()) {
        error = std::string(codec_->name) + " has no option " + left_over;
        return false;
    }
    stream_ = status >= 0 ? file_.add_stream() : nullptr;
    if (status >= 0)
        status = stream_ ? avcodec_parameters_from_context(stream_->codecpar, context_) : AVERROR(ENOMEM);
    if (status < 0) {
        error = std::string(codec_->name) + ": " + error_text(status);
        return false;
    }
    stream_->time_base = context_->time_base;
    stream_->avg_frame_rate = context_->framerate;
    return true;
}

bool stream_encoder::encode(const AVFrame* frame, std::string& error) {
    int status = avcodec_send_frame(context_, frame);
    while (status >= 0) {
        status = avcodec_receive_packet(context_, packet_);
        if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) return true;
        if (status < 0) break;
        av_packet_rescale_ts(packet_, context_->time_base, stream_->time_base);
        packet_->stream_index = stream_->index;
        if (!file_.write(packet_, error)) return false;
    }
    if (status == AVERROR_EOF) return true;  // it was drained before
    error = std::string(codec_->name) + ": " + error_text(status);
    return false;
}

}  // namespace platform::mmf
