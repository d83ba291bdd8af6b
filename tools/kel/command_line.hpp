// The sub-commands' options. The two files behind these calls are the only ones that see the options library, beside
// main: each fills an options record per command and calls the command's function, which throws failure.
#pragma once

namespace CLI {
class App;
}

namespace kel_tool {

void add_media_commands(CLI::App& app);    // run, convert, mix, slides, info
void add_picture_commands(CLI::App& app);  // text, image, frame, filters

}  // namespace kel_tool
