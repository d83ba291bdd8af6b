// Blits and fills of slices through Screen's blitter.
#include <kel.h>

#include <cerrno>
#include <limits>

namespace {

kel_rect rect_of(const kel_slice& slice) {
    const auto& video = slice.spec.video;
    return {video.x, video.y, video.width, video.height};
}

bool has_buffer(const kel_slice* slice) {
    return slice && slice->buffer;
}

screen_context_t screen_of(const kel_slice& slice) {
    const kel_context* context = slice.buffer->pool->context;
    return context ? context->screen_context : nullptr;
}

int refuse() {
    errno = EINVAL;
    return -1;
}

// Toward zero, and to the nearest int where the value has none.
int truncate(double value) {
    constexpr double highest = std::numeric_limits<int>::max(), lowest = std::numeric_limits<int>::min();
    return static_cast<int>(value > highest ? highest : value > lowest ? value : lowest);
}

}  // namespace

void kel_scale_inside_bb(int width, int height, int box_width, int box_height, int* out_width,
                         int* out_height) {
    *out_width = 0;
    *out_height = 0;
    if (height == 0) return;
    const double aspect = static_cast<double>(width) / height;
    const int fitting_width = truncate(box_height * aspect);
    if (fitting_width > box_width) {
        *out_width = box_width;
        *out_height = truncate(box_width / aspect);
    } else {
        *out_width = fitting_width;
        *out_height = box_height;
    }
}

int kel_blit_video(const kel_slice* src, const kel_slice* dst, const kel_rect* src_rect,
                   const kel_rect* dst_rect, int global_alpha, int scale_quality, int transparency) {
    if (!has_buffer(src) || !has_buffer(dst)) return refuse();
    const kel_rect from = src_rect ? *src_rect : rect_of(*src);
    const kel_rect to = dst_rect ? *dst_rect : rect_of(*dst);
    const int attributes[] = {SCREEN_BLIT_SOURCE_X,
                              from.x,
                              SCREEN_BLIT_SOURCE_Y,
                              from.y,
                              SCREEN_BLIT_SOURCE_WIDTH,
                              from.width,
                              SCREEN_BLIT_SOURCE_HEIGHT,
                              from.height,
                              SCREEN_BLIT_DESTINATION_X,
                              to.x,
                              SCREEN_BLIT_DESTINATION_Y,
                              to.y,
                              SCREEN_BLIT_DESTINATION_WIDTH,
                              to.width,
                              SCREEN_BLIT_DESTINATION_HEIGHT,
                              to.height,
                              SCREEN_BLIT_GLOBAL_ALPHA,
                              global_alpha,
                              SCREEN_BLIT_TRANSPARENCY,
                              transparency,
                              SCREEN_BLIT_SCALE_QUALITY,
                              scale_quality,
                              SCREEN_BLIT_END};
    return screen_blit(screen_of(*src), dst->buffer->screen_buffer, src->buffer->screen_buffer, attributes);
}

int kel_blit_video_inside(const kel_slice* src, const kel_slice* dst, int global_alpha, int scale_quality,
                          int transparency) {
    if (!has_buffer(src) || !has_buffer(dst)) return refuse();
    const auto &from = src->spec.video, &box = dst->spec.video;
    kel_rect to{};
    kel_scale_inside_bb(from.width, from.height, box.width, box.height, &to.width, &to.height);
    to.x = box.width / 2 - to.width / 2;
    to.y = box.height / 2 - to.height / 2;
    return kel_blit_video(src, dst, nullptr, &to, global_alpha, scale_quality, transparency);
}

int kel_fill_video(const kel_slice* slice, unsigned colour, const kel_rect* rect) {
    if (!has_buffer(slice)) return refuse();
    const kel_rect to = rect ? *rect : rect_of(*slice);
    const int attributes[] = {SCREEN_BLIT_DESTINATION_X,
                              to.x,
                              SCREEN_BLIT_DESTINATION_Y,
                              to.y,
                              SCREEN_BLIT_DESTINATION_WIDTH,
                              to.width,
                              SCREEN_BLIT_DESTINATION_HEIGHT,
                              to.height,
                              SCREEN_BLIT_COLOR,
                              static_cast<int>(colour),
                              SCREEN_BLIT_END};
    return screen_fill(screen_of(*slice), slice->buffer->screen_buffer, attributes);
}
