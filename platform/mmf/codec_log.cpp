// The codecs' own messages go where all others go, as traces: what matters of them is in the filters' "Error".
#include <aoi/aoi.h>

#include <cstring>

#include "mmf/file_filters.hpp"

extern "C" {
#include <libavutil/log.h>
}

namespace platform::mmf {
namespace {

constexpr int trace_level = 7;

void pass_on(void* source, int level, const char* format, va_list arguments) {
    if (level > av_log_get_level()) return;
    char line[1024];
    int with_prefix = 1;
    av_log_format_line(source, level, format, arguments, line, sizeof line, &with_prefix);
    line[std::strcspn(line, "\n")] = '\0';
    if (line[0]) AoLog(trace_level, "%s", line);
}

}  // namespace

void take_codec_log() {
    static const bool taken = [] { return av_log_set_callback(pass_on), true; }();
    static_cast<void>(taken);
}

}  // namespace platform::mmf
