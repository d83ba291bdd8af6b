// What a file source says of its outputs.
#pragma once

#include <mm/mmf.h>

#include <cmath>

#include "mm/frame_stream.hpp"
#include "mm/pcm_stream.hpp"

namespace platform::mmf {

inline constexpr int frames_per_buffer = 1024;
inline constexpr uint32_t audio_fourcc = 0x52415741;
inline constexpr uint32_t video_fourcc = 'N' | 'V' << 8 | '1' << 16 | static_cast<uint32_t>('2') << 24;
inline constexpr uint32_t own_stride_flag = 8;

inline void add_audio(kel_channel_format& format, const pcm_format& pcm) {
    format.media_type = MM_MEDIA_AUDIO;
    format.fourcc = audio_fourcc;
    format.audio.channels = pcm.channels;
    format.audio.bits_per_sample = pcm.bits;
    format.audio.rate = pcm.rate;
    format.bit_rate = static_cast<uint32_t>(pcm.rate * pcm.channels * pcm.bits);
    format.buffer_size = pcm.frame_bytes() * frames_per_buffer;
}

inline void add_video(kel_channel_format& format, const picture_stream& video) {
    format.media_type = MM_MEDIA_VIDEO;
    format.fourcc = video_fourcc;
    format.video.width = video.width();
    format.video.height = video.height();
    format.video.bits_per_pixel = 12;
    format.video.frame_rate = static_cast<int>(std::lround(video.decoder().frame_rate()));
    format.buffer_size = video.width() * video.height() * 3 / 2;
    format.flags = own_stride_flag;
}

}  // namespace platform::mmf
