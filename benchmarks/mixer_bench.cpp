// Mixing 16-bit stereo tracks into 16-bit buffers, beside SDL's mixing function and FFmpeg's amix.
#include <SDL.h>
#include <kel.h>

#include <memory>
#include <vector>

#include "benchmarks/ffmpeg_graph.hpp"
#include "benchmarks/harness.hpp"

namespace {

using namespace kel_bench;

constexpr kel_audio_format format = {48000, 2, KEL_AUDIO_TYPE_S16LE};

int16_t sample(int track, int i) {
    return static_cast<int16_t>((i * 977 + track * 131) % 4001 - 2000);
}

// A mixer that writes into a pool's one buffer, and the slices that feed its tracks.
class KelMixer {
  public:
    KelMixer(int ntracks, int frames)
        : frames_(frames),
          out_(kel_create_audio_buffer_pool(nullptr, &format, static_cast<uint32_t>(frames), 1)),
          in_(kel_create_audio_buffer_pool(nullptr, &format, static_cast<uint32_t>(frames), ntracks)),
          mixer_(kel_create_audio_mixer(out_)) {
        for (int t = 0; t < ntracks; ++t) {
            tracks_.push_back(kel_acquire_audio_mixer_track(mixer_));
            slices_.push_back(kel_slice_for_buffer(kel_acquire_buffer(in_)));
            auto* samples = static_cast<int16_t*>(slices_.back().spec.audio.samples_start);
            for (int i = 0; i < 2 * frames; ++i) samples[i] = sample(t, i);
        }
    }
    ~KelMixer() {
        for (auto* track : tracks_) kel_release_audio_mixer_track(track);
        kel_destroy_audio_mixer(&mixer_);
        kel_destroy_buffer_pool(&in_);
        kel_destroy_buffer_pool(&out_);
    }
    KelMixer(const KelMixer&) = delete;
    KelMixer& operator=(const KelMixer&) = delete;

    // The samples stay as they are until the next run.
    const int16_t* run() {
        for (size_t t = 0; t < tracks_.size(); ++t) {
            if (kel_feed_audio_mixer_track(tracks_[t], &slices_[t], 0, frames_) != frames_) std::abort();
        }
        kel_slice slice;
        if (kel_get_audio_mixer_slice(mixer_, &slice) != 0) std::abort();
        kel_release_buffer(slice.buffer);
        return static_cast<const int16_t*>(slice.spec.audio.samples_start);
    }
    const uint8_t* source(size_t t) const {
        return static_cast<const uint8_t*>(slices_[t].spec.audio.samples_start);
    }

  private:
    int32_t frames_;
    kel_buffer_pool *out_, *in_;
    kel_audio_mixer* mixer_;
    std::vector<kel_audio_mixer_track*> tracks_;
    std::vector<kel_slice> slices_;
};

void compare(const Options& options, int ntracks, int frames) {
    const auto bytes = static_cast<size_t>(frames) * 4;
    KelMixer mixer(ntracks, frames);
    std::vector<uint8_t> mix(bytes);
    const auto mix_with_sdl = [&] {
        std::memset(mix.data(), 0, bytes);
        for (int t = 0; t < ntracks; ++t) {
            SDL_MixAudioFormat(mix.data(), mixer.source(static_cast<size_t>(t)), AUDIO_S16LSB,
                               static_cast<Uint32>(bytes), SDL_MIX_MAXVOLUME);
        }
    };
    for (int i = 0; i < 3; ++i) mixer.run();
    mix_with_sdl();
    if (std::memcmp(mix.data(), mixer.run(), bytes) != 0) std::abort();  // the same work

    std::string amix, labels;
    for (int t = 0; t < ntracks; ++t) labels += "[in" + std::to_string(t) + "]";
    amix = labels + "amix=normalize=0:inputs=" + std::to_string(ntracks) + ",aformat=sample_fmts=s16[out]";
    FfmpegGraph graph(ntracks, "s16", amix, frames);
    for (int t = 0; t < ntracks; ++t)
        std::memcpy(graph.input(t)->data[0], mixer.source(static_cast<size_t>(t)), bytes);
    graph.run();

    Comparison comparison(
        std::to_string(ntracks) + " tracks, 16-bit stereo, blocks of " + std::to_string(frames) + " frames",
        {"ns a frame and track", 1e9 / (double(frames) * ntracks)});
    comparison.add(Role::subject, "libkel mixer", [&](uint64_t count) {
        while (count--) mixer.run();
    });
    comparison.add(Role::peer, "SDL_MixAudioFormat", [&](uint64_t count) {
        while (count--) mix_with_sdl();
    });
    comparison.add(Role::peer, "FFmpeg amix", [&](uint64_t count) {
        while (count--) {
            if (!graph.run()) std::abort();
        }
    });
    comparison.add(Role::reference, "memory copy of the tracks", [&](uint64_t count) {
        while (count--) {
            for (int t = 0; t < ntracks; ++t)
                std::memcpy(mix.data(), mixer.source(static_cast<size_t>(t)), bytes);
            keep(mix[0]);
        }
    });
    comparison.run(options);
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse_options(argc, argv);
    for (int frames : {1024, 48000}) {
        for (int ntracks : {2, 8, 32}) compare(options, ntracks, frames);
    }
}
