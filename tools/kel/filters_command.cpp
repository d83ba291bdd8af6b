#include "filters_command.hpp"

#include <cstdio>
#include <filesystem>

#include "filter_lint.hpp"
#include "media/failure.hpp"
#include "media/filter_library.hpp"
#include "media/session.hpp"

namespace kel_tool {
namespace {

void list_shelf(bool names_only) {
    for (const std::string& file : shelf_files()) {
        if (names_only)
            std::printf("%s\n", std::filesystem::path(file).stem().c_str());
        else
            print_filter(find_filter(file));
    }
}

}  // namespace

void show_filters(const filters_options& options) {
    if (options.files.empty()) return list_shelf(options.names_only);
    session session;
    filter_lint lint(session);
    std::string bad;
    for (const std::string& file : options.files) {
        if (&file != &options.files.front()) std::printf("\n");
        if (!lint.check(file)) bad += (bad.empty() ? "" : ", ") + file;
    }
    if (!bad.empty()) throw failure("not sound: " + bad);
}

}  // namespace kel_tool
