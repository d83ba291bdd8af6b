// The image library: every kind of source, sizes, strides and turns; files that are not whole or lie.
#include <img/img.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "platform/picture_files.hpp"
#include "support/import_hooks.hpp"
#include "support/threads.hpp"

namespace {

using picture_files::Bytes;

// What the callouts see and do.
struct Load {
    unsigned width = 0, height = 0;  // asked for; 0: the picture's own
    unsigned own_width = 0, own_height = 0;
    unsigned answer = 1;
    int frames = 0;
    unsigned padding = 12;  // bytes behind each row and the last one
    Bytes memory;
    img_t img{};

    unsigned stride() const { return img.w * 4 + padding; }
    const uint8_t* pixel(unsigned x, unsigned y) const { return &memory[y * stride() + x * 4]; }
    static unsigned choose(void* data, img_t* img, const img_format_t* formats, unsigned count) {
        auto& self = *static_cast<Load*>(data);
        EXPECT_EQ(img->flags & (IMG_FORMAT | IMG_W | IMG_H), IMG_FORMAT | IMG_W | IMG_H);
        EXPECT_EQ(std::count(formats, formats + count, IMG_FMT_ARGB8888), 1);
        self.own_width = img->w;
        self.own_height = img->h;
        if (self.width) img->w = self.width;
        if (self.height) img->h = self.height;
        img->format = IMG_FMT_ARGB8888;
        self.memory.assign(size_t{img->w * 4 + self.padding} * img->h, 0xcd);
        img->access.direct.data = self.memory.data();
        img->access.direct.stride = img->w * 4 + self.padding;
        img->flags |= IMG_DIRECT;
        return self.answer == 1 ? count : self.answer;
    }
    static void complete(void* data, img_t* img) {
        auto& self = *static_cast<Load*>(data);
        EXPECT_EQ(img, &self.img);
        ++self.frames;
    }
    bool padding_is_untouched() const {
        for (unsigned y = 0; y < img.h; ++y) {
            const uint8_t* end = pixel(0, y) + img.w * 4;
            if (std::any_of(end, end + padding, [](int byte) { return byte != 0xcd; })) return false;
        }
        return true;
    }
};

class Image : public ::testing::Test {
  protected:
    void SetUp() override {
        av_log_set_level(AV_LOG_QUIET);
        ASSERT_EQ(img_lib_attach(&ilib), IMG_ERR_OK);
    }
    void TearDown() override { EXPECT_EQ(img_lib_detach(ilib), IMG_ERR_OK); }
    int load(const Bytes& file, Load& state) const {
        const img_decode_callouts_t callouts = {Load::choose, Load::complete, &state};
        io_stream_t* stream = io_open_memory(file.data(), file.size());
        const int result = img_load_resize(ilib, stream, &callouts, &state.img);
        io_close(stream);
        return result;
    }
    img_lib_t ilib = nullptr;
};

constexpr int width = 37, height = 23;

// Soft colours; alpha from 0 to 255.
Bytes test_picture(int w = width, int h = height) {
    Bytes bgra;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            for (int value :
                 {20 + 200 * x / w, 240 - 220 * y / h, 30 + 100 * (x + y) / (w + h), 255 * x / (w - 1)}) {
                bgra.push_back(static_cast<uint8_t>(value));
            }
        }
    }
    return bgra;
}

// Classes of what a source format keeps of a pixel.
enum class Keeps { color_and_alpha, color, grey, grey_and_alpha, palette, black_and_white };

struct Kind {
    AVCodecID codec;
    AVPixelFormat format;
    Keeps keeps;
    int tolerance;
};

