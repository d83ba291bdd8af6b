#include <CLI/CLI.hpp>
#include <memory>

#include "command_line.hpp"
#include "info_command.hpp"
#include "media/font_file.hpp"
#include "option_values.hpp"
#include "run_command.hpp"
#include "slides_command.hpp"

namespace kel_tool {
namespace {

using options_pointer = std::shared_ptr<run_options>;

void add_output_options(CLI::App& command, run_options& options) {
    command.add_flag("-y,--yes", options.replace, "Replace an output that exists");
    command.add_flag("--accept-damage", options.accept_damage,
                     "Go on where an input is damaged or ends early");
    command.add_flag("-q,--quiet", options.quiet, "Show no progress");
    command.add_flag("--stats", options.stats, "Show what the road did");
}

void add_format_options(CLI::App& command, run_options& options) {
    command.add_option("--rate", options.rate, "Frames of sound per second; else the first input's");
    command.add_option("--channels", options.channels, "1 or 2; else the first input's");
    command.add_option("--type", options.type, "Sample type: U8, S16LE (unless given) or S24.8LE");
    command.add_option("--audio-codec", options.audio_codec,
                       "Name of an encoder; else the container's usual one");
}

void add_mix_options(CLI::App& command, run_options& options) {
    command.add_option("inputs", options.inputs, "Files to read")->required();
    command.add_option("-o,--output", options.output, "File to write; its name tells the kind")->required();
    command.add_option("--gain", options.gain, "Of the whole mix: 1 leaves it as it is");
    command.add_option("--input-gain", options.input_gains, "N=GAIN: of the Nth input; may be repeated")
        ->take_all();
    command
        .add_option("--input-delay", options.input_delays,
                    "N=TIME: when the Nth input's sound begins; may be repeated")
        ->take_all();
    command
        .add_option("--audio-filter", options.audio_filters,
                    "gain=gain:G, lowpass, highpass, bandpass or notch=freq:HZ[,mix:M]; may be repeated")
        ->take_all();
    command.add_option("--from", options.from, "Begin there: seconds or [[H:]M:]S");
    command.add_option("--to", options.to, "End there");
}

// The text on the pictures, as it is written on the command line.
struct text_words {
    overlay_options made;
    std::string position, box, align, color;

