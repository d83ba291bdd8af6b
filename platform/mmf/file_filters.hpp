// What the file source and the file sink share.
#pragma once

#include <mm/mmf.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "mmf/no_throw.hpp"

namespace platform::mmf {

// Results of SetResource beside errno values.
inline constexpr int resource_not_writable = 1;
inline constexpr int resource_unknown = 4032;

}  // namespace platform::mmf
