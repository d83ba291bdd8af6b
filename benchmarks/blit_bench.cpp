// screen_blit beside the libraries that it calls, and libyuv.
#include <kel.h>
#include <libyuv/scale_argb.h>
#include <pixman.h>

extern "C" {
#include <libswscale/swscale.h>
}

#include <random>

#include "benchmarks/harness.hpp"

namespace {

using namespace kel_bench;

constexpr int smooth = SCREEN_QUALITY_NORMAL, nearest = SCREEN_QUALITY_FASTEST;

struct World {
    World() : context(kel_create_context()) {}
    ~World() { kel_destroy_context(&context); }
    kel_context* context;
};

class Frame {
  public:
    Frame(World& world, int format, int width, int height) {
        const kel_video_format video = {format, SCREEN_USAGE_READ | SCREEN_USAGE_WRITE, width, height};
        buffer_ = kel_create_pixmap_buffer(world.context, &video);
        std::mt19937 random(1);
        for (uint32_t i = 0; i < buffer_->size; ++i) data()[i] = static_cast<uint8_t>(random());
        slice = kel_slice_for_buffer(buffer_);
    }
    ~Frame() { kel_release_buffer(buffer_); }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;
    uint8_t* data() const { return static_cast<uint8_t*>(buffer_->ptr); }
    int stride() const { return buffer_->stride; }
    int width() const { return kel_get_buffer_format(buffer_)->video.width; }
    int height() const { return kel_get_buffer_format(buffer_)->video.height; }
    pixman_image_t* image() const {
        return pixman_image_create_bits(PIXMAN_a8r8g8b8, width(), height(),
                                        reinterpret_cast<uint32_t*>(data()), stride());
    }
    kel_slice slice;

