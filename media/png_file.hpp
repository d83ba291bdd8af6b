// Pictures as PNG files.
#pragma once

#include <kel.h>

#include <string>

namespace kel_tool {

// Writes the slice's part of a frame of 32-bit pixels, alpha not premultiplied. The file is whole or not there: it is
// written beside the one it replaces. What is no file, such as a device, is written to directly. Throws failure.
void write_png(const std::string& path, const kel_slice& picture);

}  // namespace kel_tool
