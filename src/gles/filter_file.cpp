// Filters from texts and files.
#include "base/text_file.hpp"
#include "gles/filter_text.hpp"

kel_video_filter* kel_load_video_filter_shader(const char* text) {
    kel_video_filter* filter = text ? kel::parse_video_filter(text) : nullptr;
    if (filter) _kel_add_video_filter(filter);
    return filter;
}

kel_video_filter* kel_load_video_filter_shader_from_file(const char* path) {
    const kel::text_file file = kel::read_text_file(path);
    return file.length > 0 ? kel_load_video_filter_shader(file.text.get()) : nullptr;
}