  private:
    kel_buffer* buffer_;
};

Comparison::Work blits(World& world, const Frame& from, const Frame& to, int quality, int transparency) {
    return [&world, &from, &to, quality, transparency](uint64_t count) {
        for (; count > 0; --count) {
            kel_blit_video(&from.slice, &to.slice, nullptr, nullptr, 255, quality, transparency);
            screen_flush_blits(world.context->screen_context, SCREEN_WAIT_IDLE);
        }
    };
}

Comparison::Work pixman_scales(const Frame& from, const Frame& to, int quality) {
    pixman_image_t *source = from.image(), *target = to.image();
    pixman_transform_t transform;
    pixman_transform_init_scale(&transform, from.width() * pixman_fixed_1 / to.width(),
                                from.height() * pixman_fixed_1 / to.height());
    pixman_image_set_transform(source, &transform);
    pixman_image_set_repeat(source, PIXMAN_REPEAT_PAD);
    pixman_image_set_filter(source, quality == smooth ? PIXMAN_FILTER_BILINEAR : PIXMAN_FILTER_NEAREST,
                            nullptr, 0);
    return [source, target, &to](uint64_t count) {
        for (; count > 0; --count) {
            pixman_image_composite32(PIXMAN_OP_SRC, source, nullptr, target, 0, 0, 0, 0, 0, 0, to.width(),
                                     to.height());
        }
    };
}

Comparison::Work libyuv_scales(const Frame& from, const Frame& to, int quality) {
    return [&from, &to, quality](uint64_t count) {
        for (; count > 0; --count) {
            libyuv::ARGBScale(from.data(), from.stride(), from.width(), from.height(), to.data(), to.stride(),
                              to.width(), to.height(),
                              quality == smooth ? libyuv::kFilterBilinear : libyuv::kFilterNone);
        }
    };
}

void compare_scaling(World& world, const char* title, int width, int height, int quality,
                     const Options& options) {
    const Frame from(world, SCREEN_FORMAT_RGBA8888, 1280, 720),
        to(world, SCREEN_FORMAT_RGBA8888, width, height);
    Comparison comparison(title, {"µs a frame", 1e6});
    comparison.add(Role::subject, "screen_blit", blits(world, from, to, quality, SCREEN_TRANSPARENCY_NONE));
    comparison.add(Role::reference, "pixman", pixman_scales(from, to, quality));
    comparison.add(Role::peer, "libyuv", libyuv_scales(from, to, quality));
    comparison.run(options);
}

void compare_yuv(World& world, const char* title, int from_format, int to_format, int width, int height,
                 AVPixelFormat from_name, AVPixelFormat to_name, const Options& options) {
    const Frame from(world, from_format, 1280, 720), to(world, to_format, width, height);
    SwsContext* scaler = sws_getContext(1280, 720, from_name, width, height, to_name,
                                        SWS_BICUBIC | SWS_ACCURATE_RND | SWS_BITEXACT | SWS_FULL_CHR_H_INP,
                                        nullptr, nullptr, nullptr);
    Comparison comparison(title, {"µs a frame", 1e6});
    comparison.add(Role::subject, "screen_blit", blits(world, from, to, smooth, SCREEN_TRANSPARENCY_NONE));
    comparison.add(Role::reference, "libswscale, exact", [&, scaler](uint64_t count) {
        const uint8_t* const in[] = {from.data(), from.data() + from.stride() * from.height()};
        uint8_t* const out[] = {to.data(), to.data() + to.stride() * to.height()};
        const int in_strides[] = {from.stride(), from.stride()}, out_strides[] = {to.stride(), to.stride()};
        for (; count > 0; --count) sws_scale(scaler, in, in_strides, 0, from.height(), out, out_strides);
    });
    comparison.run(options);
    sws_freeContext(scaler);
}

void compare_copies(World& world, const Options& options) {
    const Frame from(world, SCREEN_FORMAT_RGBA8888, 1280, 720), to(world, SCREEN_FORMAT_RGBA8888, 1280, 720);
    const Frame clear(world, SCREEN_FORMAT_RGBA8888, 1280, 720),
        solid(world, SCREEN_FORMAT_RGBX8888, 1280, 720);
    Comparison comparison("Copies of 1280×720 RGBA", {"µs a frame", 1e6});
    comparison.add(Role::subject, "screen_blit", blits(world, from, to, smooth, SCREEN_TRANSPARENCY_NONE));
    comparison.add(Role::subject, "blended over opaque pixels",
                   blits(world, from, solid, smooth, SCREEN_TRANSPARENCY_SOURCE_OVER));
    comparison.add(Role::subject, "blended over transparent pixels",
                   blits(world, from, clear, smooth, SCREEN_TRANSPARENCY_SOURCE_OVER));
    comparison.add(Role::reference, "memcpy", [&](uint64_t count) {
        for (; count > 0; --count) {
            std::memcpy(to.data(), from.data(),
                        static_cast<size_t>(from.stride()) * static_cast<size_t>(from.height()));
            keep(to);
        }
    });
    comparison.run(options);
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse_options(argc, argv);
    World world;
    compare_scaling(world, "Smooth scaling of RGBA, 1280×720 to 800×450", 800, 450, smooth, options);
    compare_scaling(world, "Smooth scaling of RGBA, 1280×720 to 1920×1080", 1920, 1080, smooth, options);
    compare_scaling(world, "Nearest pixels of RGBA, 1280×720 to 800×450", 800, 450, nearest, options);
    compare_copies(world, options);
    compare_yuv(world, "NV12 to NV12, 1280×720 to 800×450", SCREEN_FORMAT_NV12, SCREEN_FORMAT_NV12, 800, 450,
                AV_PIX_FMT_NV12, AV_PIX_FMT_NV12, options);
    compare_yuv(world, "NV12 to RGBA, 1280×720", SCREEN_FORMAT_NV12, SCREEN_FORMAT_RGBA8888, 1280, 720,
                AV_PIX_FMT_NV12, AV_PIX_FMT_BGRA, options);
    return 0;
}
