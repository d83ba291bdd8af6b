// Where the program finds its video filters: those of the shelf by name, others by their file.
#pragma once

#include <string>
#include <vector>

struct kel_video_filter;

namespace kel_tool {

// share/kel: beside the program as installed, or in the sources of a program that was only built. $KEL_SHARE goes first.
const std::string& share_folder();  // throws failure

// The shelf's filter files, by name.
std::vector<std::string> shelf_files();

// The file of a filter: a shelf name's, or the path itself.
std::string filter_path(const std::string& name);

// A filter by its name on the shelf or the path of its file (anything with a slash or ending in .glsl). Throws failure.
kel_video_filter* find_filter(const std::string& name);

// A whole text file. Throws failure.
std::string read_text_file(const std::string& path);

}  // namespace kel_tool
