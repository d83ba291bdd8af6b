// The converter: a planned chain of steps, and two buffers that its steps take turns in.
#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "audio/planner.hpp"
#include "base/guard.hpp"
#include "base/log.hpp"

struct kel_audio_converter {
    int32_t buffer_index;     // of the buffer that holds the last step's output
    uint8_t* buffers[2];      // both in one allocation
    int32_t buffer_capacity;  // bytes of each; 0 until the first conversion
    int32_t max_frame_bytes;  // of either format's containers with either's channels
    kel_audio_format from;
    kel_audio_format to;
    kel_audio_step* chain;       // owned, never empty
    int32_t widest_frame_bytes;  // of any format between two steps: at most twice max_frame_bytes
    int32_t from_frame_bytes;
    int32_t to_frame_bytes;
};
#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(kel_audio_converter) == 60 && offsetof(kel_audio_converter, from) == 20);
static_assert(sizeof(kel_audio_conversion) == 40 && offsetof(kel_audio_conversion, consumed_bytes) == 24);
#endif

namespace {

// A buffer holds twice what the block needs in its own formats: the 16-bit middle of a chain between 8-bit ends fits.
constexpr int64_t buffer_factor = 2;

struct frame_counts {
    int32_t consumed, produced;
};

// Frames of any type are then countable in 32 bits.
constexpr int32_t most_channels = INT32_MAX / 8;

bool has_frames(const kel_audio_format* format) {
    return format && format->channels > 0 && format->channels <= most_channels &&
           kel_get_audio_sample_size(format) > 0;
}

int32_t widest_frame(const kel_audio_plan_node* last) {
    int32_t widest = 0;
    for (const kel_audio_plan_node* node = last; node; node = node->parent)
        widest = std::max(widest, kel_get_audio_sample_size(&node->output));
    return widest;
}

kel_audio_step* plan_chain(const kel_audio_format& from, const kel_audio_format& to, int32_t& widest) {
    kel::audio_plan plan(from, to);
    const kel_audio_plan_node* last = plan.search(kel::type_steps::direct);
    if (!last) last = plan.search(kel::type_steps::any);
    if (!last) {
        errno = EINVAL;
        return nullptr;
    }
    widest = widest_frame(last);
    return kel::build_chain(last);
}

int32_t frames_in(int32_t bytes, int32_t frame_bytes, int32_t limit) {
    const int32_t frames = std::max(bytes, 0) / frame_bytes;
    return limit < 0 ? frames : std::min(frames, limit);
}

// Grows the buffers to what the block needs; false when that cannot be had.
bool ensure_buffers(kel_audio_converter& converter, int32_t frames) {
    const int64_t need = int64_t{converter.max_frame_bytes} * frames;
    const int64_t widest = int64_t{converter.widest_frame_bytes} * frames;
    if (converter.buffer_capacity >= std::max(need, widest) && converter.buffers[0]) return true;
    const int64_t total = 2 * buffer_factor * need;
    if (total > INT32_MAX) return false;
    KEL_LOG_INFO("converter: Allocating %d bytes", static_cast<int>(total));
    free(converter.buffers[0]);
    converter.buffers[0] = static_cast<uint8_t*>(malloc(static_cast<size_t>(total)));
    converter.buffers[1] = converter.buffers[0] ? converter.buffers[0] + buffer_factor * need : nullptr;
    converter.buffer_capacity = converter.buffers[0] ? static_cast<int32_t>(buffer_factor * need) : 0;
    return converter.buffers[0] != nullptr;
}

// The block's counts are those of the step that changes the rate, or else of the first one.
frame_counts run_chain(kel_audio_converter& converter, const kel_audio_conversion& request, int32_t in_frames,
                       int32_t out_frames) {
    kel_audio_format format = converter.from;
    frame_counts counts = {0, 0};
    const void* input = request.input;
    int32_t available = in_frames;
    for (kel_audio_step* step = converter.chain; step; step = step->next) {
        const int32_t rate = format.rate;
        void* output = step->next ? converter.buffers[converter.buffer_index ^ 1] : request.output;
        int32_t consumed = available, written = out_frames;
        step->kernel(step, input, output, &consumed, &written, &format);
        if (step == converter.chain || format.rate != rate) counts = {consumed, written};
        available = written;
        input = output;
        converter.buffer_index ^= 1;
    }
    return counts;
}

void set_results(const kel_audio_converter& converter, kel_audio_conversion& request, frame_counts counts) {
    request.consumed_frames = counts.consumed;
    request.produced_frames = counts.produced;
    request.consumed_bytes = counts.consumed * converter.from_frame_bytes;
    request.produced_bytes = counts.produced * converter.to_frame_bytes;
}

}  // namespace

kel_audio_converter* kel_create_audio_converter(const kel_audio_format* from, const kel_audio_format* to) {
    errno = EINVAL;
    int32_t widest = 0;
    kel_audio_step* chain = has_frames(from) && has_frames(to) ? plan_chain(*from, *to, widest) : nullptr;
    if (!chain) {
        if (errno == EINVAL) {
            KEL_LOG_ERROR("kel:   Cannot create audio conversion chain.");
        } else {
            KEL_LOG_ERROR("kel:   Cannot allocate audio converter.");
        }
        return nullptr;
    }
    auto converter = kel::make_record<kel_audio_converter>();
    if (!converter) {
        KEL_LOG_ERROR("kel:   Cannot allocate audio converter.");
        kel::release_chain(chain);
        errno = ENOMEM;
        return nullptr;
    }
    converter->max_frame_bytes = std::max(kel_get_audio_format_bits(from), kel_get_audio_format_bits(to)) /
                                 8 * std::max(from->channels, to->channels);
    converter->from = *from;
    converter->to = *to;
    converter->chain = chain;
    converter->widest_frame_bytes = widest;
    converter->from_frame_bytes = kel_get_audio_sample_size(from);
    converter->to_frame_bytes = kel_get_audio_sample_size(to);
    return converter.release();
}

int kel_init_audio_conversion(kel_audio_conversion* conversion, const void* input, int32_t input_bytes,
                              void* output, int32_t output_bytes) {
    if (!conversion) {
        KEL_LOG_ERROR("kel:   Attempt to initialize inexistent conversion.");
        return EINVAL;
    }
    *conversion = {input, input_bytes, -1, output, output_bytes, -1, 0, 0, 0, 0};
    return 0;
}

int kel_convert_audio(kel_audio_converter* converter, kel_audio_conversion* conversion) {
    if (!converter || !conversion) {
        KEL_LOG_ERROR("kel:   Attempt to convert audio with inexistent audio converter.");
        return EINVAL;
    }
    const int32_t in_frames =
        frames_in(conversion->input_bytes, converter->from_frame_bytes, conversion->input_limit);
    const int32_t out_frames =
        frames_in(conversion->output_bytes, converter->to_frame_bytes, conversion->output_limit);
    if (!ensure_buffers(*converter, std::max(in_frames, out_frames))) {
        KEL_LOG_ERROR("kel:   Unable to allocate audio conversion buffers.");
        return ENOMEM;
    }
    frame_counts counts = {0, 0};
    if (in_frames > 0 && out_frames > 0) counts = run_chain(*converter, *conversion, in_frames, out_frames);
    set_results(*converter, *conversion, counts);
    return 0;
}

int kel_destroy_audio_converter(kel_audio_converter** converter) {
    if (!converter || !*converter) return EINVAL;
    free((*converter)->buffers[0]);
    kel::release_chain((*converter)->chain);
    free(*converter);
    *converter = nullptr;
    return 0;
}
