#include "mm/output_file.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "mm/stream_decoder.hpp"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace platform::mmf {

std::unique_ptr<output_file> output_file::create(const std::string& path, std::string& error) {
    std::unique_ptr<output_file> file(new output_file);
    file->path_ = path;
    const AVOutputFormat* container = av_guess_format(nullptr, path.c_str(), nullptr);
    if (!container) {
        error = "its name tells of no kind of media file";
        return nullptr;
    }
    const int status = avformat_alloc_output_context2(&file->format_, container, nullptr, path.c_str());
    if (status < 0) {
        error = error_text(status);
        return nullptr;
    }
    // The pictures of a sequence are files of their own; the muxer names each when it is whole.
    file->part_path_ = file->is_sequence() ? path : path + ".part";
    return file;
}

output_file::~output_file() {
    if (!format_) return;
    if (opened_) avio_closep(&format_->pb);
    if (opened_ && !finished_) std::remove(part_path_.c_str());
    avformat_free_context(format_);
}

bool output_file::is_sequence() const {
    return (format_->oformat->flags & AVFMT_NOFILE) != 0;
}

const AVCodec* output_file::encoder(int media_type, const std::string& name, std::string& error) const {
    const auto type = static_cast<AVMediaType>(media_type);
    const AVCodecID usual = av_guess_codec(format_->oformat, nullptr, path_.c_str(), nullptr, type);
    const AVCodec* codec =
        name.empty() ? avcodec_find_encoder(usual) : avcodec_find_encoder_by_name(name.c_str());
    if (codec && codec->type == type && usual != AV_CODEC_ID_NONE) return codec;
    error = "no encoder of " + std::string(av_get_media_type_string(type)) + " for it" +
            (name.empty() ? "" : " is named " + name);
    return nullptr;
}

bool output_file::wants_global_headers() const {
    return (format_->oformat->flags & AVFMT_GLOBALHEADER) != 0;
}

AVStream* output_file::add_stream() {
    return avformat_new_stream(format_, nullptr);
}

bool output_file::start(std::string& error) {
    int status = 0;
    if (!is_sequence()) {
        status = avio_open(&format_->pb, ("file:" + part_path_).c_str(), AVIO_FLAG_WRITE);
        opened_ = status >= 0;
    }
    AVDictionary* options = nullptr;
    if (is_sequence()) av_dict_set(&options, "atomic_writing", "1", 0);
    if (status >= 0) status = avformat_write_header(format_, &options);
    av_dict_free(&options);
    started_ = status >= 0;
    if (!started_) error = error_text(status);
    return started_;
}

bool output_file::write(AVPacket* packet, std::string& error) {
    const int status = av_interleaved_write_frame(format_, packet);
    if (status < 0) error = error_text(status);
    return status >= 0;
}

bool output_file::finish(std::string& error) {
    int status = started_ ? av_write_trailer(format_) : AVERROR(EINVAL);
    if (opened_) {
        const int closed = avio_closep(&format_->pb);
        if (status >= 0) status = closed;
    }
    if (status >= 0 && !is_sequence() && std::rename(part_path_.c_str(), path_.c_str()) != 0)
        status = AVERROR(errno);
    finished_ = status >= 0;
    if (!finished_) error = error_text(status);
    return finished_;
}

}  // namespace platform::mmf
