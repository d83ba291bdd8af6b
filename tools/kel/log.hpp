// The library's log on standard error.
#pragma once

namespace kel_tool {

// `verbosity` counts -v: 0 shows nothing, 1 failures and notices, 2 information, too, 3 traces, too.
void start_log(int verbosity);

}  // namespace kel_tool
