// Registration of the two filters with the framework, and their creation.
#include <aoi/aoi.h>
#include <kel.h>

#include "graph/filters.hpp"

const AOInterface_t kel_reader_interfaces[] = {
    {"Name", 1, "kel_reader"},
    {"Version", 100, nullptr},
    {"MediaFilter", 110, &kel::reader_filter_table},
    {"MediaOutput", 101, &kel::reader_output_table},
    {"MediaMemoryAllocator", 121, &kel_allocator},
    {"MediaControl", 101, &kel::reader_control_table},
    {"MediaSeeker", 102, &kel::reader_seeker_table},
    {"MediaTimeConverter", 100, &kel::reader_time_converter_table},
    {"AOResourceAccess", 100, &kel::reader_resource_table},
    {nullptr, 0, nullptr},
};

const AOInterface_t kel_writer_interfaces[] = {
    {"Name", 1, "kel_writer"},
    {"Version", 100, nullptr},
    {"MediaFilter", 110, &kel::writer_filter_table},
    {"MediaControl", 101, &kel::writer_control_table},
    {"MediaInput", 101, &kel::writer_input_table},
    {"MediaSeeker", 102, &kel::writer_seeker_table},
    {"AOResourceAccess", 100, &kel::writer_resource_table},
    {"MediaEventProducer", 100, &kel::writer_event_table},
    {"MediaMemoryAllocator", 121, &kel_allocator},
    {nullptr, 0, nullptr},
};

namespace {

// Handles of the registered lists; they live as long as the process.
AOHandle_t* reader_handle;
AOHandle_t* writer_handle;

}  // namespace

void kel_init_mmedia_filters() {
    if (!reader_handle) reader_handle = AoAddStatic(kel_reader_interfaces);
    if (!writer_handle) writer_handle = AoAddStatic(kel_writer_interfaces);
}

kel_filter* kel_create_reader_filter(mm_graph* graph) {
    return MmCreateFilter(graph, reader_handle);
}

kel_filter* kel_create_writer_filter(mm_graph* graph) {
    return MmCreateFilter(graph, writer_handle);
}
