// BGRA to NV12 beside libyuv and libswscale: frames that come from memory, and frames that stay in the cache.
#include <kel.h>
#include <libyuv/convert_from_argb.h>

extern "C" {
#include <libswscale/swscale.h>
}

#include <memory>
#include <random>

#include "benchmarks/harness.hpp"
#include "image/nv12_kernels.hpp"

namespace {

using namespace kel_bench;

// A buffer of a given format outside of any pool.
struct frame {
    kel_buffer_pool pool{};
    kel_buffer buffer{};
    std::vector<uint8_t> bytes;
    frame(int format, int width, int height, int stride, size_t size) : bytes(size) {
        pool.format.type = KEL_BUFFER_VIDEO;
        pool.format.video = {format, 0, width, height};
        buffer.pool = &pool;
        buffer.ptr = bytes.data();
        buffer.stride = stride;
        std::mt19937 random(1);
        for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    }
    uint8_t* data() { return bytes.data(); }
};

struct frames {
    int width, height;
    std::vector<std::unique_ptr<frame>> sources, targets;
    size_t next = 0;
    frames(int w, int h, int count) : width(w), height(h) {
        const auto pixels = static_cast<size_t>(w) * static_cast<size_t>(h);
        for (int i = 0; i < count; ++i) {
            sources.push_back(std::make_unique<frame>(SCREEN_FORMAT_RGBA8888, w, h, 4 * w, 4 * pixels));
            targets.push_back(std::make_unique<frame>(SCREEN_FORMAT_NV12, w, h, w, pixels * 3 / 2));
        }
    }
    // Runs one conversion per operation, each on the next pair of frames.
    template <typename Convert>
    Comparison::Work each(Convert convert) {
        return [this, convert](uint64_t count) {
            for (; count > 0; --count, next = (next + 1) % sources.size())
                convert(*sources[next], *targets[next]);
        };
    }
};

void with_kernels(const kel::nv12_kernels& kernels, frame& src, frame& dst) {
    const kel_video_format& format = dst.pool.format.video;
    const auto width = static_cast<size_t>(format.width), rows = static_cast<size_t>(format.height);
    for (size_t y = 0; y < rows; y += 2)
        kernels.convert({src.data() + 4 * width * y, src.data() + 4 * width * (y + 1), dst.data() + width * y,
                         dst.data() + width * (y + 1), dst.data() + width * (rows + y / 2), width / 2,
                         y + 2 < rows ? 8 * width : 0});
}

void compare(const char* title, int width, int height, int count, const Options& options) {
    frames set(width, height, count);
    Comparison comparison(title, {"µs a frame", 1e6});
    comparison.add(Role::subject, "bgra8888_to_nv12",
                   set.each([](frame& src, frame& dst) { bgra8888_to_nv12(&src.buffer, &dst.buffer); }));
#if defined(__x86_64__)
    comparison.add(Role::subject, "its baseline variant", set.each([](frame& src, frame& dst) {
        with_kernels(kel::baseline::nv12_table, src, dst);
    }));
    if (kel::detected_simd_level() >= kel::simd_level::avx2)
        comparison.add(Role::subject, "its AVX2 variant", set.each([](frame& src, frame& dst) {
            with_kernels(kel::avx2::nv12_table, src, dst);
        }));
#endif
    comparison.add(Role::peer, "libyuv ARGBToNV12 (not exact)",
                   set.each([width, height](frame& src, frame& dst) {
                       libyuv::ARGBToNV12(src.data(), 4 * width, dst.data(), width,
                                          dst.data() + width * height, width, width, height);
                   }));
    SwsContext* sws = sws_getContext(width, height, AV_PIX_FMT_BGRA, width, height, AV_PIX_FMT_NV12,
                                     SWS_POINT, nullptr, nullptr, nullptr);
    comparison.add(Role::peer, "libswscale", set.each([=](frame& src, frame& dst) {
        const uint8_t* from[] = {src.data()};
        uint8_t* into[] = {dst.data(), dst.data() + width * height};
        const int from_stride[] = {4 * width}, into_stride[] = {width, width};
        sws_scale(sws, from, from_stride, 0, height, into, into_stride);
    }));
    comparison.add(Role::reference, "memcpy of the source", set.each([](frame& src, frame&) {
        static std::vector<uint8_t> copy(src.bytes.size());
        std::memcpy(copy.data(), src.data(), std::min(copy.size(), src.bytes.size()));
        keep(copy);
    }));
    comparison.run(options);
    sws_freeContext(sws);
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse_options(argc, argv);
    compare("BGRA to NV12, 1920×1080, from memory", 1920, 1080, 12, options);
    compare("BGRA to NV12, 640×480, in the cache", 640, 480, 1, options);
    return 0;
}
