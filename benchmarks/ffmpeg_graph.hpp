// A graph of FFmpeg's filters that is pushed frames and pulled one frame, with one thread.
#pragma once

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/frame.h>
}

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace kel_bench {

class FfmpegGraph {
  public:
    // `inputs` sources of 48 kHz stereo in `format`, named [in0], [in1] ...; `filters` goes from them to [out].
    FfmpegGraph(int inputs, const std::string& format, const std::string& filters, int frames)
        : frames_(frames) {
        graph_->nb_threads = 1;
        std::string text;
        for (int i = 0; i < inputs; ++i) {
            const std::string n = std::to_string(i);
            text += "abuffer@in" + n + "=sample_rate=48000:channel_layout=stereo:sample_fmt=" + format +
                    "[in" + n + "];";
        }
        text += filters + ";[out]abuffersink@out";
        AVFilterInOut *unused_in = nullptr, *unused_out = nullptr;
        check(avfilter_graph_parse2(graph_, text.c_str(), &unused_in, &unused_out), text);
        check(avfilter_graph_config(graph_, nullptr), text);
        for (int i = 0; i < inputs; ++i) {
            sources_.push_back(avfilter_graph_get_filter(graph_, ("abuffer@in" + std::to_string(i)).c_str()));
            AVFrame* frame = av_frame_alloc();
            frame->format = av_get_sample_fmt(format.c_str());
            frame->sample_rate = 48000;
            av_channel_layout_default(&frame->ch_layout, 2);
            frame->nb_samples = frames;
            check(av_frame_get_buffer(frame, 0), text);
            inputs_.push_back(frame);
        }
        sink_ = avfilter_graph_get_filter(graph_, "abuffersink@out");
        if (!sink_) check(AVERROR(ENOENT), text);
    }
    ~FfmpegGraph() {
        for (AVFrame*& frame : inputs_) av_frame_free(&frame);
        av_frame_free(&output_);
        avfilter_graph_free(&graph_);
    }
    FfmpegGraph(const FfmpegGraph&) = delete;
    FfmpegGraph& operator=(const FfmpegGraph&) = delete;

    AVFrame* input(int i) { return inputs_[static_cast<size_t>(i)]; }

    // One block through all inputs; false when the graph kept it to itself.
    bool run() {
        for (size_t i = 0; i < inputs_.size(); ++i) {
            inputs_[i]->pts = pts_;
            check(av_buffersrc_add_frame_flags(sources_[i], inputs_[i], AV_BUFFERSRC_FLAG_KEEP_REF),
                  "feeding");
        }
        pts_ += frames_;
        const bool got = av_buffersink_get_frame(sink_, output_) >= 0;
        if (got) av_frame_unref(output_);
        return got;
    }

  private:
    static void check(int result, const std::string& what) {
        if (result >= 0) return;
        std::fprintf(stderr, "FFmpeg refuses %s: %d\n", what.c_str(), result);
        std::exit(1);
    }

    int frames_;
    int64_t pts_ = 0;
    AVFilterGraph* graph_ = avfilter_graph_alloc();
    AVFrame* output_ = av_frame_alloc();
    std::vector<AVFilterContext*> sources_;
    std::vector<AVFrame*> inputs_;
    AVFilterContext* sink_ = nullptr;
};

}  // namespace kel_bench
