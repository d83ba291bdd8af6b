#include "audio_pipeline.hpp"

#include <algorithm>

#include "failure.hpp"

namespace kel_tool {
namespace {

constexpr uint32_t frames_per_block = 1024;
constexpr int32_t blocks_beyond_queue = 4;  // being mixed, emitted, sent and copied
constexpr int32_t look_around_ms = 200;

}  // namespace

audio_road::audio_road(const session& session, road& road, const std::vector<audio_input>& inputs,
                       const kel_audio_format& format, float gain, const time_span& span)
    : road_(road), format_(format) {
    const auto blocks = static_cast<int32_t>(road.output().audio()->limit()) + blocks_beyond_queue;
    pool_.reset(kel_create_audio_buffer_pool(session.context(), &format, frames_per_block, blocks));
    mixer_.reset(kel_create_audio_mixer(pool_.get()));
    if (!mixer_) throw failure("no mixer for this audio format");
    kel_set_audio_mixer_global_gain(mixer_.get(), gain);
    for (const audio_input& each : inputs) {
        time_span own = span;
        if (own.to != INT64_MAX) own.to -= each.delay;
        tracks_.push_back(
            std::make_unique<audio_track>(*each.input, mixer_.get(), each.filters, own, each.delay));
    }
}

void audio_road::run() {
    while (!road_.stop()) {
        for (size_t i = 0; i < tracks_.size();) {
            if (tracks_[i]->feed()) {
                ++i;
                continue;
            }
            road_.check(tracks_[i]->input());
            road_.stats.worst_drift = std::max(road_.stats.worst_drift, tracks_[i]->worst_drift());
            road_.stats.dropped_frames += tracks_[i]->dropped();
            if (tracks_.size() == 1) {
                send_rest();
                road_.output().audio()->close();
                return;
            }
            tracks_.erase(tracks_.begin() + static_cast<std::ptrdiff_t>(i));
        }
        send_mixed();
    }
    road_.output().audio()->close();
}

bool audio_road::all_full() const {
    return std::all_of(tracks_.begin(), tracks_.end(), [](const auto& track) { return track->room() == 0; });
}

// Sends what is mixed, until a track has room again.
void audio_road::send_mixed() {
    kel_slice mixed;
    while (!road_.stop() && (kel_audio_mixer_has_buffer(mixer_.get()) || all_full())) {
        if (!kel_audio_mixer_has_buffer(mixer_.get())) {
            ++road_.stats.mixed.waits;
            if (kel_wait_for_audio_mixer(mixer_.get(), look_around_ms) != 0) continue;
        }
        kel_get_audio_mixer_slice(mixer_.get(), &mixed);
        send(mixed);
    }
}

void audio_road::send(kel_slice& slice) {
    road_.stats.mixed.note(*pool_);
    const uint32_t frames = slice.spec.audio.nsamples;
    road_.stats.audio_bytes += static_cast<int64_t>(frames) * kel_get_audio_sample_size(&format_);
    road_.audio_pts = static_cast<int64_t>(slice.pts) + kel_get_audio_pts_from_nsamples(format_.rate, frames);
    ++road_.blocks;
    slice_queue& to = *road_.output().audio();
    if (!to.send(slice)) road_.end_early();
    road_.stats.sound.note(to);
}

// The last block is filled up with silence for the mixer, and sent without it.
void audio_road::send_rest() {
    send_mixed();
    const auto rest = static_cast<uint32_t>(kel_get_audio_mixer_buffer_fill(mixer_.get()));
    if (rest == 0) return;
    tracks_.front()->fill_with_silence();
    kel_slice mixed;
    while (!road_.stop()) {
        if (kel_wait_for_audio_mixer(mixer_.get(), look_around_ms) != 0) continue;
        kel_get_audio_mixer_slice(mixer_.get(), &mixed);
        mixed.spec.audio.nsamples = std::min(mixed.spec.audio.nsamples, rest);
        send(mixed);
        return;
    }
}

}  // namespace kel_tool
