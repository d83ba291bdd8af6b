// The writer: a sink filter from which the client pulls a graph's decoded audio and video.
#include "graph/writer.hpp"

#include <atomic.h>
#include <sys/neutrino.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/guard.hpp"
#include "base/lock.hpp"
#include "base/log.hpp"

namespace {

constexpr int32_t writer_usage = 0xE;
constexpr uint32_t seek_unit = 2;

// Results of the control and event callbacks beside errno values.
constexpr int stopped_after_error = 4041;
constexpr int no_more_events = -1;

// Number of the next writer's name.
volatile unsigned next_number;

void release_current_mra(kel_writer_channel& own) {
    if (own.mra) MmfReleaseMra(own.mra);
    own.mra = nullptr;
}

// Releases whatever of a writer exists; the lock only when it was made.
void destroy_parts(kel_filter* filter, bool has_lock) {
    if (auto* state = static_cast<kel_writer_state*>(filter->state)) {
        for (int32_t i = 0; filter->inputs && i < kel::writer_channel_total(*state); ++i) {
            release_current_mra(kel::writer_channel(filter->inputs[i]));
            free(filter->inputs[i].private_channel);
            free(filter->inputs[i].name);
        }
        free(filter->inputs);
        free(state->resources);
        if (has_lock) pthread_mutex_destroy(&state->mutex);
        free(state);
    }
    free(filter->name);
    free(filter);
}

kel_filter* create() {
    const unsigned number = atomic_add_value(&next_number, 1);
    auto record = kel::make_record<kel_filter>();
    if (!record) return nullptr;
    kel_filter* filter = record.release();
    bool has_lock = false;
    kel::scope_exit destroy([&] { destroy_parts(filter, has_lock); });

    char name[32];
    snprintf(name, sizeof name, "%s%d", kel::writer_name, static_cast<int>(number));
    filter->name = strdup(name);
    if (!filter->name) return nullptr;
    filter->tag = kel::filter_tag;

    auto own_state = kel::make_record<kel_writer_state>();
    if (!own_state) return nullptr;
    filter->state = own_state.release();
    kel_writer_state& state = kel::writer_state(*filter);
    sched_param scheduling;
    if (SchedGet(0, 0, &scheduling) == -1) return nullptr;

    state.head.usage = writer_usage;
    state.resources = kel::make_writer_resources(&state).release();
    if (!state.resources) return nullptr;
    if (const int error = pthread_mutex_init(&state.mutex, nullptr)) {
        KEL_LOG_ERROR("kel_writer: Unable to create status mutex. (err = %d)", error);
        return nullptr;
    }
    has_lock = true;
    destroy.dismiss();
    return filter;
}

int destroy(kel_filter* filter) {
    if (!filter) return EINVAL;
    destroy_parts(filter, true);
    return 0;
}

// Every input channel's record; the caller holds the writer's lock.
template <typename Action>
void for_each_channel(kel_filter& filter, Action action) {
    const int32_t total = filter.inputs ? kel::writer_channel_total(kel::writer_state(filter)) : 0;
    for (int32_t i = 0; i < total; ++i) action(kel::writer_channel(filter.inputs[i]));
}

void set_status(kel_writer_channel& channel, int32_t status) {
    kel::write_for_unlocked(channel.status, status);
}

void change_status(kel_writer_channel& channel, int32_t from, int32_t to) {
    if (kel::read_unlocked(channel.status) == from) set_status(channel, to);
}

int start(kel_filter* filter) {
    if (!filter) return EINVAL;
    kel_writer_state& state = kel::writer_state(*filter);
    kel::lock_guard lock(state.mutex);
    for_each_channel(*filter, [](auto& channel) { set_status(channel, MM_STATUS_PAUSED); });
    state.started = 1;
    return 0;
}

int stop(kel_filter* filter) {
    if (!filter) return EINVAL;
    kel::lock_guard lock(kel::writer_state(*filter).mutex);
    bool failed = false;
    for_each_channel(*filter, [&](auto& channel) {
        failed |= kel::read_unlocked(channel.status) == MM_STATUS_ERROR;
        set_status(channel, MM_STATUS_STOPPED);
    });
    return failed ? stopped_after_error : 0;
}

int pause(kel_filter* filter) {
    if (!filter) return EINVAL;
    kel::lock_guard lock(kel::writer_state(*filter).mutex);
    for_each_channel(
        *filter, [](auto& channel) { change_status(channel, MM_STATUS_PLAYING, MM_STATUS_PAUSE_PENDING); });
    return 0;
}

int resume(kel_filter* filter) {
    if (!filter) return EINVAL;
    kel::lock_guard lock(kel::writer_state(*filter).mutex);
    for_each_channel(*filter,
                     [](auto& channel) { change_status(channel, MM_STATUS_PAUSED, MM_STATUS_PLAYING); });
    return 0;
}

int get_status(kel_filter* filter) {
    if (!filter) return MM_STATUS_STOPPED;
    kel::lock_guard lock(kel::writer_state(*filter).mutex);
    bool playing = false, paused = false;
    for_each_channel(*filter, [&](auto& channel) {
        playing |= kel::read_unlocked(channel.status) == MM_STATUS_PLAYING;
        paused |= kel::read_unlocked(channel.status) == MM_STATUS_PAUSED;
    });
    return playing ? MM_STATUS_PLAYING : paused ? MM_STATUS_PAUSED : MM_STATUS_STOPPED;
}

int get_seek_unit(kel_filter*) {
    return seek_unit;
}

int seek(kel_filter* filter, uint32_t, uint64_t position) {
    if (!filter) return EINVAL;
    kel::lock_guard lock(kel::writer_state(*filter).mutex);
    for_each_channel(*filter, [&](auto& channel) {
        channel.base_pts = position;
        channel.samples = 0;
    });
    return 0;
}

int iterate_events(kel_filter* filter, int* type, int* cursor) {
    if (!filter || !type || !cursor || *cursor != 0) return no_more_events;
    *cursor = 1;
    KEL_LOG_TRACE("kel_writer iterating through our postable event returning type = 0x%x %s",
                  static_cast<unsigned>(MM_EV_ERR), "MM_EV_ERR");
    *type = MM_EV_ERR;
    return 0;
}

int set_event_poster(kel_filter* filter, mmf_event_poster poster) {
    if (!filter) return EINVAL;
    kel::writer_state(*filter).event_poster = poster;
    KEL_LOG_TRACE("kel_writer registering the %p event post function", reinterpret_cast<void*>(poster));
    return 0;
}

int enable_event(kel_filter* filter, int type) {
    if (!filter) return EINVAL;
    if (type != MM_EV_ERR) return no_more_events;
    kel_writer_state& state = kel::writer_state(*filter);
    state.error_poster = state.event_poster;
    KEL_LOG_TRACE("kel_writer a client is interested in event MM_EV_ERR 0x%x", static_cast<unsigned>(type));
    return 0;
}

}  // namespace

namespace kel {

bool is_writer(const kel_filter* filter) {
    return filter && filter->name && strncmp(filter->name, writer_name, sizeof writer_name - 1) == 0;
}

const mmf_filter_interface writer_filter_table = {create, destroy};
const mmf_control_interface writer_control_table = {start, stop, pause, resume, get_status};
const mmf_seeker_interface writer_seeker_table = {get_seek_unit, seek};
const mmf_event_interface writer_event_table = {iterate_events, set_event_poster, enable_event};

}  // namespace kel
