// Memory and drawing: what is sampled, what arrives in memory and when, and what stays.
#include <GLES3/gl3.h>

#include <functional>

#include "egl_fixture.hpp"
#include "support/threads.hpp"

namespace {

using namespace kel_test;

using bytes = std::vector<uint8_t>;

bytes opaque(bytes pixels) {
    for (std::size_t i = 3; i < pixels.size(); i += 4) pixels[i] = 255;
    return pixels;
}

TEST_F(Egl, EachDrawSeesThePresentMemoryAndEachSyncPointStoresTheResult) {
    const auto fence = [this] {
        const auto create = reinterpret_cast<PFNEGLCREATESYNCKHRPROC>(eglGetProcAddress("eglCreateSyncKHR"));
        const auto destroy =
            reinterpret_cast<PFNEGLDESTROYSYNCKHRPROC>(eglGetProcAddress("eglDestroySyncKHR"));
        EXPECT_TRUE(destroy(display, create(display, EGL_SYNC_FENCE_KHR, nullptr)));
    };
    for (const auto& [width, height] : {std::pair{53, 37}, {64, 64}, {1, 1}, {3, 70}}) {
        const Picture source = make_picture(width, height), target = make_picture(width, height);
        const EGLSurface surface = surface_of(target);
        const std::function<void()> sync_points[] = {
            [] { glFinish(); },
            [] { EXPECT_TRUE(eglWaitClient()); },
            [] { EXPECT_TRUE(eglWaitGL()); },
            [&] { EXPECT_TRUE(eglSwapBuffers(display, surface)); },
            [&] {
                make_nothing_current();
                EXPECT_TRUE(eglMakeCurrent(display, surface, surface, gles));
            },
            [&] { EXPECT_TRUE(eglReleaseThread() && eglMakeCurrent(display, surface, surface, gles)); },
            fence,
        };
        texture_of(source);
        use_tint(1, .5f, .25f);
        int seed = 0;
        for (const auto& sync : sync_points) {
            fill(source.rows, seed += 36);
            draw_quad();
            sync();
            EXPECT_EQ(pixels(target.rows), tinted(pixels(source.rows))) << "sync point " << seed / 36;
        }
        fill(source.rows, 8);
        const GLubyte indices[] = {0, 1, 2, 3};
        glDrawElements(GL_TRIANGLE_STRIP, 4, GL_UNSIGNED_BYTE, indices);
        EXPECT_TRUE(eglDestroySurface(display, surface));  // still current: it ends with the switch
        make_nothing_current();
        EXPECT_EQ(pixels(target.rows), tinted(pixels(source.rows)));
        EXPECT_TRUE(padding_is_untouched(source.rows) && padding_is_untouched(target.rows));
    }
}

TEST_F(Egl, PictureWrittenByTheProcessorIsKept) {
    const Picture target = make_picture(20, 10), other = make_picture(20, 10);
    const EGLSurface second = surface_of(other), first = surface_of(target);
    fill(target.rows, 99);
    bytes expected = pixels(target.rows);
    glEnable(GL_SCISSOR_TEST);
    glScissor(1, 0, 2, 1);  // GL's lowest row is the last one of the memory
    glClearColor(0, 0, 1, 1);
    glClear(GL_DEPTH_BUFFER_BIT);  // touches no pixel
    glFinish();
    EXPECT_EQ(pixels(target.rows), expected);
    glClear(GL_COLOR_BUFFER_BIT);
    glFinish();
    for (int i : {4, 8}) std::copy_n(std::begin({255, 0, 0, 255}), 4, &expected[9 * 20 * 4 + i]);
    EXPECT_EQ(pixels(target.rows), expected);

    target.rows.row(0)[0] = expected[0] = 77;  // nothing was drawn since: no switch may undo it
    EXPECT_TRUE(eglMakeCurrent(display, second, second, gles));
    EXPECT_TRUE(eglMakeCurrent(display, first, first, gles));
    glFinish();
    EXPECT_EQ(pixels(target.rows), expected);

    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_FALSE, GL_TRUE);  // blue stays as the processor left it
    glClear(GL_COLOR_BUFFER_BIT);
    glFinish();
    for (std::size_t i = 0; i < expected.size(); i += 4) expected[i + 1] = expected[i + 2] = 0;
    EXPECT_EQ(pixels(target.rows), expected);
    EXPECT_TRUE(padding_is_untouched(target.rows));
}

