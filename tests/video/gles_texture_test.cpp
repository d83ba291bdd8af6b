// Textures that show buffers: what they show, whom they hold, what is refused.

#include "gles_fixture.hpp"
#include "support/faults.hpp"
#include "support/threads.hpp"

namespace {

using namespace kel_test;

constexpr kel_slice empty_slice = {};

// Has to be the first case of the program: no surface has loaded the entry points yet.
TEST_F(Gles, TexturesNeedASurfaceFirst) {
    kel_buffer* buffer = make_buffer(4, 4);
    const kel_slice slice = kel_slice_for_buffer(buffer);
    EXPECT_EQ(kel_gles_texture_from_slice(&slice), nullptr);
    kel_texture texture = {nullptr, nullptr, ~0u, nullptr};
    EXPECT_EQ(kel_gles_retarget_texture(&texture, &slice), 22);
    EXPECT_EQ(texture.texture, ~0u);
    EXPECT_EQ(buffer->refcount, 1);
    kel_release_buffer(buffer);
}

class Texture : public Gles {
  protected:
    void SetUp() override {
        Gles::SetUp();
        target = make_buffer(16, 8);
        surface = kel_gles_create_pixmap_surface(context, target);
        ASSERT_NE(surface, EGL_NO_SURFACE);
    }
    void TearDown() override {
        kel_release_buffer(target);
        EXPECT_TRUE(eglDestroySurface(display, surface));
        Gles::TearDown();
    }
    // What the target's memory has after drawing the bound texture, or what is expected there.
    bytes drawn() {
        draw_quad();
        glFinish();
        return pixels(rows_of(target));
    }
    GLint bound() {
        GLint name = 0;
        glGetIntegerv(GL_TEXTURE_BINDING_2D, &name);
        return name;
    }
    kel_buffer* target = nullptr;
    EGLSurface surface = EGL_NO_SURFACE;
};

TEST_F(Texture, ShowsThePresentMemoryOfItsBuffer) {
    kel_buffer *first = make_buffer(16, 8), *second = make_buffer(16, 8);
    kel_slice slice = kel_slice_for_buffer(first);
    slice.spec.video.width = 3;  // the whole buffer is shown all the same
    kel_texture* texture = kel_gles_texture_from_slice(&slice);
    ASSERT_NE(texture, nullptr);
    EXPECT_EQ(first->refcount, 2);
    EXPECT_EQ(bound(), static_cast<GLint>(texture->texture));
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
        fill(rows_of(first), seed);
        EXPECT_EQ(drawn(), tinted(rows_of(first)));
    }

    const GLuint name = texture->texture;
    const EGLImageKHR image = texture->image;
    EXPECT_EQ(kel_gles_retarget_texture(texture, &slice), 0);  // shows it already
    EXPECT_EQ(texture->image, image);
    EXPECT_EQ(first->refcount, 2);

    kel_slice other = kel_slice_for_buffer(second);
    fill(rows_of(second), 52);
    EXPECT_EQ(kel_gles_retarget_texture(texture, &other), 0);
    EXPECT_EQ(first->refcount, 1);
    EXPECT_EQ(second->refcount, 2);
    EXPECT_EQ(texture->texture, name);
    EXPECT_EQ(drawn(), tinted(rows_of(second)));

    kel_release_buffer(second);  // the texture keeps it
    EXPECT_EQ(drawn(), tinted(rows_of(second)));
    kel_gles_destroy_texture(&texture);
    EXPECT_EQ(texture, nullptr);
    EXPECT_FALSE(glIsTexture(name));
    kel_gles_destroy_texture(&texture);
    kel_gles_destroy_texture(nullptr);
    kel_release_buffer(first);
}

