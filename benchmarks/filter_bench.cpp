// A second-order lowpass and a gain over stereo 48 kHz, beside FFmpeg's filters.
#include <kel.h>

#include <cmath>
#include <vector>

#include "benchmarks/ffmpeg_graph.hpp"
#include "benchmarks/harness.hpp"

namespace {

using namespace kel_bench;

int32_t tone(int i) {
    return static_cast<int32_t>(8e6 * std::sin(i * 0.05));
}

// One of libkel's filters with all its ports connected.
class KelFilter {
  public:
    KelFilter(const char* name, int32_t frames) : frames_(frames) {
        const kel_audio_format format = {48000, 2, KEL_AUDIO_TYPE_S24_8LE};
        filter_ = kel_create_audio_filter(kel_find_audio_filter(name), &format);
        const auto values = static_cast<size_t>(2 * frames);
        in_.resize(values), out_.resize(values), gain_.assign(values, 40000), freq_.assign(values, 1000 << 8);
        for (size_t i = 0; i < values; ++i) in_[i] = tone(static_cast<int>(i / 2));
        connect(kel_get_audio_filter_input(filter_, "audio", 0), in_);
        connect(kel_get_audio_filter_input(filter_, "gain", 0), gain_);
        connect(kel_get_audio_filter_input(filter_, "freq", 0), freq_);
        connect(kel_get_audio_filter_output(filter_, "audio", 0), out_);
    }
    ~KelFilter() { kel_destroy_audio_filter(filter_); }
    KelFilter(const KelFilter&) = delete;
    KelFilter& operator=(const KelFilter&) = delete;

    void run() {
        if (kel_pump_audio_filter(filter_, frames_) != frames_) std::abort();
        keep(out_[0]);
    }

  private:
    void connect(kel_audio_filter_port* port, std::vector<int32_t>& values) const {
        if (!port) return;
        port->data = values.data();
        port->available = port->capacity = frames_;
    }

    int32_t frames_;
    kel_audio_filter* filter_;
    std::vector<int32_t> in_, out_, gain_, freq_;
};

void compare(const Options& options, const char* name, const std::string& ffmpeg,
             std::vector<const char*> formats, int frames) {
    Comparison comparison(std::string(name) + ", stereo, blocks of " + std::to_string(frames) + " frames",
                          {"ns a frame", 1e9 / frames});
    KelFilter filter(name, frames);
    comparison.add(Role::subject, std::string("libkel ") + name, [&](uint64_t count) {
        while (count--) filter.run();
    });
    std::vector<std::unique_ptr<FfmpegGraph>> graphs;
    for (const char* format : formats) {
        graphs.push_back(std::make_unique<FfmpegGraph>(1, format, "[in0]" + ffmpeg + "[out]", frames));
        AVFrame* frame = graphs.back()->input(0);
        const AVSampleFormat sample_format = av_get_sample_fmt(format);
        const bool planar = av_sample_fmt_is_planar(sample_format);
        for (int i = 0; i < 2 * frames; ++i) {
            uint8_t* plane = frame->extended_data[planar ? i / frames : 0];
            const int at = planar ? i % frames : i;
            const double value = tone(planar ? at : i / 2) / 8388608.0;
            switch (av_get_packed_sample_fmt(sample_format)) {
                case AV_SAMPLE_FMT_S32:
                    reinterpret_cast<int32_t*>(plane)[at] = static_cast<int32_t>(value * 2e9);
                    break;
                case AV_SAMPLE_FMT_FLT:
                    reinterpret_cast<float*>(plane)[at] = static_cast<float>(value);
                    break;
                default:
                    reinterpret_cast<double*>(plane)[at] = value;
            }
        }
        comparison.add(Role::peer, "FFmpeg " + ffmpeg + ", " + format,
                       [graph = graphs.back().get()](uint64_t count) {
                           while (count--) {
                               if (!graph->run()) std::abort();
                           }
                       });
    }
    std::vector<char> from(static_cast<size_t>(frames) * 8, 1), to(from.size());
    comparison.add(Role::reference, "memory copy of the block", [&](uint64_t count) {
        while (count--) {
            std::memcpy(to.data(), from.data(), from.size());
            keep(to[0]);
        }
    });
    comparison.run(options);
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse_options(argc, argv);
    for (int frames : {1024, 48000}) {
        compare(options, "lowpass", "lowpass=f=1000:t=q:w=0.707", {"s32p", "fltp", "dblp"}, frames);
        compare(options, "gain", "volume=0.61:precision=fixed", {"s32"}, frames);
    }
}
