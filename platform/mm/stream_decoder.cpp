#include "mm/stream_decoder.hpp"

#include <cmath>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

namespace platform::mmf {
namespace {

constexpr AVRational microseconds = {1, 1000000};

// A file that yields nothing but errors ends after so many in a row.
constexpr int most_errors_in_a_row = 1000;

}  // namespace

std::string error_text(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return text;
}

stream_decoder::stream_decoder() : packet_(av_packet_alloc()), frame_(av_frame_alloc()) {}

stream_decoder::~stream_decoder() {
    av_frame_free(&frame_);
    av_packet_free(&packet_);
    avcodec_free_context(&codec_);
    avformat_close_input(&format_);
}

std::unique_ptr<stream_decoder> stream_decoder::open(const std::string& path, kind wanted, int threads,
                                                     std::string& error) {
    std::unique_ptr<stream_decoder> decoder(new stream_decoder);
    if (!decoder->packet_ || !decoder->frame_) {
        error = error_text(AVERROR(ENOMEM));
        return nullptr;
    }
    // Files and nothing else: neither a name nor what a playlist names may reach the network.
    const std::string url = "file:" + path;
    AVDictionary* options = nullptr;
    int status = av_dict_set(&options, "protocol_whitelist", "file", 0);
    if (status >= 0) status = avformat_open_input(&decoder->format_, url.c_str(), nullptr, &options);
    av_dict_free(&options);
    if (status >= 0) status = avformat_find_stream_info(decoder->format_, nullptr);
    if (status < 0) {
        error = error_text(status);
        return nullptr;
    }
    const AVMediaType type = wanted == kind::audio ? AVMEDIA_TYPE_AUDIO : AVMEDIA_TYPE_VIDEO;
    const AVCodec* codec = nullptr;
    const int index = av_find_best_stream(decoder->format_, type, -1, -1, &codec, 0);
    if (index < 0 || !codec) return nullptr;
    decoder->stream_ = decoder->format_->streams[index];
    for (unsigned i = 0; i < decoder->format_->nb_streams; ++i)
        if (static_cast<int>(i) != index) decoder->format_->streams[i]->discard = AVDISCARD_ALL;
    decoder->codec_ = avcodec_alloc_context3(codec);
    if (!decoder->codec_) {
        error = error_text(AVERROR(ENOMEM));
        return nullptr;
    }
    status = avcodec_parameters_to_context(decoder->codec_, decoder->stream_->codecpar);
    decoder->codec_->pkt_timebase = decoder->stream_->time_base;
    decoder->codec_->thread_count = threads;
    if (status >= 0) status = avcodec_open2(decoder->codec_, codec, nullptr);
    if (status < 0) {
        error = error_text(status);
        return nullptr;
    }
    return decoder;
}

void stream_decoder::leave_out(const std::string& why) {
    damage_ = std::to_string(++damaged_parts_) + " damaged parts left out: " + why;
}

// Hands the decoder its next packet. False when there is none and the decoder drains already.
bool stream_decoder::send_next_packet() {
    for (int errors = 0; errors < most_errors_in_a_row;) {
        int status = av_read_frame(format_, packet_);
        if (status == AVERROR(EAGAIN)) continue;
        if (status < 0) {
            if (status != AVERROR_EOF) damage_ = "the file ends early: " + error_text(status);
            break;
        }
        if (packet_->stream_index != stream_->index) {
            av_packet_unref(packet_);
            continue;
        }
        if (packet_->flags & AV_PKT_FLAG_CORRUPT) leave_out("a packet is cut off");
        status = avcodec_send_packet(codec_, packet_);
        av_packet_unref(packet_);
        if (status >= 0) return true;
        ++errors;
        leave_out(error_text(status));
    }
    if (draining_) return false;
    draining_ = true;
    const int status = avcodec_send_packet(codec_, nullptr);
    if (status < 0) leave_out("what the decoder still held: " + error_text(status));
    return status >= 0;
}

// Whether the decoder had a frame ready, or gave one after more packets.
bool stream_decoder::receive() {
    for (;;) {
        const int status = avcodec_receive_frame(codec_, frame_);
        if (status >= 0) return true;
        if (status == AVERROR_EOF) return false;
        if (status != AVERROR(EAGAIN)) {
            leave_out(error_text(status));
            if (draining_) return false;
        }
        if (!send_next_packet()) return false;
    }
}

void stream_decoder::set_pts() {
    const int64_t start = format_->start_time == AV_NOPTS_VALUE ? 0 : format_->start_time;
    if (frame_->best_effort_timestamp == AV_NOPTS_VALUE)
        pts_ = next_pts_;
    else
        pts_ = av_rescale_q(frame_->best_effort_timestamp, stream_->time_base, microseconds) - start;
    int64_t length = 0;
    if (frame_->nb_samples > 0)
        length = av_rescale(frame_->nb_samples, 1000000, std::max(frame_->sample_rate, 1));
    else if (frame_->pkt_duration > 0)
        length = av_rescale_q(frame_->pkt_duration, stream_->time_base, microseconds);
    else if (frame_rate() > 0)
        length = std::llround(1000000 / frame_rate());
    next_pts_ = pts_ + length;
}

stream_decoder::result stream_decoder::next() {
    while (receive()) {
        set_pts();
        if (next_pts_ <= skip_until_) continue;
        skip_until_ = -1;
        pts_ = std::max<int64_t>(pts_, 0);
        return result::frame;
    }
    return result::end;
}

bool stream_decoder::seek(int64_t position) {
    const int64_t start = format_->start_time == AV_NOPTS_VALUE ? 0 : format_->start_time;
    const int status = avformat_seek_file(format_, -1, INT64_MIN, position + start, position + start, 0);
    if (status < 0) return false;
    avcodec_flush_buffers(codec_);
    draining_ = false;
    skip_until_ = position;
    next_pts_ = position;
    return true;
}

int64_t stream_decoder::duration() const {
    if (format_->duration != AV_NOPTS_VALUE) {
        // Matroska counts from its time zero, not from its first frame.
        const bool from_zero = std::strncmp(format_->iformat->name, "matroska", 8) == 0;
        const int64_t before = from_zero && format_->start_time != AV_NOPTS_VALUE ? format_->start_time : 0;
        return std::max<int64_t>(format_->duration - before, 0);
    }
    if (stream_->duration == AV_NOPTS_VALUE) return 0;
    return av_rescale_q(stream_->duration, stream_->time_base, microseconds);
}

double stream_decoder::frame_rate() const {
    const AVRational rate = stream_->avg_frame_rate.num > 0 ? stream_->avg_frame_rate : stream_->r_frame_rate;
    return rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0;
}

int stream_decoder::rotation() const {
    size_t size = 0;
    const auto* matrix =
        reinterpret_cast<const int32_t*>(av_stream_get_side_data(stream_, AV_PKT_DATA_DISPLAYMATRIX, &size));
    if (!matrix || size < 9 * sizeof(int32_t)) return 0;
    const double counter_clockwise = av_display_rotation_get(matrix);
    if (std::isnan(counter_clockwise)) return 0;
    const int quarters = static_cast<int>(std::lround(-counter_clockwise / 90));
    return ((quarters % 4 + 4) % 4) * 90;
}

}  // namespace platform::mmf
