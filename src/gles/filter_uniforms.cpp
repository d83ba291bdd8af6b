// Parameter values of instances, and their way into the program's uniforms.
#include <cerrno>
#include <climits>

#include "gles/filter_chain.hpp"
#include "gles/filter_text.hpp"

namespace {

using loader = void (*)(GLint location, const kel_video_filter_component* data);

template <auto uniform>
void load_floats(GLint location, const kel_video_filter_component* data) {
    uniform(location, 1, &data->f);
}

template <auto uniform>
void load_ints(GLint location, const kel_video_filter_component* data) {
    uniform(location, 1, &data->i);
}

// By the parameter's components; integers follow the floats.
constexpr loader loaders[] = {load_floats<glUniform1fv>, load_floats<glUniform2fv>, load_floats<glUniform3fv>,
                              load_floats<glUniform4fv>, load_ints<glUniform1iv>,   load_ints<glUniform2iv>,
                              load_ints<glUniform3iv>,   load_ints<glUniform4iv>};

// A location of 0 says nothing, so the uniform that has it is looked up each time.
void load(const kel_video_filter_instance& instance, const kel_video_filter_param& param,
          kel_video_filter_param_value& value) {
    if (value.location == 0) {
        char name[kel::uniform_name_size] = {};
        _kel_gen_param_name(&instance, &param, name, sizeof name);
        value.location = glGetUniformLocation(instance.chain->program, name);
    }
    if (param.type == KEL_PARAM_FLOAT) loaders[param.count - 1](value.location, value.data);
    if (param.type == KEL_PARAM_INT) loaders[param.count + 3](value.location, value.data);
    value.dirty = 0;
}

void load_all(kel_video_filter_chain* chain, bool only_dirty) {
    for (auto* instance = kel_get_first_video_filter_instance(chain); instance; instance = instance->next) {
        for (int p = 0; p < instance->filter->num_params; ++p) {
            kel_video_filter_param_value& value = instance->values[p];
            if (value.dirty || !only_dirty) load(*instance, *instance->filter->params[p], value);
        }
    }
}

template <typename T>
int set_values(kel_video_filter_instance* instance, int param, const T* values, int n) {
    if (!values && n > 0) return EINVAL;
    for (int c = 0; c < n; ++c) {
        if (const int error = kel_set_video_filter_param_value(instance, param, c, values[c])) return error;
    }
    return 0;
}

}  // namespace

kel_video_filter_component kel::to_component(const kel_video_filter_param& param, double value) {
    kel_video_filter_component component = {};
    if (param.type == KEL_PARAM_FLOAT)
        component.f = static_cast<GLfloat>(value);
    else if (value >= INT_MAX)
        component.i = INT_MAX;
    else if (value <= INT_MIN)
        component.i = INT_MIN;
    else if (value == value)  // not a number: 0
        component.i = static_cast<GLint>(value);
    return component;
}

int kel_set_video_filter_param_value(kel_video_filter_instance* instance, int param, int component,
                                     double value) {
    const kel_video_filter* filter = kel_get_video_filter_from_instance(instance);
    const kel_video_filter_param* declared = kel_get_video_filter_param(filter, param);
    if (!declared || component < 0 || component >= declared->count || declared->type == KEL_PARAM_TEXTURE)
        return EINVAL;
    instance->values[param].data[component] = kel::to_component(*declared, value);
    instance->values[param].dirty = 1;
    return 0;
}

int kel_set_video_filter_param_fv(kel_video_filter_instance* instance, int param, const float* values,
                                  int n) {
    return set_values(instance, param, values, n);
}

int kel_set_video_filter_param_iv(kel_video_filter_instance* instance, int param, const int* values, int n) {
    return set_values(instance, param, values, n);
}

void kel_apply_video_filter_chain_params(kel_video_filter_chain* chain) {
    load_all(chain, false);
}

void kel_apply_changed_video_filter_chain_params(kel_video_filter_chain* chain) {
    load_all(chain, true);
}