const Kind kinds[] = {
    {AV_CODEC_ID_PNG, AV_PIX_FMT_RGBA, Keeps::color_and_alpha, 0},
    {AV_CODEC_ID_PNG, AV_PIX_FMT_RGB24, Keeps::color, 0},
    {AV_CODEC_ID_PNG, AV_PIX_FMT_RGBA64BE, Keeps::color_and_alpha, 1},
    {AV_CODEC_ID_PNG, AV_PIX_FMT_RGB48BE, Keeps::color, 1},
    {AV_CODEC_ID_PNG, AV_PIX_FMT_GRAY8, Keeps::grey, 2},
    {AV_CODEC_ID_PNG, AV_PIX_FMT_YA8, Keeps::grey_and_alpha, 2},
    {AV_CODEC_ID_PNG, AV_PIX_FMT_GRAY16BE, Keeps::grey, 2},
    {AV_CODEC_ID_PNG, AV_PIX_FMT_PAL8, Keeps::palette, 0},
    {AV_CODEC_ID_PNG, AV_PIX_FMT_MONOBLACK, Keeps::black_and_white, 0},
    {AV_CODEC_ID_MJPEG, AV_PIX_FMT_YUVJ420P, Keeps::color, 8},
    {AV_CODEC_ID_MJPEG, AV_PIX_FMT_YUVJ422P, Keeps::color, 8},
    {AV_CODEC_ID_MJPEG, AV_PIX_FMT_YUVJ444P, Keeps::color, 6},
    {AV_CODEC_ID_BMP, AV_PIX_FMT_BGR24, Keeps::color, 0},
    {AV_CODEC_ID_BMP, AV_PIX_FMT_RGB565, Keeps::color, 12},
    {AV_CODEC_ID_BMP, AV_PIX_FMT_GRAY8, Keeps::grey, 2},
    {AV_CODEC_ID_BMP, AV_PIX_FMT_PAL8, Keeps::palette, 0},
    {AV_CODEC_ID_GIF, AV_PIX_FMT_PAL8, Keeps::palette, 0},
    {AV_CODEC_ID_WEBP, AV_PIX_FMT_BGRA, Keeps::color_and_alpha, 0},
    {AV_CODEC_ID_WEBP, AV_PIX_FMT_YUV420P, Keeps::color, 14},
};

Bytes encoded(const Kind& kind, int w = width, int h = height) {
    return picture_files::encode(kind.codec, kind.format, w, h, test_picture(w, h));
}

// What is left of a pixel after the source format.
std::vector<double> kept(Keeps keeps, const uint8_t* bgra) {
    const double blue = bgra[0], green = bgra[1], red = bgra[2], alpha = bgra[3];
    const double grey = .114 * blue + .587 * green + .299 * red;
    switch (keeps) {
        case Keeps::color_and_alpha:
            return {blue, green, red, alpha};
        case Keeps::grey:
            return {grey, grey, grey, 255};
        case Keeps::grey_and_alpha:
            return {grey, grey, grey, alpha};
        case Keeps::palette:
            return {0, std::floor(red / 2), red, 255};
        default:
            return {blue, green, red, 255};
    }
}

TEST_F(Image, EveryKindOfSourceIsReadAsItWasWritten) {
    const Bytes original = test_picture();
    for (const Kind& kind : kinds) {
        SCOPED_TRACE(testing::Message() << avcodec_get_name(kind.codec) << " format " << kind.format);
        Load state;
        ASSERT_EQ(load(encoded(kind), state), IMG_ERR_OK);
        EXPECT_EQ(state.own_width, unsigned{width});
        EXPECT_EQ(state.own_height, unsigned{height});
        EXPECT_EQ(state.frames, 1);
        EXPECT_TRUE(state.padding_is_untouched());
        for (unsigned y = 0; y < height; ++y) {
            for (unsigned x = 0; x < width; ++x) {
                const uint8_t* source = &original[(y * width + x) * 4];
                const std::vector<double> expected = kept(kind.keeps, source);
                const uint8_t* got = state.pixel(x, y);
                if (kind.keeps == Keeps::black_and_white) {
                    ASSERT_TRUE((got[0] == 0 || got[0] == 255) && got[1] == got[0] && got[2] == got[0] &&
                                got[3] == 255);
                    continue;
                }
                // Colour under hardly any alpha may be anything.
                for (size_t c = source[3] < 8 ? 3 : 0; c < 4; ++c) {
                    ASSERT_NEAR(got[c], expected[c], kind.tolerance) << x << ' ' << y << ' ' << c;
                }
            }
        }
    }
}

