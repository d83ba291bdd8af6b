// What the reader and the writer share: the head of their states, their resources and their callback tables.
#pragma once

#include <kel.h>
#include <mm/mmf.h>

#include <cstddef>
#include <span>

#include "base/guard.hpp"

// The first words of both states; the allocator reads them through the channel's filter.
struct kel_filter_head {
    kel_context* context;       // "KelContext"
    int32_t min_audio_buffers;  // "MinAudioBuffers"
    int32_t min_video_buffers;  // "MinVideoBuffers"
    int32_t usage;              // Screen usage of video window pools, fixed at creation
};
#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(kel_filter_head) == 16 && offsetof(kel_filter_head, usage) == 12);
#endif

namespace kel {

inline constexpr uint32_t filter_tag = 2;

// Result codes of the resource callbacks beside errno values.
inline constexpr int resource_not_writable = 1;
inline constexpr int resource_unknown = 4032;

inline constexpr uint32_t read_only_pointer = MM_RESOURCE_READABLE | MM_RESOURCE_POINTER;
inline constexpr uint32_t read_write_pointer = read_only_pointer | MM_RESOURCE_WRITABLE;
inline constexpr uint32_t read_write_integer =
    MM_RESOURCE_READABLE | MM_RESOURCE_WRITABLE | MM_RESOURCE_INTEGER;
inline constexpr uint32_t read_write_string =
    MM_RESOURCE_READABLE | MM_RESOURCE_WRITABLE | MM_RESOURCE_STRING;

// One resource of a kind of filter; `offset` is that of the field in the filter's state.
struct resource_row {
    const char* name;
    const char* description;
    std::size_t offset;
    const void* range;
    uint32_t type;
};

// A filter's own table: the rows with the addresses of its fields, and the terminator. Empty when out of
// memory.
owned<mmf_resource> make_resource_table(std::span<const resource_row> rows, void* state);

// The row of that name, or null.
const resource_row* find_resource(std::span<const resource_row> rows, const char* name);

// The field that a row describes, in a given state.
template <typename Field>
Field* resource_field(const resource_row& row, void* state) {
    return reinterpret_cast<Field*>(static_cast<char*>(state) + row.offset);
}

// Callbacks of the reader.
extern const mmf_filter_interface reader_filter_table;
extern const mmf_output_interface reader_output_table;
extern const mmf_control_interface reader_control_table;
extern const mmf_seeker_interface reader_seeker_table;
extern const mmf_time_converter_interface reader_time_converter_table;
extern const mmf_resource_interface reader_resource_table;

// Callbacks of the writer.
extern const mmf_filter_interface writer_filter_table;
extern const mmf_control_interface writer_control_table;
extern const mmf_input_interface writer_input_table;
extern const mmf_seeker_interface writer_seeker_table;
extern const mmf_resource_interface writer_resource_table;
extern const mmf_event_interface writer_event_table;

}  // namespace kel
