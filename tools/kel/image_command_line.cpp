#include <CLI/CLI.hpp>
#include <memory>

#include "command_line.hpp"
#include "filters_command.hpp"
#include "frame_command.hpp"
#include "image_command.hpp"
#include "text_command.hpp"

namespace kel_tool {
namespace {

void add_output_options(CLI::App& command, std::string& output, bool& replace) {
    command.add_option("-o,--output", output, "PNG file to write")->required();
    command.add_flag("-y,--yes", replace, "Replace an output that exists");
}

void add_text(CLI::App& app) {
    CLI::App* command = app.add_subcommand("text", "Draw lines of text into a PNG file");
    auto options = std::make_shared<text_options>();
    command->add_option("text", options->text, "UTF-8, in one or several lines")->required();
    add_output_options(*command, options->output, options->replace);
    command->add_option("--font", options->font, "Name of an installed font, or a font file")
        ->capture_default_str();
    command->add_option("--text-size", options->points, "Points at 160 dots per inch")
        ->check(CLI::Range(1, 1500))
        ->capture_default_str();
    command->add_option("--color", options->color, "#RRGGBB, #RRGGBBAA, white, black, red, ...")
        ->capture_default_str();
    command->add_option("--background", options->background, "A colour; transparent unless given");
    command->add_option("--size", options->size, "WxH of the picture; unless given it fits the text");
    command->add_option("--margin", options->margin, "Pixels around the text")
        ->check(CLI::Range(0, 4096))
        ->capture_default_str();
    command->add_option("--pos", options->position, "X,Y where the first line's baseline begins");
    command->add_option("--box", options->box, "X,Y,W,H that the text fills, whatever its size");
    command->add_option("--align", options->align, "left, center or right[,baseline, bottom, center or top]");
    command->footer(
        "Examples:\n"
        "  kel text \"Hello, world\" -o hello.png\n"
        "  kel text $'First line\\nSecond line' -o lines.png --font \"DejaVu Serif\" --color \"#ffcc00\"\n"
        "  kel text Title -o title.png --size 1280x720 --background black --box 100,260,1080,200\n"
        "  kel text \"bottom right\" -o corner.png --size 640x360 --align right,bottom");
    command->callback([options] { draw_text(*options); });
}

void add_filter_option(CLI::App& command, std::vector<std::string>& filters) {
    command
        .add_option("--filter", filters,
                    "Video filter: NAME or FILE[=PARAMETER:VALUE,...]; may be repeated; see kel filters")
        ->take_all();
}

void add_image(CLI::App& app) {
    CLI::App* command = app.add_subcommand("image", "Turn an image into a PNG file, upright and fitted");
    auto options = std::make_shared<image_options>();
    command->add_option("input", options->input, "PNG, JPEG, BMP, GIF or WebP")->required();
    add_output_options(*command, options->output, options->replace);
    command->add_option("--fit", options->fit, "WxH that a larger image is scaled down into");
    add_filter_option(*command, options->filters);
    command->footer(
        "Examples:\n"
        "  kel image photo.jpg -o small.png --fit 640x480\n"
        "  kel image photo.jpg -o brown.png --filter sepia --filter vignette=amount:0.7");
    command->callback([options] { convert_image(*options); });
}

void add_frame(CLI::App& app) {
    CLI::App* command = app.add_subcommand("frame", "Take a picture, or a contact sheet, out of a video");
    auto options = std::make_shared<frame_options>();
    command->add_option("input", options->input, "Media file")->required();
    add_output_options(*command, options->output, options->replace);
    command->add_option("--at", options->at, "Time: seconds or [[H:]M:]S; the start unless given");
    command->add_option("--sheet", options->sheet, "COLUMNSxROWS pictures, spread over the whole video");
    command->add_option("--fit", options->fit, "WxH that a picture is scaled down into; 320x320 in a sheet");
    add_filter_option(*command, options->filters);
    command->footer(
        "Examples:\n"
        "  kel frame clip.mp4 --at 2.5 -o frame.png\n"
        "  kel frame clip.mp4 --sheet 4x3 -o sheet.png");
    command->callback([options] { extract_frame(*options); });
}

void add_filters(CLI::App& app) {
    CLI::App* command = app.add_subcommand("filters", "List the video filters, or check filter files");
    auto options = std::make_shared<filters_options>();
    command->add_option("files", options->files, "Filter files, or names from the list");
    command->add_flag("--names", options->names_only, "List the names alone");
    command->footer(
        "With files: their parameters, the shader with line numbers and what the driver says of it. The exit "
        "status\n"
        "is 1 unless all of them compile.\n"
        "Examples:\n"
        "  kel filters\n"
        "  kel filters my_filter.glsl");
    command->callback([options] { show_filters(*options); });
}

}  // namespace

void add_picture_commands(CLI::App& app) {
    add_text(app);
    add_image(app);
    add_frame(app);
    add_filters(app);
}

}  // namespace kel_tool
