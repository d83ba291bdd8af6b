// Which steps exist, in the order in which the planner tries them.
#include <iterator>

#include "audio/steps.hpp"

namespace {

constexpr uint32_t size_mask = KEL_AUDIO_TYPE_BYTES_MASK;
constexpr uint32_t sign_and_size_mask = KEL_AUDIO_TYPE_SIGNED | KEL_AUDIO_TYPE_BYTES_MASK;
constexpr uint32_t one_byte = 0x10;
constexpr uint32_t two_bytes = 0x20;
constexpr uint32_t whole_type = 0xFFFFFFFF;

}  // namespace

constexpr kel_type_conversion_step kel_type_conversion_steps_c[15] = {
    {kel::convert_flip_sign_8, KEL_AUDIO_TYPE_U8, KEL_AUDIO_TYPE_S8, nullptr},
    {kel::convert_flip_sign_8, KEL_AUDIO_TYPE_S8, KEL_AUDIO_TYPE_U8, nullptr},
    {kel::convert_flip_sign_16le, KEL_AUDIO_TYPE_U16LE, KEL_AUDIO_TYPE_S16LE, nullptr},
    {kel::convert_flip_sign_16le, KEL_AUDIO_TYPE_S16LE, KEL_AUDIO_TYPE_U16LE, nullptr},
    {kel::convert_flip_sign_16be, KEL_AUDIO_TYPE_U16BE, KEL_AUDIO_TYPE_S16BE, nullptr},
    {kel::convert_flip_sign_16be, KEL_AUDIO_TYPE_S16BE, KEL_AUDIO_TYPE_U16BE, nullptr},
    {kel::convert_swap_bytes_16, KEL_AUDIO_TYPE_S16LE, KEL_AUDIO_TYPE_S16BE, nullptr},
    {kel::convert_swap_bytes_16, KEL_AUDIO_TYPE_S16BE, KEL_AUDIO_TYPE_S16LE, nullptr},
    {kel::convert_swap_bytes_16, KEL_AUDIO_TYPE_U16LE, KEL_AUDIO_TYPE_U16BE, nullptr},
    {kel::convert_swap_bytes_16, KEL_AUDIO_TYPE_U16BE, KEL_AUDIO_TYPE_U16LE, nullptr},
    {kel::convert_s8_to_s16le, KEL_AUDIO_TYPE_S8, KEL_AUDIO_TYPE_S16LE, nullptr},
    {kel::convert_s16le_to_s8, KEL_AUDIO_TYPE_S16LE, KEL_AUDIO_TYPE_S8, nullptr},
    {kel::convert_s24_8le_to_s16le, KEL_AUDIO_TYPE_S24_8LE, KEL_AUDIO_TYPE_S16LE, nullptr},
    {kel::convert_s16le_to_s24_8le, KEL_AUDIO_TYPE_S16LE, KEL_AUDIO_TYPE_S24_8LE, nullptr},
    {},
};

constexpr kel_rate_conversion_step kel_rate_conversion_steps_c[10] = {
    {kel::rate_double_8, 2, 1, one_byte, size_mask, nullptr},
    {kel::rate_double_16, 2, 1, two_bytes, size_mask, nullptr},
    {kel::rate_halve_8, 1, 2, one_byte, size_mask, nullptr},
    {kel::rate_halve_16, 1, 2, two_bytes, size_mask, nullptr},
    {kel::rate_quadruple_8, 4, 1, one_byte, size_mask, nullptr},
    {kel::rate_quadruple_16, 4, 1, two_bytes, size_mask, nullptr},
    {kel::rate_quarter_8, 1, 4, one_byte, size_mask, nullptr},
    {kel::rate_quarter_16, 1, 4, two_bytes, size_mask, nullptr},
    {kel::rate_resample_s16le, 0, 0, KEL_AUDIO_TYPE_S16LE, whole_type, kel::resampler_create},
    {},
};

constexpr kel_channel_conversion_step kel_channel_conversion_steps_c[7] = {
    {kel::channels_downmix_s8, 2, 1, KEL_AUDIO_TYPE_SIGNED | one_byte, sign_and_size_mask, nullptr},
    {kel::channels_downmix_s16, 2, 1, KEL_AUDIO_TYPE_SIGNED | two_bytes, sign_and_size_mask, nullptr},
    {kel::channels_downmix_u8, 2, 1, one_byte, sign_and_size_mask, nullptr},
    {kel::channels_downmix_u16, 2, 1, two_bytes, sign_and_size_mask, nullptr},
    {kel::channels_upmix_8, 1, 2, one_byte, size_mask, nullptr},
    {kel::channels_upmix_16, 1, 2, two_bytes, size_mask, nullptr},
    {},
};

namespace {

// The last row, and no other, is all zeros, and no row stands twice.
template <typename Row, std::size_t count, typename Same>
constexpr bool well_formed(const Row (&table)[count], Same same) {
    for (std::size_t i = 0; i < count; ++i) {
        if (same(table[i], Row{}) != (i + 1 == count)) return false;
        for (std::size_t j = 0; j < i; ++j)
            if (same(table[i], table[j])) return false;
    }
    return true;
}

static_assert(well_formed(kel_type_conversion_steps_c, [](const auto& a, const auto& b) {
    return a.from_type == b.from_type && a.to_type == b.to_type;
}));
static_assert(well_formed(kel_rate_conversion_steps_c, [](const auto& a, const auto& b) {
    return a.multiplier == b.multiplier && a.divisor == b.divisor && a.type_value == b.type_value;
}));
static_assert(well_formed(kel_channel_conversion_steps_c, [](const auto& a, const auto& b) {
    return a.from_channels == b.from_channels && a.type_value == b.type_value && a.type_mask == b.type_mask;
}));

}  // namespace