TEST_F(Texture, RetargetRefusedLeavesItEmptyAndUsable) {
    const kel_audio_format audio = {48000, 2, KEL_AUDIO_TYPE_S16LE};
    kel_buffer_pool* audio_pool = kel_create_audio_buffer_pool(context, &audio, 10, 1);
    kel_buffer_pool* window_pool = make_window_pool(8, 8, 2);
    kel_buffer* of_audio = kel_acquire_buffer(audio_pool);
    kel_buffer* of_window = kel_acquire_buffer(window_pool);
    kel_buffer *planar = make_buffer(8, 8, SCREEN_FORMAT_NV12), *good = make_buffer(8, 8);
    kel_buffer* free_buffer =
        &kel_create_pixmap_buffer_pool(context, &good->pool->format.video, 1)->buffers[0];
    kel_context* without = kel_create_context();
    kel_buffer* stateless = kel_create_pixmap_buffer(without, &good->pool->format.video);

    const kel_slice good_slice = kel_slice_for_buffer(good);
    kel_texture* texture = kel_gles_texture_from_slice(&good_slice);
    const GLuint name = texture->texture;
    for (kel_buffer* refused :
         {static_cast<kel_buffer*>(nullptr), of_audio, of_window, planar, free_buffer, stateless}) {
        LogCapture log;
        const kel_slice slice = kel_slice{refused, 0, {}};
        const int before = refused ? refused->refcount : 0;
        EXPECT_EQ(kel_gles_texture_from_slice(&slice), nullptr);
        EXPECT_EQ(kel_gles_retarget_texture(texture, &slice), 22);
        EXPECT_EQ(kel_gles_retarget_texture(texture, &slice), 22);
        EXPECT_EQ(texture->buffer, nullptr);
        EXPECT_EQ(texture->image, EGL_NO_IMAGE_KHR);
        EXPECT_EQ(texture->texture, name);
        EXPECT_TRUE(glIsTexture(name));
        EXPECT_EQ(good->refcount, 1);
        EXPECT_EQ(refused ? refused->refcount : 0, before);
        EXPECT_EQ(kel_gles_retarget_texture(texture, &good_slice), 0);
        EXPECT_EQ(good->refcount, 2);
        EXPECT_EQ(log.messages().empty(), refused != free_buffer);
    }
    EXPECT_EQ(kel_gles_texture_from_slice(nullptr), nullptr);
    EXPECT_EQ(kel_gles_retarget_texture(texture, nullptr), 22);
    EXPECT_EQ(kel_gles_retarget_texture(nullptr, &good_slice), 22);
    kel_gles_destroy_texture(&texture);

    kel_buffer_pool* free_pool = free_buffer->pool;
    for (kel_buffer* buffer : {planar, good, stateless, of_audio, of_window}) kel_release_buffer(buffer);
    for (kel_buffer_pool** pool : {&audio_pool, &window_pool, &free_pool}) kel_destroy_buffer_pool(pool);
    kel_destroy_context(&without);
}

// The image entry points are not imported but asked for, so their failing goes through this.
bool images_fail;
EGLImageKHR maybe_create_image(EGLDisplay on, EGLContext gles, EGLenum kind, EGLClientBuffer buffer,
                               const EGLint* list) {
    EXPECT_EQ(gles, EGL_NO_CONTEXT);
    EXPECT_EQ(kind, EGLenum{EGL_NATIVE_PIXMAP_KHR});
    EXPECT_EQ(list, nullptr);
    const auto create = reinterpret_cast<PFNEGLCREATEIMAGEKHRPROC>(eglGetProcAddress("eglCreateImageKHR"));
    return images_fail ? EGL_NO_IMAGE_KHR : create(on, gles, kind, buffer, list);
}
std::vector<std::string> looked_up;
__eglMustCastToProperFunctionPointerType proc_address(const char* name) {
    looked_up.emplace_back(name);
    if (std::string_view(name) != "eglCreateImageKHR") return eglGetProcAddress(name);
    return reinterpret_cast<__eglMustCastToProperFunctionPointerType>(maybe_create_image);
}

