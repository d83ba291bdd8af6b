// Values of options that are more than a number or a text. Everything here throws failure with exit_usage.
#pragma once

#include <kel.h>

#include <cstdint>
#include <string>

#include "media/output.hpp"

namespace kel_tool {

int64_t parse_time(const std::string& text);       // seconds or [[H:]M:]S, with a fraction; microseconds
picture_size parse_size(const std::string& text);  // WxH, both even and 2 to 8192
picture_size parse_pair(const std::string& text, int most, const std::string& wanted);  // AxB, both 1 to most
picture_size parse_picture_size(const std::string& text);                               // WxH, 1 to 16384
kel_point parse_position(const std::string& text);                                      // X,Y
kel_rect parse_box(const std::string& text);                                            // X,Y,W,H
uint32_t parse_color(const std::string& text);  // #RRGGBB, #RRGGBBAA or white, black, red, ...; 0xAARRGGBB
void parse_align(const std::string& text, int& halign,
                 int& valign);                       // left, center, right[,baseline, bottom, ...]
uint32_t parse_audio_type(const std::string& text);  // U8, S16LE, S24.8LE

}  // namespace kel_tool
