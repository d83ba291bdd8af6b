// Ctrl-C: the first one asks the work to come to a proper end, the next one ends the program.
#pragma once

namespace kel_tool {

void watch_for_interrupt();
bool interrupted();

}  // namespace kel_tool
