// The reader's state and its channels.
#pragma once

#include <kel.h>
#include <mm/mmf.h>
#include <pthread.h>

#include <cstdint>

#include "graph/filters.hpp"

struct kel_reader_state {
    kel_filter_head head;
    uint8_t channel_count;
    kel_queue* audio_queue;  // owned
    kel_queue* video_queue;  // owned
    int32_t status;          // MM_STATUS_*; changed under status_mutex, read by NextBuffer without it
    pthread_mutex_t status_mutex;
    int32_t audio_rate;
    int32_t audio_channels;
    int32_t audio_bits;
    int32_t video_width;
    int32_t video_height;
    int32_t video_frame_rate;
    char video_fourcc[5];  // "VideoFormat": four characters and the end
    int32_t video_depth;
    mmf_resource* resources;  // owned
};

// The reader's own record of an output channel.
struct kel_reader_channel {
    const kel_allocator_interface* allocator;
    kel_mmf_pool* pool;
    mmf_mra_pool* mra_pool;
    int32_t buffer_size;             // bytes
    uint8_t use_destination_stride;  // rows go at the destination buffer's own stride
    pthread_mutex_t mutex;           // guards the two flags below
    uint8_t discontinuity_pending;
    uint8_t end_of_stream;
};

namespace kel {

// Bits of a status in which the reader takes slices from its queues.
inline constexpr int32_t dequeuing_statuses = 0x7E5;

// Bit 3 of a format's flags and of an input's capabilities.
inline constexpr uint32_t own_stride_flag = 8;

inline kel_reader_state& reader_state(const kel_filter& filter) {
    return *static_cast<kel_reader_state*>(filter.state);
}

inline kel_reader_channel& reader_channel(const kel_channel& channel) {
    return *static_cast<kel_reader_channel*>(channel.private_channel);
}

// The filter's own resource table; empty when out of memory.
owned<mmf_resource> make_reader_resources(kel_reader_state* state);

// MediaOutput slot 6.
int reader_next_buffer(kel_channel* channel, mmf_mra** out);

}  // namespace kel