// Everything that a client may have set and that transfers go through, set to something harmful.
TEST_F(Egl, StateOfTheClientNeitherDisturbsTransfersNorChanges) {
    const Picture source = make_picture(21, 13), target = make_picture(21, 13);
    surface_of(target);
    const GLuint texture = texture_of(source);
    use_tint(1, .5f, .25f);
    GLuint names[3], framebuffer, other_texture;
    glGenBuffers(3, names);
    glGenFramebuffers(1, &framebuffer);
    glGenTextures(1, &other_texture);
    for (GLenum name : {GL_UNPACK_ROW_LENGTH, GL_UNPACK_SKIP_ROWS, GL_UNPACK_SKIP_PIXELS, GL_PACK_ROW_LENGTH,
                        GL_PACK_SKIP_ROWS, GL_PACK_SKIP_PIXELS})
        glPixelStorei(name, 5);
    for (GLenum name : {GL_UNPACK_ALIGNMENT, GL_PACK_ALIGNMENT}) glPixelStorei(name, 8);
    glPixelStorei(GL_PACK_REVERSE_ROW_ORDER_ANGLE, GL_TRUE);
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, names[0]);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, names[1]);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, framebuffer);
    glActiveTexture(GL_TEXTURE7);
    glBindTexture(GL_TEXTURE_2D, other_texture);
    glEnable(GL_BLEND);
    glBlendFunc(GL_ONE, GL_ZERO);
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, 21, 13);
    const GLenum queries[] = {GL_UNPACK_ROW_LENGTH,
                              GL_UNPACK_SKIP_ROWS,
                              GL_UNPACK_SKIP_PIXELS,
                              GL_PACK_ROW_LENGTH,
                              GL_PACK_SKIP_ROWS,
                              GL_PACK_SKIP_PIXELS,
                              GL_UNPACK_ALIGNMENT,
                              GL_PACK_ALIGNMENT,
                              GL_PACK_REVERSE_ROW_ORDER_ANGLE,
                              GL_PIXEL_UNPACK_BUFFER_BINDING,
                              GL_PIXEL_PACK_BUFFER_BINDING,
                              GL_READ_FRAMEBUFFER_BINDING,
                              GL_DRAW_FRAMEBUFFER_BINDING,
                              GL_ACTIVE_TEXTURE,
                              GL_TEXTURE_BINDING_2D,
                              GL_SCISSOR_TEST};
    const auto state = [&] {
        std::vector<GLint> values;
        for (GLenum query : queries) glGetIntegerv(query, &values.emplace_back());
        return values;
    };
    const auto before = state();
    for (int seed : {12, 40}) {
        fill(source.rows, seed);
        draw_quad();
        glFinish();
        EXPECT_EQ(pixels(target.rows), tinted(pixels(source.rows)));
    }
    EXPECT_EQ(state(), before);
    EXPECT_TRUE(glIsTexture(texture));
}

TEST_F(Egl, DrawAndReadSurfacesMayDiffer) {
    const Picture source = make_picture(8, 8), target = make_picture(8, 8), read = make_picture(8, 8);
    const EGLSurface read_surface = surface_of(read), draw_surface = surface_of(target);
    texture_of(source);
    use_tint(1, .5f, .25f);
    EXPECT_TRUE(eglMakeCurrent(display, draw_surface, read_surface, gles));
    fill(source.rows, 24);
    fill(read.rows, 100);
    draw_quad();
    bytes seen(8 * 8 * 4);
    glReadPixels(0, 0, 8, 8, GL_BGRA_EXT, GL_UNSIGNED_BYTE, seen.data());
    EXPECT_TRUE(std::equal(seen.begin(), seen.begin() + 32, read.rows.row(7)));  // GL's first row is the last
    const bytes untouched = pixels(read.rows);
    glFinish();
    EXPECT_EQ(pixels(target.rows), tinted(pixels(source.rows)));
    EXPECT_EQ(pixels(read.rows), untouched);
    EXPECT_EQ(eglGetCurrentSurface(EGL_READ), read_surface);
}

