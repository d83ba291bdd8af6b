// --stats: what a road did, in words and numbers.
#pragma once

#include "media/pipeline.hpp"

namespace kel_tool {

void print_stats(const road& road, double seconds);

}  // namespace kel_tool
