#include <CLI/CLI.hpp>

#include "command_line.hpp"

namespace kel_tool {

void add_picture_commands(CLI::App&) {}

}  // namespace kel_tool