TEST_F(Image, PicturesAreScaledToWhatIsAskedFor) {
    for (const Kind& kind : kinds) {
        if (kind.keeps != Keeps::color) continue;
        const Bytes file = encoded(kind, 160, 120);
        for (const auto& [w, h] : {std::pair{80u, 60u},
                                   {33u, 47u},
                                   {1u, 1u},
                                   {320u, 240u},
                                   {160u, 7u},
                                   {48u, 120u},
                                   {63u, 120u}}) {
            Load state;
            state.width = w;
            state.height = h;
            state.padding = w % 2 ? 4 : 0;
            ASSERT_EQ(load(file, state), IMG_ERR_OK);
            EXPECT_EQ(state.img.w, w);
            EXPECT_EQ(state.img.h, h);
            EXPECT_TRUE(state.padding_is_untouched());
            const uint8_t* middle = state.pixel(w / 2, h / 2);
            EXPECT_NEAR(middle[0], 20 + 200 * (w / 2 + .5) / w, kind.tolerance + 4) << w << ' ' << h;
            EXPECT_NEAR(middle[1], 240 - 220 * (h / 2 + .5) / h, kind.tolerance + 4) << w << ' ' << h;
        }
    }
}

TEST_F(Image, JpegPicturesAreTurnedUpright) {
    // Corners of the file, named by their row and column; which of them shows at the top left and top right.
    enum Corner { top_left, top_right, bottom_left, bottom_right };
    const struct {
        uint8_t orientation;
        Corner shows_top_left, shows_top_right;
    } rows[] = {{1, top_left, top_right},       {2, top_right, top_left},    {3, bottom_right, bottom_left},
                {4, bottom_left, bottom_right}, {5, top_left, bottom_left},  {6, bottom_left, top_left},
                {7, bottom_right, top_right},   {8, top_right, bottom_right}};
    Bytes bgra(48 * 32 * 4);
    for (int y = 0; y < 32; ++y) {
        for (int x = 0; x < 48; ++x) {
            uint8_t* p = &bgra[size_t(y * 48 + x) * 4];
            p[0] = p[1] = p[2] = static_cast<uint8_t>(40 + 60 * ((x >= 24) + 2 * (y >= 16)));
        }
    }
    const Bytes file = picture_files::encode(AV_CODEC_ID_MJPEG, AV_PIX_FMT_YUVJ444P, 48, 32, bgra);
    for (const auto& row : rows) {
        SCOPED_TRACE(int{row.orientation});
        for (unsigned scale : {1u, 2u}) {
            const bool exchanged = row.orientation >= 5;
            Load state;
            state.width = (exchanged ? 32 : 48) / scale;
            state.height = (exchanged ? 48 : 32) / scale;
            ASSERT_EQ(load(picture_files::with_orientation(file, row.orientation), state), IMG_ERR_OK);
            EXPECT_EQ(state.own_width, exchanged ? 32u : 48u);
            EXPECT_TRUE(state.padding_is_untouched());
            EXPECT_NEAR(state.pixel(2, 2)[0], 40 + 60 * row.shows_top_left, 6);
            EXPECT_NEAR(state.pixel(state.img.w - 3, 2)[0], 40 + 60 * row.shows_top_right, 6);
        }
    }
    Load state;
    EXPECT_EQ(load(picture_files::with_orientation(file, 9), state), IMG_ERR_OK);
    EXPECT_EQ(state.own_width, 48u);
}

TEST_F(Image, FilesThatAreNotWholeAreRefused) {
    for (const Kind& kind : kinds) {
        SCOPED_TRACE(testing::Message() << avcodec_get_name(kind.codec) << " format " << kind.format);
        const Bytes file = encoded(kind);
        for (size_t size = 0; size < file.size() - 1; ++size) {
            Load state;
            const int result =
                load(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size)), state);
            ASSERT_TRUE(result == IMG_ERR_CORRUPT || result == IMG_ERR_FORMAT || result == IMG_ERR_LIMIT)
                << result << " for the first " << size << " of " << file.size() << " bytes";
            ASSERT_EQ(state.frames, 0);
        }
    }
}

// The largest block that the codec library asked for.
size_t largest_allocation;
int posix_memalign_recorder(void** memory, size_t alignment, size_t size) {
    largest_allocation = std::max(largest_allocation, size);
    return posix_memalign(memory, alignment, size);
}

