// Two translation tables: FOURCC to the framework's colour code, and colour code to Screen's pixel format.
#include "graph/pixel_formats.hpp"

#include <kel.h>

#include "base/log.hpp"

namespace {

using kel::fourcc;

constexpr int32_t any_depth = 0;

struct colour_row {
    uint32_t fourcc;
    int32_t bits_per_pixel;  // any_depth, or the depth that the row is for
    bool any_variant;        // the variant is not looked at
    uint32_t codes[3];       // by variant
};

constexpr colour_row same_for_all(uint32_t code, int32_t depth, uint32_t value) {
    return {code, depth, true, {value, value, value}};
}

constexpr colour_row colours[] = {
    {fourcc('R', 'G', 'B', '2'), 16, false, {0x1310, 0x1110, 0x1210}},
    same_for_all(fourcc('R', 'G', 'B', '2'), 24, 0x1018),
    same_for_all(fourcc('R', 'G', 'B', '2'), 32, 0x1018),
    same_for_all(kel::fourcc_rgba, 32, 0x1420),
    {kel::fourcc_rgba, 16, false, {0x1710, 0x1510, 0x1610}},
    {fourcc('U', 'Y', 'V', 'Y'), any_depth, false, {0x1002310, 0x1002110, 0x1002210}},
    {fourcc('Y', 'U', 'Y', '2'), any_depth, false, {0x2002310, 0x2002110, 0x2002210}},
    {fourcc('V', '4', '2', '2'), any_depth, false, {0x4002310, 0x4002110, 0x4002210}},
    same_for_all(fourcc('Y', 'V', 'U', '9'), any_depth, 0x1002088),
    same_for_all(fourcc('Y', 'V', '1', '2'), any_depth, 0x2002088),
    same_for_all(fourcc('I', '4', '2', '0'), any_depth, 0x3002088),
    same_for_all(kel::fourcc_nv12, any_depth, 0x500200c),
    same_for_all(kel::fourcc_nv12_swapped, any_depth, 0x500200c),
};

struct screen_row {
    uint32_t colour_code;
    int32_t screen_format;
};

constexpr screen_row screen_formats[] = {
    {0x1310, SCREEN_FORMAT_RGB565},    {0x1420, SCREEN_FORMAT_RGBA8888}, {0x1002088, SCREEN_FORMAT_YVU9},
    {0x3002088, SCREEN_FORMAT_YUV420}, {0x500200c, SCREEN_FORMAT_NV12},  {0x2002088, SCREEN_FORMAT_YV12},
    {0x1002310, SCREEN_FORMAT_UYVY},   {0x2002310, SCREEN_FORMAT_YUY2},  {0x3002310, SCREEN_FORMAT_YVYU},
    {0x4002310, SCREEN_FORMAT_V422},
};

}  // namespace

uint32_t kel_fourcc_to_mmf_format(uint32_t fourcc, int32_t bits_per_pixel, uint32_t variant) {
    for (const colour_row& row : colours) {
        if (row.fourcc != fourcc) continue;
        if (row.bits_per_pixel != any_depth && row.bits_per_pixel != bits_per_pixel) continue;
        if (row.any_variant) return row.codes[0];
        return variant < 3 ? row.codes[variant] : 0;
    }
    return 0;
}

int32_t kel_mmf_to_screen_format(uint32_t colour_code) {
    for (const screen_row& row : screen_formats)
        if (row.colour_code == colour_code) return row.screen_format;
    KEL_LOG_WARNING("MMF colour format of 0x%x not mapped to Screen format", colour_code);
    return 0;
}
