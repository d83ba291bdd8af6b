#include "text_command.hpp"

#include <optional>

#include "media/failure.hpp"
#include "media/image.hpp"
#include "media/output.hpp"
#include "media/png_file.hpp"
#include "media/text_block.hpp"
#include "option_values.hpp"

namespace kel_tool {
namespace {

// Where the text goes, in numbers.
struct placement {
    std::optional<picture_size> size;  // none: as large as the text
    std::optional<kel_point> position;
    std::optional<kel_rect> box;
    int halign = KEL_TEXT_HALIGN_CENTER;
    int valign = KEL_TEXT_VALIGN_CENTER;
    uint32_t background = 0;
    int margin = 0;
};

placement parse_placement(const text_options& options) {
    placement where;
    where.margin = options.margin;
    if (!options.size.empty()) where.size = parse_picture_size(options.size);
    if (!options.box.empty()) where.box = parse_box(options.box);
    if (!options.position.empty()) {
        where.position = parse_position(options.position);
        where.halign = KEL_TEXT_HALIGN_LEFT;
        where.valign = KEL_TEXT_VALIGN_BASELINE;
    }
    if (!options.align.empty()) parse_align(options.align, where.halign, where.valign);
    if (!options.background.empty()) where.background = parse_color(options.background);
    if (where.position && where.box) throw failure("--pos and --box exclude each other", exit_usage);
    if ((where.position || where.box) && !where.size)
        throw failure("--pos and --box need the --size of the picture", exit_usage);
    return where;
}

// Where an extent begins that lies at the start, the end or in the middle of a length.
int begin(int extent, int length, bool at_start, bool at_end) {
    return at_start ? 0 : at_end ? length - extent : (length - extent) / 2;
}

// The upper left corner of the ink inside a box.
kel_point inside(const kel_rect& box, const kel_slice& ink, const placement& where) {
    const auto& video = ink.spec.video;
    return {box.x + begin(video.width, box.width, where.halign == KEL_TEXT_HALIGN_LEFT,
                          where.halign == KEL_TEXT_HALIGN_RIGHT),
            box.y + begin(video.height, box.height, where.valign == KEL_TEXT_VALIGN_TOP,
                          where.valign == KEL_TEXT_VALIGN_BOTTOM)};
}

// The same at a position, for ink that was measured from the first line's pen.
kel_point at_position(const kel_point& position, const kel_rect& ink, int valign) {
    const int below = valign == KEL_TEXT_VALIGN_TOP      ? 0
                      : valign == KEL_TEXT_VALIGN_CENTER ? -ink.height / 2
                      : valign == KEL_TEXT_VALIGN_BOTTOM ? -ink.height
                                                         : ink.y;
    return {position.x + ink.x, position.y + below};
}

bool meets(const kel_rect& rect, const picture_size& size) {
    return rect.x < size.width && rect.y < size.height && rect.x + rect.width > 0 && rect.y + rect.height > 0;
}

void place(const session& session, const picture& ink, const picture& canvas, const placement& where,
           const kel_point& at) {
    const auto& video = ink.slice.spec.video;
    const auto& room = canvas.slice.spec.video;
    if (!meets({at.x, at.y, video.width, video.height}, {room.width, room.height}))
        throw failure("nothing of the text lies in the picture");
    lay_over(session, ink, canvas, at.x, at.y, where.background >> 24 == 0);
}

picture draw_fitted(const session& session, const text_block& block, const placement& where, int points) {
    const picture ink = block.draw(points);
    const int margin = where.margin;
    picture canvas = make_picture(session, ink.slice.spec.video.width + 2 * margin,
                                  ink.slice.spec.video.height + 2 * margin, where.background);
    place(session, ink, canvas, where, {margin, margin});
    return canvas;
}

// Several lines share one size; a single one is the library's to fit.
picture draw_in_box(const session& session, const text_block& block, const placement& where) {
    const kel_rect& box = *where.box;
    picture canvas = make_picture(session, where.size->width, where.size->height, where.background);
    if (block.is_single()) {
        place(session, block.draw_in_box(box.width, box.height, where.valign), canvas, where, {box.x, box.y});
        return canvas;
    }
    const picture ink = block.draw(block.fit(box.width, box.height));
    place(session, ink, canvas, where, inside(box, ink.slice, where));
    return canvas;
}

picture draw_at(const session& session, const text_block& block, const placement& where, int points) {
    const auto [width, height] = *where.size;
    const int margin = where.margin;
    picture canvas = make_picture(session, width, height, where.background);
    const picture ink = block.draw(points);
    place(session, ink, canvas, where,
          where.position
              ? at_position(*where.position, block.measure(points), where.valign)
              : inside({margin, margin, width - 2 * margin, height - 2 * margin}, ink.slice, where));
    return canvas;
}

}  // namespace

void draw_text(const text_options& options) {
    const placement where = parse_placement(options);
    const text_look look = {find_font(options.font), parse_color(options.color), where.halign};
    check_output_path(options.output, {}, options.replace);
    session session;
    session.need_text();
    const text_block block(session, options.text, look);
    write_png(options.output, where.box    ? draw_in_box(session, block, where).slice
                              : where.size ? draw_at(session, block, where, options.points).slice
                                           : draw_fitted(session, block, where, options.points).slice);
}

}  // namespace kel_tool
