// A 1280 by 720 frame through chains of library filters, from buffer to buffer, beside the same image drawn by a
// shader written by hand between the driver's own texture and surface.
#include <string>

#include "benchmarks/gles_scene.hpp"

namespace {

using namespace kel_bench;

struct Row {
    const char* title;
    std::vector<const char*> filters;
    const char* by_hand;  // the statements, for the color `c` at `t`; `n` is 1
};

#define ADJUST                                \
    "vec3 a = (c.rgb - .5) * 1.25 + .5 + .1;" \
    "c.rgb = clamp(mix(vec3(dot(a, vec3(.299, .587, .114))), a, 1.5 * n), 0., 1.);"
#define SEPIA                                                                                             \
    "c.rgb = mix(c.rgb, min(vec3(dot(c.rgb, vec3(.393, .769, .189)), dot(c.rgb, vec3(.349, .686, .168))," \
    "dot(c.rgb, vec3(.272, .534, .131))), 1.), n);"
#define VIGNETTE "c.rgb *= 1. - .8 * n * smoothstep(.35, .85, length((t - .5) * vec2(16. / 9., 1.)));"

const Row rows[] = {
    {"1 filter", {"sepia"}, SEPIA},
    {"3 filters", {"adjust", "sepia", "vignette"}, ADJUST SEPIA VIGNETTE},
    {"6 filters",
     {"sharpen", "adjust", "tint", "sepia", "vignette", "fade"},
     "vec2 x = vec2(1. / 1280., 0.), y = vec2(0., 1. / 720.);"
     "vec3 d = texture2D(s, t - x).rgb + texture2D(s, t + x).rgb + texture2D(s, t - y).rgb + texture2D(s, t "
     "+ y).rgb;"
     "c.rgb = clamp(c.rgb + n * (texture2D(s, t).rgb - .25 * d), 0., 1.);" ADJUST
     "c.rgb *= mix(vec3(1.), vec3(1., .8, .5), n);" SEPIA VIGNETTE "c.rgb = mix(c.rgb, vec3(0.), .5 * n);"},
};

std::string read(const std::string& name) {
    std::FILE* file = need(std::fopen((KEL_SHARE_FOLDER + name).c_str(), "r"), name.c_str());
    std::string text(8192, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    std::fclose(file);
    return text;
}

kel_video_filter_chain* make_chain(const Scene& scene, const Row& row) {
    kel_video_filter_chain* chain = need(kel_create_video_filter_chain(scene.context()), "chain");
    const std::string preamble = read("preamble.glsl"), main_preamble = read("main_preamble.glsl");
    kel_set_video_filter_chain_preamble(chain, preamble.c_str());
    kel_set_video_filter_chain_main_preamble(chain, main_preamble.c_str());
    for (const char* name : row.filters) {
        const std::string text = read(std::string("filters/") + name + ".glsl");
        kel_add_video_filter_to_chain(chain, need(kel_load_video_filter_shader(text.c_str()), name));
    }
    if (kel_finalize_video_filter_chain(chain) != 0) give_up("chain");
    const GLuint program = kel_get_video_filter_chain_program_index(chain);
    scene.attach(program, GL_VERTEX_SHADER, read("vertex.glsl").c_str());
    glBindAttribLocation(program, 0, "kel_corner");
    glLinkProgram(program);
    glUseProgram(program);
    glUniform2f(glGetUniformLocation(program, "kel_pixel"), 1.f / width, 1.f / height);
    kel_apply_video_filter_chain_params(chain);
    return chain;
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse_options(argc, argv);
    Scene scene;
    std::printf("%s\n\n", reinterpret_cast<const char*>(glGetString(GL_RENDERER)));
    const GLuint quad = scene.link(copying_shader);
    for (const Row& row : rows) {
        const std::string text =
            "precision highp float;\nvarying vec2 t;\nuniform sampler2D s;\nuniform float n;\nvoid main() {\n"
            "    vec4 c = texture2D(s, t);" +
            std::string(row.by_hand) + "\n    gl_FragColor = c;\n}\n";
        const GLuint by_hand = scene.link(text.c_str());
        glUseProgram(by_hand);
        glUniform1f(glGetUniformLocation(by_hand, "n"), 1);
        kel_video_filter_chain* chain = make_chain(scene, row);
        const GLuint program = kel_get_video_filter_chain_program_index(chain);
        kel_video_filter_instance* first = kel_get_first_video_filter_instance(chain);
        Comparison frames(std::string(row.title) + ", 1280 by 720", {"ms a frame", 1e3}, 2);
        frames.add(Role::subject, "the chain, buffer to buffer", scene.over_screen(program, true, false, [=] {
            kel_set_video_filter_param_value(first, 0, 0, 1);
            kel_apply_changed_video_filter_chain_params(chain);
        }));
        frames.add(Role::subject, "the chain's shader, the driver's own texture and surface",
                   scene.bare(program, true));
        frames.add(Role::reference, "by hand, the driver's own texture and surface",
                   scene.bare(by_hand, true));
        frames.add(Role::peer, "a textured quad, the driver's own texture and surface",
                   scene.bare(quad, true));
        frames.run(options);
        kel_destroy_video_filter_chain(&chain);
    }
}