    overlay_options parse() const {
        overlay_options options = made;
        options.font = find_font(made.font);
        if (!position.empty()) {
            options.position = parse_position(position);
            options.halign = KEL_TEXT_HALIGN_LEFT;
        }
        if (!box.empty()) options.box = parse_box(box);
        if (!align.empty()) parse_align(align, options.halign, options.valign);
        if (!color.empty()) options.color = parse_color(color);
        return options;
    }
};

void add_picture_options(CLI::App& command, run_options& options, text_words& text) {
    command
        .add_option("--filter", options.filters,
                    "Video filter: NAME or FILE[=PARAMETER:VALUE,...]; may be repeated")
        ->take_all();
    command.add_option("--size", options.size, "WxH of the output; the pictures are fitted into it");
    command.add_option("--text", text.made.text,
                       "A line of text; {time} {timecode} {pts} {frame} are filled in");
    command.add_option("--font", text.made.font, "Name of an installed font, or a font file")
        ->capture_default_str();
    command
        .add_option("--text-size", text.made.size,
                    "Points at 160 dots per inch; else a fifteenth of the height")
        ->check(CLI::Range(1, 2000));
    command.add_option("--pos", text.position, "X,Y where its baseline begins");
    command.add_option("--box", text.box, "X,Y,W,H that the text fills");
    command.add_option("--align", text.align, "left, center or right[,baseline, bottom, center or top]");
    command.add_option("--color", text.color, "#RRGGBB, #RRGGBBAA, white, black, red, ...");
    command.add_flag("!--no-audio", options.audio, "Leave the sound out");
    command.add_flag("!--no-video", options.video, "Leave the pictures out");
    command.add_option("--video-codec", options.video_codec,
                       "Name of an encoder; else the container's usual one");
    command.add_option("--video-options", options.video_options, "For the encoder: name=value:name=value");
    command.add_option("--quality", options.quality, "Of the pictures, 0 to 100")->check(CLI::Range(0, 100));
}

void add_run(CLI::App& app) {
    CLI::App* command = app.add_subcommand("run", "The whole road: decode, mix, filter, annotate, encode");
    auto options = std::make_shared<run_options>();
    auto text = std::make_shared<text_words>();
    add_mix_options(*command, *options);
    add_picture_options(*command, *options, *text);
    add_format_options(*command, *options);
    add_output_options(*command, *options);
    command->footer(
        "Examples:\n"
        "  kel run clip.mp4 -o brown.mp4 --filter sepia --filter vignette=amount:0.7\n"
        "  kel run clip.mp4 voice.wav -o both.mkv --input-gain 1=0.3 --from 1:30 --to 2:00\n"
        "  kel run clip.mp4 -o small.mp4 --size 640x360 --text \"{timecode}\" --align right --pos 620,340");
    command->callback([options, text] {
        if (!text->made.text.empty()) options->text = text->parse();
        run(*options);
    });
}

void add_mix(CLI::App& app) {
    CLI::App* command = app.add_subcommand("mix", "Mix the sound of several files into one");
    auto options = std::make_shared<run_options>();
    options->video = false;
    add_mix_options(*command, *options);
    add_format_options(*command, *options);
    add_output_options(*command, *options);
    command->footer("Example:\n  kel mix voice.wav music.oga -o both.flac --input-gain 2=0.4");
    command->callback([options] { run(*options); });
}

void add_convert(CLI::App& app) {
    CLI::App* command =
        app.add_subcommand("convert", "Convert sound into another rate, channel count or sample type");
    auto options = std::make_shared<run_options>();
    options->video = false;
    options->inputs.resize(1);
    command->add_option("input", options->inputs.front(), "File to read")->required();
    command->add_option("output", options->output, "File to write; its name tells the kind")->required();
    add_format_options(*command, *options);
    add_output_options(*command, *options);
    command->footer("Example:\n  kel convert voice.wav small.wav --rate 22050 --channels 1 --type U8");
    command->callback([options] { run(*options); });
}

void add_slides(CLI::App& app) {
    CLI::App* command =
        app.add_subcommand("slides", "Make a clip of photographs, each slowly moving, fading into the next");
    auto options = std::make_shared<slides_options>();
    command->add_option("photographs", options->photographs, "Pictures to show, in this order")->required();
    command->add_option("-o,--output", options->output, "File to write; its name tells the kind")->required();
    command->add_option("--seconds", options->seconds, "That each is shown")
        ->check(CLI::Range(1, 600))
        ->capture_default_str();
    command->add_option("--size", options->size, "WxH of the output")->capture_default_str();
    command->add_option("--frame-rate", options->frame_rate, "Frames per second")
        ->check(CLI::Range(1, 120))
        ->capture_default_str();
    command->add_flag("-y,--yes", options->replace, "Replace an output that exists");
    command->add_flag("-q,--quiet", options->quiet, "Show no progress");
    command->footer("Example:\n  kel slides *.jpg -o holidays.mp4 --seconds 4 --size 1920x1080");
    command->callback([options] { make_slides(*options); });
}

void add_info(CLI::App& app) {
    CLI::App* command = app.add_subcommand("info", "Tell what is in a file, a line KEY=VALUE for each fact");
    auto paths = std::make_shared<std::vector<std::string>>();
    command->add_option("files", *paths, "Files to look at")->required();
    command->footer("Example:\n  kel info clip.mp4");
    command->callback([paths] { show_info(*paths); });
}

}  // namespace

void add_media_commands(CLI::App& app) {
    add_run(app);
    add_convert(app);
    add_mix(app);
    add_slides(app);
    add_info(app);
}

}  // namespace kel_tool
