// Memory and drawing: what is sampled, what arrives in memory and when, and what stays.
#include "egl_fixture.hpp"

#include <GLES3/gl3.h>

#include <functional>

namespace {

using namespace kel_test;

TEST_F(Egl, EachDrawSeesThePresentMemoryAndEachSyncPointStoresTheResult) {
    PFNEGLCREATESYNCKHRPROC create_sync;
    PFNEGLDESTROYSYNCKHRPROC destroy_sync;
    load(create_sync, "eglCreateSyncKHR");
    load(destroy_sync, "eglDestroySyncKHR");
    for (const auto& [width, height] : {std::pair{53, 37}, {64, 64}, {1, 1}, {3, 70}}) {
        const Picture source = make_picture(width, height), target = make_picture(width, height);
        const EGLSurface surface = surface_of(target);
        const auto come_back = [&] { EXPECT_TRUE(eglMakeCurrent(display, surface, surface, gles)); };
        const std::function<void()> sync_points[] = {
            glFinish,
            [] { EXPECT_TRUE(eglWaitClient()); },
            [] { EXPECT_TRUE(eglWaitGL()); },
            [&] { EXPECT_TRUE(eglSwapBuffers(display, surface)); },
            [&] { make_nothing_current(), come_back(); },
            [&] { eglReleaseThread(), come_back(); },
            [&] { EXPECT_TRUE(destroy_sync(display, create_sync(display, EGL_SYNC_FENCE_KHR, nullptr))); },
        };
        texture_of(source);
        use_tint(1, .5f, .25f);
        int seed = 0;
        for (const auto& sync : sync_points) {
            fill(source, seed += 36);
            draw_quad();
            sync();
            EXPECT_EQ(pixels(target), tinted(source)) << "sync point " << seed / 36;
        }
        fill(source, 8);
        const GLubyte indices[] = {0, 1, 2, 3};
        glDrawElements(GL_TRIANGLE_STRIP, 4, GL_UNSIGNED_BYTE, indices);
        EXPECT_TRUE(eglDestroySurface(display, surface));  // still current: it ends with the switch
        make_nothing_current();
        EXPECT_EQ(pixels(target), tinted(source));
        EXPECT_TRUE(padding_is_untouched(source) && padding_is_untouched(target));
    }
}

TEST_F(Egl, PictureWrittenByTheProcessorIsKept) {
    const Picture target = make_picture(20, 10);
    const EGLSurface surface = surface_of(target);
    fill(target, 99);
    bytes expected = pixels(target);
    glEnable(GL_SCISSOR_TEST);
    glScissor(1, 0, 2, 1);  // GL's lowest row is the last one of the memory
    glClearColor(0, 0, 1, 1);
    glClear(GL_DEPTH_BUFFER_BIT);  // touches no pixel
    glFinish();
    EXPECT_EQ(pixels(target), expected);
    glClear(GL_COLOR_BUFFER_BIT);
    glFinish();
    for (int x : {1, 2})
        std::copy_n(std::begin({255, 0, 0, 255}), 4, &expected[static_cast<size_t>(9 * 20 + x) * 4]);
    EXPECT_EQ(pixels(target), expected);

    target.at(0, 0)[0] = expected[0] = 77;  // nothing was drawn since: no switch may undo it
    make_nothing_current();
    EXPECT_TRUE(eglMakeCurrent(display, surface, surface, gles));
    glFinish();
    EXPECT_EQ(pixels(target), expected);

    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_FALSE, GL_TRUE);  // blue stays as the processor left it
    glClear(GL_COLOR_BUFFER_BIT);
    glFinish();
    for (std::size_t i = 0; i < expected.size(); i += 4) expected[i + 1] = expected[i + 2] = 0;
    EXPECT_EQ(pixels(target), expected);
    EXPECT_TRUE(padding_is_untouched(target));
}

