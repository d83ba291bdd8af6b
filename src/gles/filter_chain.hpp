// A chain of video filter instances and the shader made of it.
#pragma once

#include <kel.h>

#include <cstddef>

// One component of a value, as its parameter's type says.
union kel_video_filter_component {
    GLfloat f;
    GLint i;
};

struct kel_video_filter_param_value {
    GLint location;                    // of the uniform; 0 until looked up, -1 when the program has none
    kel_video_filter_component* data;  // as many as the parameter has
    int dirty;                         // 1 when data changed since it was loaded
};

struct kel_video_filter_instance {
    int index;  // 0, 1, 2 ... in chain order
    kel_video_filter_chain* chain;
    kel_video_filter* filter;  // not owned
    kel_video_filter_instance* next;
    kel_video_filter_param_value* values;  // one for each parameter; the first one's data holds all data
};

struct kel_video_filter_chain {
    kel_context* context;
    int next_index;  // of the next instance
    kel_video_filter_instance* first;
    kel_video_filter_instance* last;
    const char* preamble;       // not owned; null for none
    const char* main_preamble;  // not owned; null for none
    char* source;               // the generated shader; null until finalised
    GLuint shader;
    GLuint program;
};

#if UINTPTR_MAX == UINT32_MAX
static_assert(offsetof(kel_video_filter_param_value, location) == 0 &&
              offsetof(kel_video_filter_param_value, data) == 4 &&
              offsetof(kel_video_filter_param_value, dirty) == 8);
static_assert(offsetof(kel_video_filter_instance, index) == 0 &&
              offsetof(kel_video_filter_instance, chain) == 4 &&
              offsetof(kel_video_filter_instance, filter) == 8 &&
              offsetof(kel_video_filter_instance, next) == 12 &&
              offsetof(kel_video_filter_instance, values) == 16);
static_assert(offsetof(kel_video_filter_chain, context) == 0 &&
              offsetof(kel_video_filter_chain, next_index) == 4 &&
              offsetof(kel_video_filter_chain, first) == 8 && offsetof(kel_video_filter_chain, last) == 12 &&
              offsetof(kel_video_filter_chain, preamble) == 16 &&
              offsetof(kel_video_filter_chain, main_preamble) == 20 &&
              offsetof(kel_video_filter_chain, source) == 24 &&
              offsetof(kel_video_filter_chain, shader) == 28 &&
              offsetof(kel_video_filter_chain, program) == 32);
#endif

namespace kel {

// Room for a uniform's name: 126 characters, a spare one and the NUL.
inline constexpr std::size_t uniform_name_size = 128;

// The value as the parameter's type holds it: float, or truncated toward zero (and kept within int's range).
kel_video_filter_component to_component(const kel_video_filter_param& param, double value);

}  // namespace kel