TEST_F(Egl, FormatsWithoutAlphaAreOpaque) {
    const Picture bare = make_picture(9, 5, SCREEN_FORMAT_RGBX8888),
                  rgb = make_picture(40, 3, SCREEN_FORMAT_RGB565);
    const Picture target = make_picture(9, 5), wide = make_picture(40, 3);
    surface_of(target);
    const GLuint texture = texture_of(bare);
    use_tint();
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 9; ++x) bare.rows.row(y)[x * 4 + 3] = static_cast<uint8_t>(y * 9 + x);
    draw_quad();
    glFinish();
    EXPECT_EQ(pixels(target.rows), opaque(pixels(bare.rows)));
    const bytes clear(9 * 5 * 4, 0);  // an ordinary texture again: its alpha counts
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 9, 5, 0, GL_RGBA, GL_UNSIGNED_BYTE, clear.data());
    draw_quad();
    glFinish();
    EXPECT_EQ(pixels(target.rows), clear);

    surface_of(bare);  // blending finds an alpha of one there, and so does who reads the memory
    glBindTexture(GL_TEXTURE_2D, texture_of(target));
    fill(bare.rows, 16);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 9; ++x) bare.rows.row(y)[x * 4 + 3] = 3;
    const bytes expected = opaque(pixels(bare.rows));
    glEnable(GL_BLEND);
    glBlendFunc(GL_ZERO, GL_DST_ALPHA);
    draw_quad();
    glFinish();
    EXPECT_EQ(pixels(bare.rows), expected);
    glDisable(GL_BLEND);
    EXPECT_TRUE(glIsTexture(texture));

    surface_of(wide);
    texture_of(rgb);
    const uint16_t red = 0xF800, green = 0x07E0;
    for (int x = 0; x < 40; ++x) memcpy(rgb.rows.row(0) + x * 2, x % 2 ? &red : &green, 2);
    draw_quad();
    glFinish();
    for (int x = 0; x < 40; ++x)
        EXPECT_EQ(bytes(wide.rows.row(0) + x * 4, wide.rows.row(0) + x * 4 + 4),
                  (x % 2 ? bytes{0, 0, 255, 255} : bytes{0, 255, 0, 255}));
}

TEST_F(Egl, WhatIsWrittenIntoAnImageTextureArrivesInMemory) {
    for (const int format : {SCREEN_FORMAT_RGBA8888, SCREEN_FORMAT_RGBX8888, SCREEN_FORMAT_RGB565}) {
        SCOPED_TRACE(format);
        const Picture target = make_picture(300, 4, format), source = make_picture(300, 4, format);
        surface_of(make_picture(300, 4));
        texture_of(source);
        const GLuint texture = texture_of(target);
        GLuint framebuffer;
        glGenFramebuffers(1, &framebuffer);
        glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
        fill(target.rows, 60);
        bytes expected = pixels(target.rows);
        glEnable(GL_SCISSOR_TEST);
        glScissor(0, 1, 2, 1);  // here GL's row 1 is the memory's row 1
        glClearColor(1, 0, 0, 1);
        glClear(GL_COLOR_BUFFER_BIT);
        glDisable(GL_SCISSOR_TEST);
        EXPECT_EQ(pixels(target.rows), expected);
        glFinish();
        const bytes red = format == SCREEN_FORMAT_RGB565 ? bytes{0, 0xF8} : bytes{0, 0, 255, 255};
        const auto at = static_cast<std::ptrdiff_t>(300 * red.size());
        std::copy(red.begin(), red.end(), expected.begin() + at);
        std::copy(red.begin(), red.end(), expected.begin() + at + static_cast<std::ptrdiff_t>(red.size()));
        EXPECT_EQ(pixels(target.rows), expected);
        EXPECT_TRUE(padding_is_untouched(target.rows));

        // What was drawn is read before it is stored, sampled through a sibling, and kept when its texture goes.
        glClear(GL_COLOR_BUFFER_BIT);
        uint8_t pixel[4];
        glReadPixels(299, 3, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel);
        EXPECT_EQ(bytes(pixel, pixel + 4), (bytes{255, 0, 0, 255}));
        glDeleteTextures(1, &texture);
        EXPECT_EQ(bytes(target.rows.row(3), target.rows.row(3) + red.size()), red);
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
    }
}

TEST_F(Egl, SiblingsAndPartsOfTexturesAgree) {
    const Picture picture = make_picture(6, 6), target = make_picture(6, 6);
    surface_of(target);
    const GLuint first = texture_of(picture), second = texture_of(picture);
    use_tint();
    const uint8_t blue[] = {255, 0, 0, 255};
    glBindTexture(GL_TEXTURE_2D, first);
    fill(picture.rows, 44);
    bytes expected = pixels(picture.rows);
    glTexSubImage2D(GL_TEXTURE_2D, 0, 1, 0, 1, 1, GL_BGRA_EXT, GL_UNSIGNED_BYTE, blue);
    std::copy_n(blue, 4, &expected[4]);
    glBindTexture(GL_TEXTURE_2D, second);
    draw_quad();
    glFinish();
    EXPECT_EQ(pixels(picture.rows), expected);
    EXPECT_EQ(pixels(target.rows), expected);

    glCopyTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 0, 5, 6, 1);  // the top row of the target
    std::copy_n(target.rows.row(0), 24, expected.begin());
    fill(target.rows, 4);  // seen by the copy below only
    EXPECT_TRUE(eglWaitClient());
    EXPECT_EQ(pixels(picture.rows), expected);
    glCopyTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 0, 0, 6, 6, 0);  // not an image any more
    draw_quad();  // the copy is upside down: GL's first row is the memory's last
    glFinish();
    EXPECT_EQ(pixels(picture.rows), expected);
    EXPECT_EQ(bytes(target.rows.row(0), target.rows.row(0) + 24), ([] {
                  bytes row(24);
                  for (int i = 0; i < 24; ++i)
                      row[static_cast<std::size_t>(i)] = i % 4 == 3 ? 255 : (4 + i * 5 + 140) & 0xFC;
                  return row;
              })());
}

