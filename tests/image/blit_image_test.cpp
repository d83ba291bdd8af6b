// Blits, fills and images: what Screen and the image library are asked for, and what comes of it.
#include <gtest/gtest.h>
#include <kel.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "platform/img/image_files.hpp"
#include "support/faults.hpp"
#include "support/threads.hpp"

namespace {

using picture_files::Bytes;

TEST(ScaleInsideBox, TouchesTheBoxAndKeepsTheAspect) {
    const struct {
        int width, height, box_width, box_height, expected_width, expected_height;
    } rows[] = {
        {1920, 1080, 1024, 1024, 1024, 576},
        {1080, 1920, 1024, 1024, 576, 1024},
        {100, 50, 400, 400, 400, 200},
        {1025, 10, 1024, 1024, 1024, 9},
        {5000, 1, 1024, 1024, 1024, 0},
        {3, 2, 0, 9, 0, 0},
        {0, 7, 5, 6, 0, 6},
        {7, 0, 5, 6, 0, 0},
        {0, 0, 5, 6, 0, 0},
        {4, 3, -8, 3, -8, -6},
        {0, 3, -8, 3, -8, INT32_MIN},
        {INT32_MAX, 1, 9, 2, 9, 0},
        {1, INT32_MAX, INT32_MAX, INT32_MAX, 1, INT32_MAX},
    };
    for (const auto& row : rows) {
        int width = -1, height = -1;
        kel_scale_inside_bb(row.width, row.height, row.box_width, row.box_height, &width, &height);
        EXPECT_EQ(std::pair(width, height), std::pair(row.expected_width, row.expected_height))
            << row.width << " x " << row.height << " in " << row.box_width << " x " << row.box_height;
    }
}

// What libkel asked Screen for.
struct Request {
    screen_context_t context;
    screen_buffer_t destination, source;
    std::vector<int> attributes;
    bool operator==(const Request&) const = default;
};
Request asked;
int answer;

int record_blit(screen_context_t context, screen_buffer_t destination, screen_buffer_t source,
                const int* attributes) {
    asked = {context, destination, source, {}};
    for (; *attributes != SCREEN_BLIT_END; ++attributes) {
        asked.attributes.push_back(*attributes++);
        asked.attributes.push_back(*attributes);
    }
    return answer;
}
int record_fill(screen_context_t context, screen_buffer_t destination, const int* attributes) {
    return record_blit(context, destination, nullptr, attributes);
}

class Video : public ::testing::Test {
  protected:
    void SetUp() override {
        screen_get_live_counts(&at_start);
        context = kel_create_context();
        other_context = kel_create_context();
        ASSERT_EQ(img_lib_attach(&ilib), IMG_ERR_OK);
    }
    void TearDown() override {
        for (kel_buffer* buffer : buffers) EXPECT_EQ(kel_release_buffer(buffer), 0);
        kel_destroy_context(&context);
        kel_destroy_context(&other_context);
        EXPECT_EQ(img_lib_detach(ilib), IMG_ERR_OK);
        screen_live_counts_t at_end;
        screen_get_live_counts(&at_end);
        EXPECT_EQ(memcmp(&at_start, &at_end, sizeof at_end), 0);
    }
    kel_slice make_slice(kel_context* owner, kel_rect area) {
        const kel_video_format video = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_WRITE, 64, 64};
        buffers.push_back(kel_create_pixmap_buffer(owner, &video));
        kel_slice slice = kel_slice_for_buffer(buffers.back());
        slice.spec.video = {area.x, area.y, area.width, area.height, area.width, area.height};
        return slice;
    }
    kel_buffer* load(const Bytes& file) {
        io_stream_t* stream = io_open_memory(file.data(), file.size());
        kel_buffer* buffer = kel_load_image(context, ilib, stream, SCREEN_USAGE_READ);
        io_close(stream);
        return buffer;
    }
    screen_live_counts_t at_start;
    kel_context *context = nullptr, *other_context = nullptr;
    img_lib_t ilib = nullptr;
    std::vector<kel_buffer*> buffers;
};

