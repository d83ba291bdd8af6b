#include "log.hpp"

#include <aoi/aoi.h>

#include <cstdio>

namespace kel_tool {
namespace {

void print(void*, int level, const char* message) {
    std::fprintf(stderr, "[%d] %s\n", level, message);
}

}  // namespace

void start_log(int verbosity) {
    // The program says in its own words what went wrong; the library's are for those who ask.
    constexpr int thresholds[] = {0, 5, 6, 7};
    AoLogSetThreshold(thresholds[verbosity < 3 ? verbosity : 3]);
    AoLogSetSink(print, nullptr);
}

}  // namespace kel_tool
