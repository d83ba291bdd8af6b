#include "screen/properties.hpp"

namespace platform::screen {
namespace {

constexpr int every_usage = SCREEN_USAGE_DISPLAY | SCREEN_USAGE_READ | SCREEN_USAGE_WRITE |
                            SCREEN_USAGE_NATIVE | SCREEN_USAGE_OPENGL_ES1 | SCREEN_USAGE_OPENGL_ES2 |
                            SCREEN_USAGE_OPENVG | SCREEN_USAGE_VIDEO | SCREEN_USAGE_CAPTURE |
                            SCREEN_USAGE_ROTATION;

}  // namespace

int check_format(const int* values) {
    return is_known_format(values[0]) ? 0 : ENOTSUP;
}

int check_usage(const int* values) {
    return (values[0] & ~every_usage) == 0 ? 0 : EINVAL;
}

// A size below one is taken: it means no buffers, and making some is what is refused.
int check_buffer_size(const int* values) {
    return values[0] <= largest_dimension && values[1] <= largest_dimension ? 0 : EINVAL;
}

}  // namespace platform::screen
