#include "filter_lint.hpp"

#include <algorithm>
#include <cctype>
#include <cfloat>
#include <cstdio>
#include <map>
#include <vector>

#include "media/failure.hpp"
#include "media/filter_library.hpp"
#include "media/filter_spec.hpp"

namespace kel_tool {
namespace {

std::string type_name(const kel_video_filter_param& param) {
    if (param.type == KEL_PARAM_TEXTURE) return "texture";
    const bool is_int = param.type == KEL_PARAM_INT;
    if (param.count == 1) return is_int ? "int" : "float";
    return (is_int ? "ivec" : "vec") + std::to_string(param.count);
}

// The components, as they are written on the command line; one when all are the same.
std::string values_text(const double (&values)[4], int count) {
    const bool same = std::all_of(values, values + count, [&](double value) { return value == values[0]; });
    std::string text;
    for (int i = 0; i < (same ? 1 : count); ++i) {
        char number[32];
        std::snprintf(number, sizeof number, "%s%g", i ? "/" : "", values[i]);
        text += number;
    }
    return text;
}

void print_param(const kel_video_filter_param& param) {
    std::printf("    %-12s %-7s", param.name, type_name(param).c_str());
    if (param.type != KEL_PARAM_TEXTURE) {
        std::printf(" default %s", values_text(param.default_, param.count).c_str());
        if (param.min[0] != DBL_MIN) std::printf(", from %s", values_text(param.min, param.count).c_str());
        if (param.max[0] != DBL_MAX) std::printf(", to %s", values_text(param.max, param.count).c_str());
    }
    std::printf("\n");
}

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r\n"), last = text.find_last_not_of(" \t\r\n");
    return first == std::string::npos ? "" : text.substr(first, last - first + 1);
}

// Says which "Parameter" lines of the header declare nothing; whether there are none.
bool check_declarations(const kel_video_filter* filter, const std::string& text) {
    bool sound = true;
    int number = 0;
    for (const std::string& line : split(text.substr(0, text.find("*/")), '\n')) {
        ++number;
        const std::string code = trimmed(line.substr(0, line.find("//")));
        std::string directive = trimmed(code.substr(0, code.find(':')));
        std::transform(directive.begin(), directive.end(), directive.begin(),
                       [](unsigned char letter) { return std::tolower(letter); });
        if (directive != "parameter") continue;
        const std::string declaration = code.substr(std::min(code.find(':') + 1, code.size()));
        const std::string words = trimmed(declaration.substr(0, declaration.find(';')));
        const std::string name = words.substr(words.find_last_of(" \t") + 1);
        if (kel_get_video_filter_param_index(filter, name.c_str()) >= 0) continue;
        std::printf("line %d: '%s' declares no parameter; wanted: [precision] type name\n", number,
                    words.c_str());
        sound = false;
    }
    return sound;
}

// Says which parameters become one uniform.
bool check_collisions(const kel_video_filter* filter) {
    std::map<std::string, std::string> uniforms;  // and the parameters they stand for
    bool sound = true;
    for (int i = 0; i < kel_get_video_filter_num_params(filter); ++i) {
        const std::string name = kel_get_video_filter_param(filter, i)->name;
        std::string uniform = "filter0_" + name;
        for (char& each : uniform)
            if (!std::isalnum(static_cast<unsigned char>(each))) each = '_';
        const auto [place, is_new] = uniforms.emplace(uniform, name);
        if (is_new) continue;
        std::printf("'%s' and '%s' both become the uniform %s, so the shader does not compile: rename one\n",
                    place->second.c_str(), name.c_str(), uniform.c_str());
        sound = false;
    }
    return sound;
}

void print_numbered(const std::string& text) {
    int number = 0;
    for (const std::string& line : split(text.substr(0, text.find_last_not_of('\n') + 1), '\n'))
        std::printf("%4d  %s\n", ++number, line.c_str());
}

std::string source_of(GLuint shader) {
    GLint size = 0;
    glGetShaderiv(shader, GL_SHADER_SOURCE_LENGTH, &size);
    std::string text(static_cast<size_t>(std::max(size, 1)), '\0');
    glGetShaderSource(shader, static_cast<GLsizei>(text.size()), nullptr, text.data());
    return text.c_str();
}

template <typename Read>
void print_log(const char* title, GLuint object, Read read) {
    std::string log(16384, '\0');
    read(object, static_cast<GLsizei>(log.size()), nullptr, log.data());
    if (const std::string words = trimmed(log.c_str()); !words.empty())
        std::printf("%s:\n%s\n", title, words.c_str());
}

}  // namespace

void print_filter(const kel_video_filter* filter) {
    std::printf("%s  %s\n", kel_get_video_filter_name(filter), kel_get_video_filter_description(filter));
    for (int i = 0; i < kel_get_video_filter_num_params(filter); ++i)
        print_param(*kel_get_video_filter_param(filter, i));
}

filter_lint::filter_lint(session& session)
    : context_(session.context()), scrap_(make_picture(session, 16, 16, 0)), surface_(nullptr) {
    session.need_gles();
    surface_ = kel_gles_create_pixmap_surface(context_, scrap_.buffer.get());
    if (!surface_) throw failure("OpenGL ES is not to be had on this machine");
}

filter_lint::~filter_lint() {
    EGLDisplay display = kel_gles_get_egl_display(context_);
    eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    eglDestroySurface(display, surface_);
}

bool filter_lint::compile(kel_video_filter* filter) {
    const chain_handle chain(kel_create_video_filter_chain(context_));
    const std::string preamble = read_text_file(share_folder() + "/preamble.glsl");
    const std::string main_preamble = read_text_file(share_folder() + "/main_preamble.glsl");
    kel_set_video_filter_chain_preamble(chain.get(), preamble.c_str());
    kel_set_video_filter_chain_main_preamble(chain.get(), main_preamble.c_str());
    kel_add_video_filter_to_chain(chain.get(), filter);
    const bool compiled = kel_finalize_video_filter_chain(chain.get()) == 0;
    const GLuint shader = kel_get_video_filter_chain_shader_index(chain.get());
    std::printf("shader:\n");
    print_numbered(source_of(shader));
    print_log("the driver on the shader", shader, glGetShaderInfoLog);
    if (!compiled) return false;

    const GLuint program = kel_get_video_filter_chain_program_index(chain.get());
    GLint linked = GL_FALSE;
    const GLuint vertex_shader = kel_gles_create_shader_from_file(
        context_, GL_VERTEX_SHADER, (share_folder() + "/vertex.glsl").c_str(), nullptr);
    glAttachShader(program, vertex_shader);
    glDeleteShader(vertex_shader);  // when the program goes
    glLinkProgram(program);
    glGetProgramiv(program, GL_LINK_STATUS, &linked);
    print_log("the driver on the program", program, glGetProgramInfoLog);
    return linked;
}

bool filter_lint::check(const std::string& name) {
    kel_video_filter* filter = find_filter(name);
    print_filter(filter);
    const bool declared = check_declarations(filter, read_text_file(filter_path(name)));
    const bool distinct = check_collisions(filter);
    const bool compiled = compile(filter);
    std::printf("%s: %s\n", name.c_str(), compiled ? "it compiles" : "it does not compile");
    return declared && distinct && compiled;
}

}  // namespace kel_tool