TEST_F(Egl, WindowBuffersComeInTurn) {
    const Picture source = make_picture(12, 7);
    const screen_window_t window = make_window(12, 7, 3);
    const EGLSurface surface = eglCreateWindowSurface(display, config, window, nullptr);
    ASSERT_TRUE(eglMakeCurrent(display, surface, surface, gles));
    texture_of(source);
    use_tint(1, .5f, .25f);
    void* buffers[3];
    ASSERT_EQ(screen_get_window_property_pv(window, SCREEN_PROPERTY_RENDER_BUFFERS, buffers), 0);
    for (int frame = 0; frame < 7; ++frame) {
        fill(source.rows, frame * 20);
        draw_quad();
        EXPECT_TRUE(eglSwapBuffers(display, surface));
        PixelRows rows{nullptr, 12, 7, 0};
        auto* buffer = static_cast<screen_buffer_t>(buffers[frame % 3]);
        screen_get_buffer_property_pv(buffer, SCREEN_PROPERTY_POINTER, &rows.pointer);
        screen_get_buffer_property_iv(buffer, SCREEN_PROPERTY_STRIDE, &rows.stride);
        EXPECT_EQ(pixels(rows), tinted(pixels(source.rows))) << frame;
    }
    const int small[] = {5,
                         9};  // the window's buffers change under the surface: what fits is stored, top left
    EXPECT_EQ(screen_destroy_window_buffers(window), 0);
    EXPECT_EQ(screen_set_window_property_iv(window, SCREEN_PROPERTY_BUFFER_SIZE, small), 0);
    EXPECT_EQ(screen_create_window_buffers(window, 1), 0);
    draw_quad();
    EXPECT_TRUE(eglSwapBuffers(display, surface));
    platform_screen_frame memory;
    ASSERT_EQ(platform_screen_hold_window(window, &memory), 0);
    const PixelRows corner{memory.pointer, 5, 7, memory.stride};
    const PixelRows origin{source.rows.pointer, 5, 7, source.rows.stride};
    EXPECT_EQ(pixels(corner), tinted(pixels(origin)));
    platform_screen_release_frame(&memory);

    EXPECT_EQ(screen_destroy_window(window), 0);
    draw_quad();
    EXPECT_FALSE(eglSwapBuffers(display, surface));
    EXPECT_EQ(eglGetError(), EGL_BAD_NATIVE_WINDOW);
}

TEST_F(Egl, ThreadsWithContextsOfTheirOwnDoNotDisturbEachOther) {
    Watchdog watchdog(std::chrono::seconds(240));
    run_together(4, [this](int thread) {
        const Picture source = make_picture(31 + thread * 8, 23), target = make_picture(31 + thread * 8, 23);
        const EGLContext own = make_context(thread % 2 ? gles : EGL_NO_CONTEXT);  // two share their textures
        const EGLSurface surface = eglCreatePixmapSurface(display, config, target.pixmap, nullptr);
        EXPECT_TRUE(eglMakeCurrent(display, surface, surface, own));
        use_tint(1, .5f, .25f);
        for (int round = 0; round < stress_rounds(60); ++round) {
            const GLuint texture = texture_of(source);
            fill(source.rows, round * 8 + thread);
            draw_quad();
            if (round % 2)
                glFinish();
            else
                eglWaitClient();
            EXPECT_EQ(pixels(target.rows), tinted(pixels(source.rows)))
                << "thread " << thread << " round " << round;
            glDeleteTextures(1, &texture);
        }
        make_nothing_current();
        EXPECT_TRUE(eglDestroyContext(display, own) && eglDestroySurface(display, surface));
        EXPECT_TRUE(eglReleaseThread());
    });
}

}  // namespace
