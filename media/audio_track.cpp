#include "audio_track.hpp"

#include <algorithm>
#include <cstdlib>

#include "failure.hpp"

namespace kel_tool {
namespace {

// A conversion of the rate runs ahead of the input's time by some frames a minute, since its step is a fraction of 16
// bits, rounded down. What runs ahead by more than this loses one frame a slice until it is back.
constexpr int64_t most_drift = 5000;  // microseconds

// A hole in the input's time of this length becomes silence; a longer one is a broken clock, a shorter one is jitter.
constexpr int64_t shortest_hole = 50000;     // microseconds
constexpr int64_t longest_hole = 600000000;  // microseconds

kel_audio_format pcm_format(const media_input& input) {
    const auto& audio = input.audio()->audio;
    return {audio.rate, audio.channels, KEL_AUDIO_TYPE_S24_8LE};
}

}  // namespace

audio_track::audio_track(media_input& input, kel_audio_mixer* mixer, const std::vector<filter_spec>& filters,
                         const time_span& span, int64_t delay)
    : input_(input),
      span_(span),
      delay_(delay),
      format_(pcm_format(input)),
      mixer_rate_(kel_get_audio_mixer_format(mixer)->rate),
      track_(nullptr),
      filters_(filters, format_),
      needs_narrow_(kel_audio_formats_differ(&format_, kel_get_audio_mixer_format(mixer)) != 0) {
    track_ = kel_acquire_audio_mixer_track(mixer);
    if (!track_) throw failure("the mixer cannot have another track");
}

bool audio_track::feed() {
    for (int32_t left; (left = room()) > 0;) {
        if (silence_ > 0) {
            silence_ -= kel_feed_audio_mixer_track_silence(
                track_, static_cast<int32_t>(std::min<int64_t>(left, silence_)));
            continue;
        }
        if (start_ >= static_cast<int32_t>(slice_.spec.audio.nsamples) || !slice_.buffer) {
            if (!read()) return false;
            continue;
        }
        const uint64_t before = kel_get_audio_mixer_track_pts_in_samples(track_);
        const int32_t taken = kel_feed_audio_mixer_track(track_, &slice_, start_, left);
        if (taken < 0 || (taken == 0 && kel_get_audio_mixer_track_pts_in_samples(track_) == before))
            throw failure(input_.path() + ": its audio cannot be converted");
        start_ += taken;
    }
    return true;
}

bool audio_track::read() {
    if (!input_.read_audio(slice_) || static_cast<int64_t>(slice_.pts) >= span_.to) {
        slice_.buffer = nullptr;
        return false;
    }
    cut_end();
    filters_.apply(slice_);
    if (needs_narrow_) narrow();
    start_ = 0;
    keep_time();
    return true;
}

// Rates and channels are converted in 16 bits: brings the slice there.
void audio_track::narrow() {
    if (!narrow_) {
        kel_audio_format narrow_format = format_;
        narrow_format.type = KEL_AUDIO_TYPE_S16LE;
        const kel_buffer_pool& pool = *slice_.buffer->pool;
        narrow_.reset(kel_create_audio_converter(&format_, &narrow_format));
        narrow_pool_.reset(
            kel_create_audio_buffer_pool(pool.context, &narrow_format, pool.format.nsamples, 1));
        narrow_buffer_.reset(kel_acquire_buffer(narrow_pool_.get()));
        if (!narrow_ || !narrow_buffer_) throw failure(input_.path() + ": its audio cannot be converted");
    }
    kel_audio_conversion conversion;
    const auto frames = static_cast<int32_t>(slice_.spec.audio.nsamples);
    kel_init_audio_conversion(&conversion, slice_.spec.audio.samples_start,
                              frames * kel_get_audio_sample_size(&format_), narrow_buffer_->ptr,
                              static_cast<int32_t>(narrow_buffer_->size));
    if (kel_convert_audio(narrow_.get(), &conversion) != 0 || conversion.produced_frames != frames)
        throw failure(input_.path() + ": its audio cannot be converted");
    slice_.buffer = narrow_buffer_.get();
    slice_.spec.audio.samples_start = narrow_buffer_->ptr;
}

void audio_track::cut_end() {
    uint32_t& frames = slice_.spec.audio.nsamples;
    const int64_t left = span_.to - static_cast<int64_t>(slice_.pts);
    if (left < kel_get_audio_pts_from_nsamples(format_.rate, frames))
        frames = static_cast<uint32_t>(kel_get_audio_nsamples_from_pts(format_.rate, left));
}

// Compares where the slice belongs with where the track is.
void audio_track::keep_time() {
    const int64_t wanted = static_cast<int64_t>(slice_.pts) - span_.from + delay_;
    const auto position = static_cast<int64_t>(kel_get_audio_mixer_track_pts_in_samples(track_));
    const int64_t hole = wanted - kel_get_audio_pts_from_nsamples(mixer_rate_, position);
    const auto frames = static_cast<int64_t>(slice_.spec.audio.nsamples);
    if (!started_ && hole < 0) {
        start_ = static_cast<int32_t>(std::min(frames, kel_get_audio_nsamples_from_pts(format_.rate, -hole)));
        started_ = start_ < frames;
        return;
    }
    if (hole > 0 && hole <= longest_hole && (!started_ || hole >= shortest_hole)) {
        silence_ = kel_get_audio_nsamples_from_pts(mixer_rate_, hole);
    } else if (hole < -most_drift) {
        start_ = 1;
        ++dropped_;
    }
    if (started_ && std::abs(hole) < shortest_hole) worst_drift_ = std::max(worst_drift_, std::abs(hole));
    started_ = true;
}

}  // namespace kel_tool
