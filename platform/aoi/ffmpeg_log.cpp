#include "aoi/ffmpeg_log.hpp"

#include <aoi/aoi.h>

#include <cstring>
#include <mutex>

extern "C" {
#include <libavutil/log.h>
}

namespace platform {
namespace {

constexpr int information = 6;

void tell(void* context, int level, const char* format, va_list arguments) {
    if (level > av_log_get_level()) return;
    char line[1000];
    int begins_line = 1;
    av_log_format_line2(context, level, format, arguments, line, sizeof line, &begins_line);
    line[std::strcspn(line, "\n")] = '\0';
    if (line[0]) AoLog(information, "%s", line);
}

}  // namespace

void take_over_ffmpeg_log() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_callback(tell); });
}

}  // namespace platform