// Everything that transfers go through, as a client may have set it: harmful, and to be found again.
TEST_F(Egl, StateOfTheClientNeitherDisturbsTransfersNorChanges) {
    const Picture source = make_picture(21, 13), target = make_picture(21, 13);
    surface_of(target);
    GLuint unpack, pack, framebuffer, other;
    glGenBuffers(1, &unpack);
    glGenBuffers(1, &pack);
    glGenFramebuffers(1, &framebuffer);
    glGenTextures(1, &other);
    glActiveTexture(GL_TEXTURE3);
    texture_of(source);
    use_tint(1, .5f, .25f, 1, 3);
    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_2D, other);
    glEnable(GL_SCISSOR_TEST);
    glScissor(2, 2, 17, 9);
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, unpack);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, pack);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, framebuffer);
    const std::pair<GLenum, GLuint> stores[] = {
        {GL_UNPACK_ROW_LENGTH, 5}, {GL_UNPACK_SKIP_ROWS, 5}, {GL_UNPACK_SKIP_PIXELS, 5},
        {GL_UNPACK_ALIGNMENT, 8},  {GL_PACK_ROW_LENGTH, 5},  {GL_PACK_SKIP_ROWS, 5},
        {GL_PACK_SKIP_PIXELS, 5},  {GL_PACK_ALIGNMENT, 8},   {GL_PACK_REVERSE_ROW_ORDER_ANGLE, 1}};
    std::vector<std::pair<GLenum, GLuint>> state = {{GL_PIXEL_UNPACK_BUFFER_BINDING, unpack},
                                                    {GL_PIXEL_PACK_BUFFER_BINDING, pack},
                                                    {GL_READ_FRAMEBUFFER_BINDING, framebuffer},
                                                    {GL_DRAW_FRAMEBUFFER_BINDING, 0},
                                                    {GL_ACTIVE_TEXTURE, GL_TEXTURE1},
                                                    {GL_TEXTURE_BINDING_2D, other},
                                                    {GL_SCISSOR_TEST, 1}};
    for (const auto& [name, value] : stores) glPixelStorei(name, static_cast<GLint>(value));
    state.insert(state.end(), std::begin(stores), std::end(stores));
    fill(target, 200);
    const bytes around = pixels(target);
    for (int seed : {12, 40}) {
        fill(source, seed);
        bytes expected = around;
        const bytes seen = drawn(target), inside = tinted(source);
        for (std::size_t y = 2; y < 11; ++y)
            std::copy_n(&inside[(y * 21 + 2) * 4], 17 * 4, &expected[(y * 21 + 2) * 4]);
        EXPECT_EQ(seen, expected);
    }
    for (const auto& [name, expected] : state) {
        GLint value = 0;
        glGetIntegerv(name, &value);
        EXPECT_EQ(static_cast<GLuint>(value), expected) << name;
    }
}

TEST_F(Egl, DrawAndReadSurfacesMayDiffer) {
    const Picture target = make_picture(8, 8), read = make_picture(8, 8);
    const EGLSurface read_surface = surface_of(read), draw_surface = surface_of(target);
    EXPECT_TRUE(eglMakeCurrent(display, draw_surface, read_surface, gles));
    fill(read, 100);
    const bytes untouched = pixels(read);
    glClear(GL_COLOR_BUFFER_BIT);
    bytes lowest(8 * 4);
    glReadPixels(0, 0, 8, 1, GL_BGRA_EXT, GL_UNSIGNED_BYTE, lowest.data());
    EXPECT_TRUE(std::equal(lowest.begin(), lowest.end(), read.at(0, 7)));
    EXPECT_TRUE(eglDestroySurface(display, draw_surface));  // what was drawn is read back no later than now
    EXPECT_EQ(pixels(target), bytes(8 * 8 * 4));
    EXPECT_EQ(pixels(read), untouched);
}

TEST_F(Egl, FormatsWithoutAlphaAreOpaque) {
    const Picture bare = make_picture(9, 5, SCREEN_FORMAT_RGBX8888),
                  rgb = make_picture(9, 5, SCREEN_FORMAT_RGB565);
    const Picture target = make_picture(9, 5);
    const auto with_alpha = [&](uint8_t alpha) {
        for (int i = 0; i < 9 * 5; ++i) bare.at(i % 9, i / 9)[3] = alpha;
        return pixels(bare);
    };
    surface_of(target);
    use_tint();
    texture_of(bare);
    const bytes opaque = with_alpha(255);
    with_alpha(7);
    EXPECT_EQ(drawn(target), opaque);
    const bytes clear(9 * 5 * 4, 0);  // an ordinary texture again: its alpha counts
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 9, 5, 0, GL_RGBA, GL_UNSIGNED_BYTE, clear.data());
    EXPECT_EQ(drawn(target), clear);
    texture_of(rgb);
    memcpy(rgb.at(4, 2), "\x00\xF8\xE0\x07", 4);
    drawn(target);
    EXPECT_EQ(target.pixel(4, 2), (bytes{0, 0, 255, 255}));
    EXPECT_EQ(target.pixel(5, 2), (bytes{0, 255, 0, 255}));

    surface_of(bare);  // blending finds an alpha of one there, and so does who reads the memory
    texture_of(target);
    glEnable(GL_BLEND);
    glBlendFunc(GL_ZERO, GL_DST_ALPHA);
    EXPECT_EQ(drawn(bare), opaque);
    glDisable(GL_BLEND);
    use_tint(1, 1, 1, 0);
    const bytes stored = drawn(bare);
    EXPECT_EQ(stored, with_alpha(255));
}

