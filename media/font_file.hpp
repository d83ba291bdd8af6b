// Fonts by the name that people know.
#pragma once

#include <string>

namespace kel_tool {

inline constexpr const char* default_font = "DejaVu Sans";

// A font's file: the path itself (anything with a slash, or what exists), or the file of that name under the font
// folders of the machine and the user, with or without its ending, blanks, hyphens and "Regular": "DejaVu Sans Bold",
// "lato". Throws failure, which names some that exist.
std::string find_font(const std::string& name);

}  // namespace kel_tool
