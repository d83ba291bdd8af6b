// The blitter's calls: attribute lists, the queue, the flush.
#include <algorithm>

#include "screen/blit_queue.hpp"
#include "screen/objects.hpp"

using namespace platform::screen;

namespace {

// Largest magnitude of a position, and largest size, of a rectangle.
constexpr int largest = largest_dimension;

struct request {
    rectangle from, to;
    int alpha = opaque;
    int transparency = SCREEN_TRANSPARENCY_SOURCE;
    int quality = SCREEN_QUALITY_NORMAL;
    int color = 0;
};

struct attribute_row {
    int key;
    int lowest, highest;
    int* (*value)(request&);
    bool for_fills;
};

constexpr attribute_row attributes_by_key[] = {
    {SCREEN_BLIT_SOURCE_X, -largest, largest, [](request& r) { return &r.from.x; }, false},
    {SCREEN_BLIT_SOURCE_Y, -largest, largest, [](request& r) { return &r.from.y; }, false},
    {SCREEN_BLIT_SOURCE_WIDTH, 1, largest, [](request& r) { return &r.from.width; }, false},
    {SCREEN_BLIT_SOURCE_HEIGHT, 1, largest, [](request& r) { return &r.from.height; }, false},
    {SCREEN_BLIT_DESTINATION_X, -largest, largest, [](request& r) { return &r.to.x; }, true},
    {SCREEN_BLIT_DESTINATION_Y, -largest, largest, [](request& r) { return &r.to.y; }, true},
    {SCREEN_BLIT_DESTINATION_WIDTH, 1, largest, [](request& r) { return &r.to.width; }, true},
    {SCREEN_BLIT_DESTINATION_HEIGHT, 1, largest, [](request& r) { return &r.to.height; }, true},
    {SCREEN_BLIT_GLOBAL_ALPHA, 0, opaque, [](request& r) { return &r.alpha; }, false},
    {SCREEN_BLIT_TRANSPARENCY, SCREEN_TRANSPARENCY_SOURCE, SCREEN_TRANSPARENCY_DISCARD,
     [](request& r) { return &r.transparency; }, false},
    {SCREEN_BLIT_SCALE_QUALITY, SCREEN_QUALITY_NORMAL, SCREEN_QUALITY_NICEST,
     [](request& r) { return &r.quality; }, false},
    {SCREEN_BLIT_COLOR, INT32_MIN, INT32_MAX, [](request& r) { return &r.color; }, true},
};

// False for a key or value that is not good.
bool parse(const int* attributes, bool is_fill, request& result) {
    for (; attributes && *attributes != SCREEN_BLIT_END; attributes += 2) {
        const int key = attributes[0], value = attributes[1];
        const auto* row = std::find_if(std::begin(attributes_by_key), std::end(attributes_by_key),
                                       [key](const attribute_row& r) { return r.key == key; });
        if (row == std::end(attributes_by_key) || (is_fill && !row->for_fills)) return false;
        if (value < row->lowest || value > row->highest) return false;
        *row->value(result) = value;
    }
    return true;
}

rectangle whole(const buffer_record& buffer) {
    return frame_view(*buffer.memory).area();
}

// Does what is pending. Returns 0, or ENOMEM when something was dropped.
int flush(blit_queue& queue) {
    std::lock_guard one_at_a_time(queue.running);
    {
        std::lock_guard hold(the_world().lock);
        queue.batch.swap(queue.pending);
    }
    int error = 0;
    for (const blit_operation& operation : queue.batch) {
        try {
            queue.engine.run(operation);
        } catch (const std::bad_alloc&) {
            error = ENOMEM;
        }
    }
    queue.batch.clear();
    return error;
}

int enqueue(screen_context_t context, screen_buffer_t destination, screen_buffer_t source,
            const int* attributes, bool is_fill) {
    std::shared_ptr<blit_queue> full;
    const int result = call([&](world& w) {
        const context_record* owner = w.contexts.find(context);
        const buffer_record* to = w.buffers.find(destination);
        const buffer_record* from = is_fill ? to : w.buffers.find(source);
        if (!owner || !to || !from) return EINVAL;
        request wanted{whole(*from), whole(*to)};
        if (!parse(attributes, is_fill, wanted)) return EINVAL;
        const drawing_style style = {wanted.alpha, wanted.transparency,
                                     wanted.quality != SCREEN_QUALITY_FASTEST,
                                     static_cast<uint32_t>(wanted.color)};
        owner->blits->pending.push_back(
            {to->memory, is_fill ? nullptr : from->memory, wanted.to, wanted.from, style});
        if (owner->blits->pending.size() >= blit_queue::limit) full = owner->blits;
        return 0;
    });
    if (full) flush(*full);
    return result;
}

}  // namespace

int screen_blit(screen_context_t context, screen_buffer_t destination, screen_buffer_t source,
                const int* attributes) {
    return enqueue(context, destination, source, attributes, false);
}

int screen_fill(screen_context_t context, screen_buffer_t destination, const int* attributes) {
    return enqueue(context, destination, nullptr, attributes, true);
}

int screen_flush_blits(screen_context_t context, int flags) {
    std::shared_ptr<blit_queue> queue;
    const int found = call([&](world& w) {
        const context_record* owner = w.contexts.find(context);
        if (!owner || (flags & ~SCREEN_WAIT_IDLE)) return EINVAL;
        queue = owner->blits;
        return 0;
    });
    if (found != 0) return found;
    if (const int error = flush(*queue)) {
        errno = error;
        return -1;
    }
    return 0;
}
