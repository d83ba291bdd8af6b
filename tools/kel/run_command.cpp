#include "run_command.hpp"

#include <algorithm>
#include <cmath>
#include <memory>

#include "interrupt.hpp"
#include "media/audio_pipeline.hpp"
#include "media/failure.hpp"
#include "media/video_pipeline.hpp"
#include "option_values.hpp"
#include "progress.hpp"
#include "report.hpp"

namespace kel_tool {
namespace {

constexpr int32_t progress_step_ms = 50;
constexpr int most_rate = 384000;

using input_list = std::vector<std::unique_ptr<media_input>>;

input_list open_inputs(const session& session, const run_options& options, const time_span& span) {
    input_list inputs;
    for (const std::string& path : options.inputs) {
        media_wishes wishes;
        wishes.audio = options.audio;
        wishes.video = options.video && inputs.empty();
        inputs.push_back(std::make_unique<media_input>(session, path, wishes));
        if (span.from > 0) inputs.back()->seek(span.from);
    }
    return inputs;
}

time_span parse_span(const run_options& options) {
    time_span span;
    if (!options.from.empty()) span.from = parse_time(options.from);
    if (!options.to.empty()) span.to = parse_time(options.to);
    if (span.to <= span.from) throw failure("--to lies before --from", exit_usage);
    return span;
}

// What N=VALUE says: the input's index, and the value.
std::pair<size_t, std::string> of_input(const std::string& text, const std::string& option, size_t inputs) {
    const size_t equals = text.find('=');
    const double number = parse_number(text.substr(0, equals), option);
    if (equals == std::string::npos || number < 1 || number > static_cast<double>(inputs) ||
        number != std::floor(number))
        throw failure("'" + text + "': " + option + " is N=VALUE, the first input being 1", exit_usage);
    return {static_cast<size_t>(number) - 1, text.substr(equals + 1)};
}

std::vector<audio_input> audio_inputs(const run_options& options, const input_list& inputs) {
    std::vector<filter_spec> common;
    for (const std::string& text : options.audio_filters) common.push_back(parse_filter_spec(text));
    std::vector<audio_input> all;
    for (const auto& input : inputs) all.push_back({input.get(), common});
    for (const std::string& text : options.input_gains) {
        const auto [index, value] = of_input(text, "--input-gain", all.size());
        const double gain = parse_number(value, "--input-gain");
        all[index].filters.insert(all[index].filters.begin(), {"gain", {{"gain", {gain}}}});
    }
    for (const std::string& text : options.input_delays) {
        const auto [index, value] = of_input(text, "--input-delay", all.size());
        all[index].delay = parse_time(value);
    }
    std::erase_if(all, [](const audio_input& each) { return !each.input->audio(); });
    return all;
}

kel_audio_format audio_format(const run_options& options, const media_input& first) {
    if (options.rate < 0 || options.rate > most_rate || options.channels < 0 || options.channels > 2)
        throw failure("there are rates up to 384000 and one or two channels", exit_usage);
    const auto& audio = first.audio()->audio;
    return {options.rate ? options.rate : audio.rate, options.channels ? options.channels : audio.channels,
            options.type.empty() ? KEL_AUDIO_TYPE_S16LE : parse_audio_type(options.type)};
}

picture_work parse_picture_work(const run_options& options, const media_input& input) {
    std::vector<filter_spec> specs;
    for (const std::string& text : options.filters) specs.push_back(parse_filter_spec(text));
    const auto& video = input.video()->video;
    return {choose_filters(specs), options.text,
            options.size.empty() ? picture_size{video.width, video.height} : parse_size(options.size)};
}

// How long the output will be, in microseconds; 0 when no input says.
int64_t expected_length(const input_list& inputs, const time_span& span) {
    int64_t longest = 0;
    for (const auto& input : inputs) longest = std::max(longest, input->duration());
    return std::max<int64_t>(std::min(longest, span.to) - span.from, 0);
}

// Watches over the threads until the file is written; they are joined then.
void wait_and_watch(road& road, progress& progress) {
    while (!road.output().wait(progress_step_ms)) {
        if (interrupted()) road.end_early();
        road.note_heap();
        progress.show(std::max<int64_t>(road.pictures ? road.video_pts : road.audio_pts, 0), road.pictures);
    }
}

// The threads of a run. They end with it, whatever happens.
class crew {
  public:
    explicit crew(road& road) : road_(road) {}
    ~crew() {
        if (threads_.empty()) return;
        road_.end_early();
        road_.output().abandon();
        join();
        while (!road_.output().wait(progress_step_ms)) continue;  // it may hold what the threads have sent
    }
    crew(const crew&) = delete;
    crew& operator=(const crew&) = delete;

    void start(std::function<void()> work) { threads_.push_back(road_.start(std::move(work))); }
    void join() {
        for (std::thread& thread : threads_) thread.join();
        threads_.clear();
    }

  private:
    road& road_;
    std::vector<std::thread> threads_;
};

}  // namespace

void run(const run_options& options) {
    const time_span span = parse_span(options);
    const auto gain = static_cast<float>(parse_number(options.gain, "--gain"));
    if (gain < 0) throw failure("--gain is at least 0", exit_usage);
    if (!options.audio && !options.video)
        throw failure("nothing is left without audio and video", exit_usage);
    check_output_path(options.output, options.inputs, options.replace);
    watch_for_interrupt();

    session session;
    const input_list inputs = open_inputs(session, options, span);
    const std::vector<audio_input> sounds = audio_inputs(options, inputs);
    media_input* pictures = inputs.front()->video() ? inputs.front().get() : nullptr;

    output_settings settings;
    settings.path = options.output;
    settings.audio_codec = options.audio_codec;
    settings.video_codec = options.video_codec;
    settings.video_options = options.video_options;
    settings.quality = options.quality;
    picture_work work;
    if (!sounds.empty()) settings.audio = audio_format(options, *sounds.front().input);
    if (pictures) {
        work = parse_picture_work(options, *pictures);
        settings.video = work.size;
        settings.frame_rate = pictures->video()->video.frame_rate;
    } else if (!options.filters.empty() || options.text || !options.size.empty()) {
        throw failure(options.inputs.front() + ": no video in it for the filters, the text or the size");
    }

    media_output output(session, settings);
    road road(output, options.accept_damage);
    std::optional<audio_road> audio;
    std::optional<picture_road> video;
    if (settings.audio) audio.emplace(session, road, sounds, *settings.audio, gain, span);
    if (settings.video) video.emplace(session, road, *pictures, work, span);

    progress progress(expected_length(inputs, span), options.quiet);
    crew crew(road);
    if (audio) crew.start([&] { audio->run(); });
    if (video) crew.start([&] { video->decode(); });
    if (video && video->has_to_draw()) crew.start([&] { video->draw(); });
    wait_and_watch(road, progress);
    road.end_early();
    if (video) video->abort();
    crew.join();
    road.rethrow();
    output.finish();
    if (road.pictures == 0 && road.blocks == 0)
        throw failure("there is nothing to write: the inputs end before that");
    const int64_t length = std::max<int64_t>(road.audio_pts, road.video_pts);
    progress.finish(options.output, length, road.pictures);
    if (options.stats) print_stats(road, progress.seconds());
    if (interrupted())
        throw failure("interrupted; " + options.output + " holds what was done", exit_interrupted);
}

}  // namespace kel_tool
