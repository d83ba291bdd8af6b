#include "output.hpp"

#include <chrono>
#include <filesystem>

#include "channels.hpp"
#include "failure.hpp"

namespace fs = std::filesystem;

namespace kel_tool {
namespace {

int bits_of(const kel_audio_format& format) {
    return kel_get_audio_format_bits(&format);
}

}  // namespace

void check_output_path(const std::string& path, const std::vector<std::string>& inputs, bool may_replace) {
    std::error_code ignored;
    if (fs::is_directory(path, ignored)) throw failure(path + ": it is a folder");
    for (const std::string& input : inputs)
        if (fs::equivalent(path, input, ignored)) throw failure(path + ": it is an input, too");
    if (!may_replace && fs::exists(path, ignored))
        throw failure(path + ": it exists already; -y replaces it");
    const fs::path folder = fs::absolute(path).parent_path();
    if (!fs::is_directory(folder, ignored)) throw failure(path + ": there is no folder " + folder.string());
}

media_output::media_output(const session& session, const output_settings& settings)
    : graph_(MmCreateGraph()) {
    kel_filter* reader = graph_ ? kel_create_reader_filter(graph_.get()) : nullptr;
    sink_ = reader ? MmCreateFilter(graph_.get(), MmFileSink()) : nullptr;
    if (!sink_) throw failure("no media graph can be made");
    MmSetResource(reader, "KelContext", session.context());
    MmSetResource(sink_, "Path", settings.path.c_str());
    MmSetResource(sink_, "AudioCodec", settings.audio_codec.c_str());
    MmSetResource(sink_, "VideoCodec", settings.video_codec.c_str());
    MmSetResource(sink_, "VideoOptions", settings.video_options.c_str());
    if (settings.quality >= 0) set_number(sink_, "VideoQuality", settings.quality);
    const auto connect = [&](uint32_t type) {
        if (MmConnect(graph_.get(), output_of(reader, type), input_of(sink_, type)) != 0)
            throw failure(settings.path + ": the graph cannot be put together");
    };
    if (settings.audio) {
        set_number(reader, "AudioSampleRate", settings.audio->rate);
        set_number(reader, "AudioBitDepth", bits_of(*settings.audio));
        set_number(reader, "AudioChannels", settings.audio->channels);
        connect(MM_MEDIA_AUDIO);
        audio_.emplace(resource<kel_queue>(reader, "AudioQueue"));
    }
    if (settings.video) {
        set_number(reader, "VideoWidth", settings.video->width);
        set_number(reader, "VideoHeight", settings.video->height);
        set_number(reader, "VideoFrameRate", settings.frame_rate);
        MmSetResource(reader, "VideoFormat", "NV12");
        connect(MM_MEDIA_VIDEO);
        video_.emplace(resource<kel_queue>(reader, "VideoQueue"));
    }
    MmStart(graph_.get());
    MmResume(graph_.get());
    pump_ = std::thread([this] { pump(); });
}

media_output::~media_output() {
    if (pump_.joinable()) {
        abandon();
        pump_.join();
    }
}

// Pulls the sink until it ends.
void media_output::write() {
    int status;
    while ((status = MmProcess(graph_.get())) == MM_STATUS_PLAYING) continue;
    if (status == MM_STATUS_END_OF_STREAM) return;
    const char* text = resource<char>(sink_, "Error");
    error_ = text ? text : "the output cannot be written";
    if (error_.find("no encoder of video") != std::string::npos)
        error_ += " (--no-video leaves the pictures out)";
    if (error_.find("no encoder of audio") != std::string::npos)
        error_ += " (--no-audio leaves the sound out)";
    failed_ = true;
    if (audio_) audio_->abort();
    if (video_) video_->abort();
}

void media_output::pump() {
    write();
    std::lock_guard lock(mutex_);
    ended_ = true;
    ended_cond_.notify_all();
}

bool media_output::wait(int32_t timeout_ms) {
    std::unique_lock lock(mutex_);
    return ended_cond_.wait_for(lock, std::chrono::milliseconds(timeout_ms), [this] { return ended_; });
}

void media_output::finish() {
    pump_.join();
    if (failed_) throw failure(error_);
}

void media_output::abandon() {
    if (abandoned_.exchange(true) || failed_) return;
    // The sink removes its file when its source fails, and a reader fails at a slice without a buffer.
    if (audio_) audio_->poison();
    if (video_) video_->poison();
}

}  // namespace kel_tool
