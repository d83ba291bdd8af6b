// A loaded video filter, and the reading of its text: a header comment of directives, then GLSL.
#pragma once

#include <kel.h>

#include <cstddef>
#include <string_view>

struct kel_video_filter {
    char* name;         // never null once registered
    char* description;  // null when absent
    int type;           // KEL_VIDEO_FILTER_SHADER
    char* source;       // the GLSL after the header
    char* main;         // name of the filter's GLSL function
    int num_params;
    kel_video_filter_param** params;  // in the order of their lines
    kel_video_filter* next;           // the one registered before it
};

#if UINTPTR_MAX == UINT32_MAX
static_assert(offsetof(kel_video_filter, name) == 0 && offsetof(kel_video_filter, description) == 4);
static_assert(offsetof(kel_video_filter, type) == 8 && offsetof(kel_video_filter, source) == 12);
static_assert(offsetof(kel_video_filter, main) == 16 && offsetof(kel_video_filter, num_params) == 20);
static_assert(offsetof(kel_video_filter, params) == 24 && offsetof(kel_video_filter, next) == 28);
#endif

namespace kel {

// A filter of the text, not registered; null when the text is not a filter or memory runs out.
kel_video_filter* parse_video_filter(std::string_view text);

// Frees a filter that was never registered.
void free_video_filter(kel_video_filter* filter);

}  // namespace kel
