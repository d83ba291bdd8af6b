// What the tests of the two filters share.
#pragma once

#include <gtest/gtest.h>
#include <kel.h>
#include <mm/mmf.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/faults.hpp"

namespace kel_test {

// Results of Mmf and Mm calls that can be made to fail.
inline std::vector<FaultPoint> framework_fault_points() {
    std::vector<FaultPoint> points = screen_fault_points();
    for (FaultPoint point :
         {KEL_FAULT_POINT(MmfAllocateMraPool, ENOMEM, ENOMEM), KEL_FAULT_POINT(MmfAcquireMra, EAGAIN, EAGAIN),
          KEL_FAULT_POINT(MmfSetMraPropertyElement, EINVAL, EINVAL),
          KEL_FAULT_POINT(MmfSetMraBufferElement, EINVAL, EINVAL),
          KEL_FAULT_POINT(MmCreateFilter, nullptr, ENOMEM), KEL_FAULT_POINT(screen_blit, -1, EINVAL),
          KEL_FAULT_POINT(screen_flush_blits, -1, EINVAL)})
        points.push_back(point);
    return points;
}

template <typename Table>
const Table& table_of(const kel_filter* filter, const char* name) {
    const void* table = MmGetFilterInterface(filter, name);
    EXPECT_NE(table, nullptr) << name;
    return *static_cast<const Table*>(table);
}

inline int set_integer(kel_filter* filter, const char* name, int32_t value) {
    return MmSetResource(filter, name, &value);
}

// The library initialised, a context, and the two filters registered.
class MediaTest : public ::testing::Test {
  protected:
    MediaTest() {
        kel_init();
        context = kel_create_context();
        kel_init_mmedia_filters();
    }
    ~MediaTest() override {
        kel_destroy_context(&context);
        kel_fini();
    }

    kel_context* context;
};

// One filter of each kind, without a graph.
class Filters : public MediaTest {
  protected:
    kel_filter* reader = kel_create_reader_filter(nullptr);
    kel_filter* writer = kel_create_writer_filter(nullptr);
    ~Filters() override {
        MmDestroyFilter(reader);
        MmDestroyFilter(writer);
    }
    const mmf_output_interface& outputs() { return table_of<mmf_output_interface>(reader, "MediaOutput"); }
    const mmf_input_interface& inputs() { return table_of<mmf_input_interface>(writer, "MediaInput"); }
};

// Ends a slice from malloc: what a queue of slices throws away.
inline void drop_slice(void* data) {
    auto* slice = static_cast<kel_slice*>(data);
    if (slice->buffer) kel_release_buffer(slice->buffer);
    std::free(slice);
}

inline kel_queue* queue_of(kel_filter* reader, const char* name) {
    auto* queue = *static_cast<kel_queue**>(MmFindResource(reader, name)->value);
    kel_queue_set_node_destructor(queue, drop_slice);
    return queue;
}

}  // namespace kel_test
