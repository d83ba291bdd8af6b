// The whole road: a file through source, writer, mixer, texture, filter chain, text, queues, reader and sink into
// another file, which is read again.
#include <algorithm>
#include <cmath>
#include <set>
#include <thread>

#include "graph/media_fixture.hpp"
#include "support/gles.hpp"
#include "support/media_files.hpp"

namespace {

using namespace kel_test;

struct Road {
    kel_context* context;
    kel_queue *audio_queue, *video_queue;
    std::set<void*> decoded;  // addresses of what the writer handed out
    int decoder_buffers = 0;
    std::string error;

    void send(kel_queue* queue, kel_buffer* buffer, const kel_slice& like) {
        auto* slice = new_slice(buffer, like.pts);
        slice->spec = like.spec;
        if (!kel_queue_enqueue_with_timeout(queue, slice, 20000)) drop_slice(slice), error = "full queue";
    }

    void run_audio(kel_channel* channel) {
        const kel_audio_format format = {48000, 2, KEL_AUDIO_TYPE_S16LE};
        kel_buffer_pool* pool = kel_create_audio_buffer_pool(context, &format, 1024, 8);
        kel_audio_mixer* mixer = kel_create_audio_mixer(pool);
        kel_audio_mixer_track* track = kel_acquire_audio_mixer_track(mixer);
        auto emit = [&] {
            kel_slice mixed;
            while (kel_get_audio_mixer_track_num_samples_left(track) == 0 ||
                   kel_audio_mixer_has_buffer(mixer)) {
                if (kel_wait_for_audio_mixer(mixer, 20000) != 0) return void(error = "no mixed buffer");
                kel_get_audio_mixer_slice(mixer, &mixed);
                send(audio_queue, mixed.buffer, mixed);
            }
        };
        kel_slice slice;
        while (error.empty() && kel_writer_read_slice(channel, &slice) == 0) {
            if (!slice.buffer) continue;
            const auto frames = static_cast<int32_t>(slice.spec.audio.nsamples);
            for (int32_t start = 0; start < frames && error.empty(); emit()) {
                const int32_t taken = kel_feed_audio_mixer_track(track, &slice, start, frames - start);
                if (taken < 0) error = "the track takes nothing";
                start += taken;
            }
        }
        kel_feed_audio_mixer_track_silence(track, kel_get_audio_mixer_track_num_samples_left(track));
        emit();
        kel_queue_close(audio_queue);
        kel_release_audio_mixer_track(track);
        kel_destroy_audio_mixer(&mixer);
        kel_destroy_buffer_pool_when_unused(pool);
    }

    void run_video(kel_channel* channel) {
        const kel_channel_format& from = *kel_writer_get_format(channel);
        const int width = from.video.width, height = from.video.height;
        const kel_video_format rgba = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_OPENGL_ES2, width, height};
        const kel_video_format nv12 = {SCREEN_FORMAT_NV12, SCREEN_USAGE_WRITE, width, height};
        kel_buffer_pool* frames = kel_create_pixmap_buffer_pool(context, &rgba, 2);
        kel_buffer_pool* pictures = kel_create_pixmap_buffer_pool(context, &nv12, 8);
        const EGLDisplay display = open_display();
        if (kel_gles_init(context, display) != 0) error = "no GLES";
        kel_buffer *frame = kel_acquire_buffer(frames), *canvas = kel_acquire_buffer(frames);
        const kel_slice framed = kel_slice_for_buffer(frame), drawn = kel_slice_for_buffer(canvas);
        const EGLSurface surface = kel_gles_create_pixmap_surface(context, canvas);
        kel_texture* texture = kel_gles_texture_from_slice(&framed);
        kel_video_filter_chain* chain = make_chain(width, height);
        const kel_text_style style = {"/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf", 0xFFFFFFFF, 9,
                                      KEL_TEXT_HALIGN_CENTER, KEL_TEXT_VALIGN_CENTER};
        const kel_point place = {width / 2, height - text_rows / 2};
        kel_slice slice;
        while (error.empty() && kel_writer_read_slice(channel, &slice) == 0) {
            if (!slice.buffer) continue;
            decoded.insert(slice.buffer->ptr);
            decoder_buffers = slice.buffer->pool->count;
            if (kel_blit_video(&slice, &framed, nullptr, nullptr, 255, SCREEN_QUALITY_NORMAL,
                               SCREEN_TRANSPARENCY_NONE) != 0 ||
                screen_flush_blits(context->screen_context, SCREEN_WAIT_IDLE) != 0)
                error = "no blit";
            draw_quad();
            glFinish();
            if (kel_text_draw(&drawn, "the whole road", &place, &style, nullptr) != 14) error = "no text";
            kel_buffer* picture = kel_acquire_buffer_wait(pictures, 20000);
            bgra8888_to_nv12(canvas, picture);
            kel_slice sent = kel_slice_for_buffer(picture);
            sent.pts = slice.pts;
            send(video_queue, picture, sent);
        }
        if (glGetError() != GL_NO_ERROR) error = "GL fails";
        kel_queue_close(video_queue);
        kel_destroy_video_filter_chain(&chain);
        kel_gles_destroy_texture(&texture);
        eglDestroySurface(display, surface);
        kel_gles_deinit(context);
        eglTerminate(display);
        for (kel_buffer* buffer : {frame, canvas}) kel_release_buffer(buffer);
        for (kel_buffer_pool* pool : {frames, pictures}) kel_destroy_buffer_pool_when_unused(pool);
    }

    static constexpr int text_rows = 40;

    // A grey picture's luma through the chain: half the contrast about the middle of its range, then 0.8 of it.
    static double filtered(double luma) { return 16 + 0.8 * (0.5 * (luma - 16) + 0.25 * 219); }

