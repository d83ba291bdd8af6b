#include "image.hpp"

#include <string>

#include "failure.hpp"

namespace kel_tool {

picture take_picture(kel_buffer* buffer) {
    return {buffer_handle(buffer), kel_slice_for_buffer(buffer)};
}

picture make_picture(const session& session, int width, int height, uint32_t color) {
    const kel_video_format format = {SCREEN_FORMAT_RGBA8888,
                                     SCREEN_USAGE_READ | SCREEN_USAGE_WRITE | SCREEN_USAGE_OPENGL_ES2, width,
                                     height};
    picture made = take_picture(kel_create_pixmap_buffer(session.context(), &format));
    if (!made.buffer || kel_fill_video(&made.slice, color, nullptr) != 0)
        throw failure("no picture of " + std::to_string(width) + " x " + std::to_string(height) +
                      " pixels can be made");
    screen_flush_blits(session.context()->screen_context, SCREEN_WAIT_IDLE);
    return made;
}

void lay_over(const session& session, const picture& from, const picture& to, int x, int y, bool keep_alpha) {
    const kel_rect place = {x, y, from.slice.spec.video.width, from.slice.spec.video.height};
    kel_blit_video(&from.slice, &to.slice, nullptr, &place, 255, SCREEN_QUALITY_FASTEST,
                   keep_alpha ? SCREEN_TRANSPARENCY_SOURCE : SCREEN_TRANSPARENCY_SOURCE_OVER);
    screen_flush_blits(session.context()->screen_context, SCREEN_WAIT_IDLE);
}

}  // namespace kel_tool
