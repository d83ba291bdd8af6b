// Sizes, names and timing of PCM formats.
#include <gtest/gtest.h>
#include <kel.h>

namespace {

TEST(AudioFormat, SizesAndNames) {
    const struct {
        uint32_t type;
        int32_t bytes;
        const char* name;
    } rows[] = {
        {KEL_AUDIO_TYPE_U8, 1, "U8"},
        {KEL_AUDIO_TYPE_S8, 1, "S8"},
        {KEL_AUDIO_TYPE_U16LE, 2, "U16LE"},
        {KEL_AUDIO_TYPE_S16LE, 2, "S16LE"},
        {KEL_AUDIO_TYPE_U16BE, 2, "U16BE"},
        {KEL_AUDIO_TYPE_S16BE, 2, "S16BE"},
        {KEL_AUDIO_TYPE_S24_8LE, 4, "S24.8LE"},
        {KEL_AUDIO_TYPE_S24_8BE, 4, "S24.8BE"},
        {KEL_AUDIO_TYPE_S16_16LE, 4, "unknown"},
        {0, 0, "unknown"},
    };
    for (const auto& row : rows) {
        for (const int32_t channels : {1, 2, 6}) {
            const kel_audio_format format = {48000, channels, row.type};
            EXPECT_EQ(kel_get_audio_sample_size(&format), channels * row.bytes) << row.name;
            EXPECT_EQ(kel_get_audio_format_bits(&format), row.bytes * 8) << row.name;
            EXPECT_STREQ(kel_get_audio_format_type_name(&format), row.name);
        }
    }
}

TEST(AudioFormat, TimingTruncatesTowardZero) {
    const struct {
        int64_t (*convert)(int32_t, int64_t);
        int32_t rate;
        int64_t value, expected;
    } rows[] = {
        {kel_get_audio_pts_from_nsamples, 44100, 44100, 1000000},
        {kel_get_audio_pts_from_nsamples, 48000, 1, 20},
        {kel_get_audio_pts_from_nsamples, 48000, -1, -20},
        {kel_get_audio_pts_from_nsamples, 8000, INT64_C(1) << 40, 137438953472000},
        {kel_get_audio_pts_from_nsamples, 1, INT64_MAX, -1000000},           // the product wraps at 64 bits
        {kel_get_audio_pts_from_nsamples, -1, INT64_C(1) << 57, INT64_MIN},  // where a division may trap
        {kel_get_audio_pts_from_nsamples, -48000, 48000, -1000000},
        {kel_get_audio_pts_from_nsamples, 0, 7, 0},
        {kel_get_audio_nsamples_from_pts, 44100, 1000, 44},
        {kel_get_audio_nsamples_from_pts, 48000, -21, -1},
        {kel_get_audio_nsamples_from_pts, 48000, -20, 0},
        {kel_get_audio_nsamples_from_pts, 0, 5, 0},
        {kel_get_audio_nsamples_from_pts, 2, INT64_MAX, 0},
        {kel_get_audio_nsamples_from_pts, -44100, 1000, -44},
        {kel_get_audio_nsamples_from_pts, 192000, INT64_C(36000000000), INT64_C(6912000000)},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.convert(row.rate, row.value), row.expected) << row.rate << " " << row.value;
}

TEST(AudioFormat, DiffersInAnyField) {
    const kel_audio_format format = {48000, 2, KEL_AUDIO_TYPE_S16LE};
    const kel_audio_format others[] = {
        {44100, 2, KEL_AUDIO_TYPE_S16LE}, {48000, 1, KEL_AUDIO_TYPE_S16LE}, {48000, 2, KEL_AUDIO_TYPE_S16BE}};
    for (const auto& other : others) EXPECT_EQ(kel_audio_formats_differ(&format, &other), 1);
    const kel_audio_format same = format;
    EXPECT_EQ(kel_audio_formats_differ(&format, &same), 0);
}

}  // namespace
