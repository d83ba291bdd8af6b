// Audio pools: one zero-filled block cut into equal slots.
#include <cstdint>

#include "base/arith.hpp"
#include "base/guard.hpp"
#include "base/log.hpp"
#include "buffer/pool.hpp"

namespace {

constexpr std::size_t slot_alignment = 16;  // bytes

struct slot_layout {
    uint32_t size;       // bytes of one buffer's data
    std::size_t stride;  // bytes from one slot to the next
};

// All zero when a size is not positive or does not fit.
slot_layout layout_slots(const kel_audio_format& format, uint32_t nsamples) {
    const uint32_t value_size = static_cast<uint32_t>(kel_get_audio_format_bits(&format)) / 8;
    uint32_t size = 0;
    if (format.channels < 1 || !kel::multiply(static_cast<uint32_t>(format.channels), value_size, size))
        return {};
    if (!kel::multiply(size, nsamples, size)) return {};
    return {size, kel::round_up(std::size_t{size}, slot_alignment)};
}

kel::owned<char> allocate_slots(const slot_layout& slots, int32_t count) {
    if (count < 1 || slots.stride == 0)
        return {};  // also a size that rounding up carried past the last address
    std::size_t bytes = 0;
    if (!kel::multiply(slots.stride, static_cast<std::size_t>(count), bytes)) return {};
    return kel::make_records<char>(bytes);
}

}  // namespace

kel_buffer_pool* kel_create_audio_buffer_pool(kel_context* context, const kel_audio_format* format,
                                              uint32_t nsamples, int32_t count) {
    auto pool = kel::make_record<kel_buffer_pool>();
    if (!pool) {
        KEL_LOG_ERROR("kel: Unable to allocate memory for audio buffer pool handle.");
        return nullptr;
    }
    const slot_layout slots = layout_slots(*format, nsamples);
    auto data = allocate_slots(slots, count);
    if (!data) {
        pool.reset(nullptr);
        KEL_LOG_ERROR("kel: Unable to allocate memory for audio buffer pool data.");
        return nullptr;
    }
    pool->count = count;
    pool->context = context;
    if (!kel::set_up_pool(*pool)) return nullptr;

    pool->format.type = KEL_BUFFER_AUDIO;
    pool->format.audio = *format;
    pool->format.nsamples = nsamples;
    char* slot = data.release();
    for (int32_t i = 0; i < count; ++i, slot += slots.stride) {
        pool->buffers[i].ptr = slot;
        pool->buffers[i].size = slots.size;
    }
    return pool.release();
}