TEST_F(Egl, WhatIsWrittenIntoAnImageTextureArrivesInMemory) {
    for (const int format : {SCREEN_FORMAT_RGBA8888, SCREEN_FORMAT_RGBX8888, SCREEN_FORMAT_RGB565}) {
        SCOPED_TRACE(format);
        const Picture target = make_picture(300, 4, format);
        const bytes red = format == SCREEN_FORMAT_RGB565 ? bytes{0, 0xF8} : bytes{0, 0, 255, 255};
        surface_of(make_picture(300, 4));
        const GLuint texture = texture_of(target);
        GLuint framebuffer;
        glGenFramebuffers(1, &framebuffer);
        glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
        fill(target, 60);
        bytes expected = pixels(target);
        glEnable(GL_SCISSOR_TEST);
        glScissor(0, 1, 1, 1);  // here GL's row 1 is the memory's row 1
        glClearColor(1, 0, 0, 1);
        glClear(GL_COLOR_BUFFER_BIT);
        glDisable(GL_SCISSOR_TEST);
        EXPECT_EQ(pixels(target), expected);
        glFinish();
        std::copy(red.begin(), red.end(), expected.begin() + 300 * target.bytes_per_pixel);
        EXPECT_EQ(pixels(target), expected);
        EXPECT_TRUE(padding_is_untouched(target));

        glClear(GL_COLOR_BUFFER_BIT);  // read before it is stored, and kept when its texture goes
        bytes pixel(4);
        glReadPixels(299, 3, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel.data());
        EXPECT_EQ(pixel, (bytes{255, 0, 0, 255}));
        glDeleteTextures(1, &texture);
        EXPECT_EQ(target.pixel(299, 3), red);
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
    }
}

TEST_F(Egl, SiblingsAndPartsOfTexturesAgree) {
    const Picture picture = make_picture(6, 6), target = make_picture(6, 6);
    surface_of(target);
    const GLuint first = texture_of(picture), second = texture_of(picture);
    use_tint();
    glBindTexture(GL_TEXTURE_2D, first);
    fill(picture, 44);
    bytes expected = pixels(picture);
    const uint8_t blue[] = {255, 0, 0, 255};
    glTexSubImage2D(GL_TEXTURE_2D, 0, 1, 0, 1, 1, GL_BGRA_EXT, GL_UNSIGNED_BYTE, blue);
    std::copy_n(blue, 4, &expected[4]);
    glBindTexture(GL_TEXTURE_2D, second);
    EXPECT_EQ(drawn(target), expected);
    EXPECT_EQ(pixels(picture), expected);

    fill(target, 100);  // its top row, GL's last one, is copied into the picture
    glCopyTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 0, 5, 6, 1);
    std::copy_n(target.at(0, 0), 24, expected.begin());
    fill(target, 4);
    const bytes lowest(target.at(0, 5), target.at(6, 5));
    EXPECT_TRUE(eglWaitClient());
    EXPECT_EQ(pixels(picture), expected);
    glCopyTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 0, 0, 6, 6,
                     0);  // a copy of the target, upside down; no image any more
    drawn(target);
    EXPECT_EQ(pixels(picture), expected);
    EXPECT_EQ(bytes(target.at(0, 0), target.at(6, 0)), lowest);
}

TEST_F(Egl, WindowBuffersComeInTurn) {
    const Picture source = make_picture(12, 7);
    const screen_window_t window = make_window(12, 7, 3);
    const EGLSurface surface = eglCreateWindowSurface(display, config, window, nullptr);
    ASSERT_TRUE(eglMakeCurrent(display, surface, surface, gles));
    texture_of(source);
    use_tint(1, .5f, .25f);
    const auto drawn_frame = [&](int width, int height) {
        platform_screen_frame memory;
        EXPECT_EQ(platform_screen_hold_window(window, &memory), 0);
        draw_quad();
        EXPECT_TRUE(eglSwapBuffers(display, surface));
        const bytes seen = pixels({memory.pointer, width, height, memory.stride});
        platform_screen_release_frame(&memory);
        return seen;
    };
    void *buffers[3], *first = nullptr;
    for (int frame = 0; frame < 7; ++frame) {
        fill(source, frame * 20);
        EXPECT_EQ(screen_get_window_property_pv(window, SCREEN_PROPERTY_RENDER_BUFFERS, buffers), 0);
        if (frame == 0) first = buffers[0];
        EXPECT_EQ(buffers[0] == first, frame % 3 == 0) << frame;
        EXPECT_EQ(drawn_frame(12, 7), tinted(source)) << frame;
    }
    const int small[] = {5,
                         4};  // the window's buffers change under the surface: what fits is stored, top left
    EXPECT_EQ(screen_destroy_window_buffers(window), 0);
    EXPECT_EQ(screen_set_window_property_iv(window, SCREEN_PROPERTY_BUFFER_SIZE, small), 0);
    EXPECT_EQ(screen_create_window_buffers(window, 1), 0);
    EXPECT_EQ(drawn_frame(5, 4), tinted({source.pointer, 5, 4, source.stride}));

    EXPECT_EQ(screen_destroy_window(window), 0);
    draw_quad();
    EXPECT_FALSE(eglSwapBuffers(display, surface));
    EXPECT_EQ(eglGetError(), EGL_BAD_NATIVE_WINDOW);
}

}  // namespace
