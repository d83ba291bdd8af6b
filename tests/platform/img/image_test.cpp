// The image library: every kind of source, sizes, strides and turns; files that are not whole or lie.
#include <img/img.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <new>

#include "platform/img/image_files.hpp"
#include "support/import_hooks.hpp"
#include "support/threads.hpp"

namespace {

using picture_files::Bytes;

int until_failure;  // allocations of the library or the codecs; 0: none fails
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

// What the callouts see and do.
struct Load {
    unsigned width = 0, height = 0;  // asked for; 0: the picture's own
    unsigned answer = 1;
    unsigned padding = 12;  // bytes behind each row and the last one
    unsigned own_width = 0, own_height = 0;
    int until_failure = 0;  // as above; afterwards negative when the failure came
    int frames = 0;
    Bytes memory = {};
    img_t img{};

    const uint8_t* pixel(unsigned x, unsigned y) const { return &memory[y * (img.w * 4 + padding) + x * 4]; }
    static unsigned choose(void* data, img_t* img, const img_format_t* formats, unsigned count) {
        auto& self = *static_cast<Load*>(data);
        EXPECT_EQ(img->flags & (IMG_FORMAT | IMG_W | IMG_H), IMG_FORMAT | IMG_W | IMG_H);
        EXPECT_EQ(std::count(formats, formats + count, IMG_FMT_ARGB8888), 1);
        self.own_width = img->w;
        self.own_height = img->h;
        if (self.width) img->w = self.width;
        if (self.height) img->h = self.height;
        img->format = IMG_FMT_ARGB8888;
        img->access.direct.stride = img->w * 4 + self.padding;
        self.memory.assign(size_t{img->access.direct.stride} * img->h, 0xcd);
        img->access.direct.data = self.memory.data();
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
            const uint8_t* end = pixel(img.w, y);
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
        until_failure = state.until_failure;
        const int result = img_load_resize(ilib, stream, &callouts, &state.img);
        state.until_failure = std::exchange(until_failure, 0);
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

// A source format, and what it keeps of a pixel.
struct Kind {
    AVCodecID codec;
    AVPixelFormat format;
    enum { color, grey, palette } keeps;
    bool alpha;
    int tolerance;
};

const Kind png = {AV_CODEC_ID_PNG, AV_PIX_FMT_RGBA, Kind::color, true, 0};
const Kind jpeg = {AV_CODEC_ID_MJPEG, AV_PIX_FMT_YUVJ420P, Kind::color, false, 8};
const Kind bmp = {AV_CODEC_ID_BMP, AV_PIX_FMT_BGR24, Kind::color, false, 0};
const Kind gif = {AV_CODEC_ID_GIF, AV_PIX_FMT_PAL8, Kind::palette, false, 0};
const Kind webp = {AV_CODEC_ID_WEBP, AV_PIX_FMT_BGRA, Kind::color, true, 0};
const Kind kinds[] = {
    png,
    {AV_CODEC_ID_PNG, AV_PIX_FMT_RGB24, Kind::color, false, 0},
    {AV_CODEC_ID_PNG, AV_PIX_FMT_RGBA64BE, Kind::color, true, 1},
    {AV_CODEC_ID_PNG, AV_PIX_FMT_RGB48BE, Kind::color, false, 1},
    {AV_CODEC_ID_PNG, AV_PIX_FMT_YA8, Kind::grey, true, 2},
    {AV_CODEC_ID_PNG, AV_PIX_FMT_GRAY16BE, Kind::grey, false, 2},
    {AV_CODEC_ID_PNG, AV_PIX_FMT_PAL8, Kind::palette, false, 0},
    jpeg,
    {AV_CODEC_ID_MJPEG, AV_PIX_FMT_YUVJ422P, Kind::color, false, 8},
    {AV_CODEC_ID_MJPEG, AV_PIX_FMT_YUVJ444P, Kind::color, false, 6},
    bmp,
    {AV_CODEC_ID_BMP, AV_PIX_FMT_RGB565, Kind::color, false, 12},
    {AV_CODEC_ID_BMP, AV_PIX_FMT_GRAY8, Kind::grey, false, 2},
    gif,
    webp,
    {AV_CODEC_ID_WEBP, AV_PIX_FMT_YUV420P, Kind::color, false, 14},
};

Bytes encoded(const Kind& kind, int w = width, int h = height) {
    return picture_files::encode(kind.codec, kind.format, w, h, test_picture(w, h));
}

// What is left of a pixel's channel after the source format.
double kept(const Kind& kind, const uint8_t* bgra, size_t channel) {
    if (channel == 3) return kind.alpha ? bgra[3] : 255;
    if (kind.keeps == Kind::grey) return .114 * bgra[0] + .587 * bgra[1] + .299 * bgra[2];
    if (kind.keeps == Kind::palette) return channel == 0 ? 0 : bgra[2] / (channel == 1 ? 2 : 1);
    return bgra[channel];
}

TEST_F(Image, EveryKindOfSourceIsReadAsItWasWritten) {
    const Bytes original = test_picture();
    for (const Kind& kind : kinds) {
        SCOPED_TRACE(testing::Message() << avcodec_get_name(kind.codec) << " format " << kind.format);
        Load state;
        ASSERT_EQ(load(encoded(kind), state), IMG_ERR_OK);
        EXPECT_TRUE(state.own_width == width && state.own_height == height && state.frames == 1);
        EXPECT_TRUE(state.padding_is_untouched());
        for (unsigned i = 0; i < width * height; ++i) {
            const uint8_t *source = &original[i * 4], *got = state.pixel(i % width, i / width);
            // Colour under hardly any alpha may be anything.
            for (size_t c = source[3] < 8 ? 3 : 0; c < 4; ++c)
                ASSERT_NEAR(got[c], kept(kind, source, c), kind.tolerance) << i << ' ' << c;
        }
    }
}

TEST_F(Image, PicturesAreScaledToWhatIsAskedFor) {
    for (const Kind& kind : {png, jpeg, bmp, webp}) {
        const Bytes file = encoded(kind, 160, 120);
        for (const auto& [w, h] :
             {std::pair{80u, 60u}, {33u, 47u}, {1u, 1u}, {320u, 240u}, {160u, 7u}, {63u, 120u}}) {
            Load state{.width = w, .height = h, .padding = w % 2 ? 4u : 0u};
            ASSERT_EQ(load(file, state), IMG_ERR_OK);
            EXPECT_TRUE(state.img.w == w && state.img.h == h && state.padding_is_untouched());
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
    } rows[] = {{1, top_left, top_right},       {2, top_right, top_left},     {3, bottom_right, bottom_left},
                {4, bottom_left, bottom_right}, {5, top_left, bottom_left},   {6, bottom_left, top_left},
                {7, bottom_right, top_right},   {8, top_right, bottom_right}, {9, top_left, top_right}};
    Bytes bgra(48 * 32 * 4);
    for (size_t i = 0; i < bgra.size(); ++i) {
        const bool right = i / 4 % 48 >= 24, bottom = i / 4 / 48 >= 16;
        bgra[i] = static_cast<uint8_t>(40 + 60 * (right + 2 * bottom));
    }
    const Bytes file = picture_files::encode(AV_CODEC_ID_MJPEG, AV_PIX_FMT_YUVJ444P, 48, 32, bgra);
    for (const auto& row : rows) {
        SCOPED_TRACE(int{row.orientation});
        for (unsigned scale : {1u, 2u}) {
            const bool exchanged = row.orientation >= 5 && row.orientation <= 8;
            Load state{.width = (exchanged ? 32 : 48) / scale, .height = (exchanged ? 48 : 32) / scale};
            ASSERT_EQ(load(picture_files::with_orientation(file, row.orientation), state), IMG_ERR_OK);
            EXPECT_EQ(state.own_width, exchanged ? 32u : 48u);
            EXPECT_TRUE(state.padding_is_untouched());
            EXPECT_NEAR(state.pixel(2, 2)[0], 40 + 60 * row.shows_top_left, 6);
            EXPECT_NEAR(state.pixel(state.img.w - 3, 2)[0], 40 + 60 * row.shows_top_right, 6);
        }
    }
}

TEST_F(Image, FilesThatAreNotWholeAreRefused) {
    for (const Kind& kind : kinds) {
        SCOPED_TRACE(testing::Message() << avcodec_get_name(kind.codec) << " format " << kind.format);
        Bytes file = encoded(kind);
        file.pop_back();
        while (!file.empty()) {
            file.pop_back();
            Load state;
            const int result = load(file, state);
            ASSERT_TRUE(result == IMG_ERR_CORRUPT || result == IMG_ERR_FORMAT || result == IMG_ERR_LIMIT)
                << result << " for the first " << file.size() << " bytes";
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
    const struct {
        Kind kind;
        std::string mark;
        std::ptrdiff_t offset;  // from the mark to the claim
        Bytes claim;
    } rows[] = {
        {png, "IHDR", 4, {0, 0, 0x3f, 0xff, 0, 0, 0x3f, 0xff}},
        {png, "IHDR", 4, {0x7f, 0xff, 0xff, 0xff, 0x7f, 0xff, 0xff, 0xff}},
        {jpeg, "\xff\xc0", 5, {0xff, 0xff, 0xff, 0xff}},
        {bmp, "BM", 18, {0xff, 0xff, 0, 0, 0xff, 0xff, 0, 0}},
        {bmp, "BM", 18, {0xff, 0xff, 0xff, 0x7f, 0xff, 0xff, 0xff, 0x7f}},
        {gif, "GIF", 6, {0xff, 0xff, 0xff, 0xff}},
        {webp, "VP8L", 9, {0xff, 0xff, 0xff, 0x0f}},
    };
    for (const auto& row : rows) {
        Bytes file = encoded(row.kind);
        const auto same = [](uint8_t a, char b) { return a == static_cast<uint8_t>(b); };
        const auto mark = std::search(file.begin(), file.end(), row.mark.begin(), row.mark.end(), same);
        std::copy(row.claim.begin(), row.claim.end(), mark + row.offset);
        Load state;
        largest_allocation = 0;
        int result = IMG_ERR_OK;
        EXPECT_LT(kel_test::milliseconds([&] { result = load(file, state); }), 500);
        EXPECT_TRUE(result == IMG_ERR_LIMIT || result == IMG_ERR_CORRUPT) << result;
        EXPECT_LE(largest_allocation, size_t{1} << 20);
    }
}

TEST_F(Image, FilesAndPreparedImagesWork) {
    const std::string path = testing::TempDir() + "picture-" + std::to_string(getpid());
    const Bytes file = encoded(png);
    std::ofstream(path).write(reinterpret_cast<const char*>(file.data()), std::streamsize(file.size()));
    Load by_path, by_stream;
    const img_decode_callouts_t callouts = {Load::choose, nullptr, &by_path};
    EXPECT_EQ(img_load_resize_file(ilib, path.c_str(), &callouts, &by_path.img), IMG_ERR_OK);
    EXPECT_EQ(load(file, by_stream), IMG_ERR_OK);
    EXPECT_EQ(by_path.memory, by_stream.memory);
    // Without callouts, into an image that is complete already.
    Bytes rows(16 * 16 * 4);
    img_t prepared{{{rows.data(), 64}}, 16, 16, IMG_FMT_ARGB8888, IMG_FORMAT | IMG_W | IMG_H | IMG_DIRECT};
    EXPECT_EQ(img_load_resize_file(ilib, path.c_str(), nullptr, &prepared), IMG_ERR_OK);
    EXPECT_NE(rows, Bytes(rows.size()));
    unlink(path.c_str());
    errno = 0;
    EXPECT_EQ(img_load_resize_file(ilib, path.c_str(), nullptr, &prepared), IMG_ERR_FILE);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(img_load_resize_file(ilib, "/", nullptr, &prepared), IMG_ERR_FILE);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(img_load_resize_file(ilib, "/dev/zero", nullptr, &prepared), IMG_ERR_FORMAT);
}

TEST_F(Image, WhatIsNotGoodIsRefused) {
    const Bytes file = encoded(png);
    const auto with = [&](auto change) {
        Bytes rows(16 * 16 * 4);
        img_t img{{{rows.data(), 64}}, 16, 16, IMG_FMT_ARGB8888, IMG_FORMAT | IMG_W | IMG_H | IMG_DIRECT};
        change(img);
        io_stream_t* stream = io_open_memory(file.data(), file.size());
        const int result = img_load_resize(ilib, stream, nullptr, &img);
        io_close(stream);
        return result;
    };
    img_lib_t ended;
    ASSERT_EQ(img_lib_attach(&ended), IMG_ERR_OK);
    ASSERT_EQ(img_lib_detach(ended), IMG_ERR_OK);
    Load state;
    io_stream_t* stream = io_open_memory(file.data(), file.size());
    const int refused[] = {
        with([](img_t& img) { img.flags = IMG_W | IMG_H | IMG_FORMAT; }),
        with([](img_t& img) { img.format = 7; }),
        with([](img_t& img) { img.w = 0; }),
        with([](img_t& img) { img.h = 40000; }),
        with([](img_t& img) { img.access.direct.data = nullptr; }),
        with([](img_t& img) { img.access.direct.stride = 60; }),
        with([](img_t& img) { img.access.direct.stride = 65; }),
        img_lib_attach(nullptr),
        img_lib_detach(ended),
        img_lib_detach(nullptr),
        img_load_resize(ended, stream, nullptr, &state.img),
        img_load_resize(ilib, nullptr, nullptr, &state.img),
        img_load_resize(ilib, stream, nullptr, nullptr),
        img_load_resize_file(ilib, nullptr, nullptr, &state.img),
    };
    for (int result : refused) EXPECT_EQ(result, IMG_ERR_PARM);
    io_close(stream);
    io_close(nullptr);
    EXPECT_EQ(with([](img_t&) {}), IMG_ERR_OK);
    EXPECT_EQ(io_open_memory(nullptr, 1), nullptr);
    EXPECT_EQ(io_open_file(nullptr), nullptr);
    for (const auto& [answer, expected] :
         {std::pair{6u, IMG_ERR_MEM}, {0u, IMG_ERR_ABORTED}, {2u, IMG_ERR_ABORTED}}) {
        state.answer = answer;
        EXPECT_EQ(load(file, state), expected);
    }
    EXPECT_EQ(state.frames, 0);
}

TEST_F(Image, EveryAllocationMayFail) {
    const auto allocate =
        kel_test::hook(failing_new, sizeof(size_t) == 8 ? "_Znwm" : "_Znwj", "libkelplatform.so");
    const auto align = kel_test::hook(failing_posix_memalign, "posix_memalign", "libavutil.so");
    const auto grow = kel_test::hook(failing_realloc, "realloc", "libavutil.so");
    for (const Kind& kind : {png, jpeg, bmp, gif, webp}) {
        const Bytes file = encoded(kind);
        int n = 1;
        for (bool failed = true; failed; ++n) {
            Load state{.until_failure = n};
            const int result = load(file, state);
            // The codecs do without some of their memory, and name the lack of it as they like.
            ASSERT_TRUE(result == IMG_ERR_OK || result == IMG_ERR_MEM || result == IMG_ERR_CORRUPT) << result;
            ASSERT_EQ(state.frames, result == IMG_ERR_OK);
            failed = state.until_failure <= 0;
        }
        EXPECT_GT(n, 10);
    }
}

}  // namespace
