// Making, filling, finalising and destroying chains.
#include "gles/filter_chain.hpp"

#include <cerrno>
#include <cstdlib>

#include "base/guard.hpp"
#include "gles/filter_text.hpp"

namespace {

constexpr size_t first_text_capacity = 65536;

void free_instance(kel_video_filter_instance* instance) {
    if (instance->values) free(instance->values[0].data);
    free(instance->values);
    free(instance);
}

// One value for each parameter, at its default and dirty; all data in one block. False when out of memory.
bool make_values(const kel_video_filter& filter, kel_video_filter_instance& instance) {
    if (filter.num_params <= 0) return true;
    size_t components = 0;
    for (int p = 0; p < filter.num_params; ++p) components += static_cast<size_t>(filter.params[p]->count);
    auto values = kel::make_records<kel_video_filter_param_value>(static_cast<size_t>(filter.num_params));
    auto data = kel::make_records<kel_video_filter_component>(components);
    if (!values || !data) return false;
    kel_video_filter_component* next = data.release();
    instance.values = values.release();
    for (int p = 0; p < filter.num_params; ++p) {
        const kel_video_filter_param& param = *filter.params[p];
        instance.values[p] = {0, next, 1};
        for (int c = 0; c < param.count; ++c) *next++ = kel::to_component(param, param.default_[c]);
    }
    return true;
}

}  // namespace

kel_video_filter_chain* kel_create_video_filter_chain(kel_context* context) {
    auto chain = kel::make_record<kel_video_filter_chain>();
    if (!chain) return nullptr;
    chain->context = context;
    chain->program = glCreateProgram();
    return chain.release();
}

kel_video_filter_instance* kel_add_video_filter_to_chain(kel_video_filter_chain* chain,
                                                         kel_video_filter* filter) {
    if (!chain || !filter) return nullptr;
    auto instance = kel::make_record<kel_video_filter_instance>();
    if (!instance || !make_values(*filter, *instance)) return nullptr;
    instance->index = chain->next_index++;
    instance->chain = chain;
    instance->filter = filter;
    (chain->last ? chain->last->next : chain->first) = instance.get();
    chain->last = instance.get();
    return instance.release();
}

int kel_finalize_video_filter_chain(kel_video_filter_chain* chain) {
    if (!chain || chain->source) return EINVAL;
    size_t capacity = first_text_capacity;
    size_t length = 0;
    auto* text = static_cast<char*>(malloc(capacity));
    if (text) _kel_build_shader(chain, chain->first, chain->last, &text, &capacity, &length);
    if (!text) return ENOMEM;
    text[length] = '\0';
    chain->source = text;

    GLint compiled = GL_FALSE;
    chain->shader = kel_gles_create_shader(chain->context, GL_FRAGMENT_SHADER, text, &compiled);
    if (!compiled) return EINVAL;
    glAttachShader(chain->program, chain->shader);
    return 0;
}

void kel_destroy_video_filter_chain(kel_video_filter_chain** chain) {
    if (!chain || !*chain) return;
    for (kel_video_filter_instance *instance = (*chain)->first, *next; instance; instance = next) {
        next = instance->next;
        free_instance(instance);
    }
    glDeleteShader((*chain)->shader);
    glDeleteProgram((*chain)->program);
    free((*chain)->source);
    free(*chain);
    *chain = nullptr;
}

void kel_set_video_filter_chain_preamble(kel_video_filter_chain* chain, const char* text) {
    if (chain) chain->preamble = text;
}

void kel_set_video_filter_chain_main_preamble(kel_video_filter_chain* chain, const char* text) {
    if (chain) chain->main_preamble = text;
}

GLuint kel_get_video_filter_chain_shader_index(const kel_video_filter_chain* chain) {
    return chain ? chain->shader : 0;
}

GLuint kel_get_video_filter_chain_program_index(const kel_video_filter_chain* chain) {
    return chain ? chain->program : 0;
}

kel_video_filter_instance* kel_get_first_video_filter_instance(const kel_video_filter_chain* chain) {
    return chain ? chain->first : nullptr;
}

kel_video_filter_instance* kel_get_next_video_filter_instance(const kel_video_filter_instance* instance) {
    return instance ? instance->next : nullptr;
}

kel_video_filter* kel_get_video_filter_from_instance(const kel_video_filter_instance* instance) {
    return instance ? instance->filter : nullptr;
}