TEST_F(Texture, EachFailureOnTheWayLeavesNothing) {
    kel_buffer* buffer = make_buffer(4, 4);
    const kel_slice slice = kel_slice_for_buffer(buffer);
    const ImportHook lookup = hook(proc_address, "eglGetProcAddress");
    const EGLSurface again = kel_gles_create_pixmap_surface(context, target);
    EXPECT_EQ(looked_up, (std::vector<std::string>{"eglCreateImageKHR", "eglDestroyImageKHR",
                                                   "glEGLImageTargetTexture2DOES"}));
    images_fail = true;
    EXPECT_EQ(kel_gles_texture_from_slice(&slice), nullptr);
    EXPECT_EQ(buffer->refcount, 1);
    GLuint last = 0;
    glGenTextures(1, &last);
    EXPECT_EQ(kel_gles_texture_from_slice(&slice), nullptr);
    EXPECT_FALSE(glIsTexture(last + 1)) << "a GL name was left behind";
    images_fail = false;
    sweep_faults({}, [&](const Fault* fault, LogCapture& log) {
        kel_texture* texture = kel_gles_texture_from_slice(&slice);
        EXPECT_EQ(texture == nullptr, fault != nullptr);
        EXPECT_EQ(buffer->refcount, fault ? 1 : 2);
        kel_gles_destroy_texture(&texture);
        EXPECT_EQ(buffer->refcount, 1);
        EXPECT_TRUE(log.messages().empty());
    });
    glDeleteTextures(1, &last);
    EXPECT_TRUE(eglDestroySurface(display, again));
    kel_release_buffer(buffer);
}

TEST_F(Texture, MayOutliveTheStateAndTheSurface) {
    kel_buffer* buffer = make_buffer(4, 4);
    const kel_slice slice = kel_slice_for_buffer(buffer);
    kel_texture *kept = kel_gles_texture_from_slice(&slice), *moved = kel_gles_texture_from_slice(&slice);
    kel_gles_deinit(context);
    EXPECT_EQ(eglGetCurrentContext(), EGL_NO_CONTEXT);
    EXPECT_EQ(kel_gles_retarget_texture(moved, &empty_slice), 22);
    for (kel_texture** texture : {&kept, &moved}) kel_gles_destroy_texture(texture);
    EXPECT_EQ(buffer->refcount, 1);
    kel_release_buffer(buffer);  // with its memory: TearDown counts
}

TEST(GlesThreads, ContextsOnSeveralThreadsAreIndependent) {
    Watchdog watchdog(std::chrono::seconds(240));
    const EGLDisplay display = open_display();
    run_together(3, [display](int thread) {
        kel_context* context = kel_create_context();
        ASSERT_EQ(kel_gles_init(context, display), 0);
        const kel_video_format format = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_OPENGL_ES2, 20 + thread, 10};
        kel_buffer_pool* pool = kel_create_pixmap_buffer_pool(context, &format, 3);
        kel_buffer* target = kel_acquire_buffer(pool);
        kel_texture* texture = nullptr;
        for (int round = 0; round < stress_rounds(40); ++round) {
            const EGLSurface surface = kel_gles_create_pixmap_surface(context, target);
            if (round == 0) use_tint(1, .5f, .25f);
            kel_buffer* source = kel_acquire_buffer(pool);
            const kel_slice slice = kel_slice_for_buffer(source);
            if (!texture)
                texture = kel_gles_texture_from_slice(&slice);
            else
                EXPECT_EQ(kel_gles_retarget_texture(texture, &slice), 0);
            fill(rows_of(source), round * 12 + thread);
            draw_quad();
            EXPECT_TRUE(eglWaitClient());
            EXPECT_TRUE(eglDestroySurface(display, surface));
            EXPECT_EQ(pixels(rows_of(target)), tinted(rows_of(source))) << thread << ' ' << round;
            kel_release_buffer(source);
        }
        kel_gles_destroy_texture(&texture);
        kel_destroy_buffer_pool(&pool);
        kel_destroy_context(&context);
    });
    eglTerminate(display);
}

}  // namespace
