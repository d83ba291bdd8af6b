#include "font_file.hpp"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "failure.hpp"

namespace fs = std::filesystem;

namespace kel_tool {
namespace {

// Letters and digits alone, in lower case.
std::string plain(const std::string& name) {
    std::string letters;
    for (const char each : name)
        if (const auto byte = static_cast<unsigned char>(each); std::isalnum(byte) || byte >= 0x80)
            letters += static_cast<char>(std::tolower(byte));
    return letters;
}

std::vector<fs::path> font_files() {
    const char* home = std::getenv("HOME");
    const fs::path folders[] = {fs::path(home ? home : "/nonexistent") / ".local/share/fonts",
                                "/usr/local/share/fonts", "/usr/share/fonts"};
    const std::string endings[] = {".ttf", ".otf", ".ttc", ".pfb", ".pfa", ".bdf", ".pcf"};
    std::vector<fs::path> files;
    std::error_code ignored;
    for (const fs::path& folder : folders)
        for (const auto& entry :
             fs::recursive_directory_iterator(folder, fs::directory_options::skip_permission_denied, ignored))
            if (std::count(std::begin(endings), std::end(endings), entry.path().extension().string()))
                files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

bool is_named(const fs::path& file, const std::string& name) {
    const std::string stem = plain(file.stem().string());
    return stem == name || stem == name + "regular" || plain(file.filename().string()) == name;
}

std::string some_names(const std::vector<fs::path>& files) {
    constexpr size_t shown = 6;
    std::string names;
    for (size_t i = 0; i < files.size() && i < shown; ++i)
        names += (i ? ", " : "") + files[i].stem().string();
    if (files.empty()) return "none is installed (package fonts-dejavu-core)";
    return "there are " + names +
           (files.size() > shown ? " and " + std::to_string(files.size() - shown) + " more" : "");
}

}  // namespace

std::string find_font(const std::string& name) {
    std::error_code ignored;
    if (fs::is_regular_file(name, ignored)) return name;
    if (name.find('/') != std::string::npos) throw failure(name + ": there is no such font file");
    const std::vector<fs::path> files = font_files();
    const std::string wanted = plain(name);
    const auto found = std::find_if(files.begin(), files.end(),
                                    [&](const fs::path& file) { return is_named(file, wanted); });
    if (found == files.end()) throw failure("no font is named '" + name + "'; " + some_names(files));
    return found->string();
}

}  // namespace kel_tool
