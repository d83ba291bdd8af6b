#include "frame_command.hpp"

#include <cinttypes>
#include <cstdio>
#include <optional>

#include "media/failure.hpp"
#include "media/font_file.hpp"
#include "media/image.hpp"
#include "media/image_filters.hpp"
#include "media/input.hpp"
#include "media/png_file.hpp"
#include "media/text_block.hpp"
#include "option_values.hpp"

namespace kel_tool {
namespace {

constexpr int most_tiles = 32;  // in each direction
constexpr picture_size tile_room = {320, 320};
constexpr int gap = 6, label_margin = 4;  // pixels
constexpr int label_points = 7;
constexpr uint32_t sheet_color = 0xff202020, label_color = 0xffffffff, label_background = 0xa0000000;

std::string seconds_text(int64_t pts) {
    char text[40];
    std::snprintf(text, sizeof text, "%" PRId64 ".%03d s", pts / 1000000,
                  static_cast<int>(pts / 1000 % 1000));
    return text;
}

std::string clock_text(int64_t pts) {
    const int64_t seconds = pts / 1000000;
    char text[40];
    std::snprintf(text, sizeof text, "%" PRId64 ":%02d:%02d.%d", seconds / 3600,
                  static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60),
                  static_cast<int>(pts / 100000 % 10));
    return text;
}

// The size of pictures as they come out; never larger than the video's.
picture_size fitted(const kel_channel_format& format, const picture_size& room) {
    picture_size size = {format.video.width, format.video.height};
    if (size.width > room.width || size.height > room.height)
        kel_scale_inside_bb(size.width, size.height, room.width, room.height, &size.width, &size.height);
    if (size.width < 1 || size.height < 1)
        throw failure("the pictures are too thin for this size", exit_usage);
    return size;
}

media_input open_video(const session& session, const std::string& path) {
    media_wishes wishes;
    wishes.audio = false;
    return {session, path, wishes};
}

// The picture that is shown at a time, or none when the video ends before.
std::optional<picture> read_picture(const session& session, const std::string& path, int64_t pts,
                                    const picture_size& room) {
    media_input input = open_video(session, path);
    if (pts > 0) input.seek(pts);
    kel_slice slice;
    const bool found = input.read_video(slice);
    if (const std::string damage = input.damage(); !damage.empty()) throw failure(damage);
    if (!found) return {};
    const picture_size size = fitted(*input.video(), room);
    picture made = make_picture(session, size.width, size.height, 0xff000000);
    if (kel_blit_video(&slice, &made.slice, nullptr, nullptr, 255, SCREEN_QUALITY_NORMAL,
                       SCREEN_TRANSPARENCY_SOURCE) != 0 ||
        screen_flush_blits(session.context()->screen_context, SCREEN_WAIT_IDLE) != 0)
        throw failure(path + ": its pictures cannot be converted");
    return made;
}

picture one_picture(session& session, const frame_options& options, const picture_filters& filters) {
    const picture_size room =
        options.fit.empty() ? picture_size{16384, 16384} : parse_picture_size(options.fit);
    const int64_t at = options.at.empty() ? 0 : parse_time(options.at);
    std::optional<picture> found = read_picture(session, options.input, at, room);
    if (!found) throw failure(options.input + ": it ends before " + seconds_text(at));
    return filters.apply(session, std::move(*found));
}

// The time in a tile's lower left corner.
class labels {
  public:
    explicit labels(session& session) : session_(session) {
        try {
            look_ = {find_font(default_font), label_color, KEL_TEXT_HALIGN_LEFT};
            session.need_text();
        } catch (const failure& reason) {
            std::fprintf(stderr, "kel: the times are left out: %s\n", reason.what());
        }
    }

    void draw(const picture& sheet, int left, int bottom, int64_t pts) const {
        if (!look_) return;
        const picture text = text_block(session_, clock_text(pts), *look_).draw(label_points);
        const auto& ink = text.slice.spec.video;
        const picture plate = make_picture(session_, ink.width + 2 * label_margin,
                                           ink.height + 2 * label_margin, label_background);
        const int top = bottom - plate.slice.spec.video.height;
        lay_over(session_, plate, sheet, left, top, false);
        lay_over(session_, text, sheet, left + label_margin, top + label_margin, false);
    }

  private:
    session& session_;
    std::optional<text_look> look_;
};

picture contact_sheet(session& session, const frame_options& options, const picture_filters& filters) {
    const picture_size tiles =
        parse_pair(options.sheet, most_tiles, "a sheet: COLUMNSxROWS, up to " + std::to_string(most_tiles));
    const picture_size room = options.fit.empty() ? tile_room : parse_picture_size(options.fit);
    const media_input input = open_video(session, options.input);
    const picture_size size = fitted(*input.video(), room);
    const int64_t duration = input.duration();
    const int count = tiles.width * tiles.height;
    if (duration <= 0) throw failure(options.input + ": it does not tell how long it is");

    const labels labels(session);
    picture sheet = make_picture(session, gap + tiles.width * (size.width + gap),
                                 gap + tiles.height * (size.height + gap), sheet_color);
    int empty_tiles = 0;
    for (int i = 0; i < count; ++i) {
        const int64_t at = duration / count * i + duration / count / 2;
        std::optional<picture> found = read_picture(session, options.input, at, room);
        // Sound may last a little longer; much longer, and something is missing.
        if (!found && ++empty_tiles > 1 + count / 10)
            throw failure(options.input + ": it has no picture at " + seconds_text(at) +
                          ", but claims to last " + seconds_text(duration));
        if (!found) continue;
        const int x = gap + i % tiles.width * (size.width + gap),
                  y = gap + i / tiles.width * (size.height + gap);
        lay_over(session, filters.apply(session, std::move(*found)), sheet, x, y, true);
        labels.draw(sheet, x, y + size.height, at);
    }
    if (empty_tiles == count) throw failure(options.input + ": there is no picture in it");
    return sheet;
}

}  // namespace

void extract_frame(const frame_options& options) {
    if (!options.at.empty() && !options.sheet.empty())
        throw failure("--at and --sheet exclude each other", exit_usage);
    const picture_filters filters(options.filters);
    check_output_path(options.output, {options.input}, options.replace);
    session session;
    write_png(options.output, options.sheet.empty() ? one_picture(session, options, filters).slice
                                                    : contact_sheet(session, options, filters).slice);
}

}  // namespace kel_tool
