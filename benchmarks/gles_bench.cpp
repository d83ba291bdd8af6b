// One 1280 by 720 frame from a buffer through a shader into a buffer, beside the same draw between an ordinary texture and
// a surface of the driver's own on the same rasteriser: what is above it is the library's and the EGL bridge's share (upload,
// load, read-back, calls).
#include "benchmarks/gles_scene.hpp"

namespace {

using namespace kel_bench;

constexpr const char* color_shader = R"(
precision mediump float;
varying vec2 t;
uniform sampler2D s;
void main() {
    vec4 c = texture2D(s, t);
    c.rgb = mix(vec3(dot(c.rgb, vec3(.299, .587, .114))), c.rgb, 1.3);
    c.rgb = (c.rgb - .5) * 1.2 + .5;
    gl_FragColor = c;
})";

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse_options(argc, argv);
    Scene scene;
    std::printf("%s\n\n", reinterpret_cast<const char*>(glGetString(GL_RENDERER)));
    const std::pair<const char*, const char*> shaders[] = {
        {"Textured quad", copying_shader}, {"Shader for contrast and saturation", color_shader}};
    for (const auto& [title, text] : shaders) {
        const GLuint program = scene.link(text);
        Comparison frames(std::string(title) + ", 1280 by 720", {"ms a frame", 1e3}, 2);
        frames.add(Role::reference, "the driver's own texture and surface", scene.bare(program, false));
        frames.add(Role::subject, "buffer to buffer", scene.over_screen(program, false));
        frames.add(Role::subject, "buffer to buffer, a new buffer each frame",
                   scene.over_screen(program, false, true));
        frames.run(options);
        Comparison cleared(std::string(title) + " on a cleared surface, 1280 by 720", {"ms a frame", 1e3}, 2);
        cleared.add(Role::reference, "the driver's own texture and surface", scene.bare(program, true));
        cleared.add(Role::subject, "buffer to buffer", scene.over_screen(program, true));
        cleared.run(options);
    }
}
