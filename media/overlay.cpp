#include "overlay.hpp"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "failure.hpp"

namespace kel_tool {
namespace {

constexpr int64_t second = 1000000;
constexpr int lines_of_text = 15;  // that a picture is high, unless a size is given

std::string time_text(int64_t pts, const char separator, int64_t part, int digits) {
    const int64_t seconds = pts / second;
    char text[60];
    std::snprintf(text, sizeof text, "%02" PRId64 ":%02d:%02d%c%0*" PRId64, seconds / 3600,
                  static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60), separator, digits,
                  part);
    return text;
}

// The rectangle's part inside a picture.
kel_rect cut(const kel_rect& ink, int width, int height) {
    const int left = std::clamp<int>(ink.x, 0, width), top = std::clamp<int>(ink.y, 0, height);
    const int right = std::clamp<int>(ink.x + ink.width, left, width);
    const int bottom = std::clamp<int>(ink.y + ink.height, top, height);
    return {left, top, right - left, bottom - top};
}

}  // namespace

std::string fill_in(const std::string& text, int64_t pts, int64_t number, int frame_rate) {
    const int64_t in_second = pts % second;
    const std::pair<const char*, std::string> values[] = {
        {"{{", "{"},
        {"{time}", time_text(pts, '.', in_second / 1000, 3)},
        {"{timecode}",
         time_text(pts, ':', (in_second * frame_rate + second / 2) / second % std::max(frame_rate, 1), 2)},
        {"{pts}", std::to_string(pts)},
        {"{frame}", std::to_string(number)},
    };
    std::string filled;
    for (size_t at = 0; at < text.size();) {
        const auto* found = std::find_if(std::begin(values), std::end(values), [&](const auto& value) {
            return text.compare(at, std::char_traits<char>::length(value.first), value.first) == 0;
        });
        if (found == std::end(values)) {
            filled += text[at++];
            continue;
        }
        filled += found->second;
        at += std::char_traits<char>::length(found->first);
    }
    return filled;
}

overlay::overlay(session& session, const overlay_options& options, int width, int height, int frame_rate)
    : options_(options), context_(session.context()), frame_rate_(frame_rate > 0 ? frame_rate : 25) {
    session.need_text();
    if (options_.size == 0) options_.size = std::max(height * 72 / (160 * lines_of_text), 1);
    if (!options_.position) options_.position = kel_point{width / 2, height - height / 12};
    const kel_video_format format = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_READ | SCREEN_USAGE_WRITE, width,
                                     height};
    buffer_.reset(kel_create_pixmap_buffer(context_, &format));
    if (!buffer_) throw failure("no picture for the text can be made");
    slice_ = kel_slice_for_buffer(buffer_.get());
    ink_ = {0, 0, width, height};
    if (render("0") == 0) throw failure(options_.font + ": it cannot be used as a font");
}

// Draws the text on nothing; the number of glyphs.
int overlay::render(const std::string& text) {
    kel_fill_video(&slice_, 0, &ink_);
    screen_flush_blits(context_->screen_context, SCREEN_WAIT_IDLE);
    const kel_text_style style = {options_.font.c_str(), options_.color, options_.size, options_.halign,
                                  options_.valign};
    kel_rect ink = {};
    const int glyphs = options_.box ? kel_text_draw_in_bb(&slice_, text.c_str(), &*options_.box, &style, &ink)
                                    : kel_text_draw(&slice_, text.c_str(), &*options_.position, &style, &ink);
    ink_ = cut(ink, slice_.spec.video.width, slice_.spec.video.height);
    shown_ = text;
    return glyphs;
}

void overlay::draw(const kel_slice& picture, int64_t pts, int64_t number) {
    if (const std::string text = fill_in(options_.text, pts, number, frame_rate_); text != shown_)
        render(text);
    if (ink_.width < 1 || ink_.height < 1) return;
    kel_blit_video(&slice_, &picture, &ink_, &ink_, 255, SCREEN_QUALITY_NORMAL,
                   SCREEN_TRANSPARENCY_SOURCE_OVER);
    screen_flush_blits(context_->screen_context, SCREEN_WAIT_IDLE);
}

}  // namespace kel_tool
