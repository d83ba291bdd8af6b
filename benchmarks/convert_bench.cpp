// The audio converter beside libswresample, SDL's audio stream and GStreamer's converter, block after block of one
// stream. The reference is memcpy moving as many bytes as the conversion reads and writes.
#include <SDL2/SDL.h>
#include <gst/audio/audio.h>
#include <kel.h>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <random>

#include "benchmarks/harness.hpp"

namespace {

using namespace kel_bench;

// What a peer calls a sample type, 32-bit ones for S24.8LE; 0 or -1 where it has none.
struct PeerType {
    AVSampleFormat swr = AV_SAMPLE_FMT_NONE;
    SDL_AudioFormat sdl = 0;
    GstAudioFormat gst = GST_AUDIO_FORMAT_UNKNOWN;
};

PeerType peer_type(uint32_t type) {
    switch (type) {
        case KEL_AUDIO_TYPE_U8:
            return {AV_SAMPLE_FMT_U8, AUDIO_U8, GST_AUDIO_FORMAT_U8};
        case KEL_AUDIO_TYPE_S8:
            return {AV_SAMPLE_FMT_NONE, AUDIO_S8, GST_AUDIO_FORMAT_S8};
        case KEL_AUDIO_TYPE_S16LE:
            return {AV_SAMPLE_FMT_S16, AUDIO_S16LSB, GST_AUDIO_FORMAT_S16LE};
        case KEL_AUDIO_TYPE_S16BE:
            return {AV_SAMPLE_FMT_NONE, AUDIO_S16MSB, GST_AUDIO_FORMAT_S16BE};
        case KEL_AUDIO_TYPE_U16LE:
            return {AV_SAMPLE_FMT_NONE, AUDIO_U16LSB, GST_AUDIO_FORMAT_U16LE};
        default:
            return {AV_SAMPLE_FMT_S32, AUDIO_S32LSB, GST_AUDIO_FORMAT_S32LE};
    }
}

// One stream that is converted in blocks of `frames`.
struct Stream {
    kel_audio_format from, to;
    int frames, capacity;  // input frames, and output frames: more than they can become
    std::vector<uint8_t> in, out;

    Stream(const kel_audio_format& source, const kel_audio_format& target, int block)
        : from(source),
          to(target),
          frames(block),
          capacity(block * std::max(1, (target.rate + source.rate - 1) / source.rate) + 64),
          in(static_cast<size_t>(block * kel_get_audio_sample_size(&source))),
          out(static_cast<size_t>(capacity * kel_get_audio_sample_size(&target))) {
        std::mt19937 random(1);
        for (uint8_t& byte : in) byte = static_cast<uint8_t>(random());
    }

