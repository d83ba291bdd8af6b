#include "input.hpp"

#include <algorithm>
#include <cstdio>

#include "channels.hpp"
#include "failure.hpp"

namespace kel_tool {
namespace {

// Files may be wrong about their length by this much and a tenth.
constexpr int64_t tolerance = 1000000;  // microseconds

}  // namespace

media_input::media_input(const session& session, const std::string& path, const media_wishes& wishes)
    : path_(path), graph_(MmCreateGraph()) {
    source_ = graph_ ? MmCreateFilter(graph_.get(), MmFileSource()) : nullptr;
    kel_filter* writer = source_ ? kel_create_writer_filter(graph_.get()) : nullptr;
    if (!writer) throw failure("no media graph can be made");
    set_number(source_, "AudioBitDepth", wishes.audio_bits);
    if (MmSetResource(source_, "Path", path.c_str()) != 0) throw failure(last_event());
    left_out_ = last_event();

    kel_channel* audio = wishes.audio ? output_of(source_, MM_MEDIA_AUDIO) : nullptr;
    kel_channel* video = wishes.video ? output_of(source_, MM_MEDIA_VIDEO) : nullptr;
    if (!audio && !video)
        throw failure(path + (wishes.audio ? wishes.video ? ": no audio or video in it" : ": no audio in it"
                                           : ": no video in it"));
    MmSetResource(writer, "KelContext", session.context());
    set_number(writer, "AudioChannelCount", audio ? 1 : 0);
    set_number(writer, "VideoChannelCount", video ? 1 : 0);
    set_number(writer, "MinVideoBuffers", wishes.video_buffers);
    if (audio) audio_ = connect(audio, input_of(writer, MM_MEDIA_AUDIO));
    if (video) video_ = connect(video, input_of(writer, MM_MEDIA_VIDEO));
    open_streams_ = (audio_ != nullptr) + (video_ != nullptr);
    MmStart(graph_.get());
    MmResume(graph_.get());
}

media_input::~media_input() = default;

kel_channel* media_input::connect(kel_channel* output, kel_channel* input) {
    if (!input || MmConnect(graph_.get(), output, input) != 0)
        throw failure(path_ + ": its " + (output->format.media_type == MM_MEDIA_AUDIO ? "audio" : "video") +
                      " cannot be taken in");
    return input;
}

int64_t media_input::duration() const {
    const auto* duration = resource<int64_t>(source_, "Duration");
    return duration ? *duration : 0;
}

const kel_channel_format* media_input::audio() const {
    return audio_ ? kel_writer_get_format(audio_) : nullptr;
}

const kel_channel_format* media_input::video() const {
    return video_ ? kel_writer_get_format(video_) : nullptr;
}

void media_input::seek(int64_t pts) {
    if (MmSeek(graph_.get(), static_cast<uint64_t>(pts)) != 0)
        throw failure(path_ + ": it cannot be positioned");
}

bool media_input::read(kel_channel* channel, kel_slice& slice) {
    while (kel_writer_read_slice(channel, &slice) == 0)
        if (slice.buffer) return true;
    --open_streams_;
    return false;
}

bool media_input::read_audio(kel_slice& slice) {
    if (!read(audio_, slice)) return false;
    audio_end_ = static_cast<int64_t>(slice.pts) +
                 kel_get_audio_pts_from_nsamples(audio()->audio.rate, slice.spec.audio.nsamples);
    return true;
}

bool media_input::read_video(kel_slice& slice) {
    if (!read(video_, slice)) return false;
    video_end_ = static_cast<int64_t>(slice.pts);
    return true;
}

std::string media_input::damage() {
    std::string event = last_event();
    const int64_t end = std::max<int64_t>(audio_end_, video_end_);
    if (!event.empty() || open_streams_ > 0 || end == 0 || end + tolerance + end / 10 >= duration())
        return event;
    char text[100];
    std::snprintf(text, sizeof text, ": it ends early, at %.1f of %.1f seconds",
                  static_cast<double>(end) / 1e6, static_cast<double>(duration()) / 1e6);
    return path_ + text;
}

// What the source has to say, the newest word of it.
std::string media_input::last_event() {
    std::string last;
    char text[1000];
    kel_filter* filter = nullptr;
    for (int type = 0; MmNextEvent(graph_.get(), &filter, &type, text, sizeof text) == 0;) last = text;
    return last;
}

}  // namespace kel_tool
