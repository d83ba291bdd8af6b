#include "report.hpp"

#include <sys/resource.h>

#include <cinttypes>
#include <cstdio>

namespace kel_tool {
namespace {

void print_pool(const char* name, const road_stats::pool& pool) {
    if (pool.buffers == 0) return;
    std::printf("%-24s %d of %d at most, waited for %" PRId64 " times\n", name, pool.peak, pool.buffers,
                pool.waits);
}

void print_queue(const char* name, const road_stats::queue& queue) {
    if (queue.peak > 0)
        std::printf("%-24s %" PRIu32 " of %" PRIu32 " at most\n", name, queue.peak, queue.limit);
}

double seconds_of(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double mebibytes(int64_t bytes) {
    return static_cast<double>(bytes) / (1 << 20);
}

}  // namespace

void print_stats(const road& road, double seconds) {
    const road_stats& stats = road.stats;
    print_pool("decoded pictures:", stats.decoded_pictures);
    print_pool("finished pictures:", stats.finished_pictures);
    print_pool("mixed blocks:", stats.mixed);
    print_queue("queue to the drawing:", stats.to_drawing);
    print_queue("queue to the encoder:", stats.to_encoder);
    print_queue("queue of sound:", stats.sound);
    std::printf("%-24s sound %.1f MiB, pictures %.1f MiB, blits %.1f MiB\n",
                "copied:", mebibytes(stats.audio_bytes), mebibytes(stats.video_bytes),
                mebibytes(stats.blit_bytes));
    if (stats.sound.peak > 0)
        std::printf("%-24s %.1f ms at most, %" PRId64 " frames left out against it\n",
                    "drift of the sound:", static_cast<double>(stats.worst_drift) / 1000,
                    stats.dropped_frames);
    if (road.was_warm())
        std::printf("%-24s %+.1f KiB since %d pictures or blocks were done\n",
                    "heap:", static_cast<double>(road.heap_growth()) / 1024,
                    static_cast<int>(road::warm_after));
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("%-24s %.2f s, processor %.2f s, at most %.1f MiB of memory\n", "time:", seconds,
                seconds_of(usage.ru_utime) + seconds_of(usage.ru_stime),
                static_cast<double>(usage.ru_maxrss) / 1024);
}

}  // namespace kel_tool
