// The words of FFmpeg's libraries, told through the platform's log.
#pragma once

namespace platform {

// Once for the process: what FFmpeg would print to standard error goes to AoLog as information (level 6), as far as
// FFmpeg's own level (av_log_set_level) lets it through. Who uses those libraries reports their failures itself.
void take_over_ffmpeg_log();

}  // namespace platform
