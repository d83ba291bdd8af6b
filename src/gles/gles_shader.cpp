// Shaders from text. Whether they compiled is for the caller to judge.
#include <kel.h>

#include <cerrno>

#include "base/text_file.hpp"

GLuint kel_gles_create_shader(kel_context*, GLenum type, const char* source, GLint* status) {
    const GLuint shader = source ? glCreateShader(type) : 0;
    if (shader == 0) {
        errno = EINVAL;
        return 0;
    }
    glShaderSource(shader, 1, &source, nullptr);
    glCompileShader(shader);
    if (status) glGetShaderiv(shader, GL_COMPILE_STATUS, status);
    return shader;
}

GLuint kel_gles_create_shader_from_file(kel_context* context, GLenum type, const char* path, GLint* status) {
    const kel::text_file file = kel::read_text_file(path);
    return file.text ? kel_gles_create_shader(context, type, file.text.get(), status) : 0;
}
