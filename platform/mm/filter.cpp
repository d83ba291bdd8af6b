// Filters that the framework makes from registered interface lists, and their resources.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "mm/framework.hpp"

namespace {

std::mutex mutex;
std::vector<platform::mmf::filter_record> records;

constexpr std::size_t most_events = 64;

// What filters post goes to their graph and waits there to be asked for.
void post_event(kel_filter* filter, int type, const char* text) {
    mm_graph* graph = platform::mmf::find_filter(filter).graph;
    if (!graph) return;
    std::lock_guard lock(graph->event_mutex);
    if (graph->events.size() == most_events) graph->events.pop_front();
    platform::mmf::no_throw(false, [&] {
        graph->events.push_back({filter, type, text ? text : ""});
        return true;
    });
}

void listen_to_events(kel_filter* filter) {
    auto* events = platform::mmf::interface_of<mmf_event_interface>(filter, "MediaEventProducer");
    if (!events) return;
    events->set_event_poster(filter, post_event);
    int type = 0;
    for (int cursor = 0; events->iterate_events(filter, &type, &cursor) == 0;)
        events->enable_event(filter, type);
}

const mmf_filter_interface* maker(const AOHandle_t* handle) {
    const AOInterface_t* entry = AoGetInterface(handle, "MediaFilter");
    return entry ? static_cast<const mmf_filter_interface*>(entry->table) : nullptr;
}

}  // namespace

namespace platform::mmf {

filter_record find_filter(const kel_filter* filter) {
    std::lock_guard lock(mutex);
    for (const filter_record& record : records)
        if (record.filter == filter) return record;
    return {nullptr, nullptr, nullptr};
}

void destroy_filter(kel_filter* filter) {
    const filter_record record = find_filter(filter);
    if (!record.filter) return;
    int cursor = 0;
    if (auto* outputs = interface_of<mmf_output_interface>(filter, "MediaOutput"))
        while (kel_channel* channel = outputs->iterate_outputs(filter, &cursor)) free_mra_pools(channel);
    maker(record.handle)->destroy(filter);
    std::lock_guard lock(mutex);
    std::erase_if(records, [filter](const filter_record& other) { return other.filter == filter; });
}

}  // namespace platform::mmf

kel_filter* MmCreateFilter(mm_graph* graph, const AOHandle_t* handle) {
    const mmf_filter_interface* table = maker(handle);
    if (!table) {
        errno = EINVAL;
        return nullptr;
    }
    kel_filter* filter = table->create();
    if (!filter) {
        errno = ENOMEM;
        return nullptr;
    }
    const bool known = platform::mmf::no_throw(false, [&] {
        if (graph) graph->filters.reserve(graph->filters.size() + 1);
        std::lock_guard lock(mutex);
        records.push_back({filter, handle, graph});
        return true;
    });
    if (!known) {
        table->destroy(filter);
        errno = ENOMEM;
        return nullptr;
    }
    if (graph) graph->filters.push_back(filter);
    listen_to_events(filter);
    return filter;
}

int MmDestroyFilter(kel_filter* filter) {
    const platform::mmf::filter_record record = platform::mmf::find_filter(filter);
    if (!record.filter || record.graph) return EINVAL;
    platform::mmf::destroy_filter(filter);
    return 0;
}

const void* MmGetFilterInterface(const kel_filter* filter, const char* name) {
    const platform::mmf::filter_record record = platform::mmf::find_filter(filter);
    if (!record.filter || !name) {
        errno = EINVAL;
        return nullptr;
    }
    const AOInterface_t* entry = AoGetInterface(record.handle, name);
    return entry ? entry->table : nullptr;
}

int MmSetResource(kel_filter* filter, const char* name, const void* value) {
    auto* resources = platform::mmf::interface_of<mmf_resource_interface>(filter, "AOResourceAccess");
    return resources ? resources->set_resource(filter, name, value) : EINVAL;
}

const mmf_resource* MmFindResource(kel_filter* filter, const char* name) {
    auto* resources = platform::mmf::interface_of<mmf_resource_interface>(filter, "AOResourceAccess");
    if (!resources || !name) return nullptr;
    for (const mmf_resource* entry = resources->get_resources(filter); entry && entry->name; ++entry)
        if (std::strcmp(entry->name, name) == 0) return entry;
    return nullptr;
}
