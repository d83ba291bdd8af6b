#include "video_chain.hpp"

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <string>

#include "failure.hpp"
#include "filter_library.hpp"

namespace kel_tool {
namespace {

constexpr float corners[] = {-1, -1, 1, -1, -1, 1, 1, 1};  // a strip of two triangles

std::string parameter_names(const kel_video_filter* filter) {
    std::string names;
    for (int i = 0; i < kel_get_video_filter_num_params(filter); ++i)
        names += (i ? ", " : "") + std::string(kel_get_video_filter_param(filter, i)->name);
    return names.empty() ? "none" : names;
}

// The library clamps nothing: the bounds are for those who let people choose.
void check_values(const std::string& filter, const kel_video_filter_param& param,
                  const std::vector<double>& values) {
    const std::string what = filter + ": " + param.name;
    if (values.size() > static_cast<size_t>(param.count))
        throw failure(what + " has " + std::to_string(param.count) + " values", exit_usage);
    for (size_t i = 0; i < values.size(); ++i) {
        if (param.type == KEL_PARAM_INT && values[i] != std::trunc(values[i]))
            throw failure(what + " is a whole number", exit_usage);
        char bound[40] = "";
        if (param.min[i] != DBL_MIN && values[i] < param.min[i])
            std::snprintf(bound, sizeof bound, " is at least %g", param.min[i]);
        if (param.max[i] != DBL_MAX && values[i] > param.max[i])
            std::snprintf(bound, sizeof bound, " is at most %g", param.max[i]);
        if (*bound) throw failure(what + bound, exit_usage);
    }
}

// The driver's word on a shader, its first line.
std::string compiler_message(GLuint shader) {
    char text[400] = "";
    glGetShaderInfoLog(shader, sizeof text, nullptr, text);
    const std::string all = text;
    return all.substr(0, all.find('\n'));
}

}  // namespace

std::vector<chosen_filter> choose_filters(const std::vector<filter_spec>& specs) {
    std::vector<chosen_filter> filters;
    for (const filter_spec& spec : specs) {
        kel_video_filter* filter = find_filter(spec.name);
        for (int i = 0; i < kel_get_video_filter_num_params(filter); ++i)
            if (kel_get_video_filter_param(filter, i)->type == KEL_PARAM_TEXTURE)
                throw failure(spec.name + ": it wants a second picture, which cannot be given here");
        for (const auto& given : spec.parameters) {
            const int index = kel_get_video_filter_param_index(filter, given.name.c_str());
            if (index < 0)
                throw failure(
                    spec.name + " has no parameter " + given.name + "; it has: " + parameter_names(filter),
                    exit_usage);
            check_values(spec.name, *kel_get_video_filter_param(filter, index), given.values);
        }
        filters.push_back({filter, spec});
    }
    return filters;
}

video_chain::video_chain(const session& session, const std::vector<chosen_filter>& filters)
    : context_(session.context()), filters_(filters) {}

video_chain::~video_chain() {
    EGLDisplay display = kel_gles_get_egl_display(context_);
    chain_.reset();
    texture_.reset();
    eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    for (const auto& [buffer, surface] : surfaces_) eglDestroySurface(display, surface);
}

void video_chain::make_current(kel_buffer* target) {
    EGLSurface& surface = surfaces_[target];
    if (surface) {
        kel_gles_make_current(context_, surface);
        return;
    }
    surface = kel_gles_create_pixmap_surface(context_, target);
    if (!surface) throw failure("OpenGL ES cannot draw pictures of this size");
}

// Makes the program; a surface is current.
void video_chain::build() {
    chain_.reset(kel_create_video_filter_chain(context_));
    const std::string preamble = read_text_file(share_folder() + "/preamble.glsl");
    const std::string main_preamble = read_text_file(share_folder() + "/main_preamble.glsl");
    kel_set_video_filter_chain_preamble(chain_.get(), preamble.c_str());
    kel_set_video_filter_chain_main_preamble(chain_.get(), main_preamble.c_str());
    for (const chosen_filter& each : filters_) {
        kel_video_filter_instance* instance = kel_add_video_filter_to_chain(chain_.get(), each.filter);
        for (const auto& given : each.spec.parameters) {
            const int index = kel_get_video_filter_param_index(each.filter, given.name.c_str());
            for (size_t i = 0; i < given.values.size(); ++i)
                kel_set_video_filter_param_value(instance, index, static_cast<int>(i), given.values[i]);
        }
    }
    if (kel_finalize_video_filter_chain(chain_.get()) != 0)
        throw failure("the filters do not compile: " +
                      compiler_message(kel_get_video_filter_chain_shader_index(chain_.get())));
    const GLuint program = kel_get_video_filter_chain_program_index(chain_.get());
    GLint status = GL_FALSE;
    const GLuint vertex_shader = kel_gles_create_shader_from_file(
        context_, GL_VERTEX_SHADER, (share_folder() + "/vertex.glsl").c_str(), &status);
    glAttachShader(program, vertex_shader);
    glDeleteShader(vertex_shader);  // when the program goes
    glBindAttribLocation(program, 0, "kel_corner");
    glLinkProgram(program);
    glGetProgramiv(program, GL_LINK_STATUS, &status);
    if (!status) throw failure("the filters cannot be linked");
    glUseProgram(program);
    glUniform1i(glGetUniformLocation(program, "kel_frame"), 0);
    glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, corners);
    glEnableVertexAttribArray(0);
    kel_apply_video_filter_chain_params(chain_.get());
}

// Binds the source's texture, made for the first one.
void video_chain::show(const kel_slice& source) {
    if (texture_) {
        kel_gles_retarget_texture(texture_.get(), &source);
        return;
    }
    texture_.reset(kel_gles_texture_from_slice(&source));
    if (!texture_) throw failure("OpenGL ES cannot show pictures of this size");
    const auto& video = source.spec.video;
    const GLuint program = kel_get_video_filter_chain_program_index(chain_.get());
    glUniform2f(glGetUniformLocation(program, "kel_pixel"), 1.0f / static_cast<float>(video.width),
                1.0f / static_cast<float>(video.height));
}

void video_chain::draw(const kel_slice& source, const kel_slice& target, const kel_rect& place) {
    make_current(target.buffer);
    if (!chain_) build();
    show(source);
    const int width = target.spec.video.width, height = target.spec.video.height;
    glClearColor(0, 0, 0, 1);
    glViewport(place.x, height - place.y - place.height, place.width, place.height);
    if (place.width < width || place.height < height) glClear(GL_COLOR_BUFFER_BIT);
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    glFinish();  // now the memory has it
}

}  // namespace kel_tool
