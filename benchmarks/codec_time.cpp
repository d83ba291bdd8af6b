#include "benchmarks/codec_time.hpp"

#include <dlfcn.h>

#include <ctime>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace {

thread_local double spent = 0;
thread_local int depth = 0;  // they call each other

double clock_seconds(clockid_t clock) {
    timespec time;
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

class Timer {
  public:
    Timer() { ++depth; }
    ~Timer() {
        if (--depth == 0) spent += kel_bench::thread_seconds() - start_;
    }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

  private:
    double start_ = kel_bench::thread_seconds();
};

}  // namespace

double kel_bench::thread_seconds() {
    return clock_seconds(CLOCK_THREAD_CPUTIME_ID);
}

double kel_bench::process_seconds() {
    return clock_seconds(CLOCK_PROCESS_CPUTIME_ID);
}

double kel_bench::codec_seconds() {
    return spent;
}

#define KEL_TIMED(function, parameters, arguments)                                                   \
    extern "C" __attribute__((visibility("default"))) int function parameters {                      \
        static const auto next = reinterpret_cast<decltype(&function)>(dlsym(RTLD_NEXT, #function)); \
        const Timer timer;                                                                           \
        return next arguments;                                                                       \
    }

KEL_TIMED(avcodec_open2, (AVCodecContext * context, const AVCodec* codec, AVDictionary** options),
          (context, codec, options))
KEL_TIMED(avcodec_send_packet, (AVCodecContext * context, const AVPacket* packet), (context, packet))
KEL_TIMED(avcodec_receive_frame, (AVCodecContext * context, AVFrame* frame), (context, frame))
KEL_TIMED(avcodec_send_frame, (AVCodecContext * context, const AVFrame* frame), (context, frame))
KEL_TIMED(avcodec_receive_packet, (AVCodecContext * context, AVPacket* packet), (context, packet))
KEL_TIMED(av_read_frame, (AVFormatContext * format, AVPacket* packet), (format, packet))
KEL_TIMED(avformat_write_header, (AVFormatContext * format, AVDictionary** options), (format, options))
KEL_TIMED(av_interleaved_write_frame, (AVFormatContext * format, AVPacket* packet), (format, packet))
KEL_TIMED(av_write_trailer, (AVFormatContext * format), (format))
