#include "info_command.hpp"

#include <cinttypes>
#include <cstdio>

#include "media/input.hpp"

namespace kel_tool {
namespace {

void show(const session& session, const std::string& path) {
    const media_input input(session, path);
    std::printf("file=%s\n", path.c_str());
    std::printf("duration=%.6f\n", static_cast<double>(input.duration()) / 1e6);
    if (const kel_channel_format* format = input.audio())
        std::printf("audio.rate=%" PRId32 "\naudio.channels=%" PRId32 "\n", format->audio.rate,
                    format->audio.channels);
    if (const kel_channel_format* format = input.video())
        std::printf("video.width=%" PRId32 "\nvideo.height=%" PRId32 "\nvideo.frame_rate=%" PRId32 "\n",
                    format->video.width, format->video.height, format->video.frame_rate);
    if (!input.left_out().empty()) std::printf("left_out=%s\n", input.left_out().c_str());
}

}  // namespace

void show_info(const std::vector<std::string>& paths) {
    session session;
    for (const std::string& path : paths) show(session, path);
}

}  // namespace kel_tool