TEST_F(Image, HugeClaimsAreRefusedAtOnce) {
    const auto recorder = kel_test::hook(posix_memalign_recorder, "posix_memalign", "libavutil.so");
    ASSERT_TRUE(recorder.bound());
    const auto patched = [](const Kind& kind, size_t offset, Bytes bytes) {
        Bytes file = encoded(kind);
        std::copy(bytes.begin(), bytes.end(), file.begin() + static_cast<std::ptrdiff_t>(offset));
        return file;
    };
    const auto find = [](const Kind& kind, const Bytes& what) {
        const Bytes file = encoded(kind);
        return static_cast<size_t>(std::search(file.begin(), file.end(), what.begin(), what.end()) -
                                   file.begin());
    };
    const Kind png = kinds[0], jpeg = kinds[9], bmp = kinds[12], gif = kinds[16], webp = kinds[17];
    const Bytes huge[] = {
        patched(png, 16, {0, 0, 0x3f, 0xff, 0, 0, 0x3f, 0xff}),
        patched(png, 16, {0x7f, 0xff, 0xff, 0xff, 0x7f, 0xff, 0xff, 0xff}),
        patched(jpeg, find(jpeg, {0xff, 0xc0}) + 5, {0xff, 0xff, 0xff, 0xff}),
        patched(bmp, 18, {0xff, 0xff, 0, 0, 0xff, 0xff, 0, 0}),
        patched(bmp, 18, {0xff, 0xff, 0xff, 0x7f, 0xff, 0xff, 0xff, 0x7f}),
        patched(gif, 6, {0xff, 0xff, 0xff, 0xff}),
        patched(webp, find(webp, {'V', 'P', '8', 'L'}) + 9, {0xff, 0xff, 0xff, 0x0f}),
    };
    for (const Bytes& file : huge) {
        Load state;
        largest_allocation = 0;
        int result = IMG_ERR_OK;
        EXPECT_LT(kel_test::milliseconds([&] { result = load(file, state); }), 500);
        EXPECT_TRUE(result == IMG_ERR_LIMIT || result == IMG_ERR_CORRUPT) << result;
        EXPECT_LE(largest_allocation, size_t{1} << 20);
    }
}

TEST_F(Image, FilesAndPreparedImagesWork) {
    char path[] = "/tmp/picture-XXXXXX";
    const int descriptor = mkstemp(path);
    ASSERT_GE(descriptor, 0);
    const Bytes file = encoded(kinds[0]);
    ASSERT_EQ(write(descriptor, file.data(), file.size()), static_cast<ssize_t>(file.size()));
    close(descriptor);
    Load by_path, by_stream;
    const img_decode_callouts_t callouts = {Load::choose, nullptr, &by_path};
    EXPECT_EQ(img_load_resize_file(ilib, path, &callouts, &by_path.img), IMG_ERR_OK);
    EXPECT_EQ(load(file, by_stream), IMG_ERR_OK);
    EXPECT_EQ(by_path.memory, by_stream.memory);
    // Without callouts, into an image that is complete already.
    Bytes rows(16 * 16 * 4);
    img_t prepared{{{rows.data(), 64}}, 16, 16, IMG_FMT_ARGB8888, IMG_FORMAT | IMG_W | IMG_H | IMG_DIRECT};
    EXPECT_EQ(img_load_resize_file(ilib, path, nullptr, &prepared), IMG_ERR_OK);
    EXPECT_NE(rows, Bytes(rows.size()));
    unlink(path);
    errno = 0;
    EXPECT_EQ(img_load_resize_file(ilib, path, nullptr, &prepared), IMG_ERR_FILE);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(img_load_resize_file(ilib, "/", nullptr, &prepared), IMG_ERR_FILE);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(img_load_resize_file(ilib, "/dev/zero", nullptr, &prepared), IMG_ERR_FORMAT);
}