    // That chain as the program in use, drawing the frame of texture unit 0 onto the whole surface.
    kel_video_filter_chain* make_chain(int width, int height) {
        const std::string share = KEL_SHARE_FOLDER;
        kel_video_filter_chain* chain = kel_create_video_filter_chain(context);
        const std::string preamble = bytes_of(share + "preamble.glsl");
        const std::string main_preamble = bytes_of(share + "main_preamble.glsl");
        kel_set_video_filter_chain_preamble(chain, preamble.c_str());
        kel_set_video_filter_chain_main_preamble(chain, main_preamble.c_str());
        const float settings[2][3] = {{0, 0.5f, 1}, {0.8f, 0.8f, 0.8f}};
        kel_video_filter_instance* instances[2];
        for (int i = 0; i < 2; ++i)
            instances[i] = kel_add_video_filter_to_chain(
                chain, kel_load_video_filter_shader_from_file(
                           (share + (i == 0 ? "filters/adjust.glsl" : "filters/tint.glsl")).c_str()));
        if (kel_finalize_video_filter_chain(chain) != 0) error = "no chain";
        for (int i = 0; i < 3; ++i) kel_set_video_filter_param_fv(instances[0], i, &settings[0][i], 1);
        kel_set_video_filter_param_fv(instances[1], 0, settings[1], 3);
        const GLuint program = kel_get_video_filter_chain_program_index(chain);
        GLint status = GL_FALSE;
        const GLuint vertex = kel_gles_create_shader_from_file(context, GL_VERTEX_SHADER,
                                                               (share + "vertex.glsl").c_str(), &status);
        glAttachShader(program, vertex);
        glDeleteShader(vertex);
        glBindAttribLocation(program, 0, "kel_corner");
        glLinkProgram(program);
        glUseProgram(program);
        glUniform2f(glGetUniformLocation(program, "kel_pixel"), 1.0f / static_cast<float>(width),
                    1.0f / static_cast<float>(height));
        kel_apply_video_filter_chain_params(chain);
        static const GLfloat corners[] = {-1, -1, 1, -1, -1, 1, 1, 1};
        glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, corners);
        glEnableVertexAttribArray(0);
        return chain;
    }
};

TEST_F(Media, GoesTheWholeRoad) {
    MediaSpec spec;
    spec.seconds = 2;
    spec.rate = 44100;
    spec.numbers["VideoQuality"] = 90;
    const std::string in = test_path("road_in.mp4"), out = test_path("road_out.mp4");
    ASSERT_EQ(make_media(context, in, spec), "");
    ASSERT_EQ(kel_text_init(context), 0);

    mm_graph* graph = MmCreateGraph();
    kel_filter* reader = kel_create_reader_filter(graph);
    kel_filter* sink = MmCreateFilter(graph, MmFileSink());
    MmSetResource(reader, "KelContext", context);
    for (auto [name, value] : {std::pair{"AudioSampleRate", 48000}, std::pair{"AudioBitDepth", 16},
                               std::pair{"AudioChannels", 2}, std::pair{"VideoWidth", spec.width},
                               std::pair{"VideoHeight", spec.height}, std::pair{"VideoFrameRate", 25}})
        set_integer(reader, name, value);
    MmSetResource(reader, "VideoFormat", "NV12");
    MmSetResource(sink, "Path", out.c_str());
    set_integer(sink, "VideoQuality", 90);
    for (uint32_t type : {4u, 2u})
        ASSERT_EQ(MmConnect(graph, output_of(reader, type), input_of(sink, type)), 0);
    MmStart(graph);
    MmResume(graph);

    Playing playing(context, in);
    ASSERT_EQ(playing.opened, 0);
    Road road{context, queue_of(reader, "AudioQueue"), queue_of(reader, "VideoQueue"), {}, 0, {}};
    std::thread audio([&] { road.run_audio(playing.audio); });
    std::thread video([&] { road.run_video(playing.video); });
    EXPECT_EQ(run_sinks(graph), MM_STATUS_END_OF_STREAM) << error_of(sink);
    audio.join();
    video.join();
    EXPECT_EQ(MmGetStatus(graph), MM_STATUS_END_OF_STREAM);
    EXPECT_EQ(MmDestroyGraph(graph), 0);
    EXPECT_EQ(road.error, "");
    EXPECT_LE(road.decoded.size(), static_cast<size_t>(road.decoder_buffers));  // never copied elsewhere

    const ReadMedia read(out);
    ASSERT_TRUE(read.opened);
    EXPECT_NEAR(read.duration, 2, 0.08);
    EXPECT_EQ(read.rate, 48000);
    EXPECT_NEAR(read.frequency(), 440, 2);
    EXPECT_NEAR(read.rms(), 0.5 / std::sqrt(2), 0.01);
    ASSERT_EQ(read.luma.size(), 50u);
    double worst = 100;
    for (int n = 0; n < 50; ++n) {
        EXPECT_NEAR(read.video_pts[static_cast<size_t>(n)] - read.video_pts[0], n / 25.0, 0.0005);
        const auto& whole = read.luma[static_cast<size_t>(n)];
        const auto text = whole.end() - spec.width * Road::text_rows;
        worst = std::min(worst, psnr({whole.begin(), text}, spec.width,
                                     [n](int x, int y) { return Road::filtered(pattern_luma(x, y, n)); }));
        EXPECT_GE(*std::max_element(text, whole.end()), 210);  // the text is there
    }
    std::printf("worst picture: PSNR %.1f dB\n", worst);
    EXPECT_GE(worst, 38);
}

}  // namespace
