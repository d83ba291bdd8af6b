// Graphs: the filters that belong together, their control, and the pulling of their sinks.
#include <cerrno>
#include <cstring>

#include "mm/framework.hpp"

namespace {

using platform::mmf::interface_of;

// Calls one control callback of every filter that has controls; the first error.
int control(mm_graph* graph, int (*mmf_control_interface::*callback)(kel_filter*)) {
    if (!graph) return EINVAL;
    int result = 0;
    for (kel_filter* filter : graph->filters)
        if (auto* table = interface_of<mmf_control_interface>(filter, "MediaControl")) {
            const int error = (table->*callback)(filter);
            if (result == 0) result = error;
        }
    return result;
}

}  // namespace

mm_graph* MmCreateGraph() {
    return platform::mmf::no_throw<mm_graph*>(nullptr, [] { return new mm_graph; });
}

int MmDestroyGraph(mm_graph* graph) {
    if (!graph) return EINVAL;
    MmStop(graph);
    for (auto& connection : graph->connections) platform::mmf::disconnect(*connection);
    for (kel_filter* filter : graph->filters) platform::mmf::destroy_filter(filter);
    delete graph;
    return 0;
}

int MmStart(mm_graph* graph) {
    return control(graph, &mmf_control_interface::start);
}

int MmResume(mm_graph* graph) {
    return control(graph, &mmf_control_interface::resume);
}

int MmPause(mm_graph* graph) {
    return control(graph, &mmf_control_interface::pause);
}

int MmStop(mm_graph* graph) {
    return control(graph, &mmf_control_interface::stop);
}

int MmSeek(mm_graph* graph, uint64_t pts) {
    if (!graph) return EINVAL;
    int result = 0;
    for (kel_filter* filter : graph->filters)
        if (auto* table = interface_of<mmf_seeker_interface>(filter, "MediaSeeker")) {
            const int error = table->seek(filter, static_cast<uint32_t>(table->get_unit(filter)), pts);
            if (result == 0) result = error;
        }
    return result;
}

int MmGetStatus(mm_graph* graph) {
    if (!graph) return MM_STATUS_STOPPED;
    bool playing = false, paused = false, ended = false;
    for (kel_filter* filter : graph->filters)
        if (auto* table = interface_of<mmf_control_interface>(filter, "MediaControl")) {
            const int status = table->get_status(filter);
            if (status == MM_STATUS_ERROR) return status;
            playing |= status == MM_STATUS_PLAYING;
            paused |= status == MM_STATUS_PAUSED;
            ended |= status == MM_STATUS_END_OF_STREAM;
        }
    return playing  ? MM_STATUS_PLAYING
           : paused ? MM_STATUS_PAUSED
           : ended  ? MM_STATUS_END_OF_STREAM
                    : MM_STATUS_STOPPED;
}

int MmProcess(mm_graph* graph) {
    if (!graph) return MM_STATUS_ERROR;
    bool has_sink = false, playing = false;
    int other = 0;
    for (kel_filter* filter : graph->filters) {
        auto* sink = interface_of<mmf_sink_interface>(filter, "MediaSink");
        if (!sink) continue;
        has_sink = true;
        const int status = sink->process(filter);
        if (status == MM_STATUS_ERROR) return status;
        if (status == MM_STATUS_PLAYING) playing = true;
        if (status != MM_STATUS_PLAYING && status != MM_STATUS_END_OF_STREAM) other = status;
    }
    if (!has_sink) return MM_STATUS_ERROR;
    return playing ? MM_STATUS_PLAYING : other ? other : MM_STATUS_END_OF_STREAM;
}

int MmNextEvent(mm_graph* graph, kel_filter** filter, int* type, char* text, size_t room) {
    if (!graph || !filter || !type || (!text && room > 0)) return EINVAL;
    std::lock_guard lock(graph->event_mutex);
    if (graph->events.empty()) return ENOENT;
    const mm_graph::event event = std::move(graph->events.front());
    graph->events.pop_front();
    *filter = event.filter;
    *type = event.type;
    if (room > 0) {
        const size_t length = std::min(event.text.size(), room - 1);
        std::memcpy(text, event.text.data(), length);
        text[length] = '\0';
    }
    return 0;
}
