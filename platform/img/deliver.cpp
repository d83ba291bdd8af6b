#include <utility>
#include <vector>

#include "exact_scaling.hpp"
#include "img/decode.hpp"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace platform::img {
namespace {

struct scaler_deleter {
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};
using scaler = std::unique_ptr<SwsContext, scaler_deleter>;

// JPEG's formats are the usual ones with the full range of values.
AVPixelFormat without_range(AVPixelFormat format, bool& is_full) {
    is_full = true;
    switch (format) {
        case AV_PIX_FMT_YUVJ420P:
            return AV_PIX_FMT_YUV420P;
        case AV_PIX_FMT_YUVJ422P:
            return AV_PIX_FMT_YUV422P;
        case AV_PIX_FMT_YUVJ444P:
            return AV_PIX_FMT_YUV444P;
        case AV_PIX_FMT_YUVJ440P:
            return AV_PIX_FMT_YUV440P;
        case AV_PIX_FMT_YUVJ411P:
            return AV_PIX_FMT_YUV411P;
        default:
            is_full = false;
            return format;
    }
}

int scale(const AVFrame& picture, uint8_t* rows, int stride, int width, int height) {
    bool is_full = false;
    const AVPixelFormat format = without_range(static_cast<AVPixelFormat>(picture.format), is_full);
    // RGB takes the short cut: it is exact, and the general path goes by way of YUV.
    const bool is_yuv = av_pix_fmt_desc_get(format)->log2_chroma_w || is_full;
    const scaler context(sws_getContext(picture.width, picture.height, format, width, height, AV_PIX_FMT_BGRA,
                                        SWS_BICUBIC | SWS_FULL_CHR_H_INT | exact_scaling,
                                        is_yuv ? no_short_cuts() : nullptr, nullptr, nullptr));
    if (!context) return IMG_ERR_MEM;
    if (is_full || picture.color_range == AVCOL_RANGE_JPEG) {
        const int* matrix = sws_getCoefficients(SWS_CS_ITU601);
        sws_setColorspaceDetails(context.get(), matrix, 1, matrix, 1, 0, 1 << 16, 1 << 16);
    }
    uint8_t* const planes[4] = {rows};
    const int strides[4] = {stride};
    const int done =
        sws_scale(context.get(), picture.data, picture.linesize, 0, picture.height, planes, strides);
    return done == height ? IMG_ERR_OK : IMG_ERR_MEM;
}

// libswscale may write rows up to the next whole vector; rows of that length it writes exactly.
constexpr int vector_pixels = 16;

struct rows_of_pixels {
    std::vector<uint32_t> pixels;
    int columns, rows;
    std::ptrdiff_t stride;  // pixels

    rows_of_pixels(int its_columns, int its_rows)
        : columns(its_columns),
          rows(its_rows),
          stride((its_columns + vector_pixels - 1) / vector_pixels * vector_pixels) {
        pixels.resize(static_cast<size_t>(stride) * static_cast<size_t>(rows));
    }
};

// Copies rows, as the file has them, turned upright.
void turn(const rows_of_pixels& source, const img_t& target, int orientation) {
    // Whether what is first in a row, or the first row, is the file's last.
    const bool from_right = orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
    const bool from_bottom = orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
    const uint32_t* first = source.pixels.data() + (from_right ? source.columns - 1 : 0) +
                            (from_bottom ? (source.rows - 1) * source.stride : 0);
    std::ptrdiff_t right = from_right ? -1 : 1, down = from_bottom ? -source.stride : source.stride;
    if (exchanges_axes(orientation)) std::swap(right, down);
    auto* row = static_cast<uint8_t*>(target.access.direct.data);
    for (unsigned y = 0; y < target.h; ++y, first += down, row += target.access.direct.stride) {
        auto* out = reinterpret_cast<uint32_t*>(row);
        const uint32_t* in = first;
        for (unsigned x = 0; x < target.w; ++x, in += right) out[x] = *in;
    }
}

}  // namespace

int deliver(const AVFrame& picture, const img_t& target) {
    const int orientation = orientation_of(picture);
    const auto width = static_cast<int>(target.w), height = static_cast<int>(target.h);
    if (orientation == 1 && width % vector_pixels == 0) {
        return scale(picture, static_cast<uint8_t*>(target.access.direct.data),
                     static_cast<int>(target.access.direct.stride), width, height);
    }
    const bool exchanged = exchanges_axes(orientation);
    rows_of_pixels between(exchanged ? height : width, exchanged ? width : height);
    auto* bytes = reinterpret_cast<uint8_t*>(between.pixels.data());
    const int stride = static_cast<int>(between.stride) * 4;
    if (const int error = scale(picture, bytes, stride, between.columns, between.rows)) return error;
    turn(between, target, orientation);
    return IMG_ERR_OK;
}

}  // namespace platform::img
