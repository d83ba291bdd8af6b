// kel info: what is in a file, as the framework sees it.
#pragma once

#include <string>
#include <vector>

namespace kel_tool {

// A line KEY=VALUE for each fact; several files are told apart by their "file" line. Throws failure.
void show_info(const std::vector<std::string>& paths);

}  // namespace kel_tool
