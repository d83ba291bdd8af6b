#include "gles_fixture.hpp"

using namespace kel_test;

void Gles::SetUp() {
    context = kel_create_context();
    ASSERT_NE(context, nullptr);
    display = open_display();
    ASSERT_EQ(kel_gles_init(context, display), 0);
    target = make_buffer(16, 8);
}

void Gles::TearDown() {
    EXPECT_EQ(glGetError(), GLenum{GL_NO_ERROR});
    kel_release_buffer(target);
    kel_destroy_context(&context);
    screen_live_counts_t live;
    screen_get_live_counts(&live);
    EXPECT_EQ(live.pixmaps + live.windows + live.contexts, 0);
    EXPECT_EQ(live.frames, 0) << "memory is still held";
    eglTerminate(display);
}

kel_buffer* Gles::make_buffer(int width, int height, int format) {
    const kel_video_format video = {format, SCREEN_USAGE_OPENGL_ES2 | SCREEN_USAGE_WRITE, width, height};
    kel_buffer* buffer = kel_create_pixmap_buffer(context, &video);
    EXPECT_NE(buffer, nullptr);
    if (format == SCREEN_FORMAT_RGBA8888) fill(rows_of(buffer), 0);
    return buffer;
}

kel_buffer_pool* Gles::make_window_pool(int width, int height, int count) {
    const kel_video_format video = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_OPENGL_ES2, width, height};
    kel_buffer_pool* pool = kel_create_window_buffer_pool(context, &video, SCREEN_APPLICATION_WINDOW, count);
    EXPECT_NE(pool, nullptr);
    return pool;
}
