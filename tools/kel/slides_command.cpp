#include "slides_command.hpp"

#include <algorithm>
#include <optional>

#include "interrupt.hpp"
#include "media/failure.hpp"
#include "media/handles.hpp"
#include "media/output.hpp"
#include "option_values.hpp"
#include "progress.hpp"

namespace kel_tool {
namespace {

constexpr int32_t pictures_beyond_queue = 3;  // being drawn, being sent, being converted
constexpr double fading_part = 0.2;           // of a slide's time
constexpr double zoom = 0.8;                  // what is seen at the closer end, in parts of the whole
constexpr int opaque = 255;

// One photograph, and what part of it is seen at its beginning and at its end.
class slide {
  public:
    slide(const session& session, img_lib_t images, const std::string& path, const picture_size& size,
          size_t number)
        : picture_(kel_load_image_file(session.context(), images, path.c_str(), SCREEN_USAGE_READ)) {
        if (!picture_) throw failure(path + ": it is no picture that can be read");
        slice_ = kel_slice_for_buffer(picture_.get());
        const int width = slice_.spec.video.width, height = slice_.spec.video.height;
        const int cut_width = std::min(width, std::max(1, height * size.width / size.height));
        const int cut_height = std::min(height, std::max(1, width * size.height / size.width));
        const kel_rect whole = {(width - cut_width) / 2, (height - cut_height) / 2, cut_width, cut_height};
        const auto part = [](int side) { return std::max(static_cast<int>(side * zoom), 1); };
        // Every other one moves away instead of closer, and the corner changes.
        const kel_rect close = {whole.x + (number & 1 ? whole.width - part(whole.width) : 0),
                                whole.y + (number & 2 ? whole.height - part(whole.height) : 0),
                                part(whole.width), part(whole.height)};
        begin_ = number & 1 ? close : whole;
        end_ = number & 1 ? whole : close;
    }

    // Draws what is seen at a time from 0 to 1, over what is there.
    void draw(const kel_slice& target, double time, int alpha) const {
        const auto between = [time](int a, int b) { return a + static_cast<int>((b - a) * time); };
        const kel_rect part = {between(begin_.x, end_.x), between(begin_.y, end_.y),
                               between(begin_.width, end_.width), between(begin_.height, end_.height)};
        const int transparency = alpha == opaque ? SCREEN_TRANSPARENCY_NONE : SCREEN_TRANSPARENCY_SOURCE_OVER;
        if (kel_blit_video(&slice_, &target, &part, nullptr, alpha, SCREEN_QUALITY_NORMAL, transparency) != 0)
            throw failure("a photograph cannot be drawn");
    }

  private:
    buffer_handle picture_;
    kel_slice slice_ = {};
    kel_rect begin_ = {}, end_ = {};
};

// The image library, as long as photographs are read.
struct image_library {
    img_lib_t handle = nullptr;
    image_library() {
        if (img_lib_attach(&handle) != 0) throw failure("the image library cannot be had");
    }
    ~image_library() { img_lib_detach(handle); }
    image_library(const image_library&) = delete;
    image_library& operator=(const image_library&) = delete;
};

}  // namespace

void make_slides(const slides_options& options) {
    const picture_size size = parse_size(options.size);
    check_output_path(options.output, options.photographs, options.replace);
    watch_for_interrupt();
    session session;
    kel_context* context = session.context();
    // A photograph is loaded with at most half of these: twice the output's size, for the zoom.
    context->max_image_width = 4 * size.width;
    context->max_image_height = 4 * size.height;
    const image_library images;

    output_settings settings;
    settings.path = options.output;
    settings.video = size;
    settings.frame_rate = options.frame_rate;
    const kel_video_format format = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_READ | SCREEN_USAGE_WRITE,
                                     size.width, size.height};
    pool_handle pool;  // goes after the output, which holds its pictures
    media_output output(session, settings);
    const auto pictures = static_cast<int32_t>(output.video()->limit()) + pictures_beyond_queue;
    pool.reset(kel_create_pixmap_buffer_pool(context, &format, pictures));
    if (!pool) throw failure("no memory for pictures of this size");

    const int64_t frames = int64_t{options.seconds} * options.frame_rate;
    const auto fading = std::max<int64_t>(static_cast<int64_t>(static_cast<double>(frames) * fading_part), 1);
    const auto shown = static_cast<double>(frames + fading);  // from the first faint sight to the last
    const int64_t total = frames * static_cast<int64_t>(options.photographs.size());
    progress progress(total * 1000000 / options.frame_rate, options.quiet);
    std::optional<slide> now, before;
    int64_t number = 0, pts = 0;
    for (size_t i = 0; i < options.photographs.size() && !interrupted(); ++i) {
        before.swap(now);
        now.emplace(session, images.handle, options.photographs[i], size, i);
        for (int64_t frame = 0; frame < frames && !interrupted(); ++frame, ++number) {
            buffer_handle buffer(kel_acquire_buffer_wait(pool.get(), -1));
            kel_slice picture = kel_slice_for_buffer(buffer.get());
            picture.pts = static_cast<uint64_t>(pts = number * 1000000 / options.frame_rate);
            const bool fades = before && frame < fading;
            if (fades) before->draw(picture, static_cast<double>(frames + frame) / shown, opaque);
            now->draw(picture, static_cast<double>(frame) / shown,
                      fades ? static_cast<int>(opaque * (frame + 1) / (fading + 1)) : opaque);
            screen_flush_blits(context->screen_context, SCREEN_WAIT_IDLE);
            static_cast<void>(buffer.release());                  // the queue's
            if (!output.video()->send(picture)) output.finish();  // throws what went wrong
            progress.show(pts, number);
        }
    }
    output.video()->close();
    output.finish();
    progress.finish(options.output, pts, number);
    if (interrupted())
        throw failure("interrupted; " + options.output + " holds what was done", exit_interrupted);
}

}  // namespace kel_tool
