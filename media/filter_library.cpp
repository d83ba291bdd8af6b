#include "filter_library.hpp"

#include <kel.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "failure.hpp"

namespace fs = std::filesystem;

namespace kel_tool {
namespace {

std::string find_share_folder() {
    std::error_code ignored;
    const fs::path program = fs::read_symlink("/proc/self/exe", ignored);
    const char* chosen = std::getenv("KEL_SHARE");
    for (const fs::path& folder :
         {fs::path(chosen ? chosen : ""), program.parent_path().parent_path() / KEL_TOOL_SHARE})
        if (fs::is_directory(folder / "filters", ignored)) return folder.string();
    throw failure("the folder of the video filters (share/kel) is not there; set KEL_SHARE to it");
}

bool is_file(const std::string& name) {
    return name.find('/') != std::string::npos || name.ends_with(".glsl");
}

}  // namespace

const std::string& share_folder() {
    static const std::string folder = find_share_folder();
    return folder;
}

std::vector<std::string> shelf_files() {
    std::vector<std::string> files;
    for (const auto& entry : fs::directory_iterator(share_folder() + "/filters"))
        if (entry.path().extension() == ".glsl") files.push_back(entry.path().string());
    std::sort(files.begin(), files.end());
    return files;
}

std::string filter_path(const std::string& name) {
    return is_file(name) ? name : share_folder() + "/filters/" + name + ".glsl";
}

kel_video_filter* find_filter(const std::string& name) {
    const std::string path = filter_path(name);
    std::error_code ignored;
    if (!fs::exists(path, ignored))
        throw failure(is_file(name) ? path + ": no such file"
                                    : "no video filter is named " + name + "; see: kel filters");
    kel_video_filter* filter = kel_load_video_filter_shader_from_file(path.c_str());
    if (!filter) throw failure(path + ": it is not a video filter: its header comment must name one");
    return filter;
}

std::string read_text_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw failure(path + ": it cannot be read");
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace kel_tool
