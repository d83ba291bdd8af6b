// PCM formats: sizes, names and the arithmetic between counts of frames and presentation times.
#include <kel.h>

#include <cstring>

namespace {

constexpr int64_t microseconds_per_second = 1000000;

struct type_name {
    uint32_t type;
    const char* name;
};

constexpr type_name type_names[] = {
    {KEL_AUDIO_TYPE_U8, "U8"},           {KEL_AUDIO_TYPE_S8, "S8"},           {KEL_AUDIO_TYPE_U16LE, "U16LE"},
    {KEL_AUDIO_TYPE_S16LE, "S16LE"},     {KEL_AUDIO_TYPE_U16BE, "U16BE"},     {KEL_AUDIO_TYPE_S16BE, "S16BE"},
    {KEL_AUDIO_TYPE_S24_8LE, "S24.8LE"}, {KEL_AUDIO_TYPE_S24_8BE, "S24.8BE"},
};

constexpr uint32_t bytes_per_value(uint32_t type) {
    return (type & KEL_AUDIO_TYPE_BYTES_MASK) >> 4;
}

// Modulo 2^64, as the timing functions promise.
constexpr int64_t wrapping_product(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

}  // namespace

int32_t kel_get_audio_sample_size(const kel_audio_format* format) {
    return static_cast<int32_t>(static_cast<uint32_t>(format->channels) * bytes_per_value(format->type));
}

int32_t kel_get_audio_format_bits(const kel_audio_format* format) {
    return static_cast<int32_t>(bytes_per_value(format->type) * 8);
}

const char* kel_get_audio_format_type_name(const kel_audio_format* format) {
    for (const auto& [type, name] : type_names) {
        if (type == format->type) return name;
    }
    return "unknown";
}

int64_t kel_get_audio_pts_from_nsamples(int32_t rate, int64_t nsamples) {
    const int64_t product = wrapping_product(nsamples, microseconds_per_second);
    switch (rate) {  // the two divisors that a processor may trap on
        case 0:
            return 0;
        case -1:
            return wrapping_product(product, -1);
        default:
            return product / rate;
    }
}

int64_t kel_get_audio_nsamples_from_pts(int32_t rate, int64_t pts) {
    return wrapping_product(pts, rate) / microseconds_per_second;
}

int32_t kel_audio_formats_differ(const kel_audio_format* a, const kel_audio_format* b) {
    return memcmp(a, b, sizeof *a) != 0;
}
