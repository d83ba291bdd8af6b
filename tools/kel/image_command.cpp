#include "image_command.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "media/failure.hpp"
#include "media/image.hpp"
#include "media/image_filters.hpp"
#include "media/output.hpp"
#include "media/png_file.hpp"
#include "option_values.hpp"

namespace kel_tool {
namespace {

constexpr picture_size unlimited = {16384, 16384};

void check_readable(const std::string& path) {
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) throw failure(path + ": " + std::strerror(errno));
    const bool is_empty = std::fgetc(file) == EOF;
    const bool is_bad = std::ferror(file);
    std::fclose(file);
    if (is_bad) throw failure(path + ": it cannot be read");
    if (is_empty) throw failure(path + ": it is empty");
}

picture load(const session& session, const std::string& path, const picture_size& fit) {
    check_readable(path);
    session.context()->max_image_width = fit.width * 2;  // an image is at most half as large
    session.context()->max_image_height = fit.height * 2;
    img_lib_t images = nullptr;
    if (img_lib_attach(&images) != 0) throw failure("no image can be loaded");
    kel_buffer* buffer = kel_load_image_file(session.context(), images, path.c_str(),
                                             SCREEN_USAGE_READ | SCREEN_USAGE_OPENGL_ES2);
    img_lib_detach(images);
    if (!buffer) throw failure(path + ": no PNG, JPEG, BMP, GIF or WebP image, or damaged, or too large");
    return take_picture(buffer);
}

}  // namespace

void convert_image(const image_options& options) {
    const picture_size fit = options.fit.empty() ? unlimited : parse_picture_size(options.fit);
    const picture_filters filters(options.filters);
    check_output_path(options.output, {options.input}, options.replace);
    session session;
    write_png(options.output, filters.apply(session, load(session, options.input, fit)).slice);
}

}  // namespace kel_tool
