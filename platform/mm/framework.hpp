// The framework's own records: filters it made, connections, containers and graphs.
#pragma once

#include <mm/mmf.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "mm/no_throw.hpp"

struct mm_graph {
    std::vector<kel_filter*>
        filters;  // in the order of their making: sources before what they feed, by custom
    std::vector<std::unique_ptr<mmf_connection>> connections;
    std::mutex event_mutex;
    struct event {
        kel_filter* filter;
        int type;
        std::string text;
    };
    std::deque<event> events;  // bounded; the oldest go first
};

// Two channels joined, with the pool whose buffers travel between them.
struct mmf_connection {
    kel_channel* output = nullptr;
    kel_channel* input = nullptr;
    const mmf_output_interface* upstream = nullptr;
    const mmf_input_interface* downstream = nullptr;
    const kel_allocator_interface* allocator = nullptr;
    kel_mmf_pool* pool = nullptr;
};

namespace platform::mmf {

// A filter made by MmCreateFilter.
struct filter_record {
    kel_filter* filter;
    const AOHandle_t* handle;
    mm_graph* graph;  // null for a filter that stands alone
};

// The record of a live filter, or one whose filter is null. Thread-safety: any thread.
filter_record find_filter(const kel_filter* filter);

// An interface table of a live filter, or null.
template <typename Table>
const Table* interface_of(const kel_filter* filter, const char* name) {
    const filter_record record = find_filter(filter);
    if (!record.filter) return nullptr;
    const AOInterface_t* entry = AoGetInterface(record.handle, name);
    return entry ? static_cast<const Table*>(entry->table) : nullptr;
}

// Destroys a filter that is connected to nothing, with the containers of its channels.
void destroy_filter(kel_filter* filter);

// Frees the containers that were made for a channel; one that is still out is freed at its release.
void free_mra_pools(const kel_channel* channel);

// The allocator for connections neither of whose filters has one.
extern const kel_allocator_interface heap_allocator;

// Ends a connection: both channels are free again and the pool is gone.
void disconnect(mmf_connection& connection);

}  // namespace platform::mmf
