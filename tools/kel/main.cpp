// kel: the library's work from the command line.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "command_line.hpp"
#include "log.hpp"
#include "media/failure.hpp"

namespace {

// Runs what the command line asks for; the commands throw failure.
int run(int argc, char** argv) {
    CLI::App app("Decodes, mixes, filters, annotates and encodes media", "kel");
    app.require_subcommand(1);
    app.set_version_flag("--version", "kel " KEL_TOOL_VERSION);
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string("kel: ") + error.what() + "; --help tells more\n";
    });
    app.footer(
        "Examples:\n"
        "  kel run clip.mp4 -o brown.mp4 --filter sepia\n"
        "  kel frame clip.mp4 --at 2.5 -o frame.png\n"
        "Each command has its own --help; man kel tells all.");
    int verbosity = 0;
    app.add_flag_function(
        "-v,--verbose", [&](std::int64_t count) { verbosity = static_cast<int>(count); },
        "Show the library's log; twice or three times for more");
    app.parse_complete_callback([&] { kel_tool::start_log(verbosity); });
    app.fallthrough();
    kel_tool::add_media_commands(app);
    kel_tool::add_picture_commands(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kel_tool::exit_done : kel_tool::exit_usage;
    }
    if (std::fflush(stdout) != 0) throw kel_tool::failure("standard output cannot be written");
    return kel_tool::exit_done;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const kel_tool::failure& error) {
        std::fprintf(stderr, "kel: %s\n", error.what());
        return error.status();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kel: %s\n", error.what());
        return kel_tool::exit_failed;
    }
}