TEST_F(Image, WhatIsNotGoodIsRefused) {
    const Bytes file = encoded(kinds[0]);
    const auto with = [&](auto change) {
        Bytes rows(16 * 16 * 4);
        img_t img{{{rows.data(), 64}}, 16, 16, IMG_FMT_ARGB8888, IMG_FORMAT | IMG_W | IMG_H | IMG_DIRECT};
        change(img);
        io_stream_t* stream = io_open_memory(file.data(), file.size());
        const int result = img_load_resize(ilib, stream, nullptr, &img);
        io_close(stream);
        return result;
    };
    const int refused[] = {
        with([](img_t& img) { img.flags = IMG_W | IMG_H | IMG_FORMAT; }),
        with([](img_t& img) { img.format = 7; }),
        with([](img_t& img) { img.w = 0; }),
        with([](img_t& img) { img.h = 40000; }),
        with([](img_t& img) { img.access.direct.data = nullptr; }),
        with([](img_t& img) { img.access.direct.stride = 60; }),
        with([](img_t& img) { img.access.direct.stride = 65; }),
    };
    for (int result : refused) EXPECT_EQ(result, IMG_ERR_PARM);
    EXPECT_EQ(with([](img_t&) {}), IMG_ERR_OK);
    Load state;
    for (const auto& [answer, expected] :
         {std::pair{6u, IMG_ERR_MEM}, {0u, IMG_ERR_ABORTED}, {2u, IMG_ERR_ABORTED}}) {
        state.answer = answer;
        EXPECT_EQ(load(file, state), expected);
    }
    EXPECT_EQ(state.frames, 0);
    img_lib_t ended;
    ASSERT_EQ(img_lib_attach(&ended), IMG_ERR_OK);
    ASSERT_EQ(img_lib_detach(ended), IMG_ERR_OK);
    io_stream_t* stream = io_open_memory(file.data(), file.size());
    const int bad_handles[] = {img_lib_attach(nullptr),
                               img_lib_detach(ended),
                               img_lib_detach(nullptr),
                               img_load_resize(ended, stream, nullptr, &state.img),
                               img_load_resize(ilib, nullptr, nullptr, &state.img),
                               img_load_resize(ilib, stream, nullptr, nullptr),
                               img_load_resize_file(ilib, nullptr, nullptr, &state.img)};
    for (int result : bad_handles) EXPECT_EQ(result, IMG_ERR_PARM);
    io_close(stream);
    io_close(nullptr);
    EXPECT_EQ(io_open_memory(nullptr, 1), nullptr);
    EXPECT_EQ(io_open_file(nullptr), nullptr);
}

// The n-th allocation of the library, or of the codecs, fails.
int until_failure;
bool fails() {
    return --until_failure == 0;
}
void* failing_new(size_t size) {
    if (fails()) throw std::bad_alloc();
    return ::operator new(size);
}
int failing_posix_memalign(void** memory, size_t alignment, size_t size) {
    return fails() ? ENOMEM : posix_memalign(memory, alignment, size);
}
void* failing_realloc(void* memory, size_t size) {
    return fails() ? nullptr : realloc(memory, size);
}

TEST_F(Image, EveryAllocationMayFail) {
    const auto allocate =
        kel_test::hook(failing_new, sizeof(size_t) == 8 ? "_Znwm" : "_Znwj", "libkelplatform.so");
    const auto align = kel_test::hook(failing_posix_memalign, "posix_memalign", "libavutil.so");
    const auto grow = kel_test::hook(failing_realloc, "realloc", "libavutil.so");
    for (const Kind& kind : {kinds[0], kinds[9], kinds[12], kinds[16], kinds[17]}) {
        const Bytes file = encoded(kind);
        for (int n = 1;; ++n) {
            Load state;
            const img_decode_callouts_t callouts = {Load::choose, Load::complete, &state};
            io_stream_t* stream = io_open_memory(file.data(), file.size());
            until_failure = n;
            const int result = img_load_resize(ilib, stream, &callouts, &state.img);
            const bool reached = until_failure <= 0;
            until_failure = 0;
            io_close(stream);
            if (!reached) {
                EXPECT_EQ(result, IMG_ERR_OK);
                EXPECT_GT(n, 10);
                break;
            }
            // The codecs do without some of their memory, and name the lack of it as they like.
            ASSERT_TRUE(result == IMG_ERR_OK || result == IMG_ERR_MEM || result == IMG_ERR_CORRUPT) << result;
            ASSERT_EQ(state.frames, result == IMG_ERR_OK);
        }
    }
}

}  // namespace
