// The writer's state and its channels.
#pragma once

#include <kel.h>
#include <mm/mmf.h>
#include <pthread.h>

#include <cstdint>

#include "graph/filters.hpp"

struct kel_writer_state {
    kel_filter_head head;
    pthread_mutex_t mutex;  // guards the resources, the time bases and the callbacks' changes of statuses
    int32_t started;
    mmf_event_poster event_poster;  // given by the framework
    mmf_event_poster error_poster;  // set once a client is interested in errors
    mmf_resource* resources;        // owned
    int32_t audio_count;            // "AudioChannelCount"
    int32_t video_count;            // "VideoChannelCount"
    int32_t channels_created;
    // The counts that the channels were made with: every index is held against these, whatever is set later.
    int32_t created_audio;
    int32_t created_video;
};

// The writer's own record of an input channel.
struct kel_writer_channel {
    const mmf_output_interface* upstream;
    const kel_allocator_interface* allocator;
    kel_mmf_pool* pool;
    int32_t status;     // MM_STATUS_*; see kel_writer_read_slice for what is changed without the lock
    mmf_mra* mra;       // being taken apart, or null
    int32_t element;    // next element of it
    uint64_t base_pts;  // microseconds
    uint64_t samples;   // frames handed out since base_pts
    uint32_t x;
    uint16_t y;
    uint32_t width;
    uint16_t height;
};

namespace kel {

// The name of every writer begins with this.
inline constexpr char writer_name[] = "KELWriter";

bool is_writer(const kel_filter* filter);

inline kel_writer_state& writer_state(const kel_filter& filter) {
    return *static_cast<kel_writer_state*>(filter.state);
}

inline kel_writer_channel& writer_channel(const kel_channel& channel) {
    return *static_cast<kel_writer_channel*>(channel.private_channel);
}

inline int32_t writer_channel_total(const kel_writer_state& state) {
    return state.created_audio + state.created_video;
}

// The filter's own resource table; empty when out of memory.
owned<mmf_resource> make_writer_resources(kel_writer_state* state);

}  // namespace kel
