// Media files that tests make with the file sink, and what FFmpeg's libraries read in a file.
#pragma once

#include <gtest/gtest.h>
#include <kel.h>
#include <mm/mmf.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "graph/media_fixture.hpp"
#include "support/threads.hpp"

namespace kel_test {

// What a made file holds: a sine and a moving pattern. Nothing of a kind whose rate or width is 0.
struct MediaSpec {
    double seconds = 1;
    int rate = 48000, channels = 2, bits = 16;
    int width = 160, height = 120, frame_rate = 25;
    double frequency = 440, amplitude = 0.5;
    std::map<std::string, std::string> texts;  // resources of the sink
    std::map<std::string, int> numbers;
    bool ahead = false;  // all of it is queued, by one thread, before the sink looks
};

// Luma at (x, y) of picture n of the pattern; its chroma is 128.
int pattern_luma(int x, int y, int n);

// FFmpeg's own words about spoilt files stay off the terminal.
void silence_codecs();

// A file's contents.
std::string bytes_of(const std::string& path);

// A path in the test's own folder, which ends with the program.
std::string test_path(const std::string& name);

// Writes a file through reader and file sink. Empty on success, else what went wrong.
std::string make_media(kel_context* context, const std::string& path, const MediaSpec& spec);

// The same straight from a file source into a sink, with the framework's own memory between them.
std::string copy_media(const std::string& from, const std::string& into, const MediaSpec& spec);

// Runs MmProcess until the graph's sinks end, fail or stop; its last result.
int run_sinks(mm_graph* graph);

// An output or input channel of a filter by media type, or null.
kel_channel* output_of(kel_filter* filter, uint32_t media_type);
kel_channel* input_of(kel_filter* filter, uint32_t media_type);

// The "Error" resource of a file filter.
std::string error_of(kel_filter* filter);

// A slice of a buffer that is given up with it, for a queue whose items drop_slice ends.
kel_slice* new_slice(kel_buffer* buffer, uint64_t pts);

// A file as FFmpeg's libraries see it.
struct ReadMedia {
    bool opened = false;
    std::string container, audio_codec, video_codec;
    double duration = 0;  // seconds
    int rate = 0, channels = 0, bits = 0, width = 0, height = 0;
    std::vector<float> audio;                // of the first channel
    std::vector<double> video_pts;           // seconds
    std::vector<std::vector<uint8_t>> luma;  // of each picture, without padding

    explicit ReadMedia(const std::string& path);
    double frequency() const;  // from the zero crossings of the middle half
    double rms() const;        // of the middle half; full scale is 1
};

// Peak signal to noise ratio in dB against what is expected at each (x, y).
double psnr(const std::vector<uint8_t>& luma, int width, const std::function<double(int, int)>& expected);

// Tests with real files, which may take their time.
class Media : public MediaTest {
  protected:
    Media() { silence_codecs(); }
    Watchdog watchdog{std::chrono::seconds(240), "media"};
};

// A file source with a writer behind it, whose channels the test reads.
struct Playing {
    mm_graph* graph = MmCreateGraph();
    kel_filter* source = graph ? MmCreateFilter(graph, MmFileSource()) : nullptr;
    kel_filter* writer = graph ? kel_create_writer_filter(graph) : nullptr;
    kel_channel *audio = nullptr, *video = nullptr;
    int opened = ENOMEM;

    Playing(kel_context* context, const std::string& path, int bits = 16) {
        if (!source || !writer) return;
        set_integer(source, "AudioBitDepth", bits);
        opened = MmSetResource(source, "Path", path.c_str());
        MmSetResource(writer, "KelContext", context);
        if (opened != 0) return;
        kel_channel* sound = output_of(source, 4);
        kel_channel* picture = output_of(source, 2);
        set_integer(writer, "AudioChannelCount", sound != nullptr);
        set_integer(writer, "VideoChannelCount", picture != nullptr);
        if (sound) opened |= MmConnect(graph, sound, audio = input_of(writer, 4));
        if (picture) opened |= MmConnect(graph, picture, video = input_of(writer, 2));
        play();
    }
    ~Playing() { MmDestroyGraph(graph); }
    void play() {
        MmStart(graph);
        MmResume(graph);
    }

    struct Totals {
        int64_t frames = 0;
        int pictures = 0;
    };
    // Reads both channels to their ends.
    Totals drain() {
        Totals totals;
        kel_slice slice;
        while (audio && kel_writer_read_slice(audio, &slice) == 0)
            if (slice.buffer) totals.frames += slice.spec.audio.nsamples;
        while (video && kel_writer_read_slice(video, &slice) == 0) totals.pictures += slice.buffer != nullptr;
        return totals;
    }
};

}  // namespace kel_test
