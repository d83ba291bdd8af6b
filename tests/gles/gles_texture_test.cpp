// Textures that show buffers: what they show, whom they hold, what is refused.

#include "gles_fixture.hpp"
#include "support/faults.hpp"
#include "support/threads.hpp"

namespace {

using namespace kel_test;

// Has to be the first case of the program: no surface has loaded the entry points yet.
TEST_F(Gles, TexturesNeedASurfaceFirst) {
    const kel_slice slice = kel_slice_for_buffer(target);
    EXPECT_EQ(kel_gles_texture_from_slice(&slice), nullptr);
    kel_texture texture = {nullptr, nullptr, ~0u, nullptr};
    EXPECT_EQ(kel_gles_retarget_texture(&texture, &slice), 22);
    EXPECT_EQ(texture.texture, ~0u);
    EXPECT_EQ(target->refcount, 1);
}

class Texture : public Gles {
  protected:
    void SetUp() override {
        Gles::SetUp();
        surface = kel_gles_create_pixmap_surface(context, target);
        ASSERT_NE(surface, EGL_NO_SURFACE);
        source = make_buffer(16, 8);
        slice = kel_slice_for_buffer(source);
    }
    void TearDown() override {
        EXPECT_EQ(source->refcount, 1);
        kel_release_buffer(source);
        EXPECT_TRUE(eglDestroySurface(display, surface));
        Gles::TearDown();
    }
    // What the target's memory has after drawing the bound texture.
    bytes drawn() {
        draw_quad();
        glFinish();
        return pixels(rows_of(target));
    }
    kel_buffer* source = nullptr;
    kel_slice slice;
    EGLSurface surface = EGL_NO_SURFACE;
};

TEST_F(Texture, ShowsThePresentMemoryOfItsBuffer) {
    slice.spec.video.width = 3;  // the whole buffer is shown all the same
    kel_texture* texture = kel_gles_texture_from_slice(&slice);
    ASSERT_NE(texture, nullptr);
    EXPECT_EQ(source->refcount, 2);
    const std::pair<GLenum, GLint> parameters[] = {{GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE},
                                                   {GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE},
                                                   {GL_TEXTURE_MAG_FILTER, GL_LINEAR},
                                                   {GL_TEXTURE_MIN_FILTER, GL_LINEAR}};
    for (const auto& [name, expected] : parameters) {
        GLint value = 0;
        glGetTexParameteriv(GL_TEXTURE_2D, name, &value);
        EXPECT_EQ(value, expected);
    }
    use_tint(1, .5f, .25f);
    for (int seed : {4, 88}) {
        fill(rows_of(source), seed);
        EXPECT_EQ(drawn(), tinted(rows_of(source)));
    }

    const GLuint name = texture->texture;
    const EGLImageKHR image = texture->image;
    EXPECT_EQ(kel_gles_retarget_texture(texture, &slice), 0);  // shows it already
    EXPECT_EQ(texture->image, image);
    EXPECT_EQ(source->refcount, 2);

    kel_buffer* second = make_buffer(16, 8);
    const kel_slice other = kel_slice_for_buffer(second);
    fill(rows_of(second), 52);
    EXPECT_EQ(kel_gles_retarget_texture(texture, &other), 0);
    EXPECT_EQ(source->refcount, 1);
    EXPECT_EQ(texture->texture, name);
    kel_release_buffer(second);  // the texture keeps it
    EXPECT_EQ(drawn(), tinted(rows_of(second)));
    kel_gles_destroy_texture(&texture);
    EXPECT_EQ(texture, nullptr);
    EXPECT_FALSE(glIsTexture(name));
    kel_gles_destroy_texture(&texture);
    kel_gles_destroy_texture(nullptr);
}

TEST_F(Texture, RetargetRefusedLeavesItEmptyAndUsable) {
    const kel_audio_format audio = {48000, 2, KEL_AUDIO_TYPE_S16LE};
    const kel_video_format* video = &source->pool->format.video;
    kel_context* without = kel_create_context();
    kel_buffer_pool* pools[] = {kel_create_audio_buffer_pool(context, &audio, 10, 1),
                                make_window_pool(8, 8, 2), kel_create_pixmap_buffer_pool(context, video, 1),
                                kel_create_pixmap_buffer_pool(without, video, 1)};
    kel_buffer* planar = make_buffer(8, 8, SCREEN_FORMAT_NV12);
    kel_buffer* free_buffer = &pools[2]->buffers[0];
    kel_texture* texture = kel_gles_texture_from_slice(&slice);
    const GLuint name = texture->texture;
    for (kel_buffer* refused :
         {static_cast<kel_buffer*>(nullptr), kel_acquire_buffer(pools[0]), kel_acquire_buffer(pools[1]),
          free_buffer, kel_acquire_buffer(pools[3]), planar}) {
        const LogCapture log;
        const kel_slice bad = {refused, 0, {}};
        const int before = refused ? refused->refcount : 0;
        EXPECT_EQ(kel_gles_texture_from_slice(&bad), nullptr);
        for (int attempt = 0; attempt < 2; ++attempt) EXPECT_EQ(kel_gles_retarget_texture(texture, &bad), 22);
        EXPECT_EQ(texture->buffer, nullptr);
        EXPECT_EQ(texture->image, EGL_NO_IMAGE_KHR);
        EXPECT_TRUE(texture->texture == name && glIsTexture(name));
        EXPECT_EQ(source->refcount, 1);
        EXPECT_EQ(refused ? refused->refcount : 0, before);
        EXPECT_EQ(kel_gles_retarget_texture(texture, &slice), 0);
        EXPECT_EQ(log.messages().empty(), refused != free_buffer);
    }
    EXPECT_EQ(kel_gles_texture_from_slice(nullptr), nullptr);
    EXPECT_EQ(kel_gles_retarget_texture(texture, nullptr), 22);
    EXPECT_EQ(kel_gles_retarget_texture(nullptr, &slice), 22);
    kel_gles_destroy_texture(&texture);
    kel_release_buffer(planar);
    for (kel_buffer_pool*& pool : pools) kel_destroy_buffer_pool(&pool);
    kel_destroy_context(&without);
}

// The image entry points are not imported but asked for, so their failing goes through this.
EGLImageKHR no_image(EGLDisplay, EGLContext, EGLenum, EGLClientBuffer, const EGLint*) {
    return EGL_NO_IMAGE_KHR;
}
__eglMustCastToProperFunctionPointerType without_images(const char* name) {
    if (std::string_view(name) != "eglCreateImageKHR") return eglGetProcAddress(name);
    return reinterpret_cast<__eglMustCastToProperFunctionPointerType>(no_image);
}

TEST_F(Texture, EachFailureOnTheWayLeavesNothing) {
    sweep_faults({}, [&](const Fault* fault, LogCapture& log) {
        kel_texture* texture = kel_gles_texture_from_slice(&slice);
        EXPECT_EQ(texture == nullptr, fault != nullptr);
        EXPECT_EQ(source->refcount, fault ? 1 : 2);
        kel_gles_destroy_texture(&texture);
        EXPECT_TRUE(log.messages().empty());
    });
    const ImportHook lookup = hook(without_images, "eglGetProcAddress");
    const EGLSurface again = kel_gles_create_pixmap_surface(context, target);
    GLuint last = 0;
    glGenTextures(1, &last);
    EXPECT_EQ(kel_gles_texture_from_slice(&slice), nullptr);
    EXPECT_FALSE(glIsTexture(last + 1)) << "a GL name was left behind";
    EXPECT_TRUE(eglDestroySurface(display, again));
}

TEST_F(Texture, MayOutliveTheStateAndTheSurface) {
    kel_texture *kept = kel_gles_texture_from_slice(&slice), *moved = kel_gles_texture_from_slice(&slice);
    kel_gles_deinit(context);
    EXPECT_EQ(eglGetCurrentContext(), EGL_NO_CONTEXT);
    const kel_slice nothing = {};
    EXPECT_EQ(kel_gles_retarget_texture(moved, &nothing), 22);
    for (kel_texture** texture : {&kept, &moved}) kel_gles_destroy_texture(texture);
}  // TearDown counts the memory

TEST(GlesThreads, ContextsOnSeveralThreadsAreIndependent) {
    const Watchdog watchdog(std::chrono::seconds(240));
    const EGLDisplay display = open_display();
    run_together(3, [display](int thread) {
        kel_context* context = kel_create_context();
        ASSERT_EQ(kel_gles_init(context, display), 0);
        const kel_video_format format = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_OPENGL_ES2, 20 + thread, 10};
        kel_buffer_pool* pool = kel_create_pixmap_buffer_pool(context, &format, 2);
        kel_buffer *target = kel_acquire_buffer(pool), *source = kel_acquire_buffer(pool);
        const kel_slice slice = kel_slice_for_buffer(source);
        for (int round = 0; round < stress_rounds(40); ++round) {
            const EGLSurface surface = kel_gles_create_pixmap_surface(context, target);
            if (round == 0) use_tint(1, .5f, .25f);
            kel_texture* texture = kel_gles_texture_from_slice(&slice);
            fill(rows_of(source), round * 12 + thread);
            draw_quad();
            EXPECT_TRUE(eglWaitClient());
            EXPECT_EQ(pixels(rows_of(target)), tinted(rows_of(source))) << thread << ' ' << round;
            kel_gles_destroy_texture(&texture);
            EXPECT_TRUE(eglDestroySurface(display, surface));
        }
        kel_destroy_buffer_pool(&pool);
        kel_destroy_context(&context);
    });
    eglTerminate(display);
}

}  // namespace