    size_t moved_bytes() const {
        const int64_t produced = int64_t{frames} * to.rate / from.rate;
        return (in.size() + static_cast<size_t>(produced * kel_get_audio_sample_size(&to))) / 2;
    }
};

void add_kel(Comparison& comparison, Stream& s) {
    kel_audio_converter* converter = kel_create_audio_converter(&s.from, &s.to);
    if (!converter) std::abort();
    comparison.add(Role::subject, "kel_convert_audio", [&s, converter](uint64_t count) {
        kel_audio_conversion block;
        for (; count > 0; --count) {
            kel_init_audio_conversion(&block, s.in.data(), static_cast<int32_t>(s.in.size()), s.out.data(),
                                      static_cast<int32_t>(s.out.size()));
            kel_convert_audio(converter, &block);
            keep(block);
        }
    });
}

// `linear`: as few taps as it has, instead of its default filter.
void add_swr(Comparison& comparison, Stream& s, bool linear) {
    const PeerType from = peer_type(s.from.type), to = peer_type(s.to.type);
    if (from.swr < 0 || to.swr < 0) return;
    AVChannelLayout in, out;
    av_channel_layout_default(&in, s.from.channels);
    av_channel_layout_default(&out, s.to.channels);
    SwrContext* swr = nullptr;
    swr_alloc_set_opts2(&swr, &out, to.swr, s.to.rate, &in, from.swr, s.from.rate, 0, nullptr);
    if (linear) {
        av_opt_set_int(swr, "filter_size", 2, 0);
        av_opt_set_int(swr, "linear_interp", 1, 0);
        av_opt_set_int(swr, "phase_shift", 1, 0);
    }
    if (swr_init(swr) < 0) std::abort();
    comparison.add(Role::peer, linear ? "libswresample, 2 taps" : "libswresample", [&s, swr](uint64_t count) {
        for (; count > 0; --count) {
            const uint8_t* source = s.in.data();
            uint8_t* target = s.out.data();
            if (swr_convert(swr, &target, s.capacity, &source, s.frames) < 0) std::abort();
        }
    });
}

void add_sdl(Comparison& comparison, Stream& s) {
    SDL_AudioStream* stream =
        SDL_NewAudioStream(peer_type(s.from.type).sdl, static_cast<Uint8>(s.from.channels), s.from.rate,
                           peer_type(s.to.type).sdl, static_cast<Uint8>(s.to.channels), s.to.rate);
    if (!stream) return;
    comparison.add(Role::peer, "SDL_AudioStream", [&s, stream](uint64_t count) {
        for (; count > 0; --count) {
            SDL_AudioStreamPut(stream, s.in.data(), static_cast<int>(s.in.size()));
            if (SDL_AudioStreamGet(stream, s.out.data(), static_cast<int>(s.out.size())) < 0) std::abort();
        }
    });
}

void add_gst(Comparison& comparison, Stream& s) {
    GstAudioInfo in, out;
    gst_audio_info_set_format(&in, peer_type(s.from.type).gst, s.from.rate, s.from.channels, nullptr);
    gst_audio_info_set_format(&out, peer_type(s.to.type).gst, s.to.rate, s.to.channels, nullptr);
    GstAudioConverter* converter = gst_audio_converter_new(GST_AUDIO_CONVERTER_FLAG_NONE, &in, &out, nullptr);
    if (!converter) return;
    comparison.add(Role::peer, "GstAudioConverter", [&s, converter](uint64_t count) {
        const auto frames = static_cast<gsize>(s.frames);
        for (; count > 0; --count) {
            gpointer source[] = {s.in.data()}, target[] = {s.out.data()};
            const gsize produced = gst_audio_converter_get_out_frames(converter, frames);
            gst_audio_converter_samples(converter, GST_AUDIO_CONVERTER_FLAG_NONE, source, frames, target,
                                        produced);
        }
    });
}

void compare(const char* title, const kel_audio_format& from, const kel_audio_format& to, int frames,
             const Options& options) {
    Stream stream(from, to, frames);
    Comparison comparison(std::string(title) + ", blocks of " + std::to_string(frames) + " frames",
                          {"ns a frame", 1e9 / frames});
    add_kel(comparison, stream);
    add_swr(comparison, stream, false);
    if (from.rate != to.rate) add_swr(comparison, stream, true);
    add_sdl(comparison, stream);
    add_gst(comparison, stream);
    std::vector<uint8_t> copy_in(stream.moved_bytes()), copy_out(stream.moved_bytes());
    comparison.add(Role::reference, "memcpy of as many bytes", [&](uint64_t count) {
        for (; count > 0; --count) {
            std::memcpy(copy_out.data(), copy_in.data(), copy_in.size());
            keep(*copy_out.data());
        }
    });
    comparison.run(options);
}

}  // namespace

int main(int argc, char** argv) {
    constexpr uint32_t S16 = KEL_AUDIO_TYPE_S16LE, S24 = KEL_AUDIO_TYPE_S24_8LE;
    const struct {
        const char* title;
        kel_audio_format from, to;
    } conversions[] = {
        {"S16LE to S24.8LE", {48000, 2, S16}, {48000, 2, S24}},
        {"S24.8LE to S16LE", {48000, 2, S24}, {48000, 2, S16}},
        {"S16BE to S16LE", {48000, 2, KEL_AUDIO_TYPE_S16BE}, {48000, 2, S16}},
        {"U16LE to S16LE", {48000, 2, KEL_AUDIO_TYPE_U16LE}, {48000, 2, S16}},
        {"S8 to S16LE", {48000, 2, KEL_AUDIO_TYPE_S8}, {48000, 2, S16}},
        {"S16LE to S8", {48000, 2, S16}, {48000, 2, KEL_AUDIO_TYPE_S8}},
        {"U8 to S8", {48000, 2, KEL_AUDIO_TYPE_U8}, {48000, 2, KEL_AUDIO_TYPE_S8}},
        {"stereo to mono, S16LE", {48000, 2, S16}, {48000, 1, S16}},
        {"mono to stereo, S16LE", {48000, 1, S16}, {48000, 2, S16}},
        {"22050 to 44100 Hz, S16LE", {22050, 2, S16}, {44100, 2, S16}},
        {"44100 to 22050 Hz, S16LE", {44100, 2, S16}, {22050, 2, S16}},
        {"48000 to 44100 Hz, S16LE", {48000, 2, S16}, {44100, 2, S16}},
        {"44100 to 48000 Hz, S16LE", {44100, 2, S16}, {48000, 2, S16}},
        {"48000 to 44100 Hz, mono S16LE", {48000, 1, S16}, {44100, 1, S16}},
    };
    const Options options = parse_options(argc, argv);
    gst_init(nullptr, nullptr);
    for (const auto& c : conversions)
        for (const int frames : {1024, c.from.rate}) compare(c.title, c.from, c.to, frames, options);
    return 0;
}