TEST_F(Video, BlitsAndFillsAskScreenForTheRightThing) {
    const kel_slice src = make_slice(context, {3, 4, 40, 30}), dst = make_slice(other_context, {5, 6, 17, 9});
    const kel_rect from = {-1, 2, 33, 44}, to = {7, -8, 99, 100};
    const auto blit = kel_test::hook(record_blit, "screen_blit");
    const auto fill = kel_test::hook(record_fill, "screen_fill");
    ASSERT_TRUE(blit.bound() && fill.bound());
    const auto expect_blit = [&](const kel_rect& s, const kel_rect& d, int alpha, int mode, int quality) {
        const Request expected = {context->screen_context,
                                  dst.buffer->screen_buffer,
                                  src.buffer->screen_buffer,
                                  {1, s.x,     2, s.y,      3, s.width, 4,  s.height, 5,  d.x,    6, d.y,
                                   7, d.width, 8, d.height, 9, alpha,   10, mode,     11, quality}};
        EXPECT_TRUE(asked == expected);
    };
    const struct {
        const kel_rect *src_rect, *dst_rect;
        kel_rect expected_src, expected_dst;
    } rows[] = {{nullptr, nullptr, {3, 4, 40, 30}, {5, 6, 17, 9}}, {&from, &to, from, to}};
    for (const auto& row : rows) {
        for (int result : {0, -1}) {
            answer = result;
            EXPECT_EQ(kel_blit_video(&src, &dst, row.src_rect, row.dst_rect, 200, 1, 3), result);
            expect_blit(row.expected_src, row.expected_dst, 200, 3, 1);
        }
        const kel_rect& area = row.expected_dst;
        EXPECT_EQ(kel_fill_video(&dst, 0xff112233u, row.dst_rect), -1);
        const Request expected = {
            other_context->screen_context,
            dst.buffer->screen_buffer,
            nullptr,
            {5, area.x, 6, area.y, 7, area.width, 8, area.height, 12, static_cast<int>(0xff112233u)}};
        EXPECT_TRUE(asked == expected);
    }
    const struct {
        int src_width, src_height, dst_width, dst_height;
        kel_rect expected;
    } fits[] = {{640, 480, 1920, 1080, {240, 0, 1440, 1080}},
                {640, 480, 100, 300, {0, 113, 100, 75}},
                {50, 50, 101, 33, {34, 0, 33, 33}},
                {7, 0, 10, 10, {5, 5, 0, 0}}};
    for (const auto& row : fits) {
        kel_slice s = src, d = dst;
        s.spec.video = {1, 2, row.src_width, row.src_height, 0, 0};
        d.spec.video = {30, 40, row.dst_width, row.dst_height, 0, 0};
        EXPECT_EQ(kel_blit_video_inside(&s, &d, 255, 0, 4), -1);
        expect_blit({1, 2, row.src_width, row.src_height}, row.expected, 255, 4, 0);
    }
    const kel_slice empty{};
    asked = {};
    for (const kel_slice* none : {static_cast<const kel_slice*>(nullptr), &empty}) {
        errno = 0;
        const int refused[] = {kel_blit_video(none, &dst, nullptr, nullptr, 255, 0, 0),
                               kel_blit_video(&src, none, nullptr, nullptr, 255, 0, 0),
                               kel_blit_video_inside(none, &dst, 255, 0, 0),
                               kel_blit_video_inside(&src, none, 255, 0, 0),
                               kel_fill_video(none, 0, nullptr)};
        for (int result : refused) EXPECT_EQ(result, -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_TRUE(asked == Request{});
}

Bytes png(int width, int height) {
    Bytes bgra;
    for (int i = 0; i < width * height; ++i) {
        for (int value : {i, i / width, 90, 255 - i}) bgra.push_back(static_cast<uint8_t>(value));
    }
    return picture_files::encode(AV_CODEC_ID_PNG, AV_PIX_FMT_RGBA, width, height, bgra);
}

TEST_F(Video, ImagesAreLoadedNoLargerThanHalfTheLimits) {
    const struct {
        int limit_width, limit_height, width, height, loaded_width, loaded_height;
    } rows[] = {{2048, 2048, 1024, 1024, 1024, 1024},
                {2048, 2048, 1025, 10, 1024, 9},
                {2048, 2048, 10, 1025, 9, 1024},
                {2048, 2048, 5, 3, 5, 3},
                {201, 101, 100, 50, 100, 50},
                {201, 101, 101, 50, 100, 49},
                {201, 101, 30, 51, 29, 50}};
    for (const auto& row : rows) {
        context->max_image_width = row.limit_width;
        context->max_image_height = row.limit_height;
        kel_buffer* buffer = load(png(row.width, row.height));
        ASSERT_NE(buffer, nullptr);
        const kel_buffer_format* format = kel_get_buffer_format(buffer);
        EXPECT_EQ(std::pair(format->video.width, format->video.height),
                  std::pair(row.loaded_width, row.loaded_height));
        EXPECT_EQ(std::pair(format->video.format, format->video.usage), std::pair(8, int{SCREEN_USAGE_READ}));
        EXPECT_EQ(std::pair(buffer->refcount, buffer->pool->count), std::pair(1, 1));
        const auto* last_row =
            static_cast<const uint8_t*>(buffer->ptr) + (row.loaded_height - 1) * buffer->stride;
        EXPECT_TRUE(row.width > row.loaded_width ||
                    last_row[1] == uint8_t(row.height - 1));  // green: the row
        EXPECT_EQ(kel_release_buffer(buffer), 0);
    }
}

TEST_F(Video, ABufferIsDescribedAsAnImage) {
    const kel_buffer* buffer = make_slice(context, {}).buffer;
    img_t img;
    memset(&img, 0xff, sizeof img);
    kel_init_img_for_buffer(&img, buffer);
    const Bytes file = png(64, 64);
    io_stream_t* stream = io_open_memory(file.data(), file.size());
    EXPECT_EQ(img_load_resize(ilib, stream, nullptr, &img), IMG_ERR_OK);
    io_close(stream);
    EXPECT_EQ(static_cast<const uint8_t*>(buffer->ptr)[63 * buffer->stride + 63 * 4 + 1],
              63);  // green: the row
}

// The decoder fails after the callout has made a buffer.
int fail_after_choosing(img_lib_t ilib, io_stream_t* stream, const img_decode_callouts_t* callouts,
                        img_t* img) {
    EXPECT_EQ(img_load_resize(ilib, stream, callouts, img), IMG_ERR_OK);
    return IMG_ERR_CORRUPT;
}

TEST_F(Video, ImagesThatCannotBeHadGiveNullAndLeaveNothing) {
    const std::string path = "/tmp/image-" + std::to_string(getpid());
    const Bytes file = png(20, 10);
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(file.data()), int64_t(file.size()));
    auto points = kel_test::screen_fault_points();
    points.push_back(KEL_FAULT_POINT(img_load_resize_file, IMG_ERR_CORRUPT, EIO));
    kel_test::sweep_faults(points, [&](const kel_test::Fault* fault, kel_test::LogCapture& log) {
        kel_buffer* buffer = kel_load_image_file(context, ilib, path.c_str(), SCREEN_USAGE_READ);
        EXPECT_EQ(buffer == nullptr, fault != nullptr);
        EXPECT_EQ(log.messages(2).size(), fault && !fault->is("img_load_resize_file"));
        if (buffer) kel_release_buffer(buffer);
    });
    unlink(path.c_str());
    const kel_test::LogCapture log;
    EXPECT_EQ(kel_load_image_file(context, ilib, path.c_str(), SCREEN_USAGE_READ), nullptr);
    EXPECT_EQ(kel_load_image_file(nullptr, ilib, path.c_str(), SCREEN_USAGE_READ), nullptr);
    EXPECT_EQ(load(Bytes(file.begin(), file.begin() + 40)), nullptr);  // found out before there is a buffer
    const auto failing = kel_test::hook(fail_after_choosing, "img_load_resize");
    EXPECT_EQ(load(file), nullptr);
    EXPECT_TRUE(log.messages(2).empty());
}

TEST_F(Video, ThreadsLoadImagesIntoOneContext) {
    const Bytes file = png(300, 200);
    kel_test::run_together(4, [&](int) {
        for (int round = 0; round < 5; ++round) {
            kel_buffer* buffer = load(file);
            ASSERT_NE(buffer, nullptr);
            EXPECT_EQ(kel_release_buffer(buffer), 0);
        }
    });
}

}  // namespace
