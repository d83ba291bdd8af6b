// Any rate to any rate by linear interpolation, in S16LE. The read position is 16.16 fixed point; what is left of it
// and the last frame are carried from block to block.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "audio/convert_kernels.hpp"
#include "audio/steps.hpp"

namespace kel {
namespace {

// Positions of one run of the inner loops stay below 2^32.
constexpr int64_t most_run_position = int64_t{1} << 32;

resampler_step& state_of(kel_audio_step* step) {
    return *reinterpret_cast<resampler_step*>(step);
}

int16_t load(const uint8_t* values, size_t index) {
    int16_t value;
    memcpy(&value, values + 2 * index, sizeof value);
    return value;
}

void store(uint8_t* values, size_t index, int32_t value) {
    const auto low = static_cast<uint16_t>(value);
    memcpy(values + 2 * index, &low, sizeof low);
}

// a + (((b - a) × f) >> 16), with 0 <= f < 65536.
int32_t between(int32_t a, int32_t b, int32_t f) {
    return a + static_cast<int32_t>((static_cast<int64_t>(b - a) * f) >> 16);
}

// Main phase for any number of channels: `frames` frames from position p on.
void interpolate_any(uint8_t* out, const uint8_t* in, int32_t frames, int64_t p, int32_t increment,
                     size_t channels) {
    for (int32_t i = 0; i < frames; ++i, p += increment) {
        const uint8_t* a = in + 2 * channels * static_cast<size_t>(p >> 16);
        for (size_t c = 0; c < channels; ++c)
            store(out, static_cast<size_t>(i) * channels + c,
                  between(load(a, c), load(a, channels + c), static_cast<int32_t>(p & 0xffff)));
    }
}

void interpolate(uint8_t* out, const uint8_t* in, int32_t in_frames, int32_t frames, int64_t p,
                 int32_t increment, size_t channels) {
    if (channels > 2) return interpolate_any(out, in, frames, p, increment, channels);
    const convert_kernels& kernels = best_convert_kernels();
    const auto loop = channels == 1 ? kernels.resample_mono : kernels.resample_stereo;
    const size_t frame_bytes = 2 * channels;
    while (frames > 0) {
        const int64_t base = p >> 16;
        const int64_t start = p & 0xffff;
        const int64_t most = (most_run_position - start - 1) / increment + 1;
        const auto run = static_cast<int32_t>(std::min<int64_t>(frames, most));
        loop(out, in + static_cast<size_t>(base) * frame_bytes, static_cast<size_t>(run),
             static_cast<size_t>(in_frames - base), static_cast<uint32_t>(start),
             static_cast<uint32_t>(increment));
        out += static_cast<size_t>(run) * frame_bytes;
        p += int64_t{run} * increment;
        frames -= run;
    }
}

void resample(resampler_step& own, const uint8_t* in, uint8_t* out, int32_t* offered, int32_t* room,
              kel_audio_format* format) {
    const auto channels = static_cast<size_t>(format->channels);
    const int32_t in_frames = std::max(*offered, 0), space = std::max(*room, 0);
    int64_t p = own.position;
    int32_t written = 0;
    for (; in_frames > 0 && written < space && p < 0; ++written, p += own.increment)
        for (size_t c = 0; c < channels; ++c)
            store(out, static_cast<size_t>(written) * channels + c,
                  between(own.history[c], load(in, c), static_cast<int32_t>(p & 0xffff)));

    // Positions below the last frame have a frame on both sides.
    const int64_t end = int64_t{in_frames - 1} << 16;
    if (p >= 0 && p < end && written < space) {
        const int64_t possible = (end - 1 - p) / own.increment + 1;
        const auto frames = static_cast<int32_t>(std::min<int64_t>(possible, space - written));
        interpolate(out + 2 * channels * static_cast<size_t>(written), in, in_frames, frames, p,
                    own.increment, channels);
        written += frames;
        p += int64_t{frames} * own.increment;
    }

    const int64_t reached = p >> 16;
    int32_t consumed = static_cast<int32_t>(std::clamp<int64_t>(reached, 0, in_frames));
    p -= int64_t{consumed} << 16;
    if (in_frames > 0 && reached == in_frames - 1) {
        memcpy(own.history, in + 2 * channels * static_cast<size_t>(reached), 2 * channels);
        p -= 65536;
        consumed = in_frames;
    }
    own.position = static_cast<int32_t>(p);
    *offered = consumed;
    *room = written;
    format->rate = own.output_rate;
}

}  // namespace

void rate_resample_s16le(kel_audio_step* step, const void* in, void* out, int32_t* offered, int32_t* room,
                         kel_audio_format* format) {
    resample(state_of(step), static_cast<const uint8_t*>(in), static_cast<uint8_t*>(out), offered, room,
             format);
}

void rate_resample_s16le_mono(kel_audio_step* step, const void* in, void* out, int32_t* offered,
                              int32_t* room, kel_audio_format* format) {
    rate_resample_s16le(step, in, out, offered, room, format);
}

void rate_resample_s16le_stereo(kel_audio_step* step, const void* in, void* out, int32_t* offered,
                                int32_t* room, kel_audio_format* format) {
    rate_resample_s16le(step, in, out, offered, room, format);
}

kel_audio_step* resampler_create(const kel_audio_format* from, const kel_audio_format* to) {
    const int64_t increment = from->rate > 0 && to->rate > 0 ? int64_t{from->rate} * 65536 / to->rate : 0;
    if (increment < 1 || increment > INT32_MAX || from->channels < 1) {
        errno = EINVAL;
        return nullptr;
    }
    auto own = make_record<resampler_step>();
    if (!own) return nullptr;
    auto history = make_records<int16_t>(static_cast<size_t>(from->channels));
    if (!history) return nullptr;
    own->step.kernel = from->channels == 1   ? rate_resample_s16le_mono
                       : from->channels == 2 ? rate_resample_s16le_stereo
                                             : rate_resample_s16le;
    own->step.release = resampler_release;
    own->increment = static_cast<int32_t>(increment);
    own->output_rate = to->rate;
    own->history = history.release();
    return &own.release()->step;
}

void resampler_release(kel_audio_step* step) {
    free(state_of(step).history);
    free(step);
}

}  // namespace kel
