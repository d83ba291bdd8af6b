// Every filter loaded by the process, newest first, and what a client may ask of one. Filters stay for good and
// never change, so only the head needs a lock.
#include <cstring>

#include "base/lock.hpp"
#include "gles/filter_text.hpp"

namespace {

pthread_mutex_t registry_mutex = PTHREAD_MUTEX_INITIALIZER;
kel_video_filter* newest;  // guarded by registry_mutex

}  // namespace

void _kel_add_video_filter(kel_video_filter* filter) {
    if (!filter) return;
    const kel::lock_guard lock(registry_mutex);
    filter->next = newest;
    newest = filter;
}

kel_video_filter* kel_get_first_video_filter() {
    const kel::lock_guard lock(registry_mutex);
    return newest;
}

kel_video_filter* kel_get_next_video_filter(const kel_video_filter* filter) {
    return filter ? filter->next : nullptr;
}

kel_video_filter* kel_find_video_filter(const char* name) {
    if (!name) return nullptr;
    kel_video_filter* filter = kel_get_first_video_filter();
    while (filter && strcmp(filter->name, name) != 0) filter = filter->next;
    return filter;
}

const char* kel_get_video_filter_name(const kel_video_filter* filter) {
    return filter ? filter->name : nullptr;
}

const char* kel_get_video_filter_description(const kel_video_filter* filter) {
    if (!filter) return nullptr;
    return filter->description ? filter->description : "";
}

int kel_get_video_filter_type(const kel_video_filter* filter) {
    return filter ? filter->type : 0;
}

int kel_get_video_filter_num_params(const kel_video_filter* filter) {
    return filter ? filter->num_params : 0;
}

const kel_video_filter_param* kel_get_video_filter_param(const kel_video_filter* filter, int index) {
    return filter && index >= 0 && index < filter->num_params ? filter->params[index] : nullptr;
}

int kel_get_video_filter_param_index(const kel_video_filter* filter, const char* name) {
    for (int i = 0; name && i < kel_get_video_filter_num_params(filter); ++i) {
        if (strcmp(filter->params[i]->name, name) == 0) return i;
    }
    return -1;
}
