#include "text_command.hpp"

#include <optional>

#include "failure.hpp"
#include "media_output.hpp"
#include "option_values.hpp"
#include "picture.hpp"
#include "png_file.hpp"
#include "text_block.hpp"

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

// The picture's edge or middle that the text is aligned to.
kel_point anchor(const placement& where) {
    if (where.position) return *where.position;
    const auto [width, height] = *where.size;
    return {where.halign == KEL_TEXT_HALIGN_LEFT    ? where.margin
            : where.halign == KEL_TEXT_HALIGN_RIGHT ? width - where.margin
                                                    : width / 2,
            where.valign == KEL_TEXT_VALIGN_TOP      ? where.margin
            : where.valign == KEL_TEXT_VALIGN_BOTTOM ? height - where.margin
                                                     : height / 2};
}

// How far below `y` the ink begins whose top is at `ink.y` as seen from the baseline.
int below(const kel_rect& ink, int valign) {
    switch (valign) {
        case KEL_TEXT_VALIGN_TOP:
            return 0;
        case KEL_TEXT_VALIGN_CENTER:
            return -ink.height / 2;
        case KEL_TEXT_VALIGN_BOTTOM:
            return -ink.height;
        default:
            return ink.y;
    }
}

bool meets(const kel_rect& rect, const picture_size& size) {
    return rect.x < size.width && rect.y < size.height && rect.x + rect.width > 0 && rect.y + rect.height > 0;
}

void place(const session& session, const picture& ink, const picture& canvas, const placement& where, int x,
           int y) {
    const auto& video = ink.slice.spec.video;
    const auto& room = canvas.slice.spec.video;
    if (!meets({x, y, video.width, video.height}, {room.width, room.height}))
        throw failure("nothing of the text lies in the picture");
    lay_over(session, ink, canvas, x, y, where.background >> 24 == 0);
}

picture draw_fitted(const session& session, const text_block& block, const placement& where, int points) {
    const picture ink = block.draw(points);
    const int margin = where.margin;
    picture canvas = make_picture(session, ink.slice.spec.video.width + 2 * margin,
                                  ink.slice.spec.video.height + 2 * margin, where.background);
    place(session, ink, canvas, where, margin, margin);
    return canvas;
}

// Several lines share one size; a single one is the library's to fit.
picture draw_in_box(const session& session, const text_block& block, const placement& where) {
    const kel_rect& box = *where.box;
    picture canvas = make_picture(session, where.size->width, where.size->height, where.background);
    if (block.is_single()) {
        place(session, block.draw_in_box(box.width, box.height, where.valign), canvas, where, box.x, box.y);
        return canvas;
    }
    const picture ink = block.draw(block.fit(box.width, box.height));
    const int spare = box.width - ink.slice.spec.video.width, rest = box.height - ink.slice.spec.video.height;
    place(session, ink, canvas, where,
          box.x + (where.halign == KEL_TEXT_HALIGN_LEFT    ? 0
                   : where.halign == KEL_TEXT_HALIGN_RIGHT ? spare
                                                           : spare / 2),
          box.y + (where.valign == KEL_TEXT_VALIGN_TOP      ? 0
                   : where.valign == KEL_TEXT_VALIGN_BOTTOM ? rest
                                                            : rest / 2));
    return canvas;
}

picture draw_at(const session& session, const text_block& block, const placement& where, int points) {
    picture canvas = make_picture(session, where.size->width, where.size->height, where.background);
    const kel_point at = anchor(where);
    const kel_rect ink = block.measure(points);
    place(session, block.draw(points), canvas, where, at.x + ink.x, at.y + below(ink, where.valign));
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
