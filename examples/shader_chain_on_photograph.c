/*
 * Draws a photograph through a chain of video filters into a picture. Filters are named by their file on the
 * library, with values for their parameters: vignette amount=0.7 radius=0.3. No window system is needed.
 */
#include "media.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const char usage[] = "usage: %s LIBRARY PHOTOGRAPH OUTPUT.png FILTER [PARAMETER=VALUE]...\n";
static const float corners[] = {-1, -1, 1, -1, -1, 1, 1, 1};

/* Reads a text file of less than 4096 bytes. */
static const char* read_library(const char* library, const char* name, char* text) {
    char path[512];
    snprintf(path, sizeof path, "%s/%s", library, name);
    FILE* file = fopen(path, "r");
    text[file ? fread(text, 1, 4095, file) : 0] = '\0';
    if (file) fclose(file);
    return text;
}

/* Adds filters as the words name them; a word with '=' sets all components of a parameter. Returns 1, or 0. */
static int add_filters(kel_video_filter_chain* chain, const char* library, char** words, int count) {
    kel_video_filter_instance* instance = NULL;
    for (int i = 0; i < count; ++i) {
        char* value = strchr(words[i], '=');
        if (!value) {
            char path[512];
            snprintf(path, sizeof path, "%s/filters/%s.glsl", library, words[i]);
            kel_video_filter* filter = kel_load_video_filter_shader_from_file(path);
            if (!filter) return fprintf(stderr, "%s: cannot load this filter\n", path), 0;
            instance = kel_add_video_filter_to_chain(chain, filter);
            continue;
        }
        *value = '\0';
        const kel_video_filter* filter = kel_get_video_filter_from_instance(instance);
        const int index = kel_get_video_filter_param_index(filter, words[i]);
        if (!filter || index < 0)
            return fprintf(stderr, "%s: the filter has no such parameter\n", words[i]), 0;
        const int components = kel_get_video_filter_param(filter, index)->count;
        for (int c = 0; c < components; ++c)
            kel_set_video_filter_param_value(instance, index, c, strtod(value + 1, NULL));
    }
    return 1;
}

/* Links the chain's program and makes it current. Returns 1, or 0. */
static int use_chain(kel_context* context, kel_video_filter_chain* chain, const char* library, char** words,
                     int count) {
    char preamble[4096], main_preamble[4096], path[512];
    kel_set_video_filter_chain_preamble(chain, read_library(library, "preamble.glsl", preamble));
    kel_set_video_filter_chain_main_preamble(chain,
                                             read_library(library, "main_preamble.glsl", main_preamble));
    if (!add_filters(chain, library, words, count)) return 0;
    const GLuint program = kel_get_video_filter_chain_program_index(chain);
    GLint compiled = GL_FALSE, linked = GL_FALSE;
    snprintf(path, sizeof path, "%s/vertex.glsl", library);
    const GLuint shader = kel_gles_create_shader_from_file(context, GL_VERTEX_SHADER, path, &compiled);
    if (kel_finalize_video_filter_chain(chain) == 0 && compiled) {
        glAttachShader(program, shader);
        glBindAttribLocation(program, 0, "kel_corner");
        glLinkProgram(program);
        glGetProgramiv(program, GL_LINK_STATUS, &linked);
    }
    glDeleteShader(shader);
    if (!linked)
        return fprintf(stderr, "%s: the filter chain does not compile (is this the filter library?)\n",
                       library),
               0;
    glUseProgram(program);
    return 1;
}

/* Draws `source` through the chain into `target`. */
static void draw(kel_video_filter_chain* chain, const kel_buffer* source) {
    const GLuint program = kel_get_video_filter_chain_program_index(chain);
    const kel_video_format* size = &kel_get_buffer_format(source)->video;
    glViewport(0, 0, size->width, size->height);
    glUniform1i(glGetUniformLocation(program, "kel_frame"), 0); /* texture unit */
    glUniform2f(glGetUniformLocation(program, "kel_pixel"), 1.0f / (float)size->width,
                1.0f / (float)size->height);
    kel_apply_video_filter_chain_params(chain);
    glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, corners);
    glEnableVertexAttribArray(0);
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    glFinish(); /* now the pixels are in the target's memory */
}

static int run(kel_context* context, const char* library, char** words, int count) {
    const char *photograph = words[0], *output = words[1];
    img_lib_t images;
    img_lib_attach(&images);
    kel_buffer* source = kel_load_image_file(context, images, photograph, SCREEN_USAGE_OPENGL_ES2);
    img_lib_detach(images);
    if (!source) return fprintf(stderr, "%s: cannot read this image\n", photograph), 0;
    kel_buffer* target = kel_create_pixmap_buffer(context, &kel_get_buffer_format(source)->video);
    const EGLSurface surface = kel_gles_create_pixmap_surface(context, target);
    const kel_slice slice = kel_slice_for_buffer(source);
    kel_texture* texture = kel_gles_texture_from_slice(&slice);
    kel_video_filter_chain* chain = texture ? kel_create_video_filter_chain(context) : NULL;
    int ok = chain && use_chain(context, chain, library, words + 2, count - 2);
    if (ok) draw(chain, source);
    ok = ok && save_image(context, target, output);
    kel_destroy_video_filter_chain(&chain);
    kel_gles_destroy_texture(&texture);
    eglDestroySurface(kel_gles_get_egl_display(context), surface);
    kel_release_buffer(target);
    kel_release_buffer(source);
    return ok;
}

int main(int argc, char** argv) {
    if (argc < 5) return fprintf(stderr, usage, argv[0]), 2;
    kel_init();
    kel_init_mmedia_filters();
    kel_context* context = kel_create_context();
    const EGLDisplay display = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    const int ok = kel_gles_init(context, display) == 0 && run(context, argv[1], argv + 2, argc - 2);
    kel_destroy_context(&context);
    eglTerminate(display);
    kel_fini();
    return ok ? 0 : 1;
}
