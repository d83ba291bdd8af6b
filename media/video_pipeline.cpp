#include "video_pipeline.hpp"

#include <algorithm>

#include "failure.hpp"

namespace kel_tool {
namespace {

constexpr uint32_t decoded_limit = 3;
constexpr int32_t pictures_beyond_queue = 3;  // being drawn, being sent, being converted
constexpr int32_t bytes_per_pixel = 4;

kel_video_format rgba(int width, int height) {
    return {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_OPENGL_ES2 | SCREEN_USAGE_READ | SCREEN_USAGE_WRITE, width,
            height};
}

// The largest place of the input's shape in the output, in its middle.
kel_rect place_in(const picture_size& size, const kel_channel_format& input) {
    int width = size.width, height = size.height;
    kel_scale_inside_bb(input.video.width, input.video.height, size.width, size.height, &width, &height);
    width = std::max(width, 1);
    height = std::max(height, 1);
    return {(size.width - width) / 2, (size.height - height) / 2, width, height};
}

slice_queue& pictures_of(media_output& output) {
    if (!output.video()) throw failure("the output takes no pictures");
    return *output.video();
}

}  // namespace

picture_road::picture_road(session& session, road& road, media_input& input, const picture_work& work,
                           const time_span& span)
    : session_(session),
      road_(road),
      input_(input),
      work_(work),
      span_(span),
      draws_(work.draws(*input.video())),
      frame_rate_(input.video()->video.frame_rate),
      output_(pictures_of(road.output())),
      place_(place_in(work.size, *input.video())),
      decoded_(decoded_limit) {
    if (!draws_) return;
    const auto pictures = static_cast<int32_t>(output_.limit()) + pictures_beyond_queue;
    const kel_video_format whole = rgba(work.size.width, work.size.height);
    finished_.reset(kel_create_pixmap_buffer_pool(session.context(), &whole, pictures));
    if (!work.filters.empty()) {
        session.need_gles();
        const kel_video_format part = rgba(place_.width, place_.height);
        fitted_.reset(kel_create_pixmap_buffer(session.context(), &part));
    }
    if (!finished_ || (!work.filters.empty() && !fitted_))
        throw failure("no memory for pictures of " + std::to_string(whole.width) + "x" +
                      std::to_string(whole.height));
}

picture_road::~picture_road() = default;

void picture_road::note_sent(const kel_slice& slice) {
    road_.stats.to_encoder.note(output_);
    road_.stats.video_bytes += int64_t{work_.size.width} * work_.size.height * 3 / 2;
    road_.video_pts = static_cast<int64_t>(slice.pts);
    ++road_.pictures;
}

void picture_road::decode() {
    slice_queue& to = draws_ ? decoded_ : output_;
    kel_slice slice;
    while (!road_.stop() && input_.read_video(slice)) {
        const auto pts = static_cast<int64_t>(slice.pts);
        if (pts >= span_.to) break;
        slice.pts = static_cast<uint64_t>(std::max<int64_t>(pts - span_.from, 0));
        road_.stats.decoded_pictures.note(*slice.buffer->pool);
        kel_ref_buffer(slice.buffer);
        if (!to.send(slice)) break;
        if (!draws_) note_sent(slice);
    }
    if (draws_) road_.stats.to_drawing.note(decoded_);
    if (!road_.stop()) road_.check(input_);
    to.close();
}

void picture_road::draw() {
    std::optional<video_chain> chain;
    std::optional<overlay> text;
    if (!work_.filters.empty()) chain.emplace(session_, work_.filters);
    if (work_.text) text.emplace(session_, *work_.text, work_.size.width, work_.size.height, frame_rate_);
    kel_slice decoded;
    for (int64_t number = 0; decoded_.take(decoded); ++number) {
        const buffer_handle release_decoded(decoded.buffer);
        buffer_handle target(acquire(finished_.get(), road_.stats.finished_pictures, road_.stop()));
        if (!target) break;
        kel_slice finished = kel_slice_for_buffer(target.get());
        finished.pts = decoded.pts;
        if (chain) {
            const kel_slice fitted = kel_slice_for_buffer(fitted_.get());
            fit(decoded, fitted, {0, 0, place_.width, place_.height});
            chain->draw(fitted, finished, place_);
        } else {
            fit(decoded, finished, place_);
        }
        if (text) text->draw(finished, static_cast<int64_t>(finished.pts), number);
        static_cast<void>(target.release());  // the queue's
        if (!output_.send(finished)) break;
        note_sent(finished);
    }
    decoded_.abort();  // where the output has ended before the decoder
    output_.close();
}

// Scales a decoded picture into a place of an RGBA picture; around it is black.
void picture_road::fit(const kel_slice& decoded, const kel_slice& target, const kel_rect& place) {
    const auto& video = target.spec.video;
    if (place.width < video.width || place.height < video.height)
        kel_fill_video(&target, 0xFF000000, nullptr);
    if (kel_blit_video(&decoded, &target, nullptr, &place, 255, SCREEN_QUALITY_NORMAL,
                       SCREEN_TRANSPARENCY_NONE) != 0 ||
        screen_flush_blits(session_.context()->screen_context, SCREEN_WAIT_IDLE) != 0)
        throw failure("a picture cannot be scaled");
    road_.stats.blit_bytes += int64_t{place.width} * place.height * bytes_per_pixel;
}

}  // namespace kel_tool
